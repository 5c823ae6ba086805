// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

// What the fuzz targets make of their bytes.
#ifndef MP4VDEC_FUZZ_INPUT_H_
#define MP4VDEC_FUZZ_INPUT_H_

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <span>
#include <vector>

#include "common/bsreader.h"
#include "common/context.h"
#include "mp4vdec.h"

namespace mp4v::fuzz {

// A chunk in a heap block of its own that ends with the 8 bytes behind the chunk, so that sanitizers see every access
// beyond them.
class PaddedChunk {
  public:
    PaddedChunk(std::span<const uint8_t> bytes, std::span<const uint8_t, MP4VDEC_CHUNK_PADDING> padding)
        : size_(bytes.size()), memory_(new uint8_t[size_ + MP4VDEC_CHUNK_PADDING]) {
        std::copy(bytes.begin(), bytes.end(), memory_.get());
        std::copy(padding.begin(), padding.end(), memory_.get() + size_);
    }
    // The last bytes are the padding; missing ones are 0.
    static PaddedChunk WithOwnPadding(std::span<const uint8_t> bytes) {
        std::array<uint8_t, MP4VDEC_CHUNK_PADDING> padding = {};
        const size_t tail = bytes.size() > 2 * padding.size() ? padding.size() : 0;
        std::copy(bytes.end() - static_cast<ptrdiff_t>(tail), bytes.end(), padding.begin());
        return {bytes.first(bytes.size() - tail), padding};
    }

    const uint8_t* data() const { return memory_.get(); }
    uint32_t size() const { return static_cast<uint32_t>(size_); }

    // How a chunk is read. Meaningful for at least one byte.
    BsReader Reader() const {
        BsReader reader;
        BsInit(&reader, data(), size());
        return reader;
    }

  private:
    size_t size_;
    std::unique_ptr<uint8_t[]> memory_;
};

// Words fetched since the reader was set up.
inline uint64_t Refills(const BsReader& reader) {
    return (reinterpret_cast<uintptr_t>(reader.pu32ReadPtr) - reinterpret_cast<uintptr_t>(reader.pu8BufStart)) / 4 - 2;
}

inline bool IsSound(const BsReader& reader) {
    const uint32_t error = reader.u32BsError;
    return reader.u32BitPos < 32 &&
           (error == 0 || error == ERR_VID_MPEG4DEC_BITSTREAM || error == ERR_VID_MPEG4DEC_COEFF);
}

// Little-endian fields from the front. Past the end everything is 0 and empty.
class ByteReader {
  public:
    explicit ByteReader(std::span<const uint8_t> bytes) : rest_(bytes) {}

    uint64_t Little(size_t count) {
        uint64_t value = 0;
        const std::span<const uint8_t> bytes = Take(count);
        for (size_t i = 0; i < bytes.size(); i++) value |= uint64_t{bytes[i]} << (8 * i);
        return value;
    }
    uint32_t U8() { return static_cast<uint32_t>(Little(1)); }
    uint32_t U32() { return static_cast<uint32_t>(Little(4)); }
    // What is left, if that is less.
    std::span<const uint8_t> Take(size_t count) {
        const std::span<const uint8_t> bytes = rest_.first(std::min(count, rest_.size()));
        rest_ = rest_.subspan(bytes.size());
        return bytes;
    }
    std::span<const uint8_t> rest() const { return rest_; }

  private:
    std::span<const uint8_t> rest_;
};

// A session with everything around the bytes, in the form of tests/vectors/*.case, which therefore are seeds. Any bytes
// make one: what is missing is 0 or empty.
struct SessionCase {
    struct Piece {
        uint32_t operation = 0;  // 0 process, 1 read the headers alone, 2 process without a picture buffer
        uint32_t flags = 0;
        uint32_t end_of_stream = 0;
        uint64_t time_stamp = 0;
        std::vector<uint8_t> data;
        std::array<uint8_t, MP4VDEC_CHUNK_PADDING> padding{};
    };
    static constexpr uint32_t kMagic = 0x4334504D;  // "MP4C"
    static constexpr size_t kMaxRecords = 16;
    static constexpr size_t kMaxPieces = 24;

    uint32_t open_width = 0;
    uint32_t open_height = 0;
    uint32_t ext_mode = 0;      // low byte: 0 none, 1 one record, 2 a list
    uint32_t fail_in_open = 0;  // next byte of the same word: the allocation that fails in an Open before the session
    std::vector<std::array<uint32_t, 4>> records;
    std::vector<Piece> pieces;

    static SessionCase Parse(std::span<const uint8_t> bytes) {
        ByteReader in(bytes);
        SessionCase result;
        in.U32();
        result.open_width = in.U32();
        result.open_height = in.U32();
        const uint32_t mode = in.U32();
        result.ext_mode = mode & 0xFF;
        result.fail_in_open = mode >> 8 & 0xFF;
        const size_t records = std::min<size_t>(in.U32(), kMaxRecords);
        for (size_t i = 0; i < records && !in.rest().empty(); i++) {
            result.records.push_back({in.U32(), in.U32(), in.U32(), in.U32()});
        }
        const size_t pieces = std::min<size_t>(in.U32(), kMaxPieces);
        for (size_t i = 0; i < pieces && !in.rest().empty(); i++) {
            Piece piece;
            piece.operation = in.U32();
            piece.flags = in.U32();
            piece.end_of_stream = in.U32();
            piece.time_stamp = in.Little(8);
            const std::span<const uint8_t> data = in.Take(in.U32());
            piece.data.assign(data.begin(), data.end());
            const std::span<const uint8_t> padding = in.Take(piece.padding.size());
            std::copy(padding.begin(), padding.end(), piece.padding.begin());
            result.pieces.push_back(std::move(piece));
        }
        return result;
    }

    std::vector<uint8_t> Serialize() const {
        std::vector<uint8_t> out;
        const auto put = [&out](uint64_t value, size_t count) {
            for (size_t i = 0; i < count; i++) out.push_back(static_cast<uint8_t>(value >> (8 * i)));
        };
        put(kMagic, 4);
        put(open_width, 4);
        put(open_height, 4);
        put(ext_mode | fail_in_open << 8, 4);
        put(records.size(), 4);
        for (const auto& record : records) {
            for (const uint32_t word : record) put(word, 4);
        }
        put(pieces.size(), 4);
        for (const Piece& piece : pieces) {
            put(piece.operation, 4);
            put(piece.flags, 4);
            put(piece.end_of_stream, 4);
            put(piece.time_stamp, 8);
            put(piece.data.size(), 4);
            out.insert(out.end(), piece.data.begin(), piece.data.end());
            out.insert(out.end(), piece.padding.begin(), piece.padding.end());
        }
        return out;
    }
};

}  // namespace mp4v::fuzz

#endif  // MP4VDEC_FUZZ_INPUT_H_
