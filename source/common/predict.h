// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

// Motion-compensated prediction of a macroblock.
#ifndef MP4VDEC_SOURCE_COMMON_PREDICT_H_
#define MP4VDEC_SOURCE_COMMON_PREDICT_H_

#include "common/context.h"

extern "C" {

// Predicts the current macroblock from tRefFrame, whose borders are extended, into its place in tCurFrame.
// Vectors are used as they are. Samples whose address lies outside the reference's allocation are replaced by the
// nearest sample of the plane with its border; addresses inside it are taken as they are, whatever plane they hit.
void PredictInterMb(Mp4vDecCtx* ptCtx, uint32_t u32Column, uint32_t u32Row);

// The same without looking half-sample kernels and copies up in the table: only while that holds the portable ones.
// bFields: those of field prediction too.
void PredictInterMbPortable(Mp4vDecCtx* ptCtx, uint32_t u32Column, uint32_t u32Row);
bool PredictionIsPortable(bool bFields);
}

#endif  // MP4VDEC_SOURCE_COMMON_PREDICT_H_
