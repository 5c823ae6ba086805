// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors
#include "c/vec.h"
#include "common/kernels.h"

namespace {

template <int kWidth>
MP4V_VEC Bytes16 Load(const uint8_t* pu8) {
    return kWidth == 16 ? LoadBytes16(pu8) : LoadBytes8(pu8);
}

template <int kWidth>
MP4V_VEC void Store(uint8_t* pu8, Bytes16 v) {
    kWidth == 16 ? StoreBytes16(pu8, v) : StoreBytes8(pu8, v);
}

// The mean of each sample and the one kRight columns and downPitch bytes further.
template <int kWidth, int kRows, int kRight>
MP4V_VEC void MeanOfTwo(uint8_t* __restrict pu8Dst, const uint8_t* __restrict pu8Src, ptrdiff_t pitch,
                        ptrdiff_t downPitch, Bytes16 vDown) {
    for (int y = 0; y < kRows; y++) {
        const Bytes16 vFirst = Load<kWidth>(pu8Src);
        Store<kWidth>(pu8Dst, Average(vFirst, Load<kWidth>(pu8Src + kRight + downPitch), vDown));
        pu8Dst += pitch;
        pu8Src += pitch;
    }
}

// A mean of two means: the inner ones round like the result should, and the outer one errs by one exactly where its
// own last bit is set and some (rounding up) or no (rounding down) inner mean was inexact.
template <int kWidth, int kRows>
MP4V_VEC void MeanOfFour(uint8_t* __restrict pu8Dst, const uint8_t* __restrict pu8Src, ptrdiff_t pitch, Bytes16 vDown) {
    const Bytes16 vFlip = -vDown;  // all ones when rounding down
    Bytes16 vLeft = Load<kWidth>(pu8Src);
    Bytes16 vRight = Load<kWidth>(pu8Src + 1);
    Bytes16 vAbove = Average(vLeft, vRight, vDown);
    Bytes16 vAboveInexact = vLeft ^ vRight;
    for (int y = 0; y < kRows; y++) {
        pu8Src += pitch;
        vLeft = Load<kWidth>(pu8Src);
        vRight = Load<kWidth>(pu8Src + 1);
        const Bytes16 vBelow = Average(vLeft, vRight, vDown);
        const Bytes16 vBelowInexact = vLeft ^ vRight;
        const Bytes16 vErrs = (vAbove ^ vBelow) & ((vAboveInexact | vBelowInexact) ^ vFlip) & 1;
        Store<kWidth>(pu8Dst, AverageUp(vAbove, vBelow) - vErrs);
        vAbove = vBelow;
        vAboveInexact = vBelowInexact;
        pu8Dst += pitch;
    }
}

// The rounding type is constant in each of the two loops, so that rounding up costs nothing.
template <int kWidth, int kRows>
MP4V_VEC void HalfH(uint8_t* pu8Dst, const uint8_t* pu8Src, ptrdiff_t pitch, uint32_t u32Rounding) {
    if (u32Rounding)
        MeanOfTwo<kWidth, kRows, 1>(pu8Dst, pu8Src, pitch, 0, Bytes16{} + 1);
    else
        MeanOfTwo<kWidth, kRows, 1>(pu8Dst, pu8Src, pitch, 0, Bytes16{});
}

template <int kWidth, int kRows>
MP4V_VEC void HalfV(uint8_t* pu8Dst, const uint8_t* pu8Src, ptrdiff_t pitch, uint32_t u32Rounding) {
    if (u32Rounding)
        MeanOfTwo<kWidth, kRows, 0>(pu8Dst, pu8Src, pitch, pitch, Bytes16{} + 1);
    else
        MeanOfTwo<kWidth, kRows, 0>(pu8Dst, pu8Src, pitch, pitch, Bytes16{});
}

template <int kWidth, int kRows>
MP4V_VEC void HalfHV(uint8_t* pu8Dst, const uint8_t* pu8Src, ptrdiff_t pitch, uint32_t u32Rounding) {
    if (u32Rounding)
        MeanOfFour<kWidth, kRows>(pu8Dst, pu8Src, pitch, Bytes16{} + 1);
    else
        MeanOfFour<kWidth, kRows>(pu8Dst, pu8Src, pitch, Bytes16{});
}

}  // namespace

#define MP4V_HALF_KERNEL(Name, Body, kWidth, kRows)                                             \
    void Name(uint8_t* pu8Dst, const uint8_t* pu8Src, int32_t s32Pitch, uint32_t u32Rounding) { \
        Body<kWidth, kRows>(pu8Dst, pu8Src, s32Pitch, u32Rounding);                             \
    }

MP4V_HALF_KERNEL(Interpolate16x16H_c, HalfH, 16, 16)
MP4V_HALF_KERNEL(Interpolate16x16V_c, HalfV, 16, 16)
MP4V_HALF_KERNEL(Interpolate16x16HV_c, HalfHV, 16, 16)
MP4V_HALF_KERNEL(Interpolate8x8H_c, HalfH, 8, 8)
MP4V_HALF_KERNEL(Interpolate8x8V_c, HalfV, 8, 8)
MP4V_HALF_KERNEL(Interpolate8x8HV_c, HalfHV, 8, 8)
MP4V_HALF_KERNEL(Interpolate8x4H_c, HalfH, 8, 4)
MP4V_HALF_KERNEL(Interpolate8x4V_c, HalfV, 8, 4)
MP4V_HALF_KERNEL(Interpolate8x4HV_c, HalfHV, 8, 4)
