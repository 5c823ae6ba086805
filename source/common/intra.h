// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

// Intra macroblocks, and pictures that consist of them.
#ifndef MP4VDEC_SOURCE_COMMON_INTRA_H_
#define MP4VDEC_SOURCE_COMMON_INTRA_H_

#include "common/context.h"

extern "C" {

extern const int16_t g_as16DefaultAcDcValue[15];  // predictors of a neighbour that is not there
extern const int32_t g_al32Divider[32];           // [q]: 65536 / q + 1; [0]: 0
extern const int32_t g_al32DequantTable[4];       // change of the quantiser by dquant

// Decodes and predicts the six blocks of the current macroblock into ps16Blocks (quantised, raster order), its DC
// scalers and its record's predictors. u32Cbp, u32AcPredFlag, ptCurMbInfo with type and quantiser are set.
MP4VDEC_API void DecIntraMB(Mp4vDecCtx* ptCtx, int16_t* ps16Blocks, uint32_t u32Column, uint32_t u32Row);

// Dequantises and transforms as16Coef and stores it in the current frame.
MP4VDEC_API void ReconIntraMB(Mp4vDecCtx* ptCtx, uint32_t u32Column, uint32_t u32Row);

// Whether DecIntraMbPortable may stand in for the two above.
bool IntraIsPortable(const Mp4vDecCtx* ptCtx);

// The two above at once, with the kernels of IntraIsPortable, from a cursor.
void DecIntraMbPortable(Mp4vDecCtx* ptCtx, struct BsCursor* ptBs, uint32_t u32Column, uint32_t u32Row);

// Decodes an I-VOP behind its header. pu8Out: the caller's picture; u32Flags: for PostProcess_MB.
// Returns 0, BITSTREAM or COEFF.
MP4VDEC_API uint32_t IVopDecode(Mp4vDecCtx* ptCtx, uint8_t* pu8Out, uint32_t u32Flags);
}

// A quantiser after dquant.
static inline uint32_t ChangeQuantiser(uint32_t u32Quant, uint32_t u32Dquant) {
    const int32_t s32Quant = (int32_t)(u32Quant + (uint32_t)g_al32DequantTable[u32Dquant]);
    return s32Quant < 1 ? 1 : s32Quant > 31 ? 31 : (uint32_t)s32Quant;
}

static inline bool IsIntra(uint8_t u8MbType) {
    return u8MbType == MB_INTRA || u8MbType == MB_INTRA_Q;
}

#endif  // MP4VDEC_SOURCE_COMMON_INTRA_H_
