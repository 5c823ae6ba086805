// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors
#include "c/deinterlace.h"

#include "common/kernels.h"

uint32_t Deinterlacing8_c(const uint8_t* pu8Src, int32_t s32Pitch, uint8_t* pu8Dst) {
    const ptrdiff_t pitch = s32Pitch;
    return WeaveOrInterpolate8(pu8Dst, pu8Src - pitch, pu8Src + pitch, pu8Src, pu8Src + 2 * pitch);
}

// s32DstPitch: from one output row to the next, whichever field it belongs to.
uint32_t Deinterlacing8Field_c(const uint8_t* pu8Src, int32_t s32SrcPitch, uint8_t* pu8Dst, int32_t s32DstPitch) {
    const ptrdiff_t dstPitch = s32DstPitch;
    return WeaveOrInterpolate8(pu8Dst, pu8Dst - dstPitch, pu8Dst + dstPitch, pu8Src, pu8Src + s32SrcPitch);
}

namespace {

// A square of rows that alternate between the fields. The last row has no top-field row below it: each eight samples of
// it follow the decision for the bottom-field row before.
template <int kSize>
MP4V_VEC void DeinterlaceFramePlane(const uint8_t* pu8Src, int32_t s32SrcPitch, uint8_t* pu8Dst, int32_t s32DstPitch) {
    const ptrdiff_t srcPitch = s32SrcPitch, dstPitch = s32DstPitch;
    uint32_t au32Interpolated[kSize / 8] = {};
    for (int y = 0; y < kSize; y += 2) {
        memcpy(pu8Dst, pu8Src, kSize);
        for (int x = 0; x < kSize; x += 8) {
            uint32_t& u32Interpolated = au32Interpolated[x / 8];
            if (y < kSize - 2)
                u32Interpolated = Deinterlacing8_c(pu8Src + srcPitch + x, s32SrcPitch, pu8Dst + dstPitch + x);
            else
                StoreBytes8(pu8Dst + dstPitch + x, LoadBytes8(pu8Src + (u32Interpolated ? 0 : srcPitch) + x));
        }
        pu8Src += 2 * srcPitch;
        pu8Dst += 2 * dstPitch;
    }
}

// A square of bottom-field rows. s32DstPitch: from one output row of the field to the next.
template <int kSize>
MP4V_VEC void DeinterlaceFieldPlane(const uint8_t* pu8Src, int32_t s32SrcPitch, uint8_t* pu8Dst, int32_t s32DstPitch) {
    const int32_t s32RowPitch = s32DstPitch / 2;
    uint32_t au32Interpolated[kSize / 8] = {};
    for (int y = 0; y < kSize; y++) {
        for (int x = 0; x < kSize; x += 8) {
            uint32_t& u32Interpolated = au32Interpolated[x / 8];
            if (y < kSize - 1)
                u32Interpolated = Deinterlacing8Field_c(pu8Src + x, s32SrcPitch, pu8Dst + x, s32RowPitch);
            else
                StoreBytes8(pu8Dst + x, LoadBytes8(u32Interpolated ? pu8Dst + x - s32RowPitch : pu8Src + x));
        }
        pu8Src += s32SrcPitch;
        pu8Dst += s32DstPitch;
    }
}

}  // namespace

void DeInterlaceFrameMB_c(const uint8_t* pu8SrcY, const uint8_t* pu8SrcU, const uint8_t* pu8SrcV, int32_t s32SrcPitch,
                          uint8_t* pu8DstY, uint8_t* pu8DstU, uint8_t* pu8DstV, int32_t s32DstPitch) {
    DeinterlaceFramePlane<16>(pu8SrcY, s32SrcPitch, pu8DstY, s32DstPitch);
    DeinterlaceFramePlane<8>(pu8SrcU, s32SrcPitch / 2, pu8DstU, s32DstPitch / 2);
    DeinterlaceFramePlane<8>(pu8SrcV, s32SrcPitch / 2, pu8DstV, s32DstPitch / 2);
}

void DeInterlaceFieldMB_c(const uint8_t* pu8SrcY, const uint8_t* pu8SrcU, const uint8_t* pu8SrcV, int32_t s32SrcPitch,
                          uint8_t* pu8DstY, uint8_t* pu8DstU, uint8_t* pu8DstV, int32_t s32DstPitch) {
    DeinterlaceFieldPlane<16>(pu8SrcY, s32SrcPitch, pu8DstY, s32DstPitch);
    DeinterlaceFieldPlane<8>(pu8SrcU, s32SrcPitch / 2, pu8DstU, s32DstPitch / 2);
    DeinterlaceFieldPlane<8>(pu8SrcV, s32SrcPitch / 2, pu8DstV, s32DstPitch / 2);
}
