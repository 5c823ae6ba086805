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
        for (int y = 0; y < 8; y += 2)
            StoreClipU8(t.At(y), AddU8(av[y], t.At(y)), t.At(y + 1), AddU8(av[y + 1], t.At(y + 1)));
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
        for (int y = 0; y < 8; y += 2) StoreClipU8(t.At(y), av[y], t.At(y + 1), av[y + 1]);
    }

    MP4V_VEC_MEMBER void PutDc(DcResult tDc) const {
        const Bytes16 v = BytesOf(tDc.s32Low);  // rows only differ below 0
        for (int y = 0; y < 8; y++) StoreBytes8(t.At(y), v);
    }
};

// ---- How coefficients are made of what the block holds
//
// Scale: 16 times the coefficients while they are small or short. IsSmall: the sum of their magnitudes tells that they
// are. LargestLength: up to which they are short. Finish: what stands in for Scale where they are neither.

// Known to be small or short.
struct Coefs {
    static constexpr bool kIntra = false;
    MP4V_VEC_MEMBER int32_t Dc(int32_t s32) const { return s32; }
    MP4V_VEC_MEMBER Vec8 Scale(Vec8 v) const { return v << 4; }
};

// Of intra blocks, whose first coefficient is large.
struct IntraCoefs {
    static constexpr bool kIntra = true;
    MP4V_VEC_MEMBER int32_t Dc(int32_t s32) const { return (int32_t)((uint32_t)s32 << 20) >> 20; }  // as the transform
    MP4V_VEC_MEMBER Vec8 Scale(Vec8 v) const { return v << 4; }
    MP4V_VEC_MEMBER bool IsSmall(uint32_t u32Sum) const { return u32Sum <= transform::kSmallSumBesideDc; }
    uint32_t LargestLength() const { return transform::kShortLengthBesideDc; }
    void Finish(int16_t*) const {}
};

constexpr int32_t ClampCoef(int32_t s32) {
    return s32 < -2048 ? -2048 : s32 > 2047 ? 2047 : s32;
}

// A level becomes twice itself times the quantiser, and at most once the quantiser more.
struct H263IntraLevels {
    static constexpr bool kIntra = true;
    uint32_t u32Quant;  // [0, 255]
    uint32_t u32DcScaler;

    MP4V_VEC_MEMBER int32_t Dc(int32_t s32) const { return ClampCoef((int32_t)((uint32_t)s32 * u32DcScaler)); }
    MP4V_VEC_MEMBER bool IsSmall(uint32_t u32Sum) const {
        return 3 * u32Quant * u32Sum <= transform::kSmallSumBesideDc;
    }
    // The quantisers of 63 coefficients are not longer than 8 of one.
    uint32_t LargestLength() const {
        const uint32_t u32Quantisers = 8 * u32Quant;
        if (u32Quant == 0 || u32Quantisers > transform::kShortLengthBesideDc) return 0;
        return (transform::kShortLengthBesideDc - u32Quantisers) / (2 * u32Quant);
    }
    MP4V_VEC_MEMBER Vec8 Scale(Vec8 v) const {
        const Vec8 vSign = Max(Min(v, Vec8{} + 1), Vec8{} - 1);
        return v * (int16_t)(32 * u32Quant) + vSign * (int16_t)(16 * (u32Quant - 1 + (u32Quant & 1)));
    }
    void Finish(int16_t* ps16Block) const { DequantH263Intra_c(ps16Block, ps16Block, u32Quant, u32DcScaler); }
};

// ---- The block

template <int kCount>
MP4V_VEC uint32_t SumOfMagnitudes(const Vec8 (&av)[kCount]) {
    Vec8 vSum = Magnitude(av[0]);
    for (int i = 1; i < kCount; i++) vSum = AddSaturated(vSum, Magnitude(av[i]));
    return SumLanes(vSum);
}

// Whether the levels or coefficients beside the first are short. u32Sum: of their magnitudes.
template <typename Source>
MP4V_VEC bool IsShort(const Vec8 (&av)[8], const Source& tSource, uint32_t u32Sum) {
    if (u32Sum >= INT16_MAX) return false;  // some magnitude may have been more
    const uint32_t u32Length = tSource.LargestLength();
    return SumSquares(av) <= u32Length * u32Length;
}

enum Shape { kQuarter, kTop, kLeft, kWhole };

template <int kVectors>
MP4V_VEC void LoadShape(Vec8 (&av)[kVectors], const int16_t* ps16Block) {
    for (int i = 0; i < kVectors; i++)
        av[i] = kVectors == 2 ? ZipLow64(LoadVec(ps16Block + 16 * i), LoadVec(ps16Block + 16 * i + 8))
                              : LoadVec(ps16Block + 8 * i);
}

// Coefficients that are short at best, with sums that may have to be limited.
void AddShort(const int16_t* ps16Block, uint8_t* pu8Dst, ptrdiff_t pitch) {
    Vec8 av[8];
    LoadShape(av, ps16Block);
    for (Vec8& v : av) v = v << 4;
    transform::InverseTransform<true>(av);
    AddTo{{pu8Dst, pitch}}.Put(av);
}

