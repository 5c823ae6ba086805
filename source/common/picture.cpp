// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

#include "common/picture.h"

#include "common/kernels.h"
#include "common/postproc.h"

// In pictures of other widths macroblocks reach into each other, and it matters which one is last.
void PictureOutput::StartRow(uint32_t u32NewRow) {
    const bool bCopied = !(u32Flags & (kPostFieldStacked | kPostDeinterlace)) && ptCtx->u32Width % 16 == 0 &&
                         (u32NewRow + 1 != ptCtx->u32MbHeight || ptCtx->u32Height % 16 == 0) &&
                         MemCopyStride16x16 == MemCopyStride16x16_c && MemCopyStride8x8 == MemCopyStride8x8_c;
    u32Row = u32NewRow;
    u32First = 0;
    s32WaitingQp = !ptCtx->u32PostProcOn ? INT32_MAX : bCopied ? ptCtx->s32DeblockQpThr : -1;
}

void PictureOutput::Flush(uint32_t u32Column) {
    if (ptCtx->u32PostProcOn && u32First < u32Column) {
        const size_t stride = ptCtx->u32LumaStride;
        const size_t width = ptCtx->u32Width;
        const size_t luma = width * ptCtx->u32Height;
        const VopFrame tOut = {pu8Out, pu8Out + luma, pu8Out + luma * 5 / 4, pu8Out};
        CopyMbs(MbAt(ptCtx->tCurFrame, stride, u32First, u32Row), (ptrdiff_t)stride,
                MbAt(tOut, width, u32First, u32Row), (ptrdiff_t)width, u32Column - u32First);
        ptCtx->u32LeftDeblockValid = 0;
    }
    u32First = u32Column + 1;
}

void PictureOutput::AddAlone(uint32_t u32Column) {
    Flush(u32Column);
    const bool bDeblock = ptCtx->tMb.ptCurMbInfo->u8Qp > ptCtx->s32DeblockQpThr;
    u32Flags = (u32Flags & ~(uint32_t)kPostDeblock) | (bDeblock ? kPostDeblock : 0u);
    const size_t luma = (size_t)ptCtx->u32Width * ptCtx->u32Height;  // times 5, it may not fit 32 bits
    PostProcess_MB(ptCtx, u32Column, u32Row, pu8Out, pu8Out + luma, pu8Out + luma * 5 / 4, u32Flags);
}
