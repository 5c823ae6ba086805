// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

// One block from coefficients to samples without leaving registers: what the portable kernels do one after another,
// with shortcuts for blocks that hold little. To be used only while the kernel table holds those kernels. What the
// block holds afterwards has no meaning.
#ifndef MP4VDEC_SOURCE_C_RECON_H_
#define MP4VDEC_SOURCE_C_RECON_H_

#include "common/kernels.h"

inline bool InterTransformIsPortable() {
    return Idct8x8 == Mp4vDecIdct8x8_c && AddIdct8x8Multi == Mp4DecAddiDCT8x8Multi_c;
}
inline bool IntraTransformIsPortable() {
    return Idct8x8 == Mp4vDecIdct8x8_c && McCopy16to8 == McCopy16to8_c;
}

// What is known of an inter block's coefficients.
struct InterCoefs {
    uint32_t u32Places;   // the raster indices of all of them, or-ed together
    uint32_t u32Squares;  // the sum of them
    bool bAndLast;        // 1 is to take the place of the last one, which is 0
};
constexpr uint32_t kMaxSquares = 1000 * 1000;

// Idct8x8 and the addition of AddIdct8x8. For squares up to kMaxSquares.
void AddInterBlock(int16_t* ps16Block, uint8_t* pu8Dst, ptrdiff_t pitch, const InterCoefs& t);

// u32Places: the raster indices of what is not 0 beside the first, or-ed together.

// DequantH263Intra, Idct8x8 and McCopy16to8.
void StoreIntraBlockH263(int16_t* ps16Block, uint8_t* pu8Dst, ptrdiff_t pitch, uint32_t u32Quant, uint32_t u32DcScaler,
                         uint32_t u32Places);

// Idct8x8 and McCopy16to8.
void StoreIntraBlock(int16_t* ps16Block, uint8_t* pu8Dst, ptrdiff_t pitch, uint32_t u32Places);

#endif  // MP4VDEC_SOURCE_C_RECON_H_
