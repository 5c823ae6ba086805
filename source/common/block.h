// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

// Transform coefficients of one block.
//
// Blocks are 64 values in raster order; only what is decoded is written, the rest must be zero already. A code that
// does not exist and a run past the last coefficient set the sticky error to ERR_VID_MPEG4DEC_COEFF and return it; what
// was stored before stays. Levels are not clipped.
//
// The functions without _c work on a cursor, so that a macroblock's blocks are decoded with the reader in registers.
#ifndef MP4VDEC_SOURCE_COMMON_BLOCK_H_
#define MP4VDEC_SOURCE_COMMON_BLOCK_H_

#include "common/kernels.h"
#include "common/quant_tables.h"
#include "common/vlc.h"

enum Mp4vScan : uint32_t { SCAN_ZIGZAG = 0, SCAN_ALT_HORIZONTAL = 1, SCAN_ALT_VERTICAL = 2 };

// An escape, or no code, taken apart.
struct RareEvent {
    uint32_t u32Event;  // as in TcoefEvents
    uint32_t u32Steps;  // bit n: a step of the reader ends behind n bits
};

// u32Bits: what is ahead. Out of line to keep the loops small.
RareEvent FindRareIntraEvent(uint32_t u32Bits);
RareEvent FindRareInterEvent(uint32_t u32Bits);

// Of the sum of a reader's bit position and a block's events.
enum : uint32_t {
    kSumRefill = 1 << 5,
    kSumLast = 1 << 7,
    kSumEnd = 1 << 15,
    kSumPassed = 1 << 14,  // with kSumLast: past the block
};

// Takes in the next word if the sum says so.
template <bool kIntra>
static MP4V_INLINE void RefillFor(BsCursor& tBs, uint32_t& u32Sum) {
    if (!(u32Sum & kSumRefill)) return;
    u32Sum -= kSumRefill;
    tBs.Refill(u32Sum & 31, kIntra);  // the intra syntax is read code, then sign; the inter syntax as a whole
}

// The event where the short codes have none.
template <bool kIntra>
static MP4V_INLINE uint32_t DecUncommonEvent(BsCursor& tBs, uint32_t& u32Sum) {
    const uint32_t u32Bits = (uint32_t)(tBs.u64Window << (u32Sum & 31) >> 32);
    if (u32Bits >> 19 < 256) {
        const uint32_t u32Event = (kIntra ? g_tIntraEvents : g_tInterEvents).au32Long[u32Bits >> 19];
        if (MP4V_LIKELY(u32Event != MP4V_NO_EVENT)) return u32Event;
    }
    const RareEvent t = kIntra ? FindRareIntraEvent(u32Bits) : FindRareInterEvent(u32Bits);
    const uint32_t u32Length = t.u32Event & 63;
    if (MP4V_LIKELY(tBs.IsFarFromEnd()) || (u32Sum & 31) + u32Length < 32) return t.u32Event;
    // Which of its steps crosses into the next word matters.
    const uint32_t u32Left = 32 - (u32Sum & 31);
    const uint32_t u32Crossed = (uint32_t)__builtin_ctz(t.u32Steps >> u32Left);
    tBs.Refill(u32Crossed, 0);
    u32Sum += u32Length - 32;
    return t.u32Event - u32Length;
}

// What a block's last event was.
struct BlockEnd {
    uint32_t u32Failed;
    uint32_t u32RasterIndex;
    int32_t s32Level;
};

static MP4V_INLINE int32_t LevelOf(uint32_t u32Event) {
    return (int32_t)u32Event >> 16;
}

