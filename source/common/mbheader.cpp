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

// A vector from its predictor and its difference.
MP4V_INLINE Mp4vMv AddDifference(Mp4vMv tPred, int32_t s32X, int32_t s32Y, uint32_t u32Fcode) {
    return {WrapMv(AddWrapping(tPred.s32X, s32X), u32Fcode), WrapMv(AddWrapping(tPred.s32Y, s32Y), u32Fcode)};
}

// Predictor plus difference, x before y.
MP4V_INLINE Mp4vMv DecVector(BsCursor& tBs, uint32_t u32Fcode, Mp4vMv tPred) {
    const int32_t s32X = DecMv(tBs, u32Fcode);
    const int32_t s32Y = DecMv(tBs, u32Fcode);
    return AddDifference(tPred, s32X, s32Y, u32Fcode);
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

MP4V_INLINE Mp4vMv DecVectorFar(const Mp4vDecCtx* ptCtx, BsCursor& tBs, uint32_t u32Column, uint32_t u32Row,
                                uint32_t u32Block) {
    const uint32_t u32Fcode = ptCtx->u32FcodeForward;
    const Mp4vMv tPred = FindPmv<true>(ptCtx->tMb.ptCurMbInfo, u32Column, u32Row, ptCtx->u32MbWidth, u32Block);
    const int32_t s32X = DecMvFar(tBs, u32Fcode);
    const int32_t s32Y = DecMvFar(tBs, u32Fcode);
    return AddDifference(tPred, s32X, s32Y, u32Fcode);
}

// At most 19 bits of symbols and 8 differences of 19 bits each: the words behind the next two.
constexpr size_t kLongestHeader = 24;

}  // namespace

bool DecMbHeaderFar(Mp4vDecCtx* ptCtx, BsCursor* ptBs, uint32_t u32Column, uint32_t u32Row) {
    BsCursor tBs(*ptBs);
    Mp4vMbScratch& tMb = ptCtx->tMb;
    MbInfo* const ptInfo = tMb.ptCurMbInfo;
    const uint32_t u32Bits = tBs.Show(32);
    if (tBs.offset + kLongestHeader > tBs.length || u32Bits >> 31) return false;  // not_coded
    uint32_t u32Mcbpc = MB_INTER;
    uint32_t u32Length = 2;
    if (!(u32Bits >> 30)) {
        const uint32_t u32Code = u32Bits >> 22;
        if (u32Code < 2) return false;  // stuffing, or no code
        u32Mcbpc = (uint32_t)g_atMcbpcInterTable[u32Code].s32Value;
        u32Length = 1 + (uint32_t)g_atMcbpcInterTable[u32Code].s32Length;
    }
    const uint8_t u8MbType = u32Mcbpc & 7;
    const bool bIntra = IsIntra(u8MbType);
    uint32_t u32AcPredFlag = 0;
    if (bIntra) u32AcPredFlag = u32Bits << u32Length++ >> 31;
    const uint32_t u32CbpyCode = u32Bits << u32Length >> 26;
    uint32_t u32Cbpy = 15;
    if (u32CbpyCode < 48) {
        if (u32CbpyCode < 2) return false;
        u32Cbpy = (uint32_t)g_atCbpyTable[u32CbpyCode].s32Value;
        u32Length += (uint32_t)g_atCbpyTable[u32CbpyCode].s32Length;
    } else {
        u32Length += 2;
    }
    if (!ptCtx->u16QpCarry) ptCtx->u32RunningQp = ptCtx->u32VopQuant;
    if (u8MbType == MB_INTER_Q || u8MbType == MB_INTRA_Q) {
        ptCtx->u32RunningQp = ChangeQuantiser(ptCtx->u32RunningQp, u32Bits << u32Length >> 30);
        u32Length += 2;
    }
    tBs.SkipFar(u32Length);
    ptInfo->u8Qp = (uint8_t)ptCtx->u32RunningQp;
    ptInfo->u8MbType = u8MbType;
    ptInfo->u8FieldPred = 0;
    tMb.u32AcPredFlag = u32AcPredFlag;
    tMb.u32Cbp = u32Mcbpc >> 4 | (bIntra ? u32Cbpy : 15 - u32Cbpy) << 2;
    tMb.s32DctType = 0;
    if (bIntra) {
        SetAllMvs(ptInfo, {0, 0});
    } else if (u8MbType == MB_INTER4V) {
        for (uint32_t b = 0; b < 4; b++) ptInfo->as32Mv[b] = DecVectorFar(ptCtx, tBs, u32Column, u32Row, b);
    } else {
        SetAllMvs(ptInfo, DecVectorFar(ptCtx, tBs, u32Column, u32Row, 0));
    }
    tBs.MoveTo(ptBs);
    return true;
}

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
