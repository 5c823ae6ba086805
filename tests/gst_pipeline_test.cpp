// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

// The element behind GStreamer's own demuxers and depayloader, and chosen by GStreamer itself.
#include "support/gst_pipeline.h"

#include <gst/video/gstvideodecoder.h>

#include <condition_variable>
#include <cstdlib>
#include <mutex>
#include <set>

#include "support/random.h"

namespace mp4v::test {
namespace {

constexpr Clip kCamera{"o02_qcif_camera_q8", 176, 144, 30};
constexpr Clip kTiny{"o25_tiny48x32", 48, 32, 10};
constexpr Clip kOdd{"o31_fast_pan_qpel", 426, 240, 25};
constexpr Clip kInterlaced{"o06_pal_interlaced", 720, 576, 25};
constexpr Clip kShort{"oq30_sweep", 96, 80, 25};

struct Container {
    const char* muxer;
    const char* demuxer;
    const char* file;
};

void PrintTo(const Container& container, std::ostream* out) {
    *out << container.muxer;
}

class GstContainer : public testing::TestWithParam<Container> {
  protected:
    std::string path() const { return folder_.Path(GetParam().file); }

    TemporaryFolder folder_;
};

std::string Source(const std::string& path) {
    return "filesrc location=" + path + " ! ";
}

// As "mp4vdec decode --framemd5" prints them.
std::vector<std::string> PlayerMd5s(const std::string& path, const std::string& folder) {
    std::vector<std::string> all;
#ifdef MP4VDEC_PLAYER
    const std::string lines = folder + "/lines.txt";
    EXPECT_EQ(0, system(("'" MP4VDEC_PLAYER "' decode -q '" + path + "' --framemd5 '" + lines + "'").c_str()));
    std::ifstream file(lines);
    for (std::string number, md5; file >> number >> md5;) all.push_back(md5);
#endif
    return all;
}

TEST_P(GstContainer, IsPlayedPictureByPicture) {
    for (const Clip& clip : {kCamera, kTiny, kOdd, kInterlaced}) {
        SCOPED_TRACE(clip.name);
        Mux(clip, GetParam().muxer, path());
        const Pipeline pipeline(Source(path()) + GetParam().demuxer + " ! mp4vdec ! appsink name=sink sync=false");
        pipeline.Set(GST_STATE_PLAYING);
        const std::vector<ShownPicture> pictures = pipeline.PullAll();
        const std::vector<std::string> wanted = RecordedMd5s(clip.name);
        EXPECT_EQ(wanted, Md5sOf(pictures));
        ASSERT_EQ(wanted.size(), pictures.size());
        for (size_t i = 0; i < pictures.size(); i++) {
            // Containers round.
            EXPECT_NEAR(static_cast<double>(clip.Time(i)), static_cast<double>(pictures[i].pts), GST_MSECOND) << i;
        }
        EXPECT_NE(std::string::npos, pictures[0].caps.find("framerate=(fraction)" + std::to_string(clip.rate) + "/1"))
            << pictures[0].caps;
        const std::vector<std::string> player = PlayerMd5s(path(), folder_.Path(""));
        EXPECT_TRUE(player.empty() || player == Md5sOf(pictures));
        EXPECT_TRUE(Complaints(pipeline.bus(), GST_MESSAGE_WARNING).empty());
    }
}

TEST_P(GstContainer, FindsItsDecoder) {
    Mux(kTiny, GetParam().muxer, path());
    const Pipeline pipeline(Source(path()) + "decodebin ! appsink name=sink sync=false");
    pipeline.Set(GST_STATE_PLAYING);
    EXPECT_EQ(RecordedMd5s(kTiny.name), Md5sOf(pipeline.PullAll()));
}

INSTANTIATE_TEST_SUITE_P(Kinds, GstContainer,
                         testing::Values(Container{"avimux", "avidemux", "clip.avi"},
                                         Container{"mp4mux", "qtdemux", "clip.mp4"},
                                         Container{"qtmux", "qtdemux", "clip.mov"},
                                         Container{"matroskamux", "matroskademux", "clip.mkv"}));

// The names under which the format goes in AVI files; avimux writes only some of them.
TEST(GstAvi, IsPlayedUnderAllItsUsualNames) {
    const Bytes original = ReadBytes(std::string(MP4VDEC_TEST_DATA_DIR) + "/containers/tiny.avi");
    const std::string text(original.begin(), original.end());
    const size_t handler = text.find("vids") + 4;
    const size_t compression = text.find("strf") + 8 + 16;
    const TemporaryFolder folder;
    for (const std::string name :
         {"XVID", "xvid", "DIVX", "divx", "DX50", "FMP4", "MP4V", "mp4v", "M4S2", "3IV2", "SEDG"}) {
        SCOPED_TRACE(name);
        std::string renamed = text;
        renamed.replace(handler, 4, name).replace(compression, 4, name);
        std::ofstream(folder.Path("clip.avi"), std::ios::binary) << renamed;
        const Pipeline pipeline(Source(folder.Path("clip.avi")) + "avidemux ! mp4vdec ! appsink name=sink sync=false");
        pipeline.Set(GST_STATE_PLAYING);
        EXPECT_EQ(RecordedMd5s(kTiny.name), Md5sOf(pipeline.PullAll()));
    }
}

TEST(GstElementaryStream, IsFoundOutAndPlayed) {
    for (const Clip& clip : {kCamera, kTiny, kOdd}) {
        SCOPED_TRACE(clip.name);
        const Pipeline pipeline(Source(StreamPath(clip.name) + ".m4v") + "decodebin ! appsink name=sink sync=false");
        pipeline.Set(GST_STATE_PLAYING);
        const std::vector<ShownPicture> pictures = pipeline.PullAll();
        EXPECT_EQ(RecordedMd5s(clip.name), Md5sOf(pictures));
        for (size_t i = 0; i < pictures.size(); i++) EXPECT_EQ(clip.Time(i), pictures[i].pts) << i;
    }
}

TEST(GstPlaybin, ShowsAFile) {
    const TemporaryFolder folder;
    Mux(kTiny, "avimux", folder.Path("clip.avi"));
    const Pipeline pipeline("playbin uri=file://" + folder.Path("clip.avi") +
                            " flags=video video-sink=\"appsink name=sink sync=false\"");
    pipeline.Set(GST_STATE_PLAYING);
    EXPECT_EQ(RecordedMd5s(kTiny.name), Md5sOf(pipeline.PullAll()));
}

TEST(GstPlay, PlaysAFile) {
#ifdef MP4VDEC_TEST_SANITIZED
    GTEST_SKIP() << "a program that is not sanitized cannot load a plugin that is";
#endif
    if (system("command -v gst-play-1.0 >/dev/null") != 0) GTEST_SKIP() << "gst-play-1.0 is not installed";
    const TemporaryFolder folder;
    Mux(kShort, "avimux", folder.Path("camera.avi"));
    const std::string plugins = std::filesystem::path(MP4VDEC_GST_PLUGIN).parent_path();
    const std::string command = "cd '" + folder.Path("") + "' && GST_PLUGIN_PATH='" + plugins +
                                "' GST_REGISTRY=registry.bin gst-play-1.0 --no-interactive --audiosink=fakesink "
                                "--videosink='filesink location=pictures.yuv' camera.avi >log.txt 2>&1";
    EXPECT_EQ(0, system(command.c_str())) << command;
    const Bytes log = ReadBytes(folder.Path("log.txt"));
    EXPECT_NE(std::string::npos, std::string(log.begin(), log.end()).find("Reached end of play list"));
    const Bytes pictures = ReadBytes(folder.Path("pictures.yuv"));
    const size_t size = 96 * 80 * 3 / 2;
    std::vector<std::string> md5s;
    for (size_t at = 0; at + size <= pictures.size(); at += size)
        md5s.push_back(Md5(std::span(pictures).subspan(at, size)));
    EXPECT_EQ(RecordedMd5s(kShort.name), md5s);
}

// ---- What this decoder refuses is the next one's

struct OtherDecoder {
    GstVideoDecoder parent;
};
struct OtherDecoderClass {
    GstVideoDecoderClass parent;
};
G_DEFINE_TYPE(OtherDecoder, other_decoder, GST_TYPE_VIDEO_DECODER)

gboolean OtherSetFormat(GstVideoDecoder* decoder, GstVideoCodecState* state) {
    gst_video_codec_state_unref(gst_video_decoder_set_output_state(decoder, GST_VIDEO_FORMAT_I420, 16, 16, state));
    return TRUE;
}

GstFlowReturn OtherHandleFrame(GstVideoDecoder* decoder, GstVideoCodecFrame* frame) {
    gst_video_decoder_allocate_output_frame(decoder, frame);
    gst_buffer_memset(frame->output_buffer, 0, 77, gst_buffer_get_size(frame->output_buffer));
    return gst_video_decoder_finish_frame(decoder, frame);
}

void other_decoder_init(OtherDecoder*) {}

void other_decoder_class_init(OtherDecoderClass* type) {
    auto* const element = GST_ELEMENT_CLASS(type);
    const Ref<GstCaps> in = CapsOf("video/mpeg,mpegversion=(int)4,systemstream=(boolean)false");
    const Ref<GstCaps> out = CapsOf(GST_VIDEO_CAPS_MAKE("I420"));
    gst_element_class_add_pad_template(element, gst_pad_template_new("sink", GST_PAD_SINK, GST_PAD_ALWAYS, in.get()));
    gst_element_class_add_pad_template(element, gst_pad_template_new("src", GST_PAD_SRC, GST_PAD_ALWAYS, out.get()));
    gst_element_class_set_static_metadata(element, "Other", "Codec/Decoder/Video", "Paints 77", "nobody");
    GST_VIDEO_DECODER_CLASS(type)->set_format = OtherSetFormat;
    GST_VIDEO_DECODER_CLASS(type)->handle_frame = OtherHandleFrame;
}

TEST(GstAutoplugging, GoesOnToAnotherDecoderAfterARefusal) {
    ASSERT_TRUE(gst_element_register(nullptr, "otherdec", GST_RANK_MARGINAL, other_decoder_get_type()));
    const TemporaryFolder folder;
    const std::string painted = Md5(Bytes(16 * 16 * 3 / 2, 77));
    for (const auto& [name, supported] : {std::pair{"r02_data_partitioned", false}, {"oq11_sweep", true}}) {
        SCOPED_TRACE(name);
        Mux({name, 96, 80, 25}, "mp4mux", folder.Path("clip.mp4"));
        const Pipeline pipeline(Source(folder.Path("clip.mp4")) + "decodebin ! appsink name=sink sync=false");
        pipeline.Set(GST_STATE_PLAYING);
        const std::vector<std::string> md5s = Md5sOf(pipeline.PullAll());
        EXPECT_EQ(supported ? RecordedMd5s(name) : std::vector<std::string>(md5s.size(), painted), md5s);
        EXPECT_GE(md5s.size(), 10u);
    }
    gst_registry_remove_feature(gst_registry_get(), gst_registry_lookup_feature(gst_registry_get(), "otherdec"));
}

TEST(GstAutoplugging, EndsInAnErrorWhenTheRefusalComesTooLate) {
    const TemporaryFolder folder;
    Mux({"r02_data_partitioned", 176, 144, 25}, "avimux",
        folder.Path("clip.avi"));  // its headers come with the pictures
    const Pipeline pipeline(Source(folder.Path("clip.avi")) + "decodebin ! appsink name=sink sync=false");
    gst_element_set_state(pipeline.element(), GST_STATE_PLAYING);
    const Ref<GstMessage> message(gst_bus_timed_pop_filtered(
        pipeline.bus(), kPatience, static_cast<GstMessageType>(GST_MESSAGE_EOS | GST_MESSAGE_ERROR)));
    ASSERT_TRUE(message);
    ASSERT_EQ(GST_MESSAGE_ERROR, GST_MESSAGE_TYPE(message.get()));
    const Complaint error = ComplaintOf(message.get());
    EXPECT_EQ(GST_STREAM_ERROR, error.domain);
    EXPECT_EQ(GST_STREAM_ERROR_WRONG_TYPE, error.code);
    EXPECT_NE(std::string::npos, error.text.find("ERR_VID_MPEG4DEC_UNSUPPORT_DP")) << error.text;
}

// ---- RTP over loopback

// Loses packets of a payloader as a list of numbers wants it, and knows what that does to the pictures.
class LossyLink {
  public:
    LossyLink(const Clip& clip, uint32_t one_in, uint32_t seed) : clip_(clip), one_in_(one_in), random_(seed) {}

