// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

// Block copies for inlining where the copy kernels are the portable ones.
#ifndef MP4VDEC_SOURCE_C_COPY_ROWS_H_
#define MP4VDEC_SOURCE_C_COPY_ROWS_H_

#include <stddef.h>
#include <stdint.h>
#include <string.h>

// Four rows at a time: the multiples of the pitches stay in registers. kRows: a multiple of 4.
template <int kWidth, int kRows>
static inline __attribute__((always_inline)) void CopyRows(const uint8_t* __restrict pu8Src, ptrdiff_t srcPitch,
                                                           uint8_t* __restrict pu8Dst, ptrdiff_t dstPitch) {
    for (int y = 0; y < kRows; y += 4) {
        memcpy(pu8Dst, pu8Src, kWidth);
        memcpy(pu8Dst + dstPitch, pu8Src + srcPitch, kWidth);
        memcpy(pu8Dst + 2 * dstPitch, pu8Src + 2 * srcPitch, kWidth);
        memcpy(pu8Dst + 3 * dstPitch, pu8Src + 3 * srcPitch, kWidth);
        pu8Src += 4 * srcPitch;
        pu8Dst += 4 * dstPitch;
    }
}

#endif  // MP4VDEC_SOURCE_C_COPY_ROWS_H_
