// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

#include "common/intra.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <set>
#include <vector>

#include "common/kernels.h"
#include "tests/support/instance.h"
#include "tests/support/intra_model.h"
#include "tests/support/sample_block.h"

namespace mp4v::test {
namespace {

constexpr uint32_t kZeroDcBlocks = 6;

// Six blocks with a DC differential of 0 and no coefficients.
BitWriter ZeroBlocks() {
    BitWriter bits;
    for (uint32_t b = 0; b < kZeroDcBlocks; b++) bits.Bits(DcCode(0, b < 4));
    return bits;
}

// A picture of 4 x 3 macroblocks; the current one is (1, 1) unless told otherwise.
class IntraMb : public testing::Test {
  protected:
    void SetUp() override { Start(1, 1, MB_INTRA, 4); }

    void Start(uint32_t column, uint32_t row, uint8_t type, uint8_t quantiser) {
        column_ = column;
        row_ = row;
        decoder_.StartAt(column, row);
        decoder_->tMb.ptCurMbInfo->u8MbType = type;
        decoder_->tMb.ptCurMbInfo->u8Qp = quantiser;
        decoder_->tMb.u32AcPredFlag = 0;
        decoder_->tMb.u32Cbp = 0;
        std::fill_n(coefficients_, 6 * 64, int16_t{0x5555});
    }
    void Decode(const BitWriter& bits) {
        decoder_.SetStream(bits);
        DecIntraMB(decoder_.get(), coefficients_, column_, row_);
    }
    int Coefficient(int block, int index) const { return coefficients_[64 * block + index]; }

    // Makes a neighbour intra, with the same DC in all blocks.
    MbInfo& Neighbour(int dx, int dy, int16_t dc, uint8_t quantiser = 4) {
        MbInfo& mb = decoder_.Mb((int)column_ + dx, (int)row_ + dy);
        mb.u8MbType = MB_INTRA;
        mb.u8Qp = quantiser;
        for (auto& predictors : mb.as16AcDcPred) predictors[0] = dc;
        return mb;
    }

