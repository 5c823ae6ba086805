// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

// Half-sample prediction: the kernels, and for inlining where those are the portable ones.
#ifndef MP4VDEC_SOURCE_C_HALFPEL_H_
#define MP4VDEC_SOURCE_C_HALFPEL_H_

#include "c/copy_rows.h"
#include "c/vec.h"

template <int kWidth>
MP4V_VEC Bytes16 LoadRow(const uint8_t* pu8) {
    return kWidth == 16 ? LoadBytes16(pu8) : LoadBytes8(pu8);
}

template <int kWidth>
MP4V_VEC void StoreRow(uint8_t* pu8, Bytes16 v) {
    kWidth == 16 ? StoreBytes16(pu8, v) : StoreBytes8(pu8, v);
}

// The mean of each sample and its right neighbour.
template <int kWidth, int kRows, bool kDown>
MP4V_VEC void MeanOfColumns(uint8_t* __restrict pu8Dst, const uint8_t* __restrict pu8Src, ptrdiff_t pitch) {
    const RowOffsets t(pitch);
#pragma GCC unroll 4
    for (int y = 0; y < kRows; y += 4) {
        const uint8_t* pu8Right = pu8Src + 1;
        for (int i = 0; i < 4; i++)
            StoreRow<kWidth>(pu8Dst + t[i],
                             Average<kDown>(LoadRow<kWidth>(pu8Src + t[i]), LoadRow<kWidth>(pu8Right + t[i])));
        pu8Dst += t.four;
        pu8Src += t.four;
    }
}

// The mean of each sample and the one below.
template <int kWidth, int kRows, bool kDown>
MP4V_VEC void MeanOfRows(uint8_t* __restrict pu8Dst, const uint8_t* __restrict pu8Src, ptrdiff_t pitch) {
    const RowOffsets t(pitch);
    Bytes16 vAbove = LoadRow<kWidth>(pu8Src);
    pu8Src += pitch;
#pragma GCC unroll 4
    for (int y = 0; y < kRows; y += 4) {
        for (int i = 0; i < 4; i++) {
            const Bytes16 vBelow = LoadRow<kWidth>(pu8Src + t[i]);
            StoreRow<kWidth>(pu8Dst + t[i], Average<kDown>(vAbove, vBelow));
            vAbove = vBelow;
        }
        pu8Dst += t.four;
        pu8Src += t.four;
    }
}

// The mean of each sample, its right neighbour and the two below.
template <int kRows, bool kDown>
MP4V_VEC void MeanOfFour8(uint8_t* __restrict pu8Dst, const uint8_t* __restrict pu8Src, ptrdiff_t pitch) {
    const RowOffsets t(pitch);
    Vec8 vAbove = SumU8(pu8Src, pu8Src + 1);
    pu8Src += pitch;
#pragma GCC unroll 4
    for (int y = 0; y < kRows; y += 4) {
        const uint8_t* pu8Right = pu8Src + 1;
        for (int i = 0; i < 4; i++) {
            const Vec8 vBelow = SumU8(pu8Src + t[i], pu8Right + t[i]);
            StoreBytes8(pu8Dst + t[i], MeanOfSums<kDown>(vAbove, vBelow));
            vAbove = vBelow;
        }
        pu8Dst += t.four;
        pu8Src += t.four;
    }
}

template <int kRows, bool kDown>
MP4V_VEC void MeanOfFour16(uint8_t* __restrict pu8Dst, const uint8_t* __restrict pu8Src, ptrdiff_t pitch) {
    const RowOffsets t(pitch);
    Pairs tAbove = PairsOf(LoadBytes16(pu8Src), LoadBytes16(pu8Src + 1));
    pu8Src += pitch;
#pragma GCC unroll 4
    for (int y = 0; y < kRows; y += 4) {
        const uint8_t* pu8Right = pu8Src + 1;
        for (int i = 0; i < 4; i++) {
            const Pairs tBelow = PairsOf(LoadBytes16(pu8Src + t[i]), LoadBytes16(pu8Right + t[i]));
            StoreBytes16(pu8Dst + t[i], MeanOfPairs<kDown>(tAbove, tBelow));
            tAbove = tBelow;
        }
        pu8Dst += t.four;
        pu8Src += t.four;
    }
}