// Hands each level to tSink, those of escapes to its Check before. u32Start: scan index of the first one.
template <bool kIntra, typename Sink>
static MP4V_INLINE BlockEnd DecEvents(BsCursor& tBs, Sink& tSink, const uint16_t* pu16Scan, uint32_t u32Start) {
    const TcoefEvents& tEvents = kIntra ? g_tIntraEvents : g_tInterEvents;
    // The place of the last coefficient from 64 on; what levels add above it is of no use.
    uint32_t u32Sum = tBs.u32BitPos | (63 + (u32Start < 64 ? u32Start : 64)) << 8;
    uint32_t u32Event;
    for (;;) {
        u32Event = tEvents.au32Short[tBs.u64Window << (u32Sum & 63) >> 53];
        u32Sum += u32Event;
        if (MP4V_UNLIKELY(u32Sum & kSumEnd)) {
            if (MP4V_LIKELY(u32Event & 63)) break;
            u32Sum -= MP4V_NO_EVENT;
            u32Event = DecUncommonEvent<kIntra>(tBs, u32Sum);
            tSink.Check(LevelOf(u32Event));
            u32Sum += u32Event;
            if (u32Sum & kSumEnd) break;
        }
        RefillFor<kIntra>(tBs, u32Sum);
        tSink.Put(pu16Scan[u32Sum >> 8 & 63], LevelOf(u32Event));
    }
    RefillFor<kIntra>(tBs, u32Sum);
    tBs.u32BitPos = u32Sum & 31;
    if (MP4V_UNLIKELY((u32Sum & (kSumLast | kSumPassed)) != kSumLast)) {
        tBs.u32BsError = ERR_VID_MPEG4DEC_COEFF;
        return {1, 0, 0};
    }
    const uint32_t u32RasterIndex = pu16Scan[u32Sum >> 8 & 63];
    tSink.Put(u32RasterIndex, LevelOf(u32Event));
    return {0, u32RasterIndex, LevelOf(u32Event)};
}

// Stores levels as they are.
struct LevelSink {
    int16_t* ps16Block;
    uint32_t u32Places;  // all raster indices or-ed together

    MP4V_INLINE void Check(int32_t) {}
    MP4V_INLINE void Put(uint32_t u32RasterIndex, int32_t s32Level) {
        ps16Block[u32RasterIndex] = (int16_t)s32Level;
        u32Places |= u32RasterIndex;
    }
};

// What comes before the transform coefficients of an intra block.
enum IntraDc : uint32_t { kDcAmongThem, kDcLuma, kDcChroma };

// Decodes an intra block into one that is cleared here. Returns the raster indices of the coefficients beside the
// first, or-ed together. pu16Scan: null where no coefficients follow. A block that fails keeps what was stored before.
uint32_t DecIntraLevels(BsCursor* ptBs, int16_t* ps16Block, IntraDc eDc, const uint16_t* pu16Scan);

// Stores coefficients of inter blocks, as DequantH263Inter or DequantMpegInter make them but without the limits of the
// one and the mismatch control of the other. Quantisers of [1, 31].
template <bool kMpeg>
struct CoefSink {
    int16_t* ps16Block;
    int32_t s32Quant;
    int32_t s32Offset;
    uint32_t u32Places;   // all raster indices or-ed together
    uint32_t u32Squares;  // the sum of them
    int32_t s32Parity;    // all coefficients exclusive-or-ed
    bool bRefused;        // a level that the below is not made for: 0, or beyond the limits

    explicit MP4V_INLINE CoefSink(uint32_t u32Quant)
        : ps16Block(nullptr), s32Quant((int32_t)u32Quant), s32Offset((int32_t)(u32Quant - 1 + (u32Quant & 1))) {}

    MP4V_INLINE void Start(int16_t* ps16) {
        ps16Block = ps16;
        memset(ps16, 0, 64 * sizeof *ps16);
        u32Places = u32Squares = 0;
        s32Parity = 0;
        bRefused = false;
    }
    // The levels of codes, up to 12, stay within the limits.
    MP4V_INLINE void Check(int32_t s32Level) {
        if (s32Level == 0 || __builtin_abs(s32Level) * s32Quant > 900) bRefused = true;
    }
    MP4V_INLINE void Put(uint32_t u32RasterIndex, int32_t s32Level) {
        const int32_t s32Sign = s32Level >> 31;
        int32_t s32Coef;
        if (kMpeg) {
            s32Coef = (2 * s32Level + (s32Sign | 1)) * (s32Quant * g_as16InterMatrix[u32RasterIndex]) / 16;
            s32Parity ^= s32Coef;
        } else {
            s32Coef = 2 * s32Quant * s32Level + s32Offset - (2 * s32Offset & s32Sign);
        }
        ps16Block[u32RasterIndex] = (int16_t)s32Coef;
        u32Places |= u32RasterIndex;
        u32Squares += (uint32_t)(s32Coef * s32Coef);
    }
};

