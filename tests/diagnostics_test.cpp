// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

// The descriptor and the entry points that only tell something.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "common/kernels.h"
#include "mp4vdec.h"
#include "support/test_decoder.h"

namespace mp4v::test {
namespace {

struct NamedCode {
    uint32_t code;
    const char* name;
};

constexpr NamedCode kNamedCodes[] = {
    {0xA2C00000, "ERR_VID_MPEG4DEC_START_VALUE"},
    {0xA2C00001, "ERR_VID_MPEG4DEC_OPEN_INPUT_POINT"},
    {0xA2C00002, "ERR_VID_MPEG4DEC_PROC_INPUT_POINT"},
    {0xA2C00003, "ERR_VID_MPEG4DEC_CLOSE_INPUT_POINT"},
    {0xA2C00004, "ERR_VID_MPEG4DEC_SETPARAM_INPUT_POINT"},
    {0xA2C00005, "ERR_VID_MPEG4DEC_GETSTATUS_INPUT_POINT"},
    {0xA2C00006, "ERR_VID_MPEG4DEC_GETMEMSIZE_INPUT_POINT"},
    {0xA2C00007, "ERR_VID_MPEG4DEC_MALLOC_DEC_HANDLE"},
    {0xA2C00008, "ERR_VID_MPEG4DEC_MALLOC_DEC_VOP"},
    {0xA2C00009, "ERR_VID_MPEG4DEC_MALLOC_CUR_FRAME"},
    {0xA2C0000A, "ERR_VID_MPEG4DEC_MALLOC_REF_FRAME"},
    {0xA2C0000B, "ERR_VID_MPEG4DEC_MALLOC_MB_BUF"},
    {0xA2C0000C, "ERR_VID_MPEG4DEC_MALLOC_CTX_INFO"},
    {0xA2C0000D, "ERR_VID_MPEG4DEC_MALLOC_QPEL_BUF"},
    {0xA2C0000E, "ERR_VID_MPEG4DEC_MALLOC_TRANS_BUF"},
    {0xA2C0000F, "ERR_VID_MPEG4DEC_UNSUPPORT_VOTYPEID"},
    {0xA2C00010, "ERR_VID_MPEG4DEC_UNSUPPORT_SHAPE"},
    {0xA2C00011, "ERR_VID_MPEG4DEC_UNSUPPORT_OBMC"},
    {0xA2C00012, "ERR_VID_MPEG4DEC_UNSUPPORT_SPRITE"},
    {0xA2C00013, "ERR_VID_MPEG4DEC_UNSUPPORT_COMPLXES"},
    {0xA2C00014, "ERR_VID_MPEG4DEC_UNSUPPORT_RES"},
    {0xA2C00015, "ERR_VID_MPEG4DEC_UNSUPPORT_DP"},
    {0xA2C00016, "ERR_VID_MPEG4DEC_UNSUPPORT_RRVOP"},
    {0xA2C00017, "ERR_VID_MPEG4DEC_UNSUPPORT_SCALABLE"},
    {0xA2C00018, "ERR_VID_MPEG4DEC_UNSUPPORT_VSOTYPE"},
    {0xA2C00019, "ERR_VID_MPEG4DEC_UNSUPPORT_BFRAME"},
    {0xA2C0001A, "ERR_VID_MPEG4DEC_OVER_MAXSUPPORT_SIZE"},
    {0xA2C0001B, "ERR_VID_MPEG4DEC_UNSUPPORT_VOPTYPE"},
    {0xA2C0001C, "ERR_VID_MPEG4DEC_USERDATA"},
    {0xA2C0001D, "ERR_VID_MPEG4DEC_TIMEBASE"},
    {0xA2C0001E, "ERR_VID_MPEG4DEC_BITSTREAM"},
    {0xA2C0001F, "ERR_VID_MPEG4DEC_COEFF"},
    {0xA2C00020, "ERR_VID_MPEG4DEC_GET_VERSION"},
    {0xA2C00021, "ERR_VID_MPEG4DEC_OVER_INIT_SIZE"},
    {0xA2C00022, "ERR_VID_MPEG4DEC_INI_WIDTH_HEIGHT"},
    {0xA2C00023, "ERR_VID_MPEG4DEC_VOL_NOT_FOUND"},
    {0xA2C00024, "ERR_VID_MPEG4DEC_END_VALUE"},
};
static_assert(std::size(kNamedCodes) == 37);

TEST(StatusCodes, HaveTheValuesOfTheirPlacesInTheTable) {
    EXPECT_EQ(ERR_VID_MPEG4DEC_START_VALUE, 0xA2C00000);
    EXPECT_EQ(ERR_VID_MPEG4DEC_OPEN_INPUT_POINT, 0xA2C00001);
    EXPECT_EQ(ERR_VID_MPEG4DEC_PROC_INPUT_POINT, 0xA2C00002);
    EXPECT_EQ(ERR_VID_MPEG4DEC_CLOSE_INPUT_POINT, 0xA2C00003);
    EXPECT_EQ(ERR_VID_MPEG4DEC_SETPARAM_INPUT_POINT, 0xA2C00004);
    EXPECT_EQ(ERR_VID_MPEG4DEC_GETSTATUS_INPUT_POINT, 0xA2C00005);
    EXPECT_EQ(ERR_VID_MPEG4DEC_GETMEMSIZE_INPUT_POINT, 0xA2C00006);
    EXPECT_EQ(ERR_VID_MPEG4DEC_MALLOC_DEC_HANDLE, 0xA2C00007);
    EXPECT_EQ(ERR_VID_MPEG4DEC_MALLOC_DEC_VOP, 0xA2C00008);
    EXPECT_EQ(ERR_VID_MPEG4DEC_MALLOC_CUR_FRAME, 0xA2C00009);
    EXPECT_EQ(ERR_VID_MPEG4DEC_MALLOC_REF_FRAME, 0xA2C0000A);
    EXPECT_EQ(ERR_VID_MPEG4DEC_MALLOC_MB_BUF, 0xA2C0000B);
    EXPECT_EQ(ERR_VID_MPEG4DEC_MALLOC_CTX_INFO, 0xA2C0000C);
    EXPECT_EQ(ERR_VID_MPEG4DEC_MALLOC_QPEL_BUF, 0xA2C0000D);
    EXPECT_EQ(ERR_VID_MPEG4DEC_MALLOC_TRANS_BUF, 0xA2C0000E);
    EXPECT_EQ(ERR_VID_MPEG4DEC_UNSUPPORT_VOTYPEID, 0xA2C0000F);
    EXPECT_EQ(ERR_VID_MPEG4DEC_UNSUPPORT_SHAPE, 0xA2C00010);
    EXPECT_EQ(ERR_VID_MPEG4DEC_UNSUPPORT_OBMC, 0xA2C00011);
    EXPECT_EQ(ERR_VID_MPEG4DEC_UNSUPPORT_SPRITE, 0xA2C00012);
    EXPECT_EQ(ERR_VID_MPEG4DEC_UNSUPPORT_COMPLXES, 0xA2C00013);
    EXPECT_EQ(ERR_VID_MPEG4DEC_UNSUPPORT_RES, 0xA2C00014);
    EXPECT_EQ(ERR_VID_MPEG4DEC_UNSUPPORT_DP, 0xA2C00015);
    EXPECT_EQ(ERR_VID_MPEG4DEC_UNSUPPORT_RRVOP, 0xA2C00016);
    EXPECT_EQ(ERR_VID_MPEG4DEC_UNSUPPORT_SCALABLE, 0xA2C00017);
    EXPECT_EQ(ERR_VID_MPEG4DEC_UNSUPPORT_VSOTYPE, 0xA2C00018);
    EXPECT_EQ(ERR_VID_MPEG4DEC_UNSUPPORT_BFRAME, 0xA2C00019);
    EXPECT_EQ(ERR_VID_MPEG4DEC_OVER_MAXSUPPORT_SIZE, 0xA2C0001A);
    EXPECT_EQ(ERR_VID_MPEG4DEC_UNSUPPORT_VOPTYPE, 0xA2C0001B);
    EXPECT_EQ(ERR_VID_MPEG4DEC_USERDATA, 0xA2C0001C);
    EXPECT_EQ(ERR_VID_MPEG4DEC_TIMEBASE, 0xA2C0001D);
    EXPECT_EQ(ERR_VID_MPEG4DEC_BITSTREAM, 0xA2C0001E);
    EXPECT_EQ(ERR_VID_MPEG4DEC_COEFF, 0xA2C0001F);
    EXPECT_EQ(ERR_VID_MPEG4DEC_GET_VERSION, 0xA2C00020);
    EXPECT_EQ(ERR_VID_MPEG4DEC_OVER_INIT_SIZE, 0xA2C00021);
    EXPECT_EQ(ERR_VID_MPEG4DEC_INI_WIDTH_HEIGHT, 0xA2C00022);
    EXPECT_EQ(ERR_VID_MPEG4DEC_VOL_NOT_FOUND, 0xA2C00023);
    EXPECT_EQ(ERR_VID_MPEG4DEC_END_VALUE, 0xA2C00024);
}

TEST(Mp4vDecoderAnalyzeErrorCode, NamesEveryCode) {
    for (const NamedCode& entry : kNamedCodes) {
        char name[64];
        memset(name, '#', sizeof name);
        EXPECT_EQ(Mp4vDecoderAnalyzeErrorCode(entry.code, 63, name), 0u) << entry.name;
        EXPECT_STREQ(name, entry.name);
        EXPECT_EQ(name[strlen(entry.name) + 1], '#') << "wrote beyond the terminating zero";
    }
}

TEST(Mp4vDecoderAnalyzeErrorCode, AgreesWithTheExportedTable) {
    for (size_t i = 0; i < std::size(kNamedCodes); i++) {
        EXPECT_STREQ(pas8MP4DecSelfAnalyzeErrorCode[i], kNamedCodes[i].name);
    }
}

TEST(Mp4vDecoderAnalyzeErrorCode, RefusesCodesOutsideTheTable) {
    char name[64] = "untouched";
    for (const uint32_t code : {0u, 1u, 0x24u, 0xA2BFFFFFu, 0xA2C00025u, 0xA2C10000u, 0xFFFFFFFFu, 0xE0000001u}) {
        EXPECT_EQ(Mp4vDecoderAnalyzeErrorCode(code, 63, name), 0xE0000001) << std::hex << code;
    }
    EXPECT_STREQ(name, "untouched");
}

TEST(Mp4vDecoderAnalyzeErrorCode, WritesANameThatIsShorterThanTheSize) {
    char name[26];
    memset(name, '#', sizeof name);
    EXPECT_EQ(Mp4vDecoderAnalyzeErrorCode(0xA2C0001F, 25, name), 0u);
    EXPECT_STREQ(name, "ERR_VID_MPEG4DEC_COEFF");
    EXPECT_EQ(std::string(name + 23, 3), "###");
}

TEST(Mp4vDecoderAnalyzeErrorCode, RefusesASizeBelowTheLengthOfTheName) {
    char name[26] = "untouched";
    EXPECT_EQ(Mp4vDecoderAnalyzeErrorCode(0xA2C0001F, 21, name), 0xE0000002);
    EXPECT_EQ(Mp4vDecoderAnalyzeErrorCode(0xA2C0001F, 0, name), 0xE0000002);
    EXPECT_STREQ(name, "untouched");
}

TEST(Mp4vDecoderAnalyzeErrorCode, WritesTheTerminatingZeroBehindASizeOfJustTheLength) {
    char name[24];
    memset(name, '#', sizeof name);
    EXPECT_EQ(Mp4vDecoderAnalyzeErrorCode(0xA2C0001F, 22, name), 0u);
    EXPECT_EQ(std::string(name, 24), std::string("ERR_VID_MPEG4DEC_COEFF\0#", 24));
}

TEST(Mp4vDecoderAnalyzeErrorCode, TakesANegativeSizeForAHugeOne) {
    char name[64] = {};
    EXPECT_EQ(Mp4vDecoderAnalyzeErrorCode(0xA2C0001F, -1, name), 0u);
    EXPECT_STREQ(name, "ERR_VID_MPEG4DEC_COEFF");
    EXPECT_EQ(Mp4vDecoderAnalyzeErrorCode(0xA2C0001E, INT32_MIN, name), 0u);
    EXPECT_STREQ(name, "ERR_VID_MPEG4DEC_BITSTREAM");
}

TEST(Mp4vDecoderAnalyzeErrorCode, RefusesANullBuffer) {
    EXPECT_EQ(Mp4vDecoderAnalyzeErrorCode(0xA2C0001F, 63, nullptr), 0xE0000002);
}

TEST(Mp4vDecoderGetVersion, WritesTheBannerAndItsLength) {
    char text[100];
    memset(text, '#', sizeof text);
    int32_t length = -1;
    EXPECT_EQ(Mp4vDecoderGetVersion(text, 100, &length), 0u);
    EXPECT_STREQ(text, "Version: video.mpeg4dec_v900.004, Compile time: Apr 22 2020 18:13:52.\n");
    EXPECT_EQ(length, 70);
    EXPECT_EQ(text[71], '#');
}

TEST(Mp4vDecoderGetVersion, RefusesASizeBelowOneHundred) {
    char text[100] = "untouched";
    int32_t length = -1;
    for (const int32_t size : {99, 71, 0, -1, INT32_MIN}) {
        EXPECT_EQ(Mp4vDecoderGetVersion(text, size, &length), 0xA2C00020) << size;
    }
    EXPECT_STREQ(text, "untouched");
    EXPECT_EQ(length, -1);
}

TEST(Mp4vDecoderGetVersion, RefusesNullPointers) {
    char text[100];
    int32_t length;
    EXPECT_EQ(Mp4vDecoderGetVersion(nullptr, 100, &length), 0xA2C00020);
    EXPECT_EQ(Mp4vDecoderGetVersion(text, 100, nullptr), 0xA2C00020);
}

uint32_t MemSize(uint32_t width, uint32_t height) {
    const Mp4vDecOpenParams params = {{0, 0}, width, height, 0};
    uint32_t size = 0;
    EXPECT_EQ(Mp4vDecoderGetMemSize(&params, &size), 0u);
    return size;
}

TEST(Mp4vDecoderGetMemSize, CountsRecordsScratchAndFrames) {
    EXPECT_EQ(MemSize(176, 144), 180944u);
    EXPECT_EQ(MemSize(0, 0), 236u + 2864 + 16 * 768);
    EXPECT_EQ(MemSize(1920, 1088), 69u * 121 * 236 + 2864 + 124 * 72 * 768);
}

TEST(Mp4vDecoderGetMemSize, RoundsTheSizeUpToMacroblocks) {
    EXPECT_EQ(MemSize(1, 17), 3u * 2 * 236 + 2864 + 5 * 6 * 768);
    EXPECT_EQ(MemSize(161, 129), MemSize(176, 144));
}

// 4097 * 4097 * 236 + 2864 + 4100 * 4100 * 768 is 16871439388, which is 3 * 2^32 + 3986537500.
TEST(Mp4vDecoderGetMemSize, KeepsTheLow32Bits) {
    EXPECT_EQ(MemSize(65536, 65536), 3986537500u);
}

// The rounding up wraps as well: the largest width counts as no macroblocks.
TEST(Mp4vDecoderGetMemSize, WrapsWhileRoundingUp) {
    EXPECT_EQ(MemSize(0xFFFFFFFF, 16), 2u * 1 * 236 + 2864 + 4 * 5 * 768);
    EXPECT_EQ(MemSize(16, 0xFFFFFFF8), MemSize(16, 0));
}

TEST(Mp4vDecoderGetMemSize, RefusesNullPointers) {
    const Mp4vDecOpenParams params = {};
    uint32_t size = 5;
    EXPECT_EQ(Mp4vDecoderGetMemSize(&params, nullptr), 0xA2C00006);
    EXPECT_EQ(Mp4vDecoderGetMemSize(nullptr, &size), 0xA2C00006);
    EXPECT_EQ(Mp4vDecoderGetMemSize(nullptr, nullptr), 0xA2C00006);
    EXPECT_EQ(size, 5u);
}

// The figure is a promise: an instance takes no more. Of the fixed part 512 + 512 + 128 + 128 bytes are scratch.
TEST(Mp4vDecoderGetMemSize, CoversWhatAnInstanceAllocates) {
    for (const auto& [width, height] : {std::pair{0u, 0u}, {16u, 8u}, {176u, 144u}, {352u, 576u}}) {
        TestDecoder decoder(width, height);
        EXPECT_LE(sizeof(Mp4vDecCtx), 1584u);
        EXPECT_EQ(decoder.memory.live_bytes() - sizeof(Mp4vDecCtx), MemSize(width, height) - 1584)
            << width << " x " << height;
    }
}

TEST(Mp4vDecoderGetStatus, TellsTheOpenSizeAndLeavesTheSecondMemberAlone) {
    TestDecoder decoder(64, 48);
    Mp4vDecStatus status;
    memset(&status, kUntouchedByte, sizeof status);
    EXPECT_EQ(Mp4vDecoderGetStatus(decoder.handle, &status), 0u);
    EXPECT_EQ(status.u32CodecId, 5u);
    EXPECT_EQ(status.u32Reserved, kUntouched32);
    EXPECT_EQ(status.u32OpenWidth, 64u);
    EXPECT_EQ(status.u32OpenHeight, 48u);
}

TEST(Mp4vDecoderGetStatus, TellsTheOpenSizeAfterAVolHasChangedTheSize) {
    TestDecoder decoder(64, 48);
    ASSERT_EQ(decoder.Process(FlatIntra({.width = 32, .height = 16}, {50, 60, 70})).status, 0u);
    ASSERT_EQ(decoder.ctx().u32Width, 32u);
    Mp4vDecStatus status = {};
    EXPECT_EQ(Mp4vDecoderGetStatus(decoder.handle, &status), 0u);
    EXPECT_EQ(status.u32OpenWidth, 64u);
    EXPECT_EQ(status.u32OpenHeight, 48u);
}

TEST(Mp4vDecoderGetStatus, RefusesNullPointers) {
    TestDecoder decoder(16, 16);
    Mp4vDecStatus status;
    EXPECT_EQ(Mp4vDecoderGetStatus(nullptr, &status), 0xA2C00005);
    EXPECT_EQ(Mp4vDecoderGetStatus(decoder.handle, nullptr), 0xA2C00005);
    EXPECT_EQ(Mp4vDecoderGetStatus(nullptr, nullptr), 0xA2C00005);
}

TEST(Mp4vDecoderSetParams, AcceptsAnything) {
    int anything = 0;
    EXPECT_EQ(Mp4vDecoderSetParams(nullptr, nullptr), 0u);
    EXPECT_EQ(Mp4vDecoderSetParams(&anything, &anything), 0u);
}

TEST(Mp4vDecoderDebug, AcceptsAnything) {
    int anything = 0;
    EXPECT_EQ(Mp4vDecoderDebug(nullptr, nullptr), 0u);
    EXPECT_EQ(Mp4vDecoderDebug(&anything, &anything), 0u);
}

TEST(Descriptor, NamesTheCodecAndLeadsToTheEntryPoints) {
    ASSERT_EQ(ptVidDec_MPEG4, &tVidDec_MPEG4);
    EXPECT_EQ(tVidDec_MPEG4.u32CodecId, 5u);
    EXPECT_EQ(tVidDec_MPEG4.ptFuncs, &tMp4vDec);
    EXPECT_STREQ(tVidDec_MPEG4.ps8Name, "MPEG4_DEC");
}

TEST(Descriptor, HoldsTheEntryPointsInTheirOrder) {
    const void* table[9];
    static_assert(sizeof table == sizeof tMp4vDec);
    memcpy(table, &tMp4vDec, sizeof table);
    const auto address = [](auto* function) { return reinterpret_cast<const void*>(function); };
    EXPECT_EQ(table[0], address(Mp4vDecoderOpen));
    EXPECT_EQ(table[1], address(Mp4vDecoderProcess));
    EXPECT_EQ(table[2], address(Mp4vDecoderClose));
    EXPECT_EQ(table[3], address(Mp4vDecoderSetParams));
    EXPECT_EQ(table[4], address(Mp4vDecoderGetVersion));
    EXPECT_EQ(table[5], address(Mp4vDecoderGetStatus));
    EXPECT_EQ(table[6], address(Mp4vDecoderDebug));
    EXPECT_EQ(table[7], address(Mp4vDecoderAnalyzeErrorCode));
    EXPECT_EQ(table[8], address(Mp4vDecoderGetMemSize));
}

TEST(Hooks, EmmsReturnsItsArgument) {
    for (const int32_t value : {0, 1, -1, INT32_MAX, INT32_MIN}) EXPECT_EQ(ClearMMX(value), value);
}

}  // namespace
}  // namespace mp4v::test
