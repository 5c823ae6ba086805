// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors
#include <string.h>

#include "c/deinterlace.h"
#include "common/kernels.h"

void Deinterlacing_c(const uint8_t* pu8Top, int32_t s32TopPitch, const uint8_t* pu8Bottom, int32_t s32BottomPitch,
                     uint8_t* pu8Dst, int32_t s32Width, int32_t s32Height) {
    if (s32Height < 2) return;  // less than one row of each field
    const ptrdiff_t topPitch = s32TopPitch, bottomPitch = s32BottomPitch, width = s32Width;
    for (int32_t i = s32Height / 2 - 1; i > 0; i--) {
        uint8_t* const pu8Odd = pu8Dst + width;
        const uint8_t* const pu8NextTop = pu8Top + topPitch;
        const uint8_t* const pu8NextBottom = pu8Bottom + bottomPitch;
        ptrdiff_t x = 0;
        for (; x + 16 <= width; x += 16) {
            StoreBytes16(pu8Dst + x, LoadBytes16(pu8Top + x));
            WeaveOrInterpolate<16>(pu8Odd + x, pu8Top + x, pu8NextTop + x, pu8Bottom + x, pu8NextBottom + x);
        }
        if (x < width) memcpy(pu8Dst + x, pu8Top + x, (size_t)(width - x));
        if (x + 8 <= width)
            WeaveOrInterpolate<8>(pu8Odd + x, pu8Top + x, pu8NextTop + x, pu8Bottom + x, pu8NextBottom + x);
        pu8Top += topPitch;
        pu8Bottom += bottomPitch;
        pu8Dst += 2 * width;
    }
    // The last row of the bottom field has nothing below it to compare with.
    memcpy(pu8Dst, pu8Top, (size_t)width);
    memcpy(pu8Dst + width, pu8Bottom, (size_t)width);
}

namespace {

void CopyRows(uint8_t* pu8Dst, ptrdiff_t dstPitch, const uint8_t* pu8Src, ptrdiff_t srcPitch, int32_t s32Width,
              int32_t s32Rows) {
    for (; s32Rows > 0; s32Rows--) {
        memcpy(pu8Dst, pu8Src, (size_t)s32Width);
        pu8Dst += dstPitch;
        pu8Src += srcPitch;
    }
}

// How one plane stands in the frame store.
struct PlaneFields {
    const uint8_t* pu8Top;
    const uint8_t* pu8Bottom;
    int32_t s32FieldPitch;
    int32_t s32FieldRows;
};

void OutputPlane(uint8_t* pu8Dst, int32_t s32Width, int32_t s32Height, const PlaneFields& tFields,
                 int32_t s32Deinterlace) {
    if (s32Deinterlace) {
        Deinterlacing_c(tFields.pu8Top, tFields.s32FieldPitch, tFields.pu8Bottom, tFields.s32FieldPitch, pu8Dst,
                        s32Width, s32Height);
        return;
    }
    const ptrdiff_t twoRows = 2 * (ptrdiff_t)s32Width;
    CopyRows(pu8Dst, twoRows, tFields.pu8Top, tFields.s32FieldPitch, s32Width, tFields.s32FieldRows);
    CopyRows(pu8Dst + s32Width, twoRows, tFields.pu8Bottom, tFields.s32FieldPitch, s32Width, tFields.s32FieldRows);
}

}  // namespace

void VopOutput_c(const uint8_t* pu8Y, const uint8_t* pu8U, const uint8_t* pu8V, uint8_t* pu8Dst, int32_t s32Pitch,
                 int32_t s32Width, int32_t s32Height, int32_t s32FieldStacked, int32_t s32Deinterlace) {
    const ptrdiff_t lumaBytes = (ptrdiff_t)s32Width * s32Height;
    uint8_t* const pu8DstU = pu8Dst + lumaBytes;
    uint8_t* const pu8DstV = pu8Dst + lumaBytes * 5 / 4;
    const int32_t s32ChromaPitch = s32Pitch / 2, s32ChromaWidth = s32Width / 2, s32ChromaHeight = s32Height / 2;

    if (!s32FieldStacked && !s32Deinterlace) {
        CopyRows(pu8Dst, s32Width, pu8Y, s32Pitch, s32Width, s32Height);
        CopyRows(pu8DstU, s32ChromaWidth, pu8U, s32ChromaPitch, s32ChromaWidth, s32ChromaHeight);
        CopyRows(pu8DstV, s32ChromaWidth, pu8V, s32ChromaPitch, s32ChromaWidth, s32ChromaHeight);
        return;
    }
    // Where the bottom fields start, and how far it is from one row of a field to the next.
    const ptrdiff_t lumaBottom = s32FieldStacked ? (ptrdiff_t)s32Height * s32Pitch / 2 : s32Pitch;
    const ptrdiff_t chromaBottom = s32FieldStacked ? (ptrdiff_t)s32Height * s32ChromaPitch / 4 : s32ChromaPitch;
    const int32_t s32LumaStep = s32FieldStacked ? s32Pitch : 2 * s32Pitch;
    const int32_t s32ChromaStep = s32FieldStacked ? s32ChromaPitch : s32Pitch;
    const int32_t s32LumaRows = s32Height / 2, s32ChromaRows = s32Height / 4;
    OutputPlane(pu8Dst, s32Width, s32Height, {pu8Y, pu8Y + lumaBottom, s32LumaStep, s32LumaRows}, s32Deinterlace);
    OutputPlane(pu8DstU, s32ChromaWidth, s32ChromaHeight, {pu8U, pu8U + chromaBottom, s32ChromaStep, s32ChromaRows},
                s32Deinterlace);
    OutputPlane(pu8DstV, s32ChromaWidth, s32ChromaHeight, {pu8V, pu8V + chromaBottom, s32ChromaStep, s32ChromaRows},
                s32Deinterlace);
}
