// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors
#include "common/block.h"

namespace {

constexpr uint32_t kEscapeLength = 7;
constexpr CoefEvent kNoSuchCode = {0, 64, 0};

int32_t SignExtend12(uint32_t u32Level) {
    return (int32_t)(u32Level ^ 0x800) - 0x800;
}

int32_t ApplySign(uint32_t u32Level, uint32_t u32Negative) {
    return u32Negative ? -(int32_t)u32Level : (int32_t)u32Level;
}

// An entry of the coefficient tables without its sign.
template <bool kIntra>
CoefEvent UnpackEvent(uint32_t u32Packed) {
    const uint32_t u32Level = u32Packed & (kIntra ? 0x3F : 0xF);
    const uint32_t u32Run = kIntra ? u32Packed >> 6 & 0x3F : u32Packed >> 4 & 0xFF;
    return {(int32_t)u32Level, u32Run, u32Packed >> 12};
}

// u32Packed is what follows an escape of mode 1: its level lies above what a code of its own could express. The escape
// code in this place is unpacked like any other, with a run of up to 191.
template <bool kIntra>
CoefEvent RaiseLevel(uint32_t u32Packed, uint32_t u32Negative) {
    const TcoefLimits& tLimits = kIntra ? g_tIntraLimits : g_tInterLimits;
    CoefEvent tEvent = UnpackEvent<kIntra>(u32Packed);
    const uint32_t u32LevelMax = tEvent.u32Run < 64 ? tLimits.au8LevelMax[tEvent.u32Last][tEvent.u32Run] : 0;
    tEvent.s32Level = ApplySign((uint32_t)tEvent.s32Level + u32LevelMax, u32Negative);
    return tEvent;
}

// The same for mode 2 and the run.
template <bool kIntra>
CoefEvent RaiseRun(uint32_t u32Packed, uint32_t u32Negative) {
    const TcoefLimits& tLimits = kIntra ? g_tIntraLimits : g_tInterLimits;
    CoefEvent tEvent = UnpackEvent<kIntra>(u32Packed);  // level [1, 63]
    tEvent.u32Run += tLimits.au8RunStep[tEvent.u32Last][tEvent.s32Level];
    tEvent.s32Level = ApplySign((uint32_t)tEvent.s32Level, u32Negative);
    return tEvent;
}

}  // namespace

// Overrun is noticed at the skips, so they stay as the syntax has them: one per element here, one per event in
// inter blocks.
CoefEvent DecRareIntraEvent(BsCursor* ptBs) {
    BsCursor tBs = *ptBs;
    if (tBs.Show(12) < 8) return kNoSuchCode;
    CoefEvent tEvent = kNoSuchCode;
    tBs.Skip(kEscapeLength);
    const uint32_t u32Mode = tBs.Show(2);
    tBs.Skip(u32Mode >> 1 ? 2 : 1);
    if (u32Mode == 3) {
        tEvent.u32Last = tBs.Read(1);
        tEvent.u32Run = tBs.Read(6);
        tBs.Skip(1);
        tEvent.s32Level = SignExtend12(tBs.Read(12));
        tBs.Skip(1);
    } else if (const VlcEntry* ptEntry = FindTcoef<true>(tBs.Show(12))) {
        tBs.Skip((uint32_t)ptEntry->s32Length);
        const uint32_t u32Packed = (uint32_t)ptEntry->s32Value;
        const uint32_t u32Negative = tBs.Read(1);
        tEvent = u32Mode == 2 ? RaiseRun<true>(u32Packed, u32Negative) : RaiseLevel<true>(u32Packed, u32Negative);
    }
    *ptBs = tBs;
    return tEvent;
}

CoefEvent DecRareInterEvent(BsCursor* ptBs) {
    const uint32_t u32Bits = ptBs->Show(32);
    if (u32Bits >> 20 < 8) return kNoSuchCode;
    const uint32_t u32Mode = u32Bits >> 23 & 3;
    if (u32Mode == 3) {
        ptBs->Skip(30);  // with the markers at bits 15 and 2
        return {SignExtend12(u32Bits >> 3 & 0xFFF), u32Bits >> 16 & 63, u32Bits >> 22 & 1};
    }
    const uint32_t u32Prefix = kEscapeLength + (u32Mode >> 1 ? 2 : 1);
    const VlcEntry* ptEntry = FindTcoef<false>(u32Bits << u32Prefix >> 20);
    if (!ptEntry) {
        ptBs->Skip(u32Prefix);
        return kNoSuchCode;
    }
    const uint32_t u32Length = u32Prefix + (uint32_t)ptEntry->s32Length;  // at most 21
    ptBs->Skip(u32Length + 1);
    const uint32_t u32Packed = (uint32_t)ptEntry->s32Value;
    const uint32_t u32Negative = u32Bits << u32Length >> 31;
    return u32Mode == 2 ? RaiseRun<false>(u32Packed, u32Negative) : RaiseLevel<false>(u32Packed, u32Negative);
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
