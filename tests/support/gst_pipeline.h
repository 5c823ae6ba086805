// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

// Whole pipelines: elementary streams are put into containers and played with an appsink at the end.
#ifndef MP4VDEC_TESTS_SUPPORT_GST_PIPELINE_H_
#define MP4VDEC_TESTS_SUPPORT_GST_PIPELINE_H_

#include <gst/app/gstappsink.h>
#include <gst/app/gstappsrc.h>
#include <stdlib.h>

#include <filesystem>
#include <optional>
#include <stdexcept>

#include "host/vol_header.h"
#include "support/gst.h"

namespace mp4v::test {

// Long enough for any machine; it decides nothing but when to give up on a pipeline that hangs.
constexpr GstClockTime kPatience = 20 * GST_SECOND;

struct ShownPicture {
    GstClockTime pts = GST_CLOCK_TIME_NONE;
    GstClockTime duration = GST_CLOCK_TIME_NONE;
    bool corrupted = false;
    std::string md5;
    GstSegment segment;
    std::string caps;
};

inline std::vector<std::string> Md5sOf(const std::vector<ShownPicture>& pictures) {
    std::vector<std::string> all;
    for (const ShownPicture& picture : pictures) all.push_back(picture.md5);
    return all;
}

// A pipeline from its description, whose last element is an appsink called "sink".
class Pipeline {
  public:
    explicit Pipeline(const std::string& description) {
        GError* problem = nullptr;
        pipeline_.reset(gst_parse_launch(description.c_str(), &problem));
        const Ref<GError> owner(problem);
        if (problem) throw std::runtime_error(description + ": " + problem->message);
        bus_.reset(gst_element_get_bus(pipeline_.get()));
        sink_ = Find("sink");
        if (g_object_class_find_property(G_OBJECT_GET_CLASS(pipeline_.get()), "video-sink")) {
            GstElement* sink = nullptr;  // a playbin takes it up later
            g_object_get(pipeline_.get(), "video-sink", &sink, nullptr);
            sink_.reset(sink);
        }
    }
    ~Pipeline() { gst_element_set_state(pipeline_.get(), GST_STATE_NULL); }
    Pipeline(const Pipeline&) = delete;
    Pipeline& operator=(const Pipeline&) = delete;

    GstElement* element() const { return pipeline_.get(); }
    GstBus* bus() const { return bus_.get(); }
    Ref<GstElement> Find(const char* name) const {
        return Ref<GstElement>(gst_bin_get_by_name(GST_BIN(pipeline_.get()), name));
    }

    // Sets a state and waits until it is reached.
    void Set(GstState state) const {
        ASSERT_NE(GST_STATE_CHANGE_FAILURE, gst_element_set_state(pipeline_.get(), state));
        ASSERT_EQ(GST_STATE_CHANGE_SUCCESS, gst_element_get_state(pipeline_.get(), nullptr, nullptr, kPatience));
    }

    // The next picture; none at the end.
    std::optional<ShownPicture> Pull() const {
        return Show(Ref<GstSample>(gst_app_sink_try_pull_sample(GST_APP_SINK(sink_.get()), kPatience)));
    }
    // The one that a paused pipeline shows.
    std::optional<ShownPicture> Preroll() const {
        return Show(Ref<GstSample>(gst_app_sink_try_pull_preroll(GST_APP_SINK(sink_.get()), kPatience)));
    }
    std::vector<ShownPicture> PullAll() const {
        std::vector<ShownPicture> all;
        while (std::optional<ShownPicture> picture = Pull()) all.push_back(std::move(*picture));
        EXPECT_TRUE(gst_app_sink_is_eos(GST_APP_SINK(sink_.get())));
        for (const Complaint& error : Complaints(bus(), GST_MESSAGE_ERROR)) {
            ADD_FAILURE() << error.text << " " << error.debug;
        }
        return all;
    }

    std::optional<GstClockTime> Position() const {
        gint64 position = 0;
        if (!gst_element_query_position(pipeline_.get(), GST_FORMAT_TIME, &position)) return std::nullopt;
        return static_cast<GstClockTime>(position);
    }
    std::optional<GstClockTime> Duration() const {
        gint64 duration = 0;
        if (!gst_element_query_duration(pipeline_.get(), GST_FORMAT_TIME, &duration)) return std::nullopt;
        return static_cast<GstClockTime>(duration);
    }

