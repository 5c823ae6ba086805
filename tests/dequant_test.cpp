// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <string>

#include "common/kernels.h"

namespace mp4v::test {
namespace {

constexpr uint32_t kQuants[] = {0, 1, 2, 3, 4, 5, 8, 9, 16, 30, 31, 32, 62, 63, 127, 128, 254, 255};
constexpr uint32_t kWildQuants[] = {256,   511,   1023,       1024,       1025,       1456,      1457,  2047,
                                    2048,  4095,  16383,      16384,      32767,      32768,     32769, 65535,
                                    65536, 65537, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFE, 0xFFFFFFFF};

constexpr int kIntraWeights[64] = {8,  17, 18, 19, 21, 23, 25, 27, 17, 18, 19, 21, 23, 25, 27, 28,
                                   20, 21, 22, 23, 24, 26, 28, 30, 21, 22, 23, 24, 26, 28, 30, 32,
                                   22, 23, 24, 26, 28, 30, 32, 35, 23, 24, 26, 28, 30, 32, 35, 38,
                                   25, 26, 28, 30, 32, 35, 38, 41, 27, 28, 30, 32, 35, 38, 41, 45};
constexpr int kInterWeights[64] = {16, 17, 18, 19, 20, 21, 22, 23, 17, 18, 19, 20, 21, 22, 23, 24,
                                   18, 19, 20, 21, 22, 23, 24, 25, 19, 20, 21, 22, 23, 24, 26, 27,
                                   20, 21, 22, 23, 25, 26, 27, 28, 21, 22, 23, 24, 26, 27, 28, 30,
                                   22, 23, 24, 26, 27, 28, 30, 31, 23, 24, 25, 27, 28, 30, 31, 33};

int16_t Limit(int64_t v) {
    return int16_t(std::clamp<int64_t>(v, -2048, 2047));
}

int16_t H263(int64_t level, int64_t twoQuant, int64_t quant) {
    const int64_t offset = quant % 2 ? quant : quant - 1;
    if (level > 0) return Limit(twoQuant * level + offset);
    if (level < 0) return Limit(twoQuant * level - offset);
    return 0;
}

int16_t MpegSigned(int level, uint32_t magnitude) {
    if (level == 0) return 0;
    if (level > 0) return int16_t(std::min<uint32_t>(magnitude, 2047));
    return magnitude <= 2048 ? int16_t(-int(magnitude)) : int16_t(-2048);
}

int16_t MpegIntra(int level, int weight, uint32_t quant) {
    return MpegSigned(level, uint32_t(weight) * uint32_t(std::abs(level)) * quant >> 3);
}

int16_t MpegInter(int level, int weight, uint32_t quant) {
    return MpegSigned(level, (2 * uint32_t(std::abs(level)) + 1) * uint32_t(weight) * quant >> 4);
}

struct Block {
    int16_t v[64] = {};

