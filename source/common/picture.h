// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

// What the I-VOP and P-VOP loops have in common.
#ifndef MP4VDEC_SOURCE_COMMON_PICTURE_H_
#define MP4VDEC_SOURCE_COMMON_PICTURE_H_

#include "c/copy_rows.h"
#include "common/bsreader.h"
#include "common/context.h"

// A macroblock of a frame or picture. Stride: from one luma row to the next.
static inline MbAddress MbAt(const VopFrame& tFrame, size_t stride, uint32_t u32Column, uint32_t u32Row) {
    const size_t luma = 16 * (u32Row * stride + u32Column);
    const size_t chroma = 8 * (u32Row * (stride / 2) + u32Column);
    return {tFrame.pu8Y + luma, tFrame.pu8U + chroma, tFrame.pu8V + chroma};
}

// Points the macroblock scratch at the record of a row's first macroblock and its place in the current frame.
static inline void StartMbRow(Mp4vDecCtx* ptCtx, uint32_t u32Row) {
    Mp4vMbScratch& tMb = ptCtx->tMb;
    const MbAddress t = MbAt(ptCtx->tCurFrame, ptCtx->u32LumaStride, 0, u32Row);
    tMb.ptCurMbInfo = ptCtx->ptMbInfo + (size_t)u32Row * (ptCtx->u32MbWidth + 1);
    tMb.pu8DstY = t.pu8Y;
    tMb.pu8DstU = t.pu8U;
    tMb.pu8DstV = t.pu8V;
}

// The same for a macroblock to the right of the current one.
static inline void NextMb(Mp4vMbScratch* ptMb, size_t columns = 1) {
    ptMb->ptCurMbInfo += columns;
    ptMb->pu8DstY += 16 * columns;
    ptMb->pu8DstU += 8 * columns;
    ptMb->pu8DstV += 8 * columns;
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

// Hands the finished macroblocks of a picture to post-processing, when it is output. Those that are only copied wait
// for each other, until the row ends or one comes that is not.
struct PictureOutput {
    Mp4vDecCtx* ptCtx;
    uint8_t* pu8Out;
    uint32_t u32Flags;  // for PostProcess_MB
    uint32_t u32Row;
    uint32_t u32First;     // the macroblocks from this one on wait
    int32_t s32WaitingQp;  // with quantisers up to this

    void StartRow(uint32_t u32NewRow);
    // Outputs what waits, which ends before this column. What is in the column itself is not output.
    void Flush(uint32_t u32Column);
    MP4V_INLINE bool MayWait(const MbInfo& tInfo) const { return tInfo.u8Qp <= s32WaitingQp; }
    // The current macroblock is finished.
    MP4V_INLINE void Add(uint32_t u32Column) {
        if (MP4V_UNLIKELY(!MayWait(*ptCtx->tMb.ptCurMbInfo))) AddAlone(u32Column);
    }
    void AddAlone(uint32_t u32Column);
};

#endif  // MP4VDEC_SOURCE_COMMON_PICTURE_H_
