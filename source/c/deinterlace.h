// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

// The choice that all deinterlacers make for eight samples.
#ifndef MP4VDEC_SOURCE_C_DEINTERLACE_H_
#define MP4VDEC_SOURCE_C_DEINTERLACE_H_

#include "c/vec.h"

// Samples between two top-field rows. Weaves the bottom-field row in where eight of its samples differ no more from
// their neighbours than each field's rows differ among themselves; otherwise something moved, and the neighbours' mean
// is shown instead. vNextBottom: the following bottom-field row. vInterpolated: all ones where it interpolated.
MP4V_VEC Bytes16 WeaveOrInterpolate(Bytes16 vAbove, Bytes16 vBelow, Bytes16 vBottom, Bytes16 vNextBottom,
                                    Bytes16& vInterpolated) {
    const Vec8 vWithin = SumsOfDiffs(vAbove, vBelow) + SumsOfDiffs(vBottom, vNextBottom);
    const Vec8 vBetween = SumsOfDiffs(vAbove, vBottom) + SumsOfDiffs(vBelow, vBottom);
    vInterpolated = HalvesAbove0(vBetween - vWithin);
    return Select(vInterpolated, AverageUp(vAbove, vBelow), vBottom);
}

// kWidth: 16, or 8 for the low halves. Returns where it interpolated.
template <int kWidth>
MP4V_VEC Bytes16 WeaveOrInterpolate(uint8_t* pu8Dst, const uint8_t* pu8Above, const uint8_t* pu8Below,
                                    const uint8_t* pu8Bottom, const uint8_t* pu8NextBottom) {
    Bytes16 vInterpolated = {};
    if (kWidth == 16) {
        StoreBytes16(pu8Dst, WeaveOrInterpolate(LoadBytes16(pu8Above), LoadBytes16(pu8Below), LoadBytes16(pu8Bottom),
                                                LoadBytes16(pu8NextBottom), vInterpolated));
    } else {
        StoreBytes8(pu8Dst, WeaveOrInterpolate(LoadBytes8(pu8Above), LoadBytes8(pu8Below), LoadBytes8(pu8Bottom),
                                               LoadBytes8(pu8NextBottom), vInterpolated));
    }
    return vInterpolated;
}

#endif  // MP4VDEC_SOURCE_C_DEINTERLACE_H_
