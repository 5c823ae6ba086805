// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors
#include "c/vec.h"
#include "common/kernels.h"

namespace {

// What a half-position sample is averaged with.
enum class Blend { kNone, kBefore, kAfter };

// 32 times the half-position samples between av[3] and av[4]: taps -1 3 -6 20 20 -6 3 -1, in [-3570, 11746].
MP4V_VEC Vec8 Filter(const Vec8* av, Vec8 vBias) {
    return WeighTaps(av[3] + av[4], av[2] + av[5], av[1] + av[6], av[0] + av[7], vBias);
}

// Eight filtered samples from the 15 bytes around them.
MP4V_VEC Vec8 FilterRow8(Bytes16 v, Vec8 vBias) {
    const Vec8 avTaps[8] = {Widen<0>(v), Widen<1>(v), Widen<2>(v), Widen<3>(v),
                            Widen<4>(v), Widen<5>(v), Widen<6>(v), Widen<7>(v)};
    return Filter(avTaps, vBias);
}

// The taps beyond the row's ends fall on its mirror image, so only kWidth + 1 samples are read.
template <int kWidth>
MP4V_VEC Bytes16 FilterRow(const uint8_t* pu8Src, Vec8 vBias) {
    const Bytes16 vStart = MirrorStart(pu8Src);
    const Bytes16 vEnd = MirrorEnd(pu8Src + kWidth - 7);
    if (kWidth == 8) {
        const Vec8 v = FilterRow8(JoinLow(vStart, vEnd), vBias);
        return NarrowClipShifted<5>(v, v);
    }
    const Bytes16 vMiddle = LoadBytes8(pu8Src + 5);
    return NarrowClipShifted<5>(FilterRow8(JoinLow(vStart, vMiddle), vBias), FilterRow8(JoinLow(vMiddle, vEnd), vBias));
}

// Eight rows of 16 samples at once: one vector per column.
template <Blend kBlend>
MP4V_VEC void FilterEightRows16(uint8_t* __restrict pu8Dst, const uint8_t* __restrict pu8Src, ptrdiff_t dstPitch,
                                ptrdiff_t srcPitch, Vec8 vBias, Bytes16 vDown) {
    Vec8 avPairs[8];  // of columns
    Vec8 av[16 + 7];  // av[3] is column 0; three mirrored columns at each end
    Vec8 vLast = {};
    for (int y = 0; y < 8; y++) {
        avPairs[y] = (Vec8)LoadBytes16(pu8Src + y * srcPitch);
        vLast[y] = pu8Src[16 + y * srcPitch];
    }
    av[19] = vLast;
    Transpose8x8(avPairs);
    for (int i = 0; i < 2; i++) {
        av[3 + 2 * i] = EvenBytes((Bytes16)avPairs[i]);
        av[4 + 2 * i] = OddBytes((Bytes16)avPairs[i]);
    }
    for (int x = 0; x < 3; x++) av[2 - x] = av[3 + x];
#pragma GCC unroll 8
    for (int i = 0; i < 8; i++) {
        if (i < 6) {  // as late as possible, to stay within the registers
            av[7 + 2 * i] = EvenBytes((Bytes16)avPairs[i + 2]);
            av[8 + 2 * i] = OddBytes((Bytes16)avPairs[i + 2]);
        }
        if (i == 6) av[20] = av[19], av[21] = av[18];
        if (i == 7) av[22] = av[17];
        const Bytes16 v = NarrowClipShifted<5>(Filter(av + 2 * i, vBias), Filter(av + 2 * i + 1, vBias));
        avPairs[i] = (Vec8)ZipLow8(v, HighHalf(v));
    }
    Transpose8x8(avPairs);
    for (int y = 0; y < 8; y++) {
        Bytes16 v = (Bytes16)avPairs[y];
        if (kBlend != Blend::kNone)
            v = Average(v, LoadBytes16(pu8Src + y * srcPitch + (kBlend == Blend::kAfter)), vDown);
        StoreBytes16(pu8Dst + y * dstPitch, v);
    }
}

template <int kWidth, Blend kBlend>
MP4V_VEC void HorzPass(uint8_t* __restrict pu8Dst, const uint8_t* __restrict pu8Src, int32_t s32Rows,
                       ptrdiff_t dstPitch, ptrdiff_t srcPitch, uint32_t u32Rounding) {
    const Vec8 vBias = Vec8{} + (int16_t)(16 - (int32_t)u32Rounding);
    const Bytes16 vDown = Bytes16{} + (uint8_t)u32Rounding;
    for (; kWidth == 16 && s32Rows >= 8; s32Rows -= 8) {
        FilterEightRows16<kBlend>(pu8Dst, pu8Src, dstPitch, srcPitch, vBias, vDown);
        pu8Dst += 8 * dstPitch;
        pu8Src += 8 * srcPitch;
    }
    for (; s32Rows > 0; s32Rows--) {
        Bytes16 v = FilterRow<kWidth>(pu8Src, vBias);
        if (kBlend != Blend::kNone) {
            const uint8_t* pu8Full = pu8Src + (kBlend == Blend::kAfter);
            v = Average(v, kWidth == 16 ? LoadBytes16(pu8Full) : LoadBytes8(pu8Full), vDown);
        }
        kWidth == 16 ? StoreBytes16(pu8Dst, v) : StoreBytes8(pu8Dst, v);
        pu8Dst += dstPitch;
        pu8Src += srcPitch;
    }
}

template <int kRows, Blend kBlend>
MP4V_VEC void FilterColumns8(uint8_t* __restrict pu8Dst, const uint8_t* __restrict pu8Src, ptrdiff_t dstPitch,
                             ptrdiff_t srcPitch, Vec8 vBias, Bytes16 vDown) {
    Vec8 av[kRows + 7];  // av[3] is row 0; three mirrored rows at each end
    for (int y = 0; y < 4; y++) av[3 + y] = LoadU8(pu8Src + y * srcPitch);
    for (int y = 0; y < 3; y++) av[2 - y] = av[3 + y];
#pragma GCC unroll 16  // the taps move on by renaming instead of by copying
    for (int y = 0; y < kRows; y++) {
        // As late as possible, to stay within the registers.
        av[y + 7] = y + 4 <= kRows ? LoadU8(pu8Src + (y + 4) * srcPitch) : av[2 * kRows - y];
        const Vec8 vWide = Filter(av + y, vBias);
        Bytes16 v = NarrowClipShifted<5>(vWide, vWide);
        if (kBlend != Blend::kNone)
            v = Average(v, LoadBytes8(pu8Src + (y + (kBlend == Blend::kAfter)) * srcPitch), vDown);
        StoreBytes8(pu8Dst + y * dstPitch, v);
    }
}

// Fewer than eight columns go through a block of their own, so that nothing beside them is touched.
template <int kRows, Blend kBlend>
__attribute__((noinline, cold)) void FilterFewColumns(uint8_t* __restrict pu8Dst, const uint8_t* __restrict pu8Src,
                                                      size_t columns, ptrdiff_t dstPitch, ptrdiff_t srcPitch,
                                                      Vec8 vBias, Bytes16 vDown) {
    uint8_t au8Src[(kRows + 1) * 8] = {};
    uint8_t au8Dst[kRows * 8];
    for (int y = 0; y <= kRows; y++) memcpy(au8Src + 8 * y, pu8Src + y * srcPitch, columns);
    FilterColumns8<kRows, kBlend>(au8Dst, au8Src, 8, 8, vBias, vDown);
    for (int y = 0; y < kRows; y++) memcpy(pu8Dst + y * dstPitch, au8Dst + 8 * y, columns);
}

template <int kRows, Blend kBlend>
MP4V_VEC void VertPass(uint8_t* __restrict pu8Dst, const uint8_t* __restrict pu8Src, int32_t s32Columns,
                       ptrdiff_t dstPitch, ptrdiff_t srcPitch, uint32_t u32Rounding) {
    const Vec8 vBias = Vec8{} + (int16_t)(16 - (int32_t)u32Rounding);
    const Bytes16 vDown = Bytes16{} + (uint8_t)u32Rounding;
    for (; s32Columns >= 8; s32Columns -= 8) {
        FilterColumns8<kRows, kBlend>(pu8Dst, pu8Src, dstPitch, srcPitch, vBias, vDown);
        pu8Dst += 8;
        pu8Src += 8;
    }
    if (s32Columns > 0)
        FilterFewColumns<kRows, kBlend>(pu8Dst, pu8Src, (size_t)s32Columns, dstPitch, srcPitch, vBias, vDown);
}

}  // namespace

