// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors
#include <gtest/gtest.h>

#include <algorithm>

#include "host/chunk_decoder.h"
#include "host/splitter.h"
#include "host/status.h"
#include "mp4vdec.h"
#include "support/headers_writer.h"
#include "support/random.h"
#include "support/small_stream.h"

namespace mp4v::test {
namespace {

Bytes Layer(const VolHeader& vol) {
    BitWriter out;
    PutLayer(out, vol);
    return out.Bytes();
}

Bytes FlatChunk(const VolHeader& vol, int luma, bool with_layer = true) {
    BitWriter out;
    if (with_layer) PutLayer(out, vol);
    PutFlatPicture(out, vol, luma);
    return out.Bytes();
}

Bytes SkippedChunk(const VolHeader& vol) {
    BitWriter out;
    PutSkippedPicture(out, vol);
    return out.Bytes();
}

Bytes NotCodedChunk(const VolHeader& vol) {
    BitWriter out;
    PutNotCodedPicture(out, vol);
    return out.Bytes();
}

// Every block at another level.
Bytes PatternChunk(const VolHeader& vol, uint32_t seed) {
    BitWriter out;
    PutLayer(out, vol);
    Random random(seed);
    PutIntraPicture(out, vol, {}, [&] { return random.Between(-30, 30); });
    return out.Bytes();
}

void ExpectFlat(const DecodeResult& result, uint32_t width, uint32_t height, int luma) {
    ASSERT_EQ("OK", result.status_name());
    ASSERT_TRUE(result.has_picture);
    EXPECT_EQ(width, result.picture.width);
    EXPECT_EQ(height, result.picture.height);
    EXPECT_EQ(FlatSamples(width, height, luma), result.picture.Pack());
}

TEST(HostChunkDecoder, DecodesIntraPredictedAndNotCodedPictures) {
    const VolHeader vol = LayerOf(48, 32);
    ChunkDecoder session;
    DecodeResult result = session.Decode(FlatChunk(vol, 150), 7, 99);
    ExpectFlat(result, 48, 32, 150);
    EXPECT_EQ(PictureType::kIntra, result.picture.type);
    EXPECT_EQ(7u, result.offset);
    EXPECT_EQ(99u, result.time_stamp);
    result = session.Decode(SkippedChunk(vol));
    ExpectFlat(result, 48, 32, 150);
    EXPECT_EQ(PictureType::kPredicted, result.picture.type);
    for (int i = 0; i < 2; i++) {
        result = session.Decode(NotCodedChunk(vol));
        ExpectFlat(result, 48, 32, 150);
        EXPECT_EQ(PictureType::kNotCoded, result.picture.type);
    }
}

TEST(HostChunkDecoder, CropsToTheStreamsOwnSize) {
    for (const auto& [width, height] : {std::pair{1u, 1u}, {15u, 17u}, {17u, 15u}, {33u, 50u}, {120u, 90u}}) {
        ChunkDecoder session;
        ExpectFlat(session.Decode(FlatChunk(LayerOf(width, height), 100)), width, height, 100);
    }
}

// A decode through the entry points alone, at whole macroblocks.
Bytes DecodeDirectly(Bytes chunk, uint32_t width, uint32_t height) {
    MemoryService memory;
    const VidDecFuncs& funcs = *ptVidDec_MPEG4->ptFuncs;
    Mp4vDecOpenParams params{};
    params.u32Width = width;
    params.u32Height = height;
    void* handle = nullptr;
    EXPECT_EQ(0u, funcs.pfOpen(&handle, &params, &memory));
    Bytes picture(size_t{width} * height * 3 / 2);
    Mp4vDecInArgs in{};
    in.u32BufLen = static_cast<uint32_t>(chunk.size());
    chunk = WithPadding(std::move(chunk));
    in.pu8Buf = chunk.data();
    Mp4vDecOutArgs out{};
    out.pu8Dst = picture.data();
    EXPECT_EQ(0u, funcs.pfProcess(handle, &in, &out));
    funcs.pfClose(handle);
    return picture;
}

void ExpectUpperLeft(const Bytes& whole, uint32_t pitch, const PlaneView& plane, size_t plane_start) {
    for (uint32_t y = 0; y < plane.height; y++) {
        for (uint32_t x = 0; x < plane.width; x++) {
            ASSERT_EQ(whole[plane_start + y * pitch + x], plane.samples[y * plane.pitch + x]) << x << ", " << y;
        }
    }
}

TEST(HostChunkDecoder, GivesTheUpperLeftPartOfTheWholeMacroblocks) {
    const Bytes whole = DecodeDirectly(PatternChunk(LayerOf(64, 48), 5), 64, 48);
    ChunkDecoder session;
    const DecodeResult result = session.Decode(PatternChunk(LayerOf(51, 35), 5));
    ASSERT_TRUE(result.has_picture);
    const Picture& picture = result.picture;
    EXPECT_EQ(51u, picture.planes[0].width);
    EXPECT_EQ(35u, picture.planes[0].height);
    EXPECT_EQ(26u, picture.planes[1].width);
    EXPECT_EQ(18u, picture.planes[1].height);
    EXPECT_EQ(26u, picture.planes[2].width);
    EXPECT_EQ(18u, picture.planes[2].height);
    ExpectUpperLeft(whole, 64, picture.planes[0], 0);
    ExpectUpperLeft(whole, 32, picture.planes[1], 64 * 48);
    ExpectUpperLeft(whole, 32, picture.planes[2], 64 * 48 * 5 / 4);
    EXPECT_EQ(51u * 35u + 2 * 26u * 18u, picture.Pack().size());
    EXPECT_EQ(picture.Pack().size(), picture.packed_size());
}

TEST(HostChunkDecoder, DecodesIntoMemoryOfTheCallerThatIsLargeEnough) {
    const VolHeader vol = LayerOf(50, 35);
    const size_t whole = 64 * 48 * 3 / 2;
    ChunkDecoder session;
    for (const size_t size : {whole, whole + 100, whole - 1}) {
        Bytes memory(size, 7);
        const DecodeResult result = session.DecodeInto(memory, FlatChunk(vol, 110));
        ExpectFlat(result, 50, 35, 110);
        EXPECT_EQ(size >= whole, result.picture.planes[0].samples == memory.data());
        EXPECT_EQ(size < whole, memory.front() == 7);
        EXPECT_TRUE(std::all_of(memory.begin() + static_cast<ptrdiff_t>(size < whole ? 0 : whole), memory.end(),
                                [](uint8_t byte) { return byte == 7; }));
    }
    // A decoder that is open for more may write more.
    ExpectFlat(session.Decode(FlatChunk(LayerOf(80, 80), 120)), 80, 80, 120);
    Bytes memory(whole);
    const DecodeResult result = session.DecodeInto(memory, FlatChunk(vol, 110));
    ExpectFlat(result, 50, 35, 110);
    EXPECT_NE(memory.data(), result.picture.planes[0].samples);
}

TEST(HostChunkDecoder, OpensOnceForTheSizeOfTheLayer) {
    const VolHeader vol = LayerOf(50, 35);
    ChunkDecoder session;
    EXPECT_EQ(0u, session.times_opened());
    for (int i = 0; i < 5; i++) ExpectFlat(session.Decode(FlatChunk(vol, 100 + i)), 50, 35, 100 + i);
    EXPECT_EQ(1u, session.times_opened());
    EXPECT_EQ(64u, session.open_width());
    EXPECT_EQ(48u, session.open_height());
}

TEST(HostChunkDecoder, KeepsTheInstanceWhenTheSizeStaysWithinIt) {
    ChunkDecoder session;
    ExpectFlat(session.Decode(FlatChunk(LayerOf(176, 144), 90)), 176, 144, 90);
    ExpectFlat(session.Decode(FlatChunk(LayerOf(96, 80), 91)), 96, 80, 91);
    ExpectFlat(session.Decode(FlatChunk(LayerOf(47, 31), 92)), 47, 31, 92);
    ExpectFlat(session.Decode(SkippedChunk(LayerOf(47, 31))), 47, 31, 92);
    ExpectFlat(session.Decode(FlatChunk(LayerOf(176, 144), 93)), 176, 144, 93);
    EXPECT_EQ(1u, session.times_opened());
}

TEST(HostChunkDecoder, GrowsWithTheStream) {
    ChunkDecoder session;
    ExpectFlat(session.Decode(FlatChunk(LayerOf(16, 64), 90)), 16, 64, 90);
    ExpectFlat(session.Decode(FlatChunk(LayerOf(64, 16), 91)), 64, 16, 91);
    EXPECT_EQ(2u, session.times_opened());
    EXPECT_EQ(64u, session.open_width());
    EXPECT_EQ(64u, session.open_height());
    ExpectFlat(session.Decode(SkippedChunk(LayerOf(64, 16))), 64, 16, 91);
    ExpectFlat(session.Decode(FlatChunk(LayerOf(16, 64), 92)), 16, 64, 92);
    EXPECT_EQ(2u, session.times_opened());
    EXPECT_TRUE(session.memory().bad_frees().empty());
}

TEST(HostChunkDecoder, OpensForTheLargestLayerOfAChunkAndShowsTheLast) {
    BitWriter out;
    PutLayer(out, LayerOf(64, 48));
    PutLayer(out, LayerOf(20, 20));
    PutFlatPicture(out, LayerOf(20, 20), 77);
    ChunkDecoder session;
    ExpectFlat(session.Decode(out.Bytes()), 20, 20, 77);
    EXPECT_EQ(64u, session.open_width());
    EXPECT_EQ(48u, session.open_height());
}

TEST(HostChunkDecoder, TakesHeadersAndPicturesInSeparateChunks) {
    const VolHeader vol = LayerOf(30, 30);
    ChunkDecoder session;
    const DecodeResult headers = session.Decode(Layer(vol));
    EXPECT_EQ("ERR_VID_MPEG4DEC_BITSTREAM", headers.status_name());
    EXPECT_FALSE(headers.has_picture);
    ExpectFlat(session.Decode(FlatChunk(vol, 110, false)), 30, 30, 110);
}

TEST(HostChunkDecoder, ReportsWhatTheDecoderRefusesAndGoesOn) {
    const VolHeader good = LayerOf(32, 32);
    VolHeader partitioned = good;
    partitioned.data_partitioned = true;
    VolHeader type = good;
    type.type_indication = 2;
    VolHeader sprite = good;
    sprite.sprite_enable = 1;
    const std::pair<VolHeader, uint32_t> kRows[] = {
        {partitioned, ERR_VID_MPEG4DEC_UNSUPPORT_DP},
        {type, ERR_VID_MPEG4DEC_UNSUPPORT_VOTYPEID},
        {sprite, ERR_VID_MPEG4DEC_UNSUPPORT_SPRITE},
        {LayerOf(1914, 1090), ERR_VID_MPEG4DEC_OVER_MAXSUPPORT_SIZE},
        {LayerOf(1921, 16), ERR_VID_MPEG4DEC_OVER_MAXSUPPORT_SIZE},
        {LayerOf(8191, 8191), ERR_VID_MPEG4DEC_OVER_MAXSUPPORT_SIZE},
    };
    for (const auto& [vol, status] : kRows) {
        SCOPED_TRACE(StatusName(status));
        for (const bool opened_before : {false, true}) {
            ChunkDecoder session;
            if (opened_before) ExpectFlat(session.Decode(FlatChunk(good, 80)), 32, 32, 80);
            const DecodeResult refused = session.Decode(Layer(vol));
            EXPECT_EQ(status, refused.status);
            EXPECT_FALSE(refused.has_picture);
            EXPECT_EQ(status, session.Decode(SkippedChunk(good)).status);
            ExpectFlat(session.Decode(FlatChunk(good, 81)), 32, 32, 81);
        }
    }
}

TEST(HostChunkDecoder, RefusesPicturesBeforeTheFirstLayer) {
    ChunkDecoder session;
    EXPECT_EQ(ERR_VID_MPEG4DEC_VOL_NOT_FOUND, session.Decode(SkippedChunk(LayerOf(32, 32))).status);
    ExpectFlat(session.Decode(FlatChunk(LayerOf(1000, 20), 81)), 1000, 20, 81);
}

TEST(HostChunkDecoder, RefusesNothingAndNoise) {
    ChunkDecoder session;
    EXPECT_EQ(ERR_VID_MPEG4DEC_END_VALUE, session.Decode({}).status);
    EXPECT_EQ(ERR_VID_MPEG4DEC_BITSTREAM, session.Decode(Bytes(1, 0x55)).status);
    EXPECT_EQ(ERR_VID_MPEG4DEC_BITSTREAM, session.Decode(Bytes(100, 0x55)).status);
}

TEST(HostChunkDecoder, KeepsTheReferenceWhenALayerOfUnusableTypeIsLarger) {
    const VolHeader vol = LayerOf(32, 32);
    ChunkDecoder session;
    ExpectFlat(session.Decode(FlatChunk(vol, 99)), 32, 32, 99);
    VolHeader large = LayerOf(320, 320);
    large.type_indication = 2;
    EXPECT_EQ(ERR_VID_MPEG4DEC_UNSUPPORT_VOTYPEID, session.Decode(Layer(large)).status);
    Bytes again = Layer(vol);
    const Bytes skipped = SkippedChunk(vol);
    again.insert(again.end(), skipped.begin(), skipped.end());
    ExpectFlat(session.Decode(again), 32, 32, 99);
    EXPECT_EQ(1u, session.times_opened());
}

TEST(HostChunkDecoder, GivesNoPictureOfALayerWithoutSamples) {
    BitWriter out;
    PutLayer(out, LayerOf(0, 0));
    VopHeader{}.PutTo(out, LayerOf(0, 0));
    out.Align();
    ChunkDecoder session;
    EXPECT_FALSE(session.Decode(out.Bytes()).has_picture);
    ExpectFlat(session.Decode(FlatChunk(LayerOf(20, 20), 81)), 20, 20, 81);
}

TEST(HostChunkDecoder, DeliversNoPictureFromADamagedChunk) {
    const VolHeader vol = LayerOf(64, 64);
    ChunkDecoder session;
    ExpectFlat(session.Decode(FlatChunk(vol, 99)), 64, 64, 99);
    Bytes cut = FlatChunk(vol, 140);
    cut.resize(cut.size() - 20);
    const DecodeResult damaged = session.Decode(cut);
    EXPECT_NE(0u, damaged.status);
    EXPECT_FALSE(damaged.has_picture);
    ExpectFlat(session.Decode(SkippedChunk(vol)), 64, 64, 99);
}

TEST(HostChunkDecoder, HidesPredictedPicturesWhenOnlyIntraIsAsked) {
    const VolHeader vol = LayerOf(32, 32);
    ChunkDecoder session({MP4VDEC_CTRL_INTRA_ONLY});
    EXPECT_TRUE(session.Decode(FlatChunk(vol, 99)).has_picture);
    const DecodeResult hidden = session.Decode(SkippedChunk(vol));
    EXPECT_EQ(0u, hidden.status);
    EXPECT_FALSE(hidden.has_picture);
    session.set_control_flags(0);
    ExpectFlat(session.Decode(SkippedChunk(vol)), 32, 32, 99);
}

// A picture whose first column of blocks is brighter: deblocking above the threshold changes it.
Bytes EdgeChunk(const VolHeader& vol, uint32_t quant) {
    BitWriter out;
    PutLayer(out, vol);
    VopHeader vop;
    vop.quant = quant;
    Random random(1);
    PutIntraPicture(out, vol, vop, [&] { return random.Between(-1, 1); });
    return out.Bytes();
}

TEST(HostChunkDecoder, PassesTheControlFlagsOn) {
    const VolHeader vol = LayerOf(64, 64);
    ChunkDecoder low;
    ChunkDecoder high({3});
    const Bytes low_samples = low.Decode(EdgeChunk(vol, 20)).picture.Pack();
    const Bytes high_samples = high.Decode(EdgeChunk(vol, 20)).picture.Pack();
    EXPECT_NE(low_samples, high_samples);
    EXPECT_EQ(low.Decode(EdgeChunk(vol, 8)).picture.Pack(), high.Decode(EdgeChunk(vol, 8)).picture.Pack());
}

// "FIELD" says that the fields lie one above the other; the deinterlacer then works on progressive layers of some
// sizes, this one among them, and only on the word of that user data.
const VolHeader kStackedLayer = LayerOf(352, 480);

// Plays a small layer with the keyword, beside the layer header or with a later picture, then the large one.
Bytes PlayStacked(ChunkDecoder& session, const VolHeader& small, bool with_layer) {
    BitWriter out;
    PutLayer(out, small);
    if (with_layer) PutUserData(out, "1234567FIELD");
    PutFlatPicture(out, small, 100);
    session.Decode(out.Bytes());
    if (!with_layer) {
        BitWriter later;
        PutUserData(later, "1234567FIELD");
        PutSkippedPicture(later, small);
        session.Decode(later.Bytes());
    }
    return session.Decode(PatternChunk(kStackedLayer, 3)).picture.Pack();
}

TEST(HostChunkDecoder, CarriesThePictureStructureOverToALargerInstance) {
    ChunkDecoder plain;
    const Bytes not_stacked = plain.Decode(PatternChunk(kStackedLayer, 3)).picture.Pack();
    for (const bool interlaced : {false, true}) {
        for (const bool with_layer : {false, true}) {
            SCOPED_TRACE(testing::Message() << "interlaced " << interlaced << ", with layer " << with_layer);
            VolHeader small = LayerOf(32, 32);
            small.interlaced = interlaced;
            ChunkDecoder roomy;
            ExpectFlat(roomy.Decode(FlatChunk(kStackedLayer, 100)), 352, 480, 100);
            const Bytes want = PlayStacked(roomy, small, with_layer);
            EXPECT_EQ(1u, roomy.times_opened());
            // An interlaced layer overrules the keyword.
            EXPECT_EQ(interlaced, want == not_stacked);

            ChunkDecoder grown;
            EXPECT_TRUE(want == PlayStacked(grown, small, with_layer));
            EXPECT_EQ(2u, grown.times_opened());
        }
    }
}

TEST(HostChunkDecoder, ReportsMissingMemoryAndTriesAgain) {
    const VolHeader vol = LayerOf(32, 32);
    for (size_t n = 1; n <= 8; n++) {
        SCOPED_TRACE(n);
        ChunkDecoder session;
        session.memory().FailAllocation(n);
        const DecodeResult result = session.Decode(FlatChunk(vol, 70));
        EXPECT_NE(std::string::npos, result.status_name().find("MALLOC")) << result.status_name();
        EXPECT_FALSE(result.has_picture);
        EXPECT_EQ(0u, session.memory().live_blocks());
        ExpectFlat(session.Decode(FlatChunk(vol, 71)), 32, 32, 71);
        EXPECT_TRUE(session.memory().bad_frees().empty());
    }
}

TEST(HostChunkDecoder, DoesNotDependOnWhatFreshMemoryHolds) {
    const auto decode = [](uint8_t fill) {
        ChunkDecoder session;
        session.memory().FillNewBlocksWith(fill);
        Bytes all = session.Decode(PatternChunk(LayerOf(50, 50), 9)).picture.Pack();
        const Bytes next = session.Decode(SkippedChunk(LayerOf(50, 50))).picture.Pack();
        all.insert(all.end(), next.begin(), next.end());
        return all;
    };
    EXPECT_EQ(decode(0x00), decode(0xA5));
}

TEST(HostChunkDecoder, TellsTheLayer) {
    ChunkDecoder session;
    EXPECT_EQ(nullptr, session.layer());
    VolHeader vol = LayerOf(50, 34);
    vol.time_increment_resolution = 24;
    session.Decode(FlatChunk(vol, 70));
    ASSERT_NE(nullptr, session.layer());
    EXPECT_EQ(50u, session.layer()->width);
    EXPECT_EQ(34u, session.layer()->height);
    EXPECT_EQ(24u, session.layer()->time_resolution);
}

TEST(HostChunkDecoder, SurvivesNoiseBehindGoodHeaders) {
    for (uint32_t seed = 0; seed < 150; seed++) {
        SCOPED_TRACE(seed);
        Random random(seed);
        ChunkDecoder session;
        for (int i = 0; i < 6; i++) {
            VolHeader vol = LayerOf(1 + random.Below(100), 1 + random.Below(100));
            vol.interlaced = random.Chance(3);
            vol.shape = random.Chance(10) ? random.Below(3) : 0;
            BitWriter out;
            if (random.Chance(2)) PutLayer(out, vol);
            VopHeader vop;
            vop.coding_type = random.Below(2);
            vop.PutTo(out, vol);
            Bytes chunk = out.Bytes();
            const Bytes noise = random.SparseBytes(random.Below(300));
            chunk.insert(chunk.end(), noise.begin(), noise.end());
            const DecodeResult result = session.Decode(chunk);
            const size_t size = result.has_picture ? result.picture.Pack().size() : 0;
            EXPECT_EQ(result.picture.packed_size(), size);
        }
        ExpectFlat(session.Decode(FlatChunk(LayerOf(40, 24), 123)), 40, 24, 123);
        EXPECT_TRUE(session.memory().bad_frees().empty());
    }
}

TEST(HostChunkDecoder, FreesAnInstanceThatIsTooSmall) {
    ChunkDecoder session;
    session.memory().Record(true);
    session.Decode(FlatChunk(LayerOf(32, 32), 70));
    session.Decode(FlatChunk(LayerOf(64, 64), 70));  // closes the first instance
    size_t allocated = 0;
    size_t freed = 0;
    for (const MemoryCall& call : session.memory().calls()) {
        (call.kind == MemoryCall::Kind::kAllocate ? allocated : freed) += 1;
    }
    EXPECT_EQ(2 * freed, allocated);
    EXPECT_EQ(freed, session.memory().live_blocks());
}

TEST(HostChunkDecoder, PlaysASplitStream) {
    const VolHeader vol = LayerOf(33, 33);
    BitWriter out;
    PutLayer(out, vol);
    for (int i = 0; i < 3; i++) {
        PutFlatPicture(out, vol, 100 + i);
        PutSkippedPicture(out, vol);
    }
    PutStartCode(out, kSequenceEndCode);
    Splitter splitter;
    splitter.Append(out.Bytes());
    splitter.Finish();
    ChunkDecoder session;
    Chunk chunk;
    int pictures = 0;
    while (splitter.Next(chunk)) {
        ExpectFlat(session.Decode(chunk.data), 33, 33, 100 + pictures / 2);
        pictures++;
    }
    EXPECT_EQ(6, pictures);
}

TEST(HostStatus, HasANameAndASentenceForEveryCode) {
    EXPECT_EQ("OK", StatusName(0));
    EXPECT_EQ("END_OF_STREAM", StatusName(1));
    EXPECT_EQ("ERR_VID_MPEG4DEC_COEFF", StatusName(ERR_VID_MPEG4DEC_COEFF));
    EXPECT_EQ("ERR_VID_MPEG4DEC_GETMEMSIZE_INPUT_POINT", StatusName(ERR_VID_MPEG4DEC_GETMEMSIZE_INPUT_POINT));
    EXPECT_EQ("0xA2C00025", StatusName(0xA2C00025));
    EXPECT_EQ("0x00000002", StatusName(2));
    EXPECT_STREQ("the picture data are damaged", ExplainStatus(ERR_VID_MPEG4DEC_COEFF));
    EXPECT_STREQ("the decoder refused it", ExplainStatus(0x12345678));
    for (uint32_t code = ERR_VID_MPEG4DEC_START_VALUE; code <= ERR_VID_MPEG4DEC_END_VALUE; code++) {
        EXPECT_GT(std::string(ExplainStatus(code)).size(), 5u);
    }
}

}  // namespace
}  // namespace mp4v::test
