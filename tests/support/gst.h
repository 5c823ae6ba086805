// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

// GStreamer with the plugin under test and no other decoder of the format, for tests of the element and of pipelines.
#ifndef MP4VDEC_TESTS_SUPPORT_GST_H_
#define MP4VDEC_TESTS_SUPPORT_GST_H_

#include <gst/gst.h>
#include <gst/video/video.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <fstream>
#include <iterator>
#include <memory>
#include <span>
#include <sstream>
#include <string>
#include <vector>

#include "host/splitter.h"
#include "mp4vdec.hpp"

namespace mp4v::test {

using Bytes = std::vector<uint8_t>;

struct GstUnref {
    void operator()(GstElement* element) const { gst_object_unref(element); }
    void operator()(GstBus* bus) const { gst_object_unref(bus); }
    void operator()(GstPad* pad) const { gst_object_unref(pad); }
    void operator()(GstElementFactory* factory) const { gst_object_unref(factory); }
    void operator()(GstCaps* caps) const { gst_caps_unref(caps); }
    void operator()(GstBuffer* buffer) const { gst_buffer_unref(buffer); }
    void operator()(GstEvent* event) const { gst_event_unref(event); }
    void operator()(GstSample* sample) const { gst_sample_unref(sample); }
    void operator()(GstMessage* message) const { gst_message_unref(message); }
    void operator()(GError* error) const { g_error_free(error); }
    void operator()(gchar* text) const { g_free(text); }
};

template <typename T>
using Ref = std::unique_ptr<T, GstUnref>;

// Loads the plugin into this process: the scanner that GStreamer sends ahead would not know a sanitizer's library.
class GstEnvironment : public testing::Environment {
  public:
    void SetUp() override {
        g_setenv("GST_REGISTRY", MP4VDEC_GST_REGISTRY, TRUE);
        g_unsetenv("GST_PLUGIN_PATH");
        gst_init(nullptr, nullptr);
        GError* problem = nullptr;
        GstPlugin* const plugin = gst_plugin_load_file(MP4VDEC_GST_PLUGIN, &problem);
        ASSERT_NE(nullptr, plugin) << (problem ? problem->message : "");
        gst_object_unref(plugin);
    }
    void TearDown() override { gst_deinit(); }
};

inline testing::Environment* const gst_environment = testing::AddGlobalTestEnvironment(new GstEnvironment);

inline std::string StreamPath(const std::string& name) {
    return std::string(MP4VDEC_TEST_DATA_DIR) + "/streams/" + name;
}

inline Bytes ReadBytes(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    Bytes bytes{std::istreambuf_iterator<char>(file), {}};
    EXPECT_FALSE(bytes.empty()) << path;
    return bytes;
}

inline Bytes ReadStream(const std::string& name) {
    return ReadBytes(StreamPath(name) + ".m4v");
}

inline std::vector<Bytes> Split(const Bytes& stream) {
    Splitter splitter;
    splitter.Append(stream);
    splitter.Finish();
    std::vector<Bytes> chunks;
    for (Chunk chunk; splitter.Next(chunk);) chunks.push_back(chunk.data);
    return chunks;
}

inline std::string Md5(std::span<const uint8_t> bytes) {
    const Ref<gchar> text(g_compute_checksum_for_data(G_CHECKSUM_MD5, bytes.data(), bytes.size()));
    return text.get();
}

// As recorded beside a stream, for a deblocking threshold of 10 or 30.
inline std::vector<std::string> RecordedMd5s(const std::string& name, unsigned threshold = 10) {
    std::ifstream file(StreamPath(name) + ".md5");
    std::vector<std::string> all;
    for (std::string line; std::getline(file, line);) {
        std::istringstream fields(line);
        std::string number, low, high;
        if (line[0] != '#' && fields >> number >> low >> high) all.push_back(threshold == 10 ? low : high);
    }
    EXPECT_FALSE(all.empty()) << name;
    return all;
}

// Of the pictures that a session gives.
inline std::vector<std::string> SessionMd5s(const Bytes& stream, const SessionOptions& options) {
    Session session(options);
    std::vector<std::string> all;
    session.Feed(stream);
    for (const Result& result : session.Finish()) {
        if (result.picture) all.push_back(Md5(result.picture->Pack()));
    }
    return all;
}

// Planar 4:2:0 without gaps, whatever the layout of the buffer.
inline Bytes PackedSamples(GstBuffer* buffer, const GstCaps* caps) {
    GstVideoInfo info;
    GstVideoFrame frame;
    Bytes packed;
    if (!gst_video_info_from_caps(&info, caps) || !gst_video_frame_map(&frame, &info, buffer, GST_MAP_READ)) {
        ADD_FAILURE() << "not a picture";
        return packed;
    }
    for (guint plane = 0; plane < 3; plane++) {
        const auto* row = static_cast<const uint8_t*>(GST_VIDEO_FRAME_PLANE_DATA(&frame, plane));
        for (gint y = 0; y < GST_VIDEO_FRAME_COMP_HEIGHT(&frame, plane); y++) {
            packed.insert(packed.end(), row, row + GST_VIDEO_FRAME_COMP_WIDTH(&frame, plane));
            row += GST_VIDEO_FRAME_PLANE_STRIDE(&frame, plane);
        }
    }
    gst_video_frame_unmap(&frame);
    return packed;
}

inline Ref<GstBuffer> BufferOf(std::span<const uint8_t> bytes, GstClockTime pts = GST_CLOCK_TIME_NONE) {
    Ref<GstBuffer> buffer(bytes.empty() ? gst_buffer_new() : gst_buffer_new_memdup(bytes.data(), bytes.size()));
    GST_BUFFER_PTS(buffer.get()) = pts;
    return buffer;
}

inline Ref<GstCaps> CapsOf(const std::string& text) {
    Ref<GstCaps> caps(gst_caps_from_string(text.c_str()));
    EXPECT_NE(nullptr, caps.get()) << text;
    return caps;
}

inline Ref<GstCaps> CapsOf(const std::string& text, std::span<const uint8_t> codec_data) {
    Ref<GstCaps> caps = CapsOf(text);
    gst_caps_set_simple(caps.get(), "codec_data", GST_TYPE_BUFFER, BufferOf(codec_data).get(), nullptr);
    return caps;
}

inline std::string TextOf(const GstCaps* caps) {
    return Ref<gchar>(gst_caps_to_string(caps)).get();
}

struct Complaint {
    GQuark domain = 0;
    gint code = 0;
    std::string text;
    std::string debug;
};

inline Complaint ComplaintOf(GstMessage* message) {
    GError* error = nullptr;
    gchar* debug = nullptr;
    if (GST_MESSAGE_TYPE(message) == GST_MESSAGE_ERROR) {
        gst_message_parse_error(message, &error, &debug);
    } else {
        gst_message_parse_warning(message, &error, &debug);
    }
    const Ref<GError> error_owner(error);
    const Ref<gchar> debug_owner(debug);
    return {error->domain, error->code, error->message, debug ? debug : ""};
}

// The errors or warnings that are waiting on a bus; everything else there is thrown away.
inline std::vector<Complaint> Complaints(GstBus* bus, GstMessageType type) {
    std::vector<Complaint> all;
    while (const Ref<GstMessage> message{gst_bus_pop_filtered(bus, type)}) all.push_back(ComplaintOf(message.get()));
    return all;
}

}  // namespace mp4v::test

#endif  // MP4VDEC_TESTS_SUPPORT_GST_H_
