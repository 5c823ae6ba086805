// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

#include "common/intra.h"
#include "common/kernels.h"
#include "tests/support/instance.h"
#include "tests/support/intra_model.h"
#include "tests/support/sample_block.h"

namespace mp4v::test {
namespace {

// What reconstruction was handed, in order.
struct BlockCall {
    std::vector<int16_t> coefficients;
    uint32_t quantiser, scaler;
};
std::vector<BlockCall> g_blocks;
std::vector<std::pair<uint8_t*, int32_t>> g_stores;

void RecordBlock(int16_t* /*dst*/, const int16_t* src, uint32_t quantiser, uint32_t scaler) {
    g_blocks.push_back({{src, src + 64}, quantiser, scaler});
}
void SkipIdct(int16_t* /*block*/) {}
void RecordStore(uint8_t* dst, const int16_t* /*block*/, int32_t pitch) {
    g_stores.emplace_back(dst, pitch);
}

// A picture of 4 x 3 macroblocks whose blocks are recorded instead of reconstructed.
class IVop : public testing::Test {
  protected:
    IVop() {
        g_blocks.clear();
        g_stores.clear();
    }
    uint32_t Decode(const BitWriter& bits, uint32_t flags = 0, uint8_t padding = 0) {
        decoder_.SetStream(bits, padding);
        return IVopDecode(decoder_.get(), output_.data(), flags);
    }

