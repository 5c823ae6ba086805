// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <numbers>
#include <random>
#include <thread>
#include <vector>

#include "common/kernels.h"
#include "support/sample_block.h"

namespace mp4v::test {
namespace {

using Block = std::vector<int16_t>;  // 64 values

// ---- The live transform, value by value

int M(int x, int y) {
    return (x + y + 16384) >> 15;
}

struct OddPart {
    int sum, o1, o2, difference;
};

OddPart Odd(int x1, int x3, int x5, int x7) {
    const int a = M(x1 * 22725, x7 * 4520);
    const int b = M(x1 * 4520, -x7 * 22725);
    const int d = M(x3 * 19266, x5 * 12873);
    const int c = M(x5 * 19266, -x3 * 12873);
    const int u = int16_t(a - d), v = int16_t(b - c);
    return {a + d, M((u + v) * 23170, 0), M((u - v) * 23170, 0), b + c};
}

void Butterfly(const int (&x)[8], int s, int t, int16_t (&y)[8]) {
    const OddPart odd = Odd(x[1], x[3], x[5], x[7]);
    const int p = M(x[2] * 21407, x[6] * 8867);
    const int q = M(x[2] * 8867, -x[6] * 21407);
    const int e0 = s + p, e3 = s - p, e1 = t + q, e2 = t - q;
    y[0] = int16_t(e0 + odd.sum);
    y[1] = int16_t(e1 + odd.o1);
    y[2] = int16_t(e2 + odd.o2);
    y[3] = int16_t(e3 + odd.difference);
    y[4] = int16_t(e3 - odd.difference);
    y[5] = int16_t(e2 - odd.o2);
    y[6] = int16_t(e1 - odd.o1);
    y[7] = int16_t(e0 - odd.sum);
}

int16_t Descaled(uint32_t lane) {
    return int16_t(std::clamp<int>(int16_t(uint16_t(lane)), -16384, 16383) >> 6);
}

Block LiveTransform(Block block) {
    for (int row = 0; row < 8; row++) {
        int x[8];
        int16_t y[8];
        for (int i = 0; i < 8; i++) x[i] = int16_t(uint16_t(block[size_t(8 * row + i)] * 16));
        Butterfly(x, (x[0] + x[4]) >> 1, (x[0] - x[4]) >> 1, y);
        for (int i = 0; i < 8; i++) block[size_t(8 * row + i)] = y[i];
    }
    for (int column = 0; column < 8; column++) {
        int y[8];
        int16_t out[8];
        for (int i = 0; i < 8; i++) y[i] = block[size_t(8 * i + column)];
        Butterfly(y, (y[0] + y[4] + 1) >> 1, (y[0] - y[4] + 1) >> 1, out);
        static const int pairs[4][2] = {{1, 0}, {2, 3}, {5, 4}, {6, 7}};  // high half, low half
        for (const auto& pair : pairs) {
            const uint32_t high = uint16_t(out[pair[0]]), low = uint16_t(out[pair[1]]);
            const uint32_t packed = (high * 65536 + low) * 2 + 0x001F001F;
            block[size_t(8 * pair[0] + column)] = Descaled(packed >> 16);
            block[size_t(8 * pair[1] + column)] = Descaled(packed & 0xFFFF);
        }
    }
    return block;
}

// ---- The transform of the standard in double precision, before clipping

std::vector<double> ExactTransform(const Block& block) {
    static const auto basis = [] {
        std::vector<double> table(64);
        for (int k = 0; k < 8; k++)
            for (int n = 0; n < 8; n++)
                table[size_t(8 * k + n)] =
                    (k ? 0.5 : std::sqrt(0.125)) * std::cos((2 * n + 1) * k * std::numbers::pi / 16);
        return table;
    }();
    std::vector<double> rows(64), out(64);
    for (size_t v = 0; v < 8; v++)
        for (size_t x = 0; x < 8; x++)
            for (size_t u = 0; u < 8; u++) rows[8 * v + x] += block[8 * v + u] * basis[8 * u + x];
    for (size_t y = 0; y < 8; y++)
        for (size_t x = 0; x < 8; x++)
            for (size_t v = 0; v < 8; v++) out[8 * y + x] += rows[8 * v + x] * basis[8 * v + y];
    return out;
}

Block RandomBlock(std::mt19937& rng, int range, unsigned density) {
    Block block(64);
    for (int16_t& v : block)
        if (rng() % 64 < density) v = int16_t(int(rng() % unsigned(2 * range)) - range);
    return block;
}

// Coefficients of a random residual within [-limit, limit], as an encoder would form them.
Block ResidualBlock(std::mt19937& rng, int limit) {
    double samples[64];
    for (double& s : samples) s = int(rng() % unsigned(2 * limit + 1)) - limit;
    Block block(64);
    for (int v = 0; v < 8; v++)
        for (int u = 0; u < 8; u++) {
            double sum = 0;
            for (int y = 0; y < 8; y++)
                for (int x = 0; x < 8; x++)
                    sum += samples[8 * y + x] * std::cos((2 * x + 1) * u * std::numbers::pi / 16) *
                           std::cos((2 * y + 1) * v * std::numbers::pi / 16);
            sum *= (u ? 0.5 : std::sqrt(0.125)) * (v ? 0.5 : std::sqrt(0.125));
            block[size_t(8 * v + u)] = int16_t(std::clamp(std::lround(sum), -2048l, 2047l));
        }
    return block;
}

Block Transformed(Block block) {
    Idct8x8(block.data());
    return block;
}

TEST(Idct8x8, FollowsItsDefinitionOnDequantisedBlocks) {
    std::mt19937 rng(1);
    for (int n = 0; n < 20000; n++) {
        const Block block = RandomBlock(rng, 1 << (2 + n % 10), 1 + unsigned(n / 10 % 64));
        ASSERT_EQ(LiveTransform(block), Transformed(block)) << n;
    }
}

TEST(Idct8x8, FollowsItsDefinitionOnResiduals) {
    std::mt19937 rng(2);
    for (int n = 0; n < 1000; n++) {
        const Block block = ResidualBlock(rng, 1 + n % 255);
        ASSERT_EQ(LiveTransform(block), Transformed(block)) << n;
    }
}

TEST(Idct8x8, FollowsItsDefinitionOnAnySixteenBitValues) {
    std::mt19937 rng(3);
    for (int n = 0; n < 20000; n++) {
        const Block block = RandomBlock(rng, 32768, 1 + unsigned(n % 64));
        ASSERT_EQ(LiveTransform(block), Transformed(block)) << n;
    }
}

// Every butterfly sum at its largest: signs chosen at random, magnitudes at the ends.
TEST(Idct8x8, FollowsItsDefinitionOnExtremeValues) {
    std::mt19937 rng(4);
    static const int16_t values[] = {-32768, 32767, -2048, 2047, 2032, -2033, 0};
    for (int n = 0; n < 20000; n++) {
        Block block(64);
        const unsigned kinds = 2 + unsigned(n % 6);
        for (int16_t& v : block) v = values[rng() % kinds + (n % 2 && kinds < 6 ? 1 : 0)];
        ASSERT_EQ(LiveTransform(block), Transformed(block)) << n;
    }
}

TEST(Idct8x8, FollowsItsDefinitionForEverySingleCoefficient) {
    for (size_t at = 0; at < 64; at++)
        for (int value = -2048; value < 2048; value += at ? 13 : 1) {
            Block block(64);
            block[at] = int16_t(value);
            ASSERT_EQ(LiveTransform(block), Transformed(block)) << at << ' ' << value;
        }
}

TEST(Idct8x8, KeepsAnEmptyBlockEmpty) {
    EXPECT_EQ(Block(64), Transformed(Block(64)));
}

void ExpectDcRows(int dc, int rows0347, int rows1256) {
    Block block(64);
    block[0] = int16_t(dc);
    const Block out = Transformed(block);
    for (size_t i = 0; i < 64; i++) {
        const size_t row = i / 8;
        const bool low = row == 0 || row == 3 || row == 4 || row == 7;
        EXPECT_EQ(low ? rows0347 : rows1256, out[i]) << dc << " row " << row;
    }
}

TEST(Idct8x8, CarriesIntoTheHighRowsForSmallNegativeDc) {
    ExpectDcRows(-4, -1, 0);
}

TEST(Idct8x8, GivesTheSameInAllRowsForPositiveDc) {
    ExpectDcRows(4, 0, 0);
    ExpectDcRows(12, 1, 1);
}

TEST(Idct8x8, ClampsTheLargestDc) {
    ExpectDcRows(2047, 255, 255);
}

// (8 * D + 31) >> 6, plus 1 (D < -3) or 2 (-3 <= D < 0) units of 1/64 in the high rows.
TEST(Idct8x8, FollowsTheDcFormulaOverTheWholeRange) {
    for (int dc = -2047; dc <= 2047; dc++) {
        const int carry = dc >= 0 ? 0 : dc < -3 ? 1 : 2;
        const auto shifted = [](int v) { return std::clamp(int(std::floor(v / 64.0)), -256, 255); };
        ExpectDcRows(dc, shifted(8 * dc + 31), shifted(8 * dc + 31 + carry));
    }
}

TEST(Idct8x8, CountsOnlyTheLowTwelveBitsOfItsInput) {
    std::mt19937 rng(5);
    for (int n = 0; n < 200; n++) {
        const Block block = RandomBlock(rng, 2048, 64);
        Block other = block;
        for (int16_t& v : other) v = int16_t(uint16_t(v + 4096 * int(rng() % 16)));
        ASSERT_EQ(Transformed(block), Transformed(other));
    }
}

// The carry between lanes costs at most one more unit than rounding does.
TEST(Idct8x8, StaysWithinTwoOfTheExactTransformOnResiduals) {
    std::mt19937 rng(6);
    double sumOfErrors = 0;
    const int blocks = 500;
    for (int n = 0; n < blocks; n++) {
        const Block block = ResidualBlock(rng, 1 + n % 250);
        const Block out = Transformed(block);
        const std::vector<double> exact = ExactTransform(block);
        for (size_t i = 0; i < 64; i++) {
            const double error = std::clamp(exact[i], -256.0, 255.0) - out[i];
            ASSERT_LE(std::abs(error), 2.0) << n << ' ' << i;
            sumOfErrors += std::abs(error);
        }
    }
    EXPECT_LE(sumOfErrors / (64.0 * blocks), 0.35);
}

TEST(Idct8x8, TakesBlocksOfAnyAlignmentAndTouchesNothingElse) {
    std::mt19937 rng(7);
    for (size_t shift = 0; shift < 8; shift++) {
        const Block block = RandomBlock(rng, 2048, 64);
        Block memory(80, 0x5A5A), want = memory;
        std::copy(block.begin(), block.end(), memory.begin() + std::ptrdiff_t(8 + shift));
        const Block out = LiveTransform(block);
        std::copy(out.begin(), out.end(), want.begin() + std::ptrdiff_t(8 + shift));
        Idct8x8(memory.data() + 8 + shift);
        ASSERT_EQ(want, memory);
    }
}

// ---- The second transform

Block SimpleTransformed(Block block) {
    Mp4vDecIdct8x8_simple1_c(block.data());
    return block;
}

TEST(Idct8x8Simple1, StaysWithinOneOfTheExactTransform) {
    std::mt19937 rng(8);
    for (int n = 0; n < 2000; n++) {
        const Block block =
            n & 1 ? ResidualBlock(rng, 1 + n % 250) : RandomBlock(rng, 1 << (2 + n % 9), 1 + unsigned(n % 6));
        const Block out = SimpleTransformed(block);
        const std::vector<double> exact = ExactTransform(block);
        for (size_t i = 0; i < 64; i++)
            ASSERT_LE(std::abs(std::clamp(exact[i], -256.0, 255.0) - out[i]), 1.0) << n << ' ' << i;
    }
}

TEST(Idct8x8Simple1, AgreesWithTheLiveTransformWithinTwo) {
    std::mt19937 rng(9);
    for (int n = 0; n < 2000; n++) {
        const Block block = ResidualBlock(rng, 1 + n % 250);
        const Block out = SimpleTransformed(block), live = Transformed(block);
        for (size_t i = 0; i < 64; i++) ASSERT_LE(std::abs(out[i] - live[i]), 2) << n << ' ' << i;
    }
}

TEST(Idct8x8Simple1, RoundsDcToNearest) {
    for (int dc = -2048; dc < 2048; dc++) {
        Block block(64);
        block[0] = int16_t(dc);
        const int want = std::clamp(int(std::floor((dc + 4) / 8.0)), -256, 255);
        ASSERT_EQ(Block(64, int16_t(want)), SimpleTransformed(block)) << dc;
    }
}

TEST(Idct8x8Simple1, StaysInRangeOnAnyInput) {
    std::mt19937 rng(10);
    for (int n = 0; n < 5000; n++) {
        const Block out = SimpleTransformed(RandomBlock(rng, 32768, 1 + unsigned(n % 64)));
        for (const int16_t v : out) ASSERT_TRUE(v >= -256 && v <= 255) << v;
    }
}

TEST(Idct8x8Simple1, LeavesEightInItsIndexVariable) {
    l32Idx = 0;
    SimpleTransformed(Block(64));
    EXPECT_EQ(8, l32Idx);
}

// ---- The clipping table

void ExpectClipTable() {
    ASSERT_EQ(&g_as16Clip[512], g_ps16Clp);
    EXPECT_EQ(-256, g_as16Clip[0]);
    EXPECT_EQ(255, g_as16Clip[1023]);
    for (int k = -512; k < 512; k++) ASSERT_EQ(k < -256 ? -256 : k > 255 ? 255 : k, g_ps16Clp[k]) << k;
}

TEST(Idct8x8Init, FindsTheTableComplete) {
    ExpectClipTable();
    Mp4vDecIdct8x8Init_c();
    ExpectClipTable();
}

TEST(Idct8x8Init, RestoresADamagedTable) {
    for (int16_t& v : g_as16Clip) v = 0;
    g_ps16Clp = nullptr;
    Mp4vDecIdct8x8Init_c();
    ExpectClipTable();
}

TEST(Idct8x8Init, MayRunWhileOtherThreadsTransform) {
    Mp4vDecIdct8x8Init_c();
    std::vector<std::thread> threads;
    std::vector<Block> results(4, Block(64, 100));
    for (Block& result : results)
        threads.emplace_back([&result] {
            const Block start = result;
            for (int n = 0; n < 50; n++) {
                Mp4vDecIdct8x8Init_c();
                result = SimpleTransformed(start);
            }
        });
    for (std::thread& thread : threads) thread.join();
    for (const Block& result : results) EXPECT_EQ(SimpleTransformed(Block(64, 100)), result);
}

// ---- Adding to a picture

int16_t g_residual;
int g_transforms;
void FlatTransform(int16_t* block) {
    g_transforms++;
    std::fill_n(block, 64, g_residual);
}

TEST(AddIdct8x8, AddsTheTransformedBlockAndClips) {
    for (unsigned seed = 0; seed < 300; seed++) {
        std::mt19937 rng(seed);
        Canvas dst(int(seed % kFillModes), rng);
        Canvas want = dst;
        Block block = RandomBlock(rng, 1 << (2 + seed % 10), 1 + seed % 64);
        const Block residual = LiveTransform(block);
        for (int i = 0; i < 64; i++) {
            uint8_t& sample = *want.Block(i & 7, i >> 3);
            sample = uint8_t(std::clamp(sample + residual[size_t(i)], 0, 255));
        }
        AddIdct8x8(block.data(), dst.Block(), Canvas::kPitch);
        ASSERT_EQ(want.px, dst.px);
        ASSERT_EQ(residual, block);
    }
}

TEST(AddIdct8x8, SaturatesAtBothEnds) {
    Replace replaced(Idct8x8, FlatTransform);
    Block block(64);
    Canvas dst;
    *dst.Block(0, 0) = 250;
    *dst.Block(7, 7) = 3;
    g_residual = 10;
    AddIdct8x8(block.data(), dst.Block(), Canvas::kPitch);
    EXPECT_EQ(255, *dst.Block(0, 0));
    EXPECT_EQ(13, *dst.Block(7, 7));
    *dst.Block(7, 7) = 3;
    g_residual = -10;
    AddIdct8x8(block.data(), dst.Block(), Canvas::kPitch);
    EXPECT_EQ(0, *dst.Block(7, 7));
}

TEST(AddIdct8x8, SaturatesWhateverAReplacedTransformDelivers) {
    Replace replaced(Idct8x8, FlatTransform);
    Block block(64);
    for (const int residual : {32767, -32768}) {
        Canvas dst;
        g_residual = int16_t(residual);
        AddIdct8x8(block.data(), dst.Block(), Canvas::kPitch);
        EXPECT_EQ(residual > 0 ? 255 : 0, *dst.Block());
    }
}

TEST(AddIdct8x8, StaysInsideTheBlock) {
    for (const auto guard : {GuardedBytes::kBehind, GuardedBytes::kBefore}) {
        const int pitch = 21;
        GuardedBytes dst(7 * pitch + 8, guard), memory(128, guard);
        std::fill_n(dst.data(), 7 * pitch + 8, uint8_t(100));
        std::fill_n(memory.data(), 128, uint8_t(0));
        reinterpret_cast<int16_t*>(memory.data())[0] = 80;
        AddIdct8x8(reinterpret_cast<int16_t*>(memory.data()), dst.data(), pitch);
        EXPECT_EQ(110, dst.data()[0]);
        EXPECT_EQ(110, dst.data()[7 * pitch + 7]);
    }
}

struct MacroblockCanvas {
    Canvas y, u, v;
    Mp4vMbScratch mb = {};

