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

using Bytes = std::vector<uint8_t>;

// ---- The formulas, sample by sample

// Rows of two fields, top row i at top + i * step, into height output rows.
void Deinterlace(uint8_t* out, const uint8_t* top, const uint8_t* bottom, int step, int width, int height) {
    const int last = height / 2 - 1;
    if (last < 0) return;
    for (int i = 0; i <= last; i++) {
        const uint8_t *a = top + i * step, *b = a + step, *c = bottom + i * step, *d = c + step;
        uint8_t* odd = out + (2 * i + 1) * width;
        std::copy_n(a, width, out + 2 * i * width);
        if (i == last) {
            std::copy_n(c, width, odd);
            break;
        }
        for (int x = 0; x < width / 8 * 8; x += 8) {
            int within = 0, between = 0;
            for (int k = x; k < x + 8; k++) {
                within += std::abs(a[k] - b[k]) + std::abs(c[k] - d[k]);
                between += std::abs(a[k] - c[k]) + std::abs(c[k] - b[k]);
            }
            for (int k = x; k < x + 8; k++) odd[k] = between <= within ? c[k] : uint8_t((a[k] + b[k] + 1) >> 1);
        }
    }
}

struct Shape {
    int pitch, width, height;
};

std::ostream& operator<<(std::ostream& out, const Shape& s) {
    return out << s.width << " x " << s.height << " pitch " << s.pitch;
}

// A frame store: what lies around the picture is there to be read by mistake.
struct Store {
    Bytes y, u, v;
    Shape shape;

    Store(const Shape& s, unsigned seed) : shape(s) {
        std::mt19937 rng(seed);
        for (Bytes* plane : {&y, &u, &v}) {
            const int pitch = plane == &y ? s.pitch : s.pitch / 2;
            const int rows = (plane == &y ? s.height : s.height / 2) + 8;
            plane->resize(size_t(pitch * rows));
            for (size_t i = 0; i < plane->size(); i++) {
                const int row = int(i) / pitch, x = int(i) % pitch;
                const int moved = (row & 1) && x / 8 % 2 ? 50 : 0;
                (*plane)[i] = uint8_t(40 + x % 50 + moved + int(rng() % (seed % 2 ? 256u : 9u)));
            }
        }
    }
    const uint8_t* Y() const { return &y[size_t(4 * shape.pitch)]; }
    const uint8_t* U() const { return &u[size_t(4 * (shape.pitch / 2))]; }
    const uint8_t* V() const { return &v[size_t(4 * (shape.pitch / 2))]; }
};

void ExpectedPlane(uint8_t* out, const uint8_t* src, int pitch, int width, int height, bool stacked, bool deinterlace,
                   int64_t bottomOffset) {
    if (deinterlace) {
        if (stacked)
            Deinterlace(out, src, src + bottomOffset, pitch, width, height);
        else
            Deinterlace(out, src, src + pitch, 2 * pitch, width, height);
        return;
    }
    for (int row = 0; row < (stacked ? height / 2 * 2 : height); row++) {
        const uint8_t* from = src + row * pitch;
        if (stacked) from = row % 2 ? src + bottomOffset + row / 2 * pitch : src + row / 2 * pitch;
        std::copy_n(from, width, out + row * width);
    }
}

Bytes Expected(const Store& s, Bytes out, int at, bool stacked, bool deinterlace) {
    const auto [pitch, width, height] = s.shape;
    uint8_t* y = &out[size_t(at)];
    const int chroma = pitch / 2;
    ExpectedPlane(y, s.Y(), pitch, width, height, stacked, deinterlace, int64_t(height) * pitch / 2);
    // Whole pairs of chroma rows only, where rows are paired.
    const int rows = stacked && !deinterlace ? height / 4 * 2 : height / 2;
    uint8_t* u = y + width * height;
    uint8_t* v = y + width * height * 5 / 4;
    ExpectedPlane(u, s.U(), chroma, width / 2, rows, stacked, deinterlace, int64_t(height) * chroma / 4);
    ExpectedPlane(v, s.V(), chroma, width / 2, rows, stacked, deinterlace, int64_t(height) * chroma / 4);
    return out;
}

void Output(const Store& s, uint8_t* dst, bool stacked, bool deinterlace) {
    VopOutput(s.Y(), s.U(), s.V(), dst, s.shape.pitch, s.shape.width, s.shape.height, stacked ? 1 : 0,
              deinterlace ? 2 : 0);
}

