// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors
#include "c/deinterlace.h"

#include "common/kernels.h"

uint32_t Deinterlacing8_c(const uint8_t* pu8Src, int32_t s32Pitch, uint8_t* pu8Dst) {
    const ptrdiff_t pitch = s32Pitch;
    return WeaveOrInterpolate<8>(pu8Dst, pu8Src - pitch, pu8Src + pitch, pu8Src, pu8Src + 2 * pitch)[0] & 1;
}

// s32DstPitch: from one output row to the next, whichever field it belongs to.
uint32_t Deinterlacing8Field_c(const uint8_t* pu8Src, int32_t s32SrcPitch, uint8_t* pu8Dst, int32_t s32DstPitch) {
    const ptrdiff_t dstPitch = s32DstPitch;
    return WeaveOrInterpolate<8>(pu8Dst, pu8Dst - dstPitch, pu8Dst + dstPitch, pu8Src, pu8Src + s32SrcPitch)[0] & 1;
}

namespace {

template <int kSize>
MP4V_VEC Bytes16 Load(const uint8_t* pu8) {
    return kSize == 16 ? LoadBytes16(pu8) : LoadBytes8(pu8);
}

template <int kSize>
MP4V_VEC void Store(uint8_t* pu8, Bytes16 v) {
    kSize == 16 ? StoreBytes16(pu8, v) : StoreBytes8(pu8, v);
}

// A square of rows that alternate between the fields. The last row has no top-field row below it: each eight samples of
// it follow the decision for the bottom-field row before.
template <int kSize>
MP4V_VEC void DeinterlaceFramePlane(const uint8_t* pu8Src, int32_t s32SrcPitch, uint8_t* pu8Dst, int32_t s32DstPitch) {
    const ptrdiff_t srcPitch = s32SrcPitch, dstPitch = s32DstPitch;
    Bytes16 vInterpolated = {};
    Bytes16 vTop = Load<kSize>(pu8Src), vBottom = Load<kSize>(pu8Src + srcPitch);
    for (int y = 0; y < kSize - 2; y += 2) {
        pu8Src += 2 * srcPitch;
        const Bytes16 vNextTop = Load<kSize>(pu8Src), vNextBottom = Load<kSize>(pu8Src + srcPitch);
        Store<kSize>(pu8Dst, vTop);
        Store<kSize>(pu8Dst + dstPitch, WeaveOrInterpolate(vTop, vNextTop, vBottom, vNextBottom, vInterpolated));
        vTop = vNextTop;
        vBottom = vNextBottom;
        pu8Dst += 2 * dstPitch;
    }
    Store<kSize>(pu8Dst, vTop);
    Store<kSize>(pu8Dst + dstPitch, Select(vInterpolated, vTop, vBottom));
}

// A square of bottom-field rows, kStep samples at a time. s32DstPitch: from one output row of the field to the next.
template <int kSize, int kStep>
MP4V_VEC void DeinterlaceFieldPlane(const uint8_t* pu8Src, int32_t s32SrcPitch, uint8_t* pu8Dst, int32_t s32DstPitch) {
    const ptrdiff_t srcPitch = s32SrcPitch, dstPitch = s32DstPitch, rowPitch = s32DstPitch / 2;
    Bytes16 avInterpolated[kSize / kStep] = {};
    for (int y = 0; y < kSize - 1; y++) {
        for (int x = 0; x < kSize; x += kStep) {
            avInterpolated[x / kStep] = WeaveOrInterpolate<kStep>(
                pu8Dst + x, pu8Dst - rowPitch + x, pu8Dst + rowPitch + x, pu8Src + x, pu8Src + srcPitch + x);
        }
        pu8Src += srcPitch;
        pu8Dst += dstPitch;
    }
    for (int x = 0; x < kSize; x += kStep) {
        const Bytes16 vTop = Load<kStep>(pu8Dst - rowPitch + x);
        Store<kStep>(pu8Dst + x, Select(avInterpolated[x / kStep], vTop, Load<kStep>(pu8Src + x)));
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
    // Where output rows overlap, what is written first is read again.
    if (s32DstPitch >= 2 * 16) {
        DeinterlaceFieldPlane<16, 16>(pu8SrcY, s32SrcPitch, pu8DstY, s32DstPitch);
    } else {
        DeinterlaceFieldPlane<16, 8>(pu8SrcY, s32SrcPitch, pu8DstY, s32DstPitch);
    }
    DeinterlaceFieldPlane<8, 8>(pu8SrcU, s32SrcPitch / 2, pu8DstU, s32DstPitch / 2);
    DeinterlaceFieldPlane<8, 8>(pu8SrcV, s32SrcPitch / 2, pu8DstV, s32DstPitch / 2);
}
