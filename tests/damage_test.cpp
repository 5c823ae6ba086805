// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

// Three small streams with every bit flipped in turn, every chunk cut at every length, and every chunk left out. The
// decoder stays inside its buffers, returns what is documented, and decodes the next good intra picture as if nothing
// had happened.
#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <ostream>
#include <string>
#include <vector>

#include "common/context.h"
#include "common/headers.h"
#include "common/kernels.h"
#include "support/linked_decoder.h"
#include "support/test_decoder.h"
#include "vector_replay.h"

namespace mp4v::test {
namespace {

// Of all instances here. Damaged headers may announce any size up to it, and more.
constexpr uint32_t kOpenWidth = 64;
constexpr uint32_t kOpenHeight = 64;

// What the macroblocks and headers of a stream show of its tools.
struct Tools {
    unsigned intra_pictures = 0;
    unsigned predicted_pictures = 0;
    unsigned quarter_sample_pictures = 0;
    unsigned four_vector_mbs = 0;
    unsigned field_predicted_mbs = 0;
    unsigned field_dct_blocks = 0;
};
Tools g_tools;
uint32_t g_stride = 0;

struct Stream {
    const char* name;
    const char* file;
    size_t chunks;
    size_t bytes;  // in all chunks
    bool (*as_intended)(const Tools& tools);

    friend std::ostream& operator<<(std::ostream& out, const Stream& stream) { return out << stream.name; }
};

const Stream kStreams[] = {
    {"intra", "intra/intra-119", 2, 282,
     [](const Tools& tools) { return tools.intra_pictures == 2 && tools.predicted_pictures == 0; }},
    {"inter", "qpel/qpel-138", 7, 260,
     [](const Tools& tools) {
         return tools.predicted_pictures == 4 && tools.quarter_sample_pictures == 7 && tools.four_vector_mbs >= 4;
     }},
    {"interlaced", "interlaced/interlaced-100", 3, 314,
     [](const Tools& tools) {
         return tools.predicted_pictures == 2 && tools.field_predicted_mbs >= 2 && tools.field_dct_blocks >= 8;
     }},
};

VectorCase Load(const Stream& stream) {
    VectorCase vector;
    std::string error;
    EXPECT_TRUE(
        ParseCase(ReadFile(MP4VDEC_TEST_DATA_DIR "/vectors/" + std::string(stream.file) + ".case"), &vector, &error))
        << error;
    vector.open_width = kOpenWidth;
    vector.open_height = kOpenHeight;
    return vector;
}

// ---- The streams are what they are taken for

void CountTools(const void* handle, uint32_t* width, uint32_t* height) {
    CurrentSize(handle, width, height);
    const auto* const ctx = static_cast<const Mp4vDecCtx*>(handle);
    g_stride = ctx->u32LumaStride;
    if (ctx->tBs.pu8BufStart == nullptr) return;  // just opened
    g_tools.intra_pictures += ctx->s16VopCodingType == VOP_I;
    g_tools.predicted_pictures += ctx->s16VopCodingType == VOP_P;
    g_tools.quarter_sample_pictures += ctx->u16QuarterSample == 1;
    if (ctx->s16VopCodingType != VOP_P) return;
    for (uint32_t row = 0; row < ctx->u32MbHeight; row++) {
        for (uint32_t column = 0; column < ctx->u32MbWidth; column++) {
            const MbInfo& mb = ctx->ptMbInfo[row * (ctx->u32MbWidth + 1) + column];
            g_tools.four_vector_mbs += mb.u8MbType == MB_INTER4V;
            g_tools.field_predicted_mbs += mb.u8FieldPred && (mb.u8MbType == MB_INTER || mb.u8MbType == MB_INTER_Q);
        }
    }
}

// Lines of a field are two strides apart.
void CountingStore(uint8_t* dst, const int16_t* block, int32_t pitch) {
    g_tools.field_dct_blocks += pitch == static_cast<int32_t>(2 * g_stride);
    McCopy16to8_c(dst, block, pitch);
}

void CountingAddition(Mp4vMbScratch* mb, int16_t* blocks, uint32_t cbp, int32_t row_offset, int32_t luma_pitch,
                      int32_t chroma_pitch) {
    g_tools.field_dct_blocks += 2 * row_offset == luma_pitch;
    Mp4DecAddiDCT8x8Multi_c(mb, blocks, cbp, row_offset, luma_pitch, chroma_pitch);
}

class Damage : public testing::TestWithParam<Stream> {};

TEST_P(Damage, StartsFromAStreamWithTheToolsInQuestion) {
    const Stream& stream = GetParam();
    const VectorCase vector = Load(stream);
    ASSERT_EQ(vector.chunks.size(), stream.chunks);
    size_t bytes = 0;
    for (const VectorChunk& chunk : vector.chunks) bytes += chunk.data.size();
    EXPECT_EQ(bytes, stream.bytes);

    g_tools = {};
    g_stride = 0;
    const Redirect store(McCopy16to8, &CountingStore);
    const Redirect addition(AddIdct8x8Multi, &CountingAddition);
    const ReplayResult replay = Replay({ptVidDec_MPEG4->ptFuncs, Mp4vPreDecBs, CountTools}, vector);
    EXPECT_TRUE(stream.as_intended(g_tools));
    ASSERT_EQ(replay.lines.size(), stream.chunks + 1);
    for (size_t i = 1; i <= stream.chunks; i++) EXPECT_TRUE(replay.lines[i].delivered) << i;
    // The first chunk alone is good headers and an intra picture of whole macroblocks: no sample of it can come from
    // what the buffer held before.
    EXPECT_NE(replay.lines[1].text.find(" type=1 "), std::string::npos);
    EXPECT_EQ(replay.lines[1].width % 16, 0u);
    EXPECT_EQ(replay.lines[1].height % 16, 0u);
}

// ---- What a run must satisfy

bool IsDocumented(const std::string& text) {
    static constexpr uint32_t kStatuses[] = {
        MP4VDEC_OK,
        ERR_VID_MPEG4DEC_END_VALUE,
        ERR_VID_MPEG4DEC_VOL_NOT_FOUND,
        ERR_VID_MPEG4DEC_UNSUPPORT_VOTYPEID,
        ERR_VID_MPEG4DEC_UNSUPPORT_SHAPE,
        ERR_VID_MPEG4DEC_UNSUPPORT_OBMC,
        ERR_VID_MPEG4DEC_UNSUPPORT_SPRITE,
        ERR_VID_MPEG4DEC_UNSUPPORT_COMPLXES,
        ERR_VID_MPEG4DEC_UNSUPPORT_DP,
        ERR_VID_MPEG4DEC_UNSUPPORT_RRVOP,
        ERR_VID_MPEG4DEC_UNSUPPORT_SCALABLE,
        ERR_VID_MPEG4DEC_UNSUPPORT_VSOTYPE,
        ERR_VID_MPEG4DEC_UNSUPPORT_BFRAME,
        ERR_VID_MPEG4DEC_OVER_MAXSUPPORT_SIZE,
        ERR_VID_MPEG4DEC_OVER_INIT_SIZE,
        ERR_VID_MPEG4DEC_USERDATA,
        ERR_VID_MPEG4DEC_TIMEBASE,
        ERR_VID_MPEG4DEC_BITSTREAM,
        ERR_VID_MPEG4DEC_COEFF,
    };
    const auto status = static_cast<uint32_t>(std::stoul(text.substr(text.find("status=") + 7), nullptr, 16));
    return std::find(std::begin(kStatuses), std::end(kStatuses), status) != std::end(kStatuses);
}

// What the call returned and wrote, without the number of the chunk.
std::string Records(const ReplayLine& line) {
    const size_t start = line.text.find("status=");
    return line.text.substr(start, line.text.find(" buffer=") - start);
}

std::vector<uint8_t> Picture(const ReplayLine& line) {
    return {line.buffer.begin(), line.buffer.begin() + static_cast<ptrdiff_t>(line.picture_bytes)};
}

// The first chunk of this stream and that of another size with other tools, each with what a fresh instance makes
// of it.
struct GoodChunks {
    std::vector<VectorChunk> chunks;
    std::vector<std::string> records;
    std::vector<std::vector<uint8_t>> pictures;