    Instance decoder_{64, 48};
    uint32_t column_ = 0, row_ = 0;
    int16_t coefficients_[6 * 64];
};

TEST(IntraTables, DividerIsTheReciprocalRoundedUp) {
    EXPECT_EQ(g_al32Divider[0], 0);
    for (int q = 1; q < 32; q++) EXPECT_EQ(g_al32Divider[q], 65536 / q + 1) << q;
}

TEST(IntraTables, DquantChangesByOneAndTwo) {
    const int32_t expected[4] = {-1, -2, 1, 2};
    for (int i = 0; i < 4; i++) EXPECT_EQ(g_al32DequantTable[i], expected[i]) << i;
}

TEST(IntraTables, DefaultPredictorIsMidGreyWithoutAc) {
    EXPECT_EQ(g_as16DefaultAcDcValue[0], 1024);
    for (int i = 1; i < 15; i++) EXPECT_EQ(g_as16DefaultAcDcValue[i], 0) << i;
}

TEST(ChangeQuantiser, StaysAtOneBelow) {
    EXPECT_EQ(ChangeQuantiser(1, 0), 1u);
    EXPECT_EQ(ChangeQuantiser(1, 1), 1u);
    EXPECT_EQ(ChangeQuantiser(2, 1), 1u);
    EXPECT_EQ(ChangeQuantiser(0, 1), 1u);
}

TEST(ChangeQuantiser, StaysAtThirtyOneAbove) {
    EXPECT_EQ(ChangeQuantiser(30, 3), 31u);
    EXPECT_EQ(ChangeQuantiser(31, 2), 31u);
    EXPECT_EQ(ChangeQuantiser(511, 0), 31u);
}

TEST(ChangeQuantiser, MovesBetween) {
    EXPECT_EQ(ChangeQuantiser(10, 0), 9u);
    EXPECT_EQ(ChangeQuantiser(10, 1), 8u);
    EXPECT_EQ(ChangeQuantiser(10, 2), 11u);
    EXPECT_EQ(ChangeQuantiser(10, 3), 12u);
}

TEST_F(IntraMb, TheFirstOneOfAPicturePredictsEveryDcFrom1024) {
    Start(0, 0, MB_INTRA, 4);
    Decode(ZeroBlocks());
    for (int b = 0; b < 6; b++) {
        EXPECT_EQ(Coefficient(b, 0), 128) << b;
        EXPECT_EQ(decoder_.Mb(0, 0).as16AcDcPred[b][0], 1024) << b;
        EXPECT_EQ(decoder_->tMb.au32DcScaler[b], 8u) << b;
    }
}

TEST_F(IntraMb, ClearsAllCoefficientsFirst) {
    Decode(ZeroBlocks());
    for (int b = 0; b < 6; b++) {
        for (int i = 1; i < 64; i++) ASSERT_EQ(Coefficient(b, i), 0) << b << ' ' << i;
    }
}

TEST_F(IntraMb, EqualGradientsPredictFromTheLeft) {
    Neighbour(-1, 0, 400);
    Neighbour(-1, -1, 800);
    Neighbour(0, -1, 1200);
    Decode(ZeroBlocks());
    EXPECT_EQ(Coefficient(0, 0), (400 + 4) / 8);
    EXPECT_EQ(Coefficient(4, 0), (400 + 4) / 8);
}

TEST_F(IntraMb, TheSmallerGradientToTheLeftPredictsFromAbove) {
    Neighbour(-1, 0, 408);
    Neighbour(-1, -1, 800);
    Neighbour(0, -1, 1200);
    Decode(ZeroBlocks());
    EXPECT_EQ(Coefficient(0, 0), (1200 + 4) / 8);
    EXPECT_EQ(Coefficient(5, 0), (1200 + 4) / 8);
}

// The sources of every block, written out; each is made the only DC that can be chosen.
TEST_F(IntraMb, EveryBlockHasItsOwnNeighbours) {
    MbInfo& left = Neighbour(-1, 0, 0);
    MbInfo& top = Neighbour(0, -1, 0);
    MbInfo& corner = Neighbour(-1, -1, 0);
    for (int b = 0; b < 6; b++) {
        left.as16AcDcPred[b][0] = static_cast<int16_t>(80 * (b + 1));
        top.as16AcDcPred[b][0] = static_cast<int16_t>(800 + 80 * (b + 1));
        corner.as16AcDcPred[b][0] = static_cast<int16_t>(1800);  // close to above: from the left
    }
    // Block 0: A 160, B 1800, C 1040: |A-B| 1640 >= |B-C| 760: left block 1.
    // Block 1: A block 0 = 160, B 1040, C 1120: 880 >= 80: block 0.
    // Block 2: A left block 3 = 320, B left block 1 = 160, C block 0 = 160: 160 >= 0: left block 3.
    // Block 3: A block 2 = 320, B block 0 = 160, C block 1 = 160: block 2.
    // Block 4: A 400, B 1800, C 1200: left block 4. Block 5: A 480, B 1800, C 1280: left block 5.
    Decode(ZeroBlocks());
    const int horizontal[6] = {160 / 8, 160 / 8, 320 / 8, 320 / 8, 400 / 8, 480 / 8};
    for (int b = 0; b < 6; b++) EXPECT_EQ(Coefficient(b, 0), horizontal[b]) << b;

    // The corner close to the left instead: from above.
    for (int b = 0; b < 6; b++) corner.as16AcDcPred[b][0] = left.as16AcDcPred[b][0];
    left.as16AcDcPred[1][0] = left.as16AcDcPred[3][0] = 320;
    Start(1, 1, MB_INTRA, 4);
    // Block 0: A 320, B corner block 3 = 320, C top block 2 = 1040: top block 2.
    // Block 1: A block 0 = 1040, B top block 2 = 1040, C top block 3 = 1120: top block 3.
    // Block 2: A left block 3 = 320, B left block 1 = 320, C block 0 = 1040: block 0.
    // Block 3: A block 2 = 1040, B block 0 = 1040, C block 1 = 1120: block 1.
    Decode(ZeroBlocks());
    const int vertical[6] = {1040 / 8, 1120 / 8, 1040 / 8, 1120 / 8, 1200 / 8, 1280 / 8};
    for (int b = 0; b < 6; b++) EXPECT_EQ(Coefficient(b, 0), vertical[b]) << b;
}

TEST_F(IntraMb, AnInterNeighbourCountsAsMissing) {
    for (const uint8_t type :
         {uint8_t{MB_INTER}, uint8_t{MB_INTER_Q}, uint8_t{MB_INTER4V}, uint8_t{MB_INVALID}, uint8_t{MB_NOT_CODED}}) {
        Start(1, 1, MB_INTRA, 4);
        for (const auto& [dx, dy] : {std::pair(-1, 0), std::pair(0, -1), std::pair(-1, -1)}) {
            Neighbour(dx, dy, 16, 31).u8MbType = type;
        }
        Decode(ZeroBlocks());
        for (int b = 0; b < 6; b++) ASSERT_EQ(Coefficient(b, 0), 128) << (int)type << ' ' << b;
    }
}

TEST_F(IntraMb, AMissingLeftNeighbourHasTheCurrentQuantiserAndNoAc) {
    Neighbour(-1, 0, 0, 31).u8MbType = MB_INTER;
    std::fill_n(decoder_.Mb(0, 1).as16AcDcPred[1], 16, int16_t{99});
    decoder_->tMb.u32AcPredFlag = 1;
    Decode(ZeroBlocks());
    for (int i = 1; i < 64; i++) ASSERT_EQ(Coefficient(0, i), 0) << i;
}

TEST_F(IntraMb, OnlyTheEdgesOfThePictureMakeNeighboursMissing) {
    // The records left of column 0 and above row 0 are spare ones; intra types there must not matter.
    for (size_t i = 0; i < decoder_.mb_record_count(); i++) {
        MbInfo& mb = decoder_.mb_records()[i];
        mb.u8MbType = MB_INTRA;
        mb.u8Qp = 4;
        for (auto& predictors : mb.as16AcDcPred) std::fill_n(predictors, 16, int16_t{800});
    }
    Start(0, 0, MB_INTRA, 4);
    Decode(ZeroBlocks());
    EXPECT_EQ(Coefficient(0, 0), 128);
    Start(0, 2, MB_INTRA, 4);
    Decode(ZeroBlocks());
    // Left and corner are missing: |1024 - 1024| < |1024 - 800|, from above.
    EXPECT_EQ(Coefficient(0, 0), 100);
    Start(3, 0, MB_INTRA, 4);
    Decode(ZeroBlocks());
    EXPECT_EQ(Coefficient(0, 0), 100);  // left: |800 - 1024| >= 0
}

TEST_F(IntraMb, ThresholdsDecideWhetherTheDcIsCodedApart) {
    struct Case {
        uint32_t threshold;
        uint8_t quantiser;
        bool apart;
    };
    const Case cases[] = {{32, 31, true}, {32, 1, true},  {1, 1, false},
                          {1, 31, false}, {13, 12, true}, {13, 13, false}};
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << c.threshold << ' ' << (int)c.quantiser);
        Start(0, 0, MB_INTRA, c.quantiser);
        decoder_->u32IntraDcThr = c.threshold;
        Decode(ZeroBlocks());
        // Six codes of size 0: 3 bits for luma, 2 for chroma.
        EXPECT_EQ(decoder_.Consumed(), c.apart ? 4u * 3 + 2 * 2 : 0u);
    }
}

