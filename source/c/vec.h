// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

// Eight 16-bit or sixteen 8-bit samples at a time.
//
// The types are compiler vectors: +, -, *, comparisons and the rest work lane by lane. The helpers below are what plain
// operators cannot say well; each has an SSE2, a 64-bit Arm NEON, a WebAssembly SIMD and a plain body with the same
// results. Lane i is element i in memory, whatever the byte order. Loads and stores take any alignment.
//
// Signed lanes must not overflow; where a sum wraps on purpose it is formed in unsigned lanes (AddWrap, SubWrap).
#ifndef MP4VDEC_SOURCE_C_VEC_H_
#define MP4VDEC_SOURCE_C_VEC_H_

#include <stddef.h>
#include <stdint.h>
#include <string.h>

// MP4VDEC_PLAIN_VEC selects the plain bodies everywhere, so that they can be tested on any machine.
#if !defined(MP4VDEC_PLAIN_VEC) && defined(__SSE2__)
#include <emmintrin.h>
#define MP4V_VEC_SSE2 1
#elif !defined(MP4VDEC_PLAIN_VEC) && defined(__aarch64__) && __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
#include <arm_neon.h>
#define MP4V_VEC_NEON 1
#elif !defined(MP4VDEC_PLAIN_VEC) && defined(__wasm_simd128__)
#include <wasm_simd128.h>
#define MP4V_VEC_WASM 1
#endif

#ifdef MP4VDEC_COUNT_ONCE  // as in bsreader.h
#define MP4V_VEC inline
#define MP4V_VEC_MEMBER inline
#else
#define MP4V_VEC static inline __attribute__((always_inline))
#define MP4V_VEC_MEMBER inline __attribute__((always_inline))
#endif

typedef int16_t Vec8 __attribute__((vector_size(16)));
typedef uint16_t Vec8u __attribute__((vector_size(16)));
typedef uint8_t Bytes16 __attribute__((vector_size(16)));

// ---- Addresses

// Hides where an offset comes from: compilers would otherwise form each row's address from the last one's by an
// addition of its own, where the access itself adds an offset for nothing.
MP4V_VEC ptrdiff_t Opaque(ptrdiff_t offset) {
    __asm__("" : "+r"(offset));
    return offset;
}

// Whether what loads or stores more than 16 bytes adds an offset as well. Arm's register pairs do not.
#if MP4V_VEC_NEON
constexpr bool kPairsAddOffsets = false;
#else
constexpr bool kPairsAddOffsets = true;
#endif

// Offsets of four rows that follow one another.
struct RowOffsets {
    ptrdiff_t one, two, three, four;

    explicit MP4V_VEC_MEMBER RowOffsets(ptrdiff_t pitch)
        : one(pitch), two(Opaque(2 * pitch)), three(Opaque(two + pitch)), four(Opaque(2 * two)) {}
    MP4V_VEC_MEMBER ptrdiff_t operator[](int y) const { return y == 0 ? 0 : y == 1 ? one : y == 2 ? two : three; }
};

// ---- Loads and stores

MP4V_VEC Vec8 LoadVec(const int16_t* ps16) {
    Vec8 v;
    memcpy(&v, ps16, 16);
    return v;
}

MP4V_VEC void StoreVec(int16_t* ps16, Vec8 v) {
    memcpy(ps16, &v, 16);
}

// Clears kCount vectors. One by one, because compilers make loops of it that take longer.
template <int kCount>
MP4V_VEC void ClearVecs(int16_t* ps16) {
    StoreVec(ps16, Vec8{});
    if constexpr (kCount > 1) ClearVecs<kCount - 1>(ps16 + 8);
}

MP4V_VEC Bytes16 LoadBytes16(const uint8_t* pu8) {
#if MP4V_VEC_NEON
    return (Bytes16)vld1q_u8(pu8);
#else
    Bytes16 v;
    memcpy(&v, pu8, 16);
    return v;
#endif
}

MP4V_VEC void StoreBytes16(uint8_t* pu8, Bytes16 v) {
#if MP4V_VEC_NEON
    vst1q_u8(pu8, (uint8x16_t)v);
#else
    memcpy(pu8, &v, 16);
#endif
}

// Bytes 8..15 are 0.
MP4V_VEC Bytes16 LoadBytes8(const uint8_t* pu8) {
#if MP4V_VEC_SSE2
    return (Bytes16)_mm_loadl_epi64(reinterpret_cast<const __m128i*>(pu8));
#elif MP4V_VEC_NEON
    return (Bytes16)vcombine_u8(vld1_u8(pu8), vcreate_u8(0));
#elif MP4V_VEC_WASM
    return (Bytes16)wasm_v128_load64_zero(pu8);
#else
    Bytes16 v = {};
    memcpy(&v, pu8, 8);
    return v;
#endif
}

// Stores bytes 0..7.
MP4V_VEC void StoreBytes8(uint8_t* pu8, Bytes16 v) {
#if MP4V_VEC_SSE2
    _mm_storel_epi64(reinterpret_cast<__m128i*>(pu8), (__m128i)v);
#elif MP4V_VEC_NEON
    vst1_u8(pu8, vget_low_u8((uint8x16_t)v));
#elif MP4V_VEC_WASM
    wasm_v128_store64_lane(pu8, (v128_t)v, 0);
#else
    memcpy(pu8, &v, 8);
#endif
}

// Two places that are loaded into, and stored from, the halves of a vector as easily as one place from a whole one.
#if MP4V_VEC_SSE2 || MP4V_VEC_WASM
constexpr bool kHalvesAreEasy = true;
#else
constexpr bool kHalvesAreEasy = false;
#endif

MP4V_VEC Bytes16 LoadHalves(const uint8_t* pu8Low, const uint8_t* pu8High) {
#if MP4V_VEC_SSE2
    const __m128 v = _mm_castsi128_ps((__m128i)LoadBytes8(pu8Low));
    return (Bytes16)_mm_castps_si128(_mm_loadh_pi(v, reinterpret_cast<const __m64*>(pu8High)));
#elif MP4V_VEC_WASM
    return (Bytes16)wasm_v128_load64_lane(pu8High, (v128_t)LoadBytes8(pu8Low), 1);
#else
    const Bytes16 vLow = LoadBytes8(pu8Low), vHigh = LoadBytes8(pu8High);
    return __builtin_shufflevector(vLow, vHigh, 0, 1, 2, 3, 4, 5, 6, 7, 16, 17, 18, 19, 20, 21, 22, 23);
#endif
}

