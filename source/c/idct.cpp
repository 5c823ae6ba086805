// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors
#include "c/transform.h"
#include "c/vec.h"
#include "common/kernels.h"

void Mp4vDecIdct8x8_c(int16_t* ps16Block) {
    Vec8 av[8];
    for (int i = 0; i < 8; i++) av[i] = (Vec8)((Vec8u)LoadVec(ps16Block + 8 * i) << 4);
    transform::InverseTransform<false>(av);
    for (int i = 0; i < 8; i++) StoreVec(ps16Block + 8 * i, av[i]);
}

void Mp4DecAddiDCT8x8Stride_c(int16_t* ps16Block, uint8_t* pu8Dst, int32_t s32Pitch) {
    Idct8x8(ps16Block);
    for (int y = 0; y < 8; y++) {
        StoreClipU8(pu8Dst, AddSaturated(LoadU8(pu8Dst), LoadVec(ps16Block + 8 * y)));
        pu8Dst += s32Pitch;
    }
}

void Mp4DecAddiDCT8x8Multi_c(Mp4vMbScratch* ptMb, int16_t* ps16Blocks, uint32_t u32Cbp, int32_t s32RowOffset,
                             int32_t s32LumaPitch, int32_t s32ChromaPitch) {
    for (int32_t b = 0; b < 6; b++) {
        if (!(u32Cbp >> (5 - b) & 1)) continue;
        if (b < 4)
            Mp4DecAddiDCT8x8Stride_c(ps16Blocks, ptMb->pu8DstY + (b & 1) * 8 + (ptrdiff_t)(b >> 1) * s32RowOffset,
                                     s32LumaPitch);
        else
            Mp4DecAddiDCT8x8Stride_c(ps16Blocks, b == 4 ? ptMb->pu8DstU : ptMb->pu8DstV, s32ChromaPitch);
        ps16Blocks += 64;
    }
}

// ---- The second transform: 32-bit arithmetic, one line at a time. Nothing selects it; it is a second opinion on the
// first.

// 2048 * sqrt(2) * cos(k * pi / 16)
constexpr uint32_t kW1 = 2841, kW2 = 2676, kW3 = 2408, kW5 = 1609, kW6 = 1108, kW7 = 565;

namespace {

constexpr int16_t Ramp(int32_t k) {
    return (int16_t)(k < -256 ? -256 : k > 255 ? 255 : k);
}

// Coefficients of [-2048, 2047] stay within 32 bits; unsigned arithmetic keeps others defined.
MP4V_VEC uint32_t Shifted(uint32_t u32, int bits) {
    return (uint32_t)((int32_t)u32 >> bits);
}

// Adds and subtracts: au32[0..3] even, au32[4..7] odd sums of outputs 0..3.
MP4V_VEC void Combine(int32_t (&as32Out)[8], const uint32_t (&au32Even)[4], const uint32_t (&au32Odd)[4], int shift) {
    for (int i = 0; i < 4; i++) {
        as32Out[i] = (int32_t)(au32Even[i] + au32Odd[i]) >> shift;
        as32Out[7 - i] = (int32_t)(au32Even[i] - au32Odd[i]) >> shift;
    }
}

// u32Sum, u32Diff: x0 + x4 and x0 - x4, scaled and with the rounding term. Products are shifted right by productShift.
MP4V_VEC void SimpleLine(int32_t (&as32Out)[8], const uint32_t (&x)[8], uint32_t u32Sum, uint32_t u32Diff,
                         int productShift, int shift) {
    const uint32_t u32P = Shifted(kW2 * x[2] + kW6 * x[6], productShift);
    const uint32_t u32Q = Shifted(kW6 * x[2] - kW2 * x[6], productShift);
    const uint32_t au32Even[4] = {u32Sum + u32P, u32Diff + u32Q, u32Diff - u32Q, u32Sum - u32P};
    const uint32_t au32Odd[4] = {
        Shifted(kW1 * x[1] + kW3 * x[3] + kW5 * x[5] + kW7 * x[7], productShift),
        Shifted(kW3 * x[1] - kW7 * x[3] - kW1 * x[5] - kW5 * x[7], productShift),
        Shifted(kW5 * x[1] - kW1 * x[3] + kW7 * x[5] + kW3 * x[7], productShift),
        Shifted(kW7 * x[1] - kW5 * x[3] + kW3 * x[5] - kW1 * x[7], productShift),
    };
    Combine(as32Out, au32Even, au32Odd, shift);
}

}  // namespace

void Mp4vDecIdct8x8_simple1_c(int16_t* ps16Block) {
    uint32_t au32Rows[8][8];
    int32_t as32Out[8];
    for (int i = 0; i < 8; i++) {
        uint32_t x[8];
        for (int j = 0; j < 8; j++) x[j] = (uint32_t)(int32_t)ps16Block[8 * i + j];
        SimpleLine(as32Out, x, (x[0] + x[4]) * 2048 + 128, (x[0] - x[4]) * 2048 + 128, 0, 8);
        for (int j = 0; j < 8; j++) au32Rows[i][j] = (uint32_t)as32Out[j];
    }
    for (int j = 0; j < 8; j++) {
        uint32_t y[8];
        for (int i = 0; i < 8; i++) y[i] = au32Rows[i][j];
        SimpleLine(as32Out, y, (y[0] + y[4] + 32) * 256, (y[0] - y[4] + 32) * 256, 3, 14);
        for (int i = 0; i < 8; i++) {
            const int32_t k = as32Out[i] < -512 ? -512 : as32Out[i] > 511 ? 511 : as32Out[i];
            ps16Block[8 * i + j] = g_ps16Clp[k];
        }
    }
    __atomic_store_n(&l32Idx, 8, __ATOMIC_RELAXED);
}

// ---- The clipping table

// clang-format off
#define MP4V_8(Row, k)  Row(k), Row((k) + 1), Row((k) + 2), Row((k) + 3), Row((k) + 4), Row((k) + 5), Row((k) + 6), Row((k) + 7)
#define MP4V_64(k)      MP4V_8(Ramp, k), MP4V_8(Ramp, (k) + 8), MP4V_8(Ramp, (k) + 16), MP4V_8(Ramp, (k) + 24), \
                        MP4V_8(Ramp, (k) + 32), MP4V_8(Ramp, (k) + 40), MP4V_8(Ramp, (k) + 48), MP4V_8(Ramp, (k) + 56)

// Complete from the start, so that no thread ever sees it change.
constinit int16_t g_as16Clip[1024] = {
    MP4V_64(-512), MP4V_64(-448), MP4V_64(-384), MP4V_64(-320), MP4V_64(-256), MP4V_64(-192), MP4V_64(-128), MP4V_64(-64),
    MP4V_64(0),    MP4V_64(64),   MP4V_64(128),  MP4V_64(192),  MP4V_64(256),  MP4V_64(320),  MP4V_64(384),  MP4V_64(448)};
// clang-format on
constinit int16_t* g_ps16Clp = &g_as16Clip[512];
int32_t l32Idx;

void Mp4vDecIdct8x8Init_c(void) {
    for (int32_t k = -512; k < 512; k++)
        if (g_as16Clip[512 + k] != Ramp(k)) g_as16Clip[512 + k] = Ramp(k);
    if (g_ps16Clp != &g_as16Clip[512]) g_ps16Clp = &g_as16Clip[512];
}
