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

// A square of rows that alternate between the fields. The last row has no top-field row below it: it follows the
// decision for the row of its field above it.
template <int kSize>
MP4V_VEC void DeinterlaceFramePlane(const uint8_t* pu8Src, int32_t s32SrcPitch, uint8_t* pu8Dst, int32_t s32DstPitch) {
    const ptrdiff_t srcPitch = s32SrcPitch, dstPitch = s32DstPitch;
    for (int y = 0; y < kSize; y += 2) memcpy(pu8Dst + y * dstPitch, pu8Src + y * srcPitch, kSize);
    for (int x = 0; x < kSize; x += 8) {
        uint32_t u32Interpolated = 0;
        for (int y = 1; y < kSize - 1; y += 2)
            u32Interpolated = Deinterlacing8_c(pu8Src + y * srcPitch + x, s32SrcPitch, pu8Dst + y * dstPitch + x);
        const uint8_t* pu8Last = pu8Src + (kSize - (u32Interpolated ? 2 : 1)) * srcPitch + x;
        memcpy(pu8Dst + (kSize - 1) * dstPitch + x, pu8Last, 8);
    }
}

// A square of bottom-field rows. s32DstPitch: from one output row of the field to the next.
template <int kSize>
MP4V_VEC void DeinterlaceFieldPlane(const uint8_t* pu8Src, int32_t s32SrcPitch, uint8_t* pu8Dst, int32_t s32DstPitch) {
    const ptrdiff_t srcPitch = s32SrcPitch, dstPitch = s32DstPitch;
    const int32_t s32RowPitch = s32DstPitch / 2;
    for (int x = 0; x < kSize; x += 8) {
        uint32_t u32Interpolated = 0;
        for (int y = 0; y < kSize - 1; y++)
            u32Interpolated =
                Deinterlacing8Field_c(pu8Src + y * srcPitch + x, s32SrcPitch, pu8Dst + y * dstPitch + x, s32RowPitch);
        uint8_t* const pu8LastDst = pu8Dst + (kSize - 1) * dstPitch + x;
        memcpy(pu8LastDst, u32Interpolated ? pu8LastDst - s32RowPitch : pu8Src + (kSize - 1) * srcPitch + x, 8);
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