    Instance decoder_{64, 48};
    std::vector<uint8_t> output_ = std::vector<uint8_t>(64 * 48 * 3 / 2, uint8_t{0xA5});
    Replace<Mp4vDequantIntra*> dequant_{DequantH263Intra, RecordBlock};
    Replace<void (*)(int16_t*)> idct_{Idct8x8, SkipIdct};
    Replace<Mp4vMc16to8*> store_{McCopy16to8, RecordStore};
};

// A macroblock without coefficients and with DC differentials of 0. dquant: -1 for type INTRA.
void PutFlatMb(BitWriter& bits, int dquant = -1, bool interlaced = false) {
    bits.Bits(McbpcIntraCode(dquant < 0 ? 3 : 4, 0)).Bits("0").Bits(CbpyCode(0, true));
    if (dquant >= 0) bits.Put((uint32_t)dquant, 2);
    if (interlaced) bits.Put(0, 1);
    for (int b = 0; b < 6; b++) bits.Bits(DcCode(0, b < 4));
}

BitWriter FlatPicture(int macroblocks = 12) {
    BitWriter bits;
    for (int i = 0; i < macroblocks; i++) PutFlatMb(bits);
    return bits;
}

TEST_F(IVop, DecodesEveryMacroblockInRasterOrder) {
    EXPECT_EQ(Decode(FlatPicture()), MP4VDEC_OK);
    ASSERT_EQ(g_stores.size(), 12u * 6);
    const VopFrame& frame = decoder_->tCurFrame;
    for (int n = 0; n < 12; n++) {
        const int column = n % 4, row = n / 4;
        EXPECT_EQ(g_stores[size_t(6 * n)].first, frame.pu8Y + 16 * column + 16 * row * 128) << n;
        EXPECT_EQ(g_stores[size_t(6 * n + 4)].first, frame.pu8U + 8 * column + 8 * row * 64) << n;
        EXPECT_EQ(g_stores[size_t(6 * n + 5)].first, frame.pu8V + 8 * column + 8 * row * 64) << n;
        EXPECT_EQ(g_stores[size_t(6 * n + 5)].second, 64) << n;
        EXPECT_EQ(decoder_.Mb(column, row).u8MbType, MB_INTRA);
        EXPECT_EQ(decoder_.Mb(column, row).u8Qp, 8);
    }
}

TEST_F(IVop, AgreesWithTheModelOnRandomPictures) {
    for (unsigned seed = 0; seed < 150; seed++) {
        SCOPED_TRACE(testing::Message() << "seed " << seed);
        std::mt19937 rng(seed);
        g_blocks.clear();
        static constexpr uint32_t kThresholds[] = {32, 13, 15, 17, 19, 21, 23, 1};
        decoder_->u32IntraDcThr = kThresholds[rng() % 8];
        decoder_->u32AltVertScan = rng() % 4 == 0;
        decoder_->s16Interlaced = rng() % 2;
        decoder_->u32VopQuant = uint32_t(1 + rng() % 31);
        struct Expectation {
            IntraModel model;
            int quantiser;
        };
        std::vector<Expectation> expected;
        std::vector<MbInfo> records(12);
        BitWriter bits;
        int quantiser = (int)decoder_->u32VopQuant;
        for (int n = 0; n < 12; n++) {
            MbInfo& record = records[size_t(n)];
            record = {};
            if (rng() % 8 == 0) bits.Bits(StuffingCode());
            if (n == 11 && rng() % 4 == 0) {  // an invalid mcbpc; its bits would be read again by a next macroblock
                bits.Put(0, 10);
                record.u8MbType = MB_INVALID;
                break;
            }
            const bool with_dquant = rng() % 3 == 0;
            const auto dquant = int(rng() % 4);
            const bool ac_pred = rng() % 2;
            if (with_dquant) quantiser = std::clamp(quantiser + (dquant < 2 ? -1 - dquant : dquant - 1), 1, 31);
            const bool dc_apart = (int)decoder_->u32IntraDcThr > quantiser;
            const IntraMbSymbols symbols = RandomIntraMb(rng, dc_apart);
            bits.Bits(McbpcIntraCode(with_dquant ? 4 : 3, symbols.Cbpc())).Put(ac_pred, 1);
            bits.Bits(CbpyCode(symbols.Cbpy(), true));
            if (with_dquant) bits.Put((uint32_t)dquant, 2);
            if (decoder_->s16Interlaced) bits.Put(rng() & 1, 1);
            WriteIntraBlocks(bits, symbols, dc_apart);

            record.u8MbType = with_dquant ? MB_INTRA_Q : MB_INTRA;
            record.u8Qp = (uint8_t)quantiser;
            IntraModel model([&](int x, int y) { return records[size_t(4 * y + x)]; }, n % 4, n / 4, quantiser);
            model.Decode(symbols, dc_apart, ac_pred, decoder_->u32AltVertScan);
            for (int b = 0; b < 6; b++) std::copy_n(model.block(b).predictors.data(), 15, record.as16AcDcPred[b]);
            expected.push_back({model, quantiser});
        }
        ASSERT_EQ(Decode(bits), MP4VDEC_OK);
        ASSERT_EQ(g_blocks.size(), 6 * expected.size());
        for (size_t i = 0; i < g_blocks.size(); i++) {
            const Expectation& e = expected[i / 6];
            const IntraModel::Block& block = e.model.block((int)(i % 6));
            ASSERT_EQ(g_blocks[i].coefficients, std::vector(block.coefficients.begin(), block.coefficients.end())) << i;
            ASSERT_EQ((int)g_blocks[i].quantiser, e.quantiser) << i;
            ASSERT_EQ((int)g_blocks[i].scaler, block.scaler) << i;
        }
        for (int n = 0; n < 12; n++) {
            ASSERT_EQ(decoder_.Mb(n % 4, n / 4).u8MbType, records[size_t(n)].u8MbType) << n;
        }
    }
}

TEST_F(IVop, AnEmptyPictureIsDone) {
    decoder_->u32MbHeight = 0;
    EXPECT_EQ(Decode(FlatPicture()), MP4VDEC_OK);
    EXPECT_TRUE(g_blocks.empty());
    EXPECT_EQ(decoder_.Consumed(), 0u);
    decoder_->u32MbHeight = 3;
    const uint32_t width = decoder_->u32MbWidth;
    decoder_->u32MbWidth = 0;
    EXPECT_EQ(Decode(FlatPicture()), MP4VDEC_OK);
    EXPECT_TRUE(g_blocks.empty());
    decoder_->u32MbWidth = width;
}

TEST_F(IVop, TheQuantiserRunsThroughThePictureAndStartsAgainInTheNext) {
    decoder_->u32VopQuant = 30;
    BitWriter bits;
    PutFlatMb(bits, 3);  // 32, clamped to 31
    PutFlatMb(bits);     // 31
    PutFlatMb(bits, 1);  // 29
    for (int i = 3; i < 12; i++) PutFlatMb(bits);
    ASSERT_EQ(Decode(bits), MP4VDEC_OK);
    EXPECT_EQ(decoder_.Mb(0, 0).u8Qp, 31);
    EXPECT_EQ(decoder_.Mb(1, 0).u8Qp, 31);
    EXPECT_EQ(decoder_.Mb(2, 0).u8Qp, 29);
    EXPECT_EQ(decoder_.Mb(3, 2).u8Qp, 29);
    ASSERT_EQ(Decode(FlatPicture()), MP4VDEC_OK);
    EXPECT_EQ(decoder_.Mb(0, 0).u8Qp, 30);
}

TEST_F(IVop, AQuantiserOfOneDoesNotSink) {
    decoder_->u32VopQuant = 1;
    BitWriter bits;
    PutFlatMb(bits, 0);
    PutFlatMb(bits, 1);
    for (int i = 2; i < 12; i++) PutFlatMb(bits);
    ASSERT_EQ(Decode(bits), MP4VDEC_OK);
    EXPECT_EQ(decoder_.Mb(0, 0).u8Qp, 1);
    EXPECT_EQ(decoder_.Mb(1, 0).u8Qp, 1);
}

TEST_F(IVop, TheRecordKeepsTheLowEightBitsOfAWideQuantiser) {
    decoder_->u32VopQuant = 0x105;
    BitWriter bits;
    PutFlatMb(bits);
    PutFlatMb(bits, 0);  // 260, clamped
    for (int i = 2; i < 12; i++) PutFlatMb(bits);
    ASSERT_EQ(Decode(bits), MP4VDEC_OK);
    EXPECT_EQ(decoder_.Mb(0, 0).u8Qp, 5);
    EXPECT_EQ(g_blocks[0].quantiser, 5u);
    EXPECT_EQ(decoder_.Mb(1, 0).u8Qp, 31);
}

TEST_F(IVop, StuffingIsAbsorbed) {
    BitWriter bits;
    bits.Bits(StuffingCode()).Bits(StuffingCode());
    for (int i = 0; i < 12; i++) PutFlatMb(bits);
    EXPECT_EQ(Decode(bits), MP4VDEC_OK);
    EXPECT_EQ(decoder_.Consumed(), bits.bit_count());
    EXPECT_EQ(g_blocks.size(), 72u);
}

TEST_F(IVop, AnInvalidMcbpcTakesOneBitAndItsMacroblockIsLeftOut) {
    decoder_->tMb.u32AcPredFlag = 1;
    decoder_.Mb(0, 0).u8Qp = 77;
    BitWriter bits;
    bits.Bits("0000000111");  // nine bits below 8 at the first position and, one bit later, at the second
    decoder_->u32MbHeight = 1;
    decoder_->u32MbWidth = 2;
    std::vector<uint8_t> before = decoder_.Snapshot(decoder_->tCurFrame);
    decoder_->u32PostProcOn = 1;
    EXPECT_EQ(Decode(bits), MP4VDEC_OK);
    EXPECT_EQ(decoder_.Consumed(), 2u);
    EXPECT_EQ(decoder_->tMb.u32AcPredFlag, 0u);
    EXPECT_TRUE(g_blocks.empty());
    EXPECT_EQ(decoder_->ptMbInfo[0].u8MbType, MB_INVALID);
    EXPECT_EQ(decoder_->ptMbInfo[1].u8MbType, MB_INVALID);
    EXPECT_EQ(decoder_->ptMbInfo[0].u8Qp, 77);
    EXPECT_EQ(decoder_.Snapshot(decoder_->tCurFrame), before);
    EXPECT_EQ(output_, std::vector<uint8_t>(output_.size(), 0xA5));  // nothing is output either
    decoder_->u32MbHeight = 3;
    decoder_->u32MbWidth = 4;
}

TEST_F(IVop, AnInvalidCbpySetsAllLumaBlocksAndKeepsTheChromaBits) {
    for (int cbpc = 0; cbpc < 4; cbpc++) {
        SCOPED_TRACE(cbpc);
        g_blocks.clear();
        decoder_->u32MbHeight = 1;
        decoder_->u32MbWidth = 1;
        BitWriter bits;
        // cbpy 00000x is invalid and consumes nothing; its five zeros begin the first DC size, 0000 0001 = 9.
        bits.Bits(McbpcIntraCode(3, cbpc)).Bits("0");
        const size_t cbpy_at = bits.bit_count();
        bits.Bits("00000001").Put(0x1FF & 300, 9).Bits("1");
        bits.Bits(TcoefCode(true, 1, 0, 1));
        for (int b = 1; b < 6; b++) {
            bits.Bits(DcCode(0, b < 4));
            if (b < 4 || (cbpc >> (5 - b) & 1)) bits.Bits(TcoefCode(true, 1, 0, b + 1));
        }
        ASSERT_EQ(bits.Bytes()[cbpy_at / 8] << (cbpy_at % 8) & 0x80, 0);
        EXPECT_EQ(Decode(bits), MP4VDEC_OK);
        EXPECT_EQ(decoder_.Consumed(), bits.bit_count());
        EXPECT_EQ(decoder_->tMb.u32Cbp, 0xFFFFFFFCu | (uint32_t)cbpc);
        ASSERT_EQ(g_blocks.size(), 6u);
        EXPECT_EQ(g_blocks[0].coefficients[0], 300 + 1024 / 16);
        for (int b = 0; b < 6; b++) {
            const bool coded = b < 4 || (cbpc >> (5 - b) & 1);
            EXPECT_EQ(g_blocks[size_t(b)].coefficients[1], coded ? b + 1 : 0) << b;
        }
        decoder_->u32MbHeight = 3;
        decoder_->u32MbWidth = 4;
    }
}

TEST_F(IVop, DctTypeIsReadInInterlacedStreamsOnly) {
    decoder_->s16Interlaced = 1;
    BitWriter bits;
    for (int i = 0; i < 12; i++) PutFlatMb(bits, i == 5 ? 2 : -1, true);
    EXPECT_EQ(Decode(bits), MP4VDEC_OK);
    EXPECT_EQ(decoder_.Consumed(), bits.bit_count());

    decoder_->s16Interlaced = 0;
    decoder_->tMb.s32DctType = 1;
    EXPECT_EQ(Decode(FlatPicture()), MP4VDEC_OK);
    EXPECT_EQ(decoder_->tMb.s32DctType, 0);
}

TEST_F(IVop, FieldDctReachesTheStores) {
    decoder_->s16Interlaced = 1;
    BitWriter bits;
    bits.Bits(McbpcIntraCode(3, 0)).Bits("0").Bits(CbpyCode(0, true)).Bits("1");
    for (int b = 0; b < 6; b++) bits.Bits(DcCode(0, b < 4));
    for (int i = 1; i < 12; i++) PutFlatMb(bits, -1, true);
    ASSERT_EQ(Decode(bits), MP4VDEC_OK);
    EXPECT_EQ(g_stores[2].first, decoder_->tCurFrame.pu8Y + 128);  // block 2: bottom field
    EXPECT_EQ(g_stores[2].second, 256);
    EXPECT_EQ(g_stores[6 + 2].first, decoder_->tCurFrame.pu8Y + 16 + 8 * 128);
    EXPECT_EQ(g_stores[6 + 2].second, 128);
}

TEST_F(IVop, LeavesVectorsAsTheyAre) {
    for (int i = 0; i < 4; i++) decoder_.Mb(1, 1).as32Mv[i] = {i, -i};
    decoder_.Mb(1, 1).as32FieldAvgMv = {9, 10};
    decoder_.Mb(1, 1).u8FieldPred = 1;
    ASSERT_EQ(Decode(FlatPicture()), MP4VDEC_OK);
    for (int i = 0; i < 4; i++) {
        EXPECT_EQ(decoder_.Mb(1, 1).as32Mv[i].s32X, i);
        EXPECT_EQ(decoder_.Mb(1, 1).as32Mv[i].s32Y, -i);
    }
    EXPECT_EQ(decoder_.Mb(1, 1).as32FieldAvgMv.s32Y, 10);
    EXPECT_EQ(decoder_.Mb(1, 1).u8FieldPred, 1);
}

// ---- Errors

TEST_F(IVop, AnEarlyEndStopsBehindTheMacroblockThatNoticesIt) {
    const BitWriter bits = FlatPicture(4);
    EXPECT_EQ(Decode(bits, 0, 0xFF), ERR_VID_MPEG4DEC_BITSTREAM);
    EXPECT_GE(g_blocks.size(), 4u * 6);
    EXPECT_LT(g_blocks.size(), 12u * 6);
    EXPECT_EQ(g_blocks.size() % 6, 0u);
    EXPECT_EQ(decoder_->tBs.u32BsError, ERR_VID_MPEG4DEC_BITSTREAM);
}

TEST_F(IVop, NothingButZerosBehindTheEndStopsToo) {
    EXPECT_EQ(Decode(FlatPicture(1)), ERR_VID_MPEG4DEC_BITSTREAM);
}

TEST_F(IVop, ABadCoefficientStopsBehindItsMacroblock) {
    decoder_->u32PostProcOn = 1;
    std::fill_n(decoder_.Allocation(decoder_->tCurFrame), decoder_.allocation_bytes(), uint8_t{0x11});
    BitWriter bits;
    PutFlatMb(bits);
    bits.Bits(McbpcIntraCode(3, 0)).Bits("0").Bits(CbpyCode(1, true));
    for (int b = 0; b < 4; b++) bits.Bits(DcCode(0, true));
    bits.Bits(EscapedTcoefCode(0, 63, 1));
    for (int b = 4; b < 6; b++) bits.Bits(DcCode(0, false));
    for (int i = 0; i < 10; i++) PutFlatMb(bits);
    EXPECT_EQ(Decode(bits), ERR_VID_MPEG4DEC_COEFF);
    EXPECT_EQ(g_blocks.size(), 12u);
    // Both macroblocks were output, the damaged one too; the third was not.
    EXPECT_EQ(output_[16], 0x11);
    EXPECT_EQ(output_[31], 0x11);
    EXPECT_EQ(output_[32], 0xA5);
    EXPECT_EQ(output_[16 * 64], 0xA5);
}

// ---- Output

TEST_F(IVop, WithoutPostProcessingTheOutputIsNotTouched) {
    decoder_->u32PostProcOn = 0;
    decoder_.SetStream(FlatPicture());
    EXPECT_EQ(IVopDecode(decoder_.get(), nullptr, 0), MP4VDEC_OK);
}

TEST_F(IVop, ThePlanesFollowOneAnotherInTheOutput) {
    decoder_->u32PostProcOn = 1;
    decoder_->s32DeblockQpThr = 30;
    std::mt19937 rng(3);
    decoder_.Randomise(decoder_->tCurFrame, rng);
    ASSERT_EQ(Decode(FlatPicture()), MP4VDEC_OK);
    std::vector<uint8_t> expected;
    const VopFrame& frame = decoder_->tCurFrame;
    for (int y = 0; y < 48; y++) expected.insert(expected.end(), frame.pu8Y + y * 128, frame.pu8Y + y * 128 + 64);
    for (int y = 0; y < 24; y++) expected.insert(expected.end(), frame.pu8U + y * 64, frame.pu8U + y * 64 + 32);
    for (int y = 0; y < 24; y++) expected.insert(expected.end(), frame.pu8V + y * 64, frame.pu8V + y * 64 + 32);
    EXPECT_EQ(output_, expected);
}

std::vector<uint32_t> g_deblocked_quantisers;
void RecordDeblock(uint8_t* /*edge*/, int32_t /*pitch*/, uint32_t quantiser) {
    g_deblocked_quantisers.push_back(quantiser);
}

TEST_F(IVop, DeblocksMacroblocksAboveTheThresholdWhateverTheFlagSaid) {
    // Quantisers of row 1 are 10, 11, 10, 11; column 0 is never filtered.
    Replace<void (*)(uint8_t*, int32_t, uint32_t)> deblock(Deblock8x8Horiz, RecordDeblock);
    for (const uint32_t flags : {0u, 4u}) {
        g_deblocked_quantisers.clear();
        decoder_->u32PostProcOn = 1;
        decoder_->s32DeblockQpThr = 10;
        decoder_->u32VopQuant = 10;
        BitWriter bits;
        for (int i = 0; i < 12; i++) {
            const bool row1 = i / 4 == 1;
            PutFlatMb(bits, !row1 || i == 4 ? -1 : i % 2 ? 2 : 0);
        }
        ASSERT_EQ(Decode(bits, flags), MP4VDEC_OK);
        // Macroblocks 5 and 7, then row 2, whose quantiser stays 11 (columns 1 to 3): twelve edges each.
        EXPECT_EQ(g_deblocked_quantisers, std::vector<uint32_t>(5 * 12, 11u));
    }
}

TEST_F(IVop, TheThresholdItselfIsNotDeblocked) {
    Replace<void (*)(uint8_t*, int32_t, uint32_t)> deblock(Deblock8x8Horiz, RecordDeblock);
    g_deblocked_quantisers.clear();
    decoder_->u32PostProcOn = 1;
    decoder_->s32DeblockQpThr = 10;
    decoder_->u32VopQuant = 10;
    ASSERT_EQ(Decode(FlatPicture(), 4), MP4VDEC_OK);
    EXPECT_TRUE(g_deblocked_quantisers.empty());
}

}  // namespace
}  // namespace mp4v::test
