// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors
#include <string.h>

#include "c/copy_rows.h"
#include "c/vec.h"
#include "common/kernels.h"

void MP4DecMemCopy16x16_c(uint8_t* pu8Dst, const uint8_t* pu8Src, int32_t s32Pitch) {
    CopyRows<16, 16>(pu8Src, s32Pitch, pu8Dst, s32Pitch);
}

void MP4DecMemCopy8x8_c(uint8_t* pu8Dst, const uint8_t* pu8Src, int32_t s32Pitch) {
    CopyRows<8, 8>(pu8Src, s32Pitch, pu8Dst, s32Pitch);
}

void MP4DecMemCopy8x4_c(uint8_t* pu8Dst, const uint8_t* pu8Src, int32_t s32Pitch) {
    CopyRows<8, 4>(pu8Src, s32Pitch, pu8Dst, s32Pitch);
}

void MemCopyStride16x16_c(const uint8_t* pu8Src, int32_t s32SrcPitch, uint8_t* pu8Dst, int32_t s32DstPitch) {
    CopyRows<16, 16>(pu8Src, s32SrcPitch, pu8Dst, s32DstPitch);
}

void MemCopyStride16x8_c(const uint8_t* pu8Src, int32_t s32SrcPitch, uint8_t* pu8Dst, int32_t s32DstPitch) {
    CopyRows<16, 8>(pu8Src, s32SrcPitch, pu8Dst, s32DstPitch);
}

void MemCopyStride8x8_c(const uint8_t* pu8Src, int32_t s32SrcPitch, uint8_t* pu8Dst, int32_t s32DstPitch) {
    CopyRows<8, 8>(pu8Src, s32SrcPitch, pu8Dst, s32DstPitch);
}

void MemCopyStride8x4_c(const uint8_t* pu8Src, int32_t s32SrcPitch, uint8_t* pu8Dst, int32_t s32DstPitch) {
    CopyRows<8, 4>(pu8Src, s32SrcPitch, pu8Dst, s32DstPitch);
}

namespace {

template <int kColumns, int kRows>
MP4V_VEC void CopyTile(const uint8_t* __restrict pu8Src, ptrdiff_t srcPitch, uint8_t* __restrict pu8Dst,
                       ptrdiff_t dstPitch) {
    const RowOffsets tSrc(srcPitch), tDst(dstPitch);
    Bytes16 av[kColumns / 16];
    if (kPairsAddOffsets) {
        for (int y = 0; y < kRows; y += 4) {
            for (int i = 0; i < 4; i++) {
                for (int x = 0; x < kColumns / 16; x++) av[x] = LoadBytes16(pu8Src + 16 * x + tSrc[i]);
                for (int x = 0; x < kColumns / 16; x++) StoreBytes16(pu8Dst + 16 * x + tDst[i], av[x]);
            }
            pu8Src += tSrc.four;
            pu8Dst += tDst.four;
        }
        return;
    }
#pragma GCC unroll 4
    for (int y = 0; y < kRows; y++) {
        for (int x = 0; x < kColumns / 16; x++) av[x] = LoadBytes16(pu8Src + 16 * x);
        for (int x = 0; x < kColumns / 16; x++) StoreBytes16(pu8Dst + 16 * x, av[x]);
        pu8Src += srcPitch;
        pu8Dst += dstPitch;
    }
}

// columns: a multiple of 8.
template <int kRows>
__attribute__((noinline)) void CopyStrip(const uint8_t* pu8Src, ptrdiff_t srcPitch, uint8_t* pu8Dst, ptrdiff_t dstPitch,
                                         size_t columns) {
    size_t x = 0;
    for (; x + 64 <= columns; x += 64) CopyTile<64, kRows>(pu8Src + x, srcPitch, pu8Dst + x, dstPitch);
    if (columns & 32) {
        CopyTile<32, kRows>(pu8Src + x, srcPitch, pu8Dst + x, dstPitch);
        x += 32;
    }
    if (columns & 16) {
        CopyRows<16, kRows>(pu8Src + x, srcPitch, pu8Dst + x, dstPitch);
        x += 16;
    }
    if (columns & 8) CopyRows<8, kRows>(pu8Src + x, srcPitch, pu8Dst + x, dstPitch);
}

}  // namespace

void CopyMbs(const MbAddress& tSrc, ptrdiff_t srcPitch, const MbAddress& tDst, ptrdiff_t dstPitch, size_t count) {
    CopyStrip<16>(tSrc.pu8Y, srcPitch, tDst.pu8Y, dstPitch, 16 * count);
    CopyStrip<8>(tSrc.pu8U, srcPitch / 2, tDst.pu8U, dstPitch / 2, 8 * count);
    CopyStrip<8>(tSrc.pu8V, srcPitch / 2, tDst.pu8V, dstPitch / 2, 8 * count);
}

void MP4DecMemSet_c(void* pvDst, uint32_t u32Value, uint32_t u32Bytes) {
    memset(pvDst, (int)(u32Value & 255), u32Bytes);
}

void MP4DecMemCopy_c(void* pvDst, const void* pvSrc, uint32_t u32Bytes) {
    memcpy(pvDst, pvSrc, u32Bytes);
}

void McCopy16to8_c(uint8_t* __restrict pu8Dst, const int16_t* __restrict ps16Block, int32_t s32Pitch) {
    const RowOffsets t(s32Pitch);
    for (int y = 0; y < 8; y++) StoreClipU8(pu8Dst + (y < 4 ? 0 : t.four) + t[y & 3], LoadVec(ps16Block + 8 * y));
}

void McAdd16to8_c(uint8_t* __restrict pu8Dst, const int16_t* __restrict ps16Block, int32_t s32Pitch) {
    for (int y = 0; y < 8; y++) {
        StoreClipU8(pu8Dst, AddWrap(LoadU8(pu8Dst), LoadVec(ps16Block)));
        ps16Block += 8;
        pu8Dst += s32Pitch;
    }
}
