// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors
#include "c/vec.h"
#include "common/kernels.h"
#include "common/quant_tables.h"

namespace {

constexpr int16_t kMinCoef = -2048;
constexpr int16_t kMaxCoef = 2047;

// ---- H.263 method

// From this quantiser on every nonzero level comes out as a limit, so that larger ones need no wider arithmetic.
constexpr uint32_t kH263QuantCap = 1024;

struct H263Step {
    int16_t s16TwoQuant;  // [0, 2048]
    int16_t s16Offset;    // [-1, 1023]
};

H263Step MakeH263Step(uint32_t u32Quant) {
    const int32_t s32Quant = (int32_t)(u32Quant < kH263QuantCap ? u32Quant : kH263QuantCap);
    return {(int16_t)(2 * s32Quant), (int16_t)(s32Quant - 1 + (s32Quant & 1))};
}

// level * 2 * quantiser + sign(level) * offset, at most 2^26 before the limits.
MP4V_VEC Vec8 DequantH263(Vec8 vLevel, H263Step tStep) {
    const Vec8 vSign = (Vec8)(vLevel < 0) - (Vec8)(vLevel > 0);  // comparisons give 0 or -1
    const Vec8 v = MulAddSaturated(vLevel, tStep.s16TwoQuant, vSign, tStep.s16Offset);
    return Max(Min(v, Vec8{} + kMaxCoef), Vec8{} + kMinCoef);
}

MP4V_VEC void DequantH263Block(int16_t* ps16Dst, const int16_t* ps16Src, uint32_t u32Quant) {
    const H263Step tStep = MakeH263Step(u32Quant);
    for (int i = 0; i < 64; i += 8) StoreVec(ps16Dst + i, DequantH263(LoadVec(ps16Src + i), tStep));
}

// ---- MPEG method

MP4V_VEC int16_t ClampCoef(int32_t s32) {
    return (int16_t)(s32 < kMinCoef ? kMinCoef : s32 > kMaxCoef ? kMaxCoef : s32);
}

// A row of weights times the quantiser, modulo 2^32.
struct MpegStep {
    Vec8u vLow;
    Vec8u vHigh;
};

MP4V_VEC MpegStep MakeMpegStep(const int16_t* ps16Weights, uint32_t u32Quant) {
    const Vec8u vWeights = (Vec8u)LoadVec(ps16Weights);
    const Vec8u vQuantLow = Vec8u{} + (uint16_t)u32Quant;
    const Vec8u vQuantHigh = Vec8u{} + (uint16_t)(u32Quant >> 16);
    return {vWeights * vQuantLow, MulHigh(vWeights, vQuantLow) + vWeights * vQuantHigh};
}

// (high:low >> kShift) with the sign of the level, limited. The limits are reached below 2^16, so a nonzero high half
// only needs to stay large.
template <int kShift>
MP4V_VEC Vec8 ShiftAndLimit(Vec8u vLow, Vec8u vHigh, Vec8 vSign) {
    const Vec8u vSmall = (Vec8u)(vHigh == 0);
    const Vec8 vShifted = (Vec8)((vLow | ~vSmall) >> kShift);  // at most 8191
    const Vec8 v = Min(vShifted, kMaxCoef - vSign);            // 2047 or 2048
    return (v ^ vSign) - vSign;
}

// (weight * |level| * quantiser) >> 3. |level| is at most 2^15.
MP4V_VEC Vec8 DequantMpegIntraRow(Vec8 vLevel, MpegStep tStep) {
    const Vec8 vSign = vLevel >> 15;
    const Vec8u vAbs = (Vec8u)SubWrap(vLevel ^ vSign, vSign);
    return ShiftAndLimit<3>(vAbs * tStep.vLow, MulHigh(vAbs, tStep.vLow) + vAbs * tStep.vHigh, vSign);
}

// ((2 * |level| + 1) * weight * quantiser) >> 4, 0 for level 0.
MP4V_VEC Vec8 DequantMpegInterRow(Vec8 vLevel, MpegStep tStep) {
    const Vec8 vSign = vLevel >> 15;
    const Vec8u vAbs = (Vec8u)SubWrap(vLevel ^ vSign, vSign);
    const Vec8u vOdd = vAbs + vAbs + 1;                // loses its bit 16 for level -32768 only,
    const Vec8u vLostBit = (Vec8u)((Vec8)vAbs >> 15);  // which is put back here
    const Vec8u vHigh = MulHigh(vOdd, tStep.vLow) + vOdd * tStep.vHigh + (tStep.vLow & vLostBit);
    return ShiftAndLimit<4>(vOdd * tStep.vLow, vHigh, vSign) & (Vec8)(vLevel != 0);
}

// Levels so small that all products stay below the limits. vMax: of the magnitudes.
constexpr uint32_t kLargestIntraWeight = 45, kLargestInterWeight = 33;

bool IsSmallMpegIntra(Vec8 vMax, uint32_t u32Quant) {
    return u32Quant < 256 && MaxLane(vMax) * u32Quant * kLargestIntraWeight < 2048 * 8;
}

bool IsSmallMpegInter(Vec8 vMax, uint32_t u32Quant) {
    return u32Quant < 256 && (2 * MaxLane(vMax) + 1) * u32Quant * kLargestInterWeight < 2048 * 16;
}

// v with the sign of the level.
MP4V_VEC Vec8 WithSignOf(Vec8 vLevel, Vec8 v) {
    const Vec8 vSign = vLevel >> 15;
    return (v ^ vSign) - vSign;
}

MP4V_VEC Vec8 DequantSmallMpegIntraRow(Vec8 vLevel, Vec8 vMagnitude, const int16_t* ps16Weights, int16_t s16Quant) {
    const Vec8u vProduct = (Vec8u)vMagnitude * (Vec8u)(LoadVec(ps16Weights) * s16Quant);
    return WithSignOf(vLevel, (Vec8)(vProduct >> 3));
}

MP4V_VEC Vec8 DequantSmallMpegInterRow(Vec8 vLevel, Vec8 vMagnitude, const int16_t* ps16Weights, int16_t s16Quant) {
    const Vec8u vOdd = (Vec8u)vMagnitude + (Vec8u)vMagnitude + 1;  // of any size at quantiser 0
    const Vec8 v = (Vec8)((vOdd * (Vec8u)(LoadVec(ps16Weights) * s16Quant)) >> 4);
    return WithSignOf(vLevel, v & (Vec8)(vLevel != 0));
}

struct Magnitudes {
    Vec8 av[8];
    Vec8 vMax;  // of each column
};

MP4V_VEC Magnitudes FindMagnitudes(const Vec8 (&avLevels)[8]) {
    Magnitudes t;
    for (int i = 0; i < 8; i++) {
        t.av[i] = Magnitude(avLevels[i]);
        // cppcheck-suppress [uninitvar,uninitStructMember]: the first round sets it
        t.vMax = i ? Max(t.vMax, t.av[i]) : t.av[i];
    }
    return t;
}

// Mismatch control: an even sum is made odd. vParity: the exclusive or of all rows.
MP4V_VEC void ControlMismatch(int16_t* ps16Dst, Vec8 vParity) {
    vParity ^= ZipHigh64(vParity, vParity);
    uint64_t u64Parity;
    memcpy(&u64Parity, &vParity, 8);
    u64Parity ^= u64Parity >> 32;
    const uint32_t u32Odd = (uint32_t)(u64Parity ^ u64Parity >> 16) & 1;
    ps16Dst[63] = (int16_t)(ps16Dst[63] ^ (int16_t)(u32Odd ^ 1));
}

}  // namespace

