// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

#include "common/pvop.h"

#include "c/image.h"
#include "c/recon.h"
#include "c/vec.h"
#include "common/block.h"
#include "common/headers.h"
#include "common/intra.h"
#include "common/kernels.h"
#include "common/motion.h"
#include "common/picture.h"
#include "common/predict.h"

namespace {

// Whether blocks may be taken from levels to samples at once.
bool ResidualIsPortable(bool bMpegQuant) {
    return InterTransformIsPortable() &&
           (bMpegQuant ? DequantMpegInter == DequantMpegInter_c : DequantH263Inter == DequantH263Inter_c);
}

// False with nothing done when some block is better left to the kernels.
bool AddPortableResidual(Mp4vDecCtx* ptCtx, BsCursor* ptBs) {
    Mp4vMbScratch& tMb = ptCtx->tMb;
    const uint32_t u32Quant = tMb.ptCurMbInfo->u8Qp;
    if (u32Quant - 1 > 30) return false;
    const uint32_t u32Cbp = tMb.u32Cbp;
    const auto DecCoefs = ptCtx->u16QuantType ? DecMpegCoefs : DecH263Coefs;
    const ScanTable* const ptScan = &g_atScans[ptCtx->u32AltVertScan ? SCAN_ALT_VERTICAL : SCAN_ZIGZAG];
    const BsCursor tBefore = *ptBs;
    InterCoefs atCoefs[6];
#pragma GCC unroll 6
    for (uint32_t b = 0; b < 6; b++) {
        if (!(u32Cbp >> (5 - b) & 1)) continue;
        if (MP4V_UNLIKELY(!DecCoefs(ptBs, tMb.as16Coef + 64 * b, atCoefs + b, ptScan, u32Quant))) {
            *ptBs = tBefore;
            return false;
        }
    }
    const BlockLayout tLayout = LayoutOf(ptCtx);
    const ptrdiff_t cbp = Opaque(u32Cbp);  // or each bit would be stored away above
#pragma GCC unroll 6
    for (uint32_t b = 0; b < 6; b++) {
        if (!(cbp >> (5 - b) & 1)) continue;
        const BlockTarget t = TargetOf(tMb, tLayout, b);
        AddInterBlock(tMb.as16Coef + 64 * b, t.pu8Dst, t.s32Pitch, atCoefs[b]);
    }
    return true;
}

// Kernel by kernel.
void AddResidual(Mp4vDecCtx* ptCtx) {
    Mp4vMbScratch& tMb = ptCtx->tMb;
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
void CopyFromReference(const Mp4vDecCtx* ptCtx, uint32_t u32Column, uint32_t u32Row) {
    const Mp4vMbScratch& tMb = ptCtx->tMb;
    const int32_t s32Stride = (int32_t)ptCtx->u32LumaStride;
    const MbAddress t = MbAt(ptCtx->tRefFrame, ptCtx->u32LumaStride, u32Column, u32Row);
    MemCopy16x16(tMb.pu8DstY, t.pu8Y, s32Stride);
    MemCopy8x8(tMb.pu8DstU, t.pu8U, s32Stride / 2);
    MemCopy8x8(tMb.pu8DstV, t.pu8V, s32Stride / 2);
}

// Half of the predictors only, those of blocks 0 to 2: what prediction finds depends on it.
constexpr uint32_t kClearedPredictors = sizeof(MbInfo::as16AcDcPred) / 2;

MP4V_INLINE void ClearPredictorsPortable(MbInfo* ptInfo) {
    ClearVecs<kClearedPredictors / sizeof(Vec8)>(ptInfo->as16AcDcPred[0]);
}

MP4V_INLINE void ClearPredictors(MbInfo* ptInfo, bool bPortable) {
    if (MP4V_LIKELY(bPortable)) {
        ClearPredictorsPortable(ptInfo);
    } else {
        MemSet(ptInfo->as16AcDcPred, 0, kClearedPredictors);
    }
}

// What holds the portable kernels. It is looked at once per row: while no other kernel is called nothing changes.
struct Portable {
    bool bMemSet;
    bool bNotCoded;
    bool bPrediction;
    bool bResidual;
    bool bIntra;
    bool bMedian;

    explicit Portable(const Mp4vDecCtx* ptCtx)
        : bMemSet(MemSet == MP4DecMemSet_c),
          bNotCoded(bMemSet && MemCopy16x16 == MP4DecMemCopy16x16_c && MemCopy8x8 == MP4DecMemCopy8x8_c),
          bPrediction(PredictionIsPortable(ptCtx->s16Interlaced)),
          bResidual(ResidualIsPortable(ptCtx->u16QuantType)),
          bIntra(IntraIsPortable(ptCtx)),
          bMedian(GetMedian == MPEG4DecGetMedian_c) {}
};

void ReconstructMb(Mp4vDecCtx* ptCtx, BsCursor& tBs, uint32_t u32Column, uint32_t u32Row, const Portable& tPortable) {
    const MbInfo* const ptInfo = ptCtx->tMb.ptCurMbInfo;
    if (ptInfo->u8MbType == MB_NOT_CODED) return CopyFromReference(ptCtx, u32Column, u32Row);
    const bool bIntra = IsIntra(ptInfo->u8MbType);
    if (bIntra && tPortable.bIntra) return DecIntraMbPortable(ptCtx, &tBs, u32Column, u32Row);
    if (!bIntra) {
        (tPortable.bPrediction ? PredictInterMbPortable : PredictInterMb)(ptCtx, u32Column, u32Row);
        if (!ptCtx->tMb.u32Cbp || (tPortable.bResidual && AddPortableResidual(ptCtx, &tBs))) return;
    }
    tBs.StoreTo(&ptCtx->tBs);
    if (bIntra) {
        DecIntraMB(ptCtx, ptCtx->tMb.as16Coef, u32Column, u32Row);
        ReconIntraMB(ptCtx, u32Column, u32Row);
    } else {
        AddResidual(ptCtx);
    }
    tBs = BsCursor(ptCtx->tBs);
}

// How many macroblocks from the current one on have not_coded set, by bits that are not the last of their word.
MP4V_INLINE uint32_t CountNotCoded(const BsCursor& tBs) {
    const uint32_t u32CurWord = (uint32_t)(tBs.u64Window >> 32);
    return (uint32_t)__builtin_clz(~(u32CurWord << tBs.u32BitPos) | 1u << tBs.u32BitPos);
}

// Decodes such macroblocks, up to the end of the row or one that is not just copied to the output. Returns how many.
MP4V_INLINE uint32_t DecNotCoded(Mp4vDecCtx* ptCtx, BsCursor& tBs, uint32_t u32Column, uint32_t u32Row,
                                 const PictureOutput& tOutput) {
    Mp4vMbScratch& tMb = ptCtx->tMb;
    const uint32_t u32Coming = CountNotCoded(tBs);
    const uint32_t u32Left = ptCtx->u32MbWidth - u32Column;
    const uint32_t u32Most = u32Coming < u32Left ? u32Coming : u32Left;
    uint32_t u32Count = 0;
    for (MbInfo* ptInfo = tMb.ptCurMbInfo; u32Count < u32Most && tOutput.MayWait(*ptInfo); u32Count++, ptInfo++) {
        SetNotCoded(ptInfo);
        ClearPredictorsPortable(ptInfo);
    }
    if (u32Count) {
        const size_t stride = ptCtx->u32LumaStride;
        CopyMbs(MbAt(ptCtx->tRefFrame, stride, u32Column, u32Row), (ptrdiff_t)stride,
                MbAt(ptCtx->tCurFrame, stride, u32Column, u32Row), (ptrdiff_t)stride, u32Count);
        tBs.u32BitPos += u32Count;
        NextMb(&tMb, u32Count);
    }
    return u32Count;
}

uint32_t DecodePicture(Mp4vDecCtx* ptCtx, BsCursor& tBs, PictureOutput& tOutput) {
    for (uint32_t u32Row = 0; u32Row < ptCtx->u32MbHeight; u32Row++) {
        StartMbRow(ptCtx, u32Row);
        tOutput.StartRow(u32Row);
        const Portable tPortable(ptCtx);
        // An error from before ends the picture behind its first macroblock.
        const bool bSeveral = tPortable.bNotCoded && !tBs.u32BsError;
        const bool bShortHeader = tPortable.bMedian && !ptCtx->s16Interlaced;
        for (uint32_t u32Column = 0; u32Column < ptCtx->u32MbWidth; u32Column++, NextMb(&ptCtx->tMb)) {
            if (bSeveral) u32Column += DecNotCoded(ptCtx, tBs, u32Column, u32Row, tOutput);
            if (u32Column == ptCtx->u32MbWidth) break;
            MbInfo* const ptInfo = ptCtx->tMb.ptCurMbInfo;
            const uint32_t u32Header = bShortHeader && DecMbHeaderFar(ptCtx, &tBs, u32Column, u32Row)
                                           ? (uint32_t)kMbHeaderDecoded
                                           : DecMbHeader(ptCtx, &tBs, u32Column, u32Row);
            if (u32Header == kMbHeaderDecoded) {
                ReconstructMb(ptCtx, tBs, u32Column, u32Row, tPortable);
                if (!IsIntra(ptInfo->u8MbType)) ClearPredictors(ptInfo, tPortable.bMemSet);
                tOutput.Add(u32Column);
            } else {
                tOutput.Flush(u32Column);
                if (u32Header == kMbHeaderInvalid) tBs.u32BsError = ERR_VID_MPEG4DEC_COEFF;
            }
            if (tBs.u32BsError) {
                tOutput.Flush(u32Column + 1);
                return tBs.u32BsError;
            }
        }
        tOutput.Flush(ptCtx->u32MbWidth);
    }
    return MP4VDEC_OK;
}

}  // namespace

uint32_t PVopDecode(Mp4vDecCtx* ptCtx, uint8_t* pu8Out, uint32_t u32Flags) {
    VopEdgeExpand(ptCtx, &ptCtx->tRefFrame);
    ptCtx->u32RunningQp = ptCtx->u32VopQuant;
    PictureOutput tOutput = {ptCtx, pu8Out, u32Flags, 0, 0, 0};
    BsCursor tBs(ptCtx->tBs);
    const uint32_t u32Status = DecodePicture(ptCtx, tBs, tOutput);
    tBs.StoreTo(&ptCtx->tBs);
    return u32Status;
}