    static GstPadProbeReturn OnSend(GstPad*, GstPadProbeInfo* info, gpointer self) {
        auto* const link = static_cast<LossyLink*>(self);
        std::unique_lock lock(link->mutex_);
        // The socket holds only so many.
        link->changed_.wait_for(lock, std::chrono::nanoseconds(kPatience),
                                [&] { return link->sent_ - link->received_ < kMostUnderWay; });
        const GstClockTime pts = GST_BUFFER_PTS(GST_PAD_PROBE_INFO_BUFFER(info));
        const bool lost = link->one_in_ > 0 && link->random_.Chance(link->one_in_);
        if (lost) link->lost_.insert(gst_util_uint64_scale_round(pts, link->clip_.rate, GST_SECOND));
        link->sent_ += !lost;
        return lost ? GST_PAD_PROBE_DROP : GST_PAD_PROBE_OK;
    }
    static GstPadProbeReturn OnReceive(GstPad*, GstPadProbeInfo*, gpointer self) {
        auto* const link = static_cast<LossyLink*>(self);
        const std::lock_guard lock(link->mutex_);
        link->received_++;
        link->changed_.notify_all();
        return GST_PAD_PROBE_OK;
    }

    // After everything has been sent.
    bool WaitForAll() {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, std::chrono::nanoseconds(kPatience), [&] { return received_ == sent_; });
    }