MP4V_VEC void StoreHalves(uint8_t* pu8Low, uint8_t* pu8High, Bytes16 v) {
    StoreBytes8(pu8Low, v);
#if MP4V_VEC_SSE2
    _mm_storeh_pi(reinterpret_cast<__m64*>(pu8High), _mm_castsi128_ps((__m128i)v));
#elif MP4V_VEC_WASM
    wasm_v128_store64_lane(pu8High, (v128_t)v, 1);
#else
    StoreBytes8(pu8High, __builtin_shufflevector(v, v, 8, 9, 10, 11, 12, 13, 14, 15, 8, 9, 10, 11, 12, 13, 14, 15));
#endif
}

// ---- Between bytes and 16-bit lanes

// Bytes kFirst .. kFirst + 7, kFirst <= 8, widened.
template <int kFirst>
MP4V_VEC Vec8 Widen(Bytes16 v) {
#if MP4V_VEC_SSE2
    const __m128i vFrom = kFirst ? _mm_srli_si128((__m128i)v, kFirst) : (__m128i)v;
    return (Vec8)_mm_unpacklo_epi8(vFrom, _mm_setzero_si128());
#elif MP4V_VEC_NEON
    const uint8x16_t vFrom = kFirst ? vextq_u8((uint8x16_t)v, (uint8x16_t)v, kFirst) : (uint8x16_t)v;
    return (Vec8)vmovl_u8(vget_low_u8(vFrom));
#elif MP4V_VEC_WASM
    if (kFirst == 8) return (Vec8)wasm_u16x8_extend_high_u8x16((v128_t)v);
    constexpr int k = kFirst;
    const Bytes16 vFrom = k ? (Bytes16)__builtin_shufflevector(v, v, k, k + 1, k + 2, k + 3, k + 4, k + 5, k + 6, k + 7,
                                                               0, 0, 0, 0, 0, 0, 0, 0)
                            : v;
    return (Vec8)wasm_u16x8_extend_low_u8x16((v128_t)vFrom);
#else
    Vec8 vWide = {};
    for (int i = 0; i < 8; i++) vWide[i] = v[kFirst + i];
    return vWide;
#endif
}

MP4V_VEC Vec8 LoadU8(const uint8_t* pu8) {
    return Widen<0>(LoadBytes8(pu8));
}

// Clips to [0, 255]: bytes 0..7 from vLow, 8..15 from vHigh.
MP4V_VEC Bytes16 NarrowClip(Vec8 vLow, Vec8 vHigh) {
#if MP4V_VEC_SSE2
    return (Bytes16)_mm_packus_epi16((__m128i)vLow, (__m128i)vHigh);
#elif MP4V_VEC_NEON
    return (Bytes16)vcombine_u8(vqmovun_s16((int16x8_t)vLow), vqmovun_s16((int16x8_t)vHigh));
#elif MP4V_VEC_WASM
    return (Bytes16)wasm_u8x16_narrow_i16x8((v128_t)vLow, (v128_t)vHigh);
#else
    Bytes16 v = {};
    for (int i = 0; i < 8; i++) {
        v[i] = (uint8_t)(vLow[i] < 0 ? 0 : vLow[i] > 255 ? 255 : vLow[i]);
        v[8 + i] = (uint8_t)(vHigh[i] < 0 ? 0 : vHigh[i] > 255 ? 255 : vHigh[i]);
    }
    return v;
#endif
}

MP4V_VEC void StoreClipU8(uint8_t* pu8, Vec8 v) {
    StoreBytes8(pu8, NarrowClip(v, v));
}

// The same for two vectors in two places.
MP4V_VEC void StoreClipU8(uint8_t* pu8A, Vec8 a, uint8_t* pu8B, Vec8 b) {
#if MP4V_VEC_SSE2
    const __m128i v = (__m128i)NarrowClip(a, b);
    _mm_storel_epi64(reinterpret_cast<__m128i*>(pu8A), v);
    _mm_storeh_pd(reinterpret_cast<double*>(pu8B), _mm_castsi128_pd(v));
#elif MP4V_VEC_WASM
    StoreHalves(pu8A, pu8B, NarrowClip(a, b));
#else
    StoreClipU8(pu8A, a);
    StoreClipU8(pu8B, b);
#endif
}

// ---- Arithmetic

MP4V_VEC Vec8 AddWrap(Vec8 a, Vec8 b) {
    return (Vec8)((Vec8u)a + (Vec8u)b);
}
MP4V_VEC Vec8 SubWrap(Vec8 a, Vec8 b) {
    return (Vec8)((Vec8u)a - (Vec8u)b);
}

// Sums limited to [-32768, 32767].
MP4V_VEC Vec8 AddSaturated(Vec8 a, Vec8 b) {
#if MP4V_VEC_SSE2
    return (Vec8)_mm_adds_epi16((__m128i)a, (__m128i)b);
#elif MP4V_VEC_NEON
    return (Vec8)vqaddq_s16((int16x8_t)a, (int16x8_t)b);
#elif MP4V_VEC_WASM
    return (Vec8)wasm_i16x8_add_sat((v128_t)a, (v128_t)b);
#else
    Vec8 v = {};
    for (int i = 0; i < 8; i++) {
        const int32_t s32Sum = a[i] + b[i];
        v[i] = (int16_t)(s32Sum < INT16_MIN ? INT16_MIN : s32Sum > INT16_MAX ? INT16_MAX : s32Sum);
    }
    return v;
#endif
}

MP4V_VEC Bytes16 AddSaturatedU8(Bytes16 a, Bytes16 b) {
#if MP4V_VEC_SSE2
    return (Bytes16)_mm_adds_epu8((__m128i)a, (__m128i)b);
#elif MP4V_VEC_NEON
    return (Bytes16)vqaddq_u8((uint8x16_t)a, (uint8x16_t)b);
#elif MP4V_VEC_WASM
    return (Bytes16)wasm_u8x16_add_sat((v128_t)a, (v128_t)b);
#else
    const Bytes16 vSum = a + b;
    return vSum | (Bytes16)(vSum < a);
#endif
}

MP4V_VEC Bytes16 SubSaturatedU8(Bytes16 a, Bytes16 b) {
#if MP4V_VEC_SSE2
    return (Bytes16)_mm_subs_epu8((__m128i)a, (__m128i)b);
#elif MP4V_VEC_NEON
    return (Bytes16)vqsubq_u8((uint8x16_t)a, (uint8x16_t)b);
#elif MP4V_VEC_WASM
    return (Bytes16)wasm_u8x16_sub_sat((v128_t)a, (v128_t)b);
#else
    return (a - b) & (Bytes16)(a > b);
#endif
}

// v plus eight samples. The sums must fit.
MP4V_VEC Vec8 AddU8(Vec8 v, const uint8_t* pu8) {
#if MP4V_VEC_NEON
    return (Vec8)vaddw_u8((uint16x8_t)v, vld1_u8(pu8));
#else
    return v + LoadU8(pu8);
#endif
}

