// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

// The decoder takes blocks from levels to samples at once while the kernel table holds the portable kernels. Here every
// recorded session is played both ways.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "common/kernels.h"
#include "vector_replay.h"

namespace mp4v::test {
namespace {

namespace fs = std::filesystem;

unsigned g_calls = 0;

void OtherIdct(int16_t* block) {
    g_calls++;
    Mp4vDecIdct8x8_c(block);
}
void OtherMulti(Mp4vMbScratch* mb, int16_t* blocks, uint32_t cbp, int32_t row_offset, int32_t luma_pitch,
                int32_t chroma_pitch) {
    g_calls++;
    Mp4DecAddiDCT8x8Multi_c(mb, blocks, cbp, row_offset, luma_pitch, chroma_pitch);
}
void OtherMcCopy(uint8_t* dst, const int16_t* block, int32_t pitch) {
    g_calls++;
    McCopy16to8_c(dst, block, pitch);
}
void OtherH263Intra(int16_t* dst, const int16_t* src, uint32_t quant, uint32_t scaler) {
    g_calls++;
    DequantH263Intra_c(dst, src, quant, scaler);
}
void OtherH263Inter(int16_t* dst, const int16_t* src, uint16_t quant) {
    g_calls++;
    DequantH263Inter_c(dst, src, quant);
}
void OtherMpegIntra(int16_t* dst, const int16_t* src, uint32_t quant, uint32_t scaler) {
    g_calls++;
    DequantMpegIntra_c(dst, src, quant, scaler);
}
void OtherMpegInter(int16_t* dst, const int16_t* src, uint32_t quant) {
    g_calls++;
    DequantMpegInter_c(dst, src, quant);
}

std::vector<VectorCase> AllCases() {
    std::vector<VectorCase> cases;
    for (const auto& entry : fs::recursive_directory_iterator(std::string(MP4VDEC_TEST_DATA_DIR) + "/vectors")) {
        VectorCase vector;
        std::string error;
        if (entry.path().extension() == ".case" && ParseCase(ReadFile(entry.path().string()), &vector, &error))
            cases.push_back(std::move(vector));
    }
    return cases;
}

std::vector<std::vector<std::string>> PlayAll(const std::vector<VectorCase>& cases) {
    std::vector<std::vector<std::string>> all;
    for (const VectorCase& vector : cases) {
        const ReplayResult result = Replay({ptVidDec_MPEG4->ptFuncs, Mp4vPreDecBs}, vector);
        std::vector<std::string>& lines = all.emplace_back(result.problems);
        for (const ReplayLine& line : result.lines) {
            lines.push_back(line.text);
            lines.emplace_back(line.buffer.begin(), line.buffer.end());
        }
    }
    return all;
}

// Plays everything with one variable replaced.
template <typename T>
void ExpectTheSameWith(T& variable, T other) {
    static const std::vector<VectorCase> cases = AllCases();
    static const std::vector<std::vector<std::string>> portable = PlayAll(cases);
    ASSERT_FALSE(cases.empty());
    const T before = variable;
    variable = other;
    g_calls = 0;
    const std::vector<std::vector<std::string>> replaced = PlayAll(cases);
    variable = before;
    EXPECT_GT(g_calls, 1000u);
    ASSERT_EQ(portable.size(), replaced.size());
    for (size_t i = 0; i < portable.size(); i++) EXPECT_TRUE(portable[i] == replaced[i]) << "case " << i;
}

TEST(ReplacedKernels, GiveTheSameWithAnotherTransform) {
    ExpectTheSameWith<decltype(Idct8x8)>(Idct8x8, OtherIdct);
}

TEST(ReplacedKernels, GiveTheSameWithAnotherAddition) {
    ExpectTheSameWith<decltype(AddIdct8x8Multi)>(AddIdct8x8Multi, OtherMulti);
}

TEST(ReplacedKernels, GiveTheSameWithAnotherStore) {
    ExpectTheSameWith<decltype(McCopy16to8)>(McCopy16to8, OtherMcCopy);
}

TEST(ReplacedKernels, GiveTheSameWithAnotherH263IntraMethod) {
    ExpectTheSameWith<decltype(DequantH263Intra)>(DequantH263Intra, OtherH263Intra);
}

TEST(ReplacedKernels, GiveTheSameWithAnotherH263InterMethod) {
    ExpectTheSameWith<decltype(DequantH263Inter)>(DequantH263Inter, OtherH263Inter);
}

TEST(ReplacedKernels, GiveTheSameWithAnotherMpegIntraMethod) {
    ExpectTheSameWith<decltype(DequantMpegIntra)>(DequantMpegIntra, OtherMpegIntra);
}

TEST(ReplacedKernels, GiveTheSameWithAnotherMpegInterMethod) {
    ExpectTheSameWith<decltype(DequantMpegInter)>(DequantMpegInter, OtherMpegInter);
}

}  // namespace
}  // namespace mp4v::test
