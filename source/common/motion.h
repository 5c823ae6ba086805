// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

// Motion vectors: differences, predictors and the range wrap.
#ifndef MP4VDEC_SOURCE_COMMON_MOTION_H_
#define MP4VDEC_SOURCE_COMMON_MOTION_H_

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

// Brings a sum of predictor and difference back into the range of its f_code, [0, 7], by one correction.
int32_t WrapMv(int32_t s32Value, uint32_t u32Fcode);

#endif  // MP4VDEC_SOURCE_COMMON_MOTION_H_
