// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

// While the kernel table holds the portable kernels, the decoder takes blocks from levels to samples at once, predicts
// and copies without looking the kernels up, and does several macroblocks together. Here every recorded session is
// played both ways.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "common/kernels.h"
#include "support/sample_block.h"
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

// A portable kernel that counts its calls.
template <auto kPortable>
struct Counted;
template <typename... Args, void (*kPortable)(Args...)>
struct Counted<kPortable> {
    static inline unsigned calls = 0;
    static void Run(Args... args) {
        calls++;
        kPortable(args...);
    }
};

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

const std::vector<VectorCase>& Cases() {
    static const std::vector<VectorCase> cases = AllCases();
    return cases;
}

void ExpectTheSame(const std::vector<std::vector<std::string>>& replaced) {
    static const std::vector<std::vector<std::string>> portable = PlayAll(Cases());
    ASSERT_FALSE(portable.empty());
    ASSERT_EQ(portable.size(), replaced.size());
    for (size_t i = 0; i < portable.size(); i++) EXPECT_TRUE(portable[i] == replaced[i]) << "case " << i;
}

// Plays everything with one variable replaced.
template <typename T>
void ExpectTheSameWith(T& variable, T other) {
    g_calls = 0;
    std::vector<std::vector<std::string>> played;
    {
        const Replace<T> replace(variable, other);
        played = PlayAll(Cases());
    }
    EXPECT_GT(g_calls, 1000u);
    ExpectTheSame(played);
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

// Replaces a variable by its portable kernel, counted.
#define MP4V_COUNTED(Variable, kPortable)                                             \
    const Replace<decltype(Variable)> t##Variable(Variable, Counted<kPortable>::Run); \
    Counted<kPortable>::calls = 0

TEST(ReplacedKernels, GiveTheSameWithOtherHalfSampleKernels) {
    std::vector<std::vector<std::string>> played;
    {
        MP4V_COUNTED(Interpolate16x16H, Interpolate16x16H_c);
        MP4V_COUNTED(Interpolate16x16V, Interpolate16x16V_c);
        MP4V_COUNTED(Interpolate16x16HV, Interpolate16x16HV_c);
        MP4V_COUNTED(Interpolate8x8H, Interpolate8x8H_c);
        MP4V_COUNTED(Interpolate8x8V, Interpolate8x8V_c);
        MP4V_COUNTED(Interpolate8x8HV, Interpolate8x8HV_c);
        MP4V_COUNTED(Interpolate8x4H, Interpolate8x4H_c);
        MP4V_COUNTED(Interpolate8x4V, Interpolate8x4V_c);
        MP4V_COUNTED(Interpolate8x4HV, Interpolate8x4HV_c);
        played = PlayAll(Cases());
    }
    for (const unsigned calls :
         {Counted<Interpolate16x16H_c>::calls, Counted<Interpolate16x16V_c>::calls,
          Counted<Interpolate16x16HV_c>::calls, Counted<Interpolate8x8H_c>::calls, Counted<Interpolate8x8V_c>::calls,
          Counted<Interpolate8x8HV_c>::calls, Counted<Interpolate8x4H_c>::calls, Counted<Interpolate8x4V_c>::calls,
          Counted<Interpolate8x4HV_c>::calls})
        EXPECT_GT(calls, 10u);
    ExpectTheSame(played);
}

TEST(ReplacedKernels, GiveTheSameWithOtherQuarterSampleKernels) {
    std::vector<std::vector<std::string>> played;
    {
        MP4V_COUNTED(HorzPass16, HorzPass16_c);
        MP4V_COUNTED(HorzPassAvg16, HorzPassAvg16_c);
        MP4V_COUNTED(HorzPassAvgUp16, HorzPassAvgUp16_c);
        MP4V_COUNTED(VertPass16, VertPass16_c);
        MP4V_COUNTED(VertPassAvg16, VertPassAvg16_c);
        MP4V_COUNTED(VertPassAvgUp16, VertPassAvgUp16_c);
        MP4V_COUNTED(HorzPass8, HorzPass8_c);
        MP4V_COUNTED(HorzPassAvg8, HorzPassAvg8_c);
        MP4V_COUNTED(HorzPassAvgUp8, HorzPassAvgUp8_c);
        MP4V_COUNTED(VertPass8, VertPass8_c);
        MP4V_COUNTED(VertPassAvg8, VertPassAvg8_c);
        MP4V_COUNTED(VertPassAvgUp8, VertPassAvgUp8_c);
        played = PlayAll(Cases());
    }
    for (const unsigned calls :
         {Counted<HorzPass16_c>::calls, Counted<HorzPassAvg16_c>::calls, Counted<HorzPassAvgUp16_c>::calls,
          Counted<VertPass16_c>::calls, Counted<VertPassAvg16_c>::calls, Counted<VertPassAvgUp16_c>::calls,
          Counted<HorzPass8_c>::calls, Counted<HorzPassAvg8_c>::calls, Counted<HorzPassAvgUp8_c>::calls,
          Counted<VertPass8_c>::calls, Counted<VertPassAvg8_c>::calls, Counted<VertPassAvgUp8_c>::calls})
        EXPECT_GT(calls, 10u);
    ExpectTheSame(played);
}

TEST(ReplacedKernels, GiveTheSameWithOtherCopies) {
    std::vector<std::vector<std::string>> played;
    {
        MP4V_COUNTED(MemCopy16x16, MP4DecMemCopy16x16_c);
        MP4V_COUNTED(MemCopy8x8, MP4DecMemCopy8x8_c);
        MP4V_COUNTED(MemCopy8x4, MP4DecMemCopy8x4_c);
        MP4V_COUNTED(MemCopyStride16x16, MemCopyStride16x16_c);
        MP4V_COUNTED(MemCopyStride8x8, MemCopyStride8x8_c);
        MP4V_COUNTED(MemSet, MP4DecMemSet_c);
        played = PlayAll(Cases());
    }
    for (const unsigned calls :
         {Counted<MP4DecMemCopy16x16_c>::calls, Counted<MP4DecMemCopy8x8_c>::calls, Counted<MP4DecMemCopy8x4_c>::calls,
          Counted<MemCopyStride16x16_c>::calls, Counted<MemCopyStride8x8_c>::calls, Counted<MP4DecMemSet_c>::calls})
        EXPECT_GT(calls, 10u);
    ExpectTheSame(played);
}

TEST(ReplacedKernels, GiveTheSameWithOtherDeblockingKernels) {
    std::vector<std::vector<std::string>> played;
    {
        MP4V_COUNTED(Deblock8x8Horiz, Deblock8x8HorizFast_c);
        MP4V_COUNTED(Mp4vDecTranspose8x8, Mp4vDecTranspose8x8_c);
        MP4V_COUNTED(Mp4vDecTranspose16x16, Mp4vDecTranspose16x16_c);
        played = PlayAll(Cases());
    }
    for (const unsigned calls : {Counted<Deblock8x8HorizFast_c>::calls, Counted<Mp4vDecTranspose8x8_c>::calls,
                                 Counted<Mp4vDecTranspose16x16_c>::calls})
        EXPECT_GT(calls, 10u);
    ExpectTheSame(played);
}

}  // namespace
}  // namespace mp4v::test