    explicit MacroblockCanvas(std::mt19937& rng) : y(kAnyByte, rng), u(kAnyByte, rng), v(kAnyByte, rng) {
        mb.pu8DstY = y.Block();
        mb.pu8DstU = u.Block();
        mb.pu8DstV = v.Block();
    }
};

void AddClipped(uint8_t* dst, ptrdiff_t pitch, const Block& residual) {
    for (int i = 0; i < 64; i++) {
        uint8_t& sample = dst[(i >> 3) * pitch + (i & 7)];
        sample = uint8_t(std::clamp(sample + residual[size_t(i)], 0, 255));
    }
}

TEST(AddIdct8x8Multi, AddsThePackedBlocksOfEveryPatternAtTheirPlaces) {
    for (unsigned cbp = 0; cbp < 64; cbp++)
        for (const bool field : {false, true}) {
            SCOPED_TRACE(testing::Message() << "cbp " << cbp << " field " << field);
            std::mt19937 rng(cbp);
            MacroblockCanvas mb(rng);
            Canvas wantY = mb.y, wantU = mb.u, wantV = mb.v;
            const int pitch = Canvas::kPitch;
            Block blocks(6 * 64, 1000);  // a block too many would show
            size_t used = 0;
            for (int b = 0; b < 6; b++) {
                if (!(cbp >> (5 - b) & 1)) continue;
                const Block block = RandomBlock(rng, 500, 20);
                std::copy(block.begin(), block.end(), blocks.begin() + std::ptrdiff_t(64 * used++));
                const Block residual = LiveTransform(block);
                if (b >= 4)
                    AddClipped((b == 4 ? wantU : wantV).Block(), pitch, residual);
                else if (field)
                    AddClipped(wantY.Block(8 * (b & 1), b >> 1), 2 * pitch, residual);
                else
                    AddClipped(wantY.Block(8 * (b & 1), 8 * (b >> 1)), pitch, residual);
            }
            AddIdct8x8Multi(&mb.mb, blocks.data(), cbp, field ? pitch : 8 * pitch, field ? 2 * pitch : pitch, pitch);
            ASSERT_EQ(wantY.px, mb.y.px);
            ASSERT_EQ(wantU.px, mb.u.px);
            ASSERT_EQ(wantV.px, mb.v.px);
        }
}

TEST(AddIdct8x8Multi, AddsOneBlockToVForPatternOne) {
    Replace replaced(Idct8x8, FlatTransform);
    std::mt19937 rng(1);
    MacroblockCanvas mb(rng);
    const Canvas wantY = mb.y, wantU = mb.u;
    Block blocks(6 * 64);
    *mb.v.Block(3, 3) = 20;
    g_residual = 5;
    g_transforms = 0;
    AddIdct8x8Multi(&mb.mb, blocks.data(), 1, 8 * Canvas::kPitch, Canvas::kPitch, Canvas::kPitch);
    EXPECT_EQ(1, g_transforms);
    EXPECT_EQ(25, *mb.v.Block(3, 3));
    EXPECT_EQ(wantY.px, mb.y.px);
    EXPECT_EQ(wantU.px, mb.u.px);
}

TEST(AddIdct8x8Multi, IgnoresPatternBitsAboveTheSixBlocks) {
    Replace replaced(Idct8x8, FlatTransform);
    std::mt19937 rng(2);
    MacroblockCanvas mb(rng);
    Block blocks(6 * 64);
    g_transforms = 0;
    AddIdct8x8Multi(&mb.mb, blocks.data(), 0xFFFFFFC0u, 8 * Canvas::kPitch, Canvas::kPitch, Canvas::kPitch);
    EXPECT_EQ(0, g_transforms);
}

int g_adds;
void CountingAdd(int16_t*, uint8_t*, int32_t) {
    g_adds++;
}

TEST(AddIdct8x8Multi, CallsThePortableAddDirectlyAndTheTransformThroughItsVariable) {
    Replace transform(Idct8x8, FlatTransform);
    Replace add(AddIdct8x8, CountingAdd);
    std::mt19937 rng(3);
    MacroblockCanvas mb(rng);
    Block blocks(6 * 64);
    g_adds = g_transforms = 0;
    AddIdct8x8Multi(&mb.mb, blocks.data(), 63, 8 * Canvas::kPitch, Canvas::kPitch, Canvas::kPitch);
    EXPECT_EQ(0, g_adds);
    EXPECT_EQ(6, g_transforms);
}

}  // namespace
}  // namespace mp4v::test
