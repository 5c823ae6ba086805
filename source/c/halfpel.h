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

// The mean of each sample, its right neighbour and the two below. In 8 columns: sums of 16 bits.
template <int kRows, bool kDown>
MP4V_VEC void MeanOfFour8(uint8_t* __restrict pu8Dst, const uint8_t* __restrict pu8Src, ptrdiff_t pitch) {
    const RowOffsets t(pitch);
    const Vec8 vBias = Vec8{} + (int16_t)(2 - kDown);
    Vec8 vAbove = SumU8(pu8Src, pu8Src + 1) + vBias;
    pu8Src += pitch;
#pragma GCC unroll 4
    for (int y = 0; y < kRows; y += 4) {
        const uint8_t* pu8Right = pu8Src + 1;
        for (int i = 0; i < 4; i++) {
            Vec8 vBelow = SumU8(pu8Src + t[i], pu8Right + t[i]);
            if (i % 2) vBelow += vBias;  // in every other row, so that each sum has it once
            StoreBytes8(pu8Dst + t[i], NarrowShifted<2>(vAbove + vBelow));
            vAbove = vBelow;
        }
        pu8Dst += t.four;
        pu8Src += t.four;
    }
}

// In 16 columns a mean of two means: the inner ones round like the result should, and the outer one errs by one exactly
// where its own last bit is set and some (rounding up) or no (rounding down) inner mean was inexact.
template <int kRows, bool kDown>
MP4V_VEC void MeanOfFour16(uint8_t* __restrict pu8Dst, const uint8_t* __restrict pu8Src, ptrdiff_t pitch) {
    const RowOffsets t(pitch);
    const Bytes16 vFlip = Bytes16{} - (uint8_t)kDown;  // all ones when rounding down
    Bytes16 vLeft = LoadBytes16(pu8Src);
    Bytes16 vRight = LoadBytes16(pu8Src + 1);
    Bytes16 vAbove = Average<kDown>(vLeft, vRight);
    Bytes16 vAboveInexact = vLeft ^ vRight;
    pu8Src += pitch;
#pragma GCC unroll 4
    for (int y = 0; y < kRows; y += 4) {
        const uint8_t* pu8Right = pu8Src + 1;
        for (int i = 0; i < 4; i++) {
            vLeft = LoadBytes16(pu8Src + t[i]);
            vRight = LoadBytes16(pu8Right + t[i]);
            const Bytes16 vBelow = Average<kDown>(vLeft, vRight);
            const Bytes16 vBelowInexact = vLeft ^ vRight;
            const Bytes16 vErrs = (vAbove ^ vBelow) & ((vAboveInexact | vBelowInexact) ^ vFlip) & 1;
            StoreBytes16(pu8Dst + t[i], AverageUp(vAbove, vBelow) - vErrs);
            vAbove = vBelow;
            vAboveInexact = vBelowInexact;
        }
        pu8Dst += t.four;
        pu8Src += t.four;
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

// Two blocks at once.
template <int kWidth, int kRows>
MP4V_VEC void HalfSample(uint8_t* const (&apu8Dst)[2], const uint8_t* const (&apu8Src)[2], ptrdiff_t pitch,
                         int32_t s32Phase, uint32_t u32Rounding) {
    switch (s32Phase) {
        case 0:
            for (int i = 0; i < 2; i++) CopyRows<kWidth, kRows>(apu8Src[i], pitch, apu8Dst[i], pitch);
            return;
        case 1:
            for (int i = 0; i < 2; i++) HalfV<kWidth, kRows>(apu8Dst[i], apu8Src[i], pitch, u32Rounding);
            return;
        case 2:
            for (int i = 0; i < 2; i++) HalfH<kWidth, kRows>(apu8Dst[i], apu8Src[i], pitch, u32Rounding);
            return;
        default:
            for (int i = 0; i < 2; i++) HalfHV<kWidth, kRows>(apu8Dst[i], apu8Src[i], pitch, u32Rounding);
    }
}

#endif  // MP4VDEC_SOURCE_C_HALFPEL_H_
