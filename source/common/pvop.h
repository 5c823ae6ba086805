// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

// Predicted pictures: the macroblock header, the prediction and the loop.
#ifndef MP4VDEC_SOURCE_COMMON_PVOP_H_
#define MP4VDEC_SOURCE_COMMON_PVOP_H_

#include <string.h>

#include "common/context.h"

enum : uint32_t {
    kMbHeaderDecoded = 0,
    kMbHeaderStuffing = 1,
    kMbHeaderInvalid = 2,
};

extern "C" {

// Sixteenths of a sample to half samples, for the chroma vector of four luma vectors (ISO/IEC 14496-2, 7.6.5).
extern const uint32_t g_au32RoundTab[16];

// Decodes what precedes the blocks of the current macroblock. ptMb: &ptCtx->tMb.
MP4VDEC_API uint32_t DecMBInfo(Mp4vDecCtx* ptCtx, Mp4vMbScratch* ptMb, uint32_t u32Column, uint32_t u32Row);

// DecMBInfo for the current macroblock, from a cursor.
uint32_t DecMbHeader(Mp4vDecCtx* ptCtx, struct BsCursor* ptBs, uint32_t u32Column, uint32_t u32Row);

// The same for what is decoded of pictures that are not interlaced, far from the end of the chunk, while GetMedian is
// the portable kernel. Returns false with nothing done for anything else.
bool DecMbHeaderFar(Mp4vDecCtx* ptCtx, struct BsCursor* ptBs, uint32_t u32Column, uint32_t u32Row);

// Decodes a P-VOP behind its header; arguments and result as of IVopDecode.
MP4VDEC_API uint32_t PVopDecode(Mp4vDecCtx* ptCtx, uint8_t* pu8Out, uint32_t u32Flags);
}

// The record of a macroblock with not_coded.
static inline void SetNotCoded(MbInfo* ptMb) {
    memset(ptMb->as32Mv, 0, sizeof ptMb->as32Mv);
    ptMb->u8FieldPred = 0;
    ptMb->u8MbType = MB_NOT_CODED;
}

#endif  // MP4VDEC_SOURCE_COMMON_PVOP_H_
