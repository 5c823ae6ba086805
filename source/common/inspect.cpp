// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

#include "common/inspect.h"

#include <string.h>

#include "common/block.h"
#include "common/headers.h"
#include "common/ivop.h"
#include "common/picture.h"
#include "common/pvop.h"

namespace {

// Where the reader stands in the chunk.
uint32_t BitPosition(const BsReader& tBs) {
    const size_t ahead = (uintptr_t)tBs.pu32ReadPtr - (uintptr_t)tBs.pu8BufStart;
    return (uint32_t)((ahead - 8) * 8 + tBs.u32BitPos);
}

// Decodes the symbols of the current macroblock. *peKind: invalid, or left alone.
uint32_t DecodeSymbols(Mp4vDecCtx* ptCtx, uint32_t u32Column, uint32_t u32Row, Mp4vMbKind* peKind) {
    Mp4vMbScratch& tMb = ptCtx->tMb;
    if (ptCtx->s16VopCodingType == VOP_I) {
        BsCursor tBs(ptCtx->tBs);
        const bool bDecoded = DecIntraMbHeader(ptCtx, tBs, &ptCtx->u32RunningQp);
        tBs.StoreTo(&ptCtx->tBs);
        if (bDecoded) {
            DecIntraMB(ptCtx, tMb.as16Coef, u32Column, u32Row);
        } else {
            *peKind = MP4V_MB_INVALID;
        }
        return ptCtx->tBs.u32BsError;
    }
    const uint32_t u32Header = DecMBInfo(ptCtx, &tMb, u32Column, u32Row);
    if (u32Header != kMbHeaderDecoded) {
        *peKind = MP4V_MB_INVALID;
        return u32Header == kMbHeaderInvalid ? ERR_VID_MPEG4DEC_COEFF : ptCtx->tBs.u32BsError;
    }
    const uint8_t u8MbType = tMb.ptCurMbInfo->u8MbType;
    if (IsIntra(u8MbType)) {
        DecIntraMB(ptCtx, tMb.as16Coef, u32Column, u32Row);
    } else if (u8MbType != MB_NOT_CODED) {
        DecInterBlocks_c(&ptCtx->tBs, tMb.as16Coef, ptCtx->u32AltVertScan ? 2 : 0, tMb.u32Cbp, 0);
    }
    return ptCtx->tBs.u32BsError;
}

Mp4vMbKind KindOf(const MbInfo& tInfo) {
    if (tInfo.u8MbType == MB_NOT_CODED) return MP4V_MB_NOT_CODED;
    if (IsIntra(tInfo.u8MbType)) return MP4V_MB_INTRA;
    if (tInfo.u8MbType == MB_INTER4V) return MP4V_MB_INTER_4V;
    return tInfo.u8FieldPred ? MP4V_MB_INTER_FIELD : MP4V_MB_INTER;
}

void Describe(const Mp4vMbScratch& tMb, Mp4vMbView* pt) {
    const MbInfo& tInfo = *tMb.ptCurMbInfo;
    if (pt->eKind == MP4V_MB_INVALID) return;
    pt->eKind = KindOf(tInfo);
    if (pt->eKind == MP4V_MB_NOT_CODED) return;
    pt->u8Quant = tInfo.u8Qp;
    pt->u8Dquant = tInfo.u8MbType == MB_INTER_Q || tInfo.u8MbType == MB_INTRA_Q;
    pt->u8Cbp = (uint8_t)(tMb.u32Cbp & 63);
    pt->u8AcPred = tMb.u32AcPredFlag != 0;
    pt->u8FieldDct = tMb.s32DctType != 0;
    if (pt->eKind == MP4V_MB_INTRA) return;
    const uint32_t u32Vectors = pt->eKind == MP4V_MB_INTER_FIELD ? 2 : 4;
    for (uint32_t b = 0; b < u32Vectors; b++) {
        pt->aas32Mv[b][0] = tInfo.as32Mv[b].s32X;
        pt->aas32Mv[b][1] = tInfo.as32Mv[b].s32Y;
    }
    if (pt->eKind != MP4V_MB_INTER_FIELD) return;
    pt->au8FieldRef[0] = tMb.u8FwdTopFieldRef;
    pt->au8FieldRef[1] = tMb.u8FwdBotFieldRef;
}

}  // namespace

// What it decodes again is the same, and where it writes to records outside of its own copy of the instance, the same
// values stand there already: those of the macroblocks before, to the left and above, are all that it depends on.
uint32_t InspectVop(const void* pvHandle, const uint8_t* pu8Buf, uint32_t u32BufLen, Mp4vVopView* ptVop,
                    Mp4vVisitMb* pfVisit, void* pvUser) {
    memset(ptVop, 0, sizeof *ptVop);
    if (u32BufLen == 0) return ERR_VID_MPEG4DEC_END_VALUE;
    Mp4vDecCtx tCtx;
    memcpy(&tCtx, pvHandle, sizeof tCtx);
    BsInit(&tCtx.tBs, pu8Buf, u32BufLen);
    uint32_t u32Status = BsHeaders(&tCtx);
    if (!u32Status) u32Status = tCtx.u32HeaderStatus;
    if (!u32Status) u32Status = DecVopHeader(&tCtx);
    if (u32Status) return u32Status;
    ptVop->u32MbWidth = tCtx.u32MbWidth;
    ptVop->u32MbHeight = tCtx.u32MbHeight;
    ptVop->u32HeaderBits = BitPosition(tCtx.tBs);
    ptVop->u8NotCoded = tCtx.s16VopCodingType == VOP_NOT_CODED;
    if (ptVop->u8NotCoded) return MP4VDEC_OK;
    ptVop->u32Quant = tCtx.u32VopQuant;
    ptVop->u8Predicted = tCtx.s16VopCodingType == VOP_P;
    ptVop->u8QuarterSample = tCtx.u16QuarterSample != 0;
    ptVop->u8Interlaced = tCtx.s16Interlaced != 0;
    tCtx.u32RunningQp = tCtx.u32VopQuant;
    for (uint32_t u32Row = 0; u32Row < tCtx.u32MbHeight; u32Row++) {
        StartMbRow(&tCtx, u32Row);
        for (uint32_t u32Column = 0; u32Column < tCtx.u32MbWidth; u32Column++, NextMb(&tCtx.tMb)) {
            Mp4vMbView tView = {};
            tView.u32Column = u32Column;
            tView.u32Row = u32Row;
            tView.u32FirstBit = BitPosition(tCtx.tBs);
            u32Status = DecodeSymbols(&tCtx, u32Column, u32Row, &tView.eKind);
            tView.u32Bits = BitPosition(tCtx.tBs) - tView.u32FirstBit;
            Describe(tCtx.tMb, &tView);
            pfVisit(pvUser, &tView);
            if (u32Status) return u32Status;
        }
    }
    return MP4VDEC_OK;
}
