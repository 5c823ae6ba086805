// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <vector>

#include "common/kernels.h"
#include "support/sample_block.h"

namespace mp4v::test {
namespace {

int SumAbsDiff(const uint8_t* a, const uint8_t* b) {
    int sum = 0;
    for (int i = 0; i < 8; i++) sum += std::abs(a[i] - b[i]);
    return sum;
}

// a, b: the top-field rows above and below; c: the bottom-field row; d: the next one.
bool Interpolates(const uint8_t* a, const uint8_t* b, const uint8_t* c, const uint8_t* d) {
    return SumAbsDiff(a, c) + SumAbsDiff(c, b) > SumAbsDiff(a, b) + SumAbsDiff(c, d);
}

void FillOddRow(uint8_t* out, const uint8_t* a, const uint8_t* b, const uint8_t* c, bool interpolate) {
    for (int i = 0; i < 8; i++) out[i] = interpolate ? uint8_t((a[i] + b[i] + 1) / 2) : c[i];
}

// Rows between which both choices occur.
void FillInterlaced(uint8_t* bytes, int pitch, int rows, std::mt19937& rng, unsigned seed) {
    for (int y = 0; y < rows; y++)
        for (int x = 0; x < pitch; x++) {
            const int moved = (y & 1) && (x / 8 + int(seed)) % 2 ? 40 : 0;
            bytes[y * pitch + x] = uint8_t(60 + 3 * x % 90 + moved + int(rng() % (1 + seed % 50)));
        }
}

TEST(Deinterlacing8, WeavesOrInterpolatesAsTheSumsSay) {
    unsigned interpolated = 0;
    for (unsigned seed = 0; seed < 2000; seed++) {
        std::mt19937 rng(seed);
        Canvas src(int(seed % kFillModes), rng), dst;
        if (seed & 1) FillInterlaced(src.px.data(), Canvas::kPitch, 64, rng, seed);
        Canvas want = dst;
        const bool expected = Interpolates(src.Block(0, 0), src.Block(0, 2), src.Block(0, 1), src.Block(0, 3));
        FillOddRow(want.Block(), src.Block(0, 0), src.Block(0, 2), src.Block(0, 1), expected);
        ASSERT_EQ(uint32_t(expected), Deinterlacing8_c(src.Block(0, 1), Canvas::kPitch, dst.Block()));
        ASSERT_EQ(want.px, dst.px);
        interpolated += expected;
    }
    EXPECT_GT(interpolated, 300u);
    EXPECT_LT(interpolated, 1700u);
}

TEST(Deinterlacing8, WeavesOnATie) {
    uint8_t src[4 * 8] = {};
    std::fill_n(src + 8, 8, uint8_t(10));   // |a - x| + |x - b| = 160
    std::fill_n(src + 16, 8, uint8_t(20));  // |a - b| = 160, |x - d| = 0
    std::fill_n(src + 24, 8, uint8_t(10));
    uint8_t dst[8];
    EXPECT_EQ(0u, Deinterlacing8_c(src + 8, 8, dst));
    EXPECT_EQ(10, dst[0]);
    src[8] = 21;  // 162 against 171
    EXPECT_EQ(0u, Deinterlacing8_c(src + 8, 8, dst));
    src[24] = 21;  // 162 against 160
    EXPECT_EQ(1u, Deinterlacing8_c(src + 8, 8, dst));
    for (const uint8_t v : dst) EXPECT_EQ(10, v);
}

TEST(Deinterlacing8, ComparesTheLargestSums) {
    uint8_t src[4 * 8] = {};
    uint8_t dst[8];
    std::fill_n(src + 8, 8, uint8_t(255));  // 4080 against 2040
    EXPECT_EQ(1u, Deinterlacing8_c(src + 8, 8, dst));
    EXPECT_EQ(0, dst[7]);
}

TEST(Deinterlacing8, ReadsFourRowsOfEight) {
    for (const auto guard : {GuardedBytes::kBehind, GuardedBytes::kBefore}) {
        GuardedBytes src(3 * 11 + 8, guard), dst(8, guard);
        std::fill_n(src.data(), 3 * 11 + 8, uint8_t(9));
        EXPECT_EQ(0u, Deinterlacing8_c(src.data() + 11, 11, dst.data()));
        EXPECT_EQ(9, dst.data()[7]);
    }
}

TEST(Deinterlacing8Field, TakesItsNeighboursFromTheOutput) {
    for (unsigned seed = 0; seed < 1000; seed++) {
        std::mt19937 rng(seed);
        Canvas src(int(seed % kFillModes), rng), dst(int((seed + seed / 5) % kFillModes), rng);
        if (seed & 1) FillInterlaced(dst.px.data(), Canvas::kPitch, 64, rng, seed);
        Canvas want = dst;
        const bool expected = Interpolates(dst.Block(0, -1), dst.Block(0, 1), src.Block(0, 0), src.Block(0, 1));
        FillOddRow(want.Block(), dst.Block(0, -1), dst.Block(0, 1), src.Block(0, 0), expected);
        ASSERT_EQ(uint32_t(expected), Deinterlacing8Field_c(src.Block(), Canvas::kPitch, dst.Block(), Canvas::kPitch));
        ASSERT_EQ(want.px, dst.px);
    }
}

// ---- Whole macroblocks

// One plane of the frame kernel, row after row.
void ExpectFrame(uint8_t* out, int outPitch, const uint8_t* src, int pitch, int size) {
    bool interpolate[2] = {};
    for (int y = 0; y < size; y++)
        for (int x = 0; x < size; x += 8) {
            const uint8_t* row = src + y * pitch + x;
            uint8_t* to = out + y * outPitch + x;
            bool& half = interpolate[x / 8];
            if (y % 2 == 0) {
                std::copy_n(row, 8, to);
            } else if (y < size - 1) {
                half = Interpolates(row - pitch, row + pitch, row, row + 2 * pitch);
                FillOddRow(to, row - pitch, row + pitch, row, half);
            } else {
                std::copy_n(half ? row - pitch : row, 8, to);
            }
        }
}

// One plane of the field kernel; outPitch from one output row of the field to the next.
void ExpectField(uint8_t* out, int outPitch, const uint8_t* src, int pitch, int size) {
    const int rowPitch = outPitch / 2;
    bool interpolate[2] = {};
    for (int y = 0; y < size; y++)
        for (int x = 0; x < size; x += 8) {
            const uint8_t* row = src + y * pitch + x;
            uint8_t* to = out + y * outPitch + x;
            bool& half = interpolate[x / 8];
            if (y < size - 1) {
                half = Interpolates(to - rowPitch, to + rowPitch, row, row + pitch);
                FillOddRow(to, to - rowPitch, to + rowPitch, row, half);
            } else {
                std::copy_n(half ? to - rowPitch : row, 8, to);
            }
        }
}

constexpr int kPitch = 64;  // luma; chroma half of it

struct Planes {
    std::vector<uint8_t> y = std::vector<uint8_t>(kPitch * 80), u = std::vector<uint8_t>(kPitch / 2 * 40), v = u;