    explicit GoodChunks(const std::string& stream) {
        size_t index = 0;
        while (kStreams[index].name != stream) index++;
        for (const size_t i : {index, (index + 1) % std::size(kStreams)}) {
            VectorCase fresh = Load(kStreams[i]);
            fresh.chunks.resize(1);
            const ReplayResult replay = Replay(kLinkedDecoder, fresh);
            chunks.push_back(fresh.chunks[0]);
            records.push_back(Records(replay.lines.back()));
            pictures.push_back(Picture(replay.lines.back()));
        }
    }
};

// Empty when the stream does no harm and the good chunks behind it decode as ever.
std::string FindHarm(const DecoderApi& api, VectorCase stream, const GoodChunks& good) {
    const size_t first_good = stream.chunks.size() + 1;
    stream.chunks.insert(stream.chunks.end(), good.chunks.begin(), good.chunks.end());
    const ReplayResult replay = Replay(api, stream);
    if (!replay.problems.empty()) return replay.problems.front();
    for (size_t i = 1; i < replay.lines.size(); i++) {
        if (!IsDocumented(replay.lines[i].text)) return "not a documented status: " + replay.lines[i].text;
    }
    for (size_t i = 0; i < good.chunks.size(); i++) {
        const ReplayLine& line = replay.lines[first_good + i];
        if (Records(line) != good.records[i]) return "a good picture is refused: " + line.text;
        if (Picture(line) != good.pictures[i]) return "a good picture has other samples: " + line.text;
    }
    const std::vector<std::string> escapes = FindEscapes(api, stream, replay, Flush::kRight);
    return escapes.empty() ? "" : escapes.front();
}

// ---- Damage

class DamagedStream : public Damage {
  protected:
    void Try(const VectorCase& damaged) {
        runs_++;
        harm_ = FindHarm(kLinkedDecoder, damaged, good_);
    }

