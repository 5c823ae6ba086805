// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors
#include "vector_replay.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <ostream>

#include "support/linked_decoder.h"

namespace mp4v::test {
namespace {

namespace fs = std::filesystem;

const std::string kVectors = std::string(MP4VDEC_TEST_DATA_DIR) + "/vectors/";

// "folder/name" of every case.
std::vector<std::string> FindCases() {
    std::vector<std::string> names;
    for (const auto& entry : fs::recursive_directory_iterator(kVectors)) {
        if (entry.path().extension() == ".case") {
            names.push_back(entry.path().parent_path().filename().string() + "/" + entry.path().stem().string());
        }
    }
    std::sort(names.begin(), names.end());
    return names;
}

// Cases of which only a part is compared: "folder/name part reason" per line.
std::map<std::string, std::string> FindDisputed() {
    std::map<std::string, std::string> disputed;
    for (const std::string& line : ReadLines(kVectors + "DISPUTED")) {
        if (!line.empty() && line[0] != '#') {
            const size_t space = line.find(' ');
            disputed[line.substr(0, space)] = space == std::string::npos ? "" : line.substr(space + 1);
        }
    }
    return disputed;
}

class VectorReplay : public testing::TestWithParam<std::string> {};

TEST_P(VectorReplay, GivesTheRecordedResults) {
    const std::string path = kVectors + GetParam();
    VectorCase vector;
    std::string error;
    ASSERT_TRUE(ParseCase(ReadFile(path + ".case"), &vector, &error)) << error;
    const std::vector<std::string> expected = ReadLines(path + ".expect");
    ASSERT_EQ(expected.size(), vector.chunks.size() + 1);

    const ReplayResult result = Replay(kLinkedDecoder, vector);
    std::string difference = Compare(result, expected);
    const std::map<std::string, std::string> list = FindDisputed();
    if (const auto disputed = list.find(GetParam()); disputed != list.end()) {
        ASSERT_NE(difference, "") << "all of it agrees: take it off the list of disputed cases";
        if (disputed->second.starts_with("records ")) {
            EXPECT_NE(Compare(result, expected, Extent::kPictures), "") << "the pictures agree: it is less disputed";
            difference = Compare(result, expected, Extent::kRecords);
        } else {
            difference = Compare(result, expected, Extent::kPictures);
        }
    }
    if (!difference.empty()) {
        FAIL() << GetParam() << ", " << difference;
    }
}

// Of every case, disputed or not: nothing here depends on what is recorded. Chunks that fail get a buffer of the size
// that they were decoded with, too.
TEST_P(VectorReplay, StaysInsideAPictureOfTheCurrentSize) {
    VectorCase vector;
    std::string error;
    ASSERT_TRUE(ParseCase(ReadFile(kVectors + GetParam() + ".case"), &vector, &error)) << error;
    const ReplayResult replay = Replay(kLinkedDecoder, vector);
    for (const Flush flush : {Flush::kLeft, Flush::kRight}) {
        const std::vector<std::string> escapes = FindEscapes(kLinkedDecoder, vector, replay, flush);
        EXPECT_TRUE(escapes.empty()) << (flush == Flush::kLeft ? "flush left: " : "flush right: ") << escapes.front();
    }
}

INSTANTIATE_TEST_SUITE_P(Vectors, VectorReplay, testing::ValuesIn(FindCases()), [](const auto& test) {
    std::string name = test.param;
    std::replace_if(
        name.begin(), name.end(), [](unsigned char c) { return !std::isalnum(c); }, '_');
    return name;
});

TEST(VectorFiles, AreAllThere) {
    std::map<std::string, int> count;
    for (const std::string& name : FindCases()) {
        count[name.substr(0, name.find('/'))]++;
    }
    const std::map<std::string, int> want = {{"basics", 24}, {"damage", 120},    {"headers", 60},
                                             {"inter", 60},  {"interlaced", 60}, {"intra", 60},
                                             {"output", 60}, {"qpel", 60},       {"wild", 120}};
    EXPECT_EQ(count, want);
}

TEST(VectorFiles, DisputedCasesExistAndHaveAReason) {
    const std::vector<std::string> names = FindCases();
    for (const auto& [name, reason] : FindDisputed()) {
        EXPECT_TRUE(std::find(names.begin(), names.end(), name) != names.end()) << name;
        EXPECT_TRUE(reason.starts_with("pictures ") || reason.starts_with("records ")) << name;
        EXPECT_GT(reason.size(), 30u) << name;
    }
}

TEST(VectorFiles, AHalfCaseIsRefused) {
    const std::vector<uint8_t> bytes = ReadFile(kVectors + "basics/flags.case");
    VectorCase vector;
    std::string error;
    ASSERT_TRUE(ParseCase(bytes, &vector, &error)) << error;
    for (size_t length = 0; length < bytes.size(); length++) {
        ASSERT_FALSE(ParseCase({bytes.data(), length}, &vector, &error)) << length;
    }
    std::vector<uint8_t> longer = bytes;
    longer.push_back(0);
    EXPECT_FALSE(ParseCase(longer, &vector, &error));
}

TEST(Fnv1a64, GivesThePublishedValues) {
    const uint8_t foobar[] = {'f', 'o', 'o', 'b', 'a', 'r'};
    EXPECT_EQ(Fnv1a64({}), 0xcbf29ce484222325u);
    EXPECT_EQ(Fnv1a64({foobar, 1}), 0xaf63db4c8601ead9u);
    EXPECT_EQ(Fnv1a64({foobar, 6}), 0x85944171f73967e8u);
}

ReplayResult TwoMacroblocks() {
    ReplayResult result;
    result.lines.push_back(
        {"open width=32 height=16 status=00000000", std::vector<uint8_t>(32 * 16 * 3 / 2), 32, 16, true});
    return result;
}

TEST(CompareVectors, SaysNothingWhenAllAgrees) {
    const ReplayResult result = TwoMacroblocks();
    const std::string digests = MacroblockDigests(result.lines[0].buffer, 32, 16);
    EXPECT_EQ(digests.size(), 8u);
    EXPECT_EQ(Compare(result, {result.lines[0].text}), "");
    EXPECT_EQ(Compare(result, {result.lines[0].text + " mb=" + digests}), "");
}

TEST(CompareVectors, PointsAtTheFirstDifferingMacroblock) {
    ReplayResult result = TwoMacroblocks();
    const std::string expected = result.lines[0].text + " mb=" + MacroblockDigests(result.lines[0].buffer, 32, 16);
    result.lines[0].buffer[32 * 16 + 8] = 1;  // U of the right one
    EXPECT_NE(Compare(result, {expected}).find("macroblock 1 (column 1, row 0), 1 macroblocks differ"),
              std::string::npos);
}

TEST(CompareVectors, LeavesOutTheBytesBehindThePictureOnlyWhenTold) {
    ReplayResult result = TwoMacroblocks();
    const std::string digests = MacroblockDigests(result.lines[0].buffer, 32, 16);
    result.lines[0].text = "0 process status=00000000 buffer=1111111111111111";
    const std::string expected = "0 process status=00000000 buffer=2222222222222222 mb=" + digests;
    EXPECT_NE(Compare(result, {expected}), "");
    EXPECT_EQ(Compare(result, {expected}, Extent::kPictures), "");
    result.lines[0].buffer[0] = 1;
    EXPECT_NE(Compare(result, {expected}, Extent::kPictures), "");
    result.lines[0].text = "0 process status=00000001 buffer=2222222222222222";
    EXPECT_NE(Compare(result, {expected}, Extent::kPictures), "");
}

TEST(CompareVectors, SeesAnotherStatusAMissingLineAndASurplusLine) {
    const ReplayResult result = TwoMacroblocks();
    const std::string line = result.lines[0].text;
    EXPECT_NE(Compare(result, {"open width=32 height=16 status=00000001"}), "");
    EXPECT_NE(Compare(result, {line, line}), "");
    EXPECT_NE(Compare(result, {}), "");
}

TEST(CompareVectors, ReportsProblemsEvenWhenAllLinesAgree) {
    ReplayResult result = TwoMacroblocks();
    result.problems.push_back("written in front of the picture");
    EXPECT_EQ(Compare(result, {result.lines[0].text}), "written in front of the picture");
}

// ---- The replay itself must notice what a decoder may not do. A stand-in decoder misbehaves in one way at a time.

struct Misbehaviour {
    bool read_behind_tail = false;
    bool write_behind_picture = false;
    bool write_before_picture = false;
    bool write_chunk = false;
    bool leak = false;
    bool overrun_allocation = false;
    bool underrun_allocation = false;
    bool read_before_chunk = false;
    bool write_behind_current_size = false;
    bool write_before_current_size = false;
    bool depend_on_what_lies_behind = false;
};
Misbehaviour g_misbehaviour;
uint8_t* g_allocation;
void* g_context;
volatile uint8_t g_sink;

uint32_t StandInOpen(void** handle, const Mp4vDecOpenParams*, void* context) {
    g_context = context;
    g_allocation = static_cast<uint8_t*>(VideoMemMalloc_c(context, 20, 16, -38, "", 1));
    *handle = g_allocation;
    return 0;
}

uint32_t StandInProcess(void*, const Mp4vDecInArgs* in, Mp4vDecOutArgs* out) {
    const size_t picture = 16 * 16 * 3 / 2;
    g_sink = in->pu8Buf[in->u32BufLen + 7];
    if (g_misbehaviour.read_behind_tail) {
        g_sink = in->pu8Buf[in->u32BufLen + 8];
    }
    if (g_misbehaviour.write_behind_picture) {
        out->pu8Dst[picture] = 1;
    }
    if (g_misbehaviour.write_before_picture) {
        out->pu8Dst[-1] = 1;
    }
    if (g_misbehaviour.write_chunk) {
        const_cast<uint8_t*>(in->pu8Buf)[0] = 1;
    }
    if (g_misbehaviour.overrun_allocation) {
        g_allocation[20] = 1;
    }
    if (g_misbehaviour.underrun_allocation) {
        g_allocation[-1] = 1;
    }
    out->pu8Dst[picture - 1] = 1;
    return 7;
}

// Works with 15 x 7 whatever it was opened with: 157 bytes.
void SmallStandInSize(const void*, uint32_t* width, uint32_t* height) {
    *width = 15;
    *height = 7;
}

uint32_t SmallStandInProcess(void*, const Mp4vDecInArgs* in, Mp4vDecOutArgs* out) {
    uint8_t* const picture = out->pu8Dst;
    out->u32Width = 15;
    out->u32Height = 7;
    picture[0] = picture[78];
    picture[156]++;
    if (g_misbehaviour.write_behind_current_size) {
        picture[157] = 1;
    }
    if (g_misbehaviour.write_before_current_size) {
        picture[-1] = 1;
    }
    if (g_misbehaviour.depend_on_what_lies_behind) {
        picture[1] = picture[157];
    }
    if (g_misbehaviour.read_before_chunk) {
        g_sink = in->pu8Buf[-1];
    }
    if (g_misbehaviour.overrun_allocation) {
        g_allocation[20] = 1;
    }
    if (g_misbehaviour.underrun_allocation) {
        g_allocation[-1] = 1;
    }
    return 0;
}

uint32_t StandInClose(void*) {
    if (!g_misbehaviour.leak) {
        VideoMemFree_c(g_context, g_allocation, -38, "", 2);
    }
    return 0;
}

ReplayResult ReplayStandIn(const Misbehaviour& misbehaviour) {
    g_misbehaviour = misbehaviour;
    VidDecFuncs functions = {};
    functions.pfOpen = StandInOpen;
    functions.pfProcess = StandInProcess;
    functions.pfClose = StandInClose;
    VectorCase vector;
    vector.open_width = 16;
    vector.open_height = 16;
    vector.chunks.resize(1);
    vector.chunks[0].data = {0, 0, 1};
    return Replay({&functions, nullptr}, vector);
}

std::vector<std::string> FindEscapesOfStandIn(const Misbehaviour& misbehaviour, Flush flush) {
    VidDecFuncs functions = {};
    functions.pfOpen = StandInOpen;
    functions.pfProcess = SmallStandInProcess;
    functions.pfClose = StandInClose;
    const DecoderApi api = {&functions, nullptr, SmallStandInSize};
    VectorCase vector;
    vector.open_width = 16;
    vector.open_height = 16;
    vector.chunks.resize(2);
    vector.chunks[0].data = {0, 0, 1};
    vector.chunks[1].data = {0, 0, 1};
    g_misbehaviour = {};
    const ReplayResult replay = Replay(api, vector);
    EXPECT_EQ(replay.lines.back().picture_bytes, 157u);
    EXPECT_EQ(replay.lines.back().buffer[156], 0xA7) << "the buffer goes from chunk to chunk";
    g_misbehaviour = misbehaviour;
    return FindEscapes(api, vector, replay, flush);
}

TEST(ReplayHost, FindsNothingWrongWithAGoodDecoder) {
    const ReplayResult result = ReplayStandIn({});
    EXPECT_TRUE(result.problems.empty()) << result.problems.front();
    ASSERT_EQ(result.lines.size(), 2u);
    EXPECT_EQ(result.lines[1].text.substr(0, 60), "0 process status=00000007 width=dddddddd height=dddddddd typ");
    EXPECT_EQ(result.lines[1].buffer.front(), 0xA5);
    EXPECT_EQ(result.lines[1].buffer.back(), 1);
}

TEST(ReplayHost, NoticesAWriteInFrontOfThePicture) {
    EXPECT_EQ(ReplayStandIn({.write_before_picture = true}).problems.size(), 1u);
}

TEST(ReplayHost, NoticesALeak) {
    EXPECT_EQ(ReplayStandIn({.leak = true}).problems.size(), 1u);
}

TEST(ReplayHost, NoticesAWriteBehindAnAllocation) {
    EXPECT_EQ(ReplayStandIn({.overrun_allocation = true}).problems.size(), 1u);
}

TEST(ReplayHost, FindsNoEscapesOfAGoodDecoder) {
    EXPECT_TRUE(FindEscapesOfStandIn({}, Flush::kLeft).empty());
    EXPECT_TRUE(FindEscapesOfStandIn({}, Flush::kRight).empty());
}

// On the side that does not touch the page the canary tells, after each of the two chunks.
TEST(ReplayHost, NoticesAWriteOneByteBehindTheCurrentSize) {
    EXPECT_EQ(FindEscapesOfStandIn({.write_behind_current_size = true}, Flush::kLeft).size(), 2u);
}

TEST(ReplayHost, NoticesAWriteOneByteBeforeTheCurrentSize) {
    EXPECT_EQ(FindEscapesOfStandIn({.write_before_current_size = true}, Flush::kRight).size(), 2u);
}

TEST(ReplayHost, NoticesSamplesThatDependOnWhatLiesBehindTheCurrentSize) {
    EXPECT_EQ(FindEscapesOfStandIn({.depend_on_what_lies_behind = true}, Flush::kLeft).size(), 2u);
}

TEST(ReplayHost, NoticesWritesAroundAnAllocation) {
    EXPECT_EQ(FindEscapesOfStandIn({.overrun_allocation = true}, Flush::kLeft).size(), 1u);
    EXPECT_EQ(FindEscapesOfStandIn({.underrun_allocation = true}, Flush::kRight).size(), 1u);
}

TEST(ReplayHost, NoticesAnInstanceThatOutgrowsItsOpenSize) {
    ReplayResult replay;
    replay.lines.push_back({"", std::vector<uint8_t>(156), 0, 0, false, 157});
    EXPECT_EQ(FindEscapes({}, {}, replay, Flush::kLeft).size(), 1u);
}

#ifndef MP4VDEC_TEST_SANITIZED
// The page ends the run at the first chunk: a fault, and a result less.
TEST(ReplayHost, FaultsAtTheFirstByteBehindTheCurrentSize) {
    EXPECT_EQ(FindEscapesOfStandIn({.write_behind_current_size = true}, Flush::kRight).size(), 2u);
    EXPECT_EQ(FindEscapesOfStandIn({.depend_on_what_lies_behind = true}, Flush::kRight).size(), 2u);
}

TEST(ReplayHost, FaultsAtTheByteBeforeTheCurrentSize) {
    EXPECT_EQ(FindEscapesOfStandIn({.write_before_current_size = true}, Flush::kLeft).size(), 2u);
}

TEST(ReplayHost, FaultsAtTheByteBeforeAnAllocationAndAChunk) {
    EXPECT_EQ(FindEscapesOfStandIn({.underrun_allocation = true}, Flush::kLeft).size(), 2u);
    EXPECT_EQ(FindEscapesOfStandIn({.read_before_chunk = true}, Flush::kLeft).size(), 2u);
}

TEST(ReplayHost, NoticesAReadBehindTheChunksTail) {
    EXPECT_EQ(ReplayStandIn({.read_behind_tail = true}).problems.size(), 1u);
}

TEST(ReplayHost, NoticesAWriteBehindThePicture) {
    EXPECT_EQ(ReplayStandIn({.write_behind_picture = true}).problems.size(), 1u);
}

TEST(ReplayHost, NoticesAWriteIntoTheChunk) {
    EXPECT_EQ(ReplayStandIn({.write_chunk = true}).problems.size(), 1u);
}
#endif

}  // namespace
}  // namespace mp4v::test