    // The pictures that loss has nothing to do with, from an intra picture on.
    std::vector<std::string> Untouched() const {
        const std::vector<Bytes> chunks = Split(clip_.stream());
        const std::vector<std::string> all = RecordedMd5s(clip_.name);
        std::vector<std::string> good;
        bool damaged = true;
        for (size_t i = 0; i < all.size(); i++) {
            if (IsIntra(chunks[i])) damaged = false;
            if (lost_.count(i)) damaged = true;
            if (!damaged) good.push_back(all[i]);
        }
        return good;
    }
    size_t lost() const { return lost_.size(); }

  private:
    static constexpr size_t kMostUnderWay = 32;

    const Clip clip_;
    const uint32_t one_in_;
    Random random_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::set<uint64_t> lost_;
    size_t sent_ = 0;
    size_t received_ = 0;
};

void AddProbe(const Pipeline& pipeline, const char* element, GstPadProbeCallback callback, LossyLink& link) {
    const Ref<GstElement> found = pipeline.Find(element);
    const Ref<GstPad> pad(gst_element_get_static_pad(found.get(), "src"));
    gst_pad_add_probe(pad.get(), GST_PAD_PROBE_TYPE_BUFFER, callback, &link, nullptr);
}

// Buffers, where a payloader sends lists, so that each packet can get lost.
std::vector<ShownPicture> SendAndReceive(const Clip& clip, LossyLink& link, std::vector<Complaint>& warnings) {
    Pipeline receiver(
        "udpsrc name=receiver address=127.0.0.1 port=0 "
        "caps=\"application/x-rtp,media=video,clock-rate=90000,encoding-name=MP4V-ES\" ! "
        "rtpmp4vdepay ! mp4vdec ! appsink name=sink sync=false async=false");
    AddProbe(receiver, "receiver", LossyLink::OnReceive, link);
    receiver.Set(GST_STATE_PLAYING);
    gint port = 0;
    g_object_get(receiver.Find("receiver").get(), "port", &port, nullptr);

    Pipeline sender(
        "appsrc name=source format=time ! rtpmp4vpay name=payloader mtu=100 config-interval=-1 ! "
        "identity name=lossy ! udpsink host=127.0.0.1 sync=false async=false port=" +
        std::to_string(port));
    AddProbe(sender, "lossy", LossyLink::OnSend, link);
    const Ref<GstElement> source = sender.Find("source");
    gst_app_src_set_caps(GST_APP_SRC(source.get()), clip.caps().get());
    gst_element_set_state(sender.element(), GST_STATE_PLAYING);
    PushClip(clip, source.get());
    const Ref<GstMessage> end(gst_bus_timed_pop_filtered(
        sender.bus(), kPatience, static_cast<GstMessageType>(GST_MESSAGE_EOS | GST_MESSAGE_ERROR)));
    EXPECT_TRUE(end && GST_MESSAGE_TYPE(end.get()) == GST_MESSAGE_EOS);

    EXPECT_TRUE(link.WaitForAll());
    gst_element_send_event(receiver.element(), gst_event_new_eos());
    std::vector<ShownPicture> pictures = receiver.PullAll();
    warnings = Complaints(receiver.bus(), GST_MESSAGE_WARNING);
    return pictures;
}

TEST(GstRtp, BringsEveryPictureOverASoundLink) {
    for (const Clip& clip : {kCamera, kShort}) {
        LossyLink link(clip, 0, 0);
        std::vector<Complaint> warnings;
        const std::vector<ShownPicture> pictures = SendAndReceive(clip, link, warnings);
        EXPECT_EQ(RecordedMd5s(clip.name), Md5sOf(pictures));
        for (const ShownPicture& picture : pictures) EXPECT_FALSE(picture.corrupted);
        EXPECT_TRUE(warnings.empty());
    }
}

TEST(GstRtp, MarksWhatALossyLinkSpoils) {
    for (const uint32_t seed : {1u, 5u, 6u}) {
        SCOPED_TRACE(seed);
        LossyLink link(kCamera, 20, seed);
        std::vector<Complaint> warnings;
        const std::vector<ShownPicture> pictures = SendAndReceive(kCamera, link, warnings);
        EXPECT_GE(link.lost(), 10u);
        std::vector<std::string> clean;
        for (const ShownPicture& picture : pictures) {
            if (!picture.corrupted) clean.push_back(picture.md5);
        }
        EXPECT_EQ(link.Untouched(), clean);
        EXPECT_FALSE(clean.empty());
        EXPECT_GT(pictures.size(), clean.size());
    }
}

}  // namespace
}  // namespace mp4v::test