// Sums of eight samples each.
MP4V_VEC Vec8 SumU8(const uint8_t* pu8A, const uint8_t* pu8B) {
#if MP4V_VEC_NEON
    return (Vec8)vaddl_u8(vld1_u8(pu8A), vld1_u8(pu8B));
#else
    return LoadU8(pu8A) + LoadU8(pu8B);
#endif
}

// v >> kShift into bytes 0..7, for results of [0, 255].
template <int kShift>
MP4V_VEC Bytes16 NarrowShifted(Vec8 v) {
#if MP4V_VEC_NEON
    return (Bytes16)vcombine_u8(vshrn_n_u16((uint16x8_t)v, kShift), vcreate_u8(0));
#else
    return NarrowClip(v >> kShift, v >> kShift);
#endif
}

// -1 where a is below k, else 0.
MP4V_VEC Vec8 IsBelow(Vec8 a, int16_t k) {
#if MP4V_VEC_SSE2
    // Hidden, because the comparison would be turned into one that takes two instructions.
    __m128i v = _mm_set1_epi16(k);
    __asm__("" : "+x"(v));
    return (Vec8)_mm_cmpgt_epi16(v, (__m128i)a);
#else
    return (Vec8)(a < k);
#endif
}

MP4V_VEC Vec8 Min(Vec8 a, Vec8 b) {
#if MP4V_VEC_SSE2
    return (Vec8)_mm_min_epi16((__m128i)a, (__m128i)b);
#elif MP4V_VEC_NEON
    return (Vec8)vminq_s16((int16x8_t)a, (int16x8_t)b);
#elif MP4V_VEC_WASM
    return (Vec8)wasm_i16x8_min((v128_t)a, (v128_t)b);
#else
    const Vec8 vLess = a < b;
    return (a & vLess) | (b & ~vLess);
#endif
}

MP4V_VEC Vec8 Max(Vec8 a, Vec8 b) {
#if MP4V_VEC_SSE2
    return (Vec8)_mm_max_epi16((__m128i)a, (__m128i)b);
#elif MP4V_VEC_NEON
    return (Vec8)vmaxq_s16((int16x8_t)a, (int16x8_t)b);
#elif MP4V_VEC_WASM
    return (Vec8)wasm_i16x8_max((v128_t)a, (v128_t)b);
#else
    const Vec8 vLess = a < b;
    return (b & vLess) | (a & ~vLess);
#endif
}

// v >> kShift, clipped to [0, 255]: bytes 0..7 from vLow, 8..15 from vHigh.
template <int kShift>
MP4V_VEC Bytes16 NarrowClipShifted(Vec8 vLow, Vec8 vHigh) {
#if MP4V_VEC_NEON
    return (Bytes16)vqshrun_high_n_s16(vqshrun_n_s16((int16x8_t)vLow, kShift), (int16x8_t)vHigh, kShift);
#else
    return NarrowClip(vLow >> kShift, vHigh >> kShift);
#endif
}

// v >> kShift, clipped to [0, 255], into bytes 0..7.
template <int kShift>
MP4V_VEC Bytes16 NarrowClipShifted(Vec8 v) {
#if MP4V_VEC_NEON
    return (Bytes16)vcombine_u8(vqshrun_n_s16((int16x8_t)v, kShift), vcreate_u8(0));
#else
    return NarrowClip(v >> kShift, v >> kShift);
#endif
}

// |a|, of -32768 that is 32767.
MP4V_VEC Vec8 Magnitude(Vec8 a) {
#if MP4V_VEC_SSE2
    return (Vec8)_mm_max_epi16((__m128i)a, _mm_subs_epi16(_mm_setzero_si128(), (__m128i)a));
#elif MP4V_VEC_NEON
    return (Vec8)vqabsq_s16((int16x8_t)a);
#elif MP4V_VEC_WASM
    return Max(a, (Vec8)wasm_i16x8_sub_sat((v128_t)Vec8{}, (v128_t)a));
#else
    const Vec8 vSign = a >> 15;
    const Vec8 v = SubWrap(a ^ vSign, vSign);
    return v ^ (v >> 15);
#endif
}

#if MP4V_VEC_WASM
MP4V_VEC uint32_t SumLanes32(v128_t v) {
    v = wasm_i32x4_add(v, wasm_i32x4_shuffle(v, v, 2, 3, 0, 1));
    v = wasm_i32x4_add(v, wasm_i32x4_shuffle(v, v, 1, 0, 3, 2));
    return (uint32_t)wasm_i32x4_extract_lane(v, 0);
}
#endif

// Of lanes of [0, 32767].
MP4V_VEC uint32_t SumLanes(Vec8 a) {
#if MP4V_VEC_SSE2
    __m128i v = _mm_madd_epi16((__m128i)a, _mm_set1_epi16(1));
    v = _mm_add_epi32(v, _mm_shuffle_epi32(v, 0x4E));
    v = _mm_add_epi32(v, _mm_shuffle_epi32(v, 0xB1));
    return (uint32_t)_mm_cvtsi128_si32(v);
#elif MP4V_VEC_NEON
    return vaddlvq_u16((uint16x8_t)a);
#elif MP4V_VEC_WASM
    return SumLanes32(wasm_i32x4_dot_i16x8((v128_t)a, wasm_i16x8_splat(1)));
#else
    uint32_t u32Sum = 0;
    for (int i = 0; i < 8; i++) u32Sum += (uint32_t)a[i];
    return u32Sum;
#endif
}

// Sum of the squares of the lanes of all vectors, which must fit 31 bits.
template <int kCount>
MP4V_VEC uint32_t SumSquares(const Vec8 (&av)[kCount]) {
#if MP4V_VEC_SSE2
    __m128i v = _mm_madd_epi16((__m128i)av[0], (__m128i)av[0]);
    for (int i = 1; i < kCount; i++) v = _mm_add_epi32(v, _mm_madd_epi16((__m128i)av[i], (__m128i)av[i]));
    v = _mm_add_epi32(v, _mm_shuffle_epi32(v, 0x4E));
    v = _mm_add_epi32(v, _mm_shuffle_epi32(v, 0xB1));
    return (uint32_t)_mm_cvtsi128_si32(v);
#elif MP4V_VEC_NEON
    int32x4_t v = vdupq_n_s32(0);
    for (int i = 0; i < kCount; i++) {
        v = vmlal_s16(v, vget_low_s16((int16x8_t)av[i]), vget_low_s16((int16x8_t)av[i]));
        v = vmlal_high_s16(v, (int16x8_t)av[i], (int16x8_t)av[i]);
    }
    return (uint32_t)vaddvq_s32(v);
#elif MP4V_VEC_WASM
    v128_t v = wasm_i32x4_dot_i16x8((v128_t)av[0], (v128_t)av[0]);
    for (int i = 1; i < kCount; i++) v = wasm_i32x4_add(v, wasm_i32x4_dot_i16x8((v128_t)av[i], (v128_t)av[i]));
    return SumLanes32(v);
#else
    uint32_t u32Sum = 0;
    for (int i = 0; i < kCount; i++)
        for (int j = 0; j < 8; j++) u32Sum += (uint32_t)(av[i][j] * av[i][j]);
    return u32Sum;
#endif
}