  private:
    static std::optional<ShownPicture> Show(const Ref<GstSample>& sample) {
        if (!sample) return std::nullopt;
        GstBuffer* const buffer = gst_sample_get_buffer(sample.get());
        GstCaps* const caps = gst_sample_get_caps(sample.get());
        return ShownPicture{GST_BUFFER_PTS(buffer),
                            GST_BUFFER_DURATION(buffer),
                            GST_BUFFER_FLAG_IS_SET(buffer, GST_BUFFER_FLAG_CORRUPTED),
                            Md5(PackedSamples(buffer, caps)),
                            *gst_sample_get_segment(sample.get()),
                            TextOf(caps)};
    }

    Ref<GstElement> pipeline_;
    Ref<GstBus> bus_;
    Ref<GstElement> sink_;
};

// A folder that goes with the object.
class TemporaryFolder {
  public:
    TemporaryFolder() {
        std::string name = (std::filesystem::temp_directory_path() / "mp4vdec-gst-XXXXXX").string();
        if (!mkdtemp(name.data())) throw std::runtime_error("no temporary folder");
        path_ = name;
    }
    ~TemporaryFolder() { std::filesystem::remove_all(path_); }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    std::string Path(const std::string& name) const { return (path_ / name).string(); }

  private:
    std::filesystem::path path_;
};

// An elementary stream with what a container wants to know of it.
struct Clip {
    const char* name;
    guint width;
    guint height;
    guint rate;

    Bytes stream() const { return ReadStream(name); }
    GstClockTime Time(size_t picture) const { return gst_util_uint64_scale(picture, GST_SECOND, rate); }
    // Headers in front of the first picture.
    Bytes headers() const {
        const Bytes first = Split(stream())[0];
        return {first.begin(), first.begin() + static_cast<ptrdiff_t>(*ScanHeaders(first).vop_position)};
    }
    Ref<GstCaps> caps() const {
        return CapsOf("video/mpeg,mpegversion=(int)4,systemstream=(boolean)false,width=(int)" + std::to_string(width) +
                          ",height=(int)" + std::to_string(height) + ",framerate=(fraction)" + std::to_string(rate) +
                          "/1",
                      headers());
    }
};

inline bool IsIntra(const Bytes& chunk) {
    return chunk[*ScanHeaders(chunk).vop_position + 4] >> 6 == 0;
}

// Chunk by chunk into an appsrc, then the end.
inline void PushClip(const Clip& clip, GstElement* source) {
    size_t picture = 0;
    for (const Bytes& chunk : Split(clip.stream())) {
        Ref<GstBuffer> buffer = BufferOf(chunk, clip.Time(picture));
        GST_BUFFER_DTS(buffer.get()) = clip.Time(picture);
        GST_BUFFER_DURATION(buffer.get()) = clip.Time(picture + 1) - clip.Time(picture);
        if (!IsIntra(chunk)) GST_BUFFER_FLAG_SET(buffer.get(), GST_BUFFER_FLAG_DELTA_UNIT);
        ASSERT_EQ(GST_FLOW_OK, gst_app_src_push_buffer(GST_APP_SRC(source), buffer.release()));
        picture++;
    }
    ASSERT_EQ(GST_FLOW_OK, gst_app_src_end_of_stream(GST_APP_SRC(source)));
}

// Puts a clip into a container.
inline void Mux(const Clip& clip, const std::string& muxer, const std::string& path) {
    GError* problem = nullptr;
    const std::string description =
        "appsrc name=source format=time ! mux.video_0 " + muxer + " name=mux ! filesink location=" + path;
    const Ref<GstElement> pipeline(gst_parse_launch(description.c_str(), &problem));
    ASSERT_EQ(nullptr, problem) << problem->message;
    const Ref<GstElement> source(gst_bin_get_by_name(GST_BIN(pipeline.get()), "source"));
    gst_app_src_set_caps(GST_APP_SRC(source.get()), clip.caps().get());
    gst_element_set_state(pipeline.get(), GST_STATE_PLAYING);
    PushClip(clip, source.get());
    const Ref<GstBus> bus(gst_element_get_bus(pipeline.get()));
    const Ref<GstMessage> message(gst_bus_timed_pop_filtered(
        bus.get(), kPatience, static_cast<GstMessageType>(GST_MESSAGE_EOS | GST_MESSAGE_ERROR)));
    gst_element_set_state(pipeline.get(), GST_STATE_NULL);
    ASSERT_TRUE(message);
    ASSERT_EQ(GST_MESSAGE_EOS, GST_MESSAGE_TYPE(message.get())) << ComplaintOf(message.get()).text;
}

}  // namespace mp4v::test

#endif  // MP4VDEC_TESTS_SUPPORT_GST_PIPELINE_H_
