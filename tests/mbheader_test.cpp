// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

#include "common/motion.h"
#include "common/pvop.h"
#include "tests/support/instance.h"
#include "tests/support/vlc_codes.h"

namespace mp4v::test {
namespace {

// One macroblock header as symbols.
struct Header {
    int type = 0;
    int cbpc = 0;
    int cbpy = 0;  // as meant, not as coded
    int ac_pred = 0;
    int dquant = 0;
    int dct_type = 0;
    int field_prediction = 0;
    int top_ref = 0, bottom_ref = 0;
    std::vector<int> differences = {};  // motion codes, x before y; f_code 1

    bool IsIntra() const { return type == 3 || type == 4; }
    int Cbp() const { return cbpy * 4 + cbpc; }
    size_t Vectors() const { return IsIntra() ? 0 : type == 2 ? 4 : field_prediction ? 2 : 1; }

    BitWriter Write(bool interlaced) const {
        BitWriter bits;
        bits.Bits("0").Bits(McbpcInterCode(type, cbpc));
        if (IsIntra()) bits.Put((uint32_t)ac_pred, 1);
        bits.Bits(CbpyCode(cbpy, IsIntra()));
        if (type == 1 || type == 4) bits.Put((uint32_t)dquant, 2);
        if (interlaced && (IsIntra() || Cbp())) bits.Put((uint32_t)dct_type, 1);
        if (interlaced && type < 2) {
            bits.Put((uint32_t)field_prediction, 1);
            if (field_prediction) bits.Put((uint32_t)top_ref, 1).Put((uint32_t)bottom_ref, 1);
        }
        for (size_t i = 0; i < 2 * Vectors(); i++) bits.Bits(MotionCode(differences[i]));
        return bits;
    }
};

// A picture of 4 x 3 macroblocks.
class MbHeader : public testing::Test {
  protected:
    uint32_t Decode(const BitWriter& bits, uint32_t column = 0, uint32_t row = 0) {
        decoder_.StartAt(column, row);
        decoder_.SetStream(bits, 0xFF);
        return DecMBInfo(decoder_.get(), &decoder_->tMb, column, row);
    }
    void ExpectVectors(const MbInfo& mb, const std::vector<Mp4vMv>& expected) {
        for (size_t i = 0; i < 4; i++) EXPECT_EQ(mb.as32Mv[i], expected[i]) << i;
    }
    // A record full of values that nobody would write.
    void Poison(MbInfo& mb) {
        memset(&mb, 0x33, sizeof mb);
        mb.u8Qp = 99;
    }

