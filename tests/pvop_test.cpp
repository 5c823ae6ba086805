// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

#include "common/pvop.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>
#include <vector>

#include "common/intra.h"
#include "common/kernels.h"
#include "tests/support/instance.h"
#include "tests/support/intra_model.h"
#include "tests/support/sample_block.h"

namespace mp4v::test {
namespace {

void PutNotCoded(BitWriter& bits, int count = 1) {
    for (int i = 0; i < count; i++) bits.Bits("1");
}

// A progressive inter macroblock with one vector difference and without residual.
void PutInter(BitWriter& bits, int dx, int dy) {
    bits.Bits("0").Bits(McbpcInterCode(0, 0)).Bits(CbpyCode(0, false)).Bits(MotionCode(dx)).Bits(MotionCode(dy));
}

// An intra macroblock with DC differentials of 0. dquant: -1 for type INTRA.
void PutFlatIntra(BitWriter& bits, int dquant = -1) {
    bits.Bits("0").Bits(McbpcInterCode(dquant < 0 ? 3 : 4, 0)).Bits("0").Bits(CbpyCode(0, true));
    if (dquant >= 0) bits.Put((uint32_t)dquant, 2);
    for (int b = 0; b < 6; b++) bits.Bits(DcCode(0, b < 4));
}

class PVop : public testing::Test {
  protected:
    PVop() {
        std::mt19937 rng(1);
        decoder_.Randomise(decoder_->tCurFrame, rng);
        decoder_.Randomise(decoder_->tRefFrame, rng);
    }
    uint32_t Decode(const BitWriter& bits, uint32_t flags = 0, uint8_t padding = 0) {
        decoder_.SetStream(bits, padding);
        return PVopDecode(decoder_.get(), output_.data(), flags);
    }
    // Samples of the current frame; of the reference at the nearest place inside the picture.
    int Current(int x, int y) const { return decoder_->tCurFrame.pu8Y[y * 128 + x]; }
    int Inside(int x, int y) const {
        return decoder_->tRefFrame.pu8Y[std::clamp(y, 0, 47) * 128 + std::clamp(x, 0, 63)];
    }
    int CurrentV(int x, int y) const { return decoder_->tCurFrame.pu8V[y * 64 + x]; }
    int InsideV(int x, int y) const {
        return decoder_->tRefFrame.pu8V[std::clamp(y, 0, 23) * 64 + std::clamp(x, 0, 31)];
    }

