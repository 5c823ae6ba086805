// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

// An open instance whose reader can be put on any bits, for tests of the header parsers.
#ifndef MP4VDEC_TESTS_SUPPORT_HEADER_PARSER_H_
#define MP4VDEC_TESTS_SUPPORT_HEADER_PARSER_H_

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <utility>
#include <vector>

#include "common/bsreader.h"
#include "common/headers.h"
#include "support/test_decoder.h"

namespace mp4v::test {

class HeaderParser : public TestDecoder {
  public:
    explicit HeaderParser(uint32_t width = 64, uint32_t height = 48) : TestDecoder(width, height) {}

    void SetReader(const std::vector<uint8_t>& bytes, uint8_t tail = 0) { SetReader(Chunk(bytes, tail)); }
    void SetReader(const BitWriter& bits) { SetReader(bits.Bytes()); }
    void SetReader(Chunk chunk) {
        chunk_.emplace(std::move(chunk));
        BsInit(&ctx().tBs, chunk_->data(), chunk_->size());
    }

    uint32_t Scan(const BitWriter& bits) {
        SetReader(bits);
        return BsHeaders(&ctx());
    }
    uint32_t Scan(const std::vector<uint8_t>& bytes) {
        SetReader(bytes);
        return BsHeaders(&ctx());
    }

    // The reader begins behind the start code.
    uint32_t ParseVol(const VolHeader& vol) {
        BitWriter bits;
        vol.PutBody(bits);
        SetReader(bits);
        return DecVolHeader(&ctx());
    }

    uint32_t ParseVop(const VopHeader& vop, const VolHeader& vol) {
        BitWriter bits;
        vop.PutTo(bits, vol);
        SetReader(bits);
        return DecVopHeader(&ctx());
    }

    // Bits of the chunk that are consumed.
    size_t Position() const {
        const BsReader& reader = ctx().tBs;
        const auto words = reinterpret_cast<uintptr_t>(reader.pu32ReadPtr);
        return (words - reinterpret_cast<uintptr_t>(reader.pu8BufStart) - 8) * 8 + reader.u32BitPos;
    }

    // The instance byte by byte, but for its reader.
    std::vector<uint8_t> State() const {
        const auto* const start = static_cast<const uint8_t*>(handle);
        std::vector<uint8_t> bytes(start, start + sizeof(Mp4vDecCtx));
        memset(bytes.data() + offsetof(Mp4vDecCtx, tBs), 0, sizeof(BsReader));
        return bytes;
    }

    bool AtStartCode(uint8_t code) const { return BsShow(&ctx().tBs, 32) == (0x100u | code); }

  private:
    std::optional<Chunk> chunk_;
};

}  // namespace mp4v::test

#endif  // MP4VDEC_TESTS_SUPPORT_HEADER_PARSER_H_
