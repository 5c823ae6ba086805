// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

// Whole streams, decoded with output through the entry points: nanoseconds and bytes per macroblock, pictures per
// second.
//
//   stream_bench [options of Google Benchmark] [--deblock-threshold=10|30] [STREAM ...]
//   stream_bench --repeat=K STREAM
//
// Without streams it takes those of the test suite. The second form decodes the stream K times and nothing else, for
// tools that count instructions: the difference between 2K and K repetitions is free of start-up.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "host/memory.h"
#include "host/splitter.h"
#include "host/vol_header.h"
#include "mp4vdec.h"

namespace mp4v {
namespace {

uint32_t g_control_flags = 3;

// A stream cut into padded chunks, with the sizes rounded up to whole macroblocks.
struct Stream {
    std::string name;
    std::vector<std::vector<uint8_t>> chunks;
    uint32_t width = 0;  // of the largest layer
    uint32_t height = 0;
    size_t bytes = 0;
};

bool Load(const std::string& path, Stream& stream) {
    std::ifstream file(path, std::ios::binary);
    const std::vector<uint8_t> bytes{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    if (bytes.empty()) return false;
    stream.name = std::filesystem::path(path).stem().string();
    stream.bytes = bytes.size();
    Splitter splitter;
    splitter.Append(bytes);
    splitter.Finish();
    for (Chunk chunk; splitter.Next(chunk);) {
        const ChunkHeaders headers = ScanHeaders(chunk.data);
        RoundVolSizes(chunk.data, headers);
        for (const VolHeader& vol : headers.vols) {
            stream.width = std::max(stream.width, RoundUpTo16(vol.width));
            stream.height = std::max(stream.height, RoundUpTo16(vol.height));
        }
        chunk.data.resize(chunk.data.size() + MP4VDEC_CHUNK_PADDING);
        stream.chunks.push_back(std::move(chunk.data));
    }
    return stream.width && stream.height;
}

struct Totals {
    uint64_t pictures = 0;
    uint64_t macroblocks = 0;
};

class Decoder {
  public:
    explicit Decoder(const Stream& stream) : stream_(stream), picture_(size_t{stream.width} * stream.height * 3 / 2) {
        Mp4vDecOpenParams params{};
        params.u32Width = stream.width;
        params.u32Height = stream.height;
        if (functions_.pfOpen(&handle_, &params, &memory_) != MP4VDEC_OK) std::abort();
    }
    ~Decoder() { functions_.pfClose(handle_); }
    Decoder(const Decoder&) = delete;
    Decoder& operator=(const Decoder&) = delete;

    // The whole stream, once.
    Totals Play() {
        Totals totals;
        for (const std::vector<uint8_t>& chunk : stream_.chunks) {
            Mp4vDecInArgs in{};
            in.pu8Buf = chunk.data();
            in.u32BufLen = static_cast<uint32_t>(chunk.size() - MP4VDEC_CHUNK_PADDING);
            in.u32CtrlFlags = g_control_flags;
            Mp4vDecOutArgs out{};
            out.pu8Dst = picture_.data();
            if (functions_.pfProcess(handle_, &in, &out) != MP4VDEC_OK) continue;
            totals.pictures++;
            totals.macroblocks += uint64_t{out.u32Width / 16} * (out.u32Height / 16);
        }
        return totals;
    }

  private:
    const VidDecFuncs& functions_ = *ptVidDec_MPEG4->ptFuncs;
    const Stream& stream_;
    MemoryService memory_;
    std::vector<uint8_t> picture_;
    void* handle_ = nullptr;
};

void DecodeStream(benchmark::State& state, const std::shared_ptr<const Stream>& stream) {
    Decoder decoder(*stream);
    Totals totals;
    for (auto _ : state) {
        const Totals played = decoder.Play();
        totals.pictures += played.pictures;
        totals.macroblocks += played.macroblocks;
    }
    using benchmark::Counter;
    const auto macroblocks = static_cast<double>(totals.macroblocks);
    const double bytes = static_cast<double>(stream->bytes) * static_cast<double>(state.iterations());
    state.counters["pictures/s"] = Counter(static_cast<double>(totals.pictures), Counter::kIsRate);
    state.counters["s/MB"] =
        Counter(macroblocks, Counter::kIsRate | Counter::kInvert);  // printed with its SI prefix: n
    state.counters["bytes/MB"] = macroblocks > 0 ? bytes / macroblocks : 0;
}

std::vector<std::string> TestStreams() {
    std::vector<std::string> paths;
    for (const auto& entry : std::filesystem::directory_iterator(MP4VDEC_STREAM_DIR)) {
        const std::string name = entry.path().filename().string();
        if (name[0] == 'o' && entry.path().extension() == ".m4v") paths.push_back(entry.path().string());
    }
    std::sort(paths.begin(), paths.end());
    return paths;
}

int Repeat(const std::string& path, int times) {
    Stream stream;
    if (!Load(path, stream)) {
        std::cerr << path << ": no stream with a picture size\n";
        return 1;
    }
    Decoder decoder(stream);
    Totals totals;
    for (int i = 0; i < times; i++) totals = decoder.Play();
    std::printf("%llu pictures, %llu macroblocks each time\n", static_cast<unsigned long long>(totals.pictures),
                static_cast<unsigned long long>(totals.macroblocks));
    return 0;
}

int Main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    std::vector<std::string> paths;
    int repeat = 0;
    for (int i = 1; i < argc; i++) {
        const std::string arg = argv[i];
        if (arg.starts_with("--repeat=")) {
            std::from_chars(arg.data() + 9, arg.data() + arg.size(), repeat);
        } else if (arg == "--deblock-threshold=10") {
            g_control_flags = 0;
        } else if (arg == "--deblock-threshold=30") {
            g_control_flags = 3;
        } else if (arg.starts_with("-")) {
            std::cerr << "unknown option: " << arg << "\n";
            return 2;
        } else {
            paths.push_back(arg);
        }
    }
    if (repeat > 0 && paths.size() == 1) return Repeat(paths[0], repeat);
    for (const std::string& path : paths.empty() ? TestStreams() : paths) {
        auto stream = std::make_shared<Stream>();
        if (!Load(path, *stream)) {
            std::cerr << path << ": no stream with a picture size\n";
            return 1;
        }
        benchmark::RegisterBenchmark(("Decode/" + stream->name).c_str(), [stream](benchmark::State& state) {
            DecodeStream(state, stream);
        })->Unit(benchmark::kMillisecond);
    }
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}

}  // namespace
}  // namespace mp4v

int main(int argc, char** argv) {
    return mp4v::Main(argc, argv);
}
