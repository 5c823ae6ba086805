// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors
#include "common/block.h"

#include "c/vec.h"
#include "common/quant_tables.h"

namespace {

// ---- Events

// An escape, or no code, taken apart.
struct RareEvent {
    uint32_t u32Event;  // as in TcoefEvents
    uint32_t u32Steps;  // bit n: a step of the reader ends behind n bits
};

constexpr uint32_t kEscapeLength = 7;

int32_t SignExtend12(uint32_t u32Level) {
    return (int32_t)(u32Level ^ 0x800) - 0x800;
}

template <bool kIntra>
uint32_t PackEvent(uint32_t u32Last, uint32_t u32Run, int32_t s32Level, uint32_t u32Length) {
    if (!kIntra) s32Level = 2 * s32Level + (s32Level > 0) - (s32Level < 0);
    return (uint32_t)s32Level << 16 | (u32Run + 1 + 64 * u32Last) << 8 | u32Last << 7 | u32Length;
}

// Of inter blocks: doubled and one further away from 0.
int32_t LevelOf(uint32_t u32Event) {
    return (int32_t)u32Event >> 16;
}

// The event behind the prefix of mode 1 or 2. The escape code in this place is unpacked like an entry of the
// coefficient tables: intra as a level of 63 behind a run of 47, inter as one that nothing can follow.
template <bool kIntra>
MP4V_INLINE uint32_t FindEscapedEvent(uint32_t u32Bits) {
    const TcoefEvents& tEvents = kIntra ? g_tIntraEvents : g_tInterEvents;
    uint32_t u32Event = tEvents.au32Short[u32Bits >> 21];
    if (u32Event == MP4V_NO_EVENT && u32Bits >> 19 < 256) u32Event = tEvents.au32Long[u32Bits >> 19];
    if (u32Event != MP4V_NO_EVENT || u32Bits >> 25 != 3) return u32Event;
    return kIntra ? PackEvent<true>(1, 47, u32Bits >> 24 & 1 ? -63 : 63, 8) : MP4V_NO_EVENT | 8;
}

// Such an event lies above what a code of its own could express: in its level or its run.
template <bool kIntra>
MP4V_INLINE uint32_t RaiseEvent(uint32_t u32Event, bool bRun) {
    const TcoefLimits& tLimits = kIntra ? g_tIntraLimits : g_tInterLimits;
    const uint32_t u32Last = u32Event >> 7 & 1;
    const uint32_t u32Run = (u32Event >> 8 & 63) - 1;
    const int32_t s32Level = LevelOf(u32Event);
    const uint32_t u32Magnitude = (uint32_t)__builtin_abs(s32Level) >> !kIntra;
    if (u32Event == (MP4V_NO_EVENT | 8)) return u32Event;
    if (bRun) {
        const uint32_t u32Step = tLimits.au8RunStep[u32Last][u32Magnitude];
        return u32Run + u32Step > 63 ? MP4V_NO_EVENT | (u32Event & 63) : u32Event + (u32Step << 8);
    }
    const uint32_t u32Raise = (uint32_t)tLimits.au8LevelMax[u32Last][u32Run] << (16 + !kIntra);
    return s32Level < 0 ? u32Event - u32Raise : u32Event + u32Raise;
}

// Overrun is noticed at the steps of the reader, so they are as the syntax has them: one per element in intra blocks,
// one per event in inter blocks.
constexpr uint32_t kFixedIntraSteps = 1u << 7 | 1u << 9 | 1u << 10 | 1u << 16 | 1u << 17 | 1u << 29 | 1u << 30;

// u32Bits: what is ahead.
template <bool kIntra>
MP4V_INLINE RareEvent FindRareEvent(uint32_t u32Bits) {
    if (u32Bits >> 20 < 8) return {MP4V_NO_EVENT, 0};
    const uint32_t u32Mode = u32Bits >> 23 & 3;
    if (u32Mode == 3) {  // with the markers at bits 15 and 2
        return {PackEvent<kIntra>(u32Bits >> 22 & 1, u32Bits >> 16 & 63, SignExtend12(u32Bits >> 3 & 0xFFF), 30),
                kIntra ? kFixedIntraSteps : 1u << 30};
    }
    const uint32_t u32Prefix = kEscapeLength + 1 + (u32Mode >> 1);
    const uint32_t u32PrefixSteps = (kIntra ? 1u << kEscapeLength : 0) | 1u << u32Prefix;
    const uint32_t u32Escaped = FindEscapedEvent<kIntra>(u32Bits << u32Prefix);
    if (u32Escaped == MP4V_NO_EVENT) return {MP4V_NO_EVENT | u32Prefix, u32PrefixSteps};
    const uint32_t u32Event = RaiseEvent<kIntra>(u32Escaped, u32Mode == 2) + u32Prefix;
    const uint32_t u32Length = u32Event & 63;  // at most 22
    return {u32Event, kIntra ? u32PrefixSteps | 1u << (u32Length - 1) | 1u << u32Length : 1u << u32Length};
}

// ---- Blocks
//
// Each kind exists twice: for blocks that are far from the end of the chunk, without calls and so in registers, and for
// any. The former gives up where it comes near the end, with nothing done that the latter would not do again.

// Of the sum of the reader's bit position and the block's events so far.
enum : uint32_t {
    kSumRefill = 1 << 5,
    kSumLast = 1 << 7,
    kSumPassed = 1 << 14,  // with kSumLast: past the block
    kSumEnd = 1 << 15,
};

// The event where the short codes have none.
template <bool kIntra, bool kFar>
MP4V_INLINE uint32_t DecUncommonEvent(BsCursor& tBs, uint32_t& u32Sum) {
    const uint32_t u32Bits = (uint32_t)(tBs.u64Window << (u32Sum & 63) >> 32);
    if (u32Bits >> 19 < 256) {
        const uint32_t u32Event = (kIntra ? g_tIntraEvents : g_tInterEvents).au32Long[u32Bits >> 19];
        if (MP4V_LIKELY(u32Event != MP4V_NO_EVENT)) return u32Event;
    }
    const RareEvent t = FindRareEvent<kIntra>(u32Bits);
    const uint32_t u32Length = t.u32Event & 63;
    const uint32_t u32BitPos = u32Sum & 31;
    if (kFar || tBs.IsFarFromEnd() || u32BitPos + u32Length < 32) return t.u32Event;
    // Which of its steps crosses into the next word matters.
    tBs.Refill((uint32_t)__builtin_ctz(t.u32Steps >> (32 - u32BitPos)), 0);
    u32Sum += u32Length - 32;
    return t.u32Event - u32Length;
}

enum Outcome { kDone, kFailed, kNearEnd };

// Takes in the next word if the sum says so. Returns false near the end.
template <bool kIntra, bool kFar>
MP4V_INLINE bool RefillFor(BsCursor& tBs, uint32_t& u32Sum) {
    if (!(u32Sum & kSumRefill)) return true;
    if (kFar && !tBs.IsFarFromEnd()) return false;
    u32Sum -= kSumRefill;
    tBs.Refill(u32Sum & 31, kIntra);  // the intra syntax is read code, then sign; the inter syntax as a whole
    return true;
}

// Hands each level to tSink, which may refuse those of escapes: then the block fails with no more ado. u32Start: scan
// index of the first one.
template <bool kIntra, bool kFar, typename Sink>
MP4V_INLINE Outcome DecEvents(BsCursor& tBs, Sink& tSink, const ScanTable& tScan, uint32_t u32Start) {
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
            u32Event = DecUncommonEvent<kIntra, kFar>(tBs, u32Sum);
            if (!tSink.Takes(LevelOf(u32Event))) return kFailed;
            u32Sum += u32Event;
            if (u32Sum & kSumEnd) break;
        }
        if (!RefillFor<kIntra, kFar>(tBs, u32Sum)) return kNearEnd;
        tSink.Put(tScan.au16[u32Sum >> 8 & 255], LevelOf(u32Event));
    }
    if (!RefillFor<kIntra, kFar>(tBs, u32Sum)) return kNearEnd;
    tBs.u32BitPos = u32Sum & 31;
    if (MP4V_UNLIKELY((u32Sum & (kSumLast | kSumPassed)) != kSumLast)) {
        tBs.u32BsError = ERR_VID_MPEG4DEC_COEFF;
        return kFailed;
    }
    tSink.Put(tScan.au16[u32Sum >> 8 & 63], LevelOf(u32Event));
    return kDone;
}