const Shape kShapes[] = {{80, 16, 16}, {112, 48, 32}, {416, 352, 24}, {80, 12, 16}, {80, 20, 18}, {80, 16, 8},
                         {80, 16, 6},  {80, 16, 5},   {80, 16, 4},    {80, 16, 3},  {80, 16, 2},  {80, 16, 1},
                         {80, 16, 0},  {80, 6, 10},   {80, 2, 2},     {16, 16, 16}, {80, 15, 7}};

TEST(VopOutput, FollowsItsFourCasesAndWritesNothingElse) {
    for (const Shape& shape : kShapes)
        for (unsigned seed = 0; seed < 4; seed++)
            for (const bool stacked : {false, true})
                for (const bool deinterlace : {false, true}) {
                    const Store store(shape, seed);
                    const Bytes before(size_t(shape.width * shape.height * 2 + 256), 0xA5);
                    Bytes out = before;
                    Output(store, &out[128], stacked, deinterlace);
                    ASSERT_EQ(Expected(store, before, 128, stacked, deinterlace), out)
                        << shape << " stacked " << stacked << " deinterlace " << deinterlace << " seed " << seed;
                }
}

TEST(VopOutput, CopiesTheInnerPictureToACompactOne) {
    const Store s({80, 16, 8}, 1);
    Bytes out(16 * 8 * 3 / 2, 0);
    Output(s, out.data(), false, false);
    for (int y = 0; y < 8; y++)
        for (int x = 0; x < 16; x++) ASSERT_EQ(s.Y()[y * 80 + x], out[size_t(16 * y + x)]);
    for (int y = 0; y < 4; y++)
        for (int x = 0; x < 8; x++) {
            ASSERT_EQ(s.U()[y * 40 + x], out[size_t(128 + 8 * y + x)]);
            ASSERT_EQ(s.V()[y * 40 + x], out[size_t(160 + 8 * y + x)]);
        }
}

TEST(VopOutput, WeavesStackedFields) {
    Store s({16, 16, 8}, 0);
    for (int y = 0; y < 8; y++) std::fill_n(s.y.begin() + (4 + y) * 16, 16, uint8_t(y));
    for (int y = 0; y < 4; y++) std::fill_n(s.u.begin() + (4 + y) * 8, 8, uint8_t(10 + y));
    Bytes out(16 * 8 * 3 / 2, 0);
    Output(s, out.data(), true, false);
    const int luma[8] = {0, 4, 1, 5, 2, 6, 3, 7}, chroma[4] = {10, 12, 11, 13};
    for (size_t y = 0; y < 8; y++) EXPECT_EQ(luma[y], out[16 * y + 15]);
    for (size_t y = 0; y < 4; y++) EXPECT_EQ(chroma[y], out[128 + 8 * y + 7]);
}

// Stays inside the picture: it ends, or begins, at an unreadable page.
TEST(VopOutput, WritesOnlyThePicture) {
    for (const Shape& shape : kShapes)
        for (const auto guard : {GuardedBytes::kBehind, GuardedBytes::kBefore})
            for (int mode = 0; mode < 4; mode++) {
                const Store store(shape, 1);
                const size_t size = size_t(shape.width * shape.height * 5 / 4 + shape.width / 2 * (shape.height / 2));
                if (size == 0) continue;
                GuardedBytes out(size, guard);
                Output(store, out.data(), mode & 1, mode & 2);
                const Bytes want = Expected(store, Bytes(size, 0), 0, mode & 1, mode & 2);
                ASSERT_TRUE(std::equal(want.begin(), want.end(), out.data())) << shape << ' ' << mode;
            }
}

TEST(VopOutput, WritesNothingForAPictureWithoutRows) {
    const Store store({80, 16, 0}, 1);
    Bytes out(64, 0xA5);
    for (int mode = 0; mode < 4; mode++) Output(store, &out[32], mode & 1, mode & 2);
    EXPECT_EQ(Bytes(64, 0xA5), out);
}

TEST(VopOutput, WritesOneRowOfLumaForAPictureOfOneRow) {
    const Store store({80, 16, 1}, 1);
    for (int mode = 0; mode < 4; mode++) {
        Bytes out(64, 0xA5);
        Output(store, &out[24], mode & 1, mode & 2);
        Bytes want(64, 0xA5);
        if (mode == 0) std::copy_n(store.Y(), 16, want.begin() + 24);  // the others need a row of each field
        EXPECT_EQ(want, out) << mode;
    }
}