    Instance decoder_{64, 48};
    std::vector<uint8_t> output_ = std::vector<uint8_t>(64 * 48 * 3 / 2, uint8_t{0xA5});
};

TEST_F(PVop, WithEveryMacroblockNotCodedRepeatsTheReference) {
    const std::vector<uint8_t> before = decoder_.Snapshot(decoder_->tCurFrame);
    BitWriter bits;
    PutNotCoded(bits, 12);
    EXPECT_EQ(Decode(bits), MP4VDEC_OK);
    std::vector<uint8_t> expected = before;
    const auto copy = [&](const uint8_t* from, const uint8_t* to, int width, int height, int pitch) {
        for (int y = 0; y < height; y++) {
            const ptrdiff_t at = to - decoder_.Allocation(decoder_->tCurFrame) + y * pitch;
            std::copy_n(from + y * pitch, width, &expected[(size_t)at]);
        }
    };
    copy(decoder_->tRefFrame.pu8Y, decoder_->tCurFrame.pu8Y, 64, 48, 128);
    copy(decoder_->tRefFrame.pu8U, decoder_->tCurFrame.pu8U, 32, 24, 64);
    copy(decoder_->tRefFrame.pu8V, decoder_->tCurFrame.pu8V, 32, 24, 64);
    EXPECT_EQ(decoder_.Snapshot(decoder_->tCurFrame), expected);
    EXPECT_EQ(decoder_.Consumed(), 12u);
}

std::vector<std::string> g_copies;
void RecordCopy16(uint8_t*, const uint8_t*, int32_t pitch) {
    g_copies.push_back("16 " + std::to_string(pitch));
}
void RecordCopy8(uint8_t*, const uint8_t*, int32_t pitch) {
    g_copies.push_back("8 " + std::to_string(pitch));
}

TEST_F(PVop, NotCodedMacroblocksAreCopiedByTheKernels) {
    g_copies.clear();
    Replace<Mp4vMemCopyBlock*> copy16(MemCopy16x16, RecordCopy16);
    Replace<Mp4vMemCopyBlock*> copy8(MemCopy8x8, RecordCopy8);
    BitWriter bits;
    PutNotCoded(bits, 12);
    EXPECT_EQ(Decode(bits), MP4VDEC_OK);
    ASSERT_EQ(g_copies.size(), 36u);
    EXPECT_EQ(g_copies[0], "16 128");
    EXPECT_EQ(g_copies[1], "8 64");
    EXPECT_EQ(g_copies[2], "8 64");
}

void CopyElsewhere(uint8_t* dst, const uint8_t* src, int32_t pitch) {
    MP4DecMemCopy16x16_c(dst, src, pitch);
}

// Runs of not-coded macroblocks, over the ends of words and rows, between others and between quantisers that want
// deblocking: with another kernel they are decoded one by one.
TEST(PVopNotCoded, IsTheSameInRunsAndOneByOne) {
    for (unsigned seed = 0; seed < 60; seed++) {
        SCOPED_TRACE(seed);
        const uint32_t width = 16 * (1 + seed % 40);
        struct Run {
            Instance decoder;
            std::vector<uint8_t> output;
        };
        Run runs[2] = {{Instance(width, 64), {}}, {Instance(width, 64), {}}};
        for (Run& run : runs) {
            std::mt19937 rng(seed);
            Mp4vDecCtx& ctx = *run.decoder;
            run.decoder.Randomise(ctx.tCurFrame, rng);
            run.decoder.Randomise(ctx.tRefFrame, rng);
            for (size_t i = 0; i < run.decoder.mb_record_count(); i++) {
                memset(run.decoder.mb_records()[i].as16AcDcPred, 0x44, sizeof(MbInfo::as16AcDcPred));
                run.decoder.mb_records()[i].u8Qp = uint8_t(rng() % 16 == 0 && seed % 2 ? 31 : 5);
            }
            ctx.u32PostProcOn = seed % 5 != 0;
            ctx.s32DeblockQpThr = 30;
            ctx.tBs.u32BsError = 0;
            BitWriter bits;
            for (uint32_t n = 0; n < width / 4; n++)
                rng() % 32 < seed % 4 ? PutInter(bits, int(rng() % 9), int(rng() % 9)) : PutNotCoded(bits);
            if (seed % 7 == 0) bits = BitWriter().Bits(std::string(size_t{width / 7}, '1'));  // and nothing more
            run.decoder.SetStream(bits);
            if (seed % 11 == 0) ctx.tBs.u32BsError = ERR_VID_MPEG4DEC_BITSTREAM;
            run.output.assign(size_t{width} * 96, uint8_t{0xA5});
            Replace<Mp4vMemCopyBlock*> copy16(MemCopy16x16, &run == runs ? MP4DecMemCopy16x16_c : CopyElsewhere);
            const uint32_t status = PVopDecode(&ctx, run.output.data(), 0);
            EXPECT_EQ(status == MP4VDEC_OK, seed % 7 != 0 && seed % 11 != 0);
        }
        EXPECT_EQ(runs[0].output, runs[1].output);
        EXPECT_EQ(runs[0].decoder.MbRecordBytes(), runs[1].decoder.MbRecordBytes());
        EXPECT_EQ(runs[0].decoder.Consumed(), runs[1].decoder.Consumed());
        EXPECT_EQ(runs[0].decoder->tBs.u32BsError, runs[1].decoder->tBs.u32BsError);
        EXPECT_EQ(runs[0].decoder.Snapshot(runs[0].decoder->tCurFrame),
                  runs[1].decoder.Snapshot(runs[1].decoder->tCurFrame));
    }
}

TEST_F(PVop, ExtendsTheReferencesBordersFirst) {
    BitWriter bits;
    PutInter(bits, -32, -32);  // 16 samples up and left
    PutNotCoded(bits, 11);
    EXPECT_EQ(Decode(bits), MP4VDEC_OK);
    for (int y = 0; y < 16; y++) {
        for (int x = 0; x < 16; x++) ASSERT_EQ(Current(x, y), Inside(x - 16, y - 16)) << x << ' ' << y;
    }
    for (int y = 0; y < 8; y++) {
        for (int x = 0; x < 8; x++) ASSERT_EQ(CurrentV(x, y), InsideV(x - 8, y - 8)) << x << ' ' << y;
    }
    EXPECT_EQ(decoder_->tRefFrame.pu8Y[-32 * 128 - 32], decoder_->tRefFrame.pu8Y[0]);
    EXPECT_EQ(decoder_->tRefFrame.pu8Y[79 * 128 + 95], decoder_->tRefFrame.pu8Y[47 * 128 + 63]);
}

TEST_F(PVop, MovesEachMacroblockByItsVector) {
    BitWriter bits;
    PutInter(bits, 8, -4);
    PutInter(bits, 0, 0);  // predicted from its left neighbour
    PutNotCoded(bits, 9);
    PutInter(bits, 16, 16);  // its neighbours are at rest
    EXPECT_EQ(Decode(bits), MP4VDEC_OK);
    for (int y = 0; y < 16; y++) {
        for (int x = 0; x < 32; x++) ASSERT_EQ(Current(x, y), Inside(x + 4, y - 2)) << x << ' ' << y;
        for (int x = 48; x < 64; x++) ASSERT_EQ(Current(x, 32 + y), Inside(x + 8, 32 + y + 8)) << x << ' ' << y;
    }
    for (int y = 0; y < 8; y++) {
        for (int x = 0; x < 16; x++) ASSERT_EQ(CurrentV(x, y), InsideV(x + 2, y - 1)) << x << ' ' << y;
    }
}

TEST_F(PVop, TheRunningQuantiserStartsAtTheVopsQuantiser) {
    decoder_->u32RunningQp = 5;
    decoder_->u32VopQuant = 12;
    BitWriter bits;
    PutInter(bits, 0, 0);
    PutFlatIntra(bits, 3);
    PutInter(bits, 0, 0);
    PutNotCoded(bits, 9);
    EXPECT_EQ(Decode(bits), MP4VDEC_OK);
    EXPECT_EQ(decoder_.Mb(0, 0).u8Qp, 12);
    EXPECT_EQ(decoder_.Mb(1, 0).u8Qp, 14);
    EXPECT_EQ(decoder_.Mb(2, 0).u8Qp, 14);
    EXPECT_EQ(decoder_->u32RunningQp, 14u);
}

uint32_t g_cleared_bytes;
std::vector<void*> g_cleared;
void RecordMemSet(void* dst, uint32_t value, uint32_t bytes) {
    EXPECT_EQ(value, 0u);
    g_cleared_bytes = bytes;
    g_cleared.push_back(dst);
}

TEST_F(PVop, ClearsHalfOfThePredictorsOfMacroblocksThatAreNotIntra) {
    for (size_t i = 0; i < decoder_.mb_record_count(); i++) {
        memset(decoder_.mb_records()[i].as16AcDcPred, 0x44, sizeof(MbInfo::as16AcDcPred));
    }
    BitWriter bits;
    PutNotCoded(bits);
    PutInter(bits, 0, 0);
    bits.Bits("0").Bits(McbpcInterCode(2, 0)).Bits(CbpyCode(0, false));
    for (int i = 0; i < 8; i++) bits.Bits(MotionCode(0));
    PutFlatIntra(bits);
    PutNotCoded(bits, 8);
    ASSERT_EQ(Decode(bits), MP4VDEC_OK);
    for (int column = 0; column < 3; column++) {
        const auto* bytes = reinterpret_cast<const uint8_t*>(decoder_.Mb(column, 0).as16AcDcPred);
        for (size_t i = 0; i < 192; i++) ASSERT_EQ(bytes[i], i < 96 ? 0 : 0x44) << column << ' ' << i;
    }
    EXPECT_EQ(decoder_.Mb(3, 0).as16AcDcPred[0][0], 1024);
    EXPECT_EQ(decoder_.Mb(3, 0).as16AcDcPred[0][15], 0x4444);
}

TEST_F(PVop, ClearsThroughTheKernelTable) {
    g_cleared.clear();
    Replace<Mp4vMemSet*> memset_kernel(MemSet, RecordMemSet);
    BitWriter bits;
    PutNotCoded(bits, 5);
    PutFlatIntra(bits);
    PutNotCoded(bits, 6);
    ASSERT_EQ(Decode(bits), MP4VDEC_OK);
    EXPECT_EQ(g_cleared_bytes, 96u);
    ASSERT_EQ(g_cleared.size(), 11u);
    EXPECT_EQ(g_cleared[0], &decoder_.Mb(0, 0));
    EXPECT_EQ(g_cleared[5], &decoder_.Mb(2, 1));  // not (1, 1), which is intra
}

// ---- Intra macroblocks between others

struct BlockCall {
    std::vector<int16_t> coefficients;
    uint32_t quantiser, scaler;
};
std::vector<BlockCall> g_blocks;
void RecordBlock(int16_t* /*dst*/, const int16_t* src, uint32_t quantiser, uint32_t scaler) {
    g_blocks.push_back({{src, src + 64}, quantiser, scaler});
}

TEST_F(PVop, AnIntraMacroblockBesideAnInterOnePredictsFrom1024) {
    g_blocks.clear();
    Replace<Mp4vDequantIntra*> dequant(DequantH263Intra, RecordBlock);
    decoder_->u32VopQuant = 4;
    BitWriter bits;
    PutInter(bits, 0, 0);
    PutFlatIntra(bits);
    PutNotCoded(bits, 10);
    ASSERT_EQ(Decode(bits), MP4VDEC_OK);
    ASSERT_EQ(g_blocks.size(), 6u);
    for (const BlockCall& block : g_blocks) EXPECT_EQ(block.coefficients[0], 128);
}

// Pictures of all macroblock types: records, vectors and intra coefficients.
TEST_F(PVop, AgreesWithTheModelsOnRandomPictures) {
    Replace<Mp4vDequantIntra*> dequant(DequantH263Intra, RecordBlock);
    for (unsigned seed = 0; seed < 300; seed++) {
        SCOPED_TRACE(testing::Message() << "seed " << seed);
        std::mt19937 rng(seed);
        g_blocks.clear();
        decoder_->u32IntraDcThr = rng() % 2 ? 32 : 13;
        decoder_->u32AltVertScan = rng() % 4 == 0;
        decoder_->u16QuarterSample = rng() % 2;
        decoder_->u32VopQuant = uint32_t(1 + rng() % 31);
        decoder_->u16QpCarry = rng() % 4 != 0;
        struct Expectation {
            IntraModel model;
            int quantiser;
        };
        std::vector<Expectation> intra;
        // What the records hold before: a not-coded macroblock keeps the quantiser.
        std::vector<MbInfo> records;
        for (int n = 0; n < 12; n++) records.push_back(decoder_.Mb(n % 4, n / 4));
        const auto vector_at = [&](int x, int y) -> Mp4vMv {
            if (x < 0 || y < 0 || x > 7) return {0, 0};
            return records[size_t(y / 2 * 4 + x / 2)].as32Mv[y % 2 * 2 + x % 2];
        };
        const auto middle = [](int32_t a, int32_t b, int32_t c) {
            return a + b + c - std::min({a, b, c}) - std::max({a, b, c});
        };
        const auto wrap = [](int32_t v) { return (v + 32 + 128) % 64 - 32; };
        BitWriter bits;
        int quantiser = (int)decoder_->u32VopQuant;
        for (int n = 0; n < 12; n++) {
            MbInfo& record = records[size_t(n)];
            record.u8FieldPred = 0;
            if (rng() % 5 == 0) {
                bits.Bits("1");
                std::fill_n(record.as32Mv, 4, Mp4vMv{0, 0});
                record.u8MbType = 255;
                std::fill_n(&record.as16AcDcPred[0][0], 48, int16_t{0});
                continue;
            }
            const auto type = int(rng() % 5);
            const bool is_intra = type >= 3;
            const bool ac_pred = is_intra && rng() % 2;
            const auto dquant = int(rng() % 4);
            if (!decoder_->u16QpCarry) quantiser = (int)decoder_->u32VopQuant;
            if (type == 1 || type == 4)
                quantiser = std::clamp(quantiser + (dquant < 2 ? -1 - dquant : dquant - 1), 1, 31);
            record.u8MbType = (uint8_t)type;
            record.u8Qp = (uint8_t)quantiser;
            const bool dc_apart = (int)decoder_->u32IntraDcThr > quantiser;
            IntraMbSymbols symbols = RandomIntraMb(rng, is_intra && dc_apart);
            bits.Bits("0").Bits(McbpcInterCode(type, symbols.Cbpc()));
            if (is_intra) bits.Put(ac_pred, 1);
            bits.Bits(CbpyCode(symbols.Cbpy(), is_intra));
            if (type == 1 || type == 4) bits.Put((uint32_t)dquant, 2);
            if (is_intra) {
                std::fill_n(record.as32Mv, 4, Mp4vMv{0, 0});
                WriteIntraBlocks(bits, symbols, dc_apart);
                IntraModel model([&](int x, int y) { return records[size_t(4 * y + x)]; }, n % 4, n / 4, quantiser);
                model.Decode(symbols, dc_apart, ac_pred, decoder_->u32AltVertScan);
                for (int b = 0; b < 6; b++) std::copy_n(model.block(b).predictors.data(), 15, record.as16AcDcPred[b]);
                intra.push_back({model, quantiser});
                continue;
            }
            for (int b = 0; b < (type == 2 ? 4 : 1); b++) {
                const int x = n % 4 * 2 + b % 2, y = n / 4 * 2 + b / 2;
                const Mp4vMv left = vector_at(x - 1, y), above = vector_at(x, y - 1);
                const Mp4vMv right = vector_at(b == 0 ? x + 2 : b == 3 ? x - 1 : x + 1, y - 1);
                const Mp4vMv predictor = n < 4 && b < 2 ? left
                                                        : Mp4vMv{middle(left.s32X, above.s32X, right.s32X),
                                                                 middle(left.s32Y, above.s32Y, right.s32Y)};
                const int dx = int(rng() % 65) - 32, dy = int(rng() % 65) - 32;
                bits.Bits(MotionCode(dx)).Bits(MotionCode(dy));
                const Mp4vMv mv = {wrap(predictor.s32X + dx), wrap(predictor.s32Y + dy)};
                if (type == 2) {
                    record.as32Mv[b] = mv;
                } else {
                    std::fill_n(record.as32Mv, 4, mv);
                }
            }
            for (const IntraBlockSymbols& block : symbols.blocks) WriteEvents(bits, block.events, false);
            std::fill_n(&record.as16AcDcPred[0][0], 48, int16_t{0});
        }
        ASSERT_EQ(Decode(bits), MP4VDEC_OK);
        ASSERT_EQ(decoder_.Consumed(), bits.bit_count());
        for (int n = 0; n < 12; n++) {
            const MbInfo& mb = decoder_.Mb(n % 4, n / 4);
            const MbInfo& expected = records[size_t(n)];
            ASSERT_EQ(mb.u8MbType, expected.u8MbType) << n;
            ASSERT_EQ(mb.u8Qp, expected.u8Qp) << n;
            for (int b = 0; b < 4; b++) ASSERT_EQ(mb.as32Mv[b], expected.as32Mv[b]) << n << ' ' << b;
            ASSERT_EQ(memcmp(mb.as16AcDcPred, expected.as16AcDcPred, sizeof mb.as16AcDcPred), 0) << n;
        }
        ASSERT_EQ(g_blocks.size(), 6 * intra.size());
        for (size_t i = 0; i < g_blocks.size(); i++) {
            const IntraModel::Block& block = intra[i / 6].model.block((int)(i % 6));
            ASSERT_EQ(g_blocks[i].coefficients, std::vector(block.coefficients.begin(), block.coefficients.end())) << i;
            ASSERT_EQ((int)g_blocks[i].quantiser, intra[i / 6].quantiser) << i;
            ASSERT_EQ((int)g_blocks[i].scaler, block.scaler) << i;
        }
    }
}

// ---- Residual

struct Residual {
    std::vector<int16_t> blocks;
    uint32_t cbp;
    int32_t row_offset, luma_pitch, chroma_pitch;
    int predicted;  // sample under the macroblock at the time of the call
};
std::vector<Residual> g_residuals;
void RecordResidual(Mp4vMbScratch* mb, int16_t* blocks, uint32_t cbp, int32_t row_offset, int32_t luma_pitch,
                    int32_t chroma_pitch) {
    EXPECT_EQ(blocks, mb->as16Coef);
    g_residuals.push_back({{blocks, blocks + 384}, cbp, row_offset, luma_pitch, chroma_pitch, *mb->pu8DstY});
}
std::vector<uint32_t> g_h263, g_mpeg;
std::vector<const int16_t*> g_mpeg_blocks;
void RecordH263(int16_t* dst, const int16_t* src, uint16_t quantiser) {
    EXPECT_EQ(dst, src);
    g_h263.push_back(quantiser);
}
void RecordMpeg(int16_t* dst, const int16_t* src, uint32_t quantiser) {
    EXPECT_EQ(dst, src);
    g_mpeg.push_back(quantiser);
    g_mpeg_blocks.push_back(src);
}

class PVopResidual : public PVop {
  protected:
    PVopResidual() {
        g_residuals.clear();
        g_h263.clear();
        g_mpeg.clear();
        g_mpeg_blocks.clear();
        decoder_->u32VopQuant = 9;
    }
    // An inter macroblock with blocks 0 and 5, each of one event: run 2, level 1 and 3.
    BitWriter Picture(int type = 0, const std::string& dct_type = "", const std::string& field = "") {
        BitWriter bits;
        bits.Bits("0").Bits(McbpcInterCode(type, 1)).Bits(CbpyCode(8, false)).Bits(dct_type).Bits(field);
        for (int i = 0; i < (type == 2 ? 8 : 2); i++) bits.Bits(MotionCode(0));
        bits.Bits(TcoefCode(false, 1, 2, 1)).Bits(TcoefCode(false, 1, 2, 3));
        PutNotCoded(bits, 11);
        return bits;
    }