    Instance decoder_{64, 48};
};

TEST_F(MbHeader, ANotCodedMacroblockHasNoVectorsAndKeepsItsQuantiser) {
    MbInfo& mb = decoder_.Mb(1, 1);
    Poison(mb);
    MbInfo expected = mb;
    for (Mp4vMv& mv : expected.as32Mv) mv = {0, 0};
    expected.u8FieldPred = 0;
    expected.u8MbType = MB_NOT_CODED;
    decoder_->u32RunningQp = 13;
    decoder_->u16QpCarry = 0;  // does not matter here
    BitWriter bits;
    bits.Bits("1");
    EXPECT_EQ(Decode(bits, 1, 1), kMbHeaderDecoded);
    EXPECT_EQ(memcmp(&mb, &expected, offsetof(MbInfo, u8Qp) + 1), 0);
    EXPECT_EQ(decoder_->u32RunningQp, 13u);
    EXPECT_EQ(decoder_.Consumed(), 1u);
}

TEST_F(MbHeader, AnInvalidMcbpcIsRefusedWithNothingWritten) {
    MbInfo& mb = decoder_.Mb(0, 0);
    Poison(mb);
    const MbInfo before = mb;
    decoder_->tMb.u32AcPredFlag = 55;
    BitWriter bits;
    bits.Put(0, 10);
    EXPECT_EQ(Decode(bits), kMbHeaderInvalid);
    EXPECT_EQ(memcmp(&mb, &before, sizeof mb), 0);
    EXPECT_EQ(decoder_->tMb.u32AcPredFlag, 55u);
    EXPECT_EQ(decoder_.Consumed(), 1u);
}

TEST_F(MbHeader, StuffingInFrontOfMcbpcIsAbsorbed) {
    BitWriter bits;
    bits.Bits("0").Bits(StuffingCode()).Bits(StuffingCode());
    bits.Bits(McbpcInterCode(0, 0)).Bits(CbpyCode(0, false)).Bits(MotionCode(0)).Bits(MotionCode(0));
    EXPECT_EQ(Decode(bits), kMbHeaderDecoded);
    EXPECT_EQ(decoder_.Mb(0, 0).u8MbType, MB_INTER);
    EXPECT_EQ(decoder_.Consumed(), bits.bit_count());
}

TEST_F(MbHeader, AnInvalidCbpyIsRefusedBehindTypeAndAcFlag) {
    MbInfo& mb = decoder_.Mb(0, 0);
    Poison(mb);
    decoder_->tMb.u32Cbp = 123;
    decoder_->tMb.u32AcPredFlag = 0;
    decoder_->u32RunningQp = 13;
    BitWriter bits;
    bits.Bits("0").Bits(McbpcInterCode(4, 2)).Bits("1").Put(0, 6);
    EXPECT_EQ(Decode(bits), kMbHeaderInvalid);
    EXPECT_EQ(mb.u8MbType, MB_INTRA_Q);
    EXPECT_EQ(decoder_->tMb.u32AcPredFlag, 1u);
    EXPECT_EQ(decoder_->tMb.u32Cbp, 123u);
    EXPECT_EQ(mb.u8Qp, 99);
    EXPECT_EQ(mb.u8FieldPred, 0x33);
    EXPECT_EQ(decoder_->u32RunningQp, 13u);
    EXPECT_EQ(decoder_.Consumed(), bits.bit_count() - 6);

    decoder_->tMb.u32AcPredFlag = 1;
    BitWriter inter;
    inter.Bits("0").Bits(McbpcInterCode(2, 0)).Put(1, 6);
    EXPECT_EQ(Decode(inter), kMbHeaderInvalid);
    EXPECT_EQ(mb.u8MbType, MB_INTER4V);
    EXPECT_EQ(decoder_->tMb.u32AcPredFlag, 0u);
}

TEST_F(MbHeader, DquantCountsFromTheRunningQuantiserAndIsClamped) {
    decoder_->u32RunningQp = 2;
    decoder_->u32VopQuant = 20;
    EXPECT_EQ(Decode(Header{.type = 1, .dquant = 1, .differences = {0, 0}}.Write(false)), kMbHeaderDecoded);
    EXPECT_EQ(decoder_.Mb(0, 0).u8Qp, 1);
    EXPECT_EQ(decoder_->u32RunningQp, 1u);
    decoder_->u32RunningQp = 30;
    EXPECT_EQ(Decode(Header{.type = 4, .dquant = 3}.Write(false), 1, 0), kMbHeaderDecoded);
    EXPECT_EQ(decoder_.Mb(1, 0).u8Qp, 31);
    EXPECT_EQ(decoder_->u32RunningQp, 31u);
}

TEST_F(MbHeader, WithoutDquantTheRunningQuantiserIsTaken) {
    decoder_->u32RunningQp = 17;
    for (const int type : {0, 2, 3}) {
        EXPECT_EQ(Decode(Header{.type = type, .differences = std::vector<int>(8)}.Write(false)), kMbHeaderDecoded);
        EXPECT_EQ(decoder_.Mb(0, 0).u8Qp, 17);
        EXPECT_EQ(decoder_->u32RunningQp, 17u);
    }
}

TEST_F(MbHeader, WithoutCarryEveryMacroblockStartsAgainFromTheVopsQuantiser) {
    decoder_->u16QpCarry = 0;
    decoder_->u32VopQuant = 20;
    decoder_->u32RunningQp = 5;
    EXPECT_EQ(Decode(Header{.type = 1, .dquant = 0, .differences = {0, 0}}.Write(false)), kMbHeaderDecoded);
    EXPECT_EQ(decoder_.Mb(0, 0).u8Qp, 19);
    EXPECT_EQ(decoder_->u32RunningQp, 19u);
    EXPECT_EQ(Decode(Header{.differences = {0, 0}}.Write(false), 1, 0), kMbHeaderDecoded);
    EXPECT_EQ(decoder_.Mb(1, 0).u8Qp, 20);
    EXPECT_EQ(decoder_->u32RunningQp, 20u);
}

TEST_F(MbHeader, TheRecordKeepsTheLowEightBitsOfAWideQuantiser) {
    decoder_->u32RunningQp = 0x1FE;
    EXPECT_EQ(Decode(Header{.differences = {0, 0}}.Write(false)), kMbHeaderDecoded);
    EXPECT_EQ(decoder_.Mb(0, 0).u8Qp, 0xFE);
    EXPECT_EQ(decoder_->u32RunningQp, 0x1FEu);
}

TEST_F(MbHeader, AnUncodedInterMacroblockHasNoDctTypeButFieldPrediction) {
    decoder_->s16Interlaced = 1;
    decoder_->tMb.s32DctType = 1;
    BitWriter bits;
    bits.Bits("0").Bits(McbpcInterCode(0, 0)).Bits(CbpyCode(0, false)).Bits("0").Bits("11");
    EXPECT_EQ(Decode(bits), kMbHeaderDecoded);
    EXPECT_EQ(decoder_->tMb.s32DctType, 0);
    EXPECT_EQ(decoder_.Mb(0, 0).u8FieldPred, 0);
    EXPECT_EQ(decoder_.Consumed(), bits.bit_count());
}

TEST_F(MbHeader, AnIntraMacroblockHasDctTypeEvenWhenUncoded) {
    decoder_->s16Interlaced = 1;
    MbInfo& mb = decoder_.Mb(0, 0);
    Poison(mb);
    const BitWriter bits = Header{.type = 3, .dct_type = 1}.Write(true);
    EXPECT_EQ(Decode(bits), kMbHeaderDecoded);
    EXPECT_EQ(decoder_->tMb.s32DctType, 1);
    EXPECT_EQ(mb.u8FieldPred, 0);
    ExpectVectors(mb, {{0, 0}, {0, 0}, {0, 0}, {0, 0}});
    EXPECT_EQ(mb.as32FieldAvgMv, (Mp4vMv{0x33333333, 0x33333333}));
    EXPECT_EQ(decoder_.Consumed(), bits.bit_count());
}

TEST_F(MbHeader, OneVectorGoesToAllFourBlocks) {
    EXPECT_EQ(Decode(Header{.differences = {-7, 12}}.Write(false)), kMbHeaderDecoded);
    ExpectVectors(decoder_.Mb(0, 0), {{-7, 12}, {-7, 12}, {-7, 12}, {-7, 12}});
}

TEST_F(MbHeader, FourVectorsPredictFromOneAnother) {
    // In row 0 column 0 block 0 counts from (0, 0), block 1 from block 0. Block 2: the median of (0, 0) left,
    // (3, -5) and (5, -4): (3, -4). Block 3: of block 2 (4, -4), (3, -5) and (5, -4): (4, -4).
    EXPECT_EQ(Decode(Header{.type = 2, .differences = {3, -5, 2, 1, 1, 0, 10, 20}}.Write(false)), kMbHeaderDecoded);
    ExpectVectors(decoder_.Mb(0, 0), {{3, -5}, {5, -4}, {4, -4}, {14, 16}});
}

TEST_F(MbHeader, FourVectorsInAnInterlacedStreamHaveNoFieldPredictionBit) {
    decoder_->s16Interlaced = 1;
    const BitWriter bits =
        Header{.type = 2, .cbpy = 1, .dct_type = 1, .differences = {1, 1, 0, 0, 0, 0, 0, 0}}.Write(true);
    EXPECT_EQ(Decode(bits), kMbHeaderDecoded);
    EXPECT_EQ(decoder_.Consumed(), bits.bit_count());
    EXPECT_EQ(decoder_.Mb(0, 0).u8FieldPred, 0);
    EXPECT_EQ(decoder_->tMb.s32DctType, 1);
}

TEST_F(MbHeader, FourVectorsInAnInterlacedStreamUseTheFramePredictor) {
    decoder_->s16Interlaced = 1;
    MbInfo& left = decoder_.Mb(0, 0);
    left.u8FieldPred = 1;
    left.as32FieldAvgMv = {30, 30};
    left.as32Mv[1] = {5, 6};
    EXPECT_EQ(Decode(Header{.type = 2, .differences = std::vector<int>(8)}.Write(true), 1, 0), kMbHeaderDecoded);
    EXPECT_EQ(decoder_.Mb(1, 0).as32Mv[0], (Mp4vMv{5, 6}));
}

TEST_F(MbHeader, AFrameVectorInAnInterlacedStreamUsesTheFieldPredictor) {
    decoder_->s16Interlaced = 1;
    MbInfo& left = decoder_.Mb(0, 0);
    left.u8FieldPred = 1;
    left.as32FieldAvgMv = {10, -10};
    left.as32Mv[1] = {5, 6};
    EXPECT_EQ(Decode(Header{.differences = {1, 1}}.Write(true), 1, 0), kMbHeaderDecoded);
    ExpectVectors(decoder_.Mb(1, 0), std::vector<Mp4vMv>(4, {11, -9}));
}

TEST_F(MbHeader, FieldVectorsAreAveragedWithTheHalfKept) {
    decoder_->s16Interlaced = 1;
    MbInfo& mb = decoder_.Mb(0, 0);
    Poison(mb);
    // Predictor (0, 0): y is twice the difference.
    const Header header{.field_prediction = 1, .top_ref = 1, .bottom_ref = 0, .differences = {3, 2, 4, -1}};
    EXPECT_EQ(Decode(header.Write(true)), kMbHeaderDecoded);
    EXPECT_EQ(mb.u8FieldPred, 1);
    EXPECT_EQ(decoder_->tMb.u8FwdTopFieldRef, 1);
    EXPECT_EQ(decoder_->tMb.u8FwdBotFieldRef, 0);
    EXPECT_EQ(mb.as32Mv[0], (Mp4vMv{3, 4}));
    EXPECT_EQ(mb.as32Mv[1], (Mp4vMv{4, -2}));
    EXPECT_EQ(mb.as32FieldAvgMv, (Mp4vMv{3, 1}));
    for (int i = 2; i < 4; i++) EXPECT_EQ(mb.as32Mv[i], (Mp4vMv{0x33333333, 0x33333333}));  // not written
}

TEST_F(MbHeader, NegativeFieldAveragesShiftArithmetically) {
    decoder_->s16Interlaced = 1;
    const Header header{.field_prediction = 1, .differences = {-3, -2, -4, 1}};
    EXPECT_EQ(Decode(header.Write(true)), kMbHeaderDecoded);
    // x: -7 >> 1 = -4, | 1: -3. y: -4 + 2 = -2: -1.
    EXPECT_EQ(decoder_.Mb(0, 0).as32FieldAvgMv, (Mp4vMv{-3, -1}));
}

TEST_F(MbHeader, TheFieldPredictorIsHalvedTowardsZeroAndUsedForBothFields) {
    decoder_->s16Interlaced = 1;
    decoder_.Mb(0, 0).as32Mv[1] = {7, -5};
    const Header header{.field_prediction = 1, .top_ref = 0, .bottom_ref = 1, .differences = {1, 1, -1, 0}};
    EXPECT_EQ(Decode(header.Write(true), 1, 0), kMbHeaderDecoded);
    EXPECT_EQ(decoder_.Mb(1, 0).as32Mv[0], (Mp4vMv{8, -2}));  // (-5 / 2 + 1) * 2
    EXPECT_EQ(decoder_.Mb(1, 0).as32Mv[1], (Mp4vMv{6, -4}));
    EXPECT_EQ(decoder_->tMb.u8FwdTopFieldRef, 0);
    EXPECT_EQ(decoder_->tMb.u8FwdBotFieldRef, 1);
}

TEST_F(MbHeader, FieldVectorsWrapBehindTheDoubling) {
    decoder_->s16Interlaced = 1;
    const Header header{.field_prediction = 1, .differences = {32, 16, -32, -17}};
    EXPECT_EQ(Decode(header.Write(true)), kMbHeaderDecoded);
    EXPECT_EQ(decoder_.Mb(0, 0).as32Mv[0], (Mp4vMv{-32, -32}));  // 32 - 64 in both
    EXPECT_EQ(decoder_.Mb(0, 0).as32Mv[1], (Mp4vMv{-32, 30}));   // -34 + 64
}

TEST_F(MbHeader, VectorsWrapIntoTheRangeOfTheFcode) {
    decoder_.Mb(0, 0).as32Mv[1] = {31, -32};
    EXPECT_EQ(Decode(Header{.differences = {2, -1}}.Write(false), 1, 0), kMbHeaderDecoded);
    ExpectVectors(decoder_.Mb(1, 0), std::vector<Mp4vMv>(4, {-31, 31}));
}

TEST_F(MbHeader, FcodeZeroIsLikeOne) {
    decoder_->u32FcodeForward = 0;
    decoder_.Mb(0, 0).as32Mv[1] = {31, 20};
    EXPECT_EQ(Decode(Header{.differences = {2, 3}}.Write(false), 1, 0), kMbHeaderDecoded);
    ExpectVectors(decoder_.Mb(1, 0), std::vector<Mp4vMv>(4, {-31, 23}));
}

TEST_F(MbHeader, FcodeZeroIsLikeOneForFieldsToo) {
    decoder_->s16Interlaced = 1;
    decoder_->u32FcodeForward = 0;
    decoder_.Mb(0, 0).as32Mv[1] = {0, 7};
    const Header header{.field_prediction = 1, .differences = {2, 2, -2, -2}};
    EXPECT_EQ(Decode(header.Write(true), 1, 0), kMbHeaderDecoded);
    const MbInfo& mb = decoder_.Mb(1, 0);
    EXPECT_EQ(mb.as32Mv[0], (Mp4vMv{2, (2 + 3) * 2}));
    EXPECT_EQ(mb.as32Mv[1], (Mp4vMv{-2, (-2 + 3) * 2}));
    EXPECT_EQ(mb.as32FieldAvgMv, (Mp4vMv{0, 6}));
}

TEST_F(MbHeader, SumsOfLeftOverVectorsWrapInThirtyTwoBits) {
    // Whatever the neighbour's record holds: one correction, and no overflow.
    decoder_.Mb(0, 0).as32Mv[1] = {INT32_MAX, INT32_MIN};
    EXPECT_EQ(Decode(Header{.differences = {1, -1}}.Write(false), 1, 0), kMbHeaderDecoded);
    ExpectVectors(decoder_.Mb(1, 0), std::vector<Mp4vMv>(4, {INT32_MIN + 64, INT32_MAX - 64}));
}

TEST_F(MbHeader, AnEarlyEndShowsInTheReaderOnly) {
    BitWriter bits;
    bits.Put(0, 8);
    decoder_.StartAt(0, 0);
    decoder_.SetStream(bits, 0x55);
    decoder_->u32FcodeForward = 7;
    BsSkip(&decoder_->tBs, 32);
    BsSkip(&decoder_->tBs, 31);
    EXPECT_EQ(DecMBInfo(decoder_.get(), &decoder_->tMb, 0, 0), kMbHeaderDecoded);  // 1: not coded
    EXPECT_EQ(decoder_->tBs.u32BsError, ERR_VID_MPEG4DEC_BITSTREAM);
}

// Every combination of syntax elements, in the order of the syntax, read to the last bit.
TEST_F(MbHeader, AgreesWithItsSymbolsInAllCombinations) {
    std::mt19937 rng(7);
    for (int n = 0; n < 5 * 4 * 16 * 2 * 8; n++) {
        Header header;
        header.type = n % 5;
        header.cbpc = n / 5 % 4;
        header.cbpy = n / 20 % 16;
        const bool interlaced = n / 320 % 2;
        header.ac_pred = int(rng() % 2);
        header.dquant = int(rng() % 4);
        header.dct_type = int(rng() % 2);
        header.field_prediction = interlaced && header.type < 2 ? int(rng() % 2) : 0;
        header.top_ref = int(rng() % 2);
        header.bottom_ref = int(rng() % 2);
        for (int i = 0; i < 8; i++) header.differences.push_back(int(rng() % 31) - 15);
        SCOPED_TRACE(testing::Message() << n);
        decoder_->s16Interlaced = interlaced;
        decoder_->u32RunningQp = 10;
        MbInfo& mb = decoder_.Mb(2, 0);
        Poison(mb);
        decoder_->tMb.s32DctType = 77;
        decoder_->tMb.u32AcPredFlag = 77;
        const BitWriter bits = header.Write(interlaced);

        ASSERT_EQ(Decode(bits, 2, 0), kMbHeaderDecoded);
        ASSERT_EQ(decoder_.Consumed(), bits.bit_count());
        ASSERT_EQ(mb.u8MbType, header.type);
        ASSERT_EQ((int)decoder_->tMb.u32Cbp, header.Cbp());
        ASSERT_EQ((int)decoder_->tMb.u32AcPredFlag, header.IsIntra() ? header.ac_pred : 0);
        const int change[4] = {-1, -2, 1, 2};
        ASSERT_EQ(mb.u8Qp, 10 + (header.type == 1 || header.type == 4 ? change[header.dquant] : 0));
        const bool has_dct_type = interlaced && (header.IsIntra() || header.Cbp());
        ASSERT_EQ(decoder_->tMb.s32DctType, has_dct_type ? header.dct_type : 0);
        ASSERT_EQ(mb.u8FieldPred, header.field_prediction);
        const auto& d = header.differences;
        // The left neighbour is at rest and there is no row above: the first predictor is (0, 0).
        if (header.IsIntra()) {
            ExpectVectors(mb, std::vector<Mp4vMv>(4, {0, 0}));
        } else if (header.type == 2) {
            ASSERT_EQ(mb.as32Mv[0], (Mp4vMv{d[0], d[1]}));
            ASSERT_EQ(mb.as32Mv[1], (Mp4vMv{d[0] + d[2], d[1] + d[3]}));
        } else if (header.field_prediction) {
            ASSERT_EQ(mb.as32Mv[0], (Mp4vMv{d[0], 2 * d[1]}));
            ASSERT_EQ(mb.as32Mv[1], (Mp4vMv{d[2], 2 * d[3]}));
            ASSERT_EQ(decoder_->tMb.u8FwdTopFieldRef, header.top_ref);
            ASSERT_EQ(decoder_->tMb.u8FwdBotFieldRef, header.bottom_ref);
        } else {
            ExpectVectors(mb, std::vector<Mp4vMv>(4, {d[0], d[1]}));
        }
    }
}

// Any bits at any distance from the end: either the same as DecMBInfo, or nothing.
TEST_F(MbHeader, FarFromTheEndIsTheSameOrNothing) {
    std::mt19937 rng(8);
    std::vector<uint8_t> before(sizeof(Mp4vDecCtx)), after(sizeof(Mp4vDecCtx));
    int done_count = 0;
    for (int n = 0; n < 20000; n++) {
        SCOPED_TRACE(testing::Message() << n);
        const auto column = static_cast<uint32_t>(rng() % 4), row = static_cast<uint32_t>(rng() % 3);
        for (size_t i = 0; i < decoder_.mb_record_count(); i++)
            for (Mp4vMv& mv : decoder_.mb_records()[i].as32Mv) mv = {int(rng() % 64) - 32, int(rng() % 64) - 32};
        Poison(decoder_.Mb((int)column, (int)row));
        decoder_->u32FcodeForward = static_cast<uint32_t>(rng() % 8);
        decoder_->u16QpCarry = rng() % 2;
        decoder_->u32RunningQp = static_cast<uint32_t>(rng() % 40);
        std::vector<uint8_t> bytes(rng() % 64);
        for (uint8_t& v : bytes) v = static_cast<uint8_t>(rng() & (n % 2 ? rng() : 0xFFu));
        decoder_.StartAt(column, row);
        decoder_.SetStream(bytes, 0x5A);
        BsSkip(&decoder_->tBs, static_cast<uint32_t>(rng() % 32));
        memcpy(before.data(), decoder_.get(), before.size());
        const std::vector<uint8_t> records_before = decoder_.MbRecordBytes();

        BsCursor cursor(decoder_->tBs);
        const bool done = DecMbHeaderFar(decoder_.get(), &cursor, column, row);
        cursor.StoreTo(&decoder_->tBs);
        memcpy(after.data(), decoder_.get(), after.size());
        const std::vector<uint8_t> records_after = decoder_.MbRecordBytes();
        if (!done) {
            ASSERT_EQ(after, before);
            ASSERT_EQ(records_after, records_before);
            continue;
        }
        done_count++;
        memcpy(decoder_.get(), before.data(), before.size());
        memcpy(decoder_.mb_records(), records_before.data(), records_before.size());
        ASSERT_EQ(DecMBInfo(decoder_.get(), &decoder_->tMb, column, row), kMbHeaderDecoded);
        memcpy(before.data(), decoder_.get(), before.size());
        ASSERT_EQ(after, before);
        ASSERT_EQ(records_after, decoder_.MbRecordBytes());
    }
    EXPECT_GT(done_count, 2000);
}

}  // namespace
}  // namespace mp4v::test
