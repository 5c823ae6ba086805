// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors
#include "common/block.h"

namespace {

constexpr uint32_t kEscapeLength = 7;

int32_t SignExtend12(uint32_t u32Level) {
    return (int32_t)(u32Level ^ 0x800) - 0x800;
}

int32_t ApplySign(uint32_t u32Level, uint32_t u32Negative) {
    return u32Negative ? -(int32_t)u32Level : (int32_t)u32Level;
}

uint32_t PackEvent(uint32_t u32Last, uint32_t u32Run, int32_t s32Level, uint32_t u32Length) {
    if (u32Run > 63) return MP4V_NO_EVENT | u32Length;
    return (uint32_t)s32Level << 16 | (u32Run + 1 + 64 * u32Last) << 8 | u32Last << 7 | u32Length;
}

// An event of mode 1 or 2 lies above what a code of its own could express: in its level or its run. u32Packed is an
// entry of the coefficient tables; the escape code in this place is unpacked like any other, with a run of up to 191.
template <bool kIntra>
uint32_t RaiseEvent(uint32_t u32Packed, bool bRun, uint32_t u32Negative, uint32_t u32Length) {
    const TcoefLimits& tLimits = kIntra ? g_tIntraLimits : g_tInterLimits;
    const uint32_t u32Last = u32Packed >> 12;
    uint32_t u32Run = kIntra ? u32Packed >> 6 & 0x3F : u32Packed >> 4 & 0xFF;
    uint32_t u32Level = u32Packed & (kIntra ? 0x3F : 0xF);  // [1, 63]
    if (bRun) {
        u32Run += tLimits.au8RunStep[u32Last][u32Level];
    } else if (u32Run < 64) {
        u32Level += tLimits.au8LevelMax[u32Last][u32Run];
    }
    return PackEvent(u32Last, u32Run, ApplySign(u32Level, u32Negative), u32Length);
}

// Overrun is noticed at the steps of the reader, so they are as the syntax has them: one per element in intra blocks,
// one per event in inter blocks.
constexpr uint32_t kFixedIntraSteps = 1u << 7 | 1u << 9 | 1u << 10 | 1u << 16 | 1u << 17 | 1u << 29 | 1u << 30;

template <bool kIntra>
RareEvent FindRareEvent(uint32_t u32Bits) {
    if (u32Bits >> 20 < 8) return {MP4V_NO_EVENT, 0};
    const uint32_t u32Mode = u32Bits >> 23 & 3;
    if (u32Mode == 3) {  // with the markers at bits 15 and 2
        return {PackEvent(u32Bits >> 22 & 1, u32Bits >> 16 & 63, SignExtend12(u32Bits >> 3 & 0xFFF), 30),
                kIntra ? kFixedIntraSteps : 1u << 30};
    }
    const uint32_t u32Prefix = kEscapeLength + (u32Mode >> 1 ? 2 : 1);
    const uint32_t u32PrefixSteps = (kIntra ? 1u << kEscapeLength : 0) | 1u << u32Prefix;
    const VlcEntry* ptEntry = FindTcoef<kIntra>(u32Bits << u32Prefix >> 20);
    if (!ptEntry) return {MP4V_NO_EVENT | u32Prefix, u32PrefixSteps};
    const uint32_t u32Code = u32Prefix + (uint32_t)ptEntry->s32Length;  // at most 21
    const uint32_t u32Length = u32Code + 1;
    return {RaiseEvent<kIntra>((uint32_t)ptEntry->s32Value, u32Mode == 2, u32Bits << u32Code >> 31, u32Length),
            kIntra ? u32PrefixSteps | 1u << u32Code | 1u << u32Length : 1u << u32Length};
}

}  // namespace

RareEvent FindRareIntraEvent(uint32_t u32Bits) {
    return FindRareEvent<true>(u32Bits);
}

RareEvent FindRareInterEvent(uint32_t u32Bits) {
    return FindRareEvent<false>(u32Bits);
}

namespace {

MP4V_INLINE int32_t DecDc(BsCursor& tBs, bool bLuma) {
    const uint32_t u32Size = bLuma ? DecDcSizeLuma(tBs) : DecDcSizeChroma(tBs);
    if (u32Size == 0) return 0;
    const int32_t s32Dc = DecDcDif(tBs, u32Size);
    if (MP4V_UNLIKELY(u32Size > 8)) tBs.Skip(1);  // marker_bit
    return s32Dc;
}

}  // namespace

uint32_t DecIntraLevels(BsCursor* ptBs, int16_t* ps16Block, IntraDc eDc, const uint16_t* pu16Scan) {
    BsCursor tBs(*ptBs);
    LevelSink tSink = {ps16Block, 0};
    memset(ps16Block, 0, 64 * sizeof *ps16Block);
    if (eDc != kDcAmongThem) ps16Block[0] = (int16_t)DecDc(tBs, eDc == kDcLuma);
    if (pu16Scan) DecEvents<true>(tBs, tSink, pu16Scan, eDc != kDcAmongThem);
    *ptBs = tBs;
    return tSink.u32Places;
}

uint32_t DecIntraBlock_c(BsReader* ptBs, int16_t* ps16Block, uint32_t u32Scan, uint32_t u32Start) {
    BsCursor tBs(*ptBs);
    const uint32_t u32Result = DecIntraBlock(tBs, ps16Block, u32Scan, u32Start);
    tBs.StoreTo(ptBs);
    return u32Result;
}

uint32_t DecIntraBlockAlterScan_c(BsReader* ptBs, int16_t* ps16Block, uint32_t u32Start) {
    BsCursor tBs(*ptBs);
    const uint32_t u32Result = DecIntraBlock(tBs, ps16Block, SCAN_ALT_VERTICAL, u32Start);
    tBs.StoreTo(ptBs);
    return u32Result;
}

uint32_t DecInterBlock_c(BsReader* ptBs, int16_t* ps16Block) {
    BsCursor tBs(*ptBs);
    const uint32_t u32Result = DecInterBlock(tBs, ps16Block, SCAN_ZIGZAG);
    tBs.StoreTo(ptBs);
    return u32Result;
}

uint32_t DecInterBlockAlterScan_c(BsReader* ptBs, int16_t* ps16Block) {
    BsCursor tBs(*ptBs);
    const uint32_t u32Result = DecInterBlock(tBs, ps16Block, SCAN_ALT_VERTICAL);
    tBs.StoreTo(ptBs);
    return u32Result;
}

void DecInterBlocks_c(BsReader* ptBs, int16_t* ps16Blocks, uint32_t u32Scan, uint32_t u32CbpMask, uint32_t u32Quant) {
    BsCursor tBs(*ptBs);
    DecInterBlocks(tBs, ps16Blocks, u32Scan, u32CbpMask, u32Quant);
    tBs.StoreTo(ptBs);
}

uint32_t DecBlock_c(BsReader* ptBs, int16_t* ps16Block, uint32_t u32Scan, uint32_t u32Start, uint32_t u32Intra) {
    if (u32Intra) {
        return u32Scan == SCAN_ALT_VERTICAL ? DecIntraBlockAlterScan_c(ptBs, ps16Block, u32Start)
                                            : DecIntraBlock_c(ptBs, ps16Block, u32Scan, u32Start);
    }
    return u32Scan == SCAN_ALT_VERTICAL ? DecInterBlockAlterScan_c(ptBs, ps16Block) : DecInterBlock_c(ptBs, ps16Block);
}
