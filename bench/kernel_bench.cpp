// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

// Every kernel on the data it meets while decoding. NAME/portable is the kernel behind the kernel table; NAME/formula,
// where there is one, is its definition written down sample by sample, which shows what the vector form gains.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "common/kernels.h"

namespace mp4v {
namespace {

constexpr int kPitch = 768;  // of a picture 704 samples wide, with its borders
constexpr int kWidth = 704, kHeight = 576;

using Bytes = std::vector<uint8_t>;
using Block = std::array<int16_t, 64>;

Bytes Noise(size_t count, unsigned spread) {
    std::mt19937 rng(1);  // NOLINT(cert-msc32-c,cert-msc51-cpp): every run measures the same
    Bytes bytes(count);
    for (uint8_t& b : bytes) b = uint8_t(128 + rng() % spread);
    return bytes;
}

// Two pictures' worth of rows that every kernel may work on.
struct Pictures {
    Bytes src = Noise(kPitch * 64, 30), dst = Noise(kPitch * 64, 30);
    uint8_t* Src() { return &src[kPitch * 8 + 32 + 3]; }  // vectors point anywhere
    uint8_t* Dst() { return &dst[kPitch * 8 + 32]; }
};

// A block with the given number of coefficients near the start of the zigzag scan.
Block Coefficients(int count) {
    static constexpr int scan[16] = {0, 1, 8, 16, 9, 2, 3, 10, 17, 24, 32, 25, 18, 11, 4, 5};
    Block block{};
    for (int i = 0; i < count; i++) block[size_t(scan[i])] = int16_t((i % 2 ? -1 : 1) * (40 - 2 * i));
    return block;
}

template <typename Call>
void Measure(benchmark::State& state, Call call) {
    for (auto _ : state) {
        call();
        benchmark::ClobberMemory();
    }
}

template <typename Call>
void Add(const std::string& name, Call call) {
    benchmark::RegisterBenchmark(name.c_str(), [call](benchmark::State& state) { Measure(state, call); });
}

Pictures& Shared() {
    static Pictures pictures;
    return pictures;
}

// ---- Definitions

template <int kSize, int kRows, int kRight, int kDown>
void HalfFormula(uint8_t* dst, const uint8_t* src, int32_t pitch, uint32_t rounding) {
    for (int y = 0; y < kRows; y++)
        for (int x = 0; x < kSize; x++) {
            const uint8_t* s = src + y * pitch + x;
            if (kRight && kDown)
                dst[y * pitch + x] = uint8_t((s[0] + s[1] + s[pitch] + s[pitch + 1] + 2u - rounding) >> 2);
            else
                dst[y * pitch + x] = uint8_t((s[0] + s[kRight + kDown * pitch] + 1u - rounding) >> 1);
        }
}

template <int kSize, bool kVertical>
void QpelFormula(uint8_t* dst, const uint8_t* src, int32_t count, int32_t dstPitch, int32_t srcPitch,
                 uint32_t rounding) {
    static constexpr int taps[8] = {-1, 3, -6, 20, 20, -6, 3, -1};
    const int along = kVertical ? srcPitch : 1, across = kVertical ? 1 : srcPitch;
    const int dstAlong = kVertical ? dstPitch : 1, dstAcross = kVertical ? 1 : dstPitch;
    for (int line = 0; line < count; line++)
        for (int i = 0; i < kSize; i++) {
            int sum = 16 - int(rounding);
            for (int t = 0; t < 8; t++) {
                int at = i - 3 + t;
                at = at < 0 ? -1 - at : at > kSize ? 2 * kSize + 1 - at : at;
                sum += taps[t] * src[line * across + at * along];
            }
            dst[line * dstAcross + i * dstAlong] = uint8_t(std::clamp(sum >> 5, 0, 255));
        }
}

void H263Formula(int16_t* dst, const int16_t* src, uint16_t quant) {
    const int offset = quant % 2 ? quant : quant - 1;
    for (int i = 0; i < 64; i++) {
        const int c = src[i];
        dst[i] = int16_t(c == 0  ? 0
                         : c > 0 ? std::min(2 * quant * c + offset, 2047)
                                 : std::max(2 * quant * c - offset, -2048));
    }
}

void AddFormula(uint8_t* dst, const int16_t* block, int32_t pitch) {
    for (int y = 0; y < 8; y++)
        for (int x = 0; x < 8; x++)
            dst[y * pitch + x] = uint8_t(std::clamp<int>(int16_t(dst[y * pitch + x] + block[8 * y + x]), 0, 255));
}

void DeblockFormula(uint8_t* p, int32_t pitch, uint32_t qp) {
    for (int x = 0; x < 8; x++) {
        const int d = p[x] - p[x - pitch];
        if (unsigned(d < 0 ? -d : d) >= 2 * qp) continue;
        for (int row = 0; row < 3; row++) {
            uint8_t& above = p[x - (row + 1) * pitch];
            uint8_t& below = p[x + row * pitch];
            above = uint8_t(std::clamp(above + (d >> (row + 1)), 0, 255));
            below = uint8_t(std::clamp(below - (d >> (row + 1)), 0, 255));
        }
    }
}

void TransposeFormula(uint8_t* dst, int32_t dstPitch, const uint8_t* src, int32_t srcPitch) {
    for (int y = 0; y < 8; y++)
        for (int x = 0; x < 8; x++) dst[y * dstPitch + x] = src[x * srcPitch + y];
}

// ---- Registration

void AddHalfPel(const char* name, Mp4vInterpolate** kernel, Mp4vInterpolate* formula) {
    for (const uint32_t rounding : {0u, 1u}) {
        const std::string suffix = rounding ? "/rounding:1" : "";
        Add(name + ("/portable" + suffix), [=] { (*kernel)(Shared().Dst(), Shared().Src(), kPitch, rounding); });
        Add(name + ("/formula" + suffix), [=] { formula(Shared().Dst(), Shared().Src(), kPitch, rounding); });
    }
}

void AddHalfPels() {
    AddHalfPel("Interpolate16x16H", &Interpolate16x16H, HalfFormula<16, 16, 1, 0>);
    AddHalfPel("Interpolate16x16V", &Interpolate16x16V, HalfFormula<16, 16, 0, 1>);
    AddHalfPel("Interpolate16x16HV", &Interpolate16x16HV, HalfFormula<16, 16, 1, 1>);
    AddHalfPel("Interpolate8x8H", &Interpolate8x8H, HalfFormula<8, 8, 1, 0>);
    AddHalfPel("Interpolate8x8V", &Interpolate8x8V, HalfFormula<8, 8, 0, 1>);
    AddHalfPel("Interpolate8x8HV", &Interpolate8x8HV, HalfFormula<8, 8, 1, 1>);
    AddHalfPel("Interpolate8x4H", &Interpolate8x4H, HalfFormula<8, 4, 1, 0>);
    AddHalfPel("Interpolate8x4V", &Interpolate8x4V, HalfFormula<8, 4, 0, 1>);
    AddHalfPel("Interpolate8x4HV", &Interpolate8x4HV, HalfFormula<8, 4, 1, 1>);
}

void AddCopies() {
    const auto same = [](const char* name, Mp4vMemCopyBlock** kernel) {
        Add(std::string(name) + "/portable", [=] { (*kernel)(Shared().Dst(), Shared().Src(), kPitch); });
    };
    const auto stride = [](const char* name, Mp4vMemCopyStride** kernel) {
        Add(std::string(name) + "/portable", [=] { (*kernel)(Shared().Src(), kPitch, Shared().Dst(), kWidth); });
    };
    same("MemCopy16x16", &MemCopy16x16);
    same("MemCopy8x8", &MemCopy8x8);
    same("MemCopy8x4", &MemCopy8x4);
    stride("MemCopyStride16x16", &MemCopyStride16x16);
    stride("MemCopyStride16x8", &MemCopyStride16x8);
    stride("MemCopyStride8x8", &MemCopyStride8x8);
    stride("MemCopyStride8x4", &MemCopyStride8x4);
    Add("MemSet/portable", [] { MemSet(Shared().Dst(), 7, 32); });
    Add("MemSet16/portable", [] { MemSet16(Shared().Dst(), 7, 16); });
    Add("MemSetAlign16/portable", [] { MemSetAlign16(Shared().Dst(), 7, 32); });
    Add("MemCopy8/portable", [] { MemCopy8(Shared().Dst(), Shared().Src(), kPitch / 2); });
    Add("MemCopyAlign16/portable", [] { MemCopyAlign16(Shared().Dst(), Shared().Src(), kPitch); });

    static const Block residual = Coefficients(16);
    Add("McCopy16to8/portable", [] { McCopy16to8(Shared().Dst(), residual.data(), kPitch); });
    Add("McAdd16to8/portable", [] { McAdd16to8(Shared().Dst(), residual.data(), kPitch); });
    Add("McAdd16to8/formula", [] { AddFormula(Shared().Dst(), residual.data(), kPitch); });
}

void AddQpel(const char* name, Mp4vQpelPass** kernel, int count, Mp4vQpelPass* formula) {
    Add(std::string(name) + "/portable", [=] { (*kernel)(Shared().Dst(), Shared().Src(), count, kPitch, kPitch, 0); });
    if (!formula) return;
    Add(std::string(name) + "/formula", [=] { formula(Shared().Dst(), Shared().Src(), count, kPitch, kPitch, 0); });
}

void AddQpels() {
    AddQpel("HorzPass16", &HorzPass16, 16, QpelFormula<16, false>);
    AddQpel("HorzPassAvg16", &HorzPassAvg16, 16, nullptr);
    AddQpel("HorzPassAvgUp16", &HorzPassAvgUp16, 16, nullptr);
    AddQpel("HorzPass8", &HorzPass8, 8, QpelFormula<8, false>);
    AddQpel("HorzPassAvg8", &HorzPassAvg8, 8, nullptr);
    AddQpel("HorzPassAvgUp8", &HorzPassAvgUp8, 8, nullptr);
    AddQpel("VertPass16", &VertPass16, 16, QpelFormula<16, true>);
    AddQpel("VertPassAvg16", &VertPassAvg16, 16, nullptr);
    AddQpel("VertPassAvgUp16", &VertPassAvgUp16, 16, nullptr);
    AddQpel("VertPass8", &VertPass8, 8, QpelFormula<8, true>);
    AddQpel("VertPassAvg8", &VertPassAvg8, 8, nullptr);
    AddQpel("VertPassAvgUp8", &VertPassAvgUp8, 8, nullptr);
    static uint8_t scratch[144];
    Add("InterpolateQuarterPel8x8/portable",
        [] { InterpolateQuarterPel8x8(Shared().Dst(), Shared().Src(), scratch, 8, 8, 5, 7, kPitch, 0); });
}

void AddDequantisers() {
    static const Block levels = Coefficients(10);
    static Block out;
    Add("DequantH263Intra/portable", [] { DequantH263Intra(out.data(), levels.data(), 8, 16); });
    Add("DequantH263Inter/portable", [] { DequantH263Inter(out.data(), levels.data(), 8); });
    Add("DequantH263Inter/formula", [] { H263Formula(out.data(), levels.data(), 8); });
    Add("DequantMpegIntra/portable", [] { DequantMpegIntra(out.data(), levels.data(), 8, 16); });
    Add("DequantMpegInter/portable", [] { DequantMpegInter(out.data(), levels.data(), 8); });
}

void AddTransforms() {
    static const Block dense = Coefficients(16);
    static Block block;
    Add("Idct8x8/portable", [] {
        block = dense;
        Idct8x8(block.data());
    });
    Add("Idct8x8/simple1", [] {
        block = dense;
        Mp4vDecIdct8x8_simple1_c(block.data());
    });
    Add("AddIdct8x8/portable", [] {
        block = dense;
        AddIdct8x8(block.data(), Shared().Dst(), kPitch);
    });
    Add("AddIdct8x8Multi/portable", [] {
        static Mp4vMbScratch mb;
        mb.pu8DstY = Shared().Dst();
        mb.pu8DstU = mb.pu8DstY + 32;
        mb.pu8DstV = mb.pu8DstY + 64;
        for (int b = 0; b < 6; b++) std::copy(dense.begin(), dense.end(), mb.as16Coef + 64 * b);
        AddIdct8x8Multi(&mb, mb.as16Coef, 63, 8 * kPitch, kPitch, kPitch / 2);
    });
}

void AddPostProcessing() {
    // A fresh edge each time; filtering one again and again would flatten it.
    const auto deblock = [](const char* name, auto filter) {
        Add(name, [=] {
            MemCopy8x8(Shared().Dst(), Shared().Src(), kPitch);
            filter(Shared().Dst() + 4 * kPitch);
        });
    };
    deblock("Deblock8x8Horiz/portable", [](uint8_t* edge) { Deblock8x8Horiz(edge, kPitch, 12); });
    deblock("Deblock8x8Horiz/formula", [](uint8_t* edge) { DeblockFormula(edge, kPitch, 12); });
    Add("Mp4vDecTranspose8x8/portable", [] { Mp4vDecTranspose8x8(Shared().Dst(), 16, Shared().Src(), kPitch); });
    Add("Mp4vDecTranspose8x8/formula", [] { TransposeFormula(Shared().Dst(), 16, Shared().Src(), kPitch); });
    Add("Mp4vDecTranspose16x16/portable", [] { Mp4vDecTranspose16x16(Shared().Dst(), kWidth, Shared().Src(), 16); });
    const auto deinterlace = [](const char* name, Mp4vDeInterlaceMb** kernel, int dstPitch) {
        Add(std::string(name) + "/portable", [=] {
            uint8_t *const s = Shared().Src(), *const d = Shared().Dst();
            (*kernel)(s, s + 32, s + 64, kPitch, d, d + 32, d + 64, dstPitch);
        });
    };
    deinterlace("DeInterlaceFrameMB", &DeInterlaceFrameMB, kPitch);
    deinterlace("DeInterlaceFieldMB", &DeInterlaceFieldMB, 2 * kPitch);
}

void AddOutput() {
    for (const bool deinterlace : {false, true})
        Add(deinterlace ? "VopOutput/portable/deinterlace" : "VopOutput/portable", [=] {
            static const Bytes frame = Noise(kPitch * kHeight * 3 / 2, 200);
            static Bytes out(kWidth * kHeight * 3 / 2);
            const uint8_t* u = frame.data() + kPitch * kHeight;
            VopOutput(frame.data(), u, u + kPitch / 2 * (kHeight / 2), out.data(), kPitch, kWidth, kHeight, 0,
                      deinterlace ? 2 : 0);
        });
}

void AddOthers() {
    Add("GetMedian/portable", [] {
        static const Mp4vMv a{3, -7}, b{-20, 5}, c{11, 0};
        int32_t x = 0, y = 0;
        GetMedian(&a, &b, &c, &x, &y);
        benchmark::DoNotOptimize(x + y);
    });
    Add("ClearMMX/portable", [] { benchmark::DoNotOptimize(ClearMMX(0)); });
}

void AddAll() {
    AddHalfPels();
    AddCopies();
    AddQpels();
    AddDequantisers();
    AddTransforms();
    AddPostProcessing();
    AddOutput();
    AddOthers();
}

}  // namespace
}  // namespace mp4v

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
    mp4v::AddAll();
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
