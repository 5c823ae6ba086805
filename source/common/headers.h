// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

// Start codes and the headers above the macroblock layer.
#ifndef MP4VDEC_SOURCE_COMMON_HEADERS_H_
#define MP4VDEC_SOURCE_COMMON_HEADERS_H_

#include "common/context.h"

extern "C" {

enum Mp4vVopCodingType : int16_t { VOP_I = 0, VOP_P = 1, VOP_NOT_CODED = 5 };

// By intra_dc_vlc_thr: quantisers from here on code the intra DC as a coefficient.
extern const uint32_t g_au32IntraDcThTable[8];

// Consumes every header up to the first VOP start code and stops in front of it.
// Returns 0, or the status with which the chunk is refused.
MP4VDEC_API uint32_t BsHeaders(Mp4vDecCtx* ptCtx);

// Parses a VOL header behind its start code. Returns 0 or the refusal, which also goes to u32HeaderStatus.
// What was stored before a refusal stays stored.
MP4VDEC_API uint32_t DecVolHeader(Mp4vDecCtx* ptCtx);

// Parses a VOP header from its start code on. Returns 0, UNSUPPORT_BFRAME or TIMEBASE.
MP4VDEC_API uint32_t DecVopHeader(Mp4vDecCtx* ptCtx);

// Reads a quantisation matrix in zigzag order. A terminating 0 repeats the last value at every other scan index from
// its own on; the entries between keep what they held.
void GetMatrix(BsReader* ptBs, int16_t* ps16Matrix);

// Clears the macroblock records that size changes have condemned since the last picture.
void ClearCondemnedMbInfo(Mp4vDecCtx* ptCtx);
}

#endif  // MP4VDEC_SOURCE_COMMON_HEADERS_H_