TEST_F(IntraMb, TheFirstEventIsTheDcWhenItIsNotCodedApart) {
    Start(0, 0, MB_INTRA, 4);
    decoder_->u32IntraDcThr = 1;
    decoder_->tMb.u32Cbp = 0x20;
    BitWriter bits;
    bits.Bits(TcoefCode(true, 1, 0, -3));
    Decode(bits);
    EXPECT_EQ(Coefficient(0, 0), 128 - 3);
    EXPECT_EQ(decoder_.Mb(0, 0).as16AcDcPred[0][0], 8 * 125);
}

TEST_F(IntraMb, TheCodedBlockPatternCountsFromTheTop) {
    for (uint32_t b = 0; b < 6; b++) {
        Start(0, 0, MB_INTRA, 4);
        decoder_->tMb.u32Cbp = 0x20 >> b;
        BitWriter bits;
        for (uint32_t i = 0; i < 6; i++) {
            bits.Bits(DcCode(0, i < 4));
            if (i == b) bits.Bits(TcoefCode(true, 1, 0, 1));
        }
        Decode(bits);
        for (uint32_t i = 0; i < 6; i++) EXPECT_EQ(Coefficient((int)i, 1), i == b) << b << ' ' << i;
        EXPECT_EQ(decoder_.Consumed(), bits.bit_count());
    }
}

