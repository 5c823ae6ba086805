// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors
#include "c/vec.h"
#include "common/kernels.h"

namespace {

// What a half-position sample is averaged with.
enum class Blend { kNone, kBefore, kAfter };

template <int kWidth>
MP4V_VEC Bytes16 Load(const uint8_t* pu8) {
    return kWidth == 16 ? LoadBytes16(pu8) : LoadBytes8(pu8);
}

template <int kWidth>
MP4V_VEC void Store(uint8_t* pu8, Bytes16 v) {
    kWidth == 16 ? StoreBytes16(pu8, v) : StoreBytes8(pu8, v);
}

// kSamples filtered samples from the bytes around them, which begin in vLow and go on in vHigh.
template <int kSamples>
MP4V_VEC Bytes16 FilterAround(Bytes16 vLow, Bytes16 vHigh, const TapFactors& tFactors) {
    const Tap atTaps[8] = {TapOf<0>(vLow, vHigh), TapOf<1>(vLow, vHigh), TapOf<2>(vLow, vHigh), TapOf<3>(vLow, vHigh),
                           TapOf<4>(vLow, vHigh), TapOf<5>(vLow, vHigh), TapOf<6>(vLow, vHigh), TapOf<7>(vLow, vHigh)};
    return FilterTaps<kSamples>(atTaps, tFactors);
}

// The taps beyond the row's ends fall on its mirror image, so only kWidth + 1 samples are read.
template <int kWidth>
MP4V_VEC Bytes16 FilterRow(const uint8_t* pu8Src, const TapFactors& tFactors) {
    const Bytes16 vEnd = MirrorEnd(pu8Src + kWidth - 7);
    if (kWidth == 8) {
        const Bytes16 v = JoinLow(MirrorStart(pu8Src), vEnd);
        return FilterAround<8>(v, v, tFactors);
    }
    const Bytes16 vStart = MirrorStart16(pu8Src);
    if (kTapSamples == kWidth) return FilterAround<kTapSamples>(vStart, vEnd, tFactors);
    return JoinLow(FilterAround<8>(vStart, vEnd, tFactors),
                   FilterAround<8>(JoinLow(HighHalf(vStart), vEnd), vEnd, tFactors));
}

// Eight rows of 16 samples at once: one vector per column. Where taps are bytes, rows one by one need less.
template <Blend kBlend, bool kDown, typename Column = Tap>
MP4V_VEC void FilterEightRows16(uint8_t* __restrict pu8Dst, const uint8_t* __restrict pu8Src, ptrdiff_t dstPitch,
                                ptrdiff_t srcPitch, const TapFactors& tFactors) {
    Vec8 avPairs[8];    // of columns
    Column av[16 + 7];  // av[3] is column 0; three mirrored columns at each end
    for (int y = 0; y < 8; y++) avPairs[y] = (Vec8)LoadBytes16(pu8Src + y * srcPitch);
    const auto last = [=](int y) { return (int16_t)pu8Src[16 + y * srcPitch]; };
    av[19] = Column{last(0), last(1), last(2), last(3), last(4), last(5), last(6), last(7)};
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
        const Bytes16 v = NarrowClipShifted<5>(WeighTaps(av + 2 * i, tFactors), WeighTaps(av + 2 * i + 1, tFactors));
        avPairs[i] = (Vec8)ZipLow8(v, HighHalf(v));
    }
    Transpose8x8(avPairs);
    for (int y = 0; y < 8; y++) {
        Bytes16 v = (Bytes16)avPairs[y];
        if (kBlend != Blend::kNone)
            v = Average<kDown>(v, LoadBytes16(pu8Src + y * srcPitch + (kBlend == Blend::kAfter)));
        StoreBytes16(pu8Dst + y * dstPitch, v);
    }
}

template <int kWidth, Blend kBlend, bool kDown>
MP4V_VEC void HorzPass(uint8_t* __restrict pu8Dst, const uint8_t* __restrict pu8Src, int32_t s32Rows,
                       ptrdiff_t dstPitch, ptrdiff_t srcPitch, uint32_t u32Rounding) {
    const TapFactors tFactors(u32Rounding);
    if constexpr (kWidth > kTapSamples) {
        for (; s32Rows >= 8; s32Rows -= 8) {
            FilterEightRows16<kBlend, kDown>(pu8Dst, pu8Src, dstPitch, srcPitch, tFactors);
            pu8Dst += 8 * dstPitch;
            pu8Src += 8 * srcPitch;
        }
    }
    const auto filter = [&tFactors](const uint8_t* pu8Row) {
        const Bytes16 v = FilterRow<kWidth>(pu8Row, tFactors);
        if (kBlend == Blend::kNone) return v;
        return Average<kDown>(v, Load<kWidth>(pu8Row + (kBlend == Blend::kAfter)));
    };
    for (; s32Rows >= 2; s32Rows -= 2) {  // that processors need not wait for the results of one
        const Bytes16 vFirst = filter(pu8Src), vSecond = filter(pu8Src + srcPitch);
        Store<kWidth>(pu8Dst, vFirst);
        Store<kWidth>(pu8Dst + dstPitch, vSecond);
        pu8Dst += 2 * dstPitch;
        pu8Src += 2 * srcPitch;
    }
    if (s32Rows > 0) Store<kWidth>(pu8Dst, filter(pu8Src));
}

