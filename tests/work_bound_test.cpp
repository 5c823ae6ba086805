// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

// The work that a chunk can cause is bounded by its length and the size of the picture. Counted in words that the
// reader fetches, kernel calls, and bytes that kernels fill and copy; never in seconds.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <functional>
#include <initializer_list>
#include <random>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

#include "common/context.h"
#include "common/kernels.h"
#include "support/bit_writer.h"
#include "support/headers_writer.h"
#include "support/linked_decoder.h"
#include "support/test_decoder.h"
#include "vector_replay.h"

namespace mp4v::test {
namespace {

namespace fs = std::filesystem;

// ---- Bounds

// Words fetched beyond those of the chunk. The reader notices its end at the first step into another word that has
// touched a byte behind it, so without an error it stands in word length / 4 at most. The loops over headers and
// macroblocks look at the error before each further turn; what one last turn consumes from there on:
// - User data have no look at it, but end after 129 bytes: 31 bits (of that word) + 32 (start code) + 129 * 8 = 34
//   words.
// - Everything behind the 8 bytes of padding reads as 0. There a VOL header has no matrices and takes less than 230
//   bits, a VOP header less than 110, a macroblock at most four vectors of 2 * (13 + 6) bits: motion codes are the only
//   ones that go on with zeros. All of these end within 31 + 32 + 64 + 110 + 230 bits = 14 words.
constexpr uint64_t kWordsBeyond = 34;

// Kernel calls for one macroblock, at most: 10 predict (four vectors in quarter samples, two passes each, and two
// chroma blocks), 4 find medians, 6 dequantise, 13 transform and add (all blocks at once, through two kernels for
// each), 1 clears predictors, 3 copy out, 12 filter edges, 13 transpose for that.
constexpr uint64_t kCallsPerMb = 10 + 4 + 6 + 13 + 1 + 3 + 12 + 13;
// The reference gets its borders before a P-VOP: two fills for each luma and chroma line, 64 per macroblock row; 128
// copies for the rows above and below.
constexpr uint64_t kCallsPerMbRow = 64;
constexpr uint64_t kCallsPerPicture = 128 + 1;  // and ClearMMX

// 96 bytes of predictors for each macroblock; the borders: 32 samples on each side of 16 luma lines, 16 of 8 lines of
// each chroma plane; 64 copied luma lines, 32 of each chroma plane.
uint64_t BytesBound(uint64_t columns, uint64_t rows) {
    return 96 * columns * rows + 2 * (16 * 32 + 2 * 8 * 16) * rows + (64 + 32) * (16 * columns + 64);
}

// ---- Counting

uint64_t g_calls;
uint64_t g_bytes;

template <typename Kernel>
struct Caller;

template <typename Result, typename... Args>
struct Caller<Result (*)(Args...)> {
    template <Result (*&kKernel)(Args...)>
    struct Of {
        static inline Result (*portable)(Args...) = nullptr;

        static Result Call(Args... args) {
            g_calls++;
            using Kernel = Result (*)(Args...);
            if constexpr (std::is_same_v<Kernel, Mp4vMemSet*> || std::is_same_v<Kernel, Mp4vMemCopy*>) {
                g_bytes += std::get<2>(std::tuple(args...));
            }
            return portable(args...);
        }
    };
};

// Counts the calls of all of them while it lives.
template <auto&... kKernels>
class CountCalls {
  public:
    static constexpr size_t kCount = sizeof...(kKernels);

    CountCalls() { (Install<kKernels>(), ...); }
    ~CountCalls() { (Remove<kKernels>(), ...); }
    CountCalls(const CountCalls&) = delete;
    CountCalls& operator=(const CountCalls&) = delete;

  private:
    template <auto& kKernel>
    using CounterOf = typename Caller<std::remove_reference_t<decltype(kKernel)>>::template Of<kKernel>;