// Stores levels as they are.
template <bool kIntra>
struct LevelSink {
    int16_t* ps16Block;
    uint32_t u32Places;
    size_t lastPlace;
    int32_t s32LastLevel;

    explicit MP4V_INLINE LevelSink(int16_t* ps16) : ps16Block(ps16), u32Places(0), lastPlace(0), s32LastLevel(0) {}
    MP4V_INLINE bool Takes(int32_t) const { return true; }
    MP4V_INLINE void Put(size_t place, int32_t s32Level) {
        s32LastLevel = kIntra ? s32Level : s32Level / 2;
        ps16Block[place] = (int16_t)s32LastLevel;
        u32Places |= (uint32_t)place;
        lastPlace = place;
    }
};

// Stores coefficients without the limits of the H.263 method and the mismatch control of the other.
template <bool kMpeg>
struct CoefSink {
    int16_t* ps16Block;
    int32_t s32Quant;
    int32_t s32Even;  // 1 for even quantisers, which take 1 from the magnitudes
    uint32_t u32Places;
    uint32_t u32Squares;

    MP4V_INLINE CoefSink(int16_t* ps16, uint32_t u32Quant)
        : ps16Block(ps16),
          s32Quant((int32_t)u32Quant),
          s32Even((int32_t)(~u32Quant & 1)),
          u32Places(0),
          u32Squares(0) {}

