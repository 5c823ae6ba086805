// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

// The VOL header.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>

#include "c/image.h"
#include "support/header_parser.h"

namespace mp4v::test {
namespace {

constexpr uint32_t kVotypeId = 0xA2C0000F;
constexpr uint32_t kShape = 0xA2C00010;
constexpr uint32_t kObmc = 0xA2C00011;
constexpr uint32_t kSprite = 0xA2C00012;
constexpr uint32_t kComplexity = 0xA2C00013;
constexpr uint32_t kDataPartitioning = 0xA2C00015;
constexpr uint32_t kReducedResolution = 0xA2C00016;
constexpr uint32_t kScalable = 0xA2C00017;
constexpr uint32_t kOverMaximum = 0xA2C0001A;
constexpr uint32_t kOverOpenSize = 0xA2C00021;

size_t BodyBits(const VolHeader& vol) {
    BitWriter bits;
    vol.PutBody(bits);
    return bits.bit_count();
}

// ---- Accepted headers

TEST(DecVolHeader, StoresWhatPicturesNeed) {
    HeaderParser parser;
    EXPECT_EQ(parser.ParseVol({.verid = 2,
                               .time_increment_resolution = 25,
                               .width = 48,
                               .height = 33,
                               .interlaced = true,
                               .quant_precision = 9,
                               .quant_type = true,
                               .quarter_sample = true}),
              0u);
    const Mp4vDecCtx& ctx = parser.ctx();
    EXPECT_EQ(ctx.u32HeaderStatus, 0u);
    EXPECT_EQ(ctx.u32VopTimeIncRes, 25u);
    EXPECT_EQ(ctx.u32VopTimeIncBits, 5u);
    EXPECT_EQ(ctx.u16VolShape, 0);
    EXPECT_EQ(ctx.u32Width, 48u);
    EXPECT_EQ(ctx.u32Height, 33u);
    EXPECT_EQ(ctx.u32PicStructHint, 1u);
    EXPECT_EQ(ctx.s16Interlaced, 1);
    EXPECT_EQ(ctx.u32QuantPrecision, 9u);
    EXPECT_EQ(ctx.u16QuantType, 1);
    EXPECT_EQ(ctx.u16QuarterSample, 1);
}

TEST(DecVolHeader, OverwritesWhatAnEarlierOneStored) {
    HeaderParser parser;
    ASSERT_EQ(parser.ParseVol({.verid = 2,
                               .time_increment_resolution = 1000,
                               .interlaced = true,
                               .quant_precision = 9,
                               .quant_type = true,
                               .quarter_sample = true}),
              0u);
    ASSERT_EQ(parser.ParseVol({}), 0u);
    const Mp4vDecCtx& ctx = parser.ctx();
    EXPECT_EQ(ctx.u32VopTimeIncRes, 30u);
    EXPECT_EQ(ctx.u32VopTimeIncBits, 5u);
    EXPECT_EQ(ctx.s16Interlaced, 0);
    EXPECT_EQ(ctx.u32QuantPrecision, 5u);
    EXPECT_EQ(ctx.u16QuantType, 0);
    EXPECT_EQ(ctx.u16QuarterSample, 0);
}

// The optional parts of a header in all combinations: exactly the bits that were written are read.
TEST(DecVolHeader, ReadsEveryFormToItsLastBit) {
    for (unsigned form = 0; form < 1u << 14; form++) {
        const auto bit = [form](unsigned n) { return (form >> n & 1) != 0; };
        VolHeader vol;
        vol.random_accessible = bit(0);
        if (bit(1)) vol.verid = bit(2) ? 5 : 1;
        vol.aspect_ratio_info = bit(3) ? 15 : 14;
        vol.control_parameters = bit(4);
        vol.vbv_parameters = bit(5);
        vol.shape = bit(6) ? 1 : 0;
        if (bit(7)) vol.fixed_time_increment = 0;
        vol.quant_type = bit(8);
        if (bit(9)) vol.intra_matrix = std::vector<uint8_t>{3, 0};
        if (bit(10)) vol.inter_matrix = std::vector<uint8_t>(64, 7);
        if (bit(11)) vol.quant_precision = 4;
        vol.newpred = bit(12);
        vol.filler = vol.marker = bit(13);
        vol.resync_marker_disable = bit(13);
        static HeaderParser parser;
        ASSERT_EQ(parser.ParseVol(vol), 0u) << form;
        ASSERT_EQ(parser.Position(), BodyBits(vol)) << form;
    }
}

TEST(DecVolHeader, ChecksNoMarkerBit) {
    HeaderParser parser;
    EXPECT_EQ(parser.ParseVol({.control_parameters = true, .vbv_parameters = true, .marker = 0}), 0u);
    EXPECT_EQ(parser.ctx().u32Width, 32u);
    EXPECT_EQ(parser.ctx().u32Height, 32u);
}

TEST(DecVolHeader, AcceptsThreeTypeIndications) {
    for (uint32_t type = 0; type < 256; type++) {
        HeaderParser parser(16, 16);
        const bool supported = type == 0 || type == 1 || type == 17;
        ASSERT_EQ(parser.ParseVol({.type_indication = type, .width = 16, .height = 16}), supported ? 0 : kVotypeId)
            << type;
    }
}

TEST(DecVolHeader, AcceptsAdvancedSimpleWithQuarterSample) {
    HeaderParser parser;
    EXPECT_EQ(parser.ParseVol({.type_indication = 17, .verid = 2, .quarter_sample = true}), 0u);
    EXPECT_EQ(parser.ctx().u16QuarterSample, 1);
}

TEST(DecVolHeader, TakesEveryVersionButOneForTheSecond) {
    for (uint32_t verid = 0; verid < 16; verid++) {
        HeaderParser parser(32, 32);
        const VolHeader vol = {.verid = verid, .quarter_sample = true};
        ASSERT_EQ(parser.ParseVol(vol), 0u);
        ASSERT_EQ(parser.Position(), BodyBits(vol)) << verid;
        ASSERT_EQ(parser.ctx().u16QuarterSample, verid == 1 ? 0 : 1) << verid;
    }
}

TEST(DecVolHeader, ClearsTheStatusOfAnEarlierRefusal) {
    HeaderParser parser;
    EXPECT_EQ(parser.ctx().u32HeaderStatus, 0xA2C00023);
    EXPECT_EQ(parser.ParseVol({.type_indication = 2}), kVotypeId);
    EXPECT_EQ(parser.ctx().u32HeaderStatus, kVotypeId);
    EXPECT_EQ(parser.ParseVol({}), 0u);
    EXPECT_EQ(parser.ctx().u32HeaderStatus, 0u);
}

// ---- Time increments

TEST(VopTimeIncrementBits, HoldTheLargestIncrement) {
    constexpr std::pair<uint32_t, uint32_t> kBits[] = {
        {0, 1},     {1, 1},     {2, 1},     {3, 2},      {4, 2},      {5, 3},      {8, 3},     {9, 4},   {16, 4},
        {17, 5},    {25, 5},    {30, 5},    {32, 5},     {33, 6},     {64, 6},     {65, 7},    {256, 8}, {257, 9},
        {1000, 10}, {1024, 10}, {1025, 11}, {30000, 15}, {32768, 15}, {32769, 16}, {65535, 16}};
    for (const auto& [resolution, bits] : kBits) {
        HeaderParser parser(32, 32);
        ASSERT_EQ(parser.ParseVol({.time_increment_resolution = resolution}), 0u);
        EXPECT_EQ(parser.ctx().u32VopTimeIncRes, resolution);
        EXPECT_EQ(parser.ctx().u32VopTimeIncBits, bits) << resolution;
    }
}

TEST(VopTimeIncrementBits, AreTheWidthOfTheFixedIncrement) {
    for (const uint32_t resolution : {0u, 1u, 2u, 30u, 33u, 65535u}) {
        HeaderParser parser(32, 32);
        const VolHeader vol = {.time_increment_resolution = resolution, .fixed_time_increment = 0xFFFFFFFF};
        EXPECT_EQ(parser.ParseVol(vol), 0u);
        EXPECT_EQ(parser.Position(), BodyBits(vol)) << resolution;
        EXPECT_EQ(parser.ctx().u32Width, 32u) << resolution;
    }
}

// ---- Refusals

// What a header may store, before it is parsed and after.
struct Stored {
    bool shape = false;  // u16VolShape, u32VopTimeIncRes, u32VopTimeIncBits
    bool time = false;
    bool size = false;  // u32Width, u32Height, u32PicStructHint
    bool interlaced = false;
    bool quantisation = false;  // u32QuantPrecision, u16QuantType, matrices, u16QuarterSample
};

struct Refusal {
    const char* name;
    uint32_t status;
    Stored stored;
    std::function<void(VolHeader&)> spoil;
};

// In the order of their checks.
const Refusal kRefusals[] = {
    {"TypeIndication", kVotypeId, {}, [](VolHeader& vol) { vol.type_indication = 2; }},
    {"Grayscale", kShape, {.shape = true}, [](VolHeader& vol) { vol.shape = 3; }},
    {"OverMaximum", kOverMaximum, {.shape = true, .time = true}, [](VolHeader& vol) { vol.width = 1921; }},
    {"OverOpenSize", kOverOpenSize, {.shape = true, .time = true}, [](VolHeader& vol) { vol.height = 49; }},
    {"Obmc",
     kObmc,
     {.shape = true, .time = true, .size = true, .interlaced = true},
     [](VolHeader& vol) { vol.obmc_disable = false; }},
    {"Sprite",
     kSprite,
     {.shape = true, .time = true, .size = true, .interlaced = true},
     [](VolHeader& vol) { vol.sprite_enable = 2; }},
    {"Complexity",
     kComplexity,
     {.shape = true, .time = true, .size = true, .interlaced = true, .quantisation = true},
     [](VolHeader& vol) { vol.complexity_disable = false; }},
    {"DataPartitioning",
     kDataPartitioning,
     {.shape = true, .time = true, .size = true, .interlaced = true, .quantisation = true},
     [](VolHeader& vol) { vol.data_partitioned = true; }},
    {"ReducedResolution",
     kReducedResolution,
     {.shape = true, .time = true, .size = true, .interlaced = true, .quantisation = true},
     [](VolHeader& vol) { vol.reduced_resolution = true; }},
    {"Scalability",
     kScalable,
     {.shape = true, .time = true, .size = true, .interlaced = true, .quantisation = true},
     [](VolHeader& vol) { vol.scalability = true; }},
};

// Everything differs from what the instance holds before.
VolHeader EverythingNew() {
    return {.verid = 2,
            .shape = 0,
            .time_increment_resolution = 1000,
            .width = 48,
            .height = 32,
            .interlaced = true,
            .quant_precision = 7,
            .quant_type = true,
            .intra_matrix = std::vector<uint8_t>(64, 11),
            .inter_matrix = std::vector<uint8_t>(64, 12),
            .quarter_sample = true};
}

class RefusedVol : public testing::TestWithParam<Refusal> {};

TEST_P(RefusedVol, KeepsWhatItStoredBeforeTheRefusal) {
    const Refusal& refusal = GetParam();
    HeaderParser parser;
    Mp4vDecCtx& ctx = parser.ctx();
    ctx.u16VolShape = 77;
    VolHeader vol = EverythingNew();
    refusal.spoil(vol);
    EXPECT_EQ(parser.ParseVol(vol), refusal.status);
    EXPECT_EQ(ctx.u32HeaderStatus, refusal.status);
    const Stored& stored = refusal.stored;
    EXPECT_EQ(ctx.u16VolShape, stored.shape ? vol.shape : 77);
    EXPECT_EQ(ctx.u32VopTimeIncRes, stored.time ? 1000u : 0u);
    EXPECT_EQ(ctx.u32VopTimeIncBits, stored.time ? 10u : 0u);
    EXPECT_EQ(ctx.u32Width, stored.size ? 48u : 64u);
    EXPECT_EQ(ctx.u32Height, stored.size ? 32u : 48u);
    EXPECT_EQ(ctx.u32LumaStride, stored.size ? 112u : 128u);
    EXPECT_EQ(ctx.u32MbWidth, stored.size ? 3u : 4u);
    EXPECT_EQ(ctx.u32PicStructHint, stored.size ? 1u : 0u);
    EXPECT_EQ(ctx.s16Interlaced, stored.interlaced ? 1 : 0);
    EXPECT_EQ(ctx.u32QuantPrecision, stored.quantisation ? 7u : 0u);
    EXPECT_EQ(ctx.u16QuantType, stored.quantisation ? 1 : 0);
    EXPECT_EQ(ctx.as16IntraQuantMatrix[63], stored.quantisation ? 11 : 0);
    EXPECT_EQ(ctx.as16InterQuantMatrix[63], stored.quantisation ? 12 : 0);
    EXPECT_EQ(ctx.u16QuarterSample, stored.quantisation ? 1 : 0);
}

INSTANTIATE_TEST_SUITE_P(DecVolHeader, RefusedVol, testing::ValuesIn(kRefusals),
                         [](const auto& test) { return std::string(test.param.name); });

TEST(DecVolHeader, RefusesForTheFirstReasonThatItMeets) {
    for (size_t first = 0; first < std::size(kRefusals); first++) {
        HeaderParser parser;
        VolHeader vol = EverythingNew();
        for (size_t i = first; i < std::size(kRefusals); i++) kRefusals[i].spoil(vol);
        EXPECT_EQ(parser.ParseVol(vol), kRefusals[first].status) << kRefusals[first].name;
    }
}

TEST(DecVolHeader, ReadsNothingBehindTheElementThatItRefuses) {
    const auto position = [](const VolHeader& vol) {
        HeaderParser parser;
        EXPECT_NE(parser.ParseVol(vol), 0u);
        return parser.Position();
    };
    EXPECT_EQ(position({.type_indication = 2}), 9u);
    EXPECT_EQ(position({.shape = 3}), 17u);
    EXPECT_EQ(position({.width = 80}), 65u);
    EXPECT_EQ(position({.obmc_disable = false}), 67u);
    EXPECT_EQ(position({.sprite_enable = 1}), 68u);
    EXPECT_EQ(position({.complexity_disable = false}), 71u);
    EXPECT_EQ(position({.data_partitioned = true}), 73u);
    EXPECT_EQ(position({.scalability = true}), 74u);
    EXPECT_EQ(position({.verid = 2, .reduced_resolution = true}), 84u);
    EXPECT_EQ(position({.verid = 2, .scalability = true}), 85u);
}

TEST(DecVolHeader, RefusesEverySpriteOfTheSecondVersion) {
    for (uint32_t sprite = 0; sprite < 4; sprite++) {
        HeaderParser parser;
        EXPECT_EQ(parser.ParseVol({.verid = 2, .sprite_enable = sprite}), sprite ? kSprite : 0) << sprite;
    }
}

// In a header of the first version these bits are not there, whatever the rest may look like.
TEST(DecVolHeader, LooksForNeitherNewpredNorReducedResolutionInTheFirstVersion) {
    HeaderParser parser;
    EXPECT_EQ(parser.ParseVol({.newpred = true, .reduced_resolution = true}), 0u);
    EXPECT_EQ(parser.ParseVol({.verid = 1, .newpred = true, .reduced_resolution = true}), 0u);
}

TEST(DecVolHeader, AcceptsNewpred) {
    HeaderParser parser;
    EXPECT_EQ(parser.ParseVol({.verid = 4, .newpred = true}), 0u);
    EXPECT_EQ(parser.ParseVol({.verid = 4, .newpred = true, .filler = 1}), 0u);
}

// ---- Sizes

uint32_t StatusOfSize(uint32_t open_width, uint32_t open_height, uint32_t width, uint32_t height) {
    HeaderParser parser(open_width, open_height);
    return parser.ParseVol({.width = width, .height = height});
}

TEST(VolSize, MayBe1920By1088) {
    EXPECT_EQ(StatusOfSize(1920, 1088, 1920, 1088), 0u);
    EXPECT_EQ(StatusOfSize(1936, 1096, 1920, 1088), 0u);
}

TEST(VolSize, BeyondTheMaximumIsRefusedEvenWhenTheOpenSizeIsLarger) {
    EXPECT_EQ(StatusOfSize(1936, 1096, 1921, 1080), kOverMaximum);
    EXPECT_EQ(StatusOfSize(1936, 1096, 1920, 1089), kOverMaximum);
    EXPECT_EQ(StatusOfSize(1936, 1096, 16, 1089), kOverMaximum);
    EXPECT_EQ(StatusOfSize(16, 16, 8191, 8191), kOverMaximum);
}

TEST(VolSize, BeyondTheOpenSizeIsRefused) {
    EXPECT_EQ(StatusOfSize(64, 48, 65, 48), kOverOpenSize);
    EXPECT_EQ(StatusOfSize(64, 48, 64, 49), kOverOpenSize);
    EXPECT_EQ(StatusOfSize(64, 48, 48, 64), kOverOpenSize);
    EXPECT_EQ(StatusOfSize(64, 48, 1920, 1088), kOverOpenSize);
    EXPECT_EQ(StatusOfSize(64, 48, 64, 48), 0u);
}

TEST(VolSize, IsMeasuredByTheOpenSizeNotByTheCurrentOne) {
    HeaderParser parser;
    EXPECT_EQ(parser.ParseVol({.width = 16, .height = 16}), 0u);
    EXPECT_EQ(parser.ParseVol({.width = 64, .height = 48}), 0u);
    EXPECT_EQ(parser.ctx().u32Width, 64u);
}

TEST(VolSize, MayBeAnything) {
    HeaderParser parser;
    for (const auto& [width, height] : {std::pair{0u, 0u}, {1u, 1u}, {0u, 48u}, {64u, 0u}, {17u, 47u}, {63u, 33u}}) {
        EXPECT_EQ(parser.ParseVol({.width = width, .height = height}), 0u);
        EXPECT_EQ(parser.ctx().u32Width, width);
        EXPECT_EQ(parser.ctx().u32Height, height);
        EXPECT_EQ(parser.ctx().u32MbWidth, (width + 15) / 16);
        EXPECT_EQ(parser.ctx().u32MbHeight, (height + 15) / 16);
        EXPECT_EQ(parser.ctx().u32LumaStride, (width + 15) / 16 * 16 + 64);
        EXPECT_EQ(parser.ctx().u32PaddedHeight, (height + 15) / 16 * 16 + 64);
    }
}

TEST(VolSize, LaysBothFramesOutAnew) {
    HeaderParser parser;
    ASSERT_EQ(parser.ParseVol({.width = 20, .height = 17}), 0u);
    const Mp4vDecCtx& ctx = parser.ctx();
    for (const VopFrame* frame : {&ctx.tCurFrame, &ctx.tRefFrame}) {  // 96 bytes by 96 rows
        EXPECT_EQ(frame->pu8Y - frame->pu8Base, 32 * 96 + 32);
        EXPECT_EQ(frame->pu8U - frame->pu8Base, 96 * 96 + 16 * 48 + 16);
        EXPECT_EQ(frame->pu8V - frame->pu8U, 48 * 48);
    }
    EXPECT_EQ(ctx.tCurFrame.pu8Base, ctx.apFrameAllocs[0]);
    EXPECT_EQ(ctx.tRefFrame.pu8Base, ctx.apFrameAllocs[1]);
}

// After an odd number of pictures the planes lie in each other's allocation; a change of size brings them home.
TEST(VolSize, LaysFramesOutInTheirOwnAllocationsAfterAnOddNumberOfPictures) {
    HeaderParser parser;
    ASSERT_EQ(parser.Process(FlatIntra({.width = 64, .height = 48}, {50, 60, 70})).status, 0u);
    const Mp4vDecCtx& ctx = parser.ctx();
    ASSERT_EQ(ctx.tCurFrame.pu8Y - ctx.tRefFrame.pu8Base, 32 * 128 + 32);
    ASSERT_EQ(parser.ParseVol({.width = 32, .height = 32}), 0u);
    EXPECT_EQ(ctx.tCurFrame.pu8Y - ctx.tCurFrame.pu8Base, 32 * 96 + 32);
    EXPECT_EQ(ctx.tRefFrame.pu8Y - ctx.tRefFrame.pu8Base, 32 * 96 + 32);
}

TEST(VolSize, ThatStaysTheSameTouchesNeitherFramesNorRecords) {
    HeaderParser parser;
    const VolHeader vol = {.width = 64, .height = 48};
    ASSERT_EQ(parser.Process(FlatIntra(vol, {50, 60, 70})).status, 0u);
    const std::vector<uint8_t> before = parser.State();
    std::vector<uint8_t> records(20 * sizeof(MbInfo));
    memcpy(records.data(), parser.ctx().ptMbInfo - 5, records.size());
    ASSERT_EQ(parser.ParseVol(vol), 0u);
    EXPECT_EQ(parser.State(), before);
    ClearCondemnedMbInfo(&parser.ctx());
    EXPECT_EQ(memcmp(records.data(), parser.ctx().ptMbInfo - 5, records.size()), 0);
}

// The first VOL of an instance usually announces just the open size.
TEST(VolSize, ThatIsTheOpenSizeChangesNothing) {
    HeaderParser parser;
    const Mp4vDecCtx& ctx = parser.ctx();
    const uint8_t* const planes[] = {ctx.tCurFrame.pu8Y, ctx.tRefFrame.pu8Y};
    memset(ctx.ptMbInfo, 0x77, sizeof(MbInfo));
    ASSERT_EQ(parser.ParseVol({.width = 64, .height = 48}), 0u);
    ClearCondemnedMbInfo(&parser.ctx());
    EXPECT_EQ(ctx.tCurFrame.pu8Y, planes[0]);
    EXPECT_EQ(ctx.tRefFrame.pu8Y, planes[1]);
    EXPECT_EQ(ctx.ptMbInfo->u8Qp, 0x77);
}

TEST(VolSize, KeepsTheSamplesInTheAllocations) {
    HeaderParser parser;
    memset(parser.ctx().tRefFrame.pu8Base, 0x55, 100);
    ASSERT_EQ(parser.ParseVol({.width = 16, .height = 16}), 0u);
    EXPECT_EQ(parser.ctx().tRefFrame.pu8Base[99], 0x55);
}

// Frames 64 x 48: 5 x 4 records.
std::string RecordsAfter(const std::vector<std::pair<uint32_t, uint32_t>>& sizes) {
    HeaderParser parser;
    MbInfo* const start = parser.ctx().ptMbInfo - 5;
    memset(start, 0x77, 20 * sizeof(MbInfo));
    for (const auto& [width, height] : sizes) EXPECT_EQ(parser.ParseVol({.width = width, .height = height}), 0u);
    ClearCondemnedMbInfo(&parser.ctx());
    std::string states;
    for (int i = 0; i < 20; i++) {
        const auto* const bytes = reinterpret_cast<const uint8_t*>(start + i);
        const auto all = [&](uint8_t value) {
            return std::all_of(bytes, bytes + sizeof(MbInfo), [value](uint8_t byte) { return byte == value; });
        };
        states += all(0) ? 'z' : all(0x77) ? '-' : '?';
    }
    return states;
}

// The spare row above, as long as the new width demands, and the rows with their spare records.
TEST(VolSize, ClearsTheRecordsOfTheNewLayout) {
    EXPECT_EQ(RecordsAfter({{16, 16}}), "---zzzz-------------");
    EXPECT_EQ(RecordsAfter({{32, 16}}), "--zzzzzz------------");
    EXPECT_EQ(RecordsAfter({{16, 48}}), "---zzzzzzzz---------");
    EXPECT_EQ(RecordsAfter({{63, 48}}), "zzzzzzzzzzzzzzzzzzzz");
    EXPECT_EQ(RecordsAfter({{0, 0}}), "----z---------------");
    EXPECT_EQ(RecordsAfter({{64, 48}}), "--------------------");
}

TEST(VolSize, ClearsWhatSeveralChangesTogetherWouldHaveCleared) {
    EXPECT_EQ(RecordsAfter({{16, 48}, {64, 16}}), "zzzzzzzzzzz---------");
    EXPECT_EQ(RecordsAfter({{64, 16}, {16, 48}}), "zzzzzzzzzzz---------");
    EXPECT_EQ(RecordsAfter({{16, 16}, {64, 48}}), "zzzzzzzzzzzzzzzzzzzz");
    EXPECT_EQ(RecordsAfter({{16, 16}, {16, 16}, {16, 16}}), "---zzzz-------------");
}

TEST(VolSize, SetsTheHintUnlessUserDataHasSetIt) {
    for (const uint32_t set : {0u, 1u}) {
        for (const uint32_t width : {32u, 64u}) {  // a new size, and the old one
            HeaderParser parser;
            parser.ctx().u32PicStructHint = 2;
            parser.ctx().u32PicStructHintSet = set;
            ASSERT_EQ(parser.ParseVol({.width = width, .height = 48}), 0u);
            EXPECT_EQ(parser.ctx().u32PicStructHint, set ? 2u : 1u);
            EXPECT_EQ(parser.ctx().u32PicStructHintSet, set);
        }
    }
}

TEST(VolSize, SetsNoHintWhenItIsRefused) {
    HeaderParser parser;
    EXPECT_EQ(parser.ParseVol({.width = 80}), kOverOpenSize);
    EXPECT_EQ(parser.ctx().u32PicStructHint, 0u);
}

// ---- Shapes

TEST(BinaryShape, ReadsNoSizeAndGoesOn) {
    HeaderParser parser;
    const VolHeader vol = {.verid = 2, .shape = 1, .interlaced = true, .quant_precision = 4, .filler = 1};
    EXPECT_EQ(parser.ParseVol(vol), 0u);
    EXPECT_EQ(parser.Position(), BodyBits(vol));
    EXPECT_EQ(parser.ctx().u16VolShape, 1);
    EXPECT_EQ(parser.ctx().u32Width, 64u);
    EXPECT_EQ(parser.ctx().u32Height, 48u);
    EXPECT_EQ(parser.ctx().u32PicStructHint, 0u);
    EXPECT_EQ(parser.ctx().s16Interlaced, 1);
    EXPECT_EQ(parser.ctx().u32QuantPrecision, 4u);
}

TEST(BinaryShape, KeepsTheSizeOfAnEarlierLayer) {
    HeaderParser parser;
    ASSERT_EQ(parser.ParseVol({.width = 16, .height = 32}), 0u);
    EXPECT_EQ(parser.ParseVol({.shape = 1}), 0u);
    EXPECT_EQ(parser.ctx().u32Width, 16u);
    EXPECT_EQ(parser.ctx().u32Height, 32u);
}

TEST(BinaryOnlyShape, OfTheFirstVersionEndsWithoutASize) {
    HeaderParser parser;
    EXPECT_EQ(parser.ParseVol({.shape = 2, .scalability = true}), 0u);
    EXPECT_EQ(parser.Position(), 37u);
    const Mp4vDecCtx& ctx = parser.ctx();
    EXPECT_EQ(ctx.u32HeaderStatus, 0u);
    EXPECT_EQ(ctx.u16VolShape, 2);
    EXPECT_EQ(ctx.u32VopTimeIncBits, 5u);
    EXPECT_EQ(ctx.u32Width, 64u);
    EXPECT_EQ(ctx.u32Height, 48u);
    EXPECT_EQ(ctx.u32PicStructHint, 0u);
    EXPECT_EQ(ctx.u32QuantPrecision, 0u) << "nothing behind the shape is read";
}

TEST(BinaryOnlyShape, OfTheSecondVersionTellsItsScalability) {
    HeaderParser parser;
    EXPECT_EQ(parser.ParseVol({.verid = 2, .shape = 2}), 0u);
    EXPECT_EQ(parser.Position(), 45u);
    EXPECT_EQ(parser.ParseVol({.verid = 2, .shape = 2, .scalability = true}), kScalable);
    EXPECT_EQ(parser.Position(), 44u);
    EXPECT_EQ(parser.ctx().u32HeaderStatus, kScalable);
}

// ---- Quantisation

TEST(VolQuantisation, IsOfFiveBitsUnlessTold) {
    HeaderParser parser;
    EXPECT_EQ(parser.ParseVol({}), 0u);
    EXPECT_EQ(parser.ctx().u32QuantPrecision, 5u);
    for (uint32_t precision = 0; precision < 16; precision++) {
        EXPECT_EQ(parser.ParseVol({.quant_precision = precision}), 0u);
        EXPECT_EQ(parser.ctx().u32QuantPrecision, precision);
    }
}

constexpr int16_t kDefaultIntra[64] = {8,  17, 18, 19, 21, 23, 25, 27,  //
                                       17, 18, 19, 21, 23, 25, 27, 28,  //
                                       20, 21, 22, 23, 24, 26, 28, 30,  //
                                       21, 22, 23, 24, 26, 28, 30, 32,  //
                                       22, 23, 24, 26, 28, 30, 32, 35,  //
                                       23, 24, 26, 28, 30, 32, 35, 38,  //
                                       25, 26, 28, 30, 32, 35, 38, 41,  //
                                       27, 28, 30, 32, 35, 38, 41, 45};
constexpr int16_t kDefaultInter[64] = {16, 17, 18, 19, 20, 21, 22, 23,  //
                                       17, 18, 19, 20, 21, 22, 23, 24,  //
                                       18, 19, 20, 21, 22, 23, 24, 25,  //
                                       19, 20, 21, 22, 23, 24, 26, 27,  //
                                       20, 21, 22, 23, 25, 26, 27, 28,  //
                                       21, 22, 23, 24, 26, 27, 28, 30,  //
                                       22, 23, 24, 26, 27, 28, 30, 31,  //
                                       23, 24, 25, 27, 28, 30, 31, 33};

using Matrix = std::vector<int>;

Matrix Intra(const HeaderParser& parser) {
    return {std::begin(parser.ctx().as16IntraQuantMatrix), std::end(parser.ctx().as16IntraQuantMatrix)};
}

Matrix Inter(const HeaderParser& parser) {
    return {std::begin(parser.ctx().as16InterQuantMatrix), std::end(parser.ctx().as16InterQuantMatrix)};
}

const Matrix kIntraDefault(std::begin(kDefaultIntra), std::end(kDefaultIntra));
const Matrix kInterDefault(std::begin(kDefaultInter), std::end(kDefaultInter));

TEST(VolMatrices, AreTheDefaultsUnlessLoaded) {
    HeaderParser parser;
    EXPECT_EQ(Intra(parser), Matrix(64, 0));
    EXPECT_EQ(parser.ParseVol({.quant_type = true}), 0u);
    EXPECT_EQ(Intra(parser), kIntraDefault);
    EXPECT_EQ(Inter(parser), kInterDefault);
}

TEST(VolMatrices, AreLoadedOneByOne) {
    HeaderParser parser;
    const std::vector<uint8_t> sevens(64, 7), nines(64, 9);
    EXPECT_EQ(parser.ParseVol({.quant_type = true, .intra_matrix = sevens}), 0u);
    EXPECT_EQ(Intra(parser), Matrix(64, 7));
    EXPECT_EQ(Inter(parser), kInterDefault);
    EXPECT_EQ(parser.ParseVol({.quant_type = true, .inter_matrix = nines}), 0u);
    EXPECT_EQ(Intra(parser), kIntraDefault);
    EXPECT_EQ(Inter(parser), Matrix(64, 9));
    EXPECT_EQ(parser.ParseVol({.quant_type = true, .intra_matrix = nines, .inter_matrix = sevens}), 0u);
    EXPECT_EQ(Intra(parser), Matrix(64, 9));
    EXPECT_EQ(Inter(parser), Matrix(64, 7));
}

TEST(VolMatrices, StayWithoutQuantType) {
    HeaderParser parser;
    const std::vector<uint8_t> sevens(64, 7);
    ASSERT_EQ(parser.ParseVol({.quant_type = true, .intra_matrix = sevens}), 0u);
    EXPECT_EQ(parser.ParseVol({}), 0u);
    EXPECT_EQ(parser.ctx().u16QuantType, 0);
    EXPECT_EQ(Intra(parser), Matrix(64, 7));
    EXPECT_EQ(Inter(parser), kInterDefault);
}

TEST(VolMatrices, KeepTheEntriesOfAnEarlierOneThatAShortOneLeavesOut) {
    HeaderParser parser;
    const std::vector<uint8_t> sevens(64, 7), three = {3, 0};
    ASSERT_EQ(parser.ParseVol({.quant_type = true, .intra_matrix = sevens}), 0u);
    EXPECT_EQ(parser.ParseVol({.quant_type = true, .intra_matrix = three}), 0u);
    EXPECT_EQ(parser.ctx().as16IntraQuantMatrix[0], 3);
    EXPECT_EQ(parser.ctx().as16IntraQuantMatrix[1], 3);  // scan position 1, the terminating 0
    EXPECT_EQ(parser.ctx().as16IntraQuantMatrix[8], 7);  // scan position 2
}

// ---- The end of the chunk

// A chunk of one byte; the header goes on in the bytes behind it.
TEST(DecVolHeader, ReportsNoOverrun) {
    HeaderParser parser;
    BitWriter bits;
    VolHeader{.shape = 2}.PutBody(bits);
    std::vector<uint8_t> bytes = bits.Bytes();
    bytes.resize(9);
    BsInit(&parser.ctx().tBs, bytes.data(), 1);
    EXPECT_EQ(DecVolHeader(&parser.ctx()), 0u);
    EXPECT_EQ(parser.ctx().tBs.u32BsError, 0xA2C0001E);
    EXPECT_EQ(parser.ctx().u32HeaderStatus, 0u);
}

TEST(DecVolHeader, LeavesAnOverrunToTheWalkOverTheStartCodes) {
    HeaderParser parser;
    BitWriter bits;
    VolHeader{.shape = 2}.PutTo(bits);
    std::vector<uint8_t> bytes = bits.Bytes();  // 9 bytes
    bytes.resize(5 + 8);
    BsInit(&parser.ctx().tBs, bytes.data(), 5);
    EXPECT_EQ(BsHeaders(&parser.ctx()), 0xA2C0001E);
    EXPECT_EQ(parser.ctx().u32HeaderStatus, 0u);
    EXPECT_EQ(parser.ctx().u16VolShape, 2);
}

TEST(DecVolHeader, StandsAnyCutInTheMiddle) {
    BitWriter bits;
    VolHeader{.verid = 2,
              .control_parameters = true,
              .vbv_parameters = true,
              .quant_type = true,
              .intra_matrix = std::vector<uint8_t>(64, 200)}
        .PutTo(bits);
    const std::vector<uint8_t>& whole = bits.Bytes();
    for (size_t length = 1; length <= whole.size(); length++) {
        for (const uint8_t tail : {uint8_t{0}, uint8_t{0xFF}}) {
            HeaderParser parser(32, 32);
            parser.SetReader(std::vector<uint8_t>(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(length)), tail);
            ASSERT_NE(BsHeaders(&parser.ctx()), 0u);
            ASSERT_EQ(parser.ParseVol({}), 0u);
        }
    }
}

}  // namespace
}  // namespace mp4v::test
