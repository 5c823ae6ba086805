// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

// The live inverse transform on registers: 16-bit lanes, eight rows or columns at once.
//
// Coefficients come in times 16. In general all sums wrap at 16 bits and the results are limited to [-256, 255]. The
// Small variants have the same results as far as samples in [0, 255] can tell, for coefficients small enough that
// nothing wraps: see kSmallSum.
#ifndef MP4VDEC_SOURCE_C_TRANSFORM_H_
#define MP4VDEC_SOURCE_C_TRANSFORM_H_

#include "c/vec.h"

namespace transform {

// 2^15 * cos(k * pi / 16) / sqrt(2), and 2^15 * cos(pi / 4)
constexpr int32_t kC1 = 22725, kC2 = 21407, kC3 = 19266, kC5 = 12873, kC6 = 8867, kC7 = 4520, kC4 = 23170;

// No coefficient weighs more than 0.6935 in a sum of one pass, 0.981 in one that is multiplied by kC4 next, so that
// every value is below 16 * 0.6935 * 0.981 times the sum of the magnitudes: 21800. Final sums are below 15400, or below
// 15900 for the intra method: a first coefficient of [-2048, 2047] adds four times itself to each and nothing else.
constexpr uint32_t kSmallSum = 2000, kSmallSumBesideDc = 1000;

// What one pass computes from lines 1 and 3 (5 and 7), 2 and 6.
struct OddPart {
    Vec8 v0, v1, v2, v3;
};
struct EvenPart {
    Vec8 p, q;
};

// kSmall: a - d, b - c and what they give together stay within 16 bits.
template <bool kSmall>
MP4V_VEC OddPart Odd(Vec8 a, Vec8 b, Vec8 c, Vec8 d) {
    const Vec8 u = SubWrap(a, d);
    const Vec8 v = SubWrap(b, c);
    OddPart t;
    t.v0 = AddWrap(a, d);
    t.v3 = AddWrap(b, c);
    if (kSmall) {
        t.v1 = MulRound15<kC4>(AddWrap(u, v));
        t.v2 = MulRound15<kC4>(SubWrap(u, v));
    } else {
        t.v1 = MulAddRound15<kC4, kC4, false>(u, v);
        t.v2 = MulAddRound15<kC4, -kC4, false>(u, v);
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
template <bool kSmall>
MP4V_VEC void InverseLines(Vec8 (&av)[8], Vec8 vSum, Vec8 vDiff) {
    const Vec8 a = MulAddRound15<kC1, kC7, true>(av[1], av[7]);
    const Vec8 b = MulAddRound15<kC7, -kC1, true>(av[1], av[7]);
    const Vec8 c = MulAddRound15<-kC5, kC3, true>(av[3], av[5]);
    const Vec8 d = MulAddRound15<kC3, kC5, true>(av[3], av[5]);
    const Vec8 p = MulAddRound15<kC2, kC6, true>(av[2], av[6]);
    const Vec8 q = MulAddRound15<kC6, -kC2, true>(av[2], av[6]);
    Butterflies(av, vSum, vDiff, {p, q}, Odd<kSmall>(a, b, c, d));
}

// The same for lines whose last four values are 0: av[4..7] are only written. vHalf: half of av[0].
template <bool kSmall>
MP4V_VEC void InverseHalfLines(Vec8 (&av)[8], Vec8 vHalf) {
    const Vec8 a = MulRound15<kC1>(av[1]);
    const Vec8 b = MulRound15<kC7>(av[1]);
    const Vec8 c = MulRound15<-kC5>(av[3]);
    const Vec8 d = MulRound15<kC3>(av[3]);
    const Vec8 p = MulRound15<kC2>(av[2]);
    const Vec8 q = MulRound15<kC6>(av[2]);
    Butterflies(av, vHalf, vHalf, {p, q}, Odd<kSmall>(a, b, c, d));
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

MP4V_VEC void InverseTransform(Vec8 (&av)[8]) {
    Transpose8x8(av);
    // Multiples of 16: halving first loses nothing.
    InverseLines<false>(av, AddWrap(av[0] >> 1, av[4] >> 1), SubWrap(av[0] >> 1, av[4] >> 1));
    Transpose8x8(av);
    // (y0 + y4 + 1) >> 1 and (y0 - y4 + 1) >> 1 without the 17th bit
    const Vec8 vNot4 = ~av[4];
    const Vec8 vSum = SubWrap(av[0] | av[4], (av[0] ^ av[4]) >> 1);
    const Vec8 vDiff = AddWrap(AddWrap(av[0] & vNot4, (av[0] ^ vNot4) >> 1), Vec8{} + 1);
    InverseLines<false>(av, vSum, vDiff);
    DescalePair(av[1], av[0]);
    DescalePair(av[2], av[3]);
    DescalePair(av[5], av[4]);
    DescalePair(av[6], av[7]);
}

// ---- Small coefficients: the 15 of the descaling is in the sums already, and limits are left to the samples' own.

MP4V_VEC void DescaleSmallPair(Vec8& vHigh, Vec8& vLow) {
    const Vec8 vCarry = (Vec8)(vLow < 15);  // -1 when the value without the 15 is negative
    vHigh = (vHigh - vCarry) >> 5;
    vLow = vLow >> 5;
}

MP4V_VEC void DescaleSmall(Vec8 (&av)[8]) {
    DescaleSmallPair(av[1], av[0]);
    DescaleSmallPair(av[2], av[3]);
    DescaleSmallPair(av[5], av[4]);
    DescaleSmallPair(av[6], av[7]);
}

MP4V_VEC void InverseTransformSmall(Vec8 (&av)[8]) {
    Transpose8x8(av);
    InverseLines<true>(av, (av[0] >> 1) + (av[4] >> 1), (av[0] >> 1) - (av[4] >> 1));  // multiples of 16
    Transpose8x8(av);
    const Vec8 vBiased = av[0] + 31;  // 2 * 15 and the rounding
    InverseLines<true>(av, (vBiased + av[4]) >> 1, (vBiased - av[4]) >> 1);
    DescaleSmall(av);
}

// Nonzero are the first four columns of the first four rows; two rows each in v01 and v23.
MP4V_VEC void InverseTransformSmall4x4(Vec8 (&av)[8], Vec8 v01, Vec8 v23) {
    const Vec8 vEven = ZipLow16(v01, v23);
    const Vec8 vOdd = ZipHigh16(v01, v23);
    const Vec8 vLines01 = ZipLow16(vEven, vOdd);
    const Vec8 vLines23 = ZipHigh16(vEven, vOdd);
    av[0] = vLines01, av[1] = ZipHigh64(vLines01, vLines01);
    av[2] = vLines23, av[3] = ZipHigh64(vLines23, vLines23);
    InverseHalfLines<true>(av, av[0] >> 1);  // the upper lanes of no use
    const Vec8 v01Low = ZipLow16(av[0], av[1]), v23Low = ZipLow16(av[2], av[3]);
    const Vec8 v45Low = ZipLow16(av[4], av[5]), v67Low = ZipLow16(av[6], av[7]);
    const Vec8 vLeft01 = ZipLow32(v01Low, v23Low), vLeft23 = ZipHigh32(v01Low, v23Low);
    const Vec8 vRight01 = ZipLow32(v45Low, v67Low), vRight23 = ZipHigh32(v45Low, v67Low);
    av[0] = ZipLow64(vLeft01, vRight01), av[1] = ZipHigh64(vLeft01, vRight01);
    av[2] = ZipLow64(vLeft23, vRight23), av[3] = ZipHigh64(vLeft23, vRight23);
    InverseHalfLines<true>(av, (av[0] + 31) >> 1);
    DescaleSmall(av);
}

}  // namespace transform

#endif  // MP4VDEC_SOURCE_C_TRANSFORM_H_