TEST_F(IntraMb, ALongDifferentialIsFollowedByAMarkerOfAnyValue) {
    for (const bool marker : {false, true}) {
        for (const int size : {8, 9, 12}) {
            Start(0, 0, MB_INTRA, 4);
            BitWriter bits;
            const int value = 1 << (size - 1);
            bits.Bits(CodeOf("B-13", size)).Put((uint32_t)value, (unsigned)size);
            if (size > 8) bits.Put(marker, 1);
            for (int b = 1; b < 6; b++) bits.Bits(DcCode(0, b < 4));
            Decode(bits);
            EXPECT_EQ(Coefficient(0, 0), 128 + value) << size;
            EXPECT_EQ(decoder_.Consumed(), bits.bit_count()) << size;
        }
    }
}

TEST_F(IntraMb, ElevenZeroBitsAreADcOfZeroAndStayInTheStream) {
    Start(0, 0, MB_INTRA, 4);
    BitWriter bits;
    bits.Put(0, 32).Put(0, 32);
    Decode(bits);
    // Luma takes nothing; chroma takes size 3 from 2 bits and the differential 000: -7.
    EXPECT_EQ(decoder_.Consumed(), 2u * (2 + 3));
    EXPECT_EQ(Coefficient(0, 0), 128);
    EXPECT_EQ(Coefficient(4, 0), 128 - 7);
}

TEST_F(IntraMb, ANegativePredictionIsDividedTowardsZero) {
    Neighbour(-1, 0, -21);
    Neighbour(-1, -1, 500);
    Neighbour(0, -1, 500);
    Decode(ZeroBlocks());
    EXPECT_EQ(Coefficient(4, 0), (-21 + 4) / 8);  // -2, not -3
    EXPECT_EQ(Coefficient(4, 0), -2);
}

TEST_F(IntraMb, TheStoredDcWrapsInSixteenBits) {
    Start(0, 0, MB_INTRA, 31);
    BitWriter bits;
    bits.Bits(DcCode(2047, true));
    for (int b = 1; b < 6; b++) bits.Bits(DcCode(0, b < 4));
    Decode(bits);
    const int dc = 2047 + (1024 + 23) / 46;  // 2069
    EXPECT_EQ(Coefficient(0, 0), dc);
    EXPECT_EQ(decoder_.Mb(0, 0).as16AcDcPred[0][0], 46 * dc - 65536);
}

TEST_F(IntraMb, AcPredictionRescalesFromTheNeighboursQuantiser) {
    MbInfo& left = Neighbour(-1, 0, 1024, 9);
    for (int k = 1; k < 8; k++) left.as16AcDcPred[1][7 + k] = static_cast<int16_t>(k % 2 ? 5 * k : -5 * k);
    std::fill_n(left.as16AcDcPred[1] + 1, 7, int16_t{1000});  // its first row is not what is asked for
    Start(1, 1, MB_INTRA, 4);
    decoder_->tMb.u32AcPredFlag = 1;
    Decode(ZeroBlocks());
    // 5k * 9 / 4, rounded: 11.25 22.5 33.75 45 56.25 67.5 78.75
    const int expected[8] = {0, 11, -23, 34, -45, 56, -68, 79};
    for (int k = 1; k < 8; k++) {
        EXPECT_EQ(Coefficient(0, 8 * k), expected[k]) << k;
        EXPECT_EQ(Coefficient(0, k), 0) << k;
        EXPECT_EQ(decoder_.Mb(1, 1).as16AcDcPred[0][7 + k], expected[k]) << k;
    }
}

TEST_F(IntraMb, AcPredictionFromAboveGoesToTheFirstRow) {
    Neighbour(-1, 0, 800);
    Neighbour(-1, -1, 800);
    MbInfo& top = Neighbour(0, -1, 1600, 31);
    for (int k = 1; k < 8; k++) top.as16AcDcPred[4][k] = static_cast<int16_t>(k);
    Start(1, 1, MB_INTRA, 31);
    decoder_->tMb.u32AcPredFlag = 1;
    Decode(ZeroBlocks());
    for (int k = 1; k < 8; k++) {
        EXPECT_EQ(Coefficient(4, k), k);
        EXPECT_EQ(Coefficient(4, 8 * k), 0);
    }
}

TEST_F(IntraMb, WithoutTheFlagNoAcIsPredicted) {
    MbInfo& left = Neighbour(-1, 0, 1024, 4);
    std::fill_n(left.as16AcDcPred[1] + 1, 14, int16_t{77});
    Decode(ZeroBlocks());
    for (int i = 1; i < 64; i++) ASSERT_EQ(Coefficient(0, i), 0);
}

