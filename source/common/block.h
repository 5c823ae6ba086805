// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

// Transform coefficients of one block.
//
// Blocks are 64 values in raster order; only what is decoded is written, the rest must be zero already. A code that
// does not exist and a run past the last coefficient set the sticky error to ERR_VID_MPEG4DEC_COEFF and return it; what
// was stored before stays. Levels are not clipped.
//
// The functions without _c work on a cursor, so that a macroblock's blocks are decoded with the reader in registers.
#ifndef MP4VDEC_SOURCE_COMMON_BLOCK_H_
#define MP4VDEC_SOURCE_COMMON_BLOCK_H_

#include "c/recon.h"
#include "common/kernels.h"
#include "common/vlc.h"

enum Mp4vScan : uint32_t { SCAN_ZIGZAG = 0, SCAN_ALT_HORIZONTAL = 1, SCAN_ALT_VERTICAL = 2 };

// What comes before the transform coefficients of an intra block.
enum IntraDc : uint32_t { kDcAmongThem, kDcLuma, kDcChroma };

// Decodes an intra block into one that is cleared here. Returns the raster indices of the coefficients beside the
// first, or-ed together. ptScan: null where no coefficients follow. A block that fails keeps what was stored before.
uint32_t DecIntraLevels(BsCursor* ptBs, int16_t* ps16Block, IntraDc eDc, const ScanTable* ptScan);

// Decode an inter block into one that is cleared here, and into coefficients: as DequantH263Inter and DequantMpegInter
// make them. u32Quant: [1, 31]. Return false where the block fails or AddInterBlock is not for it; then nothing of it
// counts.
bool DecH263Coefs(BsCursor* ptBs, int16_t* ps16Block, InterCoefs* ptCoefs, const ScanTable* ptScan, uint32_t u32Quant);
bool DecMpegCoefs(BsCursor* ptBs, int16_t* ps16Block, InterCoefs* ptCoefs, const ScanTable* ptScan, uint32_t u32Quant);

// Returns the last level, or ERR_VID_MPEG4DEC_COEFF. u32Start: scan index of the first coefficient; 1 when the DC is
// coded apart. u32Scan: Mp4vScan; zigzag for all others.
uint32_t DecIntraBlock(BsCursor& tBs, int16_t* ps16Block, uint32_t u32Scan, uint32_t u32Start);

// Returns the raster index of the last coefficient, or ERR_VID_MPEG4DEC_COEFF. u32Scan: zigzag unless
// SCAN_ALT_VERTICAL.
uint32_t DecInterBlock(BsCursor& tBs, int16_t* ps16Block, uint32_t u32Scan);

extern "C" {

MP4VDEC_API uint32_t DecIntraBlock_c(BsReader* ptBs, int16_t* ps16Block, uint32_t u32Scan, uint32_t u32Start);
MP4VDEC_API uint32_t DecIntraBlockAlterScan_c(BsReader* ptBs, int16_t* ps16Block, uint32_t u32Start);
MP4VDEC_API uint32_t DecInterBlock_c(BsReader* ptBs, int16_t* ps16Block);
MP4VDEC_API uint32_t DecInterBlockAlterScan_c(BsReader* ptBs, int16_t* ps16Block);

// Zeroes and decodes as many blocks, one behind the other, as the low 6 bits of u32CbpMask have ones. u32Quant: nonzero
// dequantises each with DequantH263Inter. u32Scan: zigzag or SCAN_ALT_VERTICAL; with others nothing is read.
// A block with a coefficient error ends it; neither that block nor those behind it are dequantised.
MP4VDEC_API void DecInterBlocks_c(BsReader* ptBs, int16_t* ps16Blocks, uint32_t u32Scan, uint32_t u32CbpMask,
                                  uint32_t u32Quant);

// The decoder for the kind of block and scan. u32Start matters to intra blocks only.
MP4VDEC_API uint32_t DecBlock_c(BsReader* ptBs, int16_t* ps16Block, uint32_t u32Scan, uint32_t u32Start,
                                uint32_t u32Intra);

}  // extern "C"

#endif  // MP4VDEC_SOURCE_COMMON_BLOCK_H_
