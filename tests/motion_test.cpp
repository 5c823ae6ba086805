// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

#include "common/motion.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

#include "common/kernels.h"
#include "tests/support/instance.h"
#include "tests/support/sample_block.h"
#include "tests/support/vlc_codes.h"

namespace mp4v::test {
namespace {

struct Decoded {
    int32_t value;
    size_t bits;
};

Decoded DecodeMv(const BitWriter& bits, uint32_t fcode) {
    const ExactChunk chunk(bits.Bytes());
    BsReader reader = chunk.Reader();
    const int32_t value = DecMV_c(&reader, fcode);
    const auto* next = reinterpret_cast<const uint8_t*>(reader.pu32ReadPtr);
    return {value, static_cast<size_t>(next - 8 - chunk.data()) * 8 + reader.u32BitPos};
}

TEST(DecMv, MinusTwoWithResidualOneAtFcodeThreeIsMinusSix) {
    BitWriter bits;
    bits.Bits(MotionCode(-2)).Put(1, 2);
    const Decoded mv = DecodeMv(bits, 3);
    EXPECT_EQ(mv.value, -6);
    EXPECT_EQ(mv.bits, bits.bit_count());
}

// A difference d is coded so that |d| = (|code| - 1) * 2^(f - 1) + residual + 1.
TEST(DecMv, EveryDifferenceOfEveryFcode) {
    for (uint32_t fcode = 1; fcode <= 7; fcode++) {
        const int scale = 1 << (fcode - 1);
        for (int d = -32 * scale; d <= 32 * scale; d++) {
            BitWriter bits;
            if (d == 0) {
                bits.Bits(MotionCode(0));
            } else {
                const int code = (std::abs(d) - 1) / scale + 1;
                bits.Bits(MotionCode(d < 0 ? -code : code)).Put((uint32_t)((std::abs(d) - 1) % scale), fcode - 1);
            }
            const Decoded mv = DecodeMv(bits, fcode);
            ASSERT_EQ(mv.value, d) << fcode;
            ASSERT_EQ(mv.bits, bits.bit_count()) << fcode << ' ' << d;
        }
    }
}

TEST(DecMv, ZeroHasNoResidual) {
    BitWriter bits;
    bits.Bits("1111 1111");
    EXPECT_EQ(DecodeMv(bits, 7).value, 0);
    EXPECT_EQ(DecodeMv(bits, 7).bits, 1u);
}

TEST(DecMv, UndefinedCodesAreMinusFour) {
    BitWriter bits;
    bits.Put(0, 11).Put(3, 2);  // only 7 of the bits are consumed: the next 4 are the residual's
    const Decoded mv = DecodeMv(bits, 7);
    EXPECT_EQ(mv.value, -(3 * 64 + 3 + 1));
    EXPECT_EQ(mv.bits, 7u + 6);
}

// vop_fcode_forward 0 is forbidden.
TEST(DecMv, FcodeZeroIsLikeOne) {
    for (int code = -32; code <= 32; code++) {
        BitWriter bits;
        bits.Bits(MotionCode(code)).Bits("1111");
        const Decoded mv = DecodeMv(bits, 0);
        ASSERT_EQ(mv.value, code);
        ASSERT_EQ(mv.bits, bits.bit_count() - 4) << code;
    }
}

TEST(WrapMv, ComesBackFromBothSides) {
    EXPECT_EQ(WrapMv(31 + 2, 1), -31);
    EXPECT_EQ(WrapMv(-33, 1), 31);
    EXPECT_EQ(WrapMv(31, 1), 31);
    EXPECT_EQ(WrapMv(-32, 1), -32);
    EXPECT_EQ(WrapMv(32, 1), -32);
}

TEST(WrapMv, CorrectsOnceAtMost) {
    EXPECT_EQ(WrapMv(200, 1), 136);
    EXPECT_EQ(WrapMv(-200, 1), -136);
}

TEST(WrapMv, TheRangeDoublesWithFcode) {
    for (uint32_t fcode = 1; fcode <= 7; fcode++) {
        const int high = (32 << (fcode - 1)) - 1;
        EXPECT_EQ(WrapMv(high, fcode), high);
        EXPECT_EQ(WrapMv(high + 1, fcode), -high - 1);
        EXPECT_EQ(WrapMv(-high - 1, fcode), -high - 1);
        EXPECT_EQ(WrapMv(-high - 2, fcode), high);
    }
}

TEST(WrapMv, FcodeZeroIsLikeOne) {
    EXPECT_EQ(WrapMv(31, 0), 31);
    EXPECT_EQ(WrapMv(32, 0), -32);
    EXPECT_EQ(WrapMv(-32, 0), -32);
    EXPECT_EQ(WrapMv(-33, 0), 31);
}

TEST(WrapMv, ExtremesDoNotOverflow) {
    for (uint32_t fcode = 0; fcode <= 7; fcode++) {
        const int32_t range = 64 << (fcode ? fcode - 1 : 0);
        EXPECT_EQ(WrapMv(INT32_MAX, fcode), INT32_MAX - range);
        EXPECT_EQ(WrapMv(INT32_MIN, fcode), INT32_MIN + range);
    }
}

TEST(AddWrapping, WrapsLikeTheProcessor) {
    EXPECT_EQ(AddWrapping(INT32_MAX, 1), INT32_MIN);
    EXPECT_EQ(AddWrapping(INT32_MIN, -1), INT32_MAX);
    EXPECT_EQ(AddWrapping(-5, 3), -2);
}

TEST(GetMedian, TakesTheMiddleOfEachComponent) {
    const Mp4vMv a = {1, 5}, b = {3, -2}, c = {2, 7};
    int32_t x = 0, y = 0;
    GetMedian(&a, &b, &c, &x, &y);
    EXPECT_EQ(x, 2);
    EXPECT_EQ(y, 5);
}

TEST(GetMedian, OfAllOrdersAndTies) {
    const int32_t values[] = {INT32_MIN, -3, 0, 0, 7, INT32_MAX};
    for (const int32_t a : values) {
        for (const int32_t b : values) {
            for (const int32_t c : values) {
                std::vector<int32_t> sorted = {a, b, c};
                std::sort(sorted.begin(), sorted.end());
                const Mp4vMv ta = {a, c}, tb = {b, a}, tc = {c, b};
                int32_t x = 1, y = 1;
                MPEG4DecGetMedian_c(&ta, &tb, &tc, &x, &y);
                ASSERT_EQ(x, sorted[1]);
                ASSERT_EQ(y, sorted[1]);
            }
        }
    }
}

// ---- Predictors

class Predictors : public testing::Test {
  protected:
    Mp4vMv Frame(uint32_t column, uint32_t row, uint32_t block) {
        decoder_.StartAt(column, row);
        Mp4vMv mv = {77, 77};
        GetPMV(decoder_.get(), column, row, decoder_->u32MbWidth, block, &mv.s32X, &mv.s32Y);
        return mv;
    }
    Mp4vMv Field(uint32_t column, uint32_t row) {
        decoder_.StartAt(column, row);
        Mp4vMv mv = {77, 77};
        GetPmvField(decoder_.get(), column, row, decoder_->u32MbWidth, &mv.s32X, &mv.s32Y);
        return mv;
    }
    // Random vectors everywhere inside the picture; spare records stay zero.
    void Randomise(std::mt19937& rng) {
        const auto any = [&rng] { return (int32_t)(rng() % 129) - 64; };
        for (int row = 0; row < 3; row++) {
            for (int column = 0; column < 4; column++) {
                MbInfo& mb = decoder_.Mb(column, row);
                for (Mp4vMv& mv : mb.as32Mv) mv = {any(), any()};
                mb.as32FieldAvgMv = {any(), any()};
                mb.u8FieldPred = rng() % 2;
            }
        }
    }