// NOLINTBEGIN(bugprone-macro-parentheses): a template is named
#define MP4V_QPEL_KERNEL(Name, Body, kSize, kBlend)                                                               \
    void Name(uint8_t* pu8Dst, const uint8_t* pu8Src, int32_t s32Count, int32_t s32DstPitch, int32_t s32SrcPitch, \
              uint32_t u32Rounding) {                                                                             \
        Body<kSize, Blend::kBlend>(pu8Dst, pu8Src, s32Count, s32DstPitch, s32SrcPitch, u32Rounding);              \
    }
// NOLINTEND(bugprone-macro-parentheses)

MP4V_QPEL_KERNEL(HorzPass16_c, HorzPass, 16, kNone)
MP4V_QPEL_KERNEL(HorzPassAvg16_c, HorzPass, 16, kBefore)
MP4V_QPEL_KERNEL(HorzPassAvgUp16_c, HorzPass, 16, kAfter)
MP4V_QPEL_KERNEL(HorzPass8_c, HorzPass, 8, kNone)
MP4V_QPEL_KERNEL(HorzPassAvg8_c, HorzPass, 8, kBefore)
MP4V_QPEL_KERNEL(HorzPassAvgUp8_c, HorzPass, 8, kAfter)
MP4V_QPEL_KERNEL(VertPass16_c, VertPass, 16, kNone)
MP4V_QPEL_KERNEL(VertPassAvg16_c, VertPass, 16, kBefore)
MP4V_QPEL_KERNEL(VertPassAvgUp16_c, VertPass, 16, kAfter)
MP4V_QPEL_KERNEL(VertPass8_c, VertPass, 8, kNone)
MP4V_QPEL_KERNEL(VertPassAvg8_c, VertPass, 8, kBefore)
MP4V_QPEL_KERNEL(VertPassAvgUp8_c, VertPass, 8, kAfter)

