// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

// The public header as a C++ program sees it, and whether C sees the same. It comes first, so that it must bring all
// that it needs.
#include "header_c_test.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <type_traits>
#include <vector>

#include "mp4vdec.h"

namespace {

template <typename... Records>
constexpr bool ArePlain = ((std::is_standard_layout_v<Records> && std::is_trivial_v<Records>)&&...);
static_assert(ArePlain<Mp4vDecOpenParams, Mp4vDecInArgs, Mp4vDecOutArgs, Mp4vDecStatus, Mp4vDecExtList, VidDecFuncs>);
static_assert(ArePlain<VidDecDescriptor>);

static_assert(offsetof(Mp4vDecOpenParams, au32Reserved) == 0);
static_assert(offsetof(Mp4vDecOpenParams, u32Width) == 8);
static_assert(offsetof(Mp4vDecOpenParams, u32Height) == 12);
static_assert(offsetof(Mp4vDecOpenParams, u32ExtParam) == 16);
static_assert(sizeof(Mp4vDecOpenParams) == 20);

static_assert(offsetof(Mp4vDecStatus, u32CodecId) == 0);
static_assert(offsetof(Mp4vDecStatus, u32OpenWidth) == 8);
static_assert(offsetof(Mp4vDecStatus, u32OpenHeight) == 12);
static_assert(sizeof(Mp4vDecStatus) == 16);

#if UINTPTR_MAX == UINT64_MAX
static_assert(offsetof(Mp4vDecInArgs, pu8Buf) == 0);
static_assert(offsetof(Mp4vDecInArgs, u32BufLen) == 8);
static_assert(offsetof(Mp4vDecInArgs, u64TimeStamp) == 16);
static_assert(offsetof(Mp4vDecInArgs, u8EndOfStream) == 24);
static_assert(offsetof(Mp4vDecInArgs, u32CtrlFlags) == 28);
static_assert(sizeof(Mp4vDecInArgs) == 32);

static_assert(offsetof(Mp4vDecOutArgs, pu8Dst) == 0);
static_assert(offsetof(Mp4vDecOutArgs, u32Width) == 8);
static_assert(offsetof(Mp4vDecOutArgs, u32Height) == 12);
static_assert(offsetof(Mp4vDecOutArgs, u32PicType) == 16);
static_assert(offsetof(Mp4vDecOutArgs, u32FrameReady) == 20);
static_assert(offsetof(Mp4vDecOutArgs, au32Reserved) == 24);
static_assert(offsetof(Mp4vDecOutArgs, u64TimeStamp) == 32);
static_assert(offsetof(Mp4vDecOutArgs, u8EndOfStream) == 40);
static_assert(sizeof(Mp4vDecOutArgs) == 48);

static_assert(offsetof(Mp4vDecExtList, u32Magic) == 0);
static_assert(offsetof(Mp4vDecExtList, s32Count) == 4);
static_assert(offsetof(Mp4vDecExtList, pu32Records) == 8);
static_assert(sizeof(Mp4vDecExtList) == 16);

static_assert(offsetof(VidDecFuncs, pfOpen) == 0);
static_assert(offsetof(VidDecFuncs, pfProcess) == 8);
static_assert(offsetof(VidDecFuncs, pfClose) == 16);
static_assert(offsetof(VidDecFuncs, pfSetParams) == 24);
static_assert(offsetof(VidDecFuncs, pfGetVersion) == 32);
static_assert(offsetof(VidDecFuncs, pfGetStatus) == 40);
static_assert(offsetof(VidDecFuncs, pfDebug) == 48);
static_assert(offsetof(VidDecFuncs, pfAnalyzeErrorCode) == 56);
static_assert(offsetof(VidDecFuncs, pfGetMemSize) == 64);
static_assert(sizeof(VidDecFuncs) == 72);

static_assert(offsetof(VidDecDescriptor, u32CodecId) == 0);
static_assert(offsetof(VidDecDescriptor, ptFuncs) == 8);
static_assert(offsetof(VidDecDescriptor, ps8Name) == 16);
static_assert(sizeof(VidDecDescriptor) == 24);
#elif defined(__arm__)
static_assert(offsetof(Mp4vDecInArgs, pu8Buf) == 0);
static_assert(offsetof(Mp4vDecInArgs, u32BufLen) == 4);
static_assert(offsetof(Mp4vDecInArgs, u64TimeStamp) == 8);
static_assert(offsetof(Mp4vDecInArgs, u8EndOfStream) == 16);
static_assert(offsetof(Mp4vDecInArgs, u32CtrlFlags) == 20);
static_assert(sizeof(Mp4vDecInArgs) == 24);

static_assert(offsetof(Mp4vDecOutArgs, pu8Dst) == 0);
static_assert(offsetof(Mp4vDecOutArgs, u32Width) == 4);
static_assert(offsetof(Mp4vDecOutArgs, u32Height) == 8);
static_assert(offsetof(Mp4vDecOutArgs, u32PicType) == 12);
static_assert(offsetof(Mp4vDecOutArgs, u32FrameReady) == 16);
static_assert(offsetof(Mp4vDecOutArgs, au32Reserved) == 20);
static_assert(offsetof(Mp4vDecOutArgs, u64TimeStamp) == 32);
static_assert(offsetof(Mp4vDecOutArgs, u8EndOfStream) == 40);
static_assert(sizeof(Mp4vDecOutArgs) == 48);

static_assert(offsetof(Mp4vDecExtList, u32Magic) == 0);
static_assert(offsetof(Mp4vDecExtList, s32Count) == 4);
static_assert(offsetof(Mp4vDecExtList, pu32Records) == 8);
static_assert(sizeof(Mp4vDecExtList) == 12);

static_assert(offsetof(VidDecFuncs, pfOpen) == 0);
static_assert(offsetof(VidDecFuncs, pfGetMemSize) == 32);
static_assert(sizeof(VidDecFuncs) == 36);

static_assert(offsetof(VidDecDescriptor, u32CodecId) == 0);
static_assert(offsetof(VidDecDescriptor, ptFuncs) == 4);
static_assert(offsetof(VidDecDescriptor, ps8Name) == 8);
static_assert(sizeof(VidDecDescriptor) == 12);
#endif

struct StatusCode {
    uint32_t value;
    uint32_t constant;
    const char* name;
};
#define CODE(index, name) \
    { 0xA2C00000u + (index), name, #name }
const StatusCode kStatusCodes[] = {
    CODE(0, ERR_VID_MPEG4DEC_START_VALUE),
    CODE(1, ERR_VID_MPEG4DEC_OPEN_INPUT_POINT),
    CODE(2, ERR_VID_MPEG4DEC_PROC_INPUT_POINT),
    CODE(3, ERR_VID_MPEG4DEC_CLOSE_INPUT_POINT),
    CODE(4, ERR_VID_MPEG4DEC_SETPARAM_INPUT_POINT),
    CODE(5, ERR_VID_MPEG4DEC_GETSTATUS_INPUT_POINT),
    CODE(6, ERR_VID_MPEG4DEC_GETMEMSIZE_INPUT_POINT),
    CODE(7, ERR_VID_MPEG4DEC_MALLOC_DEC_HANDLE),
    CODE(8, ERR_VID_MPEG4DEC_MALLOC_DEC_VOP),
    CODE(9, ERR_VID_MPEG4DEC_MALLOC_CUR_FRAME),
    CODE(10, ERR_VID_MPEG4DEC_MALLOC_REF_FRAME),
    CODE(11, ERR_VID_MPEG4DEC_MALLOC_MB_BUF),
    CODE(12, ERR_VID_MPEG4DEC_MALLOC_CTX_INFO),
    CODE(13, ERR_VID_MPEG4DEC_MALLOC_QPEL_BUF),
    CODE(14, ERR_VID_MPEG4DEC_MALLOC_TRANS_BUF),
    CODE(15, ERR_VID_MPEG4DEC_UNSUPPORT_VOTYPEID),
    CODE(16, ERR_VID_MPEG4DEC_UNSUPPORT_SHAPE),
    CODE(17, ERR_VID_MPEG4DEC_UNSUPPORT_OBMC),
    CODE(18, ERR_VID_MPEG4DEC_UNSUPPORT_SPRITE),
    CODE(19, ERR_VID_MPEG4DEC_UNSUPPORT_COMPLXES),
    CODE(20, ERR_VID_MPEG4DEC_UNSUPPORT_RES),
    CODE(21, ERR_VID_MPEG4DEC_UNSUPPORT_DP),
    CODE(22, ERR_VID_MPEG4DEC_UNSUPPORT_RRVOP),
    CODE(23, ERR_VID_MPEG4DEC_UNSUPPORT_SCALABLE),
    CODE(24, ERR_VID_MPEG4DEC_UNSUPPORT_VSOTYPE),
    CODE(25, ERR_VID_MPEG4DEC_UNSUPPORT_BFRAME),
    CODE(26, ERR_VID_MPEG4DEC_OVER_MAXSUPPORT_SIZE),
    CODE(27, ERR_VID_MPEG4DEC_UNSUPPORT_VOPTYPE),
    CODE(28, ERR_VID_MPEG4DEC_USERDATA),
    CODE(29, ERR_VID_MPEG4DEC_TIMEBASE),
    CODE(30, ERR_VID_MPEG4DEC_BITSTREAM),
    CODE(31, ERR_VID_MPEG4DEC_COEFF),
    CODE(32, ERR_VID_MPEG4DEC_GET_VERSION),
    CODE(33, ERR_VID_MPEG4DEC_OVER_INIT_SIZE),
    CODE(34, ERR_VID_MPEG4DEC_INI_WIDTH_HEIGHT),
    CODE(35, ERR_VID_MPEG4DEC_VOL_NOT_FOUND),
    CODE(36, ERR_VID_MPEG4DEC_END_VALUE),
};
#undef CODE

TEST(PublicHeader, CAndCppSeeRecordsOfTheSameSize) {
    size_t in_c[HEADER_RECORDS];
    ASSERT_EQ(HeaderSizesInC(in_c), size_t{HEADER_RECORDS});
    const std::vector<size_t> in_cpp = {sizeof(Mp4vDecOpenParams), sizeof(Mp4vDecInArgs),  sizeof(Mp4vDecOutArgs),
                                        sizeof(Mp4vDecStatus),     sizeof(Mp4vDecExtList), sizeof(VidDecFuncs),
                                        sizeof(VidDecDescriptor)};
    EXPECT_EQ(std::vector<size_t>(in_c, in_c + HEADER_RECORDS), in_cpp);
}

TEST(PublicHeader, CFindsTheDecoderByItsDescriptor) {
    EXPECT_TRUE(DecoderNamedInC("MPEG4_DEC"));
    EXPECT_FALSE(DecoderNamedInC("another"));
}

TEST(PublicHeader, CCallsTheDecoder) {
    void* handle = nullptr;
    int context = 0;
    EXPECT_EQ(RefusedOpenInC(&handle, &context), 0xA2C00022u);
}

TEST(PublicHeader, StatusCodesHaveTheirValuesAndNames) {
    ASSERT_EQ(std::size(kStatusCodes), size_t{MP4VDEC_ERROR_COUNT});
    for (size_t i = 0; i < std::size(kStatusCodes); i++) {
        const StatusCode& code = kStatusCodes[i];
        EXPECT_EQ(code.constant, code.value) << code.name;
        EXPECT_STREQ(pas8MP4DecSelfAnalyzeErrorCode[i], code.name);
    }
}

TEST(PublicHeader, TheTableHoldsTheEntryPointsInOrder) {
    const VidDecFuncs& functions = *ptVidDec_MPEG4->ptFuncs;
    EXPECT_EQ(functions.pfOpen, &Mp4vDecoderOpen);
    EXPECT_EQ(functions.pfProcess, &Mp4vDecoderProcess);
    EXPECT_EQ(functions.pfClose, &Mp4vDecoderClose);
    EXPECT_EQ(functions.pfSetParams, &Mp4vDecoderSetParams);
    EXPECT_EQ(functions.pfGetVersion, &Mp4vDecoderGetVersion);
    EXPECT_EQ(functions.pfGetStatus, &Mp4vDecoderGetStatus);
    EXPECT_EQ(functions.pfDebug, &Mp4vDecoderDebug);
    EXPECT_EQ(functions.pfAnalyzeErrorCode, &Mp4vDecoderAnalyzeErrorCode);
    EXPECT_EQ(functions.pfGetMemSize, &Mp4vDecoderGetMemSize);
}

}  // namespace