    template <auto& kKernel>
    static void Install() {
        CounterOf<kKernel>::portable = kKernel;
        kKernel = CounterOf<kKernel>::Call;
    }
    template <auto& kKernel>
    static void Remove() {
        kKernel = CounterOf<kKernel>::portable;
    }
};

using CountAllCalls =
    CountCalls<Interpolate16x16H, Interpolate16x16V, Interpolate16x16HV, Interpolate8x8H, Interpolate8x8V,
               Interpolate8x8HV, Interpolate8x4H, Interpolate8x4V, Interpolate8x4HV, MemCopy16x16, MemCopy8x8,
               MemCopy8x4, MemCopyStride16x16, MemCopyStride16x8, MemCopyStride8x8, MemCopyStride8x4, MemSet, MemSet16,
               MemSetAlign16, MemCopy8, MemCopyAlign16, McCopy16to8, McAdd16to8, HorzPass16, HorzPassAvg16,
               HorzPassAvgUp16, HorzPass8, HorzPassAvg8, HorzPassAvgUp8, VertPass16, VertPassAvg16, VertPassAvgUp16,
               VertPass8, VertPassAvg8, VertPassAvgUp8, DequantH263Intra, DequantMpegIntra, DequantH263Inter,
               DequantMpegInter, Idct8x8, AddIdct8x8, AddIdct8x8Multi, GetMedian, VopOutput, Deblock8x8Horiz,
               Mp4vDecTranspose8x8, Mp4vDecTranspose16x16, DeInterlaceFrameMB, DeInterlaceFieldMB, ClearMMX>;
static_assert(CountAllCalls::kCount == 50, "all kernels of the table");

// What a call left behind.
struct Measure {
    uint64_t words;  // fetched
    uint64_t chunk_bytes;
    uint64_t calls;
    uint64_t bytes;  // filled and copied by kernels
    uint64_t columns;
    uint64_t rows;  // of macroblocks
    uint64_t condemned;
    uint64_t records;  // of macroblocks, in the allocation
};
std::vector<Measure> g_measures;

void Take(const void* handle, uint32_t* width, uint32_t* height) {
    CurrentSize(handle, width, height);
    const auto* const ctx = static_cast<const Mp4vDecCtx*>(handle);
    const BsReader& bs = ctx->tBs;
    if (bs.pu8BufStart != nullptr) {
        const auto fetched = reinterpret_cast<uintptr_t>(bs.pu32ReadPtr) - reinterpret_cast<uintptr_t>(bs.pu8BufStart);
        g_measures.push_back({(fetched - 8) / 4, bs.u32BufLen, g_calls, g_bytes, ctx->u32MbWidth, ctx->u32MbHeight,
                              uint64_t{ctx->u32ClearBefore} + ctx->u32ClearFrom,
                              uint64_t{(ctx->u32OpenWidth + 15) / 16 + 1} * ((ctx->u32OpenHeight + 15) / 16 + 1)});
    }
    g_calls = 0;
    g_bytes = 0;
}

std::vector<Measure> MeasuresOf(const VectorCase& vector) {
    g_measures.clear();
    const ReplayResult result = Replay({ptVidDec_MPEG4->ptFuncs, Mp4vPreDecBs, Take}, vector);
    EXPECT_TRUE(result.problems.empty()) << result.problems.front();
    return std::move(g_measures);
}

// ---- Chunks

std::vector<VectorCase> RecordedCases() {
    std::vector<VectorCase> cases;
    for (const auto& entry : fs::recursive_directory_iterator(MP4VDEC_TEST_DATA_DIR "/vectors")) {
        VectorCase vector;
        std::string error;
        if (entry.path().extension() == ".case" && ParseCase(ReadFile(entry.path().string()), &vector, &error)) {
            cases.push_back(std::move(vector));
        }
    }
    return cases;
}

VolHeader LayerOf(uint32_t width, uint32_t height) {
    VolHeader vol;
    vol.width = width;
    vol.height = height;
    return vol;
}

VectorChunk ChunkOf(std::vector<uint8_t> bytes, uint8_t tail = 0) {
    VectorChunk chunk;
    chunk.data = std::move(bytes);
    chunk.tail.fill(tail);
    return chunk;
}

VectorChunk ChunkOf(const BitWriter& bits, uint8_t tail = 0) {
    return ChunkOf(bits.Bytes(), tail);
}

BitWriter Repeat(size_t times, const std::function<void(BitWriter&)>& put) {
    BitWriter out;
    while (times--) put(out);
    return out;
}

// A VOL header, a VOP header, and the same digits again and again.
BitWriter VopOf(const VolHeader& vol, uint32_t coding_type, const char* digits, size_t times) {
    BitWriter out;
    vol.PutTo(out);
    VopHeader vop;
    vop.coding_type = coding_type;
    vop.PutTo(out, vol);
    while (times--) out.Bits(digits);
    return out;
}

// The headers have to be good for the macroblocks to be reached.
std::vector<VectorChunk> HostileChunks(uint32_t width, uint32_t height) {
    const VolHeader vol = LayerOf(width, height);
    std::vector<VectorChunk> chunks;
    chunks.push_back(ChunkOf(FlatIntra(vol, {50, 60, 70})));
    for (const size_t length : std::initializer_list<size_t>{1, 2, 3, 4, 5, 7, 8, 1000}) {
        for (const uint8_t byte : std::initializer_list<uint8_t>{0x00, 0x01, 0xB6, 0xFF}) {
            chunks.push_back(ChunkOf(std::vector<uint8_t>(length, byte)));
            chunks.push_back(ChunkOf(std::vector<uint8_t>(length, byte), 0xFF));
        }
    }
    // Macroblocks: none, without an end, of nothing but stuffing, as short as can be, as long as can be.
    for (const uint32_t type : {0u, 1u}) {
        for (const char* digits : {"", "0", "1", "000000001", "0000000001", "01", "00010", "00111"}) {
            for (const size_t times : std::initializer_list<size_t>{1, 32, 700}) {
                chunks.push_back(ChunkOf(VopOf(vol, type, digits, times)));
                chunks.push_back(ChunkOf(VopOf(vol, type, digits, times), 0xFF));
            }
        }
    }
    // Headers without an end.
    for (const size_t times : std::initializer_list<size_t>{1, 2, 300}) {
        chunks.push_back(ChunkOf(Repeat(times, [&](BitWriter& out) {
            LayerOf(16, 16).PutTo(out);
            vol.PutTo(out);
        })));
        chunks.push_back(ChunkOf(Repeat(times, [](BitWriter& out) { PutStartCode(out, 0xB0); })));
        chunks.push_back(ChunkOf(Repeat(times, [](BitWriter& out) { PutStartCode(out, 0x20); })));
        chunks.push_back(ChunkOf(Repeat(times, [](BitWriter& out) { PutGroupOfVop(out); })));
        chunks.push_back(ChunkOf(Repeat(times, [](BitWriter& out) { VisualObjectHeader{}.PutTo(out); })));
        chunks.push_back(ChunkOf(Repeat(times, [](BitWriter& out) { PutUserData(out, ""); })));
        chunks.push_back(ChunkOf(Repeat(times, [](BitWriter& out) { PutUserData(out, "abc"); })));
        chunks.push_back(ChunkOf(Repeat(times, [](BitWriter& out) { PutUserData(out, std::string(20, 'x')); })));
        VolHeader matrices = vol;
        matrices.quant_type = true;
        matrices.intra_matrix = std::vector<uint8_t>(64, 17);
        matrices.inter_matrix = matrices.intra_matrix;
        chunks.push_back(ChunkOf(Repeat(times, [&](BitWriter& out) { matrices.PutTo(out); }), 0xFF));
    }
    for (const size_t length : std::initializer_list<size_t>{127, 128, 129, 5000}) {
        BitWriter out;
        chunks.push_back(ChunkOf(PutUserData(out, std::string(length, 'x'))));
    }
    static constexpr uint8_t kUserDataStart[] = {0, 0, 1, kUserDataCode};
    // A start code of user data at every distance from the end, and behind it.
    for (size_t length = 1; length <= 12; length++) {
        for (size_t start = 0; start <= length; start++) {
            VectorChunk chunk = ChunkOf(std::vector<uint8_t>(length, 0xFF), 0xFF);
            for (size_t i = 0; i < 4; i++) {
                const size_t at = start + i;
                (at < length ? chunk.data[at] : chunk.tail[at - length]) = kUserDataStart[i];
            }
            chunks.push_back(chunk);
        }
    }
    for (const uint32_t ones : {1u, 127u, 128u, 129u, 5000u}) {
        BitWriter out;
        vol.PutTo(out);
        VopHeader vop;
        vop.modulo_time_base = ones;
        vop.PutTo(out, vol);
        chunks.push_back(ChunkOf(out));
        chunks.push_back(ChunkOf(out, 0xFF));
    }
    std::mt19937 generator(1);
    const auto rng = [&] { return static_cast<uint32_t>(generator()); };
    for (int i = 0; i < 300; i++) {
        BitWriter out;
        if (i % 3 != 0) vol.PutTo(out);
        VopHeader vop;
        vop.coding_type = i % 2 ? 1 : 0;
        vop.fcode_forward = rng() % 8;
        if (i % 3 != 0) vop.PutTo(out, vol);
        for (unsigned n = rng() % 200; n > 0; n--) out.Put(rng() & rng() & 0xFF, 8);
        chunks.push_back(ChunkOf(out, static_cast<uint8_t>(rng())));
    }
    return chunks;
}

VectorCase HostileCase(uint32_t width, uint32_t height) {
    VectorCase vector;
    vector.open_width = width;
    vector.open_height = height;
    vector.chunks = HostileChunks(width, height);
    return vector;
}

// Pictures as large as can be, in a few bytes.
VectorCase LargeCase() {
    const VolHeader vol = LayerOf(1920, 1088);
    VectorCase vector;
    vector.open_width = vol.width;
    vector.open_height = vol.height;
    vector.chunks = {ChunkOf(VopOf(vol, 0, "", 1)), ChunkOf(VopOf(vol, 1, "", 1)), ChunkOf(VopOf(vol, 1, "1", 20)),
                     ChunkOf(VopOf(vol, 0, "000000001", 20))};
    return vector;
}

std::vector<VectorCase> AllCases() {
    std::vector<VectorCase> cases = RecordedCases();
    EXPECT_GT(cases.size(), 600u);
    cases.push_back(HostileCase(16, 16));
    cases.push_back(HostileCase(64, 48));
    cases.push_back(LargeCase());
    return cases;
}

std::vector<Measure> MeasureAllCases() {
    std::vector<Measure> all;
    for (const VectorCase& vector : AllCases()) {
        const std::vector<Measure> measures = MeasuresOf(vector);
        all.insert(all.end(), measures.begin(), measures.end());
    }
    return all;
}

// ---- The work. With the kernels of the table the decoder fuses steps, so the reader is looked at without counting.

const std::vector<Measure>& Uncounted() {
    static const std::vector<Measure> measures = MeasureAllCases();
    return measures;
}

const std::vector<Measure>& Counted() {
    static const std::vector<Measure> measures = [] {
        const CountAllCalls count;
        return MeasureAllCases();
    }();
    return measures;
}

TEST(WorkBound, TheReaderStopsShortlyBehindTheChunk) {
    uint64_t furthest = 0;
    for (const Measure& m : Uncounted()) {
        ASSERT_LE(m.words, m.chunk_bytes / 4 + kWordsBeyond) << m.chunk_bytes << " bytes";
        if (m.words > m.chunk_bytes / 4) furthest = std::max(furthest, m.words - m.chunk_bytes / 4);
    }
    EXPECT_EQ(furthest, kWordsBeyond) << "nothing gets there, so the bound is not told from a larger one";
}

TEST(WorkBound, KernelCallsGrowWithThePicture) {
    double fullest = 0;  // of pictures with macroblocks
    for (const Measure& m : Counted()) {
        const uint64_t bound = kCallsPerMb * m.columns * m.rows + kCallsPerMbRow * m.rows + kCallsPerPicture;
        ASSERT_LE(m.calls, bound) << m.columns << " x " << m.rows << " macroblocks";
        if (m.columns * m.rows > 0)
            fullest = std::max(fullest, static_cast<double>(m.calls) / static_cast<double>(bound));
    }
    EXPECT_GT(fullest, 0.75) << "no picture comes near, so the bound says little";
}

TEST(WorkBound, FilledAndCopiedBytesGrowWithThePicture) {
    uint64_t exact = 0;
    for (const Measure& m : Counted()) {
        const uint64_t bound = BytesBound(m.columns, m.rows);
        ASSERT_LE(m.bytes, bound) << m.columns << " x " << m.rows << " macroblocks";
        if (m.columns * m.rows > 0) exact += m.bytes == bound;
    }
    EXPECT_GT(exact, 100u) << "a predicted picture without intra macroblocks fills and copies exactly this much";
}

// A picture of 8160 macroblocks in a few bytes: what is not there is not decoded.
TEST(WorkBound, AVopHeaderAloneDecodesNoPicture) {
    const CountAllCalls count;
    const std::vector<Measure> measures = MeasuresOf(LargeCase());
    ASSERT_EQ(measures.size(), 4u);
    EXPECT_LE(measures[0].calls, 64 * kCallsPerMb);
    EXPECT_LE(measures[3].calls, 64 * kCallsPerMb);
    EXPECT_LE(measures[1].calls, 68 * kCallsPerMbRow + kCallsPerPicture + 64 * kCallsPerMb);
}

// ---- Size changes. Each condemns the macroblock records of its size; they are cleared once, for the next picture.

constexpr uint8_t kPattern = 0xEE;
std::vector<size_t> g_patterned;  // bytes of the records that hold the pattern, after each call

void WatchRecords(const void* handle, uint32_t* width, uint32_t* height) {
    Take(handle, width, height);
    auto* const ctx = static_cast<const Mp4vDecCtx*>(handle);
    const size_t row = (ctx->u32OpenWidth + 15) / 16 + 1;
    const size_t bytes = row * ((ctx->u32OpenHeight + 15) / 16 + 1) * sizeof(MbInfo);
    static uint8_t* first = nullptr;
    if (ctx->tBs.pu8BufStart == nullptr) {
        first = reinterpret_cast<uint8_t*>(ctx->ptMbInfo - row);
        memset(first, kPattern, bytes);
    }
    g_patterned.push_back(static_cast<size_t>(std::count(first, first + bytes, kPattern)));
}

TEST(WorkBound, AFloodOfSizesClearsTheRecordsOnce) {
    VectorCase vector;
    vector.open_width = 64;
    vector.open_height = 48;
    const BitWriter flood = Repeat(500, [](BitWriter& out) {
        LayerOf(16, 16).PutTo(out);
        LayerOf(64, 48).PutTo(out);
    });
    BitWriter picture;
    PutFlatIntraVop(picture, LayerOf(64, 48), {50, 60, 70});
    vector.chunks = {ChunkOf(flood), ChunkOf(flood), ChunkOf(picture)};
    g_measures.clear();
    g_patterned.clear();
    const ReplayResult result = Replay({ptVidDec_MPEG4->ptFuncs, Mp4vPreDecBs, WatchRecords}, vector);
    EXPECT_TRUE(result.problems.empty());

    const size_t records = 5 * 4 * sizeof(MbInfo);
    ASSERT_EQ(g_patterned.size(), 4u);
    EXPECT_EQ(g_patterned[0], records);
    EXPECT_EQ(g_patterned[1], records) << "headers alone clear nothing";
    EXPECT_EQ(g_patterned[2], records);
    EXPECT_LT(g_patterned[3], records / 100);
    ASSERT_EQ(g_measures.size(), 3u);
    EXPECT_EQ(g_measures[0].condemned, 20u) << "as many as there are, however many headers";
    EXPECT_EQ(g_measures[1].condemned, 20u);
    EXPECT_EQ(g_measures[2].condemned, 0u);
    EXPECT_TRUE(result.lines[3].delivered);
}

TEST(WorkBound, NoMoreRecordsAreCondemnedThanThereAre) {
    for (const Measure& m : Uncounted()) ASSERT_LE(m.condemned, m.records);
}

}  // namespace
}  // namespace mp4v::test
