// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

#include "common/motion.h"

#include "common/bsreader.h"
#include "common/kernels.h"
#include "common/vlc.h"

namespace {

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

void MPEG4DecGetMedian_c(const Mp4vMv* ptA, const Mp4vMv* ptB, const Mp4vMv* ptC, int32_t* ps32X, int32_t* ps32Y) {
    *ps32X = Median(ptA->s32X, ptB->s32X, ptC->s32X);
    *ps32Y = Median(ptA->s32Y, ptB->s32Y, ptC->s32Y);
}

void GetPMV(const Mp4vDecCtx* ptCtx, uint32_t u32Column, uint32_t u32Row, uint32_t u32MbWidth, uint32_t u32Block,
            int32_t* ps32X, int32_t* ps32Y) {
    const Mp4vMv t = FindPmv(ptCtx->tMb.ptCurMbInfo, u32Column, u32Row, u32MbWidth, u32Block);
    *ps32X = t.s32X;
    *ps32Y = t.s32Y;
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
