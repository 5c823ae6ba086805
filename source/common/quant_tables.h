// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

// The zigzag scan and the weighting matrices of ISO/IEC 14496-2.
#ifndef MP4VDEC_SOURCE_COMMON_QUANT_TABLES_H_
#define MP4VDEC_SOURCE_COMMON_QUANT_TABLES_H_

#include <stdint.h>

extern "C" {

extern const uint16_t g_au16ZigzagScanTable[64 /* position in the stream */];  // raster index of each coefficient

// What a VOL header without matrices of its own puts into the instance. Raster order.
extern const int16_t g_as16DefaultIntraMatrix[64];
extern const int16_t g_as16DefaultInterMatrix[64];

// What the dequantisers weight with: always the default values, whatever matrix a stream brings. Raster order.
extern const int16_t g_as16IntraMatrix[64];
extern const int16_t g_as16InterMatrix[64];

}  // extern "C"

#endif  // MP4VDEC_SOURCE_COMMON_QUANT_TABLES_H_
