// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

// Replays recorded decoder sessions (tests/vectors/README.md) as a strict host: every buffer that the decoder is given
// touches a page without access, chunks are read-only, and memory comes filled with rubbish.
#ifndef MP4VDEC_TESTS_VECTOR_REPLAY_H_
#define MP4VDEC_TESTS_VECTOR_REPLAY_H_

#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "mp4vdec.h"

namespace mp4v::test {

struct VectorChunk {
    bool headers_only = false;  // Mp4vPreDecBs instead of Mp4vDecoderProcess
    uint32_t flags = 0;
    uint32_t end_of_stream = 0;
    uint64_t time_stamp = 0;
    std::vector<uint8_t> data;
    std::array<uint8_t, MP4VDEC_CHUNK_PADDING> tail{};
};

struct VectorCase {
    uint32_t open_width = 0;
    uint32_t open_height = 0;
    uint32_t ext_mode = 0;  // 0 none, 1 one record, 2 a list
    std::vector<std::array<uint32_t, 4>> ext_records;
    std::vector<VectorChunk> chunks;
};

// The library under test: the descriptor, and the entry point that stands outside its table.
struct DecoderApi {
    const VidDecFuncs* functions = nullptr;
    uint32_t (*pre_decode)(void*, const Mp4vDecInArgs*, uint32_t*, uint32_t*) = nullptr;
    // The size that an instance works with; optional.
    void (*current_size)(const void*, uint32_t*, uint32_t*) = nullptr;
};

// A result line, and what the caller's picture holds at this point.
struct ReplayLine {
    std::string text;  // without mb=
    std::vector<uint8_t> buffer;
    uint32_t width = 0;  // of the last picture delivered, or the open size
    uint32_t height = 0;
    bool delivered = false;    // by this very chunk
    size_t picture_bytes = 0;  // of the size that the instance works with now; 0 when it cannot be asked
};

struct ReplayResult {
    std::vector<ReplayLine> lines;
    std::vector<std::string> problems;  // accesses outside the buffers, leaked or damaged memory
};

// False, with a message in `error`, when the bytes are not a complete case.
bool ParseCase(std::span<const uint8_t> bytes, VectorCase* result, std::string* error);
std::vector<uint8_t> ReadFile(const std::string& path);
std::vector<std::string> ReadLines(const std::string& path);

ReplayResult Replay(const DecoderApi& api, const VectorCase& vector);

// Which end of a buffer touches the page without access.
enum class Flush { kLeft, kRight };

// Replays once more, giving each chunk a picture buffer of exactly the size that the instance worked with in `replay`,
// filled with what that replay's buffer held. All buffers, chunks and allocations are flush to the given side.
// Empty when everything is as in `replay` and nothing outside a buffer was touched; else what went wrong.
std::vector<std::string> FindEscapes(const DecoderApi& api, const VectorCase& vector, const ReplayResult& replay,
                                     Flush flush);

// How much of a recording counts: all; all but the bytes of the caller's buffer behind the current picture; what the
// calls return and write into their records, without samples.
enum class Extent { kAll, kPictures, kRecords };

// Empty when every line agrees and there were no problems; else says what differs first and where. Without the bytes
// behind the picture, delivered pictures are compared by their macroblocks.
std::string Compare(const ReplayResult& result, const std::vector<std::string>& expected, Extent extent = Extent::kAll);

constexpr uint64_t kFnvBasis = 0xcbf29ce484222325;
constexpr uint64_t kBufferBasis = 0x14650fb0739d0383;  // what the recorded buffer= values start from
uint64_t Fnv1a64(std::span<const uint8_t> bytes, uint64_t basis = kFnvBasis);

// Four hex digits per macroblock of a compact planar 4:2:0 picture.
std::string MacroblockDigests(std::span<const uint8_t> picture, uint32_t width, uint32_t height);

}  // namespace mp4v::test

#endif  // MP4VDEC_TESTS_VECTOR_REPLAY_H_
