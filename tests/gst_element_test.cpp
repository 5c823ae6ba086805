// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

// The element by itself: what it says of itself, and what comes out for what is pushed in.
#include <algorithm>
#include <cstdio>
#include <optional>

#include "host/chunk_decoder.h"
#include "host/low_memory.h"
#include "mp4vdec.h"
#include "support/gst_decoder.h"
#include "support/headers_writer.h"
#include "support/random.h"
#include "support/small_stream.h"

namespace mp4v::test {
namespace {

constexpr GstClockTime kTenth = GST_SECOND / 10;

std::string OutputOf(const std::string& command) {
    FILE* const pipe = popen(command.c_str(), "r");
    EXPECT_NE(nullptr, pipe);
    std::string text;
    char block[256];
    while (pipe && fgets(block, sizeof block, pipe)) text += block;
    EXPECT_EQ(0, pipe ? pclose(pipe) : -1) << command;
    return text;
}

TEST(GstPlugin, ExportsItsDescriptorAndNothingElse) {
    std::istringstream symbols(OutputOf("nm --dynamic --defined-only --format=posix '" MP4VDEC_GST_PLUGIN "'"));
    std::vector<std::string> names;
    for (std::string line; std::getline(symbols, line);) names.push_back(line.substr(0, line.find(' ')));
    std::sort(names.begin(), names.end());
    EXPECT_EQ((std::vector<std::string>{"gst_plugin_mp4vdec_get_desc", "gst_plugin_mp4vdec_register"}), names);
}

TEST(GstPlugin, LeavesNoSymbolOfTheDecoderOpen) {
    const std::string open = OutputOf("nm --dynamic --undefined-only --format=posix '" MP4VDEC_GST_PLUGIN "'");
    EXPECT_NE(std::string::npos, open.find("gst_video_decoder_finish_frame"));
    for (const char* const name : {"VideoMem", "Mp4v", "ptVidDec"}) {
        EXPECT_EQ(std::string::npos, open.find(name)) << name;
    }
}

Ref<GstElementFactory> Factory() {
    return Ref<GstElementFactory>(gst_element_factory_find("mp4vdec"));
}

TEST(GstPlugin, OffersADecoderOfSecondaryRank) {
    const Ref<GstElementFactory> factory = Factory();
    ASSERT_TRUE(factory);
    EXPECT_EQ(guint{GST_RANK_SECONDARY}, gst_plugin_feature_get_rank(GST_PLUGIN_FEATURE(factory.get())));
    EXPECT_TRUE(gst_element_factory_list_is_type(
        factory.get(), GST_ELEMENT_FACTORY_TYPE_DECODER | GST_ELEMENT_FACTORY_TYPE_MEDIA_VIDEO));
}

TEST(GstPlugin, TakesWhatDemuxersAnnounceAndGivesI420) {
    const Ref<GstElementFactory> factory = Factory();
    ASSERT_TRUE(factory);
    const struct {
        const char* caps;
        bool taken;
    } kStreams[] = {
        {"video/mpeg,mpegversion=4,systemstream=false", true},
        {"video/mpeg,mpegversion=4,systemstream=false,parsed=true,width=48,height=32,framerate=10/1", true},
        {"video/x-divx,divxversion=4", true},
        {"video/x-divx,divxversion=5,width=48,height=32", true},
        {"video/x-xvid", true},
        {"video/x-divx,divxversion=3", false},
        {"video/mpeg,mpegversion=2,systemstream=false", false},
        {"video/mpeg,mpegversion=4,systemstream=true", false},
        {"video/x-h263", false},
    };
    for (const auto& stream : kStreams) {
        const bool taken = gst_element_factory_can_sink_all_caps(factory.get(), CapsOf(stream.caps).get());
        EXPECT_EQ(stream.taken, taken) << stream.caps;
    }
    EXPECT_TRUE(gst_element_factory_can_src_all_caps(
        factory.get(), CapsOf("video/x-raw,format=I420,width=48,height=32,framerate=10/1").get()));
    EXPECT_FALSE(gst_element_factory_can_src_any_caps(factory.get(), CapsOf("video/x-raw,format=NV12").get()));
}

TEST(GstPlugin, DocumentsItsProperties) {
    GstDecoder decoder;
    for (const char* const name : {"deblock-threshold", "deinterlace", "fields-stacked", "intra-only"}) {
        GParamSpec* const param = g_object_class_find_property(G_OBJECT_GET_CLASS(decoder.element()), name);
        ASSERT_NE(nullptr, param) << name;
        EXPECT_GT(std::string(g_param_spec_get_blurb(param)).size(), 20u) << name;
    }
    gint threshold = 0;
    gboolean deinterlace = TRUE, stacked = TRUE, intra_only = TRUE;
    g_object_get(decoder.element(), "deblock-threshold", &threshold, "deinterlace", &deinterlace, "fields-stacked",
                 &stacked, "intra-only", &intra_only, nullptr);
    EXPECT_EQ(10, threshold);
    EXPECT_FALSE(deinterlace || stacked || intra_only);
    gst_util_set_object_arg(G_OBJECT(decoder.element()), "deblock-threshold", "30");
    g_object_set(decoder.element(), "deinterlace", TRUE, "fields-stacked", TRUE, "intra-only", TRUE, nullptr);
    g_object_get(decoder.element(), "deblock-threshold", &threshold, "deinterlace", &deinterlace, "fields-stacked",
                 &stacked, "intra-only", &intra_only, nullptr);
    EXPECT_EQ(30, threshold);
    EXPECT_TRUE(deinterlace && stacked && intra_only);
}

// ---- Framing

TEST(GstElement, DecodesFramedInputAsItComes) {
    GstDecoder decoder;
    decoder.SetCaps(std::string(kMpeg4) + ",framerate=10/1");
    const std::vector<Bytes> chunks = Split(ReadStream("o25_tiny48x32"));
    const std::vector<std::string> wanted = RecordedMd5s("o25_tiny48x32");
    for (size_t i = 0; i < chunks.size(); i++) {
        ASSERT_EQ(GST_FLOW_OK, decoder.Push(chunks[i], i * kTenth));
        ASSERT_EQ(i + 1, decoder.pictures.size());  // without waiting for the next
        EXPECT_EQ(i * kTenth, decoder.pictures[i].pts);
        EXPECT_EQ(kTenth, decoder.pictures[i].duration);
    }
    decoder.End();
    EXPECT_EQ(wanted, decoder.Md5s());
    EXPECT_TRUE(decoder.ended);
    EXPECT_TRUE(decoder.errors().empty());
    EXPECT_TRUE(decoder.warnings().empty());
}

TEST(GstElement, FramesAStreamThatIsCutAnywhere) {
    Random random(1);
    for (const char* const name :
         {"o02_qcif_camera_q8", "o10_odd120x90_noise", "o28_user_data_frame", "o17_not_coded"}) {
        SCOPED_TRACE(name);
        const Bytes stream = ReadStream(name);
        GstDecoder decoder;
        decoder.SetCaps(kUnframed);
        for (size_t at = 0; at < stream.size();) {
            const auto size = std::min<size_t>(static_cast<size_t>(random.Between(1, 700)), stream.size() - at);
            ASSERT_EQ(GST_FLOW_OK, decoder.Push(std::span(stream).subspan(at, size)));
            at += size;
        }
        EXPECT_EQ(RecordedMd5s(name).size() - 1, decoder.pictures.size());  // the last may go on
        decoder.End();
        EXPECT_EQ(RecordedMd5s(name), decoder.Md5s());
    }
}

TEST(GstElement, FramesAStreamByteByByte) {
    const Bytes stream = ReadStream("oq30_sweep");
    GstDecoder decoder;
    decoder.SetCaps(kUnframed);
    for (const uint8_t& byte : stream) ASSERT_EQ(GST_FLOW_OK, decoder.Push({&byte, 1}));
    decoder.End();
    EXPECT_EQ(RecordedMd5s("oq30_sweep"), decoder.Md5s());
}

TEST(GstElement, TakesASegmentInBytesForAFileReadAsItIs) {
    const Bytes stream = ReadStream("oq04_sweep");
    GstDecoder decoder;
    decoder.SetCaps(kMpeg4);
    decoder.PushSegment(GST_FORMAT_BYTES);
    for (size_t at = 0; at < stream.size(); at += 512) {
        const size_t size = std::min<size_t>(512, stream.size() - at);
        ASSERT_EQ(GST_FLOW_OK, decoder.Push(std::span(stream).subspan(at, size)));
    }
    decoder.End();
    EXPECT_EQ(RecordedMd5s("oq04_sweep"), decoder.Md5s());
    for (size_t i = 0; i < decoder.pictures.size(); i++) {
        EXPECT_EQ(i * GST_SECOND / 25, decoder.pictures[i].pts);  // by the clock of the stream
        EXPECT_EQ(GST_SECOND / 25, decoder.pictures[i].duration);
    }
}

TEST(GstElement, TakesSeveralPicturesInOneBuffer) {
    const VolHeader vol = LayerOf(48, 32);
    BitWriter first, second;
    PutLayer(first, vol);
    PutFlatPicture(first, vol, 100);
    PutSkippedPicture(second, vol);
    PutFlatPicture(second, vol, 120);
    PutNotCodedPicture(second, vol);
    GstDecoder decoder;
    decoder.SetCaps(std::string(kMpeg4) + ",framerate=10/1");
    ASSERT_EQ(GST_FLOW_OK, decoder.Push(first.Bytes(), 0));
    ASSERT_EQ(GST_FLOW_OK, decoder.Push(second.Bytes(), kTenth));
    const std::string at_100 = Md5(FlatSamples(48, 32, 100));
    const std::string at_120 = Md5(FlatSamples(48, 32, 120));
    EXPECT_EQ((std::vector{at_100, at_100, at_120, at_120}), decoder.Md5s());
    for (size_t i = 0; i < decoder.pictures.size(); i++) EXPECT_EQ(i * kTenth, decoder.pictures[i].pts);
}

TEST(GstElement, TakesBuffersWithoutAPicture) {
    const VolHeader vol = LayerOf(48, 32);
    BitWriter headers, flat, skipped;
    PutLayer(headers, vol);
    PutFlatPicture(flat, vol, 100);
    PutSkippedPicture(skipped, vol);
    const Bytes placeholder{0x7F};
    GstDecoder decoder;
    decoder.SetCaps(std::string(kMpeg4) + ",framerate=10/1");
    ASSERT_EQ(GST_FLOW_OK, decoder.Push(headers.Bytes(), 0));
    ASSERT_EQ(GST_FLOW_OK, decoder.Push(flat.Bytes(), 0));
    ASSERT_EQ(GST_FLOW_OK, decoder.Push(placeholder, kTenth));
    ASSERT_EQ(GST_FLOW_OK, decoder.Push(Bytes{}, 2 * kTenth));
    ASSERT_EQ(GST_FLOW_OK, decoder.Push(skipped.Bytes(), 3 * kTenth));
    ASSERT_EQ(2u, decoder.pictures.size());
    EXPECT_EQ(0u, decoder.pictures[0].pts);
    EXPECT_EQ(3 * kTenth, decoder.pictures[1].pts);
    EXPECT_EQ(Md5(FlatSamples(48, 32, 100)), decoder.pictures[1].md5);
    EXPECT_TRUE(decoder.warnings().empty());
}

TEST(GstElement, GivesEveryNotCodedPictureAsARepetition) {
    GstDecoder decoder;
    decoder.SetCaps(kMpeg4);
    decoder.PushFramed(ReadStream("o17_not_coded"), GST_SECOND / 30);
    EXPECT_EQ(RecordedMd5s("o17_not_coded"), decoder.Md5s());
    for (size_t i = 1; i < decoder.pictures.size(); i += 2) {
        EXPECT_EQ(decoder.pictures[i - 1].md5, decoder.pictures[i].md5) << i;
    }
}

TEST(GstElement, UsesDecodingTimesWhereThereAreNoOthers) {
    GstDecoder decoder;
    decoder.SetCaps(kMpeg4);
    GstClockTime time = 5 * kTenth;
    for (const Bytes& chunk : Split(ReadStream("oq30_sweep"))) {
        Ref<GstBuffer> buffer = BufferOf(chunk);
        GST_BUFFER_DTS(buffer.get()) = time;
        ASSERT_EQ(GST_FLOW_OK, decoder.Push(std::move(buffer)));
        ASSERT_FALSE(decoder.pictures.empty());
        EXPECT_EQ(time, decoder.pictures.back().pts);
        time += 3 * kTenth;  // no rate that anybody told
    }
    EXPECT_EQ(10u, decoder.pictures.size());
}

// ---- Codec data

TEST(GstElement, ReadsTheHeadersInTheCodecData) {
    std::vector<Bytes> chunks = Split(ReadStream("o25_tiny48x32"));
    const size_t picture = *ScanHeaders(chunks[0]).vop_position;
    const Bytes headers(chunks[0].begin(), chunks[0].begin() + static_cast<ptrdiff_t>(picture));
    for (const bool repeated : {false, true}) {
        GstDecoder decoder;
        decoder.SetCaps(CapsOf(kMpeg4, headers));
        Bytes first = chunks[0];
        if (!repeated) first.erase(first.begin(), first.begin() + static_cast<ptrdiff_t>(picture));
        ASSERT_EQ(GST_FLOW_OK, decoder.Push(first, 0));
        for (size_t i = 1; i < chunks.size(); i++) ASSERT_EQ(GST_FLOW_OK, decoder.Push(chunks[i], i * kTenth));
        EXPECT_EQ(RecordedMd5s("o25_tiny48x32"), decoder.Md5s());
        EXPECT_TRUE(decoder.warnings().empty());
    }
}

TEST(GstElement, IgnoresCodecDataOfAnotherKind) {
    GstDecoder decoder;
    decoder.SetCaps(CapsOf(kMpeg4, Bytes{'n', 'o', 't', 'h', 'i', 'n', 'g'}));
    decoder.PushFramed(ReadStream("oq30_sweep"), kTenth);
    EXPECT_EQ(RecordedMd5s("oq30_sweep"), decoder.Md5s());
}

// ---- Caps of the pictures

GstVideoInfo InfoOf(const std::string& caps, const Bytes& stream) {
    GstDecoder decoder;
    decoder.SetCaps(caps);
    EXPECT_EQ(GST_FLOW_OK, decoder.Push(stream, 0));
    decoder.End();
    GstVideoInfo none;
    gst_video_info_init(&none);
    EXPECT_FALSE(decoder.pictures.empty());
    return decoder.pictures.empty() ? none : decoder.pictures.front().info;
}

Bytes FlatStream(const VolHeader& vol, std::optional<uint32_t> second_at = std::nullopt) {
    BitWriter out;
    PutLayer(out, vol);
    PutFlatPicture(out, vol, 100);
    VopHeader vop;
    vop.time_increment = second_at.value_or(0);
    if (second_at) PutFlatPicture(out, vol, 100, vop);
    return out.Bytes();
}

void ExpectRate(int numerator, int denominator, const GstVideoInfo& info) {
    EXPECT_EQ(numerator, info.fps_n);
    EXPECT_EQ(denominator, info.fps_d);
}

TEST(GstElementCaps, HaveTheRateOfTheContainerOrOfTheHeaderOrOfTheClock) {
    VolHeader vol = LayerOf(48, 32);
    vol.time_increment_resolution = 30000;
    ExpectRate(25, 1, InfoOf(std::string(kMpeg4) + ",framerate=25/1", FlatStream(vol)));
    ExpectRate(0, 1, InfoOf(kMpeg4, FlatStream(vol)));  // nobody knows
    ExpectRate(30000, 1001, InfoOf(kUnframed, FlatStream(vol, 1001)));
    vol.fixed_time_increment = 1001;
    ExpectRate(30000, 1001, InfoOf(kMpeg4, FlatStream(vol)));
    ExpectRate(25, 1, InfoOf(std::string(kMpeg4) + ",framerate=25/1", FlatStream(vol)));
}

void ExpectAspect(int numerator, int denominator, const GstVideoInfo& info) {
    EXPECT_EQ(numerator, info.par_n);
    EXPECT_EQ(denominator, info.par_d);
}

TEST(GstElementCaps, HaveTheAspectRatioOfTheContainerOrOfTheHeader) {
    VolHeader vol = LayerOf(48, 32);
    ExpectAspect(1, 1, InfoOf(kMpeg4, FlatStream(vol)));
    vol.aspect_ratio_info = 2;
    ExpectAspect(12, 11, InfoOf(kMpeg4, FlatStream(vol)));
    ExpectAspect(12, 11, InfoOf(std::string(kMpeg4) + ",pixel-aspect-ratio=1/1", FlatStream(vol)));
    ExpectAspect(16, 9, InfoOf(std::string(kMpeg4) + ",pixel-aspect-ratio=16/9", FlatStream(vol)));
}

std::string ColorimetryOf(const GstVideoInfo& info) {
    const Ref<gchar> text(gst_video_colorimetry_to_string(&info.colorimetry));
    return text ? text.get() : "";
}

// A layer with a video_signal_type of these values in front; a negative one stands for no colour description.
Bytes SignalStream(const VolHeader& vol, bool full_range, int primaries, int transfer, int matrix) {
    BitWriter out;
    PutVisualObjectSequence(out);
    PutStartCode(out, kVisualObjectCode).Put(0, 1).Put(1, 4).Put(1, 1);
    out.Put(5, 3).Put(full_range, 1).Put(primaries >= 0, 1);
    if (primaries >= 0) {
        for (const int value : {primaries, transfer, matrix}) out.Put(static_cast<uint32_t>(value), 8);
    }
    PutStartCode(out, kVideoObjectCode);
    vol.PutTo(out);
    PutFlatPicture(out, vol, 100);
    return out.Bytes();
}

TEST(GstElementCaps, HaveTheColorimetryOfTheSignalTypeElseOfTheSize) {
    const VolHeader small = LayerOf(48, 32);
    const VolHeader large = LayerOf(1280, 720);
    EXPECT_EQ("bt601", ColorimetryOf(InfoOf(kMpeg4, FlatStream(small))));
    EXPECT_EQ("bt709", ColorimetryOf(InfoOf(kMpeg4, FlatStream(large))));
    EXPECT_EQ("bt709", ColorimetryOf(InfoOf(kMpeg4, SignalStream(small, false, 1, 1, 1))));
    EXPECT_EQ("smpte240m", ColorimetryOf(InfoOf(kMpeg4, SignalStream(small, false, 7, 7, 7))));
    EXPECT_EQ("bt601", ColorimetryOf(InfoOf(kMpeg4, SignalStream(small, false, 2, 2, 2))));  // unspecified
    EXPECT_EQ("bt601", ColorimetryOf(InfoOf(kMpeg4, SignalStream(small, false, -1, 0, 0))));
    const GstVideoInfo full = InfoOf(kMpeg4, SignalStream(small, true, 6, 6, 6));
    EXPECT_EQ(GST_VIDEO_COLOR_RANGE_0_255, full.colorimetry.range);
    EXPECT_EQ(GST_VIDEO_COLOR_MATRIX_BT601, full.colorimetry.matrix);
    EXPECT_EQ("bt709", ColorimetryOf(InfoOf(std::string(kMpeg4) + ",colorimetry=bt709", FlatStream(small))));
}

TEST(GstElementCaps, TellInterlacingAndTheOrderOfTheFields) {
    const struct {
        const char* name;
        GstVideoInterlaceMode mode;
        GstVideoFieldOrder order;
        bool top_first;
    } kStreams[] = {
        {"o06_pal_interlaced", GST_VIDEO_INTERLACE_MODE_INTERLEAVED, GST_VIDEO_FIELD_ORDER_TOP_FIELD_FIRST, true},
        {"o07_ntsc_interlaced_altscan", GST_VIDEO_INTERLACE_MODE_INTERLEAVED, GST_VIDEO_FIELD_ORDER_BOTTOM_FIELD_FIRST,
         false},
        {"o18_fades", GST_VIDEO_INTERLACE_MODE_PROGRESSIVE, GST_VIDEO_FIELD_ORDER_UNKNOWN, false},
    };
    for (const auto& stream : kStreams) {
        SCOPED_TRACE(stream.name);
        GstDecoder decoder;
        decoder.SetCaps(kMpeg4);
        decoder.PushFramed(ReadStream(stream.name), GST_SECOND / 25);
        EXPECT_EQ(RecordedMd5s(stream.name), decoder.Md5s());
        EXPECT_EQ(1u, decoder.caps.size());
        for (const DeliveredPicture& picture : decoder.pictures) {
            EXPECT_EQ(stream.mode, GST_VIDEO_INFO_INTERLACE_MODE(&picture.info));
            EXPECT_EQ(stream.order, GST_VIDEO_INFO_FIELD_ORDER(&picture.info));
            EXPECT_EQ(stream.top_first, (picture.flags & GST_VIDEO_BUFFER_FLAG_TFF) != 0);
            EXPECT_EQ(stream.mode != GST_VIDEO_INTERLACE_MODE_PROGRESSIVE,
                      (picture.flags & GST_VIDEO_BUFFER_FLAG_INTERLACED) != 0);
        }
    }
}

TEST(GstElementCaps, ChangeWithTheSizeOfThePictures) {
    GstDecoder decoder;
    decoder.SetCaps(kUnframed);
    ASSERT_EQ(GST_FLOW_OK, decoder.Push(ReadStream("o36_size_change")));
    decoder.End();
    EXPECT_EQ(RecordedMd5s("o36_size_change"), decoder.Md5s());
    std::vector<std::string> sizes;
    for (const DeliveredPicture& picture : decoder.pictures) {
        const std::string size = std::to_string(picture.info.width) + "x" + std::to_string(picture.info.height);
        if (sizes.empty() || sizes.back() != size) sizes.push_back(size);
    }
    EXPECT_EQ((std::vector<std::string>{"176x144", "96x80", "48x32"}), sizes);
    EXPECT_EQ(3u, decoder.caps.size());
}

TEST(GstElementCaps, ChangeWithTheCapsOfTheStream) {
    GstDecoder decoder;
    const struct {
        const char* name;
        const char* caps;
        int rate;
    } kParts[] = {{"oq30_sweep", ",framerate=25/1", 25}, {"o25_tiny48x32", ",framerate=10/1", 10}};
    std::vector<std::string> wanted;
    for (const auto& part : kParts) {
        decoder.SetCaps(kMpeg4 + std::string(part.caps));
        decoder.PushFramed(ReadStream(part.name), kTenth);
        for (const std::string& md5 : RecordedMd5s(part.name)) wanted.push_back(md5);
        EXPECT_EQ(part.rate, decoder.pictures.back().info.fps_n);
    }
    EXPECT_EQ(wanted, decoder.Md5s());
}

TEST(GstElementCaps, AreOfferedInVainWhereI420IsNotWanted) {
    GstDecoder decoder;
    gst_harness_set_sink_caps_str(decoder.harness(), "video/x-raw,format=NV12");
    decoder.SetCaps(kMpeg4);
    EXPECT_EQ(GST_FLOW_NOT_NEGOTIATED, decoder.Push(ReadStream("oq30_sweep"), 0));
    EXPECT_TRUE(decoder.pictures.empty());
}

// ---- Properties

TEST(GstElementProperties, SetTheDeblockingThreshold) {
    GstDecoder decoder;
    gst_util_set_object_arg(G_OBJECT(decoder.element()), "deblock-threshold", "30");
    decoder.SetCaps(kMpeg4);
    decoder.PushFramed(ReadStream("oq22_sweep"), kTenth);
    EXPECT_EQ(RecordedMd5s("oq22_sweep", 30), decoder.Md5s());
    EXPECT_NE(RecordedMd5s("oq22_sweep", 10), decoder.Md5s());
}

TEST(GstElementProperties, Deinterlace) {
    GstDecoder decoder;
    g_object_set(decoder.element(), "deinterlace", TRUE, nullptr);
    decoder.SetCaps(kMpeg4);
    const Bytes stream = ReadStream("o06_pal_interlaced");
    decoder.PushFramed(stream, GST_SECOND / 25);
    EXPECT_EQ(SessionMd5s(stream, {.deinterlace = true}), decoder.Md5s());
    EXPECT_NE(RecordedMd5s("o06_pal_interlaced"), decoder.Md5s());
    ASSERT_FALSE(decoder.pictures.empty());
    EXPECT_EQ(GST_VIDEO_INTERLACE_MODE_PROGRESSIVE, GST_VIDEO_INFO_INTERLACE_MODE(&decoder.pictures[0].info));
}

TEST(GstElementProperties, WeaveStackedFields) {
    if (!LowMemory(1).data()) GTEST_SKIP() << LowMemory(1).problem();
    GstDecoder decoder;
    gst_element_set_state(decoder.element(), GST_STATE_NULL);
    g_object_set(decoder.element(), "fields-stacked", TRUE, nullptr);
    gst_element_set_state(decoder.element(), GST_STATE_PLAYING);
    decoder.SetCaps(kMpeg4);
    const Bytes stream = ReadStream("o18_fades");
    decoder.PushFramed(stream, GST_SECOND / 25);
    EXPECT_EQ(SessionMd5s(stream, {.fields_stacked = true}), decoder.Md5s());
    EXPECT_NE(RecordedMd5s("o18_fades"), decoder.Md5s());
    ASSERT_FALSE(decoder.pictures.empty());
    EXPECT_EQ(GST_VIDEO_INTERLACE_MODE_INTERLEAVED, GST_VIDEO_INFO_INTERLACE_MODE(&decoder.pictures[0].info));
}

TEST(GstElementProperties, LeavePredictedPicturesOut) {
    GstDecoder decoder;
    g_object_set(decoder.element(), "intra-only", TRUE, nullptr);
    decoder.SetCaps(kMpeg4);
    decoder.PushFramed(ReadStream("o02_qcif_camera_q8"), kTenth);
    const std::vector<std::string> all = RecordedMd5s("o02_qcif_camera_q8");
    EXPECT_EQ((std::vector{all[0], all[12], all[24], all[36], all[48]}), decoder.Md5s());
    ASSERT_EQ(5u, decoder.pictures.size());
    EXPECT_EQ(12 * kTenth, decoder.pictures[1].pts);
    g_object_set(decoder.element(), "intra-only", FALSE, nullptr);  // they have been decoded all the while
    EXPECT_EQ(GST_FLOW_OK, decoder.Push(Split(ReadStream("o02_qcif_camera_q8"))[0], 60 * kTenth));
    EXPECT_EQ(6u, decoder.pictures.size());
}

// ---- Memory of the pictures

// Samples right of the picture, in the rest of its last macroblocks.
Bytes RightMargin(const uint8_t* luma, size_t pitch, uint32_t width, uint32_t height) {
    Bytes margin;
    for (uint32_t y = 0; y < height; y++) margin.insert(margin.end(), luma + y * pitch + width, luma + (y + 1) * pitch);
    return margin;
}

struct Margin {
    Bytes samples;
    gint pitch = 0;
};

GstPadProbeReturn NoteMargin(GstPad* pad, GstPadProbeInfo* info, gpointer result) {
    GstVideoInfo format;
    GstVideoFrame frame;
    const Ref<GstCaps> caps(gst_pad_get_current_caps(pad));
    if (gst_video_info_from_caps(&format, caps.get()) &&
        gst_video_frame_map(&frame, &format, GST_PAD_PROBE_INFO_BUFFER(info), GST_MAP_READ)) {
        auto* const margin = static_cast<Margin*>(result);
        margin->pitch = GST_VIDEO_FRAME_PLANE_STRIDE(&frame, 0);
        margin->samples = RightMargin(static_cast<const uint8_t*>(GST_VIDEO_FRAME_PLANE_DATA(&frame, 0)),
                                      static_cast<size_t>(margin->pitch), static_cast<uint32_t>(format.width),
                                      static_cast<uint32_t>(format.height));
        gst_video_frame_unmap(&frame);
    }
    return GST_PAD_PROBE_OK;
}

Margin LastMargin(bool with_meta, std::vector<std::string>& md5s) {
    GstDecoder decoder;
    Margin margin;
    if (with_meta) gst_harness_add_propose_allocation_meta(decoder.harness(), GST_VIDEO_META_API_TYPE, nullptr);
    const Ref<GstPad> pad(gst_element_get_static_pad(decoder.element(), "src"));
    gst_pad_add_probe(pad.get(), GST_PAD_PROBE_TYPE_BUFFER, NoteMargin, &margin, nullptr);
    decoder.SetCaps(kMpeg4);
    decoder.PushFramed(ReadStream("o31_fast_pan_qpel"), kTenth);
    md5s = decoder.Md5s();
    return margin;
}

// Only what decodes straight into a buffer leaves the rest of the macroblocks beside the picture there.
TEST(GstElementMemory, TakesWholeMacroblocksWhereDownstreamAllowsThem) {
    ChunkDecoder reference;
    Bytes wanted;
    for (const Bytes& chunk : Split(ReadStream("o31_fast_pan_qpel"))) {
        const PlaneView luma = reference.Decode(chunk).picture.planes[0];
        ASSERT_EQ(432u, luma.pitch);
        wanted = RightMargin(luma.samples, luma.pitch, luma.width, luma.height);
    }
    std::vector<std::string> md5s;
    const Margin straight = LastMargin(true, md5s);
    EXPECT_EQ(RecordedMd5s("o31_fast_pan_qpel"), md5s);
    EXPECT_EQ(432, straight.pitch);
    EXPECT_EQ(wanted, straight.samples);
    EXPECT_NE(0, std::count_if(wanted.begin(), wanted.end(), [](uint8_t sample) { return sample != 0; }));

    const Margin copied = LastMargin(false, md5s);
    EXPECT_EQ(RecordedMd5s("o31_fast_pan_qpel"), md5s);
    EXPECT_EQ(428, copied.pitch);
}

// ---- Flushing, the end

TEST(GstElement, ForgetsWhatWasBeforeAFlush) {
    const std::vector<Bytes> chunks = Split(ReadStream("o02_qcif_camera_q8"));
    const std::vector<std::string> all = RecordedMd5s("o02_qcif_camera_q8");
    GstDecoder decoder;
    decoder.SetCaps(kMpeg4);
    for (size_t i = 0; i < 5; i++) ASSERT_EQ(GST_FLOW_OK, decoder.Push(chunks[i], i * kTenth));
    EXPECT_EQ(5u, decoder.pictures.size());
    decoder.Flush();
    decoder.pictures.clear();
    for (size_t i = 9; i < 15; i++) ASSERT_EQ(GST_FLOW_OK, decoder.Push(chunks[i], i * kTenth));
    // Nothing to predict the first three from; then an intra picture.
    EXPECT_EQ((std::vector{all[12], all[13], all[14]}), decoder.Md5s());
    EXPECT_EQ(12 * kTenth, decoder.pictures[0].pts);
    EXPECT_TRUE(decoder.warnings().empty());
}

TEST(GstElement, ForgetsHalfAPictureAtAFlush) {
    const Bytes stream = ReadStream("oq30_sweep");
    GstDecoder decoder;
    decoder.SetCaps(kUnframed);
    ASSERT_EQ(GST_FLOW_OK, decoder.Push(std::span(stream).first(stream.size() - 30)));
    decoder.Flush();
    decoder.pictures.clear();
    ASSERT_EQ(GST_FLOW_OK, decoder.Push(stream));
    decoder.End();
    EXPECT_EQ(RecordedMd5s("oq30_sweep"), decoder.Md5s());
    EXPECT_TRUE(decoder.warnings().empty());
}

TEST(GstElement, ClipsToTheSegment) {
    GstDecoder decoder;
    decoder.SetCaps(std::string(kMpeg4) + ",framerate=10/1");
    GstSegment segment;
    gst_segment_init(&segment, GST_FORMAT_TIME);
    segment.start = segment.time = 20 * kTenth;
    segment.stop = 30 * kTenth;
    ASSERT_TRUE(decoder.Push(gst_event_new_segment(&segment)));
    size_t number = 0;
    for (const Bytes& chunk : Split(ReadStream("o25_tiny48x32"))) {
        const GstFlowReturn flow = decoder.Push(chunk, number++ * kTenth);
        ASSERT_TRUE(flow == GST_FLOW_OK || (flow == GST_FLOW_EOS && number > 30)) << number;
    }
    const std::vector<std::string> all = RecordedMd5s("o25_tiny48x32");
    EXPECT_EQ(std::vector(all.begin() + 20, all.begin() + 30), decoder.Md5s());
}

TEST(GstElement, StartsAgainAfterTheEndAndAfterAStop) {
    GstDecoder decoder;
    const std::vector<std::string> wanted = RecordedMd5s("oq30_sweep");
    for (int i = 0; i < 3; i++) {
        decoder.pictures.clear();
        decoder.SetCaps(kUnframed);
        ASSERT_EQ(GST_FLOW_OK, decoder.Push(ReadStream("oq30_sweep")));
        decoder.End();
        EXPECT_EQ(wanted, decoder.Md5s());
        if (i == 0) decoder.Flush();
        if (i != 1) continue;
        gst_element_set_state(decoder.element(), GST_STATE_NULL);
        gst_element_set_state(decoder.element(), GST_STATE_PLAYING);
        EXPECT_TRUE(decoder.Push(gst_event_new_stream_start("again")));
        decoder.SetCaps(kUnframed);
        decoder.PushSegment(GST_FORMAT_TIME);
    }
}

// ---- Quality of service

TEST(GstElement, DecodesLatePicturesWithoutDeliveringThem) {
    const std::vector<Bytes> chunks = Split(ReadStream("o02_qcif_camera_q8"));
    const std::vector<std::string> all = RecordedMd5s("o02_qcif_camera_q8");
    GstDecoder decoder;
    decoder.SetCaps(std::string(kMpeg4) + ",framerate=10/1");
    const auto push = [&](size_t from, size_t to) {
        for (size_t i = from; i < to; i++) ASSERT_EQ(GST_FLOW_OK, decoder.Push(chunks[i], i * kTenth));
    };
    push(0, 5);
    // A sink that is a second late asks for what comes then.
    const GstClockTime now = 4 * kTenth;
    ASSERT_TRUE(gst_harness_push_upstream_event(
        decoder.harness(),
        gst_event_new_qos(GST_QOS_TYPE_UNDERFLOW, 1.5, static_cast<GstClockTimeDiff>(GST_SECOND), now)));
    push(5, 40);
    std::vector<GstClockTime> times;
    for (const DeliveredPicture& picture : decoder.pictures) times.push_back(picture.pts);
    ASSERT_GT(times.size(), 6u);
    const size_t back = times[5] / kTenth;
    EXPECT_GT(back, 14u);
    EXPECT_NE(0u, back % 12);  // it is a predicted picture, and right: those before it were decoded
    for (size_t i = 5; i < times.size(); i++) {
        EXPECT_EQ((back + i - 5) * kTenth, times[i]);
        EXPECT_EQ(all[back + i - 5], decoder.pictures[i].md5);
    }
    guint64 dropped = 0;
    size_t messages = 0;
    while (const Ref<GstMessage> message{gst_bus_pop_filtered(decoder.bus(), GST_MESSAGE_QOS)}) {
        gst_message_parse_qos_stats(message.get(), nullptr, nullptr, &dropped);
        messages++;
    }
    EXPECT_EQ(40 - times.size(), messages);
    EXPECT_EQ(40 - times.size(), dropped);
}

// ---- Damage

// The end of a P-picture is missing.
std::vector<Bytes> DamagedAt(const std::string& name, std::initializer_list<size_t> places) {
    std::vector<Bytes> chunks = Split(ReadStream(name));
    for (const size_t place : places) chunks[place].resize(chunks[place].size() / 2);
    return chunks;
}

TEST(GstElementDamage, LeavesAPictureOutAndSaysSo) {
    const std::vector<std::string> all = RecordedMd5s("o02_qcif_camera_q8");
    const std::vector<Bytes> chunks = DamagedAt("o02_qcif_camera_q8", {6});
    GstDecoder decoder;
    decoder.SetCaps(kMpeg4);
    for (size_t i = 0; i < chunks.size(); i++) ASSERT_EQ(GST_FLOW_OK, decoder.Push(chunks[i], i * kTenth));
    ASSERT_EQ(59u, decoder.pictures.size());
    for (size_t i = 0; i < decoder.pictures.size(); i++) {
        const size_t number = i < 6 ? i : i + 1;
        EXPECT_EQ(number * kTenth, decoder.pictures[i].pts);
        const bool corrupted = (decoder.pictures[i].flags & GST_BUFFER_FLAG_CORRUPTED) != 0;
        EXPECT_EQ(number > 6 && number < 12, corrupted) << number;  // until the next intra picture
        EXPECT_TRUE(corrupted || all[number] == decoder.pictures[i].md5) << number;
    }
    const std::vector<Complaint> warnings = decoder.warnings();
    ASSERT_EQ(1u, warnings.size());
    EXPECT_EQ(GST_STREAM_ERROR, warnings[0].domain);
    EXPECT_EQ(GST_STREAM_ERROR_DECODE, warnings[0].code);
    EXPECT_NE(std::string::npos, warnings[0].debug.find("ERR_VID_MPEG4DEC_")) << warnings[0].debug;
    EXPECT_TRUE(decoder.errors().empty());
    size_t asked = 0;
    while (const Ref<GstEvent> event{gst_harness_try_pull_upstream_event(decoder.harness())}) {
        if (gst_video_event_is_force_key_unit(event.get())) asked++;
    }
    EXPECT_EQ(1u, asked);
}

TEST(GstElementDamage, CanLeaveOutAllThatItAffects) {
    GstDecoder decoder;
    g_object_set(decoder.element(), "discard-corrupted-frames", TRUE, nullptr);
    decoder.SetCaps(kMpeg4);
    const std::vector<Bytes> chunks = DamagedAt("o02_qcif_camera_q8", {6});
    for (size_t i = 0; i < chunks.size(); i++) ASSERT_EQ(GST_FLOW_OK, decoder.Push(chunks[i], i * kTenth));
    std::vector<std::string> wanted = RecordedMd5s("o02_qcif_camera_q8");
    wanted.erase(wanted.begin() + 6, wanted.begin() + 12);
    EXPECT_EQ(wanted, decoder.Md5s());
}

TEST(GstElementDamage, EndsInAnErrorWhenThereIsTooMuchOfIt) {
    GstDecoder decoder;
    g_object_set(decoder.element(), "max-errors", 1, nullptr);
    decoder.SetCaps(kMpeg4);
    const std::vector<Bytes> chunks = DamagedAt("o02_qcif_camera_q8", {3, 4, 5});
    GstFlowReturn flow = GST_FLOW_OK;
    size_t pushed = 0;
    for (; pushed < 12 && flow == GST_FLOW_OK; pushed++) flow = decoder.Push(chunks[pushed], pushed * kTenth);
    EXPECT_EQ(GST_FLOW_ERROR, flow);
    EXPECT_EQ(5u, pushed);
    const std::vector<Complaint> errors = decoder.errors();
    ASSERT_EQ(1u, errors.size());
    EXPECT_EQ(GST_STREAM_ERROR, errors[0].domain);
    EXPECT_EQ(GST_STREAM_ERROR_DECODE, errors[0].code);
}

TEST(GstElementDamage, TellsOfGapsByTheFlagOfWhatFollows) {
    const std::vector<Bytes> chunks = Split(ReadStream("o02_qcif_camera_q8"));
    GstDecoder decoder;
    decoder.SetCaps(kMpeg4);
    for (size_t i = 0; i < 15; i++) {
        if (i == 4 || i == 5) continue;  // lost on the way
        Ref<GstBuffer> buffer = BufferOf(chunks[i], i * kTenth);
        if (i == 6) GST_BUFFER_FLAG_SET(buffer.get(), GST_BUFFER_FLAG_DISCONT);
        ASSERT_EQ(GST_FLOW_OK, decoder.Push(std::move(buffer)));
        const bool corrupted = (decoder.pictures.back().flags & GST_BUFFER_FLAG_CORRUPTED) != 0;
        EXPECT_EQ(i >= 6 && i < 12, corrupted) << i;
    }
}

TEST(GstElementDamage, LeavesOutWhatIsNoPictureAtAll) {
    const std::vector<Bytes> chunks = Split(ReadStream("oq30_sweep"));
    const Bytes cut_off{0, 0, 1, kVopCode};
    const Bytes garbage(100, 0x55);
    GstDecoder decoder;
    decoder.SetCaps(kMpeg4);
    ASSERT_EQ(GST_FLOW_OK, decoder.Push(chunks[0], 0));
    ASSERT_EQ(GST_FLOW_OK, decoder.Push(cut_off, kTenth));
    ASSERT_EQ(GST_FLOW_OK, decoder.Push(garbage, 2 * kTenth));
    ASSERT_EQ(GST_FLOW_OK, decoder.Push(chunks[0], 3 * kTenth));
    const std::string first = RecordedMd5s("oq30_sweep")[0];
    EXPECT_EQ((std::vector{first, first}), decoder.Md5s());
    EXPECT_EQ(2u, decoder.warnings().size());
}

// Whatever is in the bytes, there is an answer, and the next good stream is decoded as ever.
TEST(GstElementDamage, SurvivesAnyBytes) {
    Random random(7);
    const Bytes good = ReadStream("oq11_sweep");
    for (int round = 0; round < 20; round++) {
        Bytes stream = good;
        for (int i = 0; i < 1 + round * 3; i++) {
            stream[static_cast<size_t>(random.Between(0, static_cast<int>(stream.size()) - 1))] =
                static_cast<uint8_t>(random.Between(0, 255));
        }
        GstDecoder decoder;
        decoder.SetCaps(round % 2 ? kUnframed : kMpeg4);
        GstFlowReturn flow = GST_FLOW_OK;
        for (const Bytes& chunk : Split(stream)) {
            if (flow == GST_FLOW_OK) flow = decoder.Push(chunk);
        }
        EXPECT_TRUE(flow == GST_FLOW_OK || flow == GST_FLOW_ERROR);
        EXPECT_EQ(flow == GST_FLOW_ERROR, !decoder.errors().empty());
        if (flow == GST_FLOW_ERROR) continue;
        decoder.Flush();
        decoder.pictures.clear();
        EXPECT_EQ(GST_FLOW_OK, decoder.Push(good));
        decoder.End();
        EXPECT_EQ(RecordedMd5s("oq11_sweep"), decoder.Md5s());
    }
}

// ---- Unsupported streams

struct Refusal {
    const char* name;
    const char* error;
};

void PrintTo(const Refusal& refusal, std::ostream* out) {
    *out << refusal.name;
}

class GstElementRefusal : public testing::TestWithParam<Refusal> {};

void ExpectRefusal(const GstDecoder& decoder, const char* name) {
    const std::vector<Complaint> errors = decoder.errors();
    ASSERT_EQ(1u, errors.size());
    EXPECT_EQ(GST_STREAM_ERROR, errors[0].domain);
    EXPECT_EQ(GST_STREAM_ERROR_WRONG_TYPE, errors[0].code);
    EXPECT_NE(std::string::npos, errors[0].text.find(name)) << errors[0].text;
    EXPECT_NE(std::string::npos, errors[0].debug.find(name)) << errors[0].debug;
}

TEST_P(GstElementRefusal, IsAnErrorWithItsName) {
    const std::vector<Bytes> chunks = Split(ReadStream(GetParam().name));
    GstDecoder decoder;
    decoder.SetCaps(kMpeg4);
    GstFlowReturn flow = GST_FLOW_OK;
    for (size_t i = 0; i < chunks.size() && flow == GST_FLOW_OK; i++) flow = decoder.Push(chunks[i], i * kTenth);
    EXPECT_EQ(GST_FLOW_ERROR, flow);
    ExpectRefusal(decoder, GetParam().error);
}

TEST_P(GstElementRefusal, ComesWithTheCapsWhenTheHeadersDo) {
    const Bytes first = Split(ReadStream(GetParam().name))[0];
    const Bytes headers(first.begin(), first.begin() + static_cast<ptrdiff_t>(*ScanHeaders(first).vop_position));
    GstDecoder decoder;
    ASSERT_TRUE(decoder.Push(gst_event_new_stream_start("refused")));
    const Ref<GstPad> pad(gst_element_get_static_pad(decoder.element(), "sink"));
    const bool taken = gst_pad_send_event(pad.get(), gst_event_new_caps(CapsOf(kMpeg4, headers).get()));
    if (std::string(GetParam().name) == "r01_b_pictures") {
        EXPECT_TRUE(taken);  // only its pictures tell
        return;
    }
    EXPECT_FALSE(taken);
    ExpectRefusal(decoder, GetParam().error);
}

INSTANTIATE_TEST_SUITE_P(Streams, GstElementRefusal,
                         testing::Values(Refusal{"r01_b_pictures", "ERR_VID_MPEG4DEC_UNSUPPORT_BFRAME"},
                                         Refusal{"r02_data_partitioned", "ERR_VID_MPEG4DEC_UNSUPPORT_DP"},
                                         Refusal{"r04_global_motion", "ERR_VID_MPEG4DEC_UNSUPPORT_SPRITE"},
                                         Refusal{"r05_static_sprite", "ERR_VID_MPEG4DEC_UNSUPPORT_SPRITE"},
                                         Refusal{"r06_overlapped", "ERR_VID_MPEG4DEC_UNSUPPORT_OBMC"},
                                         Refusal{"r07_complexity", "ERR_VID_MPEG4DEC_UNSUPPORT_COMPLXES"},
                                         Refusal{"r08_reduced_resolution", "ERR_VID_MPEG4DEC_UNSUPPORT_RRVOP"},
                                         Refusal{"r09_scalable", "ERR_VID_MPEG4DEC_UNSUPPORT_SCALABLE"},
                                         Refusal{"r10_grayscale_shape", "ERR_VID_MPEG4DEC_UNSUPPORT_SHAPE"},
                                         Refusal{"r11_type_indication", "ERR_VID_MPEG4DEC_UNSUPPORT_VOTYPEID"},
                                         Refusal{"r12_oversize", "ERR_VID_MPEG4DEC_OVER_MAXSUPPORT_SIZE"}));

TEST(GstElementRefusals, GoOnBehindARefusedLayer) {
    const Bytes cut_off{0, 0, 1, kVopCode};
    const std::vector<Bytes> good = Split(ReadStream("oq30_sweep"));
    const std::vector<Bytes> refused = Split(ReadStream("r02_data_partitioned"));
    GstDecoder decoder;
    decoder.SetCaps(kMpeg4);
    ASSERT_EQ(GST_FLOW_OK, decoder.Push(good[0], 0));
    ASSERT_EQ(GST_FLOW_OK, decoder.Push(refused[0], kTenth));  // it may be damage
    ASSERT_EQ(GST_FLOW_OK, decoder.Push(cut_off, 2 * kTenth));
    ASSERT_EQ(GST_FLOW_OK, decoder.Push(refused[1], 2 * kTenth));
    EXPECT_EQ(1u, decoder.pictures.size());
    ASSERT_EQ(GST_FLOW_ERROR, decoder.Push(refused[0], 3 * kTenth));
    ExpectRefusal(decoder, "ERR_VID_MPEG4DEC_UNSUPPORT_DP");
}

TEST(GstElementRefusals, SpareAStreamWithOneStrangePicture) {
    GstDecoder decoder;
    decoder.SetCaps(kMpeg4);
    decoder.PushFramed(ReadStream("r13_s_picture"), kTenth);
    decoder.End();
    const std::vector<std::string> wanted = RecordedMd5s("r13_s_picture");
    EXPECT_EQ(wanted, decoder.Md5s());
    EXPECT_EQ(9u, decoder.pictures.size());
    EXPECT_EQ(1u, decoder.warnings().size());
    EXPECT_TRUE(decoder.errors().empty());
}

}  // namespace
}  // namespace mp4v::test
