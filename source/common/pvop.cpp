// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

#include "common/pvop.h"

#include <string.h>

#include "c/copy_rows.h"
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
    const BlockLayout tLayout = LayoutOf(ptCtx);
    int16_t* ps16Block = tMb.as16Coef;
    bool bFailed = false;
    for (uint32_t b = 0; b < 6; b++) {
        if (!(tMb.u32Cbp >> (5 - b) & 1)) continue;
        memset(ps16Block, 0, 64 * sizeof *ps16Block);
        if (!bFailed) DecInterBlock(tBs, ps16Block, u32Scan);
        bFailed = tBs.u32BsError == ERR_VID_MPEG4DEC_COEFF;
        const BlockTarget t = TargetOf(tMb, tLayout, b);
        if (bMpegQuant) DequantMpegInter(ps16Block, ps16Block, u32Quant);
        if (bMpegQuant || bFailed || u32Quant == 0) {
            AddInterBlock(ps16Block, t.pu8Dst, t.s32Pitch);
        } else {
            AddInterBlockH263(ps16Block, u32Quant, t.pu8Dst, t.s32Pitch);
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
    const BlockLayout t = LayoutOf(ptCtx);
    AddIdct8x8Multi(&tMb, tMb.as16Coef, tMb.u32Cbp, t.s32RowOffset, t.s32LumaPitch, t.s32ChromaPitch);
}

// Motion zero of all three planes.
MP4V_INLINE void CopyFromReference(const Mp4vDecCtx* ptCtx) {
    const Mp4vMbScratch& tMb = ptCtx->tMb;
    const int32_t s32Stride = (int32_t)ptCtx->u32LumaStride;
    const uint8_t* const pu8Y = ptCtx->tRefFrame.pu8Y + (tMb.pu8DstY - ptCtx->tCurFrame.pu8Y);
    const uint8_t* const pu8U = ptCtx->tRefFrame.pu8U + (tMb.pu8DstU - ptCtx->tCurFrame.pu8U);
    const uint8_t* const pu8V = ptCtx->tRefFrame.pu8V + (tMb.pu8DstV - ptCtx->tCurFrame.pu8V);
    if (MP4V_LIKELY(MemCopy16x16 == MP4DecMemCopy16x16_c)) {
        CopyRows<16, 16>(pu8Y, s32Stride, tMb.pu8DstY, s32Stride);
    } else {
        MemCopy16x16(tMb.pu8DstY, pu8Y, s32Stride);
    }
    if (MP4V_LIKELY(MemCopy8x8 == MP4DecMemCopy8x8_c)) {
        CopyRows<8, 8>(pu8U, s32Stride / 2, tMb.pu8DstU, s32Stride / 2);
        CopyRows<8, 8>(pu8V, s32Stride / 2, tMb.pu8DstV, s32Stride / 2);
    } else {
        MemCopy8x8(tMb.pu8DstU, pu8U, s32Stride / 2);
        MemCopy8x8(tMb.pu8DstV, pu8V, s32Stride / 2);
    }
}

// Consumes a set not_coded bit that is not the last of its word; others are left to DecMBInfo.
MP4V_INLINE bool SkipNotCoded(BsReader* ptBs) {
    if (ptBs->u32BitPos == 31 || (ptBs->u32CurWord << ptBs->u32BitPos) >> 31 == 0) return false;
    ptBs->u32BitPos++;
    return true;
}

MP4V_INLINE uint32_t DecHeader(Mp4vDecCtx* ptCtx, uint32_t u32Column, uint32_t u32Row) {
    if (!SkipNotCoded(&ptCtx->tBs)) return DecMBInfo(ptCtx, &ptCtx->tMb, u32Column, u32Row);
    SetNotCoded(ptCtx->tMb.ptCurMbInfo);
    return kMbHeaderDecoded;
}

// Half of the predictors only, those of blocks 0 to 2: what prediction finds depends on it.
MP4V_INLINE void ClearPredictors(MbInfo* ptInfo) {
    constexpr uint32_t kBytes = sizeof ptInfo->as16AcDcPred / 2;
    if (MP4V_LIKELY(MemSet == MP4DecMemSet_c)) {
        memset(ptInfo->as16AcDcPred, 0, kBytes);
    } else {
        MemSet(ptInfo->as16AcDcPred, 0, kBytes);
    }
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
        StartMbRow(ptCtx, u32Row);
        for (uint32_t u32Column = 0; u32Column < ptCtx->u32MbWidth; u32Column++, NextMb(&ptCtx->tMb)) {
            MbInfo* const ptInfo = ptCtx->tMb.ptCurMbInfo;
            const uint32_t u32Header = DecHeader(ptCtx, u32Column, u32Row);
            if (u32Header == kMbHeaderInvalid) return ptCtx->tBs.u32BsError = ERR_VID_MPEG4DEC_COEFF;
            if (u32Header == kMbHeaderDecoded) {
                ReconstructMb(ptCtx, u32Column, u32Row);
                if (!IsIntra(ptInfo->u8MbType)) ClearPredictors(ptInfo);
                OutputMb(ptCtx, u32Column, u32Row, pu8Out, &u32Flags);
            }
            if (ptCtx->tBs.u32BsError) return ptCtx->tBs.u32BsError;
        }
    }
    return MP4VDEC_OK;
}