TEST_F(IntraMb, TheReciprocalRoundsLikeTheDivision) {
    // The largest levels of ordinary streams, where the reciprocal must not show.
    for (int q = 1; q < 32; q++) {
        for (int neighbour_q = 1; neighbour_q < 32; neighbour_q += 3) {
            MbInfo& left = Neighbour(-1, 0, 1024, (uint8_t)neighbour_q);
            for (int k = 1; k < 8; k++) left.as16AcDcPred[1][7 + k] = static_cast<int16_t>(9 * k - 20);
            Start(1, 1, MB_INTRA, (uint8_t)q);
            decoder_->tMb.u32AcPredFlag = 1;
            Decode(ZeroBlocks());
            for (int k = 1; k < 8; k++) {
                const int v = 9 * k - 20;
                const int rounded = (std::abs(v) * neighbour_q * 2 + q - (q & 1)) / (2 * q);
                ASSERT_EQ(Coefficient(0, 8 * k), v < 0 ? -rounded : rounded) << q << ' ' << neighbour_q << ' ' << k;
            }
        }
    }
}

TEST_F(IntraMb, ScansFollowPredictionAndTheAlternateFlag) {
    struct Case {
        uint32_t alternate, ac_pred;
        bool from_above;
        int raster;  // of the third coefficient behind the DC
    };
    // Zigzag 0 1 8 16, alternate-horizontal 0 1 2 3, alternate-vertical 0 8 16 24.
    const Case cases[] = {{0, 0, false, 16}, {0, 0, true, 16}, {0, 1, true, 3},
                          {0, 1, false, 24}, {1, 1, true, 24}, {1, 0, true, 24}};
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << c.alternate << c.ac_pred << c.from_above);
        Start(1, 1, MB_INTRA, 4);
        Neighbour(-1, 0, 800);
        Neighbour(-1, -1, c.from_above ? 800 : 0);
        Neighbour(0, -1, 1600).u8MbType = c.from_above ? MB_INTRA : MB_INTER;
        decoder_->u32AltVertScan = c.alternate;
        decoder_->tMb.u32AcPredFlag = c.ac_pred;
        decoder_->tMb.u32Cbp = 0x20;
        BitWriter bits;
        bits.Bits(DcCode(0, true)).Bits(TcoefCode(true, 1, 2, 1));
        for (int b = 1; b < 6; b++) bits.Bits(DcCode(0, b < 4));
        if (!c.from_above) decoder_.Mb(0, 0).u8MbType = MB_INTER;
        Decode(bits);
        EXPECT_EQ(Coefficient(0, c.raster), 1);
        EXPECT_EQ(std::count(coefficients_ + 1, coefficients_ + 64, 0), 62);
    }
}

TEST_F(IntraMb, StoresTheFirstRowAndTheFirstColumn) {
    Start(0, 0, MB_INTRA, 4);
    decoder_->tMb.u32Cbp = 1;
    BitWriter bits;
    for (int b = 0; b < 6; b++) bits.Bits(DcCode(0, b < 4));
    for (int i = 1; i < 64; i++) bits.Bits(EscapedTcoefCode(i == 63, 0, 100 + TableRows("SCAN0")[size_t(i)].fields[0]));
    MbInfo& mb = decoder_.Mb(0, 0);
    std::fill_n(mb.as16AcDcPred[5], 16, int16_t{-1});
    Decode(bits);
    for (int i = 1; i < 64; i++) ASSERT_EQ(Coefficient(5, i), 100 + i);
    for (int k = 1; k < 8; k++) {
        EXPECT_EQ(mb.as16AcDcPred[5][k], 100 + k);
        EXPECT_EQ(mb.as16AcDcPred[5][7 + k], 100 + 8 * k);
    }
    EXPECT_EQ(mb.as16AcDcPred[5][15], -1);
}

TEST_F(IntraMb, GoesOnBehindABlockThatFails) {
    Start(0, 0, MB_INTRA, 4);
    decoder_->tMb.u32Cbp = 0x30;
    BitWriter bits;
    bits.Bits(DcCode(0, true)).Bits(EscapedTcoefCode(0, 63, 1));  // index 64
    bits.Bits(DcCode(5, true)).Bits(TcoefCode(true, 1, 0, 1));
    for (int b = 2; b < 6; b++) bits.Bits(DcCode(0, b < 4));
    Decode(bits);
    EXPECT_EQ(decoder_->tBs.u32BsError, ERR_VID_MPEG4DEC_COEFF);
    EXPECT_EQ(Coefficient(1, 0), 128 + 5);
    EXPECT_EQ(Coefficient(1, 1), 1);
    EXPECT_EQ(decoder_.Consumed(), bits.bit_count());
}

