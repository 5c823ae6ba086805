// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors
#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "host/inspection.h"
#include "mp4vdec.h"
#include "support/small_stream.h"

namespace mp4v::test {
namespace {

// ---- Real streams: an encoder ends a picture with a 0 and then ones up to the next byte, which nothing else tells of.

std::string BitsFrom(std::span<const uint8_t> bytes, size_t first) {
    std::string bits;
    for (size_t i = first; i < bytes.size() * 8; i++)
        bits += static_cast<char>('0' + (bytes[i / 8] >> (7 - i % 8) & 1));
    return bits;
}

class InspectStream : public testing::TestWithParam<std::string> {};

TEST_P(InspectStream, EndsWhereTheStuffingBegins) {
    std::ifstream file(std::string(MP4VDEC_TEST_DATA_DIR) + "/streams/" + GetParam(), std::ios::binary);
    const Bytes stream{std::istreambuf_iterator<char>(file), {}};
    ASSERT_FALSE(stream.empty());
    Session session;
    unsigned pictures = 0;
    const auto look = [&](const Session::Results& results) {
        for (const Result& result : results) {
            if (!result.coded) continue;
            ASSERT_FALSE(result.error) << result.error.text;
            const Inspection inspection = Inspect(session);
            ASSERT_EQ(MP4VDEC_OK, inspection.status);
            const uint32_t end = inspection.macroblocks.empty() ? inspection.vop.u32HeaderBits
                                                                : inspection.macroblocks.back().u32FirstBit +
                                                                      inspection.macroblocks.back().u32Bits;
            const std::string rest = BitsFrom(result.bytes, end);
            ASSERT_TRUE(!rest.empty() && rest.size() <= 8 && rest == "0" + std::string(rest.size() - 1, '1'))
                << "picture " << pictures << ", " << rest;
            pictures++;
        }
    };
    look(session.Feed(stream));
    look(session.Finish());
    EXPECT_GT(pictures, 1u);
}

INSTANTIATE_TEST_SUITE_P(Streams, InspectStream,
                         testing::Values("o02_qcif_camera_q8.m4v", "o06_pal_interlaced.m4v",
                                         "o07_ntsc_interlaced_altscan.m4v", "o15_mpegquant_matrices.m4v",
                                         "o16_static_skips.m4v", "o17_not_coded.m4v", "o23_dquant_qprd.m4v",
                                         "o27_interlaced_qpel.m4v", "o32_rotation_4mv.m4v", "o36_size_change.m4v"));

// ---- Macroblocks written here, and what must be seen of them.

Inspection InspectLast(const Bytes& stream, uint32_t status = MP4VDEC_OK) {
    Session session;
    Inspection inspection;
    for (const bool finish : {false, true}) {
        for (const Result& result : finish ? session.Finish() : session.Feed(stream)) {
            inspection = Inspect(session);
            EXPECT_EQ(inspection.status, result.error.status);
        }
    }
    EXPECT_EQ(status, inspection.status);
    return inspection;
}

TEST(HostInspection, TellsOfIntraMacroblocks) {
    const VolHeader vol = LayerOf(32, 32);
    BitWriter out;
    PutLayer(out, vol);
    VopHeader vop;
    vop.quant = 7;
    vop.PutTo(out, vol);
    const uint32_t header = static_cast<uint32_t>(out.bit_count());
    out.Bits("1 0 0011 011 011 011 011 11 11");  // no coefficients
    out.Bits(
        "0001 1 0011 11 011 011 10 11 011 11 11");  // with a dquant of 2; ac_pred_flag; DC size 2 for the third block
    out.Bits("000000001 1 0 0011 011 011 011 011 11 11");    // behind stuffing
    out.Bits("001 0 0011 011 011 011 011 11 11 0000 0000");  // coefficients in V, and then no code
    const Inspection seen = InspectLast(out.Bytes(), ERR_VID_MPEG4DEC_COEFF);
    EXPECT_EQ(header, seen.vop.u32HeaderBits);
    EXPECT_EQ(7u, seen.vop.u32Quant);
    EXPECT_FALSE(seen.vop.u8Predicted);
    ASSERT_EQ(2u, seen.vop.u32MbWidth);
    ASSERT_EQ(4u, seen.macroblocks.size());
    const std::vector<Mp4vMbView>& mb = seen.macroblocks;
    EXPECT_EQ(header, mb[0].u32FirstBit);
    EXPECT_EQ(22u, mb[0].u32Bits);
    EXPECT_EQ(MP4V_MB_INTRA, mb[0].eKind);
    EXPECT_EQ(7, mb[0].u8Quant);
    EXPECT_FALSE(mb[0].u8AcPred || mb[0].u8Dquant || mb[0].u8Cbp);
    EXPECT_TRUE(mb[1].u8AcPred);
    EXPECT_TRUE(mb[1].u8Dquant);
    EXPECT_EQ(28u, mb[1].u32Bits);
    EXPECT_EQ(9, mb[1].u8Quant);
    EXPECT_EQ(MP4V_MB_INTRA, mb[2].eKind);
    EXPECT_EQ(31u, mb[2].u32Bits);
    EXPECT_EQ(0u, mb[2].u32Column);
    EXPECT_EQ(1u, mb[2].u32Row);
    EXPECT_EQ(1, mb[3].u8Cbp);
}

TEST(HostInspection, TellsOfVectors) {
    const VolHeader vol = LayerOf(48, 16);
    BitWriter out;
    PutLayer(out, vol);
    PutFlatPicture(out, vol, 100);
    const size_t chunk = out.Bytes().size();
    VopHeader vop;
    vop.coding_type = 1;
    vop.quant = 9;
    vop.PutTo(out, vol);
    const auto header = static_cast<uint32_t>(out.bit_count() - 8 * chunk);
    out.Bits("0 1 11 010 011");                 // inter, no coefficients, x + 1, y - 1
    out.Bits("1");                              // not coded
    out.Bits("0 010 11 1 1 010 0010 1 1 1 1");  // four vectors
    PutStuffing(out);
    const Inspection seen = InspectLast(out.Bytes());
    EXPECT_TRUE(seen.vop.u8Predicted);
    EXPECT_EQ(header, seen.vop.u32HeaderBits);
    ASSERT_EQ(3u, seen.macroblocks.size());
    const std::vector<Mp4vMbView>& mb = seen.macroblocks;
    EXPECT_EQ(MP4V_MB_INTER, mb[0].eKind);
    EXPECT_EQ(10u, mb[0].u32Bits);
    EXPECT_EQ(9, mb[0].u8Quant);
    for (const auto& mv : mb[0].aas32Mv) {
        EXPECT_EQ(1, mv[0]);
        EXPECT_EQ(-1, mv[1]);
    }
    EXPECT_EQ(MP4V_MB_NOT_CODED, mb[1].eKind);
    EXPECT_EQ(1u, mb[1].u32Bits);
    EXPECT_EQ(0, mb[1].u8Quant);
    EXPECT_EQ(MP4V_MB_INTER_4V, mb[2].eKind);
    const int32_t vectors[4][2] = {{0, 0}, {1, 2}, {0, 0}, {0, 0}};
    EXPECT_EQ(0, std::memcmp(vectors, mb[2].aas32Mv, sizeof vectors));
}

TEST(HostInspection, TellsOfFields) {
    VolHeader vol = LayerOf(16, 16);
    vol.interlaced = true;
    BitWriter out;
    PutLayer(out, vol);
    PutFlatPicture(out, vol, 100);
    VopHeader vop;
    vop.coding_type = 1;
    vop.PutTo(out, vol);
    out.Bits("0 1 11");              // inter, no coefficients
    out.Bits("1 1 0 010 1 1 0010");  // field_prediction, bottom field, top field; (1, 0) and (0, 2 lines)
    PutStuffing(out);
    const Inspection seen = InspectLast(out.Bytes());
    EXPECT_TRUE(seen.vop.u8Interlaced);
    ASSERT_EQ(1u, seen.macroblocks.size());
    const Mp4vMbView& mb = seen.macroblocks[0];
    EXPECT_EQ(MP4V_MB_INTER_FIELD, mb.eKind);
    EXPECT_EQ(1, mb.au8FieldRef[0]);
    EXPECT_EQ(0, mb.au8FieldRef[1]);
    EXPECT_EQ(1, mb.aas32Mv[0][0]);
    EXPECT_EQ(0, mb.aas32Mv[0][1]);
    EXPECT_EQ(0, mb.aas32Mv[1][0]);
    EXPECT_EQ(4, mb.aas32Mv[1][1]);  // 2 lines of the field are 4 of the frame
    EXPECT_EQ(0, mb.aas32Mv[2][0]);
}

TEST(HostInspection, TellsOfPicturesWithoutMacroblocks) {
    const VolHeader vol = LayerOf(32, 16);
    BitWriter out;
    PutLayer(out, vol);
    PutFlatPicture(out, vol, 100);
    PutNotCodedPicture(out, vol);
    const Inspection seen = InspectLast(out.Bytes());
    EXPECT_TRUE(seen.vop.u8NotCoded);
    EXPECT_TRUE(seen.macroblocks.empty());
    EXPECT_EQ(ERR_VID_MPEG4DEC_VOL_NOT_FOUND, Inspect(Session{}).status);
    EXPECT_TRUE(InspectLast({0, 0, 1, 0xB6, 0x10, 0, 0, 0}, ERR_VID_MPEG4DEC_VOL_NOT_FOUND).macroblocks.empty());
}

}  // namespace
}  // namespace mp4v::test
