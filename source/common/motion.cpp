// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

#include "common/motion.h"

#include "common/bsreader.h"
#include "common/kernels.h"
#include "common/vlc.h"

namespace {

int32_t Median(int32_t s32A, int32_t s32B, int32_t s32C) {
    const int32_t s32Low = s32A < s32B ? s32A : s32B;
    const int32_t s32High = s32A < s32B ? s32B : s32A;
    return s32C < s32Low ? s32Low : s32C > s32High ? s32High : s32C;
}

constexpr Mp4vMv kZeroMv = {0, 0};

// A neighbour's vector as macroblocks of interlaced VOLs see it. null: outside the picture.
const Mp4vMv* FieldCandidate(const MbInfo* ptMb, uint32_t u32Block) {
    if (!ptMb) return &kZeroMv;
    return ptMb->u8FieldPred ? &ptMb->as32FieldAvgMv : &ptMb->as32Mv[u32Block];
}

}  // namespace

int32_t DecMV_c(BsReader* ptBs, uint32_t u32Fcode) {
    BsCursor tBs(*ptBs);
    const int32_t s32Difference = DecMv(tBs, u32Fcode);
    tBs.StoreTo(ptBs);
    return s32Difference;
}

int32_t WrapMv(int32_t s32Value, uint32_t u32Fcode) {
    const int32_t s32Half = 32 << ResidualBits(u32Fcode);
    if (s32Value < -s32Half) return s32Value + 2 * s32Half;
    if (s32Value > s32Half - 1) return s32Value - 2 * s32Half;
    return s32Value;
}

void MPEG4DecGetMedian_c(const Mp4vMv* ptA, const Mp4vMv* ptB, const Mp4vMv* ptC, int32_t* ps32X, int32_t* ps32Y) {
    *ps32X = Median(ptA->s32X, ptB->s32X, ptC->s32X);
    *ps32Y = Median(ptA->s32Y, ptB->s32Y, ptC->s32Y);
}

void GetPMV(const Mp4vDecCtx* ptCtx, uint32_t u32Column, uint32_t u32Row, uint32_t u32MbWidth, uint32_t u32Block,
            int32_t* ps32X, int32_t* ps32Y) {
    // The spare records around the picture hold zero vectors, as do intra and not-coded neighbours: no availability
    // test.
    const MbInfo* const ptCur = ptCtx->tMb.ptCurMbInfo;
    const Mp4vMv* const ptCurMv = ptCur->as32Mv;
    const Mp4vMv* const ptLeftMv = (ptCur - 1)->as32Mv;
    if (u32Row == 0 && u32Block < 2) {
        const Mp4vMv* const ptOnly = u32Block == 1 ? &ptCurMv[0] : u32Column == 0 ? &kZeroMv : &ptLeftMv[1];
        *ps32X = ptOnly->s32X;
        *ps32Y = ptOnly->s32Y;
        return;
    }
    const Mp4vMv* const ptTopMv = (ptCur - (ptrdiff_t)u32MbWidth - 1)->as32Mv;
    const Mp4vMv* const ptTopRightMv = (ptCur - (ptrdiff_t)u32MbWidth)->as32Mv;
    switch (u32Block) {
        case 0:
            GetMedian(&ptLeftMv[1], &ptTopMv[2], &ptTopRightMv[2], ps32X, ps32Y);
            break;
        case 1:
            GetMedian(&ptCurMv[0], &ptTopMv[3], &ptTopRightMv[2], ps32X, ps32Y);
            break;
        case 2:
            GetMedian(&ptLeftMv[3], &ptCurMv[0], &ptCurMv[1], ps32X, ps32Y);
            break;
        default:
            GetMedian(&ptCurMv[2], &ptCurMv[0], &ptCurMv[1], ps32X, ps32Y);
            break;
    }
}

void GetPmvField(const Mp4vDecCtx* ptCtx, uint32_t u32Column, uint32_t u32Row, uint32_t u32MbWidth, int32_t* ps32X,
                 int32_t* ps32Y) {
    const MbInfo* const ptCur = ptCtx->tMb.ptCurMbInfo;
    const ptrdiff_t row = (ptrdiff_t)u32MbWidth + 1;
    const MbInfo* const ptLeft = u32Column > 0 ? ptCur - 1 : nullptr;
    const MbInfo* const ptTop = u32Row > 0 ? ptCur - row : nullptr;
    const MbInfo* const ptTopRight = u32Row > 0 && u32Column + 1 < u32MbWidth ? ptCur - row + 1 : nullptr;
    const Mp4vMv* const ptLeftMv = FieldCandidate(ptLeft, 1);
    const Mp4vMv* const ptTopMv = FieldCandidate(ptTop, 2);
    const Mp4vMv* const ptTopRightMv = FieldCandidate(ptTopRight, 2);
    if (!ptTop) {  // then there is no top-right either
        *ps32X = ptLeftMv->s32X;
        *ps32Y = ptLeftMv->s32Y;
    } else if (!ptLeft && !ptTopRight) {
        *ps32X = ptTopMv->s32X;
        *ps32Y = ptTopMv->s32Y;
    } else {
        GetMedian(ptLeftMv, ptTopMv, ptTopRightMv, ps32X, ps32Y);
    }
}