// ---- Two blocks of 8 columns as one of 16

struct TwoBlocks {
    uint8_t *pu8DstA, *pu8DstB;
    const uint8_t *pu8SrcA, *pu8SrcB;

    MP4V_VEC_MEMBER Bytes16 Load(ptrdiff_t at) const { return LoadHalves(pu8SrcA + at, pu8SrcB + at); }
    MP4V_VEC_MEMBER Bytes16 LoadRight(ptrdiff_t at) const { return LoadHalves(pu8SrcA + 1 + at, pu8SrcB + 1 + at); }
    MP4V_VEC_MEMBER void Store(ptrdiff_t at, Bytes16 v) const { StoreHalves(pu8DstA + at, pu8DstB + at, v); }
    MP4V_VEC_MEMBER void MoveSrc(ptrdiff_t by) { pu8SrcA += by, pu8SrcB += by; }
    MP4V_VEC_MEMBER void MoveDst(ptrdiff_t by) { pu8DstA += by, pu8DstB += by; }
};

template <int kRows, bool kDown>
MP4V_VEC void MeanOfColumns(TwoBlocks tBlocks, ptrdiff_t pitch) {
    const RowOffsets t(pitch);
#pragma GCC unroll 4
    for (int y = 0; y < kRows; y += 4) {
        for (int i = 0; i < 4; i++) tBlocks.Store(t[i], Average<kDown>(tBlocks.Load(t[i]), tBlocks.LoadRight(t[i])));
        tBlocks.MoveDst(t.four);
        tBlocks.MoveSrc(t.four);
    }
}

template <int kRows, bool kDown>
MP4V_VEC void MeanOfRows(TwoBlocks tBlocks, ptrdiff_t pitch) {
    const RowOffsets t(pitch);
    Bytes16 vAbove = tBlocks.Load(0);
    tBlocks.MoveSrc(pitch);
#pragma GCC unroll 4
    for (int y = 0; y < kRows; y += 4) {
        for (int i = 0; i < 4; i++) {
            const Bytes16 vBelow = tBlocks.Load(t[i]);
            tBlocks.Store(t[i], Average<kDown>(vAbove, vBelow));
            vAbove = vBelow;
        }
        tBlocks.MoveDst(t.four);
        tBlocks.MoveSrc(t.four);
    }
}

template <int kRows, bool kDown>
MP4V_VEC void MeanOfFour(TwoBlocks tBlocks, ptrdiff_t pitch) {
    const RowOffsets t(pitch);
    Pairs tAbove = PairsOf(tBlocks.Load(0), tBlocks.LoadRight(0));
    tBlocks.MoveSrc(pitch);
#pragma GCC unroll 4
    for (int y = 0; y < kRows; y += 4) {
        for (int i = 0; i < 4; i++) {
            const Pairs tBelow = PairsOf(tBlocks.Load(t[i]), tBlocks.LoadRight(t[i]));
            tBlocks.Store(t[i], MeanOfPairs<kDown>(tAbove, tBelow));
            tAbove = tBelow;
        }
        tBlocks.MoveDst(t.four);
        tBlocks.MoveSrc(t.four);
    }
}

template <int kRows, bool kDown>
MP4V_VEC void HalfSample(const TwoBlocks& tBlocks, ptrdiff_t pitch, int32_t s32Phase) {
    switch (s32Phase) {
        case 1:
            return MeanOfRows<kRows, kDown>(tBlocks, pitch);
        case 2:
            return MeanOfColumns<kRows, kDown>(tBlocks, pitch);
        default:
            return MeanOfFour<kRows, kDown>(tBlocks, pitch);
    }
}

// ---- By rounding type and phase