// ---- Quantisers that only senseless streams have

TEST_F(IntraMb, AScalerOfZeroGivesQuotientZeroAndForgetsTheDc) {
    for (const uint8_t quantiser : {uint8_t{0}, uint8_t{32}, uint8_t{66}, uint8_t{200}}) {
        Start(0, 0, MB_INTRA, quantiser);
        BitWriter bits;
        for (int b = 0; b < 6; b++) bits.Bits(DcCode(7, b < 4));
        decoder_->u32IntraDcThr = 255;
        Decode(bits);
        for (int b = 0; b < 6; b++) {
            EXPECT_EQ(Coefficient(b, 0), 7);
            EXPECT_EQ(decoder_.Mb(0, 0).as16AcDcPred[b][0], 0);
            EXPECT_EQ(decoder_->tMb.au32DcScaler[b], 0u);
        }
    }
}

TEST_F(IntraMb, ALumaIndexMayReachTheChromaScalers) {
    struct Case {
        uint8_t quantiser;
        uint32_t luma, chroma;
    };
    const Case cases[] = {{31, 46, 25}, {32, 0, 0}, {33, 0, 0}, {34, 8, 0}, {39, 9, 0},
                          {64, 25, 0},  {65, 0, 0}, {66, 0, 0}, {255, 0, 0}};
    for (const Case& c : cases) {
        Start(0, 0, MB_INTRA, c.quantiser);
        Decode(ZeroBlocks());
        for (int b = 0; b < 6; b++) {
            EXPECT_EQ(decoder_->tMb.au32DcScaler[b], b < 4 ? c.luma : c.chroma) << (int)c.quantiser << ' ' << b;
        }
    }
}

TEST_F(IntraMb, QuantisersWithoutDividerPredictNoAc) {
    for (const uint8_t quantiser : {uint8_t{0}, uint8_t{32}, uint8_t{255}}) {
        MbInfo& left = Neighbour(-1, 0, 1024, 31);
        std::fill_n(left.as16AcDcPred[1] + 1, 14, int16_t{2047});
        Start(1, 1, MB_INTRA, quantiser);
        decoder_->tMb.u32AcPredFlag = 1;
        Decode(ZeroBlocks());
        for (int i = 1; i < 64; i++) ASSERT_EQ(Coefficient(0, i), 0) << (int)quantiser;
    }
}

TEST_F(IntraMb, AcProductsWrapInThirtyTwoBits) {
    MbInfo& left = Neighbour(-1, 0, 1024, 255);
    left.as16AcDcPred[1][8] = -32768;
    left.as16AcDcPred[1][9] = 32767;
    Start(1, 1, MB_INTRA, 1);
    decoder_->tMb.u32AcPredFlag = 1;
    Decode(ZeroBlocks());
    // 32768 * 255 * 65537 = 0x7F8000 * 0x10001 = 0x7F807F8000: low word 0x807F8000, shifted -32641, negated.
    EXPECT_EQ(Coefficient(0, 8), 32641);
    // 32767 * 255 = 0x7F7F01; * 0x10001 = 0x7F7F807E7F01 & 0xFFFFFFFF = 0x7F807F01 (0x7F010000 + 0x7F7F01).
    EXPECT_EQ(Coefficient(0, 16), 0x7F80);
}

// ---- Everything at once

void RandomRecords(const Instance& decoder, std::mt19937& rng, unsigned max_quantiser) {
    static constexpr uint8_t kTypes[] = {0, 1, 2, 3, 3, 3, 4, 4, 4, 7, 255};
    for (size_t i = 0; i < decoder.mb_record_count(); i++) {
        MbInfo& mb = decoder.mb_records()[i];
        mb.u8MbType = kTypes[rng() % std::size(kTypes)];
        mb.u8Qp = static_cast<uint8_t>(max_quantiser > 31 ? rng() : 1 + rng() % 31);
        const unsigned range = rng() % 4 ? 40 : 4096;
        for (auto& predictors : mb.as16AcDcPred) {
            for (auto& value : predictors) value = static_cast<int16_t>((int)(rng() % range) - (int)range / 2);
            if (rng() % 2) predictors[0] = static_cast<int16_t>(rng() % 3 * 100 + 900);  // ties happen
        }
    }
}

