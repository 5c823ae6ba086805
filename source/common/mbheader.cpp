// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

#include "common/bsreader.h"
#include "common/intra.h"
#include "common/motion.h"
#include "common/pvop.h"
#include "common/vlc.h"

namespace {

void SetAllMvs(MbInfo* ptMb, Mp4vMv tMv) {
    for (Mp4vMv& t : ptMb->as32Mv) t = tMv;
}

// Predictor plus difference, x before y.
MP4V_INLINE Mp4vMv DecVector(BsCursor& tBs, uint32_t u32Fcode, Mp4vMv tPred) {
    const int32_t s32X = WrapMv(AddWrapping(tPred.s32X, DecMv(tBs, u32Fcode)), u32Fcode);
    const int32_t s32Y = WrapMv(AddWrapping(tPred.s32Y, DecMv(tBs, u32Fcode)), u32Fcode);
    return {s32X, s32Y};
}

MP4V_INLINE Mp4vMv Predictor(const Mp4vDecCtx* ptCtx, uint32_t u32Column, uint32_t u32Row, uint32_t u32Block) {
    return FindPmv(ptCtx->tMb.ptCurMbInfo, u32Column, u32Row, ptCtx->u32MbWidth, u32Block);
}

Mp4vMv FieldPredictor(const Mp4vDecCtx* ptCtx, uint32_t u32Column, uint32_t u32Row) {
    Mp4vMv t;
    GetPmvField(ptCtx, u32Column, u32Row, ptCtx->u32MbWidth, &t.s32X, &t.s32Y);
    return t;
}

// A field vector counts lines of a field: its vertical part is predicted and coded at half the scale.
MP4V_INLINE Mp4vMv DecFieldVector(BsCursor& tBs, uint32_t u32Fcode, Mp4vMv tPred) {
    const int32_t s32X = WrapMv(AddWrapping(tPred.s32X, DecMv(tBs, u32Fcode)), u32Fcode);
    const int32_t s32Half = AddWrapping(DecMv(tBs, u32Fcode), tPred.s32Y / 2);
    const int32_t s32Y = WrapMv(AddWrapping(s32Half, s32Half), u32Fcode);
    return {s32X, s32Y};
}

int32_t FieldAverage(int32_t s32Top, int32_t s32Bottom) {
    const int32_t s32Sum = AddWrapping(s32Top, s32Bottom);
    return s32Sum >> 1 | (s32Sum & 1);
}

MP4V_INLINE void DecFieldVectors(const Mp4vDecCtx* ptCtx, BsCursor& tBs, Mp4vMbScratch* ptMb, uint32_t u32Column,
                                 uint32_t u32Row) {
    MbInfo* const ptInfo = ptMb->ptCurMbInfo;
    const uint32_t u32Fcode = ptCtx->u32FcodeForward;
    ptMb->u8FwdTopFieldRef = (uint8_t)tBs.Read(1);
    ptMb->u8FwdBotFieldRef = (uint8_t)tBs.Read(1);
    const Mp4vMv tPred = FieldPredictor(ptCtx, u32Column, u32Row);
    const Mp4vMv tTop = DecFieldVector(tBs, u32Fcode, tPred);
    const Mp4vMv tBottom = DecFieldVector(tBs, u32Fcode, tPred);
    ptInfo->as32Mv[0] = tTop;  // entries 2 and 3 keep what they held
    ptInfo->as32Mv[1] = tBottom;
    ptInfo->as32FieldAvgMv = {FieldAverage(tTop.s32X, tBottom.s32X), FieldAverage(tTop.s32Y, tBottom.s32Y)};
}

MP4V_INLINE void DecQuantiser(Mp4vDecCtx* ptCtx, BsCursor& tBs, MbInfo* ptInfo) {
    if (!ptCtx->u16QpCarry) ptCtx->u32RunningQp = ptCtx->u32VopQuant;
    if (ptInfo->u8MbType == MB_INTER_Q || ptInfo->u8MbType == MB_INTRA_Q) {
        ptCtx->u32RunningQp = ChangeQuantiser(ptCtx->u32RunningQp, tBs.Read(2));
    }
    ptInfo->u8Qp = (uint8_t)ptCtx->u32RunningQp;
}

MP4V_INLINE void DecVectors(const Mp4vDecCtx* ptCtx, BsCursor& tBs, Mp4vMbScratch* ptMb, uint32_t u32Column,
                            uint32_t u32Row) {
    MbInfo* const ptInfo = ptMb->ptCurMbInfo;
    const uint32_t u32Fcode = ptCtx->u32FcodeForward;
    if (IsIntra(ptInfo->u8MbType)) {
        SetAllMvs(ptInfo, {0, 0});
    } else if (ptInfo->u8MbType == MB_INTER4V) {
        for (uint32_t b = 0; b < 4; b++) {
            ptInfo->as32Mv[b] = DecVector(tBs, u32Fcode, Predictor(ptCtx, u32Column, u32Row, b));
        }
    } else if (!ptCtx->s16Interlaced) {
        SetAllMvs(ptInfo, DecVector(tBs, u32Fcode, Predictor(ptCtx, u32Column, u32Row, 0)));
    } else {
        ptInfo->u8FieldPred = (uint8_t)tBs.Read(1);
        if (ptInfo->u8FieldPred) {
            DecFieldVectors(ptCtx, tBs, ptMb, u32Column, u32Row);
        } else {
            SetAllMvs(ptInfo, DecVector(tBs, u32Fcode, FieldPredictor(ptCtx, u32Column, u32Row)));
        }
    }
}

MP4V_INLINE uint32_t DecHeader(Mp4vDecCtx* ptCtx, BsCursor& tBs, Mp4vMbScratch* ptMb, uint32_t u32Column,
                               uint32_t u32Row) {
    MbInfo* const ptInfo = ptMb->ptCurMbInfo;
    if (tBs.Read(1)) {  // not_coded
        SetNotCoded(ptInfo);
        return kMbHeaderDecoded;
    }
    const uint32_t u32Mcbpc = DecMcbpcInter(tBs);
    if (u32Mcbpc == MP4V_INVALID_CODE) return kMbHeaderInvalid;
    ptInfo->u8MbType = u32Mcbpc & 7;
    const bool bIntra = IsIntra(ptInfo->u8MbType);
    ptMb->u32AcPredFlag = bIntra ? tBs.Read(1) : 0;
    if (ptInfo->u8MbType == MB_INVALID) return kMbHeaderStuffing;
    const uint32_t u32Cbpy = DecCbpy(tBs, bIntra);
    if (u32Cbpy == MP4V_INVALID_CODE) return kMbHeaderInvalid;
    ptMb->u32Cbp = u32Mcbpc >> 4 | u32Cbpy << 2;
    DecQuantiser(ptCtx, tBs, ptInfo);
    ptMb->s32DctType = 0;
    ptInfo->u8FieldPred = 0;
    if (ptCtx->s16Interlaced && (bIntra || ptMb->u32Cbp)) ptMb->s32DctType = (int32_t)tBs.Read(1);
    DecVectors(ptCtx, tBs, ptMb, u32Column, u32Row);
    return kMbHeaderDecoded;
}

}  // namespace

uint32_t DecMbHeader(Mp4vDecCtx* ptCtx, BsCursor* ptBs, uint32_t u32Column, uint32_t u32Row) {
    BsCursor tBs(*ptBs);
    const uint32_t u32Result = DecHeader(ptCtx, tBs, &ptCtx->tMb, u32Column, u32Row);
    tBs.MoveTo(ptBs);
    return u32Result;
}

uint32_t DecMBInfo(Mp4vDecCtx* ptCtx, Mp4vMbScratch* ptMb, uint32_t u32Column, uint32_t u32Row) {
    BsCursor tBs(ptCtx->tBs);
    const uint32_t u32Result = DecHeader(ptCtx, tBs, ptMb, u32Column, u32Row);
    tBs.StoreTo(&ptCtx->tBs);
    return u32Result;
}
