// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

// The host's side of a stream: cutting it into chunks as it arrives, finding headers, rounding sizes.
#include <algorithm>

#include "fuzz/check.h"
#include "fuzz/input.h"
#include "fuzz/mutator.h"
#include "host/splitter.h"
#include "host/vol_header.h"

namespace mp4v::fuzz {
namespace {

constexpr size_t kPrefix = 2;

using Bytes = std::vector<uint8_t>;

// The chunks of a stream that arrives in pieces of up to `step` bytes, 1 at least.
std::vector<Chunk> Split(std::span<const uint8_t> stream, size_t step, size_t limit) {
    Splitter splitter(limit);
    std::vector<Chunk> chunks;
    Chunk chunk;
    ByteReader in(stream);
    while (!in.rest().empty()) {
        const std::span<const uint8_t> piece = in.Take(step);
        const std::unique_ptr<uint8_t[]> exact(new uint8_t[piece.size()]);
        std::copy(piece.begin(), piece.end(), exact.get());
        splitter.Append({exact.get(), piece.size()});
        while (splitter.Next(chunk)) chunks.push_back(chunk);
    }
    splitter.Finish();
    while (splitter.Next(chunk)) chunks.push_back(chunk);
    return chunks;
}

void CheckJoined(const std::vector<Chunk>& chunks, std::span<const uint8_t> stream) {
    size_t at = 0;
    for (const Chunk& chunk : chunks) {
        FUZZ_CHECK(!chunk.data.empty() && chunk.offset == at && chunk.data.size() <= stream.size() - at);
        FUZZ_CHECK(std::equal(chunk.data.begin(), chunk.data.end(), stream.begin() + static_cast<ptrdiff_t>(at)));
        at += chunk.data.size() + chunk.dropped;
        FUZZ_CHECK(at <= stream.size());
    }
    FUZZ_CHECK(at == stream.size());
}

void CheckSame(const std::vector<Chunk>& a, const std::vector<Chunk>& b) {
    FUZZ_CHECK(a.size() == b.size());
    for (size_t i = 0; i < a.size(); i++) {
        FUZZ_CHECK(a[i].offset == b[i].offset && a[i].data == b[i].data && a[i].has_picture == b[i].has_picture);
        FUZZ_CHECK(a[i].dropped == b[i].dropped);
    }
}

uint32_t Field(const Bytes& bytes, size_t position, size_t width) {
    uint32_t value = 0;
    for (size_t i = position; i < position + width; i++) value = value << 1 | (bytes[i / 8] >> (7 - i % 8) & 1u);
    return value;
}

// Rounding changes the size fields and nothing else, and a second time nothing at all.
void CheckRounding(const Bytes& chunk) {
    const ChunkHeaders headers = ScanHeaders(chunk);
    Bytes rounded = chunk;
    RoundVolSizes(rounded, headers);
    Bytes expected = chunk;
    const auto round_field = [&expected](size_t position, uint32_t size) {
        FUZZ_CHECK(position + 13 <= expected.size() * 8 && Field(expected, position, 13) == size);
        if (size > 0x1FF0) return;  // would not fit
        for (size_t i = 0; i < 13; i++) {
            const uint8_t mask = static_cast<uint8_t>(0x80 >> (position + i) % 8);
            uint8_t& byte = expected[(position + i) / 8];
            byte = static_cast<uint8_t>(RoundUpTo16(size) >> (12 - i) & 1 ? byte | mask : byte & ~mask);
        }
    };
    for (const VolHeader& vol : headers.vols) {
        if (!vol.has_size() || !IsSupportedSize(vol.width, vol.height)) continue;
        round_field(vol.width_position, vol.width);
        round_field(vol.height_position, vol.height);
    }
    FUZZ_CHECK(rounded == expected);
    Bytes again = rounded;
    RoundVolSizes(again, ScanHeaders(rounded));
    FUZZ_CHECK(again == rounded);
}

void CheckHeaders(const Bytes& chunk) {
    const ChunkHeaders headers = ScanHeaders(chunk);
    for (const VolHeader& vol : headers.vols) {
        FUZZ_CHECK(vol.position + 4 <= chunk.size() && vol.shape <= 3 && vol.width < 8192 && vol.height < 8192);
        FUZZ_CHECK(vol.time_increment_bits() >= 1 && vol.time_increment_bits() <= 16);
        for (size_t position = 0; position <= chunk.size() + 4; position++) ReadVopHeader(chunk, position, vol);
    }
    if (headers.vop_position) {
        FUZZ_CHECK(*headers.vop_position + 4 <= chunk.size());
        FUZZ_CHECK(Field(chunk, *headers.vop_position * 8, 32) == 0x1B6);
    }
}

}  // namespace
}  // namespace mp4v::fuzz

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace mp4v;
    fuzz::ByteReader in({data, size});
    const size_t step = in.U8() + 1;
    const uint32_t limit_choice = in.U8();
    const size_t limit = limit_choice < 128 ? Splitter::kDefaultLimit : limit_choice - 128;
    const std::vector<Chunk> chunks = fuzz::Split(in.rest(), step, limit);
    fuzz::CheckJoined(chunks, in.rest());
    fuzz::CheckSame(chunks, fuzz::Split(in.rest(), size + 1, limit));
    for (const Chunk& chunk : chunks) {
        fuzz::CheckHeaders(chunk.data);
        fuzz::CheckRounding(chunk.data);
    }
    fuzz::CheckRounding({in.rest().begin(), in.rest().end()});
    return 0;
}

MP4VDEC_FUZZ_MUTATORS(mp4v::fuzz::kPrefix);