// The largest of lanes of [0, 32767].
MP4V_VEC uint32_t MaxLane(Vec8 a) {
#if MP4V_VEC_SSE2
    __m128i v = _mm_max_epi16((__m128i)a, _mm_shuffle_epi32((__m128i)a, 0x4E));
    v = _mm_max_epi16(v, _mm_shufflelo_epi16(v, 0x4E));
    v = _mm_max_epi16(v, _mm_shufflelo_epi16(v, 0xB1));
    return (uint32_t)_mm_extract_epi16(v, 0);
#elif MP4V_VEC_NEON
    return vmaxvq_u16((uint16x8_t)a);
#elif MP4V_VEC_WASM
    Vec8 v = Max(a, __builtin_shufflevector(a, a, 4, 5, 6, 7, 0, 1, 2, 3));
    v = Max(v, __builtin_shufflevector(v, v, 2, 3, 0, 1, 6, 7, 4, 5));
    v = Max(v, __builtin_shufflevector(v, v, 1, 0, 3, 2, 5, 4, 7, 6));
    return (uint32_t)v[0];
#else
    int16_t s16Max = 0;
    for (int i = 0; i < 8; i++) s16Max = a[i] > s16Max ? a[i] : s16Max;
    return (uint32_t)s16Max;
#endif
}

// Some lane is not 0.
MP4V_VEC bool AnyLane(Vec8 a) {
#if MP4V_VEC_SSE2
    return _mm_movemask_epi8(_mm_cmpeq_epi8((__m128i)a, _mm_setzero_si128())) != 0xFFFF;
#elif MP4V_VEC_NEON
    return vmaxvq_u32((uint32x4_t)a) != 0;
#elif MP4V_VEC_WASM
    return wasm_v128_any_true((v128_t)a);
#else
    uint64_t au64[2];
    memcpy(au64, &a, 16);
    return (au64[0] | au64[1]) != 0;
#endif
}

// The high 16 bits of the unsigned products.
MP4V_VEC Vec8u MulHigh(Vec8u a, Vec8u b) {
#if MP4V_VEC_SSE2
    return (Vec8u)_mm_mulhi_epu16((__m128i)a, (__m128i)b);
#elif MP4V_VEC_NEON
    const uint32x4_t vLow = vmull_u16(vget_low_u16((uint16x8_t)a), vget_low_u16((uint16x8_t)b));
    const uint32x4_t vHigh = vmull_high_u16((uint16x8_t)a, (uint16x8_t)b);
    return (Vec8u)vuzp2q_u16(vreinterpretq_u16_u32(vLow), vreinterpretq_u16_u32(vHigh));
#elif MP4V_VEC_WASM
    const Vec8u vLow = (Vec8u)wasm_u32x4_extmul_low_u16x8((v128_t)a, (v128_t)b);
    const Vec8u vHigh = (Vec8u)wasm_u32x4_extmul_high_u16x8((v128_t)a, (v128_t)b);
    return __builtin_shufflevector(vLow, vHigh, 1, 3, 5, 7, 9, 11, 13, 15);
#else
    Vec8u v = {};
    for (int i = 0; i < 8; i++) v[i] = (uint16_t)((uint32_t)a[i] * b[i] >> 16);
    return v;
#endif
}

#if MP4V_VEC_WASM
// a * kA + b * kB of the low (high) lanes, in 32 bits.
MP4V_VEC v128_t MulAddLow(Vec8 a, Vec8 b, v128_t vFactors) {
    return wasm_i32x4_dot_i16x8((v128_t)__builtin_shufflevector(a, b, 0, 8, 1, 9, 2, 10, 3, 11), vFactors);
}
MP4V_VEC v128_t MulAddHigh(Vec8 a, Vec8 b, v128_t vFactors) {
    return wasm_i32x4_dot_i16x8((v128_t)__builtin_shufflevector(a, b, 4, 12, 5, 13, 6, 14, 7, 15), vFactors);
}
#endif

// a * kA + b * kB, limited to 16 bits. The exact sum must fit 32 bits.
MP4V_VEC Vec8 MulAddSaturated(Vec8 a, int16_t s16A, Vec8 b, int16_t s16B) {
#if MP4V_VEC_SSE2
    const __m128i vFactors = _mm_set1_epi32((int32_t)((uint32_t)(uint16_t)s16B << 16 | (uint16_t)s16A));
    const __m128i vLow = _mm_madd_epi16(_mm_unpacklo_epi16((__m128i)a, (__m128i)b), vFactors);
    const __m128i vHigh = _mm_madd_epi16(_mm_unpackhi_epi16((__m128i)a, (__m128i)b), vFactors);
    return (Vec8)_mm_packs_epi32(vLow, vHigh);
#elif MP4V_VEC_NEON
    const int16x8_t vA = (int16x8_t)a, vB = (int16x8_t)b;
    const int32x4_t vLow = vmlal_n_s16(vmull_n_s16(vget_low_s16(vA), s16A), vget_low_s16(vB), s16B);
    const int32x4_t vHigh = vmlal_high_n_s16(vmull_high_n_s16(vA, s16A), vB, s16B);
    return (Vec8)vqmovn_high_s32(vqmovn_s32(vLow), vHigh);
#elif MP4V_VEC_WASM
    const v128_t vFactors = wasm_i32x4_splat((int32_t)((uint32_t)(uint16_t)s16B << 16 | (uint16_t)s16A));
    return (Vec8)wasm_i16x8_narrow_i32x4(MulAddLow(a, b, vFactors), MulAddHigh(a, b, vFactors));
#else
    Vec8 v = {};
    for (int i = 0; i < 8; i++) {
        const int32_t s32Sum = a[i] * s16A + b[i] * s16B;
        v[i] = (int16_t)(s32Sum < INT16_MIN ? INT16_MIN : s32Sum > INT16_MAX ? INT16_MAX : s32Sum);
    }
    return v;
#endif
}

// Multiplication by constants of 16 bits, all of which stand in one register where an instruction can take its factor
// from there.
template <int32_t... kFactors>
struct Factors {
#if MP4V_VEC_NEON
    int16x8_t v;

    // Hidden, because it would be taken apart into a register for each.
    MP4V_VEC_MEMBER Factors() : v(int16x8_t{kFactors...}) {
        __asm__("" : "+x"(v));
    }