void DequantH263Intra_c(int16_t* ps16Dst, const int16_t* ps16Src, uint32_t u32Quant, uint32_t u32DcScaler) {
    const int32_t s32Dc = (int32_t)((uint32_t)(int32_t)ps16Src[0] * u32DcScaler);
    DequantH263Block(ps16Dst, ps16Src, u32Quant);
    ps16Dst[0] = ClampCoef(s32Dc);
}

void DequantH263Inter_c(int16_t* ps16Dst, const int16_t* ps16Src, uint16_t u16Quant) {
    DequantH263Block(ps16Dst, ps16Src, u16Quant);
}

void DequantMpegIntra_c(int16_t* ps16Dst, const int16_t* ps16Src, uint32_t u32Quant, uint32_t u32DcScaler) {
    const int16_t s16Dc = (int16_t)((uint32_t)(int32_t)ps16Src[0] * u32DcScaler);  // wraps before it is limited
    Vec8 av[8];
    for (int i = 0; i < 8; i++) av[i] = LoadVec(ps16Src + 8 * i);
    av[0][0] = 0;
    const Magnitudes t = FindMagnitudes(av);
    if (IsSmallMpegIntra(t.vMax, u32Quant)) {
        for (int i = 0; i < 8; i++)
            StoreVec(ps16Dst + 8 * i,
                     DequantSmallMpegIntraRow(av[i], t.av[i], g_as16IntraMatrix + 8 * i, (int16_t)u32Quant));
    } else {
        for (int i = 0; i < 8; i++)
            StoreVec(ps16Dst + 8 * i, DequantMpegIntraRow(av[i], MakeMpegStep(g_as16IntraMatrix + 8 * i, u32Quant)));
    }
    ps16Dst[0] = ClampCoef(s16Dc);
}

void DequantMpegInter_c(int16_t* ps16Dst, const int16_t* ps16Src, uint32_t u32Quant) {
    Vec8 av[8];
    for (int i = 0; i < 8; i++) av[i] = LoadVec(ps16Src + 8 * i);
    const Magnitudes t = FindMagnitudes(av);
    Vec8 vParity = {};
    if (IsSmallMpegInter(t.vMax, u32Quant)) {
#pragma GCC unroll 8
        for (int i = 0; i < 8; i++)
            av[i] = DequantSmallMpegInterRow(av[i], t.av[i], g_as16InterMatrix + 8 * i, (int16_t)u32Quant);
    } else {
        for (int i = 0; i < 8; i++)
            av[i] = DequantMpegInterRow(av[i], MakeMpegStep(g_as16InterMatrix + 8 * i, u32Quant));
    }
#pragma GCC unroll 8
    for (int i = 0; i < 8; i++) {
        vParity ^= av[i];
        StoreVec(ps16Dst + 8 * i, av[i]);
    }
    ControlMismatch(ps16Dst, vParity);
}