    // The levels of codes, up to 12, stay within the limits, and squares up to 64 of these within 32 bits. Level 0 is
    // none of this arithmetic.
    MP4V_INLINE bool Takes(int32_t s32Level) const {
        return s32Level != 0 && __builtin_abs(s32Level) * s32Quant <= 1800;
    }
    MP4V_INLINE void Put(size_t place, int32_t s32Level) {
        int32_t s32Coef;
        if (kMpeg) {
            const int32_t s32Product = s32Level * (s32Quant * g_as16InterMatrix[place]);
            s32Coef = (s32Product + (s32Product < 0 ? 15 : 0)) >> 4;
        } else {
            s32Coef = s32Level * s32Quant + (s32Level < 0 ? s32Even : -s32Even);
        }
        ps16Block[place] = (int16_t)s32Coef;
        u32Places |= (uint32_t)place;
        u32Squares += (uint32_t)s32Coef * (uint32_t)s32Coef;
    }
};

// ---- Intra blocks

MP4V_INLINE int32_t DecDc(BsCursor& tBs, bool bLuma) {
    const uint32_t u32Size = bLuma ? DecDcSizeLuma(tBs) : DecDcSizeChroma(tBs);
    if (u32Size == 0) return 0;
    const int32_t s32Dc = DecDcDif(tBs, u32Size);
    if (u32Size > 8) tBs.Skip(1);  // marker_bit
    return s32Dc;
}

