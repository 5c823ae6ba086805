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
