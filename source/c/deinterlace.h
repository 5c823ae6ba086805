// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

// The choice that all deinterlacers make for eight samples.
#ifndef MP4VDEC_SOURCE_C_DEINTERLACE_H_
#define MP4VDEC_SOURCE_C_DEINTERLACE_H_

#include "c/vec.h"

// Fills an output row between two top-field rows. Weaves the bottom-field row in when it differs no more from its
// neighbours than each field's rows differ among themselves; otherwise something moved, and the neighbours' mean is
// shown instead. pu8NextBottom: the following bottom-field row. Returns 1 when it interpolated.
MP4V_VEC uint32_t WeaveOrInterpolate8(uint8_t* pu8Dst, const uint8_t* pu8Above, const uint8_t* pu8Below,
                                      const uint8_t* pu8Bottom, const uint8_t* pu8NextBottom) {
    const Bytes16 vAbove = LoadBytes8(pu8Above);
    const Bytes16 vBelow = LoadBytes8(pu8Below);
    const Bytes16 vBottom = LoadBytes8(pu8Bottom);
    const Bytes16 vNextBottom = LoadBytes8(pu8NextBottom);
    const uint32_t u32Within = SumAbsDiff(JoinLow(vAbove, vBottom), JoinLow(vBelow, vNextBottom));
    const uint32_t u32Between = SumAbsDiff(JoinLow(vAbove, vBelow), JoinLow(vBottom, vBottom));
    const bool bInterpolate = u32Between > u32Within;
    StoreBytes8(pu8Dst, bInterpolate ? AverageUp(vAbove, vBelow) : vBottom);
    return bInterpolate;
}

#endif  // MP4VDEC_SOURCE_C_DEINTERLACE_H_