// The rounding type is constant in each of the two loops, so that rounding up costs nothing.
template <int kWidth, int kRows>
MP4V_VEC void HalfH(uint8_t* pu8Dst, const uint8_t* pu8Src, ptrdiff_t pitch, uint32_t u32Rounding) {
    if (u32Rounding)
        MeanOfColumns<kWidth, kRows, true>(pu8Dst, pu8Src, pitch);
    else
        MeanOfColumns<kWidth, kRows, false>(pu8Dst, pu8Src, pitch);
}

template <int kWidth, int kRows>
MP4V_VEC void HalfV(uint8_t* pu8Dst, const uint8_t* pu8Src, ptrdiff_t pitch, uint32_t u32Rounding) {
    if (u32Rounding)
        MeanOfRows<kWidth, kRows, true>(pu8Dst, pu8Src, pitch);
    else
        MeanOfRows<kWidth, kRows, false>(pu8Dst, pu8Src, pitch);
}

template <int kWidth, int kRows, bool kDown>
MP4V_VEC void MeanOfFour(uint8_t* pu8Dst, const uint8_t* pu8Src, ptrdiff_t pitch) {
    if (kWidth == 8)
        MeanOfFour8<kRows, kDown>(pu8Dst, pu8Src, pitch);
    else
        MeanOfFour16<kRows, kDown>(pu8Dst, pu8Src, pitch);
}

template <int kWidth, int kRows>
MP4V_VEC void HalfHV(uint8_t* pu8Dst, const uint8_t* pu8Src, ptrdiff_t pitch, uint32_t u32Rounding) {
    if (u32Rounding)
        MeanOfFour<kWidth, kRows, true>(pu8Dst, pu8Src, pitch);
    else
        MeanOfFour<kWidth, kRows, false>(pu8Dst, pu8Src, pitch);
}

// s32Phase: bit 1 the horizontal half, bit 0 the vertical half.
template <int kWidth, int kRows>
MP4V_VEC void HalfSample(uint8_t* pu8Dst, const uint8_t* pu8Src, ptrdiff_t pitch, int32_t s32Phase,
                         uint32_t u32Rounding) {
    switch (s32Phase) {
        case 0:
            return CopyRows<kWidth, kRows>(pu8Src, pitch, pu8Dst, pitch);
        case 1:
            return HalfV<kWidth, kRows>(pu8Dst, pu8Src, pitch, u32Rounding);
        case 2:
            return HalfH<kWidth, kRows>(pu8Dst, pu8Src, pitch, u32Rounding);
        default:
            return HalfHV<kWidth, kRows>(pu8Dst, pu8Src, pitch, u32Rounding);
    }
}

// Two blocks of 8 columns.
template <int kRows>
MP4V_VEC void HalfSampleTwice(uint8_t* const (&apu8Dst)[2], const uint8_t* const (&apu8Src)[2], ptrdiff_t pitch,
                              int32_t s32Phase, uint32_t u32Rounding) {
    if (kHalvesAreEasy && s32Phase != 0) {
        const TwoBlocks t = {apu8Dst[0], apu8Dst[1], apu8Src[0], apu8Src[1]};
        return u32Rounding ? HalfSample<kRows, true>(t, pitch, s32Phase) : HalfSample<kRows, false>(t, pitch, s32Phase);
    }
    switch (s32Phase) {
        case 0:
            CopyRows<8, kRows>(apu8Src[0], pitch, apu8Dst[0], pitch);
            return CopyRows<8, kRows>(apu8Src[1], pitch, apu8Dst[1], pitch);
        case 1:
            HalfV<8, kRows>(apu8Dst[0], apu8Src[0], pitch, u32Rounding);
            return HalfV<8, kRows>(apu8Dst[1], apu8Src[1], pitch, u32Rounding);
        case 2:
            HalfH<8, kRows>(apu8Dst[0], apu8Src[0], pitch, u32Rounding);
            return HalfH<8, kRows>(apu8Dst[1], apu8Src[1], pitch, u32Rounding);
        default:
            HalfHV<8, kRows>(apu8Dst[0], apu8Src[0], pitch, u32Rounding);
            return HalfHV<8, kRows>(apu8Dst[1], apu8Src[1], pitch, u32Rounding);
    }
}

#endif  // MP4VDEC_SOURCE_C_HALFPEL_H_