void CheckRandomMacroblock(Instance& decoder, unsigned seed, unsigned max_quantiser) {
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    std::mt19937 rng(seed);
    RandomRecords(decoder, rng, max_quantiser);
    const auto column = uint32_t(rng() % 4), row = uint32_t(rng() % 3);
    decoder.StartAt(column, row);
    MbInfo& current = *decoder->tMb.ptCurMbInfo;
    current.u8MbType = rng() % 2 ? MB_INTRA : MB_INTRA_Q;
    static constexpr uint32_t kThresholds[] = {32, 13, 15, 17, 19, 21, 23, 1};
    decoder->u32IntraDcThr = kThresholds[rng() % 8];
    decoder->u32AltVertScan = rng() % 4 == 0;
    decoder->tMb.u32AcPredFlag = rng() % 2;
    const bool dc_apart = decoder->u32IntraDcThr > current.u8Qp;
    const IntraMbSymbols symbols = RandomIntraMb(rng, dc_apart);
    decoder->tMb.u32Cbp = (uint32_t)symbols.Cbp();
    BitWriter bits;
    WriteIntraBlocks(bits, symbols, dc_apart);

    IntraModel model([&](int x, int y) { return decoder.Mb(x, y); }, (int)column, (int)row, current.u8Qp);
    model.Decode(symbols, dc_apart, decoder->tMb.u32AcPredFlag, decoder->u32AltVertScan);
    std::vector<uint8_t> records = decoder.MbRecordBytes();
    auto* expected = reinterpret_cast<MbInfo*>(records.data()) + (&current - decoder.mb_records());
    for (int b = 0; b < 6; b++) std::copy_n(model.block(b).predictors.data(), 15, expected->as16AcDcPred[b]);

    int16_t coefficients[6 * 64];
    decoder.SetStream(bits);
    DecIntraMB(decoder.get(), coefficients, column, row);
    for (int b = 0; b < 6; b++) {
        for (int i = 0; i < 64; i++) {
            ASSERT_EQ(coefficients[64 * b + i], model.block(b).coefficients[size_t(i)]) << "block " << b << " at " << i;
        }
        ASSERT_EQ((int)decoder->tMb.au32DcScaler[b], model.block(b).scaler);
    }
    ASSERT_EQ(decoder.MbRecordBytes(), records);
    ASSERT_EQ(decoder.Consumed(), bits.bit_count());
    ASSERT_EQ(decoder->tBs.u32BsError, 0u);
}

TEST(IntraMbModel, AgreesOnOrdinaryMacroblocks) {
    Instance decoder(64, 48);
    for (unsigned seed = 0; seed < 4000 && !testing::Test::HasFatalFailure(); seed++) {
        CheckRandomMacroblock(decoder, seed, 31);
    }
}

TEST(IntraMbModel, AgreesOnQuantisersUpTo255) {
    Instance decoder(64, 48);
    for (unsigned seed = 0; seed < 4000 && !testing::Test::HasFatalFailure(); seed++) {
        CheckRandomMacroblock(decoder, seed, 255);
    }
}

// ---- Reconstruction

struct KernelCall {
    std::string name;
    const void* address;
    uint32_t first, second;

    bool operator==(const KernelCall&) const = default;
};
std::ostream& operator<<(std::ostream& out, const KernelCall& call) {
    return out << call.name << '(' << call.address << ", " << call.first << ", " << call.second << ')';
}
std::vector<KernelCall> g_calls;

void RecordH263(int16_t* dst, const int16_t* src, uint32_t quantiser, uint32_t scaler) {
    EXPECT_EQ(dst, src);
    g_calls.push_back({"h263", src, quantiser, scaler});
}
void RecordMpeg(int16_t* dst, const int16_t* src, uint32_t quantiser, uint32_t scaler) {
    EXPECT_EQ(dst, src);
    g_calls.push_back({"mpeg", src, quantiser, scaler});
}
void RecordIdct(int16_t* block) {
    g_calls.push_back({"idct", block, 0, 0});
}
const int16_t* g_stored_block;
void RecordStore(uint8_t* dst, const int16_t* block, int32_t pitch) {
    g_stored_block = block;
    g_calls.push_back({"store", dst, (uint32_t)pitch, 0});
}

