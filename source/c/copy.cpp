// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors
#include <string.h>

#include "c/vec.h"
#include "common/kernels.h"

namespace {

template <int kWidth>
MP4V_VEC void CopyRow(uint8_t* pu8Dst, const uint8_t* pu8Src) {
    kWidth == 16 ? StoreBytes16(pu8Dst, LoadBytes16(pu8Src)) : StoreBytes8(pu8Dst, LoadBytes8(pu8Src));
}

// Row after row, so that overlapping blocks come out the same everywhere.
template <int kWidth, int kRows>
MP4V_VEC void CopyBlock(uint8_t* pu8Dst, ptrdiff_t dstPitch, const uint8_t* pu8Src, ptrdiff_t srcPitch) {
    const RowOffsets tDst(dstPitch), tSrc(srcPitch);
#pragma GCC unroll 4
    for (int y = 0; y < kRows; y += 4) {
        for (int i = 0; i < 4; i++) CopyRow<kWidth>(pu8Dst + tDst[i], pu8Src + tSrc[i]);
        pu8Dst += tDst.four;
        pu8Src += tSrc.four;
    }
}

template <int kWidth, int kRows>
MP4V_VEC void CopyBlock(uint8_t* pu8Dst, const uint8_t* pu8Src, ptrdiff_t pitch) {
    const RowOffsets t(pitch);
#pragma GCC unroll 4
    for (int y = 0; y < kRows; y += 4) {
        for (int i = 0; i < 4; i++) CopyRow<kWidth>(pu8Dst + t[i], pu8Src + t[i]);
        pu8Dst += t.four;
        pu8Src += t.four;
    }
}

}  // namespace

void MP4DecMemCopy16x16_c(uint8_t* pu8Dst, const uint8_t* pu8Src, int32_t s32Pitch) {
    CopyBlock<16, 16>(pu8Dst, pu8Src, s32Pitch);
}

void MP4DecMemCopy8x8_c(uint8_t* pu8Dst, const uint8_t* pu8Src, int32_t s32Pitch) {
    CopyBlock<8, 8>(pu8Dst, pu8Src, s32Pitch);
}

void MP4DecMemCopy8x4_c(uint8_t* pu8Dst, const uint8_t* pu8Src, int32_t s32Pitch) {
    CopyBlock<8, 4>(pu8Dst, pu8Src, s32Pitch);
}

void MemCopyStride16x16_c(const uint8_t* pu8Src, int32_t s32SrcPitch, uint8_t* pu8Dst, int32_t s32DstPitch) {
    CopyBlock<16, 16>(pu8Dst, s32DstPitch, pu8Src, s32SrcPitch);
}

void MemCopyStride16x8_c(const uint8_t* pu8Src, int32_t s32SrcPitch, uint8_t* pu8Dst, int32_t s32DstPitch) {
    CopyBlock<16, 8>(pu8Dst, s32DstPitch, pu8Src, s32SrcPitch);
}

void MemCopyStride8x8_c(const uint8_t* pu8Src, int32_t s32SrcPitch, uint8_t* pu8Dst, int32_t s32DstPitch) {
    CopyBlock<8, 8>(pu8Dst, s32DstPitch, pu8Src, s32SrcPitch);
}

void MemCopyStride8x4_c(const uint8_t* pu8Src, int32_t s32SrcPitch, uint8_t* pu8Dst, int32_t s32DstPitch) {
    CopyBlock<8, 4>(pu8Dst, s32DstPitch, pu8Src, s32SrcPitch);
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
