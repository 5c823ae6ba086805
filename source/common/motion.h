// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

// Motion vectors: differences, predictors and the range wrap.
#ifndef MP4VDEC_SOURCE_COMMON_MOTION_H_
#define MP4VDEC_SOURCE_COMMON_MOTION_H_

#include "common/kernels.h"
#include "common/vlc.h"

extern "C" {

// Reads one component of a vector difference. u32Fcode: vop_fcode_forward; 0 is taken as 1.
MP4VDEC_API int32_t DecMV_c(BsReader* ptBs, uint32_t u32Fcode);

// Predictor of block 0..3 of the current macroblock in frame prediction.
MP4VDEC_API void GetPMV(const Mp4vDecCtx* ptCtx, uint32_t u32Column, uint32_t u32Row, uint32_t u32MbWidth,
                        uint32_t u32Block, int32_t* ps32X, int32_t* ps32Y);

// Predictor of the one frame vector or both field vectors of the current macroblock of an interlaced VOL.
MP4VDEC_API void GetPmvField(const Mp4vDecCtx* ptCtx, uint32_t u32Column, uint32_t u32Row, uint32_t u32MbWidth,
                             int32_t* ps32X, int32_t* ps32Y);
}

static inline int32_t AddWrapping(int32_t s32A, int32_t s32B) {
    return (int32_t)((uint32_t)s32A + (uint32_t)s32B);
}

// f_code 0 is forbidden; it reads no residual and has the range of f_code 1.
static inline uint32_t ResidualBits(uint32_t u32Fcode) {
    return u32Fcode ? u32Fcode - 1 : 0;
}

// DecMV_c on a cursor.
static MP4V_INLINE int32_t DecMv(BsCursor& tBs, uint32_t u32Fcode) {
    const int32_t s32Code = DecMvData(tBs);
    const uint32_t u32Bits = ResidualBits(u32Fcode);
    if (s32Code == 0 || u32Bits == 0) return s32Code;
    const int32_t s32Residual = (int32_t)tBs.Read(u32Bits);
    const int32_t s32Magnitude = ((__builtin_abs(s32Code) - 1) << u32Bits) + s32Residual + 1;
    return s32Code > 0 ? s32Magnitude : -s32Magnitude;
}

// DecMv far from the end.
static MP4V_INLINE int32_t DecMvFar(BsCursor& tBs, uint32_t u32Fcode) {
    const uint32_t u32Bits = tBs.Show(32);
    if (u32Bits >> 31) {
        tBs.SkipFar(1);
        return 0;
    }
    const VlcEntry& tEntry = FindMotionEntry(u32Bits >> 19);
    const int32_t s32Code = tEntry.s32Value;
    const uint32_t u32Length = 1 + (uint32_t)tEntry.s32Length;
    const uint32_t u32ResidualBits = ResidualBits(u32Fcode);
    tBs.SkipFar(u32Length + u32ResidualBits);
    // Twice, because a shift by 32 has no meaning.
    const uint32_t u32Residual = u32Bits << u32Length >> 1 >> (31 - u32ResidualBits);
    const int32_t s32Magnitude = ((__builtin_abs(s32Code) - 1) << u32ResidualBits) + (int32_t)u32Residual + 1;
    return s32Code > 0 ? s32Magnitude : -s32Magnitude;
}

// Brings a sum of predictor and difference back into the range of its f_code, [0, 7], by one correction.
static MP4V_INLINE int32_t WrapMv(int32_t s32Value, uint32_t u32Fcode) {
    const int32_t s32Half = 32 << ResidualBits(u32Fcode);
    if (s32Value < -s32Half) return s32Value + 2 * s32Half;
    if (s32Value > s32Half - 1) return s32Value - 2 * s32Half;
    return s32Value;
}

static MP4V_INLINE int32_t Median(int32_t s32A, int32_t s32B, int32_t s32C) {
    const int32_t s32Low = s32A < s32B ? s32A : s32B;
    const int32_t s32High = s32A < s32B ? s32B : s32A;
    const int32_t s32Raised = s32C < s32Low ? s32Low : s32C;
    return s32Raised > s32High ? s32High : s32Raised;
}

// GetMedian, without a call where it is the portable kernel. kPortable: it is known to be.
template <bool kPortable>
static MP4V_INLINE Mp4vMv MedianOf(const Mp4vMv* ptA, const Mp4vMv* ptB, const Mp4vMv* ptC) {
    if (kPortable || GetMedian == MPEG4DecGetMedian_c) {
        return {Median(ptA->s32X, ptB->s32X, ptC->s32X), Median(ptA->s32Y, ptB->s32Y, ptC->s32Y)};
    }
    Mp4vMv t;
    GetMedian(ptA, ptB, ptC, &t.s32X, &t.s32Y);
    return t;
}

// GetPMV by value.
template <bool kPortable = false>
static MP4V_INLINE Mp4vMv FindPmv(const MbInfo* ptCur, uint32_t u32Column, uint32_t u32Row, uint32_t u32MbWidth,
                                  uint32_t u32Block) {
    // The spare records around the picture hold zero vectors, as do intra and not-coded neighbours: no availability
    // test.
    const Mp4vMv* const ptCurMv = ptCur->as32Mv;
    const Mp4vMv* const ptLeftMv = (ptCur - 1)->as32Mv;
    if (u32Row == 0 && u32Block < 2) {
        if (u32Block == 1) return ptCurMv[0];
        return u32Column == 0 ? Mp4vMv{0, 0} : ptLeftMv[1];
    }
    const Mp4vMv* const ptTopMv = (ptCur - (ptrdiff_t)u32MbWidth - 1)->as32Mv;
    const Mp4vMv* const ptTopRightMv = (ptCur - (ptrdiff_t)u32MbWidth)->as32Mv;
    switch (u32Block) {
        case 0:
            return MedianOf<kPortable>(&ptLeftMv[1], &ptTopMv[2], &ptTopRightMv[2]);
        case 1:
            return MedianOf<kPortable>(&ptCurMv[0], &ptTopMv[3], &ptTopRightMv[2]);
        case 2:
            return MedianOf<kPortable>(&ptLeftMv[3], &ptCurMv[0], &ptCurMv[1]);
        default:
            return MedianOf<kPortable>(&ptCurMv[2], &ptCurMv[0], &ptCurMv[1]);
    }
}

#endif  // MP4VDEC_SOURCE_COMMON_MOTION_H_