    template <int32_t kFactor>
    static constexpr int Lane() {
        constexpr int32_t akFactors[] = {kFactors...};
        int lane = 0;
        while (akFactors[lane] != kFactor) lane++;
        return lane;
    }
#endif

    // The low 16 bits of (a * kA + b * kB + 2^14) >> 15. The sum must fit 32 bits. kFits: the result is known to fit 16
    // bits. kA is above 0 and of the factors, as is kB or -kB.
    template <int32_t kA, int32_t kB, bool kFits>
    MP4V_VEC_MEMBER Vec8 MulAddRound15(Vec8 a, Vec8 b) const {
#if MP4V_VEC_SSE2
        const __m128i vFactors = _mm_set1_epi32((int32_t)((uint32_t)(uint16_t)kB << 16 | (uint16_t)kA));
        const __m128i vHalf = _mm_set1_epi32(1 << 14);
        __m128i vLow = _mm_madd_epi16(_mm_unpacklo_epi16((__m128i)a, (__m128i)b), vFactors);
        __m128i vHigh = _mm_madd_epi16(_mm_unpackhi_epi16((__m128i)a, (__m128i)b), vFactors);
        vLow = _mm_add_epi32(vLow, vHalf);
        vHigh = _mm_add_epi32(vHigh, vHalf);
        if (kFits) return (Vec8)_mm_packs_epi32(_mm_srai_epi32(vLow, 15), _mm_srai_epi32(vHigh, 15));
        // Pushing the top bit out first makes the saturating pack wrap.
        vLow = _mm_srai_epi32(_mm_slli_epi32(vLow, 1), 16);
        vHigh = _mm_srai_epi32(_mm_slli_epi32(vHigh, 1), 16);
        return (Vec8)_mm_packs_epi32(vLow, vHigh);
#elif MP4V_VEC_NEON
        const int16x8_t vA = (int16x8_t)a, vB = (int16x8_t)b;
        int32x4_t vLow = vmull_laneq_s16(vget_low_s16(vA), v, Lane<kA>());
        int32x4_t vHigh = vmull_high_laneq_s16(vA, v, Lane<kA>());
        if (kB < 0) {
            vLow = vmlsl_laneq_s16(vLow, vget_low_s16(vB), v, Lane < kB < 0 ? -kB : kB > ());
            vHigh = vmlsl_high_laneq_s16(vHigh, vB, v, Lane < kB < 0 ? -kB : kB > ());
        } else {
            vLow = vmlal_laneq_s16(vLow, vget_low_s16(vB), v, Lane < kB < 0 ? -kB : kB > ());
            vHigh = vmlal_high_laneq_s16(vHigh, vB, v, Lane < kB < 0 ? -kB : kB > ());
        }
        return (Vec8)vrshrn_high_n_s32(vrshrn_n_s32(vLow, 15), vHigh, 15);
#elif MP4V_VEC_WASM
        const v128_t vFactors = wasm_i32x4_splat((int32_t)((uint32_t)(uint16_t)kB << 16 | (uint16_t)kA));
        const v128_t vHalf = wasm_i32x4_splat(1 << 14);
        v128_t vLow = wasm_i32x4_add(MulAddLow(a, b, vFactors), vHalf);
        v128_t vHigh = wasm_i32x4_add(MulAddHigh(a, b, vFactors), vHalf);
        if (kFits) return (Vec8)wasm_i16x8_narrow_i32x4(wasm_i32x4_shr(vLow, 15), wasm_i32x4_shr(vHigh, 15));
        // Bits 15 to 30 of each sum.
        vLow = wasm_i32x4_shl(vLow, 1);
        vHigh = wasm_i32x4_shl(vHigh, 1);
        return __builtin_shufflevector((Vec8)vLow, (Vec8)vHigh, 1, 3, 5, 7, 9, 11, 13, 15);
#else
        Vec8 v = {};
        for (int i = 0; i < 8; i++) v[i] = (int16_t)((a[i] * kA + b[i] * kB + (1 << 14)) >> 15);
        return v;
#endif
    }

    // The same in lanes 0..3, where the result fits; the others are of no use.
    template <int32_t kA, int32_t kB>
    MP4V_VEC_MEMBER Vec8 MulAddRound15Low(Vec8 a, Vec8 b) const {
#if MP4V_VEC_SSE2
        const __m128i vFactors = _mm_set1_epi32((int32_t)((uint32_t)(uint16_t)kB << 16 | (uint16_t)kA));
        const __m128i vSum = _mm_madd_epi16(_mm_unpacklo_epi16((__m128i)a, (__m128i)b), vFactors);
        const __m128i vLow = _mm_srai_epi32(_mm_add_epi32(vSum, _mm_set1_epi32(1 << 14)), 15);
        return (Vec8)_mm_packs_epi32(vLow, vLow);
#elif MP4V_VEC_NEON
        int32x4_t vLow = vmull_laneq_s16(vget_low_s16((int16x8_t)a), v, Lane<kA>());
        const int16x4_t vB = vget_low_s16((int16x8_t)b);
        vLow = kB < 0 ? vmlsl_laneq_s16(vLow, vB, v, Lane < kB < 0 ? -kB : kB > ())
                      : vmlal_laneq_s16(vLow, vB, v, Lane < kB < 0 ? -kB : kB > ());
        return (Vec8)vcombine_s16(vrshrn_n_s32(vLow, 15), vcreate_s16(0));
#elif MP4V_VEC_WASM
        const v128_t vFactors = wasm_i32x4_splat((int32_t)((uint32_t)(uint16_t)kB << 16 | (uint16_t)kA));
        const v128_t vSum = wasm_i32x4_add(MulAddLow(a, b, vFactors), wasm_i32x4_splat(1 << 14));
        const v128_t vLow = wasm_i32x4_shr(vSum, 15);
        return (Vec8)wasm_i16x8_narrow_i32x4(vLow, vLow);
#else
        return MulAddRound15<kA, kB, true>(a, b);
#endif
    }