// ---- The deinterlacer by itself

TEST(Deinterlacing, PassesAStaticSceneThrough) {
    Bytes frame(32 * 16), out(32 * 16);
    for (size_t i = 0; i < frame.size(); i++) frame[i] = uint8_t(7 * (i % 32) + 3);
    Deinterlacing_c(frame.data(), 64, frame.data() + 32, 64, out.data(), 32, 16);
    EXPECT_EQ(frame, out);
}

TEST(Deinterlacing, WeavesOnATie) {
    // Rows 0, 10, 20, 10: 160 either way.
    Bytes frame(8 * 4), out(8 * 4);
    const uint8_t rows[4] = {0, 10, 20, 10};
    for (size_t y = 0; y < 4; y++) std::fill_n(frame.begin() + std::ptrdiff_t(8 * y), 8, rows[y]);
    Deinterlacing_c(frame.data(), 16, frame.data() + 8, 16, out.data(), 8, 4);
    EXPECT_EQ(frame, out);
    frame[8] = 9;
    frame[24] = 9;  // |0 - 9| + |9 - 20| is the same 20
    Deinterlacing_c(frame.data(), 16, frame.data() + 8, 16, out.data(), 8, 4);
    EXPECT_EQ(frame, out);
    frame[8] = frame[24] = 21;  // 22 against 20
    Deinterlacing_c(frame.data(), 16, frame.data() + 8, 16, out.data(), 8, 4);
    EXPECT_EQ(10, out[8]);
    EXPECT_EQ(10, out[9]);
}

TEST(Deinterlacing, LeavesAPartialGroupOfTheOddRowsUnwritten) {
    std::mt19937 rng(1);
    Bytes frame(12 * 8), out(12 * 8, 0xA5);
    Fill(frame.data(), frame.size(), kSmooth, rng);
    Deinterlacing_c(frame.data(), 24, frame.data() + 12, 24, out.data(), 12, 8);
    for (size_t y = 0; y < 8; y++)
        for (size_t x = 8; x < 12; x++)
            EXPECT_EQ(y == 1 || y == 3 || y == 5 ? 0xA5 : frame[12 * y + x], out[12 * y + x]) << x << ' ' << y;
}

TEST(Deinterlacing, CopiesTheLastRowsOfAStackedPictureOfFour) {
    // Top rows 10, 20; bottom rows 200, 250: motion everywhere.
    Bytes fields(8 * 4), out(8 * 4);
    const uint8_t rows[4] = {10, 20, 200, 250}, want[4] = {10, 15, 20, 250};
    for (size_t y = 0; y < 4; y++) std::fill_n(fields.begin() + std::ptrdiff_t(8 * y), 8, rows[y]);
    Deinterlacing_c(fields.data(), 8, fields.data() + 16, 8, out.data(), 8, 4);
    for (size_t y = 0; y < 4; y++) EXPECT_EQ(want[y], out[8 * y]) << y;
}

TEST(Deinterlacing, WritesTwoRowsForHeightsTwoAndThreeAndNoneBelow) {
    const Bytes top(16, 1), bottom(16, 2);
    for (int height = -3; height < 4; height++) {
        Bytes out(16 * 8, 0xA5), want = out;
        if (height >= 2) {
            std::fill_n(want.begin() + 64, 16, uint8_t(1));
            std::fill_n(want.begin() + 80, 16, uint8_t(2));
        }
        Deinterlacing_c(top.data(), 16, bottom.data(), 16, &out[64], 16, height);
        EXPECT_EQ(want, out) << height;
    }
}

TEST(Deinterlacing, ReadsOnlyTheTwoFields) {
    for (const auto guard : {GuardedBytes::kBehind, GuardedBytes::kBefore}) {
        GuardedBytes top(3 * 20 + 16, guard), bottom(3 * 24 + 16, guard), out(8 * 16, guard);
        std::fill_n(top.data(), 3 * 20 + 16, uint8_t(5));
        std::fill_n(bottom.data(), 3 * 24 + 16, uint8_t(5));
        Deinterlacing_c(top.data(), 20, bottom.data(), 24, out.data(), 16, 8);
        EXPECT_EQ(5, out.data()[127]);
    }
}

}  // namespace
}  // namespace mp4v::test
