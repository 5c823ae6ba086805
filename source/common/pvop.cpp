// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

#include "common/pvop.h"

#include <string.h>

#include "c/image.h"
#include "c/recon.h"
#include "common/block.h"
#include "common/headers.h"
#include "common/intra.h"
#include "common/kernels.h"
#include "common/motion.h"
#include "common/picture.h"
#include "common/predict.h"

namespace {

struct BlockTarget {
    uint8_t* pu8Dst;
    ptrdiff_t pitch;
};

BlockTarget TargetOf(const Mp4vDecCtx* ptCtx, int32_t b) {
    const Mp4vMbScratch& tMb = ptCtx->tMb;
    const ptrdiff_t stride = (int32_t)ptCtx->u32LumaStride;
    if (b >= 4) return {b == 4 ? tMb.pu8DstU : tMb.pu8DstV, stride / 2};
    const bool bFieldDct = ptCtx->s16Interlaced && tMb.s32DctType;
    return {tMb.pu8DstY + 8 * (b & 1) + (b >> 1) * (bFieldDct ? stride : 8 * stride), bFieldDct ? 2 * stride : stride};
}

// Whether AddResidual may take blocks from levels to samples at once.
bool ResidualIsPortable(bool bMpegQuant) {
    return InterTransformIsPortable() && (bMpegQuant || DequantH263Inter == DequantH263Inter_c);
}

// Block by block. Where a block fails, the H.263 method leaves its levels and the blocks behind it, which are empty, as
// they are; the MPEG method dequantises them all.
void AddResidualBlocks(Mp4vDecCtx* ptCtx) {
    Mp4vMbScratch& tMb = ptCtx->tMb;
    BsCursor tBs(ptCtx->tBs);
    const uint32_t u32Quant = tMb.ptCurMbInfo->u8Qp;
    const bool bMpegQuant = ptCtx->u16QuantType;
    const uint32_t u32Scan = ptCtx->u32AltVertScan ? SCAN_ALT_VERTICAL : SCAN_ZIGZAG;
    int16_t* ps16Block = tMb.as16Coef;
    bool bFailed = false;
    for (int32_t b = 0; b < 6; b++) {
        if (!(tMb.u32Cbp >> (5 - b) & 1)) continue;
        memset(ps16Block, 0, 64 * sizeof *ps16Block);
        if (!bFailed) DecInterBlock(tBs, ps16Block, u32Scan);
        bFailed = tBs.u32BsError == ERR_VID_MPEG4DEC_COEFF;
        const BlockTarget t = TargetOf(ptCtx, b);
        if (bMpegQuant) DequantMpegInter(ps16Block, ps16Block, u32Quant);
        if (bMpegQuant || bFailed || u32Quant == 0) {
            AddInterBlock(ps16Block, t.pu8Dst, t.pitch);
        } else {
            AddInterBlockH263(ps16Block, u32Quant, t.pu8Dst, t.pitch);
        }
        ps16Block += 64;
    }
    tBs.StoreTo(&ptCtx->tBs);
}

// Kernel by kernel, unless they are the portable ones.
void AddResidual(Mp4vDecCtx* ptCtx) {
    Mp4vMbScratch& tMb = ptCtx->tMb;
    if (!tMb.u32Cbp) return;
    if (ResidualIsPortable(ptCtx->u16QuantType)) return AddResidualBlocks(ptCtx);
    const uint32_t u32Quant = tMb.ptCurMbInfo->u8Qp;
    const bool bMpegQuant = ptCtx->u16QuantType;
    DecInterBlocks_c(&ptCtx->tBs, tMb.as16Coef, ptCtx->u32AltVertScan ? 2 : 0, tMb.u32Cbp, bMpegQuant ? 0 : u32Quant);
    if (bMpegQuant) {
        int16_t* ps16Block = tMb.as16Coef;
        for (uint32_t u32Left = tMb.u32Cbp; u32Left; u32Left &= u32Left - 1) {
            DequantMpegInter(ps16Block, ps16Block, u32Quant);
            ps16Block += 64;
        }
    }
    const int32_t s32Stride = (int32_t)ptCtx->u32LumaStride;
    const bool bFieldDct = ptCtx->s16Interlaced && tMb.s32DctType;
    AddIdct8x8Multi(&tMb, tMb.as16Coef, tMb.u32Cbp, bFieldDct ? s32Stride : 8 * s32Stride,
                    bFieldDct ? 2 * s32Stride : s32Stride, s32Stride / 2);
}

void CopyFromReference(const Mp4vDecCtx* ptCtx) {
    const Mp4vMbScratch& tMb = ptCtx->tMb;
    const int32_t s32Stride = (int32_t)ptCtx->u32LumaStride;
    MemCopy16x16(tMb.pu8DstY, ptCtx->tRefFrame.pu8Y + (tMb.pu8DstY - ptCtx->tCurFrame.pu8Y), s32Stride);
    MemCopy8x8(tMb.pu8DstU, ptCtx->tRefFrame.pu8U + (tMb.pu8DstU - ptCtx->tCurFrame.pu8U), s32Stride / 2);
    MemCopy8x8(tMb.pu8DstV, ptCtx->tRefFrame.pu8V + (tMb.pu8DstV - ptCtx->tCurFrame.pu8V), s32Stride / 2);
}

void ReconstructMb(Mp4vDecCtx* ptCtx, uint32_t u32Column, uint32_t u32Row) {
    const MbInfo* const ptInfo = ptCtx->tMb.ptCurMbInfo;
    if (ptInfo->u8MbType == MB_NOT_CODED) {
        CopyFromReference(ptCtx);
    } else if (IsIntra(ptInfo->u8MbType)) {
        DecIntraMB(ptCtx, ptCtx->tMb.as16Coef, u32Column, u32Row);
        ReconIntraMB(ptCtx, u32Column, u32Row);
    } else {
        PredictInterMb(ptCtx, u32Column, u32Row);
        AddResidual(ptCtx);
    }
}

}  // namespace

uint32_t PVopDecode(Mp4vDecCtx* ptCtx, uint8_t* pu8Out, uint32_t u32Flags) {
    VopEdgeExpand(ptCtx, &ptCtx->tRefFrame);
    ptCtx->u32RunningQp = ptCtx->u32VopQuant;
    for (uint32_t u32Row = 0; u32Row < ptCtx->u32MbHeight; u32Row++) {
        for (uint32_t u32Column = 0; u32Column < ptCtx->u32MbWidth; u32Column++) {
            StartMb(ptCtx, u32Column, u32Row);
            MbInfo* const ptInfo = ptCtx->tMb.ptCurMbInfo;
            const uint32_t u32Header = DecMBInfo(ptCtx, &ptCtx->tMb, u32Column, u32Row);
            if (u32Header == kMbHeaderInvalid) return ptCtx->tBs.u32BsError = ERR_VID_MPEG4DEC_COEFF;
            if (u32Header == kMbHeaderDecoded) {
                ReconstructMb(ptCtx, u32Column, u32Row);
                // Half of the predictors only, those of blocks 0 to 2: what prediction finds depends on it.
                if (!IsIntra(ptInfo->u8MbType)) MemSet(ptInfo->as16AcDcPred, 0, sizeof ptInfo->as16AcDcPred / 2);
                OutputMb(ptCtx, u32Column, u32Row, pu8Out, &u32Flags);
            }
            if (ptCtx->tBs.u32BsError) return ptCtx->tBs.u32BsError;
        }
    }
    return MP4VDEC_OK;
}
