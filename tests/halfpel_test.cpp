// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors
#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "common/kernels.h"
#include "support/sample_block.h"

namespace mp4v::test {
namespace {

struct HalfKernel {
    const char* name;
    Mp4vInterpolate** kernel;
    int width, rows;
    int right, down;  // how far the farthest neighbour is
};

// Also how a failing parameter prints.
std::ostream& operator<<(std::ostream& out, const HalfKernel& k) {
    return out << k.name;
}

const HalfKernel kKernels[] = {
    {"16x16H", &Interpolate16x16H, 16, 16, 1, 0},   {"16x16V", &Interpolate16x16V, 16, 16, 0, 1},
    {"16x16HV", &Interpolate16x16HV, 16, 16, 1, 1}, {"8x8H", &Interpolate8x8H, 8, 8, 1, 0},
    {"8x8V", &Interpolate8x8V, 8, 8, 0, 1},         {"8x8HV", &Interpolate8x8HV, 8, 8, 1, 1},
    {"8x4H", &Interpolate8x4H, 8, 4, 1, 0},         {"8x4V", &Interpolate8x4V, 8, 4, 0, 1},
    {"8x4HV", &Interpolate8x4HV, 8, 4, 1, 1},
};

uint8_t Expected(const HalfKernel& k, const uint8_t* s, ptrdiff_t pitch, uint32_t rounding) {
    int sum = 0, count = 0;
    for (int dy = 0; dy <= k.down; dy++)
        for (int dx = 0; dx <= k.right; dx++, count++) sum += s[dy * pitch + dx];
    return uint8_t((sum + count / 2 - int(rounding)) / count);
}

class HalfPel : public testing::TestWithParam<HalfKernel> {};

TEST_P(HalfPel, IsTheRoundedMeanOfItsNeighboursAndWritesNothingElse) {
    const HalfKernel& k = GetParam();
    for (unsigned seed = 0; seed < 100; seed++) {
        SCOPED_TRACE(testing::Message() << "seed " << seed);
        std::mt19937 rng(seed);
        Canvas src(int(seed % kFillModes), rng), dst(kAnyByte, rng);
        const uint32_t rounding = seed / kFillModes & 1;
        Canvas want = dst;
        for (int y = 0; y < k.rows; y++)
            for (int x = 0; x < k.width; x++)
                *want.Block(x, y) = Expected(k, src.Block(x, y), Canvas::kPitch, rounding);
        (*k.kernel)(dst.Block(), src.Block(), Canvas::kPitch, rounding);
        ASSERT_EQ(want.px, dst.px);
    }
}

// All pairs of sums and roundings that a mean of bytes can meet.
TEST_P(HalfPel, IsExactForEveryPairOfSampleValues) {
    const HalfKernel& k = GetParam();
    Canvas src, dst;
    for (int a = 0; a < 256; a++)
        for (int b = 0; b < 256; b++) {
            for (int y = 0; y <= k.rows; y++)
                for (int x = 0; x <= k.width; x++) *src.Block(x, y) = uint8_t((x * k.right + y * k.down) & 1 ? b : a);
            const uint32_t rounding = unsigned(a + b / 2) & 1;
            (*k.kernel)(dst.Block(), src.Block(), Canvas::kPitch, rounding);
            for (int y = 0; y < 2; y++)
                for (int x = 0; x < 2; x++)
                    ASSERT_EQ(Expected(k, src.Block(x, y), Canvas::kPitch, rounding), *dst.Block(x, y))
                        << a << ' ' << b << ' ' << rounding;
        }
}

TEST_P(HalfPel, IsExactForEverySumOfLastBits) {
    const HalfKernel& k = GetParam();
    for (int bits = 0; bits < 16; bits++)
        for (uint32_t rounding = 0; rounding < 2; rounding++)
            for (int base : {0, 2, 101, 254}) {
                Canvas src, dst;
                const int four[4] = {base + (bits & 1), base + (bits >> 1 & 1), base + (bits >> 2 & 1),
                                     base + (bits >> 3)};
                for (int i = 0; i < 4; i++) *src.Block(i & 1, i >> 1) = uint8_t(std::min(four[i], 255));
                (*k.kernel)(dst.Block(), src.Block(), Canvas::kPitch, rounding);
                ASSERT_EQ(Expected(k, src.Block(), Canvas::kPitch, rounding), *dst.Block()) << bits << ' ' << base;
            }
}

TEST_P(HalfPel, KeepsWhiteAtBothRoundings) {
    const HalfKernel& k = GetParam();
    for (uint32_t rounding = 0; rounding < 2; rounding++) {
        Canvas src, dst;
        std::fill(src.px.begin(), src.px.end(), uint8_t(255));
        (*k.kernel)(dst.Block(), src.Block(), Canvas::kPitch, rounding);
        for (int y = 0; y < k.rows; y++)
            for (int x = 0; x < k.width; x++) ASSERT_EQ(255, *dst.Block(x, y));
    }
}

TEST_P(HalfPel, ReadsAndWritesNothingBehindTheLastSampleOfTheBlock) {
    const HalfKernel& k = GetParam();
    for (const int pitch : {17, 32, 353}) {
        std::mt19937 rng{unsigned(pitch)};
        const size_t srcSize = size_t((k.rows - 1 + k.down) * pitch + k.width + k.right);
        const size_t dstSize = size_t((k.rows - 1) * pitch + k.width);
        for (const auto guard : {GuardedBytes::kBehind, GuardedBytes::kBefore}) {
            GuardedBytes src(srcSize, guard), dst(dstSize, guard);
            Fill(src.data(), srcSize, kAnyByte, rng);
            (*k.kernel)(dst.data(), src.data(), pitch, 0);
            const ptrdiff_t last = (k.rows - 1) * pitch + k.width - 1;
            EXPECT_EQ(Expected(k, src.data() + last, pitch, 0), dst.data()[last]);
        }
    }
}

TEST_P(HalfPel, ToleratesEveryAlignment) {
    const HalfKernel& k = GetParam();
    std::mt19937 rng(3);
    Canvas src(kAnyByte, rng);
    for (int shift = 0; shift < 16; shift++) {
        Canvas dst;
        (*k.kernel)(dst.Block(15 - shift, 1), src.Block(shift, 0), Canvas::kPitch, 1);
        for (int x = 0; x < k.width; x++)
            ASSERT_EQ(Expected(k, src.Block(shift + x, 0), Canvas::kPitch, 1), *dst.Block(15 - shift + x, 1));
    }
}

// With the pitch doubled, the kernel works on the lines of one field.
TEST_P(HalfPel, LeavesTheOtherFieldAloneAtADoubledPitch) {
    const HalfKernel& k = GetParam();
    std::mt19937 rng(4);
    Canvas src(kAnyByte, rng), dst(kAnyByte, rng);
    Canvas want = dst;
    for (int y = 0; y < k.rows; y++)
        for (int x = 0; x < k.width; x++)
            *want.Block(x, 2 * y) = Expected(k, src.Block(x, 2 * y), 2 * Canvas::kPitch, 0);
    (*k.kernel)(dst.Block(), src.Block(), 2 * Canvas::kPitch, 0);
    ASSERT_EQ(want.px, dst.px);
}

TEST_P(HalfPel, WalksUpwardsAtANegativePitch) {
    const HalfKernel& k = GetParam();
    std::mt19937 rng(5);
    Canvas src(kAnyByte, rng), dst(kAnyByte, rng);
    Canvas want = dst;
    for (int y = 0; y < k.rows; y++)
        for (int x = 0; x < k.width; x++)
            *want.Block(x, 20 - y) = Expected(k, src.Block(x, 20 - y), -Canvas::kPitch, 1);
    (*k.kernel)(dst.Block(0, 20), src.Block(0, 20), -Canvas::kPitch, 1);
    ASSERT_EQ(want.px, dst.px);
}

INSTANTIATE_TEST_SUITE_P(Portable, HalfPel, testing::ValuesIn(kKernels),
                         [](const auto& test) { return std::string(test.param.name); });

TEST(HalfPelH, RoundsHalvesUpOrDownByTheRoundingType) {
    Canvas src, dst;
    *src.Block(0, 0) = 1;
    *src.Block(1, 0) = 2;
    Interpolate8x8H(dst.Block(), src.Block(), Canvas::kPitch, 0);
    EXPECT_EQ(2, *dst.Block());
    Interpolate8x8H(dst.Block(), src.Block(), Canvas::kPitch, 1);
    EXPECT_EQ(1, *dst.Block());
}

TEST(HalfPelHV, RoundsOneOneTwoTwoToTwoOrOne) {
    Canvas src, dst;
    *src.Block(0, 0) = 1;
    *src.Block(1, 0) = 1;
    *src.Block(0, 1) = 2;
    *src.Block(1, 1) = 2;
    Interpolate8x8HV(dst.Block(), src.Block(), Canvas::kPitch, 0);
    EXPECT_EQ(2, *dst.Block());
    Interpolate8x8HV(dst.Block(), src.Block(), Canvas::kPitch, 1);
    EXPECT_EQ(1, *dst.Block());
}

TEST(HalfPel8x4, TouchesExactlyFourRows) {
    for (Mp4vInterpolate* kernel : {Interpolate8x4H, Interpolate8x4V, Interpolate8x4HV}) {
        Canvas src, dst;
        std::fill(src.px.begin(), src.px.end(), uint8_t(7));
        kernel(dst.Block(), src.Block(), Canvas::kPitch, 0);
        EXPECT_EQ(7, *dst.Block(7, 3));
        EXPECT_EQ(0xA5, *dst.Block(0, 4));
        EXPECT_EQ(0xA5, *dst.Block(8, 3));
    }
}

}  // namespace
}  // namespace mp4v::test