// The same in one step.
MP4V_INLINE int32_t DecDcFar(BsCursor& tBs, bool bLuma) {
    const uint32_t u32Bits = tBs.Show(32);
    const DcSize t = bLuma ? FindDcSizeLuma(u32Bits) : FindDcSizeChroma(u32Bits);
    const uint32_t u32Dif = u32Bits << t.u32Length;
    // Without its first bit, a difference is negative, and the ones' complement.
    const uint32_t u32Ones = (1u << t.u32Size) - 1;
    const int32_t s32Dc = (int32_t)((uint64_t)u32Dif >> (32 - t.u32Size)) - (int32_t)(u32Dif >> 31 ? 0 : u32Ones);
    tBs.Skip(t.u32Length + t.u32Size + (t.u32Size > 8));
    return s32Dc;
}

template <bool kFar>
MP4V_INLINE uint32_t DecLevels(BsCursor* ptBs, int16_t* ps16Block, IntraDc eDc, const ScanTable* ptScan,
                               Outcome* peOutcome) {
    BsCursor tBs(*ptBs);
    LevelSink<true> tSink(ps16Block);
    ClearVecs<8>(ps16Block);
    const bool bDcApart = eDc != kDcAmongThem;
    if (bDcApart) ps16Block[0] = (int16_t)(kFar ? DecDcFar(tBs, eDc == kDcLuma) : DecDc(tBs, eDc == kDcLuma));
    *peOutcome = ptScan ? DecEvents<true, kFar>(tBs, tSink, *ptScan, bDcApart) : kDone;
    if (*peOutcome != kNearEnd) tBs.MoveTo(ptBs);
    return tSink.u32Places;
}

__attribute__((noinline)) uint32_t DecLevelsAnywhere(BsCursor* ptBs, int16_t* ps16Block, IntraDc eDc,
                                                     const ScanTable* ptScan) {
    Outcome eOutcome;
    return DecLevels<false>(ptBs, ps16Block, eDc, ptScan, &eOutcome);
}

// ---- Inter blocks

template <bool kMpeg, bool kFar>
MP4V_INLINE Outcome DecCoefs(BsCursor* ptBs, int16_t* ps16Block, InterCoefs* ptCoefs, const ScanTable* ptScan,
                             uint32_t u32Quant) {
    BsCursor tBs(*ptBs);
    CoefSink<kMpeg> tSink(ps16Block, u32Quant);
    ClearVecs<8>(ps16Block);
    const Outcome eOutcome = DecEvents<false, kFar>(tBs, tSink, *ptScan, 0);
    if (MP4V_UNLIKELY(eOutcome != kDone)) return eOutcome;
    tBs.MoveTo(ptBs);
    ptCoefs->u32Places = tSink.u32Places;
    ptCoefs->u32Squares = tSink.u32Squares;
    ptCoefs->bAndLast = false;
    if (kMpeg && !(tSink.u32Squares & 1)) {  // as even as the sum of the coefficients
        if (ps16Block[63]) {
            ps16Block[63] ^= 1;
        } else {
            ptCoefs->bAndLast = true;
        }
    }
    return tSink.u32Squares > kMaxSquares ? kFailed : kDone;
}

template <bool kMpeg>
__attribute__((noinline)) bool DecCoefsAnywhere(BsCursor* ptBs, int16_t* ps16Block, InterCoefs* ptCoefs,
                                                const ScanTable* ptScan, uint32_t u32Quant) {
    return DecCoefs<kMpeg, false>(ptBs, ps16Block, ptCoefs, ptScan, u32Quant) == kDone;
}

template <bool kMpeg>
MP4V_INLINE bool DecCoefs(BsCursor* ptBs, int16_t* ps16Block, InterCoefs* ptCoefs, const ScanTable* ptScan,
                          uint32_t u32Quant) {
    const Outcome eOutcome = DecCoefs<kMpeg, true>(ptBs, ps16Block, ptCoefs, ptScan, u32Quant);
    if (MP4V_LIKELY(eOutcome != kNearEnd)) return eOutcome == kDone;
    return DecCoefsAnywhere<kMpeg>(ptBs, ps16Block, ptCoefs, ptScan, u32Quant);
}

}  // namespace

