// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

// A host program may define kernel variables of its own: the shared library then uses those. Functions are another
// matter: the library always calls its own.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

#include "common/kernels.h"
#include "vector_replay.h"

namespace {
int g_transforms;
int g_pictures;

void CountingTransform(int16_t* block) {
    g_transforms++;
    Mp4vDecIdct8x8_c(block);
}

int32_t CountingClear(int32_t value) {
    g_pictures++;
    return value;
}
}  // namespace

extern "C" {
decltype(Idct8x8) Idct8x8 = CountingTransform;
decltype(ClearMMX) ClearMMX = CountingClear;

// A function with the name of one of the library's.
int g_stolen_calls;
MP4VDEC_API uint32_t IVopDecode() {
    g_stolen_calls++;
    return 0;
}

// Two definitions of a variable are the very point here.
const char* __asan_default_options() {
    return "detect_odr_violation=0";
}
}

namespace mp4v::test {
namespace {

std::string FirstIntraCase() {
    std::vector<std::string> paths;
    for (const auto& entry :
         std::filesystem::directory_iterator(std::string(MP4VDEC_TEST_DATA_DIR) + "/vectors/intra")) {
        if (entry.path().extension() == ".case") {
            paths.push_back(entry.path().string());
        }
    }
    return paths.empty() ? "" : *std::min_element(paths.begin(), paths.end());
}

TEST(Interposition, TheProgramsVariablesReplaceTheLibrarysAndItsFunctionsDoNot) {
    const std::string path = FirstIntraCase();
    VectorCase vector;
    std::string error;
    ASSERT_TRUE(ParseCase(ReadFile(path), &vector, &error)) << error;
    const std::vector<std::string> expected = ReadLines(path.substr(0, path.size() - 4) + "expect");

    const ReplayResult result = Replay({ptVidDec_MPEG4->ptFuncs, Mp4vPreDecBs}, vector);
    EXPECT_EQ(Compare(result, expected), "");
    EXPECT_GT(g_transforms, 0);
    EXPECT_EQ(g_stolen_calls, 0);

    const auto delivered =
        std::count_if(result.lines.begin(), result.lines.end(), [](const ReplayLine& line) { return line.delivered; });
    EXPECT_GT(delivered, 0);
    EXPECT_EQ(g_pictures, delivered);
}

}  // namespace
}  // namespace mp4v::test
