// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors
#include "c/recon.h"

#include "c/transform.h"
#include "c/vec.h"

namespace {

// ---- Where the transform goes

// Of 8 rows of 8 samples.
struct Rows {
    uint8_t* pu8Upper;
    uint8_t* pu8Lower;
    RowOffsets t;

    MP4V_VEC_MEMBER Rows(uint8_t* pu8Dst, ptrdiff_t pitch) : pu8Upper(pu8Dst), t(pitch) { pu8Lower = pu8Dst + t.four; }
    MP4V_VEC_MEMBER uint8_t* At(int y) const { return (y < 4 ? pu8Upper : pu8Lower) + t[y & 3]; }
};

// Rows whose values come from the low half of a pair that is descaled together.
constexpr bool IsLowRow(int y) {
    return y == 0 || y == 3 || y == 4 || y == 7;
}

// What a first coefficient alone becomes in the low and in the other rows.
struct DcResult {
    int32_t s32Low;
    int32_t s32High;
};

DcResult TransformDc(int32_t s32Dc) {
    return {(4 * s32Dc + 15) >> 5, (4 * s32Dc + 15 + (s32Dc < 0)) >> 5};
}

// [0, 255]
Bytes16 BytesOf(int32_t s32) {
    const uint8_t u8 = (uint8_t)(s32 < 0 ? 0 : s32 > 255 ? 255 : s32);
    return Bytes16{} + u8;
}

struct AddTo {
    Rows t;

    MP4V_VEC_MEMBER void Put(const Vec8 (&av)[8]) const {
        for (int y = 0; y < 8; y++) StoreClipU8(t.At(y), AddU8(av[y], t.At(y)));
    }

    MP4V_VEC_MEMBER void PutDc(DcResult tDc) const {
        if (tDc.s32Low > 0) {
            const Bytes16 v = BytesOf(tDc.s32Low);  // in the other rows as well
            for (int y = 0; y < 8; y++) StoreBytes8(t.At(y), AddSaturatedU8(LoadBytes8(t.At(y)), v));
        } else if (tDc.s32Low < 0) {
            const Bytes16 vLow = BytesOf(-tDc.s32Low), vHigh = BytesOf(-tDc.s32High);
            for (int y = 0; y < 8; y++)
                StoreBytes8(t.At(y), SubSaturatedU8(LoadBytes8(t.At(y)), IsLowRow(y) ? vLow : vHigh));
        }
    }
};

struct StoreTo {
    Rows t;

    MP4V_VEC_MEMBER void Put(const Vec8 (&av)[8]) const {
        for (int y = 0; y < 8; y++) StoreClipU8(t.At(y), av[y]);
    }

    MP4V_VEC_MEMBER void PutDc(DcResult tDc) const {
        const Bytes16 v = BytesOf(tDc.s32Low);  // rows only differ below 0
        for (int y = 0; y < 8; y++) StoreBytes8(t.At(y), v);
    }
};

// ---- How coefficients are made of what the block holds
//
// Limit: what the sum of magnitudes may be. Scale: 16 times the coefficients, while within that limit. Finish: what
// stands in for it beyond.

struct Coefs {
    static constexpr bool kDcApart = false;
    MP4V_VEC_MEMBER int32_t Dc(int32_t s32) const { return (int32_t)((uint32_t)s32 << 20) >> 20; }  // as the transform
    MP4V_VEC_MEMBER bool IsSmall(uint32_t u32Sum) const { return u32Sum <= transform::kSmallSum; }
    MP4V_VEC_MEMBER Vec8 Scale(Vec8 v) const { return v << 4; }
    void Finish(int16_t*) const {}
};

// Of an intra block, whose first coefficient is large.
struct IntraCoefs : Coefs {
    // cppcheck-suppress [duplInheritedMember]: it takes the place of the other
    static constexpr bool kDcApart = true;
    MP4V_VEC_MEMBER bool IsSmall(uint32_t u32Sum) const { return u32Sum <= transform::kSmallSumBesideDc; }
};

constexpr int32_t ClampCoef(int32_t s32) {
    return s32 < -2048 ? -2048 : s32 > 2047 ? 2047 : s32;
}

// A level becomes at most three times itself times the quantiser.
struct H263Levels {
    static constexpr bool kDcApart = false;
    uint32_t u32Quant;

    int32_t Offset() const { return (int32_t)(u32Quant - 1 + (u32Quant & 1)); }
    MP4V_VEC_MEMBER int32_t Dc(int32_t s32) const {
        const int32_t s32Offset = s32 > 0 ? Offset() : s32 < 0 ? -Offset() : 0;
        return ClampCoef(2 * (int32_t)u32Quant * s32 + s32Offset);
    }
    MP4V_VEC_MEMBER bool IsSmall(uint32_t u32Sum) const { return 3 * u32Quant * u32Sum <= transform::kSmallSum; }
    MP4V_VEC_MEMBER Vec8 Scale(Vec8 v) const {
        const Vec8 vSign = Max(Min(v, Vec8{} + 1), Vec8{} - 1);
        return v * (int16_t)(32 * u32Quant) + vSign * (int16_t)(16 * Offset());
    }
    void Finish(int16_t* ps16Block) const { DequantH263Inter_c(ps16Block, ps16Block, (uint16_t)u32Quant); }
};

struct H263IntraLevels : H263Levels {
    // cppcheck-suppress [duplInheritedMember]: it takes the place of the other
    static constexpr bool kDcApart = true;
    uint32_t u32DcScaler;

