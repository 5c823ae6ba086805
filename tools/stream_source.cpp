/* SPDX-License-Identifier: BSD-2-Clause
 * Copyright (c) 2026, the mp4vdec authors */
#include "tools/stream_source.h"

#include <string_view>
#include <utility>

namespace mp4v {
namespace {

constexpr size_t kBlockSize = size_t{1} << 16;
constexpr size_t kHeadSize = 12;

}  // namespace

StreamSource::StreamSource(const std::string& path) : file_(path), block_(kBlockSize) {
    first_ = ReadBlock();
}

std::span<const uint8_t> StreamSource::Read() {
    return first_.empty() ? ReadBlock() : std::exchange(first_, {});
}

std::span<const uint8_t> StreamSource::ReadBlock() {
    const size_t got = file_.Read(block_);
    bytes_read_ += got;
    return std::span(block_).first(got);
}

const char* StreamSource::container() const {
    const std::string_view head(reinterpret_cast<const char*>(block_.data()), kHeadSize);
    if (head.starts_with("RIFF") && head.substr(8, 4) == "AVI ") return "an AVI file";
    if (head.substr(4, 4) == "ftyp") return "an MP4 file";
    if (head.starts_with("\x1A\x45\xDF\xA3")) return "a Matroska file";
    return nullptr;
}

}  // namespace mp4v