// Rows are loaded as late as possible, which the destination, being no __restrict, keeps compilers from undoing: that
// is how the taps stay within the registers.
template <int kColumns, int kRows, Blend kBlend, bool kDown>
MP4V_VEC void FilterColumns(uint8_t* pu8Dst, const uint8_t* pu8Src, ptrdiff_t dstPitch, ptrdiff_t srcPitch,
                            const TapFactors& tFactors) {
    const RowOffsets tDst(dstPitch), tSrc(srcPitch);
    Bytes16 av[kRows + 1];
    Tap at[kRows + 7];  // at[3] is row 0; three mirrored rows at each end
    const auto load = [&](int y) {
        av[y] = Load<kColumns>(pu8Src + tSrc[y % 4]);
        at[3 + y] = TapOf(av[y]);
        if (y % 4 == 3) pu8Src += tSrc.four;
    };
    for (int y = 0; y < 5; y++) load(y);
    for (int y = 0; y < 3; y++) at[2 - y] = at[3 + y];
#pragma GCC unroll 16  // the taps move on by renaming instead of by copying
    for (int y = 0; y < kRows; y++) {
        if (y + 5 <= kRows) load(y + 5);
        if (y + 4 > kRows) at[y + 7] = at[2 * kRows - y];
        Bytes16 v = FilterTaps<kColumns>(at + y, tFactors);
        if (kBlend != Blend::kNone) v = Average<kDown>(v, av[y + (kBlend == Blend::kAfter)]);
        Store<kColumns>(pu8Dst + tDst[y % 4], v);
        if (y % 4 == 3) pu8Dst += tDst.four;
    }
}

// Fewer than eight columns go through a block of their own, so that nothing beside them is touched.
template <int kRows, Blend kBlend, bool kDown>
__attribute__((noinline, cold)) void FilterFewColumns(uint8_t* __restrict pu8Dst, const uint8_t* __restrict pu8Src,
                                                      size_t columns, ptrdiff_t dstPitch, ptrdiff_t srcPitch,
                                                      uint32_t u32Rounding) {
    uint8_t au8Src[(kRows + 1) * 8] = {};
    uint8_t au8Dst[kRows * 8];
    for (int y = 0; y <= kRows; y++) memcpy(au8Src + 8 * y, pu8Src + y * srcPitch, columns);
    FilterColumns<8, kRows, kBlend, kDown>(au8Dst, au8Src, 8, 8, TapFactors(u32Rounding));
    for (int y = 0; y < kRows; y++) memcpy(pu8Dst + y * dstPitch, au8Dst + 8 * y, columns);
}

template <int kRows, Blend kBlend, bool kDown>
MP4V_VEC void VertPass(uint8_t* pu8Dst, const uint8_t* pu8Src, int32_t s32Columns, ptrdiff_t dstPitch,
                       ptrdiff_t srcPitch, uint32_t u32Rounding) {
    const TapFactors tFactors(u32Rounding);
    // As many columns as rows in every call by the decoder.
    if constexpr (kRows == kTapSamples) {
        for (; s32Columns >= kRows; s32Columns -= kRows) {
            FilterColumns<kRows, kRows, kBlend, kDown>(pu8Dst, pu8Src, dstPitch, srcPitch, tFactors);
            pu8Dst += kRows;
            pu8Src += kRows;
        }
    }
    for (; s32Columns >= 8; s32Columns -= 8) {
        FilterColumns<8, kRows, kBlend, kDown>(pu8Dst, pu8Src, dstPitch, srcPitch, tFactors);
        pu8Dst += 8;
        pu8Src += 8;
    }
    if (s32Columns > 0)
        FilterFewColumns<kRows, kBlend, kDown>(pu8Dst, pu8Src, (size_t)s32Columns, dstPitch, srcPitch, u32Rounding);
}

}  // namespace

// The rounding type is constant where it decides about an average.
// NOLINTBEGIN(bugprone-macro-parentheses): a template is named
#define MP4V_QPEL_KERNEL(Name, Body, kSize, kBlend)                                                               \
    void Name(uint8_t* pu8Dst, const uint8_t* pu8Src, int32_t s32Count, int32_t s32DstPitch, int32_t s32SrcPitch, \
              uint32_t u32Rounding) {                                                                             \
        if (Blend::kBlend != Blend::kNone && u32Rounding)                                                         \
            Body<kSize, Blend::kBlend, true>(pu8Dst, pu8Src, s32Count, s32DstPitch, s32SrcPitch, 1);              \
        else                                                                                                      \
            Body<kSize, Blend::kBlend, false>(pu8Dst, pu8Src, s32Count, s32DstPitch, s32SrcPitch, u32Rounding);   \
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

    const int32_t s32PhaseX = s32Vx & 3;
    const int32_t s32PhaseY = s32Vy & 3;
    if (s32PhaseX == 0 && s32PhaseY == 0) return MemCopy8x8(pu8Dst, pu8Src, s32Pitch);
    if (s32PhaseX) {
        Mp4vQpelPass* const pfHorz = s32PhaseX == 1 ? HorzPassAvg8 : s32PhaseX == 2 ? HorzPass8 : HorzPassAvgUp8;
        if (s32PhaseY == 0) return pfHorz(pu8Dst, pu8Src, 8, s32Pitch, s32Pitch, u32Rounding);
        pfHorz(pu8Scratch, pu8Src, 9, 16, s32Pitch, u32Rounding);
        pu8Src = pu8Scratch;
        s32SrcPitch = 16;
    }
    Mp4vQpelPass* const pfVert = s32PhaseY == 1 ? VertPassAvg8 : s32PhaseY == 2 ? VertPass8 : VertPassAvgUp8;
    pfVert(pu8Dst, pu8Src, 8, s32Pitch, s32SrcPitch, u32Rounding);
}
