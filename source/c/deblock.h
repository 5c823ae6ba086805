// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

// The deblocking filter: the kernel, and for inlining where that is the portable one.
#ifndef MP4VDEC_SOURCE_C_DEBLOCK_H_
#define MP4VDEC_SOURCE_C_DEBLOCK_H_

#include "c/vec.h"

// What rows are changed by: upwards where the step across the edge goes up, downwards where it goes down.
struct EdgeChange {
    Bytes16 vUp, vDown;

    // The step, shifted right as a signed number: halves of what goes down round up.
    MP4V_VEC_MEMBER EdgeChange Halved() const { return {vUp >> 1, AverageUp(vDown, Bytes16{})}; }
    MP4V_VEC_MEMBER Bytes16 AddTo(Bytes16 v) const { return SubSaturatedU8(AddSaturatedU8(v, vUp), vDown); }
    MP4V_VEC_MEMBER Bytes16 SubFrom(Bytes16 v) const { return AddSaturatedU8(SubSaturatedU8(v, vUp), vDown); }
};

// The step across the edge above pu8Edge is smoothed into a ramp of three rows on either side, unless it is so high
// that it must belong to the picture. kWidth: 8 or 16 columns. Row after row, so that rows that overlap come out the
// same everywhere.
template <int kWidth>
MP4V_VEC void SmoothEdge(uint8_t* pu8Edge, ptrdiff_t pitch, uint32_t u32Qp) {
    const auto load = [](const uint8_t* pu8) { return kWidth == 16 ? LoadBytes16(pu8) : LoadBytes8(pu8); };
    const auto store = [](uint8_t* pu8, Bytes16 v) { kWidth == 16 ? StoreBytes16(pu8, v) : StoreBytes8(pu8, v); };
    const uint8_t u8Qp = (uint8_t)(u32Qp < 255 ? u32Qp : 255);
    const Bytes16 vAbove = load(pu8Edge - pitch);
    const Bytes16 vBelow = load(pu8Edge);
    const Bytes16 vUp = SubSaturatedU8(vBelow, vAbove), vDown = SubSaturatedU8(vAbove, vBelow);
    const Bytes16 vTooHigh = (Bytes16)((vUp | vDown) >> 1 >= Bytes16{} + u8Qp);
    const EdgeChange tHalf = EdgeChange{vUp & ~vTooHigh, vDown & ~vTooHigh}.Halved();
    const EdgeChange tQuarter = tHalf.Halved();
    const EdgeChange tEighth = tQuarter.Halved();
    store(pu8Edge - 3 * pitch, tEighth.AddTo(load(pu8Edge - 3 * pitch)));
    store(pu8Edge - 2 * pitch, tQuarter.AddTo(load(pu8Edge - 2 * pitch)));
    store(pu8Edge - pitch, tHalf.AddTo(vAbove));
    store(pu8Edge, tHalf.SubFrom(vBelow));
    store(pu8Edge + pitch, tQuarter.SubFrom(load(pu8Edge + pitch)));
    store(pu8Edge + 2 * pitch, tEighth.SubFrom(load(pu8Edge + 2 * pitch)));
}

#endif  // MP4VDEC_SOURCE_C_DEBLOCK_H_
