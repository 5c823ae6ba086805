// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

// What the I-VOP and P-VOP loops have in common.
#ifndef MP4VDEC_SOURCE_COMMON_PICTURE_H_
#define MP4VDEC_SOURCE_COMMON_PICTURE_H_

#include "common/context.h"
#include "common/postproc.h"

// Points the macroblock scratch at the record of a row's first macroblock and its place in the current frame.
static inline void StartMbRow(Mp4vDecCtx* ptCtx, uint32_t u32Row) {
    Mp4vMbScratch& tMb = ptCtx->tMb;
    const size_t stride = ptCtx->u32LumaStride;
    const size_t chroma = 8 * u32Row * (stride / 2);
    tMb.ptCurMbInfo = ptCtx->ptMbInfo + (size_t)u32Row * (ptCtx->u32MbWidth + 1);
    tMb.pu8DstY = ptCtx->tCurFrame.pu8Y + 16 * u32Row * stride;
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

// How the blocks of the current macroblock lie in the current frame. Field DCT: the upper luma blocks hold the lines of
// the top field, the lower ones those between.
struct BlockLayout {
    int32_t s32RowOffset;  // bytes from the upper to the lower luma blocks
    int32_t s32LumaPitch;
    int32_t s32ChromaPitch;
};

static inline BlockLayout LayoutOf(const Mp4vDecCtx* ptCtx) {
    const int32_t s32Stride = (int32_t)ptCtx->u32LumaStride;
    const bool bFieldDct = ptCtx->s16Interlaced && ptCtx->tMb.s32DctType;
    return {bFieldDct ? s32Stride : 8 * s32Stride, bFieldDct ? 2 * s32Stride : s32Stride, s32Stride / 2};
}

struct BlockTarget {
    uint8_t* pu8Dst;
    int32_t s32Pitch;
};

static inline BlockTarget TargetOf(const Mp4vMbScratch& tMb, const BlockLayout& t, uint32_t u32Block) {
    if (u32Block >= 4) return {u32Block == 4 ? tMb.pu8DstU : tMb.pu8DstV, t.s32ChromaPitch};
    return {tMb.pu8DstY + 8 * (u32Block & 1) + (ptrdiff_t)(u32Block >> 1) * t.s32RowOffset, t.s32LumaPitch};
}

// Hands the finished macroblock to post-processing when this picture is output. *pu32Flags carries its changes on.
static inline void OutputMb(Mp4vDecCtx* ptCtx, uint32_t u32Column, uint32_t u32Row, uint8_t* pu8Out,
                            uint32_t* pu32Flags) {
    if (!ptCtx->u32PostProcOn) return;
    const bool bDeblock = ptCtx->tMb.ptCurMbInfo->u8Qp > ptCtx->s32DeblockQpThr;
    *pu32Flags = (*pu32Flags & ~(uint32_t)kPostDeblock) | (bDeblock ? kPostDeblock : 0u);
    const size_t luma = (size_t)ptCtx->u32Width * ptCtx->u32Height;  // times 5, it may not fit 32 bits
    PostProcess_MB(ptCtx, u32Column, u32Row, pu8Out, pu8Out + luma, pu8Out + luma * 5 / 4, *pu32Flags);
}

#endif  // MP4VDEC_SOURCE_COMMON_PICTURE_H_
