// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

// The live inverse transform on registers: 16-bit lanes, eight rows or columns at once.
//
// Coefficients come in times 16. In general all sums wrap at 16 bits and the results are limited to [-256, 255]. Short
// coefficients are those for which no sum before the descaling wraps. For small ones not even that does, and the
// variants for them have the same results as far as samples in [0, 255] can tell. See kSmallSum.
#ifndef MP4VDEC_SOURCE_C_TRANSFORM_H_
#define MP4VDEC_SOURCE_C_TRANSFORM_H_

#include "c/vec.h"

namespace transform {

// 2^15 * cos(k * pi / 16) / sqrt(2), and 2^15 * cos(pi / 4)
constexpr int32_t kC1 = 22725, kC2 = 21407, kC3 = 19266, kC5 = 12873, kC6 = 8867, kC7 = 4520, kC4 = 23170;
typedef Factors<kC1, kC2, kC3, kC5, kC6, kC7, kC4, -kC5> Weights;

// No coefficient weighs more than 0.6935 in a sum of one pass, 0.981 in one that is multiplied by kC4 next, so that
// every value is below 16 * 0.6935 * 0.981 times the sum of the magnitudes: 21800. Final sums are below 15400, or below
// 15900 for the intra method: a first coefficient of [-2048, 2047] adds four times itself to each and nothing else.
constexpr uint32_t kSmallSum = 2000, kSmallSumBesideDc = 1000;

// As vectors, the weights in a sum of one pass are not longer than the root of 2, so that every value is below
// 16 * 2 times the length of the coefficients as a vector. Final sums are below 16000 for small ones and, rounding
// included, below 32100 for short ones; beside a first coefficient, which adds eight times itself to some values
// between the passes, whose others are 16 times the root of 2, below 32300.
constexpr uint32_t kSmallLength = 500, kShortLength = 1000, kShortLengthBesideDc = 700;

// What one pass computes from lines 1 and 3 (5 and 7), 2 and 6.
struct OddPart {
    Vec8 v0, v1, v2, v3;
};
struct EvenPart {
    Vec8 p, q;
};

// kShort: a - d, b - c and what they give together stay within 16 bits. kLow: only lanes 0..3 are of use.
template <bool kShort, bool kLow = false>
MP4V_VEC OddPart Odd(const Weights& w, Vec8 a, Vec8 b, Vec8 c, Vec8 d) {
    const Vec8 u = SubWrap(a, d);
    const Vec8 v = SubWrap(b, c);
    OddPart t;
    t.v0 = AddWrap(a, d);
    t.v3 = AddWrap(b, c);
    if (kLow) {
        t.v1 = AddWrap(u, v);
        t.v2 = SubWrap(u, v);
        w.MulRound15Low<kC4>(t.v1, t.v2);
    } else if (kShort) {
        t.v1 = w.MulRound15<kC4>(AddWrap(u, v));
        t.v2 = w.MulRound15<kC4>(SubWrap(u, v));
    } else {
        t.v1 = w.MulAddRound15<kC4, kC4, false>(u, v);
        t.v2 = w.MulAddRound15<kC4, -kC4, false>(u, v);
    }
    return t;
}

MP4V_VEC void Butterflies(Vec8 (&av)[8], Vec8 vSum, Vec8 vDiff, EvenPart tEven, const OddPart& tOdd) {
    const Vec8 vEven0 = AddWrap(vSum, tEven.p);
    const Vec8 vEven1 = AddWrap(vDiff, tEven.q);
    const Vec8 vEven2 = SubWrap(vDiff, tEven.q);
    const Vec8 vEven3 = SubWrap(vSum, tEven.p);
    av[0] = AddWrap(vEven0, tOdd.v0);
    av[1] = AddWrap(vEven1, tOdd.v1);
    av[2] = AddWrap(vEven2, tOdd.v2);
    av[3] = AddWrap(vEven3, tOdd.v3);
    av[4] = SubWrap(vEven3, tOdd.v3);
    av[5] = SubWrap(vEven2, tOdd.v2);
    av[6] = SubWrap(vEven1, tOdd.v1);
    av[7] = SubWrap(vEven0, tOdd.v0);
}

// Eight values of one line in. vSum and vDiff: the halves of av[0] + av[4] and av[0] - av[4], which the two passes
// round differently.
template <bool kShort>
MP4V_VEC void InverseLines(const Weights& w, Vec8 (&av)[8], Vec8 vSum, Vec8 vDiff) {
    const Vec8 a = w.MulAddRound15<kC1, kC7, true>(av[1], av[7]);
    const Vec8 b = w.MulAddRound15<kC7, -kC1, true>(av[1], av[7]);
    const Vec8 c = w.MulAddRound15<kC3, -kC5, true>(av[5], av[3]);
    const Vec8 d = w.MulAddRound15<kC3, kC5, true>(av[3], av[5]);
    const Vec8 p = w.MulAddRound15<kC2, kC6, true>(av[2], av[6]);
    const Vec8 q = w.MulAddRound15<kC6, -kC2, true>(av[2], av[6]);
    Butterflies(av, vSum, vDiff, {p, q}, Odd<kShort>(w, a, b, c, d));
}

// The same in lanes 0..3; the others are of no use.
MP4V_VEC void InverseLinesLow(const Weights& w, Vec8 (&av)[8], Vec8 vSum, Vec8 vDiff) {
    const Vec8 a = w.MulAddRound15Low<kC1, kC7>(av[1], av[7]);
    const Vec8 b = w.MulAddRound15Low<kC7, -kC1>(av[1], av[7]);
    const Vec8 c = w.MulAddRound15Low<kC3, -kC5>(av[5], av[3]);
    const Vec8 d = w.MulAddRound15Low<kC3, kC5>(av[3], av[5]);
    const Vec8 p = w.MulAddRound15Low<kC2, kC6>(av[2], av[6]);
    const Vec8 q = w.MulAddRound15Low<kC6, -kC2>(av[2], av[6]);
    Butterflies(av, vSum, vDiff, {p, q}, Odd<true, true>(w, a, b, c, d));
}

// The same where the last four values are 0.
MP4V_VEC void InverseHalfLinesLow(const Weights& w, Vec8 (&av)[8], Vec8 vHalf) {
    Vec8 a, b, c, d, p, q;
    w.MulRound15Low<kC1, kC7>(av[1], a, b);
    w.MulRound15Low<kC3, -kC5>(av[3], d, c);
    w.MulRound15Low<kC2, kC6>(av[2], p, q);
    Butterflies(av, vHalf, vHalf, {p, q}, Odd<true, true>(w, a, b, c, d));
}

// InverseLines for lines whose last four values are 0: av[4..7] are only written. vHalf: half of av[0]. kSeventh:
// except for the last value, which av[7] holds.
template <bool kSeventh>
MP4V_VEC void InverseHalfLines(const Weights& w, Vec8 (&av)[8], Vec8 vHalf) {
    const Vec8 a = kSeventh ? w.MulAddRound15<kC1, kC7, true>(av[1], av[7]) : w.MulRound15<kC1>(av[1]);
    const Vec8 b = kSeventh ? w.MulAddRound15<kC7, -kC1, true>(av[1], av[7]) : w.MulRound15<kC7>(av[1]);
    const Vec8 c = w.MulRound15<-kC5>(av[3]);
    const Vec8 d = w.MulRound15<kC3>(av[3]);
    const Vec8 p = w.MulRound15<kC2>(av[2]);
    const Vec8 q = w.MulRound15<kC6>(av[2]);
    Butterflies(av, vHalf, vHalf, {p, q}, Odd<true>(w, a, b, c, d));
}

// Two results are described as descaled by one addition in a 32-bit word, as x * 2 + 31 in both halves with the low
// half's carry reaching the high one, then limited to [-16384, 16383] and shifted right by 6. As x * 2 + 31 is odd, a
// carry of 2 changes nothing that one of 1 does not, and half of all that does as well: the carry is there when the low
// value is negative or becomes so by wrapping.
MP4V_VEC Vec8 LimitDescaled(Vec8 v) {
    const Vec8 vTwice = AddWrap(v, v);
    return AddSaturated(vTwice, vTwice) >> 7;
}

MP4V_VEC void DescalePair(Vec8& vHigh, Vec8& vLow) {
    const Vec8 vLowSum = AddWrap(vLow, Vec8{} + 15);
    const Vec8 vCarry = (vLow | vLowSum) >> 15;  // 0 or -1
    vHigh = LimitDescaled(SubWrap(AddWrap(vHigh, Vec8{} + 15), vCarry));
    vLow = LimitDescaled(vLowSum);
}

template <bool kShort>
MP4V_VEC void InverseTransform(Vec8 (&av)[8]) {
    const Weights w;
    Transpose8x8(av);
    // Multiples of 16: halving first loses nothing.
    InverseLines<kShort>(w, av, AddWrap(av[0] >> 1, av[4] >> 1), SubWrap(av[0] >> 1, av[4] >> 1));
    Transpose8x8(av);
    // (y0 + y4 + 1) >> 1 and (y0 - y4 + 1) >> 1 without the 17th bit
    const Vec8 vNot4 = ~av[4];
    const Vec8 vSum = SubWrap(av[0] | av[4], (av[0] ^ av[4]) >> 1);
    const Vec8 vDiff = AddWrap(AddWrap(av[0] & vNot4, (av[0] ^ vNot4) >> 1), Vec8{} + 1);
    InverseLines<kShort>(w, av, vSum, vDiff);
    DescalePair(av[1], av[0]);
    DescalePair(av[2], av[3]);
    DescalePair(av[5], av[4]);
    DescalePair(av[6], av[7]);
}

// ---- Small coefficients: the 15 of the descaling is in the sums already, and limits are left to the samples' own.
//
// By what the block holds.

MP4V_VEC void DescaleSmallPair(Vec8& vHigh, Vec8& vLow) {
    const Vec8 vCarry = IsBelow(vLow, 15);  // -1 when the value without the 15 is negative
    vHigh = (vHigh - vCarry) >> 5;
    vLow = vLow >> 5;
}

MP4V_VEC void DescaleSmall(Vec8 (&av)[8]) {
    DescaleSmallPair(av[1], av[0]);
    DescaleSmallPair(av[2], av[3]);
    DescaleSmallPair(av[5], av[4]);
    DescaleSmallPair(av[6], av[7]);
}

MP4V_VEC void FinishLines(const Weights& w, Vec8 (&av)[8]) {
    const Vec8 vBiased = av[0] + 31;  // 2 * 15 and the rounding
    InverseLines<true>(w, av, (vBiased + av[4]) >> 1, (vBiased - av[4]) >> 1);
    DescaleSmall(av);
}

template <bool kSeventh>
MP4V_VEC void FinishHalfLines(const Weights& w, Vec8 (&av)[8]) {
    // What the first pass makes of a last coefficient of 1, alone in its row.
    if (kSeventh) av[7] = Vec8{2, -6, 9, -11, 11, -9, 6, -2};
    InverseHalfLines<kSeventh>(w, av, (av[0] + 31) >> 1);
    DescaleSmall(av);
}

// Anything.
MP4V_VEC void InverseTransformSmall(Vec8 (&av)[8]) {
    const Weights w;
    Transpose8x8(av);
    InverseLines<true>(w, av, (av[0] >> 1) + (av[4] >> 1), (av[0] >> 1) - (av[4] >> 1));  // multiples of 16
    Transpose8x8(av);
    FinishLines(w, av);
}

// Eight columns of four values become four rows.
MP4V_VEC void TransposeLow8x4(Vec8 (&av)[8]) {
    const Vec8 v01 = ZipLow16(av[0], av[1]), v23 = ZipLow16(av[2], av[3]);
    const Vec8 v45 = ZipLow16(av[4], av[5]), v67 = ZipLow16(av[6], av[7]);
    const Vec8 vLeft01 = ZipLow32(v01, v23), vLeft23 = ZipHigh32(v01, v23);
    const Vec8 vRight01 = ZipLow32(v45, v67), vRight23 = ZipHigh32(v45, v67);
    av[0] = ZipLow64(vLeft01, vRight01), av[1] = ZipHigh64(vLeft01, vRight01);
    av[2] = ZipLow64(vLeft23, vRight23), av[3] = ZipHigh64(vLeft23, vRight23);
}

// The first four columns.
MP4V_VEC void InverseTransformSmallLeft(Vec8 (&av)[8]) {
    const Weights w;
    TransposeLow8x4(av);
    InverseHalfLines<false>(w, av, av[0] >> 1);
    Transpose8x8(av);
    FinishLines(w, av);
}

// The first four rows, in av[0..3]. kSeventh: and a last coefficient of 1.
template <bool kSeventh>
MP4V_VEC void InverseTransformSmallTop(Vec8 (&av)[8]) {
    const Weights w;
    const Vec8 vLeft01 = ZipLow16(av[0], av[1]), vLeft23 = ZipLow16(av[2], av[3]);
    const Vec8 vRight01 = ZipHigh16(av[0], av[1]), vRight23 = ZipHigh16(av[2], av[3]);
    av[0] = ZipLow32(vLeft01, vLeft23), av[1] = ZipHigh64(av[0], av[0]);
    av[2] = ZipHigh32(vLeft01, vLeft23), av[3] = ZipHigh64(av[2], av[2]);
    av[4] = ZipLow32(vRight01, vRight23), av[5] = ZipHigh64(av[4], av[4]);
    av[6] = ZipHigh32(vRight01, vRight23), av[7] = ZipHigh64(av[6], av[6]);
    InverseLinesLow(w, av, (av[0] >> 1) + (av[4] >> 1), (av[0] >> 1) - (av[4] >> 1));
    TransposeLow8x4(av);
    FinishHalfLines<kSeventh>(w, av);
}

// The first four columns of the first four rows, two rows each in av[0] and av[1]. kSeventh: and a last coefficient
// of 1.
template <bool kSeventh>
MP4V_VEC void InverseTransformSmallQuarter(Vec8 (&av)[8]) {
    const Weights w;
    const Vec8 vEven = ZipLow16(av[0], av[1]);
    const Vec8 vOdd = ZipHigh16(av[0], av[1]);
    const Vec8 vLines01 = ZipLow16(vEven, vOdd);
    const Vec8 vLines23 = ZipHigh16(vEven, vOdd);
    av[0] = vLines01, av[1] = ZipHigh64(vLines01, vLines01);
    av[2] = vLines23, av[3] = ZipHigh64(vLines23, vLines23);
    InverseHalfLinesLow(w, av, av[0] >> 1);
    TransposeLow8x4(av);
    FinishHalfLines<kSeventh>(w, av);
}

}  // namespace transform

#endif  // MP4VDEC_SOURCE_C_TRANSFORM_H_
