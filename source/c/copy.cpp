// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors
#include <string.h>

#include "c/vec.h"
#include "common/kernels.h"

namespace {

template <int kWidth, int kRows>
MP4V_VEC void CopyBlock(uint8_t* __restrict pu8Dst, ptrdiff_t dstPitch, const uint8_t* __restrict pu8Src,
                        ptrdiff_t srcPitch) {
    for (int y = 0; y < kRows; y++) {
        memcpy(pu8Dst, pu8Src, kWidth);
        pu8Dst += dstPitch;
        pu8Src += srcPitch;
    }
}

}  // namespace

void MP4DecMemCopy16x16_c(uint8_t* pu8Dst, const uint8_t* pu8Src, int32_t s32Pitch) {
    CopyBlock<16, 16>(pu8Dst, s32Pitch, pu8Src, s32Pitch);
}

void MP4DecMemCopy8x8_c(uint8_t* pu8Dst, const uint8_t* pu8Src, int32_t s32Pitch) {
    CopyBlock<8, 8>(pu8Dst, s32Pitch, pu8Src, s32Pitch);
}

void MP4DecMemCopy8x4_c(uint8_t* pu8Dst, const uint8_t* pu8Src, int32_t s32Pitch) {
    CopyBlock<8, 4>(pu8Dst, s32Pitch, pu8Src, s32Pitch);
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
    for (int y = 0; y < 8; y++) {
        StoreClipU8(pu8Dst, LoadVec(ps16Block));
        ps16Block += 8;
        pu8Dst += s32Pitch;
    }
}

void McAdd16to8_c(uint8_t* __restrict pu8Dst, const int16_t* __restrict ps16Block, int32_t s32Pitch) {
    for (int y = 0; y < 8; y++) {
        StoreClipU8(pu8Dst, AddWrap(LoadU8(pu8Dst), LoadVec(ps16Block)));
        ps16Block += 8;
        pu8Dst += s32Pitch;
    }
}
