/* SPDX-License-Identifier: BSD-2-Clause
 * Copyright (c) 2026, the mp4vdec authors */
#include <array>
#include <bit>
#include <optional>
#include <string_view>

#include "tools/demuxer.h"

namespace mp4v {
namespace {

// What a QuickTime file may begin with; an MP4 file begins with the first of them.
constexpr std::string_view kAtoms[] = {"ftyp", "moov", "mdat", "wide", "free", "skip", "pnot"};

constexpr int kMostParts = 1000;

uint64_t BigEndian(std::span<const uint8_t> bytes) {
    uint64_t value = 0;
    for (const uint8_t byte : bytes) value = value << 8 | byte;
    return value;
}

std::optional<uint64_t> RiffSize(std::span<const uint8_t> head) {
    if (BigEndian(head.first(4)) != 0x52494646) return std::nullopt;  // "RIFF"
    return 8 + (head[4] | uint64_t{head[5]} << 8 | uint64_t{head[6]} << 16 | uint64_t{head[7]} << 24);
}

// 0 means up to the end of the file; after 1, the size has 64 bits.
std::optional<uint64_t> AtomSize(std::span<const uint8_t> head) {
    const uint64_t size = BigEndian(head.first(4));
    if (size == 1) return BigEndian(head.subspan(8, 8));
    return size == 0 ? std::nullopt : std::optional(size);
}

// An identifier and a size, each as long as the zeros before its first one tell; all ones are an unknown size.
std::optional<uint64_t> ElementSize(std::span<const uint8_t> head) {
    const auto id_length = static_cast<size_t>(std::countl_zero(head[0])) + 1;
    if (id_length > 4) return std::nullopt;
    const auto length = static_cast<size_t>(std::countl_zero(head[id_length])) + 1;
    if (length > 8) return std::nullopt;
    const uint64_t ones = (uint64_t{1} << (7 * length)) - 1;
    const uint64_t value = BigEndian(head.subspan(id_length, length)) & ones;
    return value == ones ? std::nullopt : std::optional(id_length + length + value);
}

// Of the part of a file that begins with these 16 bytes.
std::optional<uint64_t> PartSize(Container container, std::span<const uint8_t> head) {
    switch (container) {
        case Container::kAvi:
            return RiffSize(head);
        case Container::kMp4:
            return AtomSize(head);
        case Container::kMatroska:
            return ElementSize(head);
        case Container::kNone:
            break;
    }
    return std::nullopt;
}

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

uint64_t MissingBytes(Container container, InputFile& file) {
    uint64_t at = 0;
    for (int i = 0; i < kMostParts && file.size() && at < *file.size() && file.Seek(at); i++) {
        std::array<uint8_t, 16> head{};
        size_t size = 0;
        for (size_t got = 1; got > 0 && size < head.size(); size += got) got = file.Read(std::span(head).subspan(size));
        const std::optional<uint64_t> part = size < 8 ? std::nullopt : PartSize(container, head);
        if (!part || *part < 2) return 0;
        const uint64_t there = *file.size() - at;
        if (*part > there) return *part - there;
        at += *part;
    }
    return 0;
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