    MP4V_VEC_MEMBER int32_t Dc(int32_t s32) const { return ClampCoef((int32_t)((uint32_t)s32 * u32DcScaler)); }
    MP4V_VEC_MEMBER bool IsSmall(uint32_t u32Sum) const {
        return 3 * u32Quant * u32Sum <= transform::kSmallSumBesideDc;
    }
    void Finish(int16_t* ps16Block) const { DequantH263Intra_c(ps16Block, ps16Block, u32Quant, u32DcScaler); }
};

// ---- The block

MP4V_VEC Vec8 SumOfMagnitudes(const Vec8* av, int count) {
    Vec8 vSum = Magnitude(av[0]);
    for (int i = 1; i < count; i++) vSum = AddSaturated(vSum, Magnitude(av[i]));
    return vSum;
}

// Large coefficients: kernel by kernel. Everything by value, so that nothing must be in memory for the other paths.
template <typename Target, typename Source>
__attribute__((noinline)) void FinishBlock(int16_t* ps16Block, Source tSource, uint8_t* pu8Dst, ptrdiff_t pitch) {
    tSource.Finish(ps16Block);
    Vec8 av[8];
    for (int i = 0; i < 8; i++) av[i] = (Vec8)((Vec8u)LoadVec(ps16Block + 8 * i) << 4);
    transform::InverseTransform(av);
    Target{{pu8Dst, pitch}}.Put(av);
}

// Nonzero are the first four columns of the first four rows.
template <typename Target, typename Source>
MP4V_VEC void FinishQuarter(int16_t* ps16Block, const Vec8 (&avRows)[8], const Source& tSource, uint8_t* pu8Dst,
                            ptrdiff_t pitch) {
    Vec8 av[8] = {ZipLow64(avRows[0], avRows[1]), ZipLow64(avRows[2], avRows[3])};
    const int32_t s32Dc = ps16Block[0];
    if (Source::kDcApart) av[0][0] = 0;
    if (!tSource.IsSmall(SumLanes(SumOfMagnitudes(av, 2))))
        return FinishBlock<Target>(ps16Block, tSource, pu8Dst, pitch);
    for (int i = 0; i < 2; i++) av[i] = tSource.Scale(av[i]);
    if (Source::kDcApart) av[0][0] = (int16_t)(tSource.Dc(s32Dc) * 16);
    transform::InverseTransformSmall4x4(av, av[0], av[1]);
    Target{{pu8Dst, pitch}}.Put(av);
}

template <typename Target, typename Source>
MP4V_VEC void FinishWhole(int16_t* ps16Block, Vec8 (&av)[8], const Source& tSource, uint8_t* pu8Dst, ptrdiff_t pitch) {
    const int32_t s32Dc = ps16Block[0];
    if (Source::kDcApart) av[0][0] = 0;
    if (!tSource.IsSmall(SumLanes(SumOfMagnitudes(av, 8))))
        return FinishBlock<Target>(ps16Block, tSource, pu8Dst, pitch);
    for (Vec8& v : av) v = tSource.Scale(v);
    if (Source::kDcApart) av[0][0] = (int16_t)(tSource.Dc(s32Dc) * 16);
    transform::InverseTransformSmall(av);
    Target{{pu8Dst, pitch}}.Put(av);
}

template <typename Target, typename Source>
MP4V_VEC void ReconBlock(int16_t* ps16Block, const Source& tSource, uint8_t* pu8Dst, ptrdiff_t pitch) {
    Vec8 av[8];
    for (int i = 0; i < 8; i++) av[i] = LoadVec(ps16Block + 8 * i);
    const Vec8 vUpper = av[1] | av[2] | av[3];
    const Vec8 vLower = av[4] | av[5] | av[6] | av[7];
    if (AnyLane(vLower | ZipHigh64(av[0] | vUpper, vLower)))
        return FinishWhole<Target>(ps16Block, av, tSource, pu8Dst, pitch);
    if (AnyLane(vUpper | DropLane0(av[0]))) return FinishQuarter<Target>(ps16Block, av, tSource, pu8Dst, pitch);
    Target{{pu8Dst, pitch}}.PutDc(TransformDc(tSource.Dc(ps16Block[0])));
}

}  // namespace

void AddInterBlock(int16_t* ps16Block, uint8_t* pu8Dst, ptrdiff_t pitch) {
    ReconBlock<AddTo>(ps16Block, Coefs{}, pu8Dst, pitch);
}

void AddInterBlockH263(int16_t* ps16Block, uint32_t u32Quant, uint8_t* pu8Dst, ptrdiff_t pitch) {
    ReconBlock<AddTo>(ps16Block, H263Levels{u32Quant}, pu8Dst, pitch);
}

void StoreIntraBlock(int16_t* ps16Block, uint8_t* pu8Dst, ptrdiff_t pitch) {
    ReconBlock<StoreTo>(ps16Block, IntraCoefs{}, pu8Dst, pitch);
}

void StoreIntraBlockH263(int16_t* ps16Block, uint32_t u32Quant, uint32_t u32DcScaler, uint8_t* pu8Dst,
                         ptrdiff_t pitch) {
    ReconBlock<StoreTo>(ps16Block, H263IntraLevels{{u32Quant}, u32DcScaler}, pu8Dst, pitch);
}
