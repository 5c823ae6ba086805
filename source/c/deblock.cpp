// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors
#include "c/deblock.h"

#include "c/vec.h"
#include "common/kernels.h"

void Deblock8x8HorizFast_c(uint8_t* pu8Edge, int32_t s32Pitch, uint32_t u32Qp) {
    SmoothEdge<8>(pu8Edge, s32Pitch, u32Qp);
}

namespace {

// Columns 2i and 2i + 1 of eight rows of eight samples.
struct ColumnPairs {
    Vec8 av[4];
};

MP4V_VEC ColumnPairs LoadColumns(const uint8_t* pu8Src, ptrdiff_t pitch) {
    Vec8 avRows[4];  // rows 2i and 2i + 1, interleaved by samples
    for (int i = 0; i < 4; i++)
        avRows[i] = (Vec8)ZipLow8(LoadBytes8(pu8Src + 2 * i * pitch), LoadBytes8(pu8Src + (2 * i + 1) * pitch));
    const Vec8 vUpper03 = ZipLow16(avRows[0], avRows[1]);  // four rows of columns 0..3
    const Vec8 vUpper47 = ZipHigh16(avRows[0], avRows[1]);
    const Vec8 vLower03 = ZipLow16(avRows[2], avRows[3]);
    const Vec8 vLower47 = ZipHigh16(avRows[2], avRows[3]);
    return {{ZipLow32(vUpper03, vLower03), ZipHigh32(vUpper03, vLower03), ZipLow32(vUpper47, vLower47),
             ZipHigh32(vUpper47, vLower47)}};
}

}  // namespace

void Mp4vDecTranspose8x8_c(uint8_t* __restrict pu8Dst, int32_t s32DstPitch, const uint8_t* __restrict pu8Src,
                           int32_t s32SrcPitch) {
    const ptrdiff_t dstPitch = s32DstPitch;
    const ColumnPairs tColumns = LoadColumns(pu8Src, s32SrcPitch);
    for (const Vec8 v : tColumns.av) {
        StoreBytes8(pu8Dst, (Bytes16)v);
        StoreBytes8(pu8Dst + dstPitch, HighHalf((Bytes16)v));
        pu8Dst += 2 * dstPitch;
    }
}

void Mp4vDecTranspose16x16_c(uint8_t* __restrict pu8Dst, int32_t s32DstPitch, const uint8_t* __restrict pu8Src,
                             int32_t s32SrcPitch) {
    const ptrdiff_t dstPitch = s32DstPitch, srcPitch = s32SrcPitch;
    for (int x = 0; x < 16; x += 8) {
        const ColumnPairs tUpper = LoadColumns(pu8Src + x, srcPitch);
        const ColumnPairs tLower = LoadColumns(pu8Src + x + 8 * srcPitch, srcPitch);
        for (int i = 0; i < 4; i++) {
            StoreBytes16(pu8Dst, (Bytes16)ZipLow64(tUpper.av[i], tLower.av[i]));
            StoreBytes16(pu8Dst + dstPitch, (Bytes16)ZipHigh64(tUpper.av[i], tLower.av[i]));
            pu8Dst += 2 * dstPitch;
        }
    }
}
