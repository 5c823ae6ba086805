// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <string>

#include "common/kernels.h"
#include "support/sample_block.h"

namespace mp4v::test {
namespace {

// ---- The edge filter

int FloorShift(int v, int bits) {
    return v >= 0 ? v >> bits : -((-v + (1 << bits) - 1) >> bits);
}

void FilterColumn(uint8_t* edge, ptrdiff_t pitch, uint32_t qp) {
    const int d = edge[0] - edge[-pitch];
    if (uint64_t(std::abs(d)) >= 2 * uint64_t(qp)) return;
    for (int row = 0; row < 3; row++) {
        uint8_t& above = edge[-(row + 1) * pitch];
        uint8_t& below = edge[row * pitch];
        above = uint8_t(std::clamp(above + FloorShift(d, row + 1), 0, 255));
        below = uint8_t(std::clamp(below - FloorShift(d, row + 1), 0, 255));
    }
}

TEST(Deblock8x8Horiz, SmoothsEveryColumnByItsOwnStep) {
    for (unsigned seed = 0; seed < 2000; seed++) {
        SCOPED_TRACE(testing::Message() << "seed " << seed);
        std::mt19937 rng(seed);
        Canvas picture(int(seed % kFillModes), rng);
        const uint32_t qp = uint32_t(seed % 3 ? seed % 40 : rng() % 300);
        Canvas want = picture;
        for (int x = 0; x < 8; x++) FilterColumn(want.Block(x, 0), Canvas::kPitch, qp);
        Deblock8x8Horiz(picture.Block(), Canvas::kPitch, qp);
        ASSERT_EQ(want.px, picture.px);
    }
}

TEST(Deblock8x8Horiz, IsExactForEveryPairAcrossTheEdge) {
    for (int above = 0; above < 256; above++)
        for (int below = 0; below < 256; below += 8) {
            Canvas picture;
            for (int x = 0; x < 8; x++) {
                *picture.Block(x, -1) = uint8_t(above);
                *picture.Block(x, 0) = uint8_t(below + x);
            }
            Canvas want = picture;
            const uint32_t qp = uint32_t(above * 3 + below) % 129;
            for (int x = 0; x < 8; x++) FilterColumn(want.Block(x, 0), Canvas::kPitch, qp);
            Deblock8x8Horiz(picture.Block(), Canvas::kPitch, qp);
            ASSERT_EQ(want.px, picture.px) << above << ' ' << below << ' ' << qp;
        }
}

TEST(Deblock8x8Horiz, TurnsAStepIntoARamp) {
    Canvas picture;
    for (int x = 0; x < 8; x++)
        for (int row = -4; row < 4; row++) *picture.Block(x, row) = row < 0 ? 100 : 117;
    Deblock8x8Horiz(picture.Block(), Canvas::kPitch, 11);
    const int want[8] = {100, 102, 104, 108, 109, 113, 115, 117};  // 17 >> 3, 2, 1 = 2, 4, 8
    for (int row = -4; row < 4; row++)
        for (int x = 0; x < 8; x++) EXPECT_EQ(want[row + 4], *picture.Block(x, row)) << row;
}

TEST(Deblock8x8Horiz, RoundsNegativeStepsDown) {
    Canvas picture;
    for (int x = 0; x < 8; x++)
        for (int row = -4; row < 4; row++) *picture.Block(x, row) = row < 0 ? 101 : 100;
    Deblock8x8Horiz(picture.Block(), Canvas::kPitch, 11);
    const int want[8] = {101, 100, 100, 100, 101, 101, 101, 100};  // -1 >> n is -1
    for (int row = -4; row < 4; row++) EXPECT_EQ(want[row + 4], *picture.Block(0, row)) << row;
}

TEST(Deblock8x8Horiz, LeavesAStepOfTwiceTheQuantiserAlone) {
    for (const int sign : {-1, 1})
        for (const int qp : {1, 11, 31, 60}) {
            Canvas picture;
            for (int row = -3; row < 3; row++)
                for (int x = 0; x < 8; x++)
                    *picture.Block(x, row) = uint8_t(row < 0 ? 128 : 128 + sign * (2 * qp - x % 2));
            Deblock8x8Horiz(picture.Block(), Canvas::kPitch, uint32_t(qp));
            for (int x = 0; x < 8; x += 2)
                for (int row = -3; row < 3; row++)
                    EXPECT_EQ(row < 0 ? 128 : 128 + sign * 2 * qp, *picture.Block(x, row));
            const int step = sign * (2 * qp - 1);  // one less is smoothed
            EXPECT_EQ(128 + FloorShift(step, 1), *picture.Block(1, -1));
            EXPECT_EQ(128 + step - FloorShift(step, 1), *picture.Block(1, 0));
        }
}

TEST(Deblock8x8Horiz, ClipsToTheSampleRange) {
    Canvas picture;
    for (int x = 0; x < 8; x++) {
        const bool up = x & 1;
        *picture.Block(x, -3) = up ? 255 : 0;
        *picture.Block(x, -2) = up ? 255 : 0;
        *picture.Block(x, -1) = up ? 0 : 255;
        *picture.Block(x, 0) = up ? 255 : 0;
        *picture.Block(x, 1) = up ? 0 : 255;
        *picture.Block(x, 2) = up ? 0 : 255;
    }
    Deblock8x8Horiz(picture.Block(), Canvas::kPitch, 200);
    const int want[2][6] = {{0, 0, 127, 128, 255, 255}, {255, 255, 127, 128, 0, 0}};
    for (int x = 0; x < 8; x++)
        for (int row = 0; row < 6; row++) EXPECT_EQ(want[x & 1][row], *picture.Block(x, row - 3)) << x << ' ' << row;
}

TEST(Deblock8x8Horiz, DoesNothingAtQuantiserZero) {
    std::mt19937 rng(1);
    Canvas picture(kSmooth, rng);
    const Canvas want = picture;
    Deblock8x8Horiz(picture.Block(), Canvas::kPitch, 0);
    EXPECT_EQ(want.px, picture.px);
}

TEST(Deblock8x8Horiz, SmoothsEveryStepAtHugeQuantisers) {
    for (const uint32_t qp : {128u, 129u, 32768u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu}) {
        Canvas picture;
        *picture.Block(0, -1) = 0;
        *picture.Block(0, 0) = 255;
        Deblock8x8Horiz(picture.Block(), Canvas::kPitch, qp);
        EXPECT_EQ(127, *picture.Block(0, -1)) << qp;
        EXPECT_EQ(128, *picture.Block(0, 0)) << qp;
    }
}

TEST(Deblock8x8Horiz, StaysInsideSixRowsOfEight) {
    for (const auto guard : {GuardedBytes::kBehind, GuardedBytes::kBefore}) {
        const int pitch = 9;
        GuardedBytes picture(5 * pitch + 8, guard);
        std::fill_n(picture.data(), 5 * pitch + 8, uint8_t(10));
        for (int x = 0; x < 8; x++) picture.data()[3 * pitch + x] = 18;
        Deblock8x8Horiz(picture.data() + 3 * pitch, pitch, 31);
        EXPECT_EQ(11, picture.data()[0]);
        EXPECT_EQ(9, picture.data()[5 * pitch + 7]);
    }
}

// ---- Transposition

struct TransposeKernel {
    const char* name;
    Mp4vTranspose** kernel;
    int size;
};

std::ostream& operator<<(std::ostream& out, const TransposeKernel& k) {
    return out << k.name;
}

class Transpose : public testing::TestWithParam<TransposeKernel> {};

TEST_P(Transpose, TurnsColumnsIntoRows) {
    const TransposeKernel& k = GetParam();
    for (unsigned seed = 0; seed < 50; seed++) {
        std::mt19937 rng(seed);
        Canvas src(kAnyByte, rng), dst(kAnyByte, rng);
        const int dstPitch = seed & 1 ? Canvas::kPitch : 17, srcPitch = seed & 2 ? Canvas::kPitch : 16;
        const int shift = int(seed % 16);
        Canvas want = dst;
        for (int y = 0; y < k.size; y++)
            for (int x = 0; x < k.size; x++) want.Block()[y * dstPitch + x] = src.Block(shift, 0)[x * srcPitch + y];
        (*k.kernel)(dst.Block(), dstPitch, src.Block(shift, 0), srcPitch);
        ASSERT_EQ(want.px, dst.px);
    }
}

TEST_P(Transpose, StaysInsideItsBlocks) {
    const TransposeKernel& k = GetParam();
    for (const auto guard : {GuardedBytes::kBehind, GuardedBytes::kBefore}) {
        const int pitch = 23;
        const size_t size = size_t((k.size - 1) * pitch + k.size);
        GuardedBytes src(size, guard), dst(size, guard);
        std::mt19937 rng(1);
        Fill(src.data(), size, kAnyByte, rng);
        (*k.kernel)(dst.data(), pitch, src.data(), pitch);
        for (int y = 0; y < k.size; y++)
            for (int x = 0; x < k.size; x++) ASSERT_EQ(src.data()[x * pitch + y], dst.data()[y * pitch + x]);
    }
}

INSTANTIATE_TEST_SUITE_P(Portable, Transpose,
                         testing::Values(TransposeKernel{"Transpose8x8", &Mp4vDecTranspose8x8, 8},
                                         TransposeKernel{"Transpose16x16", &Mp4vDecTranspose16x16, 16}),
                         [](const auto& test) { return std::string(test.param.name); });

}  // namespace
}  // namespace mp4v::test
