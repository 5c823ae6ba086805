/* SPDX-License-Identifier: BSD-2-Clause
 * Copyright (c) 2026, the mp4vdec authors */
#include <string_view>

#include "tools/demuxer.h"

namespace mp4v {
namespace {

// What a QuickTime file may begin with; an MP4 file begins with the first of them.
constexpr std::string_view kAtoms[] = {"ftyp", "moov", "mdat", "wide", "free", "skip", "pnot"};

}  // namespace

Container ContainerOf(std::span<const uint8_t> head) {
    const std::string_view text(reinterpret_cast<const char*>(head.data()), head.size());
    if (text.size() < 12) return Container::kNone;
    if (text.starts_with("RIFF") && text.substr(8, 4) == "AVI ") return Container::kAvi;
    if (text.starts_with("\x1A\x45\xDF\xA3")) return Container::kMatroska;
    for (const std::string_view atom : kAtoms) {
        if (text.substr(4, 4) == atom) return Container::kMp4;
    }
    return Container::kNone;
}

const char* NameOf(Container container) {
    switch (container) {
        case Container::kAvi:
            return "AVI file";
        case Container::kMp4:
            return "MP4 or QuickTime file";
        case Container::kMatroska:
            return "Matroska file";
        case Container::kNone:
            break;
    }
    return "elementary stream";
}

}  // namespace mp4v
