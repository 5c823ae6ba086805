// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

// What the I-VOP and P-VOP loops have in common.
#ifndef MP4VDEC_SOURCE_COMMON_PICTURE_H_
#define MP4VDEC_SOURCE_COMMON_PICTURE_H_

#include "common/context.h"
#include "common/postproc.h"

// Points the macroblock scratch at a macroblock's record and its place in the current frame.
static inline void StartMb(Mp4vDecCtx* ptCtx, uint32_t u32Column, uint32_t u32Row) {
    Mp4vMbScratch& tMb = ptCtx->tMb;
    const size_t stride = ptCtx->u32LumaStride;
    const size_t chroma = (size_t)8 * u32Column + 8 * u32Row * (stride / 2);
    tMb.ptCurMbInfo = ptCtx->ptMbInfo + ((size_t)u32Row * (ptCtx->u32MbWidth + 1) + u32Column);
    tMb.pu8DstY = ptCtx->tCurFrame.pu8Y + (size_t)16 * u32Column + 16 * u32Row * stride;
    tMb.pu8DstU = ptCtx->tCurFrame.pu8U + chroma;
    tMb.pu8DstV = ptCtx->tCurFrame.pu8V + chroma;
}

// The same for the macroblock to the right of the current one.
static inline void NextMb(Mp4vMbScratch* ptMb) {
    ptMb->ptCurMbInfo++;
    ptMb->pu8DstY += 16;
    ptMb->pu8DstU += 8;
    ptMb->pu8DstV += 8;
}

// Hands the finished macroblock to post-processing when this picture is output. *pu32Flags carries its changes on.
static inline void OutputMb(Mp4vDecCtx* ptCtx, uint32_t u32Column, uint32_t u32Row, uint8_t* pu8Out,
                            uint32_t* pu32Flags) {
    if (!ptCtx->u32PostProcOn) return;
    const bool bDeblock = ptCtx->tMb.ptCurMbInfo->u8Qp > ptCtx->s32DeblockQpThr;
    *pu32Flags = (*pu32Flags & ~(uint32_t)kPostDeblock) | (bDeblock ? kPostDeblock : 0u);
    const uint32_t u32Luma = ptCtx->u32Width * ptCtx->u32Height;
    PostProcess_MB(ptCtx, u32Column, u32Row, pu8Out, pu8Out + u32Luma, pu8Out + u32Luma * 5 / 4, *pu32Flags);
}

#endif  // MP4VDEC_SOURCE_COMMON_PICTURE_H_