    Replace<decltype(AddIdct8x8Multi)> add_{AddIdct8x8Multi, RecordResidual};
    Replace<decltype(DequantH263Inter)> h263_{DequantH263Inter, RecordH263};
    Replace<decltype(DequantMpegInter)> mpeg_{DequantMpegInter, RecordMpeg};
};

TEST_F(PVopResidual, IsAddedToThePredictionInPackedBlocks) {
    ASSERT_EQ(Decode(Picture()), MP4VDEC_OK);
    ASSERT_EQ(g_residuals.size(), 1u);
    const Residual& residual = g_residuals[0];
    EXPECT_EQ(residual.cbp, 0x21u);
    EXPECT_EQ(residual.row_offset, 8 * 128);
    EXPECT_EQ(residual.luma_pitch, 128);
    EXPECT_EQ(residual.chroma_pitch, 64);
    EXPECT_EQ(residual.blocks[8], 1);  // zigzag 0 1 8
    EXPECT_EQ(residual.blocks[64 + 8], 3);
    EXPECT_EQ(std::count(residual.blocks.begin(), residual.blocks.begin() + 128, 0), 126);
    EXPECT_EQ(residual.predicted, Inside(0, 0));
    EXPECT_EQ(g_h263, (std::vector<uint32_t>{9, 9}));
    EXPECT_TRUE(g_mpeg.empty());
}

TEST_F(PVopResidual, WithMpegQuantisationIsDequantisedBehindTheLastBlock) {
    decoder_->u16QuantType = 1;
    ASSERT_EQ(Decode(Picture(2)), MP4VDEC_OK);
    EXPECT_TRUE(g_h263.empty());
    EXPECT_EQ(g_mpeg, (std::vector<uint32_t>{9, 9}));
    ASSERT_EQ(g_mpeg_blocks.size(), 2u);
    EXPECT_EQ(g_mpeg_blocks[0], decoder_->tMb.as16Coef);
    EXPECT_EQ(g_mpeg_blocks[1], decoder_->tMb.as16Coef + 64);
}

TEST_F(PVopResidual, FollowsTheAlternateVerticalScanWhenTold) {
    decoder_->u32AltVertScan = 1;
    ASSERT_EQ(Decode(Picture()), MP4VDEC_OK);
    EXPECT_EQ(g_residuals[0].blocks[16], 1);  // 0 8 16
}

TEST_F(PVopResidual, OfFieldDctGoesToTheFieldsLines) {
    decoder_->s16Interlaced = 1;
    ASSERT_EQ(Decode(Picture(0, "1", "0")), MP4VDEC_OK);
    EXPECT_EQ(g_residuals[0].row_offset, 128);
    EXPECT_EQ(g_residuals[0].luma_pitch, 256);
    EXPECT_EQ(g_residuals[0].chroma_pitch, 64);
}

TEST_F(PVopResidual, OfFrameDctInAnInterlacedStreamGoesToTheFramesLines) {
    decoder_->s16Interlaced = 1;
    ASSERT_EQ(Decode(Picture(0, "0", "0")), MP4VDEC_OK);
    EXPECT_EQ(g_residuals[0].row_offset, 8 * 128);
    EXPECT_EQ(g_residuals[0].luma_pitch, 128);
}

TEST_F(PVopResidual, TakesTheQuantiserOfTheMacroblock) {
    BitWriter bits;
    bits.Bits("0").Bits(McbpcInterCode(1, 2)).Bits(CbpyCode(0, false)).Bits("11");
    bits.Bits(MotionCode(0)).Bits(MotionCode(0)).Bits(TcoefCode(false, 1, 0, 1));
    PutNotCoded(bits, 11);
    ASSERT_EQ(Decode(bits), MP4VDEC_OK);
    EXPECT_EQ(g_h263, (std::vector<uint32_t>{11}));
    EXPECT_EQ(g_residuals[0].cbp, 2u);
}

TEST_F(PVopResidual, IsAddedUpToABlockThatFails) {
    BitWriter bits;
    bits.Bits("0").Bits(McbpcInterCode(0, 3)).Bits(CbpyCode(0, false)).Bits(MotionCode(0)).Bits(MotionCode(0));
    bits.Bits(TcoefCode(false, 1, 0, 2)).Bits(EscapedTcoefCode(0, 60, 5)).Bits(EscapedTcoefCode(0, 60, 5));
    PutNotCoded(bits, 11);
    EXPECT_EQ(Decode(bits), ERR_VID_MPEG4DEC_COEFF);
    ASSERT_EQ(g_residuals.size(), 1u);
    EXPECT_EQ(g_residuals[0].blocks[0], 2);
    EXPECT_EQ(g_h263.size(), 1u);
    EXPECT_EQ(decoder_.Mb(1, 0).u8MbType, 0);  // not looked at
    EXPECT_EQ(decoder_.Consumed(), bits.bit_count() - 11);
}

// ---- Errors

TEST_F(PVop, AnInvalidCodeEndsThePictureAtOnce) {
    decoder_->u32PostProcOn = 1;
    memset(decoder_.Mb(1, 0).as16AcDcPred, 0x44, 192);
    const std::vector<uint8_t> before = decoder_.Snapshot(decoder_->tCurFrame);
    BitWriter bits;
    PutNotCoded(bits);
    bits.Bits("0").Put(0, 9);
    PutNotCoded(bits, 40);
    EXPECT_EQ(Decode(bits), ERR_VID_MPEG4DEC_COEFF);
    EXPECT_EQ(decoder_->tBs.u32BsError, ERR_VID_MPEG4DEC_COEFF);
    EXPECT_EQ(Current(5, 5), Inside(5, 5));  // what was decoded before stays
    EXPECT_EQ(Current(16, 5), before[size_t(32 * 128 + 32 + 5 * 128 + 16)]);
    EXPECT_EQ(output_[15], Inside(15, 0));
    EXPECT_EQ(output_[16], 0xA5);
    EXPECT_EQ(decoder_.Mb(1, 0).as16AcDcPred[0][0], 0x4444);  // nothing is cleared
}

TEST_F(PVop, AnInvalidCodeWinsOverAnEarlierOverrun) {
    BitWriter bits;
    bits.Bits("00");
    decoder_.SetStream(bits, 0);
    decoder_->tBs.u32BsError = ERR_VID_MPEG4DEC_BITSTREAM;
    EXPECT_EQ(PVopDecode(decoder_.get(), output_.data(), 0), ERR_VID_MPEG4DEC_COEFF);
    EXPECT_EQ(decoder_->tBs.u32BsError, ERR_VID_MPEG4DEC_COEFF);
}

TEST_F(PVop, AnOverrunEndsThePictureBehindItsMacroblockAndItsOutput) {
    decoder_->u32PostProcOn = 1;
    BitWriter bits;
    PutNotCoded(bits);
    decoder_.SetStream(bits, 0xFF);
    decoder_->tBs.u32BsError = ERR_VID_MPEG4DEC_BITSTREAM;
    EXPECT_EQ(PVopDecode(decoder_.get(), output_.data(), 0), ERR_VID_MPEG4DEC_BITSTREAM);
    EXPECT_EQ(Current(3, 3), Inside(3, 3));
    EXPECT_EQ(output_[15], Inside(15, 0));
    EXPECT_EQ(output_[16], 0xA5);
    EXPECT_EQ(decoder_.Consumed(), 1u);
}

TEST_F(PVop, ZerosBehindTheEndAreAnInvalidCode) {
    BitWriter bits;
    PutFlatIntra(bits);
    EXPECT_EQ(Decode(bits, 0, 0), ERR_VID_MPEG4DEC_COEFF);
}

TEST(PVopSizes, AnEarlyEndIsNoticedWhereTheReaderRefills) {
    Instance decoder(160, 160);
    for (size_t i = 0; i < decoder.mb_record_count(); i++) decoder.mb_records()[i].u8MbType = MB_INVALID;
    BitWriter bits;
    bits.Put(0xFF, 8);
    decoder.SetStream(bits, 0xFF);
    EXPECT_EQ(PVopDecode(decoder.get(), nullptr, 0), ERR_VID_MPEG4DEC_BITSTREAM);
    EXPECT_EQ(decoder.Consumed(), 32u);
    EXPECT_EQ(decoder.Mb(1, 3).u8MbType, MB_NOT_CODED);  // the 32nd
    EXPECT_EQ(decoder.Mb(2, 3).u8MbType, MB_INVALID);
}

TEST(PVopSizes, AnEmptyPictureIsDone) {
    Instance decoder(0, 0);
    EXPECT_EQ(PVopDecode(decoder.get(), nullptr, 0), MP4VDEC_OK);
    EXPECT_EQ(IVopDecode(decoder.get(), nullptr, 0), MP4VDEC_OK);
}

// ---- Output

TEST_F(PVop, IsOutputMacroblockByMacroblock) {
    decoder_->u32PostProcOn = 1;
    BitWriter bits;
    PutNotCoded(bits, 12);
    ASSERT_EQ(Decode(bits), MP4VDEC_OK);
    for (int y = 0; y < 48; y++) {
        for (int x = 0; x < 64; x++) ASSERT_EQ(output_[size_t(64 * y + x)], Inside(x, y));
    }
    for (int y = 0; y < 24; y++) {
        for (int x = 0; x < 32; x++) ASSERT_EQ(output_[size_t(64 * 60 + 32 * y + x)], InsideV(x, y));
    }
}

TEST_F(PVop, WithoutPostProcessingNeedsNoOutput) {
    decoder_->u32PostProcOn = 0;
    BitWriter bits;
    PutNotCoded(bits, 12);
    decoder_.SetStream(bits);
    EXPECT_EQ(PVopDecode(decoder_.get(), nullptr, 0), MP4VDEC_OK);
}

std::vector<uint32_t> g_edge_quantisers;
void RecordEdge(uint8_t* /*edge*/, int32_t /*pitch*/, uint32_t quantiser) {
    g_edge_quantisers.push_back(quantiser);
}

TEST_F(PVop, ANotCodedMacroblockIsDeblockedByTheQuantiserOfItsRecord) {
    Replace<decltype(Deblock8x8Horiz)> edge(Deblock8x8Horiz, RecordEdge);
    for (const uint32_t flags : {0u, 4u}) {
        g_edge_quantisers.clear();
        decoder_->u32PostProcOn = 1;
        decoder_->s32DeblockQpThr = 10;
        for (int n = 0; n < 12; n++) decoder_.Mb(n % 4, n / 4).u8Qp = 10;
        decoder_.Mb(2, 1).u8Qp = 23;
        BitWriter bits;
        PutNotCoded(bits, 12);
        ASSERT_EQ(Decode(bits, flags), MP4VDEC_OK);
        EXPECT_EQ(g_edge_quantisers, std::vector<uint32_t>(12, 23u));
    }
}

// ---- Anything

// Random settings and random bits: a known status, and nothing written outside; memory checkers see the rest.
TEST(AnyBits, GiveAKnownStatusAndStayInside) {
    std::map<uint32_t, int> statuses;
    for (unsigned seed = 0; seed < 1500; seed++) {
        SCOPED_TRACE(testing::Message() << "seed " << seed);
        std::mt19937 rng(seed);
        Instance decoder(96, 80);
        const auto width = uint32_t(1 + rng() % 96), height = uint32_t(1 + rng() % 80);
        decoder.Resize(width, height);
        decoder.Randomise(decoder->tRefFrame, rng);
        decoder->u32FcodeForward = rng() % 8;
        decoder->u32VopQuant = uint32_t(rng() % 4 ? 1 + rng() % 31 : rng() % 512);
        decoder->u32IntraDcThr = rng() % 2 ? 32 : 1;
        decoder->s16Interlaced = rng() % 2;
        decoder->u16QuarterSample = rng() % 2;
        decoder->u16QuantType = rng() % 2;
        decoder->u32AltVertScan = rng() % 2;
        decoder->u32RoundingType = rng() % 2;
        decoder->u16QpCarry = rng() % 2;
        decoder->u32PostProcOn = 1;
        decoder->s32DeblockQpThr = 10;
        const GuardedBytes picture(size_t{width} * height * 3 / 2,
                                   seed % 2 ? GuardedBytes::kBehind : GuardedBytes::kBefore);
        for (int n = 0; n < 4; n++) {
            std::vector<uint8_t> bytes(1 + rng() % 400);
            // Few ones make long codes and invalid ones, many make short ones.
            for (uint8_t& byte : bytes) byte = uint8_t(n % 2 ? rng() : rng() | rng());
            decoder.SetStream(bytes, uint8_t(rng()));
            const auto flags = uint32_t(rng() % 2);
            const uint32_t status = n == 0 ? IVopDecode(decoder.get(), picture.data(), flags)
                                           : PVopDecode(decoder.get(), picture.data(), flags);
            statuses[status]++;
            decoder.ExchangePlanes();
        }
    }
    EXPECT_EQ(statuses.erase(MP4VDEC_OK) + statuses.erase(ERR_VID_MPEG4DEC_COEFF) +
                  statuses.erase(ERR_VID_MPEG4DEC_BITSTREAM),
              3u);
    EXPECT_TRUE(statuses.empty());
}

}  // namespace
}  // namespace mp4v::test