uint32_t DecIntraLevels(BsCursor* ptBs, int16_t* ps16Block, IntraDc eDc, const ScanTable* ptScan) {
    if (MP4V_LIKELY(ptBs->IsFarFromEnd())) {
        Outcome eOutcome;
        const uint32_t u32Places = DecLevels<true>(ptBs, ps16Block, eDc, ptScan, &eOutcome);
        if (MP4V_LIKELY(eOutcome != kNearEnd)) return u32Places;
    }
    return DecLevelsAnywhere(ptBs, ps16Block, eDc, ptScan);
}

bool DecH263Coefs(BsCursor* ptBs, int16_t* ps16Block, InterCoefs* ptCoefs, const ScanTable* ptScan, uint32_t u32Quant) {
    return DecCoefs<false>(ptBs, ps16Block, ptCoefs, ptScan, u32Quant);
}

bool DecMpegCoefs(BsCursor* ptBs, int16_t* ps16Block, InterCoefs* ptCoefs, const ScanTable* ptScan, uint32_t u32Quant) {
    return DecCoefs<true>(ptBs, ps16Block, ptCoefs, ptScan, u32Quant);
}

uint32_t DecIntraBlock(BsCursor& tBs, int16_t* ps16Block, uint32_t u32Scan, uint32_t u32Start) {
    LevelSink<true> tSink(ps16Block);
    const ScanTable& tScan = g_atScans[u32Scan <= SCAN_ALT_VERTICAL ? u32Scan : SCAN_ZIGZAG];
    const Outcome eOutcome = DecEvents<true, false>(tBs, tSink, tScan, u32Start);
    return eOutcome == kDone ? (uint32_t)tSink.s32LastLevel : ERR_VID_MPEG4DEC_COEFF;
}

uint32_t DecInterBlock(BsCursor& tBs, int16_t* ps16Block, uint32_t u32Scan) {
    LevelSink<false> tSink(ps16Block);
    const ScanTable& tScan = g_atScans[u32Scan == SCAN_ALT_VERTICAL ? SCAN_ALT_VERTICAL : SCAN_ZIGZAG];
    const Outcome eOutcome = DecEvents<false, false>(tBs, tSink, tScan, 0);
    return eOutcome == kDone ? (uint32_t)tSink.lastPlace : ERR_VID_MPEG4DEC_COEFF;
}

// ---- On the reader

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
    uint32_t u32Blocks = 0;
    for (uint32_t u32Mask = u32CbpMask & 63; u32Mask; u32Mask &= u32Mask - 1) u32Blocks++;
    memset(ps16Blocks, 0, u32Blocks * 64 * sizeof(int16_t));
    const int16_t* ps16End = ps16Blocks + u32Blocks * 64;
    for (int16_t* ps16Block = ps16Blocks; ps16Block != ps16End; ps16Block += 64) {
        if (u32Scan == SCAN_ZIGZAG || u32Scan == SCAN_ALT_VERTICAL) DecInterBlock(tBs, ps16Block, u32Scan);
        if (MP4V_UNLIKELY(tBs.u32BsError == ERR_VID_MPEG4DEC_COEFF)) break;
        if (u32Quant) DequantH263Inter(ps16Block, ps16Block, (uint16_t)u32Quant);
    }
    tBs.StoreTo(ptBs);
}

uint32_t DecBlock_c(BsReader* ptBs, int16_t* ps16Block, uint32_t u32Scan, uint32_t u32Start, uint32_t u32Intra) {
    if (u32Intra) {
        return u32Scan == SCAN_ALT_VERTICAL ? DecIntraBlockAlterScan_c(ptBs, ps16Block, u32Start)
                                            : DecIntraBlock_c(ptBs, ps16Block, u32Scan, u32Start);
    }
    return u32Scan == SCAN_ALT_VERTICAL ? DecInterBlockAlterScan_c(ptBs, ps16Block) : DecInterBlock_c(ptBs, ps16Block);
}
