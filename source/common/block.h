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
#include "common/vlc.h"

enum Mp4vScan : uint32_t { SCAN_ZIGZAG = 0, SCAN_ALT_HORIZONTAL = 1, SCAN_ALT_VERTICAL = 2 };

struct CoefEvent {
    int32_t s32Level;
    uint32_t u32Run;  // above 63 for codes that do not exist, so that they fail like a run past the block
    uint32_t u32Last;
};

// Escapes and codes that do not exist. Out of line to keep the loops small.
CoefEvent DecRareIntraEvent(BsCursor* ptBs);
CoefEvent DecRareInterEvent(BsCursor* ptBs);

// Events are packed as in TcoefEvents; runs that pass any block are 64.
template <bool kIntra>
static MP4V_INLINE uint32_t DecRareEvent(BsCursor& tBs) {
    BsCursor tCopy = tBs;  // whose address may be taken without forcing tBs into memory
    const CoefEvent tEvent = kIntra ? DecRareIntraEvent(&tCopy) : DecRareInterEvent(&tCopy);
    tBs = tCopy;
    const uint32_t u32Step = tEvent.u32Run > 63 ? 65 : tEvent.u32Run + 1;
    return tEvent.u32Last << 31 | u32Step << 24 | ((uint32_t)tEvent.s32Level & 0xFFFF) << 8;
}

template <bool kIntra>
static MP4V_INLINE uint32_t DecEvent(BsCursor& tBs) {
    const TcoefEvents& tEvents = kIntra ? g_tIntraEvents : g_tInterEvents;
    uint32_t u32Event = tEvents.au32Short[tBs.u64Bits >> 53];
    if (MP4V_UNLIKELY(u32Event == 0)) {
        const uint32_t u32Code = tBs.Show(13);
        if (u32Code < 256) u32Event = tEvents.au32Long[u32Code];
        if (u32Event == 0) return DecRareEvent<kIntra>(tBs);
    }
    // The intra syntax is read code, then sign; the inter syntax as a whole.
    const uint32_t u32Length = u32Event & 63;
    tBs.SkipTwice(u32Length - kIntra, kIntra);
    return u32Event;
}

// What a block's last event was.
struct BlockEnd {
    uint32_t u32Failed;
    uint32_t u32RasterIndex;
    int32_t s32Level;
};

static MP4V_INLINE int16_t LevelOf(uint32_t u32Event) {
    return (int16_t)(u32Event >> 8 & 0xFFFF);
}

template <bool kIntra>
static MP4V_INLINE BlockEnd DecEvents(BsCursor& tBs, int16_t* ps16Block, const uint16_t* pu16Scan, uint32_t u32Start) {
    uint32_t i = (u32Start < 64 ? u32Start : 64) - 1;  // no sum below can wrap
    uint32_t u32Event;
    for (;;) {
        u32Event = DecEvent<kIntra>(tBs);
        i += u32Event >> 24;
        if (i > 63) break;  // a last event, or past the block
        ps16Block[pu16Scan[i]] = LevelOf(u32Event);
    }
    i -= u32Event >> 31 << 7;
    if (MP4V_UNLIKELY(i > 63)) {
        tBs.u32BsError = ERR_VID_MPEG4DEC_COEFF;
        return {1, 0, 0};
    }
    const uint32_t u32RasterIndex = pu16Scan[i];
    ps16Block[u32RasterIndex] = LevelOf(u32Event);
    return {0, u32RasterIndex, LevelOf(u32Event)};
}

// Returns the last level, or ERR_VID_MPEG4DEC_COEFF. u32Start: scan index of the first coefficient; 1 when the DC is
// coded apart. u32Scan: Mp4vScan; zigzag for all others.
static MP4V_INLINE uint32_t DecIntraBlock(BsCursor& tBs, int16_t* ps16Block, uint32_t u32Scan, uint32_t u32Start) {
    const uint16_t* pu16Scan = g_au16ScanTables[u32Scan <= SCAN_ALT_VERTICAL ? u32Scan : SCAN_ZIGZAG];
    const BlockEnd tEnd = DecEvents<true>(tBs, ps16Block, pu16Scan, u32Start);
    return tEnd.u32Failed ? ERR_VID_MPEG4DEC_COEFF : (uint32_t)tEnd.s32Level;
}

// Returns the raster index of the last coefficient, or ERR_VID_MPEG4DEC_COEFF. u32Scan: zigzag unless
// SCAN_ALT_VERTICAL.
static MP4V_INLINE uint32_t DecInterBlock(BsCursor& tBs, int16_t* ps16Block, uint32_t u32Scan) {
    const uint16_t* pu16Scan = g_au16ScanTables[u32Scan == SCAN_ALT_VERTICAL ? SCAN_ALT_VERTICAL : SCAN_ZIGZAG];
    const BlockEnd tEnd = DecEvents<false>(tBs, ps16Block, pu16Scan, 0);
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
