// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

// The element between two pads of a test, which pushes one buffer or event after the other and sees what comes out.
#ifndef MP4VDEC_TESTS_SUPPORT_GST_DECODER_H_
#define MP4VDEC_TESTS_SUPPORT_GST_DECODER_H_

#include <gst/check/gstharness.h>

#include "support/gst.h"

namespace mp4v::test {

constexpr const char* kMpeg4 = "video/mpeg,mpegversion=(int)4,systemstream=(boolean)false";
constexpr const char* kUnframed = "video/mpeg,mpegversion=(int)4,systemstream=(boolean)false,parsed=(boolean)false";

struct DeliveredPicture {
    GstClockTime pts;
    GstClockTime duration;
    guint flags;
    std::string md5;
    GstVideoInfo info;
};

class GstDecoder {
  public:
    GstDecoder() : harness_(gst_harness_new("mp4vdec")), bus_(gst_bus_new()) {
        gst_element_set_bus(harness_->element, bus_.get());
        gst_harness_set_drop_buffers(harness_, TRUE);
        const Ref<GstPad> pad(gst_element_get_static_pad(harness_->element, "src"));
        gst_pad_add_probe(pad.get(),
                          static_cast<GstPadProbeType>(GST_PAD_PROBE_TYPE_BUFFER | GST_PAD_PROBE_TYPE_EVENT_DOWNSTREAM),
                          OnOutput, this, nullptr);
    }
    ~GstDecoder() {
        gst_element_set_bus(harness_->element, nullptr);
        gst_harness_teardown(harness_);
    }
    GstDecoder(const GstDecoder&) = delete;
    GstDecoder& operator=(const GstDecoder&) = delete;

    GstElement* element() const { return harness_->element; }
    GstHarness* harness() const { return harness_; }
    GstBus* bus() const { return bus_.get(); }

    void SetCaps(Ref<GstCaps> stream) { gst_harness_set_src_caps(harness_, stream.release()); }
    void SetCaps(const std::string& stream) { SetCaps(CapsOf(stream)); }
    GstFlowReturn Push(std::span<const uint8_t> bytes, GstClockTime pts = GST_CLOCK_TIME_NONE) {
        return Push(BufferOf(bytes, pts));
    }
    GstFlowReturn Push(Ref<GstBuffer> buffer) { return gst_harness_push(harness_, buffer.release()); }
    bool Push(GstEvent* event) { return gst_harness_push_event(harness_, event); }
    // Every chunk in a buffer of its own.
    void PushFramed(const Bytes& stream, GstClockTime duration) {
        GstClockTime pts = 0;
        for (const Bytes& chunk : Split(stream)) {
            const Ref<GstBuffer> buffer = BufferOf(chunk, pts);
            GST_BUFFER_DURATION(buffer.get()) = duration;
            ASSERT_EQ(GST_FLOW_OK, Push(Ref<GstBuffer>(gst_buffer_ref(buffer.get()))));
            pts += duration;
        }
    }
    void End() { EXPECT_TRUE(Push(gst_event_new_eos())); }
    void Flush() {
        EXPECT_TRUE(Push(gst_event_new_flush_start()));
        EXPECT_TRUE(Push(gst_event_new_flush_stop(TRUE)));
        PushSegment(GST_FORMAT_TIME);
    }
    void PushSegment(GstFormat format) {
        GstSegment segment;
        gst_segment_init(&segment, format);
        EXPECT_TRUE(Push(gst_event_new_segment(&segment)));
    }

    std::vector<Complaint> errors() const { return Complaints(bus(), GST_MESSAGE_ERROR); }
    std::vector<Complaint> warnings() const { return Complaints(bus(), GST_MESSAGE_WARNING); }

    std::vector<std::string> Md5s() const {
        std::vector<std::string> all;
        for (const DeliveredPicture& picture : pictures) all.push_back(picture.md5);
        return all;
    }

    std::vector<DeliveredPicture> pictures;
    std::vector<std::string> caps;  // every time they were set
    bool ended = false;

  private:
    static GstPadProbeReturn OnOutput(GstPad*, GstPadProbeInfo* info, gpointer self) {
        auto* const decoder = static_cast<GstDecoder*>(self);
        if (info->type & GST_PAD_PROBE_TYPE_BUFFER) {
            decoder->Note(GST_PAD_PROBE_INFO_BUFFER(info));
        } else {
            decoder->Note(GST_PAD_PROBE_INFO_EVENT(info));
        }
        return GST_PAD_PROBE_OK;
    }

    void Note(GstEvent* event) {
        if (GST_EVENT_TYPE(event) == GST_EVENT_EOS) ended = true;
        if (GST_EVENT_TYPE(event) != GST_EVENT_CAPS) return;
        GstCaps* now = nullptr;
        gst_event_parse_caps(event, &now);
        current_.reset(gst_caps_ref(now));
        caps.push_back(TextOf(now));
    }

    void Note(GstBuffer* buffer) {
        ASSERT_TRUE(current_) << "a picture before any caps";
        DeliveredPicture picture{GST_BUFFER_PTS(buffer),
                                 GST_BUFFER_DURATION(buffer),
                                 GST_BUFFER_FLAGS(buffer),
                                 Md5(PackedSamples(buffer, current_.get())),
                                 {}};
        gst_video_info_from_caps(&picture.info, current_.get());
        pictures.push_back(picture);
    }

    GstHarness* const harness_;
    Ref<GstBus> bus_;
    Ref<GstCaps> current_;
};

}  // namespace mp4v::test

#endif  // MP4VDEC_TESTS_SUPPORT_GST_DECODER_H_
