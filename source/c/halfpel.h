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

// Two blocks of 8 columns as one of 16.
template <int kRows, bool kDown>
MP4V_VEC void MeanOfFourTwice(uint8_t* const (&apu8Dst)[2], const uint8_t* const (&apu8Src)[2], ptrdiff_t pitch) {
    const RowOffsets t(pitch);
    uint8_t *pu8DstA = apu8Dst[0], *pu8DstB = apu8Dst[1];
    const uint8_t *pu8A = apu8Src[0], *pu8B = apu8Src[1];
    const auto pairs = [&](ptrdiff_t at) {
        return PairsOf(LoadHalves(pu8A + at, pu8B + at), LoadHalves(pu8A + 1 + at, pu8B + 1 + at));
    };
    Pairs tAbove = pairs(0);
    pu8A += pitch;
    pu8B += pitch;
#pragma GCC unroll 4
    for (int y = 0; y < kRows; y += 4) {
        for (int i = 0; i < 4; i++) {
            const Pairs tBelow = pairs(t[i]);
            StoreHalves(pu8DstA + t[i], pu8DstB + t[i], MeanOfPairs<kDown>(tAbove, tBelow));
            tAbove = tBelow;
        }
        pu8DstA += t.four;
        pu8DstB += t.four;
        pu8A += t.four;
        pu8B += t.four;
    }
}

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
    switch (s32Phase) {
        case 0:
            for (int i = 0; i < 2; i++) CopyRows<8, kRows>(apu8Src[i], pitch, apu8Dst[i], pitch);
            return;
        case 1:
            for (int i = 0; i < 2; i++) HalfV<8, kRows>(apu8Dst[i], apu8Src[i], pitch, u32Rounding);
            return;
        case 2:
            for (int i = 0; i < 2; i++) HalfH<8, kRows>(apu8Dst[i], apu8Src[i], pitch, u32Rounding);
            return;
        default:
            if (kHalvesAreEasy) {
                if (u32Rounding)
                    MeanOfFourTwice<kRows, true>(apu8Dst, apu8Src, pitch);
                else
                    MeanOfFourTwice<kRows, false>(apu8Dst, apu8Src, pitch);
            } else {
                for (int i = 0; i < 2; i++) HalfHV<8, kRows>(apu8Dst[i], apu8Src[i], pitch, u32Rounding);
            }
    }
}

#endif  // MP4VDEC_SOURCE_C_HALFPEL_H_