// Returns the last level, or ERR_VID_MPEG4DEC_COEFF. u32Start: scan index of the first coefficient; 1 when the DC is
// coded apart. u32Scan: Mp4vScan; zigzag for all others.
static MP4V_INLINE uint32_t DecIntraBlock(BsCursor& tBs, int16_t* ps16Block, uint32_t u32Scan, uint32_t u32Start) {
    const uint16_t* pu16Scan = g_au16ScanTables[u32Scan <= SCAN_ALT_VERTICAL ? u32Scan : SCAN_ZIGZAG];
    LevelSink tSink = {ps16Block, 0};
    const BlockEnd tEnd = DecEvents<true>(tBs, tSink, pu16Scan, u32Start);
    return tEnd.u32Failed ? ERR_VID_MPEG4DEC_COEFF : (uint32_t)tEnd.s32Level;
}

// Returns the raster index of the last coefficient, or ERR_VID_MPEG4DEC_COEFF. u32Scan: zigzag unless
// SCAN_ALT_VERTICAL.
static MP4V_INLINE uint32_t DecInterBlock(BsCursor& tBs, int16_t* ps16Block, uint32_t u32Scan) {
    const uint16_t* pu16Scan = g_au16ScanTables[u32Scan == SCAN_ALT_VERTICAL ? SCAN_ALT_VERTICAL : SCAN_ZIGZAG];
    LevelSink tSink = {ps16Block, 0};
    const BlockEnd tEnd = DecEvents<false>(tBs, tSink, pu16Scan, 0);
    return tEnd.u32Failed ? ERR_VID_MPEG4DEC_COEFF : tEnd.u32RasterIndex;
}

// Zeroes and decodes as many blocks, one behind the other, as the low 6 bits of u32CbpMask have ones. u32Quant: nonzero
// dequantises each with DequantH263Inter. u32Scan: zigzag or SCAN_ALT_VERTICAL; with others nothing is read.
// A block with a coefficient error ends it; neither that block nor those behind it are dequantised.
static MP4V_INLINE void DecInterBlocks(BsCursor& tBs, int16_t* ps16Blocks, uint32_t u32Scan, uint32_t u32CbpMask,
                                       uint32_t u32Quant) {
    uint32_t u32Blocks = 0;
    for (uint32_t u32Mask = u32CbpMask & 63; u32Mask; u32Mask &= u32Mask - 1) u32Blocks++;
    memset(ps16Blocks, 0, u32Blocks * 64 * sizeof(int16_t));
    const int16_t* ps16End = ps16Blocks + u32Blocks * 64;
    for (int16_t* ps16Block = ps16Blocks; ps16Block != ps16End; ps16Block += 64) {
        if (u32Scan == SCAN_ZIGZAG || u32Scan == SCAN_ALT_VERTICAL) DecInterBlock(tBs, ps16Block, u32Scan);
        if (MP4V_UNLIKELY(tBs.u32BsError == ERR_VID_MPEG4DEC_COEFF)) return;
        if (u32Quant) DequantH263Inter(ps16Block, ps16Block, (uint16_t)u32Quant);
    }
}

extern "C" {

MP4VDEC_API uint32_t DecIntraBlock_c(BsReader* ptBs, int16_t* ps16Block, uint32_t u32Scan, uint32_t u32Start);
MP4VDEC_API uint32_t DecIntraBlockAlterScan_c(BsReader* ptBs, int16_t* ps16Block, uint32_t u32Start);
MP4VDEC_API uint32_t DecInterBlock_c(BsReader* ptBs, int16_t* ps16Block);
MP4VDEC_API uint32_t DecInterBlockAlterScan_c(BsReader* ptBs, int16_t* ps16Block);
MP4VDEC_API void DecInterBlocks_c(BsReader* ptBs, int16_t* ps16Blocks, uint32_t u32Scan, uint32_t u32CbpMask,
                                  uint32_t u32Quant);

// The decoder for the kind of block and scan. u32Start matters to intra blocks only.
MP4VDEC_API uint32_t DecBlock_c(BsReader* ptBs, int16_t* ps16Block, uint32_t u32Scan, uint32_t u32Start,
                                uint32_t u32Intra);

}  // extern "C"

#endif  // MP4VDEC_SOURCE_COMMON_BLOCK_H_