// Everything by value, so that nothing must be in memory for the other paths.
template <typename Source, typename... Values>
__attribute__((noinline)) void StoreShort(int16_t* ps16Block, uint8_t* pu8Dst, ptrdiff_t pitch, uint32_t u32Sum,
                                          Values... values) {
    const Source tSource = {values...};
    Vec8 av[8];
    LoadShape(av, ps16Block);
    const int32_t s32Dc = ps16Block[0];
    av[0] = WithLane0(av[0], 0);
    if (!IsShort(av, tSource, u32Sum)) {
        tSource.Finish(ps16Block);
        Mp4vDecIdct8x8_c(ps16Block);
        return McCopy16to8_c(pu8Dst, ps16Block, (int32_t)pitch);
    }
    for (Vec8& v : av) v = tSource.Scale(v);
    av[0] = WithLane0(av[0], tSource.Dc(s32Dc) * 16);
    transform::InverseTransform<true>(av);
    StoreTo{{pu8Dst, pitch}}.Put(av);
}

// kSeventh: and a last coefficient of 1, of a quarter or the top.
template <Shape kShape, bool kSeventh, typename Target, typename Source, typename... Values>
__attribute__((noinline)) void ReconSmall(int16_t* ps16Block, uint8_t* pu8Dst, ptrdiff_t pitch, Values... values) {
    const Source tSource = {values...};
    Vec8 avHeld[kShape == kQuarter ? 2 : kShape == kTop ? 4 : 8], av[8];
    LoadShape(avHeld, ps16Block);
    const int32_t s32Dc = ps16Block[0];
    if constexpr (Source::kIntra) {
        avHeld[0] = WithLane0(avHeld[0], 0);
        const uint32_t u32Sum = SumOfMagnitudes(avHeld);
        if (!tSource.IsSmall(u32Sum)) return StoreShort<Source>(ps16Block, pu8Dst, pitch, u32Sum, values...);
    }
    int i = 0;
    for (const Vec8& v : avHeld) av[i++] = tSource.Scale(v);
    if (Source::kIntra) av[0] = WithLane0(av[0], tSource.Dc(s32Dc) * 16);
    if (kShape == kQuarter) transform::InverseTransformSmallQuarter<kSeventh>(av);
    if (kShape == kTop) transform::InverseTransformSmallTop<kSeventh>(av);
    if (kShape == kLeft) transform::InverseTransformSmallLeft(av);
    if (kShape == kWhole) transform::InverseTransformSmall(av);
    Target{{pu8Dst, pitch}}.Put(av);
}

template <typename Target, typename Source, typename... Values>
MP4V_VEC void ReconByShape(int16_t* ps16Block, uint8_t* pu8Dst, ptrdiff_t pitch, uint32_t u32Places, Values... values) {
    const bool bRight = u32Places & 4, bLower = u32Places & 32;
    if (u32Places == 0) return Target{{pu8Dst, pitch}}.PutDc(TransformDc(Source{values...}.Dc(ps16Block[0])));
    if (!bLower) {
        if (!bRight) return ReconSmall<kQuarter, false, Target, Source>(ps16Block, pu8Dst, pitch, values...);
        return ReconSmall<kTop, false, Target, Source>(ps16Block, pu8Dst, pitch, values...);
    }
    if (!bRight) return ReconSmall<kLeft, false, Target, Source>(ps16Block, pu8Dst, pitch, values...);
    return ReconSmall<kWhole, false, Target, Source>(ps16Block, pu8Dst, pitch, values...);
}

constexpr uint32_t kSmallSquares = transform::kSmallLength * transform::kSmallLength;
static_assert(kMaxSquares == transform::kShortLength * transform::kShortLength);

}  // namespace

void AddInterBlock(int16_t* ps16Block, uint8_t* pu8Dst, ptrdiff_t pitch, const InterCoefs& t) {
    if (t.u32Squares <= kSmallSquares && !t.bAndLast)
        return ReconByShape<AddTo, Coefs>(ps16Block, pu8Dst, pitch, t.u32Places);
    if (t.u32Squares <= kSmallSquares && !(t.u32Places & 32)) {
        if (t.u32Places & 4) return ReconSmall<kTop, true, AddTo, Coefs>(ps16Block, pu8Dst, pitch);
        return ReconSmall<kQuarter, true, AddTo, Coefs>(ps16Block, pu8Dst, pitch);
    }
    if (t.bAndLast) ps16Block[63] = 1;
    if (t.u32Squares <= kSmallSquares) return ReconSmall<kWhole, false, AddTo, Coefs>(ps16Block, pu8Dst, pitch);
    AddShort(ps16Block, pu8Dst, pitch);
}

void StoreIntraBlock(int16_t* ps16Block, uint8_t* pu8Dst, ptrdiff_t pitch, uint32_t u32Places) {
    ReconByShape<StoreTo, IntraCoefs>(ps16Block, pu8Dst, pitch, u32Places);
}

void StoreIntraBlockH263(int16_t* ps16Block, uint8_t* pu8Dst, ptrdiff_t pitch, uint32_t u32Quant, uint32_t u32DcScaler,
                         uint32_t u32Places) {
    ReconByShape<StoreTo, H263IntraLevels>(ps16Block, pu8Dst, pitch, u32Places, u32Quant, u32DcScaler);
}