    Instance decoder_{64, 48};
};

int32_t Middle(int32_t a, int32_t b, int32_t c) {
    return a + b + c - std::min({a, b, c}) - std::max({a, b, c});
}
Mp4vMv Middle(Mp4vMv a, Mp4vMv b, Mp4vMv c) {
    return {Middle(a.s32X, b.s32X, c.s32X), Middle(a.s32Y, b.s32Y, c.s32Y)};
}

TEST_F(Predictors, OfTheFirstMacroblockAreZeroAndItsFirstVector) {
    decoder_.Mb(0, 0).as32Mv[0] = {5, -6};
    EXPECT_EQ(Frame(0, 0, 0), (Mp4vMv{0, 0}));
    EXPECT_EQ(Frame(0, 0, 1), (Mp4vMv{5, -6}));
}

TEST_F(Predictors, InTheFirstRowBlock0TakesTheLeftBlockAsItIs) {
    decoder_.Mb(1, 0).as32Mv[1] = {40, -41};
    EXPECT_EQ(Frame(2, 0, 0), (Mp4vMv{40, -41}));
}

TEST_F(Predictors, InTheFirstRowColumn0EvenTheSpareRecordIsNotAsked) {
    (&decoder_.Mb(0, 0) - 1)->as32Mv[1] = {9, 9};
    EXPECT_EQ(Frame(0, 0, 0), (Mp4vMv{0, 0}));
}

TEST_F(Predictors, AtTheLastColumnTheTopRightIsTheZeroSpareRecord) {
    decoder_.Mb(2, 1).as32Mv[1] = {8, 8};
    decoder_.Mb(3, 0).as32Mv[2] = {6, -6};
    EXPECT_EQ(Frame(3, 1, 0), (Mp4vMv{6, 0}));  // of 8, 6, 0 and of 8, -6, 0
}

TEST_F(Predictors, AtColumn0TheLeftIsTheZeroSpareRecord) {
    decoder_.Mb(3, 0).as32Mv[1] = {50, 50};
    decoder_.Mb(0, 0).as32Mv[2] = {6, 6};
    decoder_.Mb(1, 0).as32Mv[2] = {-7, 9};
    EXPECT_EQ(Frame(0, 1, 0), (Mp4vMv{0, 6}));
}

// The candidates as blocks of the picture: left, above, above right; of block 3 its upper left instead.
TEST_F(Predictors, AgreeWithBlocksFoundByPosition) {
    for (unsigned seed = 0; seed < 200; seed++) {
        std::mt19937 rng(seed);
        Randomise(rng);
        const auto at = [&](int x, int y) -> Mp4vMv {
            if (x < 0 || y < 0 || x >= 8) return {0, 0};
            return decoder_.Mb(x / 2, y / 2).as32Mv[y % 2 * 2 + x % 2];
        };
        for (uint32_t n = 0; n < 48; n++) {
            const uint32_t column = n % 4, row = n / 4 % 3, block = n / 12;
            const int x = (int)(2 * column + (block & 1)), y = (int)(2 * row + (block >> 1));
            Mp4vMv expected;
            if (row == 0 && block < 2) {
                expected = at(x - 1, y);
            } else {
                const int right = block == 0 ? x + 2 : block == 3 ? x - 1 : x + 1;
                expected = Middle(at(x - 1, y), at(x, y - 1), at(right, y - 1));
            }
            ASSERT_EQ(Frame(column, row, block), expected) << "seed " << seed << ' ' << column << row << block;
        }
    }
}

TEST_F(Predictors, OfFramePredictionDoNotLookAtFieldPrediction) {
    MbInfo& left = decoder_.Mb(0, 1);
    left.u8FieldPred = 1;
    left.as32FieldAvgMv = {100, 100};
    left.as32Mv[1] = {4, 4};
    decoder_.Mb(1, 0).as32Mv[2] = {8, 8};
    EXPECT_EQ(Frame(1, 1, 0), (Mp4vMv{4, 4}));  // of 4, 8, 0
}

TEST_F(Predictors, AskTheMedianKernel) {
    static int calls;
    calls = 0;
    Replace<decltype(GetMedian)> median(GetMedian,
                                        [](const Mp4vMv*, const Mp4vMv*, const Mp4vMv*, int32_t* x, int32_t* y) {
                                            calls++;
                                            *x = 1234;
                                            *y = -1234;
                                        });
    EXPECT_EQ(Frame(1, 1, 0), (Mp4vMv{1234, -1234}));
    EXPECT_EQ(Frame(0, 0, 3), (Mp4vMv{1234, -1234}));
    EXPECT_EQ(Field(1, 1), (Mp4vMv{1234, -1234}));
    EXPECT_EQ(calls, 3);
    EXPECT_EQ(Frame(1, 0, 1), (Mp4vMv{0, 0}));
    EXPECT_EQ(Field(3, 0), (Mp4vMv{0, 0}));
    EXPECT_EQ(calls, 3);
}

TEST_F(Predictors, OfFieldsInTheFirstRowAreTheLeftCandidate) {
    decoder_.Mb(2, 0).as32Mv[1] = {21, -22};
    EXPECT_EQ(Field(3, 0), (Mp4vMv{21, -22}));
    decoder_.Mb(2, 0).u8FieldPred = 1;
    decoder_.Mb(2, 0).as32FieldAvgMv = {3, 1};
    EXPECT_EQ(Field(3, 0), (Mp4vMv{3, 1}));
    EXPECT_EQ(Field(0, 0), (Mp4vMv{0, 0}));
}

TEST_F(Predictors, OfFieldsInAPictureOneMacroblockWideAreTheCandidateAbove) {
    Instance narrow(16, 48);
    narrow.StartAt(0, 1);
    narrow.Mb(0, 0).as32Mv[2] = {30, -30};
    Mp4vMv mv;
    GetPmvField(narrow.get(), 0, 1, 1, &mv.s32X, &mv.s32Y);
    EXPECT_EQ(mv, (Mp4vMv{30, -30}));
}

TEST_F(Predictors, OfFieldsAgreeWithTheCandidatesTold) {
    for (unsigned seed = 0; seed < 200; seed++) {
        std::mt19937 rng(seed);
        Randomise(rng);
        // Spare records must not be looked at.
        for (int row = 0; row < 3; row++) decoder_.Mb(4, row).as32Mv[1] = decoder_.Mb(4, row).as32Mv[2] = {500, 500};
        for (int column = 0; column < 5; column++) decoder_.Mb(column, -1).as32Mv[2] = {600, 600};
        for (int n = 0; n < 12; n++) {
            const int column = n % 4, row = n / 4;
            std::vector<Mp4vMv> available;
            const auto add = [&](int dx, int dy, int block) {
                const int x = column + dx, y = row + dy;
                if (x < 0 || y < 0 || x > 3) return;
                const MbInfo& mb = decoder_.Mb(x, y);
                available.push_back(mb.u8FieldPred ? mb.as32FieldAvgMv : mb.as32Mv[block]);
            };
            add(-1, 0, 1);
            add(0, -1, 2);
            add(1, -1, 2);
            const size_t count = available.size();
            available.resize(3, Mp4vMv{0, 0});
            const Mp4vMv expected = count < 2 ? available[0] : Middle(available[0], available[1], available[2]);
            ASSERT_EQ(Field((uint32_t)column, (uint32_t)row), expected) << "seed " << seed << ' ' << n;
        }
    }
}

}  // namespace
}  // namespace mp4v::test