    const VectorCase whole_ = Load(GetParam());
    const GoodChunks good_{GetParam().name};
    size_t runs_ = 0;
    std::string harm_;
};

TEST_P(DamagedStream, DoesNoHarmWithAnyBitFlipped) {
    for (size_t number = 0; number < whole_.chunks.size(); number++) {
        VectorCase damaged = whole_;
        std::vector<uint8_t>& data = damaged.chunks[number].data;
        for (size_t bit = 0; bit < data.size() * 8; bit++) {
            data[bit / 8] ^= static_cast<uint8_t>(0x80 >> bit % 8);
            Try(damaged);
            ASSERT_EQ(harm_, "") << "chunk " << number << ", bit " << bit;
            data[bit / 8] ^= static_cast<uint8_t>(0x80 >> bit % 8);
        }
    }
    EXPECT_EQ(runs_, 8 * GetParam().bytes);
}

// What follows in memory is first the rest of the chunk, as when a host gets a length wrong, then its own tail.
TEST_P(DamagedStream, DoesNoHarmCutAtAnyLength) {
    for (size_t number = 0; number < whole_.chunks.size(); number++) {
        const VectorChunk& chunk = whole_.chunks[number];
        std::vector<uint8_t> memory = chunk.data;
        memory.insert(memory.end(), chunk.tail.begin(), chunk.tail.end());
        for (size_t length = 0; length < chunk.data.size(); length++) {
            VectorCase damaged = whole_;
            damaged.chunks[number].data.resize(length);
            std::copy_n(memory.begin() + static_cast<ptrdiff_t>(length), chunk.tail.size(),
                        damaged.chunks[number].tail.begin());
            Try(damaged);
            ASSERT_EQ(harm_, "") << "chunk " << number << ", length " << length;
        }
    }
    EXPECT_EQ(runs_, GetParam().bytes);
}

TEST_P(DamagedStream, DoesNoHarmWithAnyChunkLeftOut) {
    for (size_t number = 0; number < whole_.chunks.size(); number++) {
        VectorCase damaged = whole_;
        damaged.chunks.erase(damaged.chunks.begin() + static_cast<ptrdiff_t>(number));
        Try(damaged);
        ASSERT_EQ(harm_, "") << "without chunk " << number;
    }
    EXPECT_EQ(runs_, GetParam().chunks);
}

const auto kNameOf = [](const auto& test) { return std::string(test.param.name); };
INSTANTIATE_TEST_SUITE_P(Streams, Damage, testing::ValuesIn(kStreams), kNameOf);
INSTANTIATE_TEST_SUITE_P(Streams, DamagedStream, testing::ValuesIn(kStreams), kNameOf);

// ---- The search itself must find harm. Decoders that are all right until a chunk has failed:

bool g_failed = false;

uint32_t ForgettingProcess(void* handle, const Mp4vDecInArgs* in, Mp4vDecOutArgs* out) {
    const uint32_t status = Mp4vDecoderProcess(handle, in, out);
    if (g_failed) return ERR_VID_MPEG4DEC_VOL_NOT_FOUND;
    g_failed = status != MP4VDEC_OK;
    return status;
}

uint32_t SmearingProcess(void* handle, const Mp4vDecInArgs* in, Mp4vDecOutArgs* out) {
    const uint32_t status = Mp4vDecoderProcess(handle, in, out);
    if (g_failed && status == MP4VDEC_OK) out->pu8Dst[out->u32Width * out->u32Height * 3 / 2 - 1]++;
    g_failed = g_failed || status != MP4VDEC_OK;
    return status;
}

uint32_t InventingProcess(void* handle, const Mp4vDecInArgs* in, Mp4vDecOutArgs* out) {
    const uint32_t status = Mp4vDecoderProcess(handle, in, out);
    return status == MP4VDEC_OK ? status : ERR_VID_MPEG4DEC_UNSUPPORT_RES;
}

std::string HarmOf(uint32_t (*process)(void*, const Mp4vDecInArgs*, Mp4vDecOutArgs*)) {
    VidDecFuncs functions = *ptVidDec_MPEG4->ptFuncs;
    functions.pfProcess = process;
    VectorCase stream = Load(kStreams[0]);
    stream.chunks[1].data.resize(0);
    g_failed = false;
    return FindHarm({&functions, Mp4vPreDecBs, CurrentSize}, stream, GoodChunks(kStreams[0].name));
}

TEST(HarmSearch, FindsADecoderThatDoesNotRecover) {
    EXPECT_EQ(HarmOf(Mp4vDecoderProcess), "");
    EXPECT_TRUE(HarmOf(ForgettingProcess).starts_with("a good picture is refused"));
    EXPECT_TRUE(HarmOf(SmearingProcess).starts_with("a good picture has other samples"));
    EXPECT_TRUE(HarmOf(InventingProcess).starts_with("not a documented status"));
}

}  // namespace
}  // namespace mp4v::test
