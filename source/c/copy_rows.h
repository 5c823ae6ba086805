// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

// Block copies: the copy kernels, and for inlining where those are the portable ones.
#ifndef MP4VDEC_SOURCE_C_COPY_ROWS_H_
#define MP4VDEC_SOURCE_C_COPY_ROWS_H_

#include "c/vec.h"

// Row after row, so that rows that overlap in the destination come out the same everywhere. kRows: a multiple of 4.
template <int kWidth, int kRows>
MP4V_VEC void CopyRows(const uint8_t* pu8Src, ptrdiff_t srcPitch, uint8_t* pu8Dst, ptrdiff_t dstPitch) {
    const RowOffsets tSrc(srcPitch), tDst(dstPitch);
#pragma GCC unroll 4
    for (int y = 0; y < kRows; y += 4) {
        for (int i = 0; i < 4; i++) {
            kWidth == 16 ? StoreBytes16(pu8Dst + tDst[i], LoadBytes16(pu8Src + tSrc[i]))
                         : StoreBytes8(pu8Dst + tDst[i], LoadBytes8(pu8Src + tSrc[i]));
        }
        pu8Src += tSrc.four;
        pu8Dst += tDst.four;
    }
}

// Where a macroblock, or the first one of several, lies in a picture.
struct MbAddress {
    uint8_t *pu8Y, *pu8U, *pu8V;
};

// Macroblocks side by side. Luma pitches, chroma half of them; the rows of the destination do not overlap.
void CopyMbs(const MbAddress& tSrc, ptrdiff_t srcPitch, const MbAddress& tDst, ptrdiff_t dstPitch, size_t count);

#endif  // MP4VDEC_SOURCE_C_COPY_ROWS_H_
