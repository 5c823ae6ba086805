// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

// How the cost grows with the picture and with the number of decoders: the same kind of content in sizes from 176 x 144
// to 1920 x 1088, and two decoders in threads of their own. "macroblocks/s" should be the same for all sizes, and twice
// as much for two decoders on two processors.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <vector>

#include "host/memory.h"
#include "mp4vdec.h"
#include "support/random.h"
#include "support/small_stream.h"

namespace mp4v {
namespace {

using test::BitWriter;
using test::Bytes;
using test::Random;

constexpr int kPredictedPictures = 11;

void PutLevels(BitWriter& out, Random& random) {  // ISO/IEC 14496-2 table B-17: two levels of 1 and the last
    for (int i = 0; i < 2; i++) out.Bits(random.Chance(2) ? "10" : "110").Put(random.Below(2), 1);
    out.Bits("0111").Put(random.Below(2), 1);
}

// Light content: a third not coded, a third moved, a third moved and with coefficients in all luma blocks. Dense
// content: all of the last kind.
void PutPredictedPicture(BitWriter& out, const test::VolHeader& vol, bool dense, Random& random) {
    test::VopHeader vop;
    vop.coding_type = 1;
    vop.PutTo(out, vol);
    for (uint32_t i = 0; i < test::Macroblocks(vol); i++) {
        const uint32_t kind = dense ? 2 : random.Below(3);
        out.Put(kind == 0, 1);  // not_coded
        if (kind == 0) continue;
        out.Bits("1").Bits(kind == 1 ? "11" : "0011");  // mcbpc, cbpy
        for (int component = 0; component < 2; component++) {
            out.Bits(random.Chance(2) ? "1" : random.Chance(2) ? "010" : "011");  // 0, 1, -1
        }
        for (int block = 0; kind == 2 && block < 4; block++) PutLevels(out, random);
    }
    test::PutStuffing(out);
}

std::vector<Bytes> WriteStream(uint32_t width, uint32_t height, bool dense) {
    const test::VolHeader vol = test::LayerOf(width, height);
    Random random(1);
    std::vector<Bytes> chunks;
    BitWriter first;
    test::PutLayer(first, vol);
    test::PutIntraPicture(first, vol, {}, [&] { return random.Between(-4, 4); });
    chunks.push_back(test::WithPadding(first.Bytes()));
    for (int i = 0; i < kPredictedPictures; i++) {
        BitWriter picture;
        PutPredictedPicture(picture, vol, dense, random);
        chunks.push_back(test::WithPadding(picture.Bytes()));
    }
    return chunks;
}

void Decode(benchmark::State& state) {
    const auto width = static_cast<uint32_t>(state.range(0));
    const auto height = static_cast<uint32_t>(state.range(1));
    const std::vector<Bytes> chunks = WriteStream(width, height, state.range(2) != 0);
    const VidDecFuncs& functions = *ptVidDec_MPEG4->ptFuncs;
    MemoryService memory;
    Mp4vDecOpenParams params{};
    params.u32Width = width;
    params.u32Height = height;
    void* decoder = nullptr;
    if (functions.pfOpen(&decoder, &params, &memory) != MP4VDEC_OK) std::abort();
    Bytes picture(size_t{width} * height * 3 / 2);

    for (auto _ : state) {
        for (const Bytes& chunk : chunks) {
            Mp4vDecInArgs in{};
            in.pu8Buf = chunk.data();
            in.u32BufLen = static_cast<uint32_t>(chunk.size() - MP4VDEC_CHUNK_PADDING);
            in.u32CtrlFlags = 3;
            Mp4vDecOutArgs out{};
            out.pu8Dst = picture.data();
            if (functions.pfProcess(decoder, &in, &out) != MP4VDEC_OK) std::abort();
        }
    }
    functions.pfClose(decoder);
    using benchmark::Counter;
    const double pictures = static_cast<double>(state.iterations()) * (1 + kPredictedPictures);
    state.counters["pictures/s"] = Counter(pictures, Counter::kIsRate);
    const auto macroblocks = static_cast<double>(test::Macroblocks(test::LayerOf(width, height)));
    state.counters["macroblocks/s"] = Counter(pictures * macroblocks, Counter::kIsRate);
}
void Sizes(benchmark::internal::Benchmark* benchmark) {
    for (const int dense : {0, 1}) {
        benchmark->Args({176, 144, dense});
        benchmark->Args({352, 288, dense});
        benchmark->Args({640, 480, dense});
        benchmark->Args({1280, 720, dense});
        benchmark->Args({1920, 1088, dense});
    }
}
BENCHMARK(Decode)->ArgNames({"width", "height", "dense"})->Apply(Sizes)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(Decode)
    ->ArgNames({"width", "height", "dense"})
    ->Args({640, 480, 0})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->ThreadRange(1, 2);

}  // namespace
}  // namespace mp4v

BENCHMARK_MAIN();