    // (a * kA + 2^14) >> 15, |kA| < 2^15. kA is of the factors.
    template <int32_t kA>
    MP4V_VEC_MEMBER Vec8 MulRound15(Vec8 a) const {
#if MP4V_VEC_SSE2
        // The upper half of a * 2 * kA, and its upmost bit below. A factor of 17 bits wraps, which is made up for by a.
        const __m128i vFactor = _mm_set1_epi16((int16_t)(uint16_t)(2 * kA));
        const __m128i vHigh = _mm_mulhi_epi16((__m128i)a, vFactor);
        const __m128i vRounded = _mm_add_epi16(vHigh, _mm_srli_epi16(_mm_mullo_epi16((__m128i)a, vFactor), 15));
        if (2 * kA > INT16_MAX) return (Vec8)_mm_add_epi16(vRounded, (__m128i)a);
        if (2 * kA < INT16_MIN) return (Vec8)_mm_sub_epi16(vRounded, (__m128i)a);
        return (Vec8)vRounded;
#elif MP4V_VEC_NEON
        return (Vec8)vqrdmulhq_laneq_s16((int16x8_t)a, v, Lane<kA>());
#elif MP4V_VEC_WASM
        return (Vec8)wasm_i16x8_q15mulr_sat((v128_t)a, wasm_i16x8_splat(kA));
#else
        Vec8 v = {};
        for (int i = 0; i < 8; i++) v[i] = (int16_t)((a[i] * kA + (1 << 14)) >> 15);
        return v;
#endif
    }

    // MulRound15 of a by kA and kB in lanes 0..3; the others are of no use.
    template <int32_t kA, int32_t kB>
    MP4V_VEC_MEMBER void MulRound15Low(Vec8 a, Vec8& vByA, Vec8& vByB) const {
#if MP4V_VEC_SSE2
        static_assert(kA >= 1 << 14 && kB < 1 << 14 && kB >= -(1 << 14), "twice kA wraps, twice kB does not");
        constexpr int16_t s16A = (int16_t)(uint16_t)(2 * kA), s16B = (int16_t)(2 * kB);
        const __m128i vFactors = (__m128i)(Vec8){s16A, s16A, s16A, s16A, s16B, s16B, s16B, s16B};
        const __m128i vTwice = _mm_shuffle_epi32((__m128i)a, 0x44);
        const __m128i vLow = _mm_srli_epi16(_mm_mullo_epi16(vTwice, vFactors), 15);
        const __m128i v = _mm_add_epi16(_mm_mulhi_epi16(vTwice, vFactors), vLow);
        vByA = (Vec8)_mm_add_epi16(v, (__m128i)a);
        vByB = (Vec8)_mm_shuffle_epi32(v, 0xEE);
#else
        vByA = MulRound15<kA>(a);
        vByB = MulRound15<kB>(a);
#endif
    }

    // MulRound15 of a and b by kA in lanes 0..3; the others are of no use.
    template <int32_t kA>
    MP4V_VEC_MEMBER void MulRound15Low(Vec8& a, Vec8& b) const {
#if MP4V_VEC_SSE2
        a = MulRound15<kA>((Vec8)_mm_unpacklo_epi64((__m128i)a, (__m128i)b));
        b = (Vec8)_mm_shuffle_epi32((__m128i)a, 0xEE);
#else
        a = MulRound15<kA>(a);
        b = MulRound15<kA>(b);
#endif
    }
};

// (a + b + 1) >> 1
MP4V_VEC Bytes16 AverageUp(Bytes16 a, Bytes16 b) {
#if MP4V_VEC_SSE2
    return (Bytes16)_mm_avg_epu8((__m128i)a, (__m128i)b);
#elif MP4V_VEC_NEON
    return (Bytes16)vrhaddq_u8((uint8x16_t)a, (uint8x16_t)b);
#elif MP4V_VEC_WASM
    return (Bytes16)wasm_u8x16_avgr((v128_t)a, (v128_t)b);
#else
    return (a | b) - ((a ^ b) >> 1);
#endif
}

// (a + b + 1 - kDown) >> 1
template <bool kDown>
MP4V_VEC Bytes16 Average(Bytes16 a, Bytes16 b) {
    if (!kDown) return AverageUp(a, b);
#if MP4V_VEC_NEON
    return (Bytes16)vhaddq_u8((uint8x16_t)a, (uint8x16_t)b);
#else
    return ~AverageUp(~a, ~b);
#endif
}

// (a + b + 2 - kDown) >> 2 of sums of two samples, into bytes 0..7.
template <bool kDown>
MP4V_VEC Bytes16 MeanOfSums(Vec8 a, Vec8 b) {
#if MP4V_VEC_SSE2
    if (kDown) return NarrowShifted<1>((Vec8)_mm_avg_epu16((__m128i)a, (__m128i)b));
#elif MP4V_VEC_WASM
    if (kDown) return NarrowShifted<1>((Vec8)wasm_u16x8_avgr((v128_t)a, (v128_t)b));
#elif MP4V_VEC_NEON
    const uint16x8_t vA = (uint16x8_t)a, vB = (uint16x8_t)b;
    return (Bytes16)vcombine_u8(kDown ? vshrn_n_u16(vrhaddq_u16(vA, vB), 1) : vrshrn_n_u16(vaddq_u16(vA, vB), 2),
                                vcreate_u8(0));
#endif
    return NarrowShifted<2>(a + b + (int16_t)(2 - kDown));
}

// What 16 pairs of samples contribute to means of two pairs each: their sums, or their means, rounded up, and in the
// last bits whether those are inexact.
struct Pairs {
#if MP4V_VEC_NEON
    Vec8 vLow, vHigh;
#else
    Bytes16 vMean, vInexact;
#endif
};

MP4V_VEC Pairs PairsOf(Bytes16 a, Bytes16 b) {
#if MP4V_VEC_NEON
    const uint8x16_t vA = (uint8x16_t)a, vB = (uint8x16_t)b;
    return {(Vec8)vaddl_u8(vget_low_u8(vA), vget_low_u8(vB)), (Vec8)vaddl_high_u8(vA, vB)};
#else
    return {AverageUp(a, b), a ^ b};
#endif
}

// (sum of the pairs + 2 - kDown) >> 2
template <bool kDown>
MP4V_VEC Bytes16 MeanOfPairs(Pairs a, Pairs b) {
#if MP4V_VEC_NEON
    const uint16x8_t vA = (uint16x8_t)a.vHigh, vB = (uint16x8_t)b.vHigh;
    const uint8x8_t vLow = vget_low_u8((uint8x16_t)MeanOfSums<kDown>(a.vLow, b.vLow));
    return (Bytes16)(kDown ? vshrn_high_n_u16(vLow, vrhaddq_u16(vA, vB), 1)
                           : vrshrn_high_n_u16(vLow, vaddq_u16(vA, vB), 2));
#else
    // The mean of the means is too high by one, rounding up: where it is inexact, and so is one of them; rounding
    // down: where it is inexact, or both of them are.
    const Bytes16 vDiffer = a.vMean ^ b.vMean;
    const Bytes16 vErrs = kDown ? vDiffer | (a.vInexact & b.vInexact) : vDiffer & (a.vInexact | b.vInexact);
    return AverageUp(a.vMean, b.vMean) - (vErrs & 1);
#endif
}