    Planes(unsigned seed, std::mt19937& rng) {
        for (auto* plane : {&y, &u, &v}) {
            if (seed & 1)
                FillInterlaced(plane->data(), plane == &y ? kPitch : kPitch / 2, plane == &y ? 80 : 40, rng, seed);
            else
                Fill(plane->data(), plane->size(), int(seed / 2 % kFillModes), rng);
        }
    }
    uint8_t* Y() { return &y[16 * kPitch + 16]; }
    uint8_t* U() { return &u[8 * kPitch / 2 + 8]; }
    uint8_t* V() { return &v[8 * kPitch / 2 + 8]; }

    friend bool operator==(const Planes&, const Planes&) = default;
};

TEST(DeInterlaceFrameMB, BuildsEveryOddRowFromItsNeighbours) {
    for (unsigned seed = 0; seed < 400; seed++) {
        std::mt19937 rng(seed);
        Planes src(seed, rng), dst(0, rng);
        Planes want = dst;
        ExpectFrame(want.Y(), kPitch, src.Y(), kPitch, 16);
        ExpectFrame(want.U(), kPitch / 2, src.U(), kPitch / 2, 8);
        ExpectFrame(want.V(), kPitch / 2, src.V(), kPitch / 2, 8);
        DeInterlaceFrameMB(src.Y(), src.U(), src.V(), kPitch, dst.Y(), dst.U(), dst.V(), kPitch);
        ASSERT_TRUE(want == dst) << seed;
    }
}

TEST(DeInterlaceFrameMB, PassesAStaticMacroblockThrough) {
    std::mt19937 rng(1);
    Planes src(0, rng), dst(0, rng);
    for (int y = 0; y < 16; y++) std::fill_n(src.Y() + y * kPitch, 16, uint8_t(10 * y));  // one gradient in both fields
    DeInterlaceFrameMB(src.Y(), src.U(), src.V(), kPitch, dst.Y(), dst.U(), dst.V(), kPitch);
    for (int y = 0; y < 16; y++)
        for (int x = 0; x < 16; x++) ASSERT_EQ(10 * y, dst.Y()[y * kPitch + x]);
}

// The left half weaves, the right one interpolates: each half's last row follows its own decision.
TEST(DeInterlaceFrameMB, DecidesTheLastRowPerHalf) {
    std::mt19937 rng(1);
    Planes src(0, rng), dst(0, rng);
    for (int y = 0; y < 16; y++) {
        std::fill_n(src.Y() + y * kPitch, 8, uint8_t(100 + y));
        std::fill_n(src.Y() + y * kPitch + 8, 8, uint8_t(y % 2 ? 200 : 100));
    }
    DeInterlaceFrameMB(src.Y(), src.U(), src.V(), kPitch, dst.Y(), dst.U(), dst.V(), kPitch);
    EXPECT_EQ(115, dst.Y()[15 * kPitch]);
    EXPECT_EQ(100, dst.Y()[15 * kPitch + 8]);
    EXPECT_EQ(100, dst.Y()[13 * kPitch + 8]);
}

TEST(DeInterlaceFieldMB, BuildsEveryOddRowFromTheOutputAroundIt) {
    for (unsigned seed = 0; seed < 400; seed++) {
        std::mt19937 rng(seed);
        Planes src(seed / 3, rng), dst(seed, rng);
        Planes want = dst;
        ExpectField(want.Y(), 2 * kPitch, src.Y(), kPitch, 16);
        ExpectField(want.U(), kPitch, src.U(), kPitch / 2, 8);
        ExpectField(want.V(), kPitch, src.V(), kPitch / 2, 8);
        DeInterlaceFieldMB(src.Y(), src.U(), src.V(), kPitch, dst.Y(), dst.U(), dst.V(), 2 * kPitch);
        ASSERT_TRUE(want == dst) << seed;
    }
}

TEST(DeInterlaceFieldMB, DecidesTheLastRowPerHalf) {
    std::mt19937 rng(1);
    Planes src(0, rng), dst(0, rng);
    for (int y = -1; y < 33; y++) std::fill_n(dst.Y() + y * kPitch, 16, uint8_t(100));
    for (int y = 0; y < 16; y++) {
        std::fill_n(src.Y() + y * kPitch, 8, uint8_t(100));
        std::fill_n(src.Y() + y * kPitch + 8, 8, uint8_t(200));
    }
    src.Y()[15 * kPitch] = 101;
    DeInterlaceFieldMB(src.Y(), src.U(), src.V(), kPitch, dst.Y(), dst.U(), dst.V(), 2 * kPitch);
    EXPECT_EQ(101, dst.Y()[30 * kPitch]);      // woven from the source
    EXPECT_EQ(100, dst.Y()[30 * kPitch + 8]);  // repeated from the top field
}

// In pictures narrower than a macroblock the output rows overlap; the later row wins.
TEST(DeInterlaceMB, WritesRowAfterRow) {
    for (unsigned seed = 0; seed < 200; seed++) {
        std::mt19937 rng(seed);
        Planes src(seed, rng), frame(seed + 1, rng);
        Planes field = frame, wantFrame = frame, wantField = frame;
        const int width = 16 + int(seed % 3) * 4 - 4;  // 12, 16, 20
        ExpectFrame(wantFrame.Y(), width, src.Y(), kPitch, 16);
        ExpectFrame(wantFrame.U(), width / 2, src.U(), kPitch / 2, 8);
        ExpectFrame(wantFrame.V(), width / 2, src.V(), kPitch / 2, 8);
        DeInterlaceFrameMB(src.Y(), src.U(), src.V(), kPitch, frame.Y(), frame.U(), frame.V(), width);
        ASSERT_TRUE(wantFrame == frame) << seed;
        ExpectField(wantField.Y(), 2 * width, src.Y(), kPitch, 16);
        DeInterlaceFieldMB(src.Y(), src.U(), src.V(), kPitch, field.Y(), field.U(), field.V(), 2 * width);
        ASSERT_EQ(wantField.y, field.y) << seed;
    }
}

// Neither kernel looks below its last source row, nor below the last output row but for the top-field rows between.
TEST(DeInterlaceMB, StaysInsideItsBlocks) {
    for (const auto guard : {GuardedBytes::kBehind, GuardedBytes::kBefore}) {
        GuardedBytes y(15 * 32 + 16, guard), u(7 * 16 + 8, guard), v(7 * 16 + 8, guard);
        GuardedBytes outY(15 * 32 + 16, guard), outU(7 * 16 + 8, guard), outV(7 * 16 + 8, guard);
        for (const GuardedBytes* plane : {&y, &u, &v}) std::fill_n(plane->data(), 7 * 16 + 8, uint8_t(3));
        DeInterlaceFrameMB(y.data(), u.data(), v.data(), 32, outY.data(), outU.data(), outV.data(), 32);
        EXPECT_EQ(3, outV.data()[7 * 16 + 7]);

        // The output starts with the top-field row above the first odd row.
        GuardedBytes fieldY(31 * 32 + 16, guard), fieldU(15 * 16 + 8, guard), fieldV(15 * 16 + 8, guard);
        DeInterlaceFieldMB(y.data(), u.data(), v.data(), 32, fieldY.data() + 32, fieldU.data() + 16, fieldV.data() + 16,
                           64);
        EXPECT_EQ(0, fieldV.data()[15 * 16 + 7]);  // 3 among zeros is motion
    }
}

}  // namespace
}  // namespace mp4v::test
