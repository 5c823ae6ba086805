// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>

#include "c/copy_rows.h"
#include "common/kernels.h"
#include "support/sample_block.h"

namespace mp4v::test {
namespace {

struct CopyKernel {
    const char* name;
    Mp4vMemCopyBlock** same;     // one pitch, or
    Mp4vMemCopyStride** stride;  // two
    int width, rows;
};

std::ostream& operator<<(std::ostream& out, const CopyKernel& k) {
    return out << k.name;
}

const CopyKernel kKernels[] = {
    {"MemCopy16x16", &MemCopy16x16, nullptr, 16, 16},
    {"MemCopy8x8", &MemCopy8x8, nullptr, 8, 8},
    {"MemCopy8x4", &MemCopy8x4, nullptr, 8, 4},
    {"MemCopyStride16x16", nullptr, &MemCopyStride16x16, 16, 16},
    {"MemCopyStride16x8", nullptr, &MemCopyStride16x8, 16, 8},
    {"MemCopyStride8x8", nullptr, &MemCopyStride8x8, 8, 8},
    {"MemCopyStride8x4", nullptr, &MemCopyStride8x4, 8, 4},
};

void CopyWith(const CopyKernel& k, uint8_t* dst, int dstPitch, const uint8_t* src, int srcPitch) {
    if (k.same)
        (*k.same)(dst, src, srcPitch);
    else
        (*k.stride)(src, srcPitch, dst, dstPitch);
}

class BlockCopy : public testing::TestWithParam<CopyKernel> {};

TEST_P(BlockCopy, CopiesExactlyItsBlock) {
    const CopyKernel& k = GetParam();
    for (unsigned seed = 0; seed < 32; seed++) {
        std::mt19937 rng(seed);
        Canvas src(kAnyByte, rng), dst(kAnyByte, rng);
        const int pitch = k.same ? Canvas::kPitch : Canvas::kPitch - 7;
        const int shift = int(seed % 16);
        Canvas want = dst;
        for (int y = 0; y < k.rows; y++)
            for (int x = 0; x < k.width; x++) *want.Block(x, y) = src.Block(shift, 0)[y * pitch + x];
        CopyWith(k, dst.Block(), Canvas::kPitch, src.Block(shift, 0), pitch);
        ASSERT_EQ(want.px, dst.px);
    }
}

TEST_P(BlockCopy, TakesSeparateOrEqualPitchesAsItsSignatureSays) {
    const CopyKernel& k = GetParam();
    std::mt19937 rng(1);
    Canvas src(kAnyByte, rng), dst;
    const int dstPitch = k.same ? Canvas::kPitch : 2 * Canvas::kPitch;
    CopyWith(k, dst.Block(), dstPitch, src.Block(), Canvas::kPitch);
    for (int y = 0; y < k.rows; y++)
        for (int x = 0; x < k.width; x++) ASSERT_EQ(*src.Block(x, y), dst.Block()[y * dstPitch + x]);
}

TEST_P(BlockCopy, StaysInsideTheBlock) {
    const CopyKernel& k = GetParam();
    for (const auto guard : {GuardedBytes::kBehind, GuardedBytes::kBefore})
        for (const int pitch : {16, 31}) {
            const size_t size = size_t((k.rows - 1) * pitch + k.width);
            GuardedBytes src(size, guard), dst(size, guard);
            std::mt19937 rng{unsigned(pitch)};
            Fill(src.data(), size, kAnyByte, rng);
            CopyWith(k, dst.data(), pitch, src.data(), pitch);
            EXPECT_EQ(src.data()[size - 1], dst.data()[size - 1]);
            EXPECT_EQ(src.data()[0], dst.data()[0]);
        }
}

TEST_P(BlockCopy, WalksUpwardsAtANegativePitch) {
    const CopyKernel& k = GetParam();
    std::mt19937 rng(2);
    Canvas src(kAnyByte, rng), dst(kAnyByte, rng);
    Canvas want = dst;
    for (int y = 0; y < k.rows; y++)
        for (int x = 0; x < k.width; x++) *want.Block(x, 20 - y) = *src.Block(x, 20 - y);
    CopyWith(k, dst.Block(0, 20), -Canvas::kPitch, src.Block(0, 20), -Canvas::kPitch);
    ASSERT_EQ(want.px, dst.px);
}

INSTANTIATE_TEST_SUITE_P(Portable, BlockCopy, testing::ValuesIn(kKernels),
                         [](const auto& test) { return std::string(test.param.name); });

TEST(ByteFill, WritesTheLowEightBitsOfTheValue) {
    for (Mp4vMemSet* kernel : {MemSet, MemSet16, MemSetAlign16})
        for (const uint32_t count : {0u, 1u, 15u, 16u, 17u, 333u}) {
            std::vector<uint8_t> dst(400, 9), want = dst;
            std::fill_n(want.begin() + 32, count, uint8_t(0x5D));
            kernel(dst.data() + 32, 0xFFFFFF5Du, count);
            ASSERT_EQ(want, dst) << count;
        }
}

TEST(ByteCopy, CopiesTheGivenCount) {
    for (Mp4vMemCopy* kernel : {MemCopy8, MemCopyAlign16})
        for (const uint32_t count : {0u, 1u, 7u, 8u, 9u, 333u}) {
            std::mt19937 rng(count);
            std::vector<uint8_t> src(400), dst(400, 9), want = dst;
            Fill(src.data(), src.size(), kAnyByte, rng);
            std::copy_n(src.begin() + 3, count, want.begin() + 32);
            kernel(dst.data() + 32, src.data() + 3, count);
            ASSERT_EQ(want, dst) << count;
        }
}

// ---- Blocks of 16-bit values

uint8_t Clip(int v) {
    return uint8_t(v < 0 ? 0 : v > 255 ? 255 : v);
}

TEST(McCopy16to8, ClipsEveryValue) {
    int16_t block[64];
    for (int first = INT16_MIN; first <= INT16_MAX; first += 64) {
        for (int i = 0; i < 64; i++) block[i] = int16_t(first + i);
        Canvas dst, want;
        for (int i = 0; i < 64; i++) *want.Block(i & 7, i >> 3) = Clip(block[i]);
        McCopy16to8(dst.Block(), block, Canvas::kPitch);
        ASSERT_EQ(want.px, dst.px) << first;
    }
}

TEST(McCopy16to8, MapsTheValuesOutsideTheSampleRange) {
    int16_t block[64] = {-1, 256, 300, -32768, 0, 255, 32767};
    Canvas dst;
    McCopy16to8(dst.Block(), block, Canvas::kPitch);
    const uint8_t want[7] = {0, 255, 255, 0, 0, 255, 255};
    EXPECT_TRUE(std::equal(want, want + 7, dst.Block()));
}

TEST(McAdd16to8, AddsInSixteenBitsAndClips) {
    for (unsigned seed = 0; seed < 500; seed++) {
        std::mt19937 rng(seed);
        Canvas dst(int(seed % kFillModes), rng);
        Canvas want = dst;
        int16_t block[64];
        const int range = seed & 1 ? 65536 : 1024;
        for (int i = 0; i < 64; i++) {
            block[i] = int16_t(int(rng() % unsigned(range)) - range / 2);
            int sum = *dst.Block(i & 7, i >> 3) + block[i];
            if (sum > 32767) sum -= 65536;
            *want.Block(i & 7, i >> 3) = Clip(sum);
        }
        McAdd16to8(dst.Block(), block, Canvas::kPitch);
        ASSERT_EQ(want.px, dst.px);
    }
}

TEST(McAdd16to8, SaturatesAtBothEnds) {
    int16_t block[64] = {100, -20};
    Canvas dst;
    *dst.Block(0, 0) = 200;
    *dst.Block(1, 0) = 10;
    McAdd16to8(dst.Block(), block, Canvas::kPitch);
    EXPECT_EQ(255, *dst.Block(0, 0));
    EXPECT_EQ(0, *dst.Block(1, 0));
}

TEST(McAdd16to8, WrapsLargeSumsBeforeClipping) {
    int16_t block[64] = {32767, 32767};
    Canvas dst;
    *dst.Block(0, 0) = 1;
    *dst.Block(1, 0) = 0;
    McAdd16to8(dst.Block(), block, Canvas::kPitch);
    EXPECT_EQ(0, *dst.Block(0, 0));
    EXPECT_EQ(255, *dst.Block(1, 0));
}

TEST(Mc16to8, StaysInsideTheBlock) {
    for (const auto guard : {GuardedBytes::kBehind, GuardedBytes::kBefore}) {
        const int pitch = 19;
        GuardedBytes dst(7 * pitch + 8, guard), block(128, guard);
        int16_t values[64];
        std::fill_n(values, 64, int16_t(77));
        std::memcpy(block.data(), values, 128);
        McCopy16to8(dst.data(), reinterpret_cast<const int16_t*>(block.data()), pitch);
        EXPECT_EQ(77, dst.data()[7 * pitch + 7]);
        McAdd16to8(dst.data(), reinterpret_cast<const int16_t*>(block.data()), pitch);
        EXPECT_EQ(154, dst.data()[7 * pitch + 7]);
    }
}

// Three planes of noise: two macroblocks more to the left and three rows more above than the macroblocks take.
struct MbPlanes {
    size_t count;
    GuardedBytes y, u, v;