// Lanes of [0, 2040] whose sum, in each half of the vector, is that of |a - b| over the half's bytes.
MP4V_VEC Vec8 SumsOfDiffs(Bytes16 a, Bytes16 b) {
#if MP4V_VEC_SSE2
    return (Vec8)_mm_sad_epu8((__m128i)a, (__m128i)b);
#elif MP4V_VEC_NEON
    return (Vec8)vpaddlq_u8(vabdq_u8((uint8x16_t)a, (uint8x16_t)b));
#elif MP4V_VEC_WASM
    return (Vec8)wasm_u16x8_extadd_pairwise_u8x16((v128_t)(SubSaturatedU8(a, b) | SubSaturatedU8(b, a)));
#else
    Vec8 v = {};
    for (int i = 0; i < 16; i++) v[i / 8 * 4] = (int16_t)(v[i / 8 * 4] + (a[i] > b[i] ? a[i] - b[i] : b[i] - a[i]));
    return v;
#endif
}

// All ones in the halves where the lanes' sum, of lanes made of SumsOfDiffs, is above 0.
MP4V_VEC Bytes16 HalvesAbove0(Vec8 v) {
#if MP4V_VEC_NEON
    return (Bytes16)vcgtzq_s64(vpaddlq_s32(vpaddlq_s16((int16x8_t)v)));
#elif MP4V_VEC_WASM
    const v128_t vPairs = wasm_i32x4_extadd_pairwise_i16x8((v128_t)v);
    const v128_t vSums = wasm_i32x4_add(vPairs, wasm_i32x4_shuffle(vPairs, vPairs, 1, 0, 3, 2));
    return (Bytes16)wasm_i32x4_gt(vSums, wasm_i32x4_const(0, 0, 0, 0));
#else
    const Vec8 vAbove = (Vec8)(v > 0);  // only the first lane of a half is not 0
    return (Bytes16)__builtin_shufflevector(vAbove, vAbove, 0, 0, 0, 0, 4, 4, 4, 4);
#endif
}

// The bits of a where vMask has ones, else those of b.
MP4V_VEC Bytes16 Select(Bytes16 vMask, Bytes16 a, Bytes16 b) {
#if MP4V_VEC_NEON
    return (Bytes16)vbslq_u8((uint8x16_t)vMask, (uint8x16_t)a, (uint8x16_t)b);
#elif MP4V_VEC_WASM
    return (Bytes16)wasm_v128_bitselect((v128_t)a, (v128_t)b, (v128_t)vMask);
#else
    return (a & vMask) | (b & ~vMask);
#endif
}

// ---- Rearranging

// Bytes 0..7 of vLow, then bytes 0..7 of vHigh.
MP4V_VEC Bytes16 JoinLow(Bytes16 vLow, Bytes16 vHigh) {
    return __builtin_shufflevector(vLow, vHigh, 0, 1, 2, 3, 4, 5, 6, 7, 16, 17, 18, 19, 20, 21, 22, 23);
}

MP4V_VEC Bytes16 HighHalf(Bytes16 v) {
    return __builtin_shufflevector(v, v, 8, 9, 10, 11, 12, 13, 14, 15, 8, 9, 10, 11, 12, 13, 14, 15);
}

// Interleave the low (high) halves of a and b by elements of 8, 16, 32 bits.
MP4V_VEC Bytes16 ZipLow8(Bytes16 a, Bytes16 b) {
    return __builtin_shufflevector(a, b, 0, 16, 1, 17, 2, 18, 3, 19, 4, 20, 5, 21, 6, 22, 7, 23);
}
MP4V_VEC Vec8 ZipLow16(Vec8 a, Vec8 b) {
    return __builtin_shufflevector(a, b, 0, 8, 1, 9, 2, 10, 3, 11);
}
MP4V_VEC Vec8 ZipHigh16(Vec8 a, Vec8 b) {
    return __builtin_shufflevector(a, b, 4, 12, 5, 13, 6, 14, 7, 15);
}
MP4V_VEC Vec8 ZipLow32(Vec8 a, Vec8 b) {
    return __builtin_shufflevector(a, b, 0, 1, 8, 9, 2, 3, 10, 11);
}
MP4V_VEC Vec8 ZipHigh32(Vec8 a, Vec8 b) {
    return __builtin_shufflevector(a, b, 4, 5, 12, 13, 6, 7, 14, 15);
}
MP4V_VEC Vec8 ZipLow64(Vec8 a, Vec8 b) {
    return __builtin_shufflevector(a, b, 0, 1, 2, 3, 8, 9, 10, 11);
}
MP4V_VEC Vec8 ZipHigh64(Vec8 a, Vec8 b) {
    return __builtin_shufflevector(a, b, 4, 5, 6, 7, 12, 13, 14, 15);
}

// Bytes 0, 2, 4, ... and bytes 1, 3, 5, ... widened.
MP4V_VEC Vec8 EvenBytes(Bytes16 v) {
    return __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__ ? (Vec8)((Vec8u)v & 255) : (Vec8)((Vec8u)v >> 8);
}
MP4V_VEC Vec8 OddBytes(Bytes16 v) {
    return __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__ ? (Vec8)((Vec8u)v >> 8) : (Vec8)((Vec8u)v & 255);
}

// v with another value in lane 0, of which the low 16 bits count.
MP4V_VEC Vec8 WithLane0(Vec8 v, int32_t s32) {
#if MP4V_VEC_SSE2
    return (Vec8)_mm_insert_epi16((__m128i)v, (int16_t)s32, 0);
#else
    v[0] = (int16_t)s32;
    return v;
#endif
}

// Lane j of row i becomes lane i of row j.
MP4V_VEC void Transpose8x8(Vec8 (&av)[8]) {
    const Vec8 a0 = ZipLow16(av[0], av[1]), a1 = ZipHigh16(av[0], av[1]);
    const Vec8 a2 = ZipLow16(av[2], av[3]), a3 = ZipHigh16(av[2], av[3]);
    const Vec8 a4 = ZipLow16(av[4], av[5]), a5 = ZipHigh16(av[4], av[5]);
    const Vec8 a6 = ZipLow16(av[6], av[7]), a7 = ZipHigh16(av[6], av[7]);
    const Vec8 b0 = ZipLow32(a0, a2), b1 = ZipHigh32(a0, a2), b2 = ZipLow32(a1, a3), b3 = ZipHigh32(a1, a3);
    const Vec8 b4 = ZipLow32(a4, a6), b5 = ZipHigh32(a4, a6), b6 = ZipLow32(a5, a7), b7 = ZipHigh32(a5, a7);
    av[0] = ZipLow64(b0, b4), av[1] = ZipHigh64(b0, b4);
    av[2] = ZipLow64(b1, b5), av[3] = ZipHigh64(b1, b5);
    av[4] = ZipLow64(b2, b6), av[5] = ZipHigh64(b2, b6);
    av[6] = ZipLow64(b3, b7), av[7] = ZipHigh64(b3, b7);
}

