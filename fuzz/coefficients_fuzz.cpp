// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

// Each coefficient decoder and each symbol of the macroblock layer, over and over until the chunk ends. The first byte
// tells which.
#include <algorithm>

#include "common/block.h"
#include "common/motion.h"
#include "fuzz/check.h"
#include "fuzz/input.h"
#include "fuzz/mutator.h"

namespace mp4v::fuzz {
namespace {

constexpr size_t kPrefix = 4;
constexpr int kRounds = 64;

// A block in a heap block of its own.
struct Block {
    explicit Block(size_t count = 1) : coefficients(new int16_t[count * 64]), count(count * 64) {
        std::fill_n(coefficients.get(), this->count, int16_t{0});
    }
    bool operator==(const Block& other) const {
        return std::equal(coefficients.get(), coefficients.get() + count, other.coefficients.get());
    }
    // Levels have 12 bits with their sign, or are one of 63 above one of 63; dequantised ones are clipped.
    bool InRange() const {
        return std::all_of(coefficients.get(), coefficients.get() + count,
                           [](int16_t level) { return level >= -2048 && level <= 2047; });
    }
    std::unique_ptr<int16_t[]> coefficients;
    size_t count;
};

bool Same(const BsReader& a, const BsReader& b) {
    return a.u32CurWord == b.u32CurWord && a.u32NextWord == b.u32NextWord && a.u32BitPos == b.u32BitPos &&
           a.pu32ReadPtr == b.pu32ReadPtr && a.u32BsError == b.u32BsError;
}

void CheckDcSize(uint32_t size, BsReader* reader) {
    FUZZ_CHECK(size <= 12);
    const int32_t difference = DecDcDif_c(reader, size);
    FUZZ_CHECK(difference > -4096 && difference < 4096);
}

// Decodes one block in two ways; false when it was refused.
bool DecodeBlock(BsReader* reader, uint32_t scan, uint32_t start, bool intra) {
    Block block, same;
    BsReader other = *reader;
    const uint32_t result = DecBlock_c(reader, block.coefficients.get(), scan, start, intra);
    if (intra) {
        FUZZ_CHECK(DecIntraBlock_c(&other, same.coefficients.get(), scan, start) == result);
    } else if (scan == SCAN_ALT_VERTICAL) {
        FUZZ_CHECK(DecInterBlockAlterScan_c(&other, same.coefficients.get()) == result);
    } else {
        FUZZ_CHECK(DecInterBlock_c(&other, same.coefficients.get()) == result);
    }
    FUZZ_CHECK(Same(*reader, other) && block == same && block.InRange());
    if (intra) {
        for (uint32_t i = 0; i < std::min(start, 64u); i++) {
            FUZZ_CHECK(block.coefficients[g_au16ScanTables[scan <= 2 ? scan : 0][i]] == 0);
        }
    }
    if (!intra && result != ERR_VID_MPEG4DEC_COEFF) FUZZ_CHECK(result < 64);
    return result != ERR_VID_MPEG4DEC_COEFF;
}

bool DecodeBlocks(BsReader* reader, uint32_t scan, uint32_t mask, uint32_t quant) {
    Block blocks(static_cast<size_t>(__builtin_popcount(mask & 63)));
    DecInterBlocks_c(reader, blocks.coefficients.get(), scan, mask, quant);
    FUZZ_CHECK(blocks.InRange());
    return reader->u32BsError != ERR_VID_MPEG4DEC_COEFF;
}

bool DecodeSymbol(uint32_t symbol, BsReader* reader, uint32_t parameter) {
    uint32_t value;
    int32_t vector;
    switch (symbol) {
        case 0:
            value = DecMcbpcIntra_c(reader);
            FUZZ_CHECK(value == MP4V_INVALID_CODE || (value >> 4 <= 3 && ((value & 7) == 3 || (value & 7) == 4)));
            return value != MP4V_INVALID_CODE;
        case 1:
            value = DecMcbpcInter_c(reader);
            FUZZ_CHECK(value == MP4V_INVALID_CODE || (value >> 4 <= 3 && (value & 7) <= 4));
            return value != MP4V_INVALID_CODE;
        case 2:
            value = DecCbpy_c(reader, parameter & 1);
            FUZZ_CHECK(value == MP4V_INVALID_CODE || value <= 15);
            return value != MP4V_INVALID_CODE;
        case 3:
            CheckDcSize(DecDcSizeLuma_c(reader), reader);
            return true;
        case 4:
            CheckDcSize(DecDcSizeChroma_c(reader), reader);
            return true;
        case 5:
            vector = DecMvData_c(reader);
            FUZZ_CHECK(vector >= -32 && vector <= 32);
            return true;
        default:
            vector = DecMV_c(reader, parameter & 7);
            FUZZ_CHECK(vector >= -2048 && vector <= 2048);
            return true;
    }
}

void Run(ByteReader& in) {
    const uint32_t decoder = in.U8() % 12;
    const uint32_t scan = in.U8() % 4;
    const uint32_t start = in.U8() % 72;
    const uint32_t quant = in.U8() % 32;
    const PaddedChunk chunk = PaddedChunk::WithOwnPadding(in.rest());
    if (chunk.size() == 0) return;
    BsReader reader = chunk.Reader();
    bool good = true;
    for (int round = 0; round < kRounds && good && !reader.u32BsError; round++) {
        switch (decoder) {
            case 0:
                good = DecodeBlock(&reader, scan, start, true);
                break;
            case 1:
                good = DecodeBlock(&reader, scan, 0, false);
                break;
            case 2:
                good = DecodeBlocks(&reader, scan, start, quant);
                break;
            case 3:
                DecIntraBlockAlterScan_c(&reader, Block().coefficients.get(), start);
                break;
            default:
                good = DecodeSymbol(decoder - 4, &reader, quant);
        }
        FUZZ_CHECK(IsSound(reader));
    }
    // A block ends after 64 events of at most 30 bits.
    FUZZ_CHECK(Refills(reader) <= chunk.size() / 4 + 6 * 64 + 8);
}

}  // namespace
}  // namespace mp4v::fuzz

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    mp4v::fuzz::ByteReader in({data, size});
    mp4v::fuzz::Run(in);
    return 0;
}

MP4VDEC_FUZZ_MUTATORS(mp4v::fuzz::kPrefix);
