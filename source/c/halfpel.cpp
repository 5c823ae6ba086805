// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors
#include "c/halfpel.h"

#include "common/kernels.h"

// NOLINTBEGIN(bugprone-macro-parentheses): a template is named
#define MP4V_HALF_KERNEL(Name, Body, kWidth, kRows)                                             \
    void Name(uint8_t* pu8Dst, const uint8_t* pu8Src, int32_t s32Pitch, uint32_t u32Rounding) { \
        Body<kWidth, kRows>(pu8Dst, pu8Src, s32Pitch, u32Rounding);                             \
    }
// NOLINTEND(bugprone-macro-parentheses)

MP4V_HALF_KERNEL(Interpolate16x16H_c, HalfH, 16, 16)
MP4V_HALF_KERNEL(Interpolate16x16V_c, HalfV, 16, 16)
MP4V_HALF_KERNEL(Interpolate16x16HV_c, HalfHV, 16, 16)
MP4V_HALF_KERNEL(Interpolate8x8H_c, HalfH, 8, 8)
MP4V_HALF_KERNEL(Interpolate8x8V_c, HalfV, 8, 8)
MP4V_HALF_KERNEL(Interpolate8x8HV_c, HalfHV, 8, 8)
MP4V_HALF_KERNEL(Interpolate8x4H_c, HalfH, 8, 4)
MP4V_HALF_KERNEL(Interpolate8x4V_c, HalfV, 8, 4)
MP4V_HALF_KERNEL(Interpolate8x4HV_c, HalfHV, 8, 4)
