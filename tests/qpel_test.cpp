// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors
#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "common/kernels.h"
#include "support/sample_block.h"

namespace mp4v::test {
namespace {

enum Blend { kPlain, kBefore, kAfter };

struct QpelKernel {
    const char* name;
    Mp4vQpelPass** pass;
    bool vertical;
    int size;
    Blend blend;
};

std::ostream& operator<<(std::ostream& out, const QpelKernel& k) {
    return out << k.name;
}

const QpelKernel kKernels[] = {
    {"HorzPass16", &HorzPass16, false, 16, kPlain},
    {"HorzPassAvg16", &HorzPassAvg16, false, 16, kBefore},
    {"HorzPassAvgUp16", &HorzPassAvgUp16, false, 16, kAfter},
    {"HorzPass8", &HorzPass8, false, 8, kPlain},
    {"HorzPassAvg8", &HorzPassAvg8, false, 8, kBefore},
    {"HorzPassAvgUp8", &HorzPassAvgUp8, false, 8, kAfter},
    {"VertPass16", &VertPass16, true, 16, kPlain},
    {"VertPassAvg16", &VertPassAvg16, true, 16, kBefore},
    {"VertPassAvgUp16", &VertPassAvgUp16, true, 16, kAfter},
    {"VertPass8", &VertPass8, true, 8, kPlain},
    {"VertPassAvg8", &VertPassAvg8, true, 8, kBefore},
    {"VertPassAvgUp8", &VertPassAvgUp8, true, 8, kAfter},
};

int ClipByte(int v) {
    return std::clamp(v, 0, 255);
}

// Output i of a line of size + 1 samples, step apart, extended by its mirror image.
uint8_t FilterAt(const uint8_t* line, ptrdiff_t step, int size, int i, Blend blend, uint32_t rounding) {
    static const int taps[8] = {-1, 3, -6, 20, 20, -6, 3, -1};
    int sum = 16 - int(rounding);
    for (int t = 0; t < 8; t++) {
        int at = i - 3 + t;
        if (at < 0) at = -1 - at;
        if (at > size) at = 2 * size + 1 - at;
        sum += taps[t] * line[at * step];
    }
    const int half = ClipByte(sum < 0 ? -((-sum + 31) / 32) : sum / 32);
    if (blend == kPlain) return uint8_t(half);
    return uint8_t((half + line[(blend == kAfter ? i + 1 : i) * step] + 1 - int(rounding)) / 2);
}

void Predict(const QpelKernel& k, uint8_t* dst, const uint8_t* src, int count, ptrdiff_t dstPitch, ptrdiff_t srcPitch,
             uint32_t rounding) {
    for (int line = 0; line < count; line++)
        for (int i = 0; i < k.size; i++) {
            if (k.vertical)
                dst[i * dstPitch + line] = FilterAt(src + line, srcPitch, k.size, i, k.blend, rounding);
            else
                dst[line * dstPitch + i] = FilterAt(src + line * srcPitch, 1, k.size, i, k.blend, rounding);
        }
}

class QpelPass : public testing::TestWithParam<QpelKernel> {};

TEST_P(QpelPass, IsTheMirroredEightTapFilterForEveryCount) {
    const QpelKernel& k = GetParam();
    for (unsigned seed = 0; seed < 200; seed++) {
        SCOPED_TRACE(testing::Message() << "seed " << seed);
        std::mt19937 rng(seed);
        Canvas src(int(seed % kFillModes), rng), dst(kAnyByte, rng);
        const uint32_t rounding = seed / kFillModes & 1;
        const int count = int(seed % 26);
        Canvas want = dst;
        Predict(k, want.Block(), src.Block(1, 3), count, Canvas::kPitch, Canvas::kPitch, rounding);
        (*k.pass)(dst.Block(), src.Block(1, 3), count, Canvas::kPitch, Canvas::kPitch, rounding);
        ASSERT_EQ(want.px, dst.px);
    }
}

TEST_P(QpelPass, TakesSeparatePitches) {
    const QpelKernel& k = GetParam();
    for (const int dstPitch : {16, 64})
        for (const int srcPitch : {16, 37, -16}) {
            std::mt19937 rng(9);
            Canvas src(kExtremes, rng), dst(kAnyByte, rng);
            Canvas want = dst;
            const uint8_t* from = src.Block(0, srcPitch < 0 ? 30 : 0);
            Predict(k, want.Block(), from, 8, dstPitch, srcPitch, 1);
            (*k.pass)(dst.Block(), from, 8, dstPitch, srcPitch, 1);
            ASSERT_EQ(want.px, dst.px) << dstPitch << ' ' << srcPitch;
        }
}

TEST_P(QpelPass, DoesNothingForCountsBelowOne) {
    const QpelKernel& k = GetParam();
    for (const int count : {0, -1, INT32_MIN}) {
        Canvas src, dst;
        const Canvas want = dst;
        (*k.pass)(dst.Block(), src.Block(), count, Canvas::kPitch, Canvas::kPitch, 0);
        ASSERT_EQ(want.px, dst.px);
        (*k.pass)(nullptr, nullptr, count, Canvas::kPitch, Canvas::kPitch, 0);
    }
}

// A line has size + 1 samples; nothing before the first or behind the last is touched.
TEST_P(QpelPass, ReadsOnlyItsLines) {
    const QpelKernel& k = GetParam();
    for (const auto guard : {GuardedBytes::kBehind, GuardedBytes::kBefore})
        for (const int count : {1, 3, 8, 9, 16, 17}) {
            const int srcWidth = k.vertical ? count : k.size + 1, srcRows = k.vertical ? k.size + 1 : count;
            const int dstWidth = k.vertical ? count : k.size, dstRows = k.vertical ? k.size : count;
            const int pitch = 19;
            const size_t srcSize = size_t((srcRows - 1) * pitch + srcWidth);
            const size_t dstSize = size_t((dstRows - 1) * pitch + dstWidth);
            GuardedBytes src(srcSize, guard), dst(dstSize, guard);
            std::mt19937 rng{unsigned(count)};
            Fill(src.data(), srcSize, kAnyByte, rng);
            std::vector<uint8_t> want(dstSize);
            Predict(k, want.data(), src.data(), count, pitch, pitch, 0);
            (*k.pass)(dst.data(), src.data(), count, pitch, pitch, 0);
            ASSERT_TRUE(std::equal(want.begin(), want.end(), dst.data())) << count;
        }
}

TEST_P(QpelPass, KeepsAFlatAreaAtBothRoundings) {
    const QpelKernel& k = GetParam();
    for (int value = 0; value < 256; value++)
        for (uint32_t rounding = 0; rounding < 2; rounding++) {
            Canvas src, dst;
            std::fill(src.px.begin(), src.px.end(), uint8_t(value));
            (*k.pass)(dst.Block(), src.Block(), 8, Canvas::kPitch, Canvas::kPitch, rounding);
            const int width = k.vertical ? 8 : k.size, rows = k.vertical ? k.size : 8;
            for (int y = 0; y < rows; y++)
                for (int x = 0; x < width; x++) ASSERT_EQ(value, *dst.Block(x, y)) << value;
        }
}

INSTANTIATE_TEST_SUITE_P(Portable, QpelPass, testing::ValuesIn(kKernels),
                         [](const auto& test) { return std::string(test.param.name); });

TEST(HorzPass8, ClipsBothWaysAtAnEdgeStep) {
    const uint8_t src[9] = {0, 0, 0, 0, 255, 255, 255, 255, 255};
    const uint8_t want[8] = {0, 16, 0, 128, 255, 239, 255, 255};
    uint8_t dst[8];
    HorzPass8(dst, src, 1, 8, 9, 0);
    for (int i = 0; i < 8; i++) EXPECT_EQ(want[i], dst[i]) << i;
}

TEST(HorzPass8, RoundsATapSumOf48ByTheRoundingType) {
    const uint8_t src[9] = {0, 0, 0, 0, 0, 2, 0, 0, 0};     // output 4: 20 * 2, output 3: -6 * 2
    const uint8_t src48[9] = {0, 0, 16, 0, 0, 0, 0, 0, 0};  // output 4: 3 * 16 = 48
    uint8_t dst[8];
    HorzPass8(dst, src, 1, 8, 9, 0);
    EXPECT_EQ(1, dst[4]);
    EXPECT_EQ(0, dst[3]);
    HorzPass8(dst, src48, 1, 8, 9, 0);
    EXPECT_EQ(2, dst[4]);
    HorzPass8(dst, src48, 1, 8, 9, 1);
    EXPECT_EQ(1, dst[4]);
}

TEST(HorzPassAvg8, AveragesThreeAndFourByTheRoundingType) {
    // Output 4: 3 * 16 - 6 * 5 + 20 * 4 = 98, which filters to 3; the sample before it is 4.
    const uint8_t src[9] = {0, 0, 16, 5, 4, 0, 0, 0, 0};
    uint8_t dst[8];
    HorzPass8(dst, src, 1, 8, 9, 0);
    ASSERT_EQ(3, dst[4]);
    HorzPassAvg8(dst, src, 1, 8, 9, 0);
    EXPECT_EQ(4, dst[4]);
    HorzPassAvg8(dst, src, 1, 8, 9, 1);
    EXPECT_EQ(3, dst[4]);
}

// The folded coefficients, written out: what each source sample contributes to each output of a line of 8.
TEST(HorzPass8, HasTheFoldedCoefficientsAtItsEnds) {
    static const int coefficients[8][9] = {
        {14, 23, -7, 3, -1, 0, 0, 0, 0},   {-3, 19, 20, -6, 3, -1, 0, 0, 0},  {2, -6, 20, 20, -6, 3, -1, 0, 0},
        {-1, 3, -6, 20, 20, -6, 3, -1, 0}, {0, -1, 3, -6, 20, 20, -6, 3, -1}, {0, 0, -1, 3, -6, 20, 20, -6, 2},
        {0, 0, 0, -1, 3, -6, 20, 19, -3},  {0, 0, 0, 0, -1, 3, -7, 23, 14},
    };
    for (unsigned seed = 0; seed < 300; seed++) {
        std::mt19937 rng(seed);
        uint8_t src[9], across[8], down[8];
        Fill(src, 9, int(seed % kFillModes), rng);
        HorzPass8(across, src, 1, 8, 9, 0);
        VertPass8(down, src, 1, 1, 1, 0);
        for (int i = 0; i < 8; i++) {
            int sum = 16 + 32 * 1024;  // keeps the division away from negative numbers
            for (int j = 0; j < 9; j++) sum += coefficients[i][j] * src[j];
            ASSERT_EQ(ClipByte(sum / 32 - 1024), across[i]);
            ASSERT_EQ(ClipByte(sum / 32 - 1024), down[i]);
        }
    }
}

// ---- The 8 x 8 composer

constexpr Blend kPhaseBlend[4] = {kPlain, kBefore, kPlain, kAfter};

// One block from the formulas, without the passes.
void Compose(uint8_t* dst, const uint8_t* src, int vx, int vy, ptrdiff_t pitch, uint32_t rounding) {
    uint8_t rows[9][9];
    for (int y = 0; y < 9; y++)
        for (int x = 0; x < 9; x++)
            rows[y][x] = vx & 3 && x < 8 ? FilterAt(src + y * pitch, 1, 8, x, kPhaseBlend[vx & 3], rounding)
                                         : src[y * pitch + x];
    for (int y = 0; y < 8; y++)
        for (int x = 0; x < 8; x++)
            dst[y * pitch + x] = vy & 3 ? FilterAt(&rows[0][x], 9, 8, y, kPhaseBlend[vy & 3], rounding) : rows[y][x];
}

TEST(InterpolateQuarterPel8x8, ComposesAllSixteenPositions) {
    for (unsigned seed = 0; seed < 640; seed++) {
        SCOPED_TRACE(testing::Message() << "seed " << seed);
        std::mt19937 rng(seed);
        Canvas ref(int(seed / 16 % kFillModes), rng), dst(kAnyByte, rng);
        Canvas want = dst;
        const int whole[2] = {int(rng() % 9) - 4, int(rng() % 9) - 4};
        const int vx = 4 * whole[0] + int(seed & 3), vy = 4 * whole[1] + int(seed >> 2 & 3);
        const uint32_t rounding = rng() & 1;
        const int x = 8 * int(rng() & 1), y = 8 * int(rng() & 1);
        uint8_t scratch[144];
        Compose(want.Block(), ref.Block(x + whole[0], y + whole[1]), vx, vy, Canvas::kPitch, rounding);
        InterpolateQuarterPel8x8(dst.Block(), ref.Block(), scratch, x, y, vx, vy, Canvas::kPitch, rounding);
        ASSERT_EQ(want.px, dst.px);
    }
}

TEST(InterpolateQuarterPel8x8, CopiesAtWholeSamplePositions) {
    std::mt19937 rng(1);
    Canvas ref(kAnyByte, rng), dst;
    InterpolateQuarterPel8x8(dst.Block(), ref.Block(), nullptr, 8, 8, -12, 20, Canvas::kPitch, 1);
    for (int y = 0; y < 8; y++)
        for (int x = 0; x < 8; x++) ASSERT_EQ(*ref.Block(8 - 3 + x, 8 + 5 + y), *dst.Block(x, y));
}

TEST(InterpolateQuarterPel8x8, UsesNineRowsOfScratch) {
    for (const auto guard : {GuardedBytes::kBehind, GuardedBytes::kBefore})
        for (int phases = 0; phases < 16; phases++) {
            GuardedBytes scratch(8 * 16 + 8, guard);
            std::fill_n(scratch.data(), 8 * 16 + 8, uint8_t(0xEE));
            std::mt19937 rng{unsigned(phases)};
            Canvas ref(kSmooth, rng), dst;
            InterpolateQuarterPel8x8(dst.Block(), ref.Block(), scratch.data(), 0, 0, phases & 3, phases >> 2,
                                     Canvas::kPitch, 0);
            const bool both = (phases & 3) && (phases >> 2);
            for (int y = 0; y < 9; y++) ASSERT_EQ(both, scratch.data()[16 * y] != 0xEE) << phases << ' ' << y;
        }
}

int g_passes;
void CountingPass(uint8_t*, const uint8_t*, int32_t, int32_t, int32_t, uint32_t) {
    g_passes++;
}
void CountingCopy(uint8_t*, const uint8_t*, int32_t) {
    g_passes++;
}

TEST(InterpolateQuarterPel8x8, CallsThroughTheKernelVariables) {
    Canvas ref, dst;
    uint8_t scratch[144];
    const auto run = [&](int vx, int vy) {
        g_passes = 0;
        InterpolateQuarterPel8x8(dst.Block(), ref.Block(), scratch, 0, 0, vx, vy, Canvas::kPitch, 0);
        return g_passes;
    };
    {
        Replace<Mp4vMemCopyBlock*> replaced(MemCopy8x8, CountingCopy);
        EXPECT_EQ(1, run(0, 0));
    }
    Mp4vQpelPass** const horizontal[3] = {&HorzPassAvg8, &HorzPass8, &HorzPassAvgUp8};
    Mp4vQpelPass** const vertical[3] = {&VertPassAvg8, &VertPass8, &VertPassAvgUp8};
    for (int i = 0; i < 3; i++) {
        {
            Replace<Mp4vQpelPass*> replaced(*horizontal[i], CountingPass);
            for (int vy = 0; vy < 4; vy++) EXPECT_EQ(1, run(i + 1, vy));
            EXPECT_EQ(0, run(0, 2));
        }
        Replace<Mp4vQpelPass*> replaced(*vertical[i], CountingPass);
        for (int vx = 0; vx < 4; vx++) EXPECT_EQ(1, run(vx, i + 1));
        EXPECT_EQ(0, run(2, 0));
    }
}

TEST(InterpolateQuarterPel8x8, ReadsOnlyTheSamplesOfItsPhases) {
    for (const auto guard : {GuardedBytes::kBehind, GuardedBytes::kBefore})
        for (int phases = 0; phases < 16; phases++) {
            const int columns = phases & 3 ? 9 : 8, rows = phases >> 2 ? 9 : 8, pitch = 24;
            const size_t size = size_t((rows - 1) * pitch + columns);
            GuardedBytes ref(size, guard);
            std::mt19937 rng{unsigned(phases)};
            Fill(ref.data(), size, kAnyByte, rng);
            uint8_t dst[8 * 24], want[8 * 24], padded[9 * 24 + 9] = {}, scratch[144];
            std::copy_n(ref.data(), size, padded);
            Compose(want, padded, phases & 3, phases >> 2, pitch, 0);
            InterpolateQuarterPel8x8(dst, ref.data(), scratch, 0, 0, phases & 3, phases >> 2, pitch, 0);
            for (int y = 0; y < 8; y++)
                ASSERT_TRUE(std::equal(want + y * pitch, want + y * pitch + 8, dst + y * pitch));
        }
}

}  // namespace
}  // namespace mp4v::test