class Reconstruction : public testing::Test {
  protected:
    void SetUp() override {
        g_calls.clear();
        decoder_.StartAt(2, 1);
        decoder_->tMb.ptCurMbInfo->u8Qp = 17;
        for (uint32_t b = 0; b < 6; b++) decoder_->tMb.au32DcScaler[b] = 20 + b;
    }
    std::vector<KernelCall> Expected(const std::string& dequant, ptrdiff_t lower, uint32_t luma_pitch) {
        const Mp4vMbScratch& mb = decoder_->tMb;
        const uint8_t* const places[6] = {mb.pu8DstY, mb.pu8DstY + 8, mb.pu8DstY + lower, mb.pu8DstY + lower + 8,
                                          mb.pu8DstU, mb.pu8DstV};
        std::vector<KernelCall> calls;
        for (uint32_t b = 0; b < 6; b++) {
            calls.push_back({dequant, mb.as16Coef + 64 * b, 17, 20 + b});
            calls.push_back({"idct", mb.as16Coef + 64 * b, 0, 0});
            calls.push_back({"store", places[b], b < 4 ? luma_pitch : kStride / 2, 0});
        }
        return calls;
    }

    static constexpr uint32_t kStride = 64 + 64;
    Instance decoder_{64, 48};
    Replace<Mp4vDequantIntra*> h263_{DequantH263Intra, RecordH263};
    Replace<Mp4vDequantIntra*> mpeg_{DequantMpegIntra, RecordMpeg};
    Replace<void (*)(int16_t*)> idct_{Idct8x8, RecordIdct};
    Replace<Mp4vMc16to8*> store_{McCopy16to8, RecordStore};
};

TEST_F(Reconstruction, DequantisesTransformsAndStoresBlockByBlock) {
    ReconIntraMB(decoder_.get(), 2, 1);
    EXPECT_EQ(g_calls, Expected("h263", 8 * kStride, kStride));
    EXPECT_EQ(g_stored_block, decoder_->tMb.as16Coef + 5 * 64);
}

TEST_F(Reconstruction, TakesTheMpegMethodWhenTheStreamDoes) {
    decoder_->u16QuantType = 1;
    ReconIntraMB(decoder_.get(), 2, 1);
    EXPECT_EQ(g_calls, Expected("mpeg", 8 * kStride, kStride));
}

TEST_F(Reconstruction, FieldDctFillsTheFieldsLines) {
    decoder_->s16Interlaced = 1;
    decoder_->tMb.s32DctType = 1;
    ReconIntraMB(decoder_.get(), 2, 1);
    EXPECT_EQ(g_calls, Expected("h263", kStride, 2 * kStride));
}

TEST_F(Reconstruction, FieldDctNeedsAnInterlacedStream) {
    decoder_->tMb.s32DctType = 1;
    ReconIntraMB(decoder_.get(), 2, 1);
    EXPECT_EQ(g_calls, Expected("h263", 8 * kStride, kStride));
}

TEST_F(Reconstruction, FrameDctInAnInterlacedStream) {
    decoder_->s16Interlaced = 1;
    decoder_->tMb.s32DctType = 0;
    ReconIntraMB(decoder_.get(), 2, 1);
    EXPECT_EQ(g_calls, Expected("h263", 8 * kStride, kStride));
}

TEST(ReconIntraMb, ADcOf1024IsMidGreyAndStaysInItsMacroblock) {
    Instance decoder(64, 48);
    std::mt19937 rng(1);
    decoder.Randomise(decoder->tCurFrame, rng);
    std::vector<uint8_t> expected = decoder.Snapshot(decoder->tCurFrame);
    decoder.StartAt(2, 1);
    decoder->tMb.ptCurMbInfo->u8Qp = 4;
    std::fill_n(decoder->tMb.as16Coef, 6 * 64, int16_t{0});
    for (int b = 0; b < 6; b++) {
        decoder->tMb.au32DcScaler[b] = 8;
        decoder->tMb.as16Coef[64 * b] = 128;
    }
    const uint8_t* base = decoder.Allocation(decoder->tCurFrame);
    for (int y = 0; y < 16; y++)
        std::fill_n(&expected[size_t(decoder->tMb.pu8DstY - base + y * 128)], 16, uint8_t{128});
    for (int y = 0; y < 8; y++) {
        std::fill_n(&expected[size_t(decoder->tMb.pu8DstU - base + y * 64)], 8, uint8_t{128});
        std::fill_n(&expected[size_t(decoder->tMb.pu8DstV - base + y * 64)], 8, uint8_t{128});
    }
    ReconIntraMB(decoder.get(), 2, 1);
    EXPECT_EQ(decoder.Snapshot(decoder->tCurFrame), expected);
}

}  // namespace
}  // namespace mp4v::test