    friend bool operator==(const Block& a, const Block& b) { return std::memcmp(a.v, b.v, sizeof a.v) == 0; }
};

enum Kernel { kH263Intra, kH263Inter, kMpegIntra, kMpegInter, kKernels };

Block Expected(int kernel, const Block& levels, uint32_t quant, uint32_t scaler) {
    Block d;
    int parity = 0;
    for (int i = 0; i < 64; i++) {
        const int level = levels.v[i];
        switch (kernel) {
            case kH263Intra:
                d.v[i] = H263(level, 2 * int64_t(quant), quant);
                break;
            case kH263Inter:
                d.v[i] = H263(level, uint16_t(2 * quant), uint16_t(quant));
                break;
            case kMpegIntra:
                d.v[i] = MpegIntra(level, kIntraWeights[i], quant);
                break;
            default:
                d.v[i] = MpegInter(level, kInterWeights[i], quant);
        }
        parity += d.v[i] & 1;
    }
    const uint32_t dc = uint32_t(int32_t(levels.v[0])) * scaler;
    if (kernel == kH263Intra) d.v[0] = Limit(int32_t(dc));
    if (kernel == kMpegIntra) d.v[0] = Limit(int16_t(uint16_t(dc)));
    if (kernel == kMpegInter && parity % 2 == 0) d.v[63] = int16_t(d.v[63] ^ 1);
    return d;
}

void Dequantise(int kernel, int16_t* dst, const int16_t* src, uint32_t quant, uint32_t scaler) {
    switch (kernel) {
        case kH263Intra:
            return DequantH263Intra(dst, src, quant, scaler);
        case kH263Inter:
            return DequantH263Inter(dst, src, uint16_t(quant));
        case kMpegIntra:
            return DequantMpegIntra(dst, src, quant, scaler);
        default:
            return DequantMpegInter(dst, src, quant);
    }
}

void ExpectFormula(int kernel, const Block& levels, uint32_t quant, uint32_t scaler) {
    const Block want = Expected(kernel, levels, quant, scaler);
    Block out, in = levels;
    Dequantise(kernel, out.v, levels.v, quant, scaler);
    Dequantise(kernel, in.v, in.v, quant, scaler);
    if (out == want && in == want) return;
    for (int i = 0; i < 64; i++) {
        ASSERT_EQ(want.v[i], out.v[i]) << "kernel " << kernel << " level " << levels.v[i] << " at " << i << " quant "
                                       << quant << " scaler " << scaler;
        ASSERT_EQ(want.v[i], in.v[i]) << "in place, kernel " << kernel << " at " << i;
    }
}

class Dequant : public testing::TestWithParam<int> {};

// Each level meets several weights, because the blocks start at different levels for different quantisers.
TEST_P(Dequant, FollowsTheFormulaForEveryLevel) {
    for (const uint32_t quant : kQuants)
        for (int first = INT16_MIN - int(quant % 64); first <= INT16_MAX; first += 64) {
            Block levels;
            for (int i = 0; i < 64; i++) levels.v[i] = int16_t(first + i);
            ExpectFormula(GetParam(), levels, quant, 8 + quant % 40);
            if (HasFatalFailure()) return;
        }
}

TEST_P(Dequant, FollowsTheFormulaForEveryByteQuantiserOnLikelyLevels) {
    std::mt19937 rng(1);
    for (uint32_t quant = 0; quant < 256; quant++)
        for (int n = 0; n < 20; n++) {
            Block levels;
            const int range = 1 << (1 + rng() % 12);
            for (int16_t& v : levels.v) v = int16_t(rng() & 1 ? 0 : int(rng() % unsigned(2 * range)) - range);
            ExpectFormula(GetParam(), levels, quant, rng() % 256);
            if (HasFatalFailure()) return;
        }
}

TEST_P(Dequant, StaysDefinedAndInRangeForWildQuantisersAndScalers) {
    std::mt19937 rng(2);
    for (const uint32_t quant : kWildQuants)
        for (int n = 0; n < 100; n++) {
            Block levels;
            const int range = 1 << (1 + rng() % 15);
            for (int16_t& v : levels.v) v = int16_t(int(rng() % unsigned(2 * range)) - range);
            levels.v[rng() % 64] = INT16_MIN;
            levels.v[rng() % 64] = INT16_MAX;
            const uint32_t scaler = uint32_t(n & 1 ? rng() : rng() % 70000);
            ExpectFormula(GetParam(), levels, quant, scaler);
            if (HasFatalFailure()) return;
            Dequantise(GetParam(), levels.v, levels.v, quant, scaler);
            for (const int16_t v : levels.v) ASSERT_TRUE(v >= -2048 && v <= 2047) << v;
        }
}

TEST_P(Dequant, TakesBlocksOfAnyAlignmentAndTouchesNothingElse) {
    std::mt19937 rng(3);
    for (int shift = 0; shift < 8; shift++) {
        int16_t memory[80];
        std::fill_n(memory, 80, int16_t(0x5A5A));
        Block levels;
        for (int16_t& v : levels.v) v = int16_t(int(rng() % 200) - 100);
        std::copy_n(levels.v, 64, memory + 8 + shift);
        const Block want = Expected(GetParam(), levels, 7, 12);
        Dequantise(GetParam(), memory + 8 + shift, memory + 8 + shift, 7, 12);
        EXPECT_TRUE(std::equal(want.v, want.v + 64, memory + 8 + shift));
        for (int i = 0; i < 8 + shift; i++) EXPECT_EQ(0x5A5A, memory[i]);
        for (int i = 72 + shift; i < 80; i++) EXPECT_EQ(0x5A5A, memory[i]);
    }
}

std::string KernelName(const testing::TestParamInfo<int>& test) {
    const char* const names[kKernels] = {"H263Intra", "H263Inter", "MpegIntra", "MpegInter"};
    return names[test.param];
}

INSTANTIATE_TEST_SUITE_P(Portable, Dequant, testing::Range(0, int(kKernels)), KernelName);

// ---- Figures worked out by hand

int16_t OneLevel(int kernel, int index, int level, uint32_t quant, uint32_t scaler = 8) {
    Block b;
    b.v[index] = int16_t(level);
    Dequantise(kernel, b.v, b.v, quant, scaler);
    return b.v[index];
}

TEST(DequantH263, AddsTheOddOrEvenOffset) {
    for (const int kernel : {kH263Intra, kH263Inter}) {
        EXPECT_EQ(11, OneLevel(kernel, 5, 1, 4));
        EXPECT_EQ(-11, OneLevel(kernel, 5, -1, 4));
        EXPECT_EQ(15, OneLevel(kernel, 5, 1, 5));
        EXPECT_EQ(0, OneLevel(kernel, 5, 0, 5));
    }
}

TEST(DequantH263, ClampsAtBothEnds) {
    for (const int kernel : {kH263Intra, kH263Inter}) {
        EXPECT_EQ(2047, OneLevel(kernel, 63, 40, 31));
        EXPECT_EQ(-2048, OneLevel(kernel, 63, -40, 31));
    }
}

TEST(DequantH263, IsExactNextToTheLimits) {
    EXPECT_EQ(2047, OneLevel(kH263Inter, 1, 1023, 1));  // 2046 + 1
    EXPECT_EQ(-2047, OneLevel(kH263Inter, 1, -1023, 1));
    EXPECT_EQ(-2048, OneLevel(kH263Inter, 1, -1024, 1));  // -2049 clamped
    EXPECT_EQ(2045, OneLevel(kH263Inter, 1, 1022, 1));
}

TEST(DequantH263, TakesOneAwayAtQuantiserZero) {
    EXPECT_EQ(-1, OneLevel(kH263Intra, 9, 5, 0));
    EXPECT_EQ(1, OneLevel(kH263Intra, 9, -5, 0));
    EXPECT_EQ(0, OneLevel(kH263Intra, 9, 0, 0));
}

TEST(DequantH263Intra, ScalesTheFirstValueByItsScaler) {
    EXPECT_EQ(800, OneLevel(kH263Intra, 0, 100, 31, 8));
    EXPECT_EQ(2047, OneLevel(kH263Intra, 0, 2047, 31, 46));  // 94162 in 32 bits
    EXPECT_EQ(-2048, OneLevel(kH263Intra, 0, -300, 1, 8));
    EXPECT_EQ(0, OneLevel(kH263Intra, 0, 255, 1, 0));
}

TEST(DequantH263Inter, TreatsTheFirstValueLikeTheOthers) {
    EXPECT_EQ(203, OneLevel(kH263Inter, 0, 25, 4));
}

TEST(DequantH263Inter, FormsTheDoubledQuantiserFromItsLowFifteenBits) {
    EXPECT_EQ(2047, OneLevel(kH263Inter, 0, 1, 0x8000));  // 0 + 32767
    EXPECT_EQ(-2048, OneLevel(kH263Inter, 0, -1, 0x8001));
}

TEST(DequantMpegIntra, ScalesTheFirstValueByItsScaler) {
    EXPECT_EQ(800, OneLevel(kMpegIntra, 0, 100, 31, 8));
}

TEST(DequantMpegIntra, WrapsTheFirstValueBeforeClamping) {
    EXPECT_EQ(2047, OneLevel(kMpegIntra, 0, 2047, 1, 46));   // 94162 wraps to 28626
    EXPECT_EQ(-2048, OneLevel(kMpegIntra, 0, 1000, 1, 46));  // 46000 wraps to -19536
    EXPECT_EQ(-536, OneLevel(kMpegIntra, 0, 1625, 1, 40));   // 65000 wraps to -536
}

TEST(DequantMpegIntra, WeighsAndDividesTowardsZero) {
    EXPECT_EQ(2, OneLevel(kMpegIntra, 1, 1, 1));  // 17 >> 3
    EXPECT_EQ(-2, OneLevel(kMpegIntra, 1, -1, 1));
    EXPECT_EQ(174, OneLevel(kMpegIntra, 63, 1, 31));  // 45 * 31 = 1395
    EXPECT_EQ(2047, OneLevel(kMpegIntra, 63, 100, 31));
    EXPECT_EQ(-2048, OneLevel(kMpegIntra, 63, -100, 31));
    EXPECT_EQ(-2048, OneLevel(kMpegIntra, 3 * 8 + 7, -512, 1));  // 32 * 512 / 8 = 2048 needs no clamping
    EXPECT_EQ(2047, OneLevel(kMpegIntra, 3 * 8 + 7, 512, 1));
}

TEST(DequantMpegIntra, AppliesNoMismatchControl) {
    Block b, zero;
    DequantMpegIntra(b.v, b.v, 4, 8);
    EXPECT_TRUE(b == zero);
}

TEST(DequantMpegInter, MakesAnEmptyBlockOdd) {
    Block b, want;
    want.v[63] = 1;
    DequantMpegInter(b.v, b.v, 4);
    EXPECT_TRUE(b == want);
}

TEST(DequantMpegInter, MakesASingleEvenValueOdd) {
    Block b, want;
    b.v[0] = 1;
    want.v[0] = 6;  // 3 * 16 * 2 >> 4
    want.v[63] = 1;
    DequantMpegInter(b.v, b.v, 2);
    EXPECT_TRUE(b == want);
}

TEST(DequantMpegInter, LeavesAnOddSumAlone) {
    Block b, want;
    b.v[0] = 1;
    want.v[0] = 3;  // 3 * 16 * 1 >> 4
    DequantMpegInter(b.v, b.v, 1);
    EXPECT_TRUE(b == want);
}

TEST(DequantMpegInter, FlipsTheLastValueItselfWhenTheSumIsEven) {
    Block b;
    b.v[63] = -2;
    DequantMpegInter(b.v, b.v, 1);
    EXPECT_EQ(-9, b.v[63]);  // -(5 * 33 >> 4) = -10
}

}  // namespace
}  // namespace mp4v::test