// The first eight bytes of a row s, with its start mirrored before it: s2 s1 s0 s0 s1 s2 s3 s4.
MP4V_VEC Bytes16 MirrorStart(const uint8_t* pu8) {
    const Bytes16 v = LoadBytes8(pu8);
#if MP4V_VEC_NEON
    return (Bytes16)vqtbl1q_u8((uint8x16_t)v, vcombine_u8(vcreate_u8(0x0403020100000102), vcreate_u8(0)));
#elif MP4V_VEC_SSE2 && defined(__x86_64__)
    const uint64_t u64 = (uint64_t)_mm_cvtsi128_si64((__m128i)v);
    return (Bytes16)_mm_cvtsi64_si128((int64_t)(u64 << 24 | __builtin_bswap64(u64) >> 40));
#else
    return __builtin_shufflevector(v, v, 2, 1, 0, 0, 1, 2, 3, 4, 8, 8, 8, 8, 8, 8, 8, 8);
#endif
}

// The same of 16 bytes: s2 s1 s0 s0 .. s12.
MP4V_VEC Bytes16 MirrorStart16(const uint8_t* pu8) {
#if MP4V_VEC_NEON
    const uint8x16_t vFrom = vcombine_u8(vcreate_u8(0x0403020100000102), vcreate_u8(0x0C0B0A0908070605));
    return (Bytes16)vqtbl1q_u8(vld1q_u8(pu8), vFrom);
#else
    return JoinLow(MirrorStart(pu8), LoadBytes8(pu8 + 5));
#endif
}

// Eight bytes s0..s7 that end a row: s4 s5 s6 s7 s7 s6 s5 s4.
MP4V_VEC Bytes16 MirrorEnd(const uint8_t* pu8) {
    const Bytes16 v = LoadBytes8(pu8);
#if MP4V_VEC_NEON
    return (Bytes16)vqtbl1q_u8((uint8x16_t)v, vcombine_u8(vcreate_u8(0x0405060707060504), vcreate_u8(0)));
#elif MP4V_VEC_SSE2 && defined(__x86_64__)
    const uint64_t u64 = (uint64_t)_mm_cvtsi128_si64((__m128i)v) >> 32;
    return (Bytes16)_mm_cvtsi64_si128((int64_t)(u64 | __builtin_bswap64(u64)));
#else
    return __builtin_shufflevector(v, v, 4, 5, 6, 7, 7, 6, 5, 4, 8, 8, 8, 8, 8, 8, 8, 8);
#endif
}

// ---- The filter of quarter-sample prediction: taps -1 3 -6 20 20 -6 3 -1

#if MP4V_VEC_NEON
typedef Bytes16 Tap;  // the samples that a tap meets; half of them where eight columns are filtered
#else
typedef Vec8 Tap;
#endif
constexpr int kTapSamples = sizeof(Tap) / sizeof(Tap{}[0]);

// The first samples of v.
MP4V_VEC Tap TapOf(Bytes16 v) {
#if MP4V_VEC_NEON
    return v;
#else
    return Widen<0>(v);
#endif
}

// The samples from kFirst on, kFirst < 8, of vLow and then vHigh.
template <int kFirst>
MP4V_VEC Tap TapOf(Bytes16 vLow, Bytes16 vHigh) {
#if MP4V_VEC_NEON
    return (Bytes16)vextq_u8((uint8x16_t)vLow, (uint8x16_t)vHigh, kFirst);
#else
    (void)vHigh;
    return Widen<kFirst>(vLow);
#endif
}

// The factors, hidden from the compiler, which would take small ones apart into shifts and additions, and half of the
// divisor, less for rounding type 1.
struct TapFactors {
    Vec8 vBias;
#if MP4V_VEC_NEON
    Vec8 v;  // 20, 6, 3

    explicit MP4V_VEC_MEMBER TapFactors(uint32_t u32Rounding) : vBias(Vec8{} + (int16_t)(16 - (int32_t)u32Rounding)) {
        Vec8 vHidden = {20, 6, 3};
        __asm__("" : "+w"(vHidden));
        v = vHidden;
    }
#else
    Vec8 v20, v3;

    explicit MP4V_VEC_MEMBER TapFactors(uint32_t u32Rounding)
        : vBias(Vec8{} + (int16_t)(16 - (int32_t)u32Rounding)), v20(Vec8{} + 20), v3(Vec8{} + 3) {
#if MP4V_VEC_SSE2
        __asm__("" : "+x"(v20), "+x"(v3));
#endif
    }
#endif
};

// 32 times the samples between the fourth and the fifth of eight taps, in [-3570, 11746], and the bias: the first eight
// (kHigh: the last eight).
template <bool kHigh = false>
MP4V_VEC Vec8 WeighTaps(const Tap* pt, const TapFactors& t) {
#if MP4V_VEC_NEON
    const auto sum = [pt](int a, int b) {
        const uint8x16_t vA = (uint8x16_t)pt[a], vB = (uint8x16_t)pt[b];
        return (int16x8_t)(kHigh ? vaddl_high_u8(vA, vB) : vaddl_u8(vget_low_u8(vA), vget_low_u8(vB)));
    };
    const auto less = [pt](uint16x8_t v, int a) {
        return kHigh ? vsubw_high_u8(v, (uint8x16_t)pt[a]) : vsubw_u8(v, vget_low_u8((uint8x16_t)pt[a]));
    };
    const int16x8_t vFactors = (int16x8_t)t.v;
    int16x8_t v = (int16x8_t)less(less((uint16x8_t)t.vBias, 0), 7);
    v = vmlaq_laneq_s16(v, sum(3, 4), vFactors, 0);
    v = vmlsq_laneq_s16(v, sum(2, 5), vFactors, 1);
    return (Vec8)vmlaq_laneq_s16(v, sum(1, 6), vFactors, 2);
#else
    const Vec8 vNext = pt[2] + pt[5];
    const Vec8 vFar = (pt[1] + pt[6] - vNext - vNext) * t.v3;
    return (pt[3] + pt[4]) * t.v20 + vFar - (pt[0] + pt[7]) + t.vBias;
#endif
}

// The samples between the fourth and the fifth of eight taps. kSamples: 8, or kTapSamples.
template <int kSamples>
MP4V_VEC Bytes16 FilterTaps(const Tap* pt, const TapFactors& t) {
    const Vec8 vLow = WeighTaps(pt, t);
    if (kSamples == 8) return NarrowClipShifted<5>(vLow);
    return NarrowClipShifted<5>(vLow, WeighTaps<true>(pt, t));
}

#endif  // MP4VDEC_SOURCE_C_VEC_H_
