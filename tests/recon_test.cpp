// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors
#include "c/recon.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <random>
#include <vector>

namespace mp4v::test {
namespace {

using Block = std::vector<int16_t>;    // 64 values
using Samples = std::vector<uint8_t>;  // 16 rows of kPitch, the block in their middle

class Random {
  public:
    explicit Random(uint32_t seed) : engine_(seed) {}
    uint32_t operator()() { return static_cast<uint32_t>(engine_()); }

  private:
    std::mt19937 engine_;
};

constexpr int kPitch = 24;
constexpr size_t kOrigin = 4 * kPitch + 8;

Samples RandomSamples(Random& rng) {
    Samples samples(16 * kPitch);
    for (uint8_t& v : samples) v = static_cast<uint8_t>(rng() % 4 == 0 ? rng() % 2 * 255 : rng());
    return samples;
}

// Values of [-range, range] in the first rows and columns, every one with a chance of density in 64.
Block RandomBlock(Random& rng, int range, size_t rows, size_t columns, unsigned density) {
    Block block(64);
    for (size_t y = 0; y < rows; y++)
        for (size_t x = 0; x < columns; x++)
            if (rng() % 64 < density)
                block[8 * y + x] =
                    static_cast<int16_t>(static_cast<int>(rng() % (2u * static_cast<unsigned>(range) + 1)) - range);
    return block;
}

// Kernel by kernel.
Samples Added(Samples samples, Block block) {
    Mp4vDecIdct8x8_c(block.data());
    McAdd16to8_c(samples.data() + kOrigin, block.data(), kPitch);
    return samples;
}
Samples Stored(Samples samples, Block block) {
    Mp4vDecIdct8x8_c(block.data());
    McCopy16to8_c(samples.data() + kOrigin, block.data(), kPitch);
    return samples;
}

uint32_t PlacesOf(const Block& block) {
    uint32_t places = 0;
    for (uint32_t i = 0; i < 64; i++)
        if (block[i]) places |= i;
    return places;
}

uint32_t SquaresOf(const Block& block) {
    uint64_t squares = 0;
    for (const int16_t v : block) squares += static_cast<uint64_t>(v * v);
    return static_cast<uint32_t>(std::min<uint64_t>(squares, UINT32_MAX));
}

// Nothing is expected of blocks that are too long.
void ExpectAdded(const Block& block, const Samples& samples) {
    const uint32_t squares = SquaresOf(block);
    if (squares > kMaxSquares) return;
    Samples got = samples;
    Block scratch = block;
    AddInterBlock(scratch.data(), got.data() + kOrigin, kPitch, {PlacesOf(block), squares, false});
    ASSERT_EQ(Added(samples, block), got);
    if (block[63]) return;
    Block with_last = block;
    with_last[63] = 1;
    scratch = block;
    got = samples;
    AddInterBlock(scratch.data(), got.data() + kOrigin, kPitch, {PlacesOf(block), squares, true});
    ASSERT_EQ(Added(samples, with_last), got);
}

void ExpectStored(const Block& block, const Samples& samples) {
    Samples got = samples;
    Block scratch = block;
    StoreIntraBlock(scratch.data(), got.data() + kOrigin, kPitch, PlacesOf(block));
    ASSERT_EQ(Stored(samples, block), got);
}

void ExpectStoredH263(const Block& levels, uint32_t quant, uint32_t scaler, const Samples& samples) {
    Block block(64);
    DequantH263Intra_c(block.data(), levels.data(), quant, scaler);
    Samples got = samples;
    Block scratch = levels;
    StoreIntraBlockH263(scratch.data(), got.data() + kOrigin, kPitch, quant, scaler, PlacesOf(levels));
    ASSERT_EQ(Stored(samples, block), got);
}

// All of them on one block, as levels and as coefficients.
void ExpectAll(const Block& block, uint32_t quant, uint32_t scaler, const Samples& samples) {
    ASSERT_NO_FATAL_FAILURE(ExpectAdded(block, samples));
    ASSERT_NO_FATAL_FAILURE(ExpectStored(block, samples));
    ASSERT_NO_FATAL_FAILURE(ExpectStoredH263(block, quant, scaler, samples));
}

TEST(ReconBlock, AgreesWithTheKernelsForEveryFirstCoefficient) {
    Random rng(1);
    const Samples samples = RandomSamples(rng);
    for (int dc = -2048; dc < 2048; dc++) {
        Block block(64);
        block[0] = static_cast<int16_t>(dc);
        ASSERT_NO_FATAL_FAILURE(ExpectAll(block, 1 + static_cast<unsigned>(dc & 31), 8, samples)) << dc;
    }
}

TEST(ReconBlock, AgreesWithTheKernelsForEverySingleCoefficient) {
    Random rng(2);
    const Samples samples = RandomSamples(rng);
    for (size_t at = 0; at < 64; at++)
        for (int value = -2048; value < 2048; value += 23) {
            Block block(64);
            block[at] = static_cast<int16_t>(value);
            ASSERT_NO_FATAL_FAILURE(ExpectAll(block, 1 + rng() % 31, 8 + rng() % 39, samples)) << at << ' ' << value;
        }
}

// Few and many coefficients, small and beyond what the shortcuts are for, in all shapes.
TEST(ReconBlock, AgreesWithTheKernelsOnAnyBlock) {
    Random rng(3);
    for (int n = 0; n < 40000; n++) {
        const int range = 1 << rng() % 12;
        const Block block = RandomBlock(rng, range, 1 + rng() % 8, 1 + rng() % 8, 1 + rng() % 64);
        ASSERT_NO_FATAL_FAILURE(ExpectAll(block, 1 + rng() % 31, 8 + rng() % 39, RandomSamples(rng))) << n;
    }
}

// Around the length up to which no value can wrap, in all shapes: in the direction of a single sample of the result,
// which is the largest that the length allows, of rows and columns and of any.
TEST(ReconBlock, AgreesWithTheKernelsAroundTheLengthThatItsShortcutsAllow) {
    Random rng(8);
    for (int n = 0; n < 40000; n++) {
        const int length = std::array{500, 1000, 700}[static_cast<size_t>(n % 3)];
        const size_t rows = n % 4 < 2 ? 8 : 4, columns = n % 8 < 4 ? 8 : 4;
        const double x = rng() % 8 + 0.5, y = rng() % 8 + 0.5;
        const bool any = rng() % 3 == 0;
        std::vector<double> direction(64);
        double squares = 0;
        for (size_t i = 0; i < 64; i++) {
            if (i / 8 >= rows || i % 8 >= columns || (i == 0 && length == 700)) continue;
            direction[i] = any ? static_cast<double>(rng() % 2001) - 1000
                               : std::cos(x * static_cast<double>(i % 8) * M_PI / 8) *
                                     std::cos(y * static_cast<double>(i / 8) * M_PI / 8);
            if (rng() % 64 == 0) direction[i] = -direction[i];
            squares += direction[i] * direction[i];
        }
        const double scale = (length - static_cast<int>(rng() % 4)) / std::sqrt(squares) * (rng() % 2 ? 1 : -1);
        Block block(64);
        for (size_t i = 0; i < 64; i++) block[i] = static_cast<int16_t>(direction[i] * scale);
        if (length == 700) block[0] = static_cast<int16_t>(rng() % 2 ? 2047 : -2048);
        const Samples samples = RandomSamples(rng);
        ASSERT_NO_FATAL_FAILURE(ExpectAll(block, 1, 1, samples)) << n;
        for (int16_t& v : block) v = static_cast<int16_t>(v / 2);  // as levels, about as long again
        ASSERT_NO_FATAL_FAILURE(ExpectStoredH263(block, 1, 2, samples)) << n;
    }
}

// Around the sum of magnitudes up to which no value can wrap: signs as in the largest sums there are.
TEST(ReconBlock, AgreesWithTheKernelsAroundTheLimitOfItsShortcuts) {
    Random rng(4);
    for (int n = 0; n < 40000; n++) {
        const size_t side = n % 2 ? 4 : 8;
        const int sum = (n % 4 < 2 ? 2000 : 1000) + static_cast<int>(rng() % 9) - 4;
        Block block(64);
        const int parts = 1 + static_cast<int>(rng() % 6);
        for (int left = sum, part = parts; part > 0; part--) {
            const int value = part == 1 ? left : left / part;
            int16_t& at = block[8 * (rng() % side) + rng() % side];
            at = static_cast<int16_t>(std::min(2047, value + std::abs(at)) * (rng() % 2 ? 1 : -1));
            left -= value;
        }
        if (n % 3 == 0) block[0] = static_cast<int16_t>(rng() % 2 ? 2047 : -2048);
        ASSERT_NO_FATAL_FAILURE(ExpectAll(block, 1, 1, RandomSamples(rng))) << n;
    }
}

TEST(ReconBlock, AgreesWithTheKernelsOnAnySixteenBitValues) {
    Random rng(5);
    for (int n = 0; n < 10000; n++) {
        const Block block = RandomBlock(rng, 32767, 1 + rng() % 8, 1 + rng() % 8, 1 + rng() % 64);
        ASSERT_NO_FATAL_FAILURE(ExpectAll(block, rng() % 256, rng() % 47, RandomSamples(rng))) << n;
    }
    for (const int16_t value : {int16_t{-32768}, int16_t{32767}, int16_t{2048}, int16_t{-4096}, int16_t{4095}})
        for (const size_t count : {size_t{1}, size_t{2}, size_t{28}, size_t{64}}) {
            Block block(64);
            std::fill_n(block.begin(), count, value);
            ASSERT_NO_FATAL_FAILURE(ExpectAll(block, 31, 46, RandomSamples(rng))) << value << ' ' << count;
        }
}

TEST(ReconBlock, AgreesWithTheKernelsForEveryQuantiserOfEightBits) {
    Random rng(6);
    for (uint32_t quant = 0; quant < 256; quant++)
        for (int n = 0; n < 40; n++) {
            const Block block = RandomBlock(rng, 1 + n, 1 + rng() % 8, 1 + rng() % 8, 1 + rng() % 16);
            ASSERT_NO_FATAL_FAILURE(ExpectAll(block, quant, rng() % 47, RandomSamples(rng))) << quant;
        }
}

TEST(ReconBlock, FollowsAnyPitch) {
    Random rng(7);
    for (const int pitch : {-24, 8, 24}) {
        const Block block = RandomBlock(rng, 200, 4, 4, 40);
        Samples want = RandomSamples(rng), got = want;
        const size_t origin = 8 * kPitch + 8;
        Block transformed = block, scratch = block;
        Mp4vDecIdct8x8_c(transformed.data());
        McAdd16to8_c(want.data() + origin, transformed.data(), pitch);
        AddInterBlock(scratch.data(), got.data() + origin, pitch, {PlacesOf(block), SquaresOf(block), false});
        ASSERT_EQ(want, got) << pitch;
    }
}

// ---- When the shortcuts may be taken

void OtherIdct(int16_t*) {}
void OtherMulti(Mp4vMbScratch*, int16_t*, uint32_t, int32_t, int32_t, int32_t) {}
void OtherMcCopy(uint8_t*, const int16_t*, int32_t) {}

template <typename T>
class Replaced {
  public:
    Replaced(T& variable, T value) : variable_(variable), before_(variable) { variable = value; }
    ~Replaced() { variable_ = before_; }
    Replaced(const Replaced&) = delete;
    Replaced& operator=(const Replaced&) = delete;

  private:
    T& variable_;
    T before_;
};

TEST(TransformIsPortable, UntilAKernelIsReplaced) {
    EXPECT_TRUE(InterTransformIsPortable());
    EXPECT_TRUE(IntraTransformIsPortable());
    {
        const Replaced<decltype(Idct8x8)> idct(Idct8x8, OtherIdct);
        EXPECT_FALSE(InterTransformIsPortable());
        EXPECT_FALSE(IntraTransformIsPortable());
    }
    {
        const Replaced<decltype(AddIdct8x8Multi)> multi(AddIdct8x8Multi, OtherMulti);
        EXPECT_FALSE(InterTransformIsPortable());
    }
    {
        const Replaced<decltype(McCopy16to8)> copy(McCopy16to8, OtherMcCopy);
        EXPECT_FALSE(IntraTransformIsPortable());
    }
}

}  // namespace
}  // namespace mp4v::test