void InterpolateQuarterPel8x8(uint8_t* pu8Dst, const uint8_t* pu8Ref, uint8_t* pu8Scratch, int32_t s32X, int32_t s32Y,
                              int32_t s32Vx, int32_t s32Vy, int32_t s32Pitch, uint32_t u32Rounding) {
    const int64_t s64Column = (s32Vx + (int64_t)s32X * 4) >> 2;
    const int64_t s64Row = (s32Vy + (int64_t)s32Y * 4) >> 2;
    const uint8_t* pu8Src = pu8Ref + (ptrdiff_t)(s64Row * s32Pitch + s64Column);
    int32_t s32SrcPitch = s32Pitch;

    Mp4vQpelPass* const apfHorz[4] = {nullptr, HorzPassAvg8, HorzPass8, HorzPassAvgUp8};
    Mp4vQpelPass* const apfVert[4] = {nullptr, VertPassAvg8, VertPass8, VertPassAvgUp8};
    Mp4vQpelPass* const pfHorz = apfHorz[s32Vx & 3];
    Mp4vQpelPass* const pfVert = apfVert[s32Vy & 3];
    if (!pfHorz && !pfVert) return MemCopy8x8(pu8Dst, pu8Src, s32Pitch);
    if (!pfVert) return pfHorz(pu8Dst, pu8Src, 8, s32Pitch, s32Pitch, u32Rounding);
    if (pfHorz) {
        pfHorz(pu8Scratch, pu8Src, 9, 16, s32Pitch, u32Rounding);
        pu8Src = pu8Scratch;
        s32SrcPitch = 16;
    }
    pfVert(pu8Dst, pu8Src, 8, s32Pitch, s32SrcPitch, u32Rounding);
}