    MbPlanes(size_t macroblocks, unsigned seed)
        : count(macroblocks), y(Pitch(16) * 19), u(Pitch(8) * 11), v(Pitch(8) * 11) {
        std::mt19937 rng(seed);
        Fill(y.data(), Pitch(16) * 19, kAnyByte, rng);
        Fill(u.data(), Pitch(8) * 11, kAnyByte, rng);
        Fill(v.data(), Pitch(8) * 11, kAnyByte, rng);
    }
    size_t Pitch(size_t size) const { return size * (count + 2); }
    // The macroblocks end where the planes do.
    MbAddress Start() const { return {At(y, 16), At(u, 8), At(v, 8)}; }
    uint8_t* At(const GuardedBytes& plane, size_t size) const { return plane.data() + 3 * Pitch(size) + 2 * size; }
};

TEST(CopyMbs, CopiesExactlyItsMacroblocks) {
    for (size_t count = 0; count <= 17; count++) {
        SCOPED_TRACE(count);
        const MbPlanes src(count, 1), dst(count + 3, 2), want(count + 3, 2);
        const auto copy = [count](uint8_t* to, size_t to_pitch, const uint8_t* from, size_t from_pitch, size_t size) {
            for (size_t y = 0; y < size; y++) std::copy_n(from + y * from_pitch, size * count, to + y * to_pitch);
        };
        copy(want.Start().pu8Y, want.Pitch(16), src.Start().pu8Y, src.Pitch(16), 16);
        copy(want.Start().pu8U, want.Pitch(8), src.Start().pu8U, src.Pitch(8), 8);
        copy(want.Start().pu8V, want.Pitch(8), src.Start().pu8V, src.Pitch(8), 8);
        CopyMbs(src.Start(), ptrdiff_t(src.Pitch(16)), dst.Start(), ptrdiff_t(dst.Pitch(16)), count);
        EXPECT_TRUE(std::equal(want.y.data(), want.y.data() + 19 * want.Pitch(16), dst.y.data()));
        EXPECT_TRUE(std::equal(want.u.data(), want.u.data() + 11 * want.Pitch(8), dst.u.data()));
        EXPECT_TRUE(std::equal(want.v.data(), want.v.data() + 11 * want.Pitch(8), dst.v.data()));
    }
}

}  // namespace
}  // namespace mp4v::test
