// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

// Output of a macroblock, with deinterlacing and deblocking in the output picture.
#ifndef MP4VDEC_SOURCE_COMMON_POSTPROC_H_
#define MP4VDEC_SOURCE_COMMON_POSTPROC_H_

#include "common/context.h"

enum : uint32_t {
    kPostFieldStacked = 1,  // the frame store holds the top field above the bottom field
    kPostDeinterlace = 2,
    kPostDeblock = 4,
};

extern "C" {

// Writes the current macroblock, from its place in the current frame, into the caller's picture at pu8OutY (U and V
// behind it at width * height and at 5 / 4 of that), and deblocks the edges to its upper and left neighbours there.
// Bytes outside [pu8OutY, pu8OutY + width * height * 3 / 2) are not written and read as 0.
// kPostDeinterlace needs sizes that are multiples of 16 (32 rows when fields are stacked); it is ignored where the
// macroblock does not lie inside the picture.
MP4VDEC_API void PostProcess_MB(Mp4vDecCtx* ptCtx, uint32_t u32MbX, uint32_t u32MbY, uint8_t* pu8OutY, uint8_t* pu8OutU,
                                uint8_t* pu8OutV, uint32_t u32Flags);
}

#endif  // MP4VDEC_SOURCE_COMMON_POSTPROC_H_
