/* SPDX-License-Identifier: BSD-2-Clause
 * Copyright (c) 2026, the mp4vdec authors */
#ifdef MP4VDEC_GSTREAMER

#include <gst/gst.h>

#include <algorithm>
#include <atomic>
#include <new>
#include <vector>

#include "tools/demuxer.h"

namespace mp4v {
namespace {

// What the demuxers call MPEG-4 Part 2 video; the older "divx" versions are something else.
constexpr const char* kVideo =
    "video/mpeg,mpegversion=(int)4,systemstream=(boolean)false; video/x-divx,divxversion=(int)[4,5]; video/x-xvid";
constexpr size_t kBlockSize = size_t{1} << 16;
// A demuxer that asks for more has read a damaged size.
constexpr size_t kLargestRequest = size_t{1} << 26;
constexpr guint kSamplesWaiting = 4;
constexpr int kPatience = 100;  // milliseconds until the next look whether the user wants to stop

struct Unref {
    void operator()(GstElement* element) const { gst_object_unref(element); }
    void operator()(GstBus* bus) const { gst_object_unref(bus); }
    void operator()(GstCaps* caps) const { gst_caps_unref(caps); }
    void operator()(GstSample* sample) const { gst_sample_unref(sample); }
    void operator()(GstMessage* message) const { gst_message_unref(message); }
    void operator()(GError* error) const { g_error_free(error); }
};

template <typename T>
using Ref = std::unique_ptr<T, Unref>;

const char* ElementFor(Container container) {
    switch (container) {
        case Container::kAvi:
            return "avidemux";
        case Container::kMp4:
            return "qtdemux";
        default:
            return "matroskademux";
    }
}

GstElement* AddTo(GstElement* pipeline, const char* factory) {
    GstElement* const element = gst_element_factory_make(factory, nullptr);
    if (!element) {
        throw FileError(std::string("cannot read containers: GStreamer has no '") + factory +
                        "'; install gstreamer1.0-plugins-base and gstreamer1.0-plugins-good");
    }
    gst_bin_add(GST_BIN(pipeline), element);
    return element;
}

std::vector<uint8_t> Bytes(GstBuffer* buffer) {
    std::vector<uint8_t> bytes(buffer ? gst_buffer_get_size(buffer) : 0);
    if (!bytes.empty()) bytes.resize(gst_buffer_extract(buffer, 0, bytes.data(), bytes.size()));
    return bytes;
}

// Decoder configuration that a container keeps beside the pictures.
std::vector<uint8_t> CodecData(GstSample* sample) {
    GstCaps* const caps = gst_sample_get_caps(sample);
    const GValue* const value = caps && gst_caps_get_size(caps) > 0
                                    ? gst_structure_get_value(gst_caps_get_structure(caps, 0), "codec_data")
                                    : nullptr;
    return value && GST_VALUE_HOLDS_BUFFER(value) ? Bytes(gst_value_get_buffer(value)) : std::vector<uint8_t>{};
}

// The file feeds a pipeline of appsrc, the demuxer and appsink. Everything but the callbacks runs in the player's
// thread.
class GstDemuxer : public Demuxer {
  public:
    GstDemuxer(Container container, InputFile& file, std::span<const uint8_t> head);
    ~GstDemuxer() override;
    GstDemuxer(const GstDemuxer&) = delete;
    GstDemuxer& operator=(const GstDemuxer&) = delete;

    std::span<const uint8_t> Read() override;
    uint64_t position() const override { return position_; }
    const std::string& problem() const override { return problem_; }

  private:
    static void OnNeedData(GstElement* source, guint length, gpointer self);
    static gboolean OnSeekData(GstElement* source, guint64 offset, gpointer self);
    static void OnPadAdded(GstElement* demuxer, GstPad* pad, gpointer self);
    static void OnNoMorePads(GstElement* demuxer, gpointer self);

    void Connect(GstElement* demuxer);
    void Feed(guint length);
    size_t ReadInto(std::span<uint8_t> bytes);
    void Link(GstPad* pad);
    bool AtEnd();
    void Take(GstSample* sample);
    void Explain(GstMessage* message);

    const Container container_;
    InputFile& file_;
    std::vector<uint8_t> head_;  // of a file that cannot be read again
    Ref<GstElement> pipeline_;
    Ref<GstBus> bus_;
    GstElement* source_;  // the pipeline's
    GstElement* sink_;
    std::atomic<uint64_t> position_ = 0;
    std::atomic<bool> stopping_ = false;
    std::atomic<bool> linked_ = false;
    std::atomic<bool> other_tracks_ = false;
    std::atomic<bool> no_more_pads_ = false;
    bool configured_ = false;
    bool ended_ = false;
    std::vector<uint8_t> bytes_;
    std::string problem_;
};

GstDemuxer::GstDemuxer(Container container, InputFile& file, std::span<const uint8_t> head)
    : container_(container),
      file_(file),
      pipeline_(GST_ELEMENT(gst_object_ref_sink(gst_pipeline_new(nullptr)))),
      bus_(gst_element_get_bus(pipeline_.get())),
      source_(AddTo(pipeline_.get(), "appsrc")),
      sink_(AddTo(pipeline_.get(), "appsink")) {
    // Some keep their table of contents at the end: what can be read in any order is.
    const bool seekable = file.size() && file.Seek(0);
    if (seekable) {
        g_object_set(source_, "size", static_cast<gint64>(*file.size()), nullptr);
    } else {
        head_.assign(head.begin(), head.end());
    }
    gst_util_set_object_arg(G_OBJECT(source_), "stream-type", seekable ? "random-access" : "stream");
    g_object_set(sink_, "sync", FALSE, "max-buffers", kSamplesWaiting, nullptr);
    Connect(AddTo(pipeline_.get(), ElementFor(container)));
    if (gst_element_set_state(pipeline_.get(), GST_STATE_PLAYING) == GST_STATE_CHANGE_FAILURE) {
        throw FileError("cannot read " + file.name() + ": GStreamer does not start");
    }
}

GstDemuxer::~GstDemuxer() {
    stopping_ = true;
    gst_element_set_state(pipeline_.get(), GST_STATE_NULL);
}

void GstDemuxer::Connect(GstElement* demuxer) {
    gst_element_link(source_, demuxer);
    g_signal_connect(source_, "need-data", G_CALLBACK(OnNeedData), this);
    g_signal_connect(source_, "seek-data", G_CALLBACK(OnSeekData), this);
    g_signal_connect(demuxer, "pad-added", G_CALLBACK(OnPadAdded), this);
    g_signal_connect(demuxer, "no-more-pads", G_CALLBACK(OnNoMorePads), this);
}

void GstDemuxer::OnNeedData(GstElement*, guint length, gpointer self) {
    auto* const demuxer = static_cast<GstDemuxer*>(self);
    try {
        demuxer->Feed(length);
    } catch (const std::bad_alloc&) {  // the caller is C
        GstFlowReturn flow = GST_FLOW_OK;
        g_signal_emit_by_name(demuxer->source_, "end-of-stream", &flow);
    }
}

gboolean GstDemuxer::OnSeekData(GstElement*, guint64 offset, gpointer self) {
    auto* const demuxer = static_cast<GstDemuxer*>(self);
    demuxer->position_ = offset;
    return demuxer->file_.Seek(offset);
}

void GstDemuxer::OnPadAdded(GstElement*, GstPad* pad, gpointer self) {
    static_cast<GstDemuxer*>(self)->Link(pad);
}

void GstDemuxer::OnNoMorePads(GstElement*, gpointer self) {
    static_cast<GstDemuxer*>(self)->no_more_pads_ = true;
}

// The demuxer takes less than it asked for as the end of the file.
void GstDemuxer::Feed(guint length) {
    const size_t wanted = std::clamp<size_t>(length, 1, kLargestRequest);
    const size_t size = length == 0 || length == G_MAXUINT ? kBlockSize : wanted;
    std::vector<uint8_t> block(size);
    const size_t got = ReadInto(block);
    GstFlowReturn flow = GST_FLOW_OK;
    if (got == 0) {
        g_signal_emit_by_name(source_, "end-of-stream", &flow);
        return;
    }
    GstBuffer* const buffer = gst_buffer_new_memdup(block.data(), got);
    GST_BUFFER_OFFSET(buffer) = position_;
    position_ += got;
    g_signal_emit_by_name(source_, "push-buffer", buffer, &flow);
    gst_buffer_unref(buffer);
}

size_t GstDemuxer::ReadInto(std::span<uint8_t> bytes) {
    if (!head_.empty()) {
        const size_t size = std::min(bytes.size(), head_.size());
        std::copy_n(head_.begin(), size, bytes.begin());
        head_.erase(head_.begin(), head_.begin() + static_cast<ptrdiff_t>(size));
        return size;
    }
    size_t filled = 0;
    while (filled < bytes.size()) {
        while (!file_.Readable(kPatience)) {
            if (stopping_ || Interrupted()) return filled;
        }
        const size_t got = file_.ReadOrStop(bytes.subspan(filled));
        if (got == 0) break;
        filled += got;
    }
    return filled;
}

void GstDemuxer::Link(GstPad* pad) {
    const Ref<GstCaps> caps(gst_pad_get_current_caps(pad));
    const Ref<GstCaps> video(gst_caps_from_string(kVideo));
    if (linked_ || !caps || !gst_caps_can_intersect(caps.get(), video.get())) {
        other_tracks_ = true;
        return;
    }
    GstPad* const to = gst_element_get_static_pad(sink_, "sink");
    linked_ = gst_pad_link(pad, to) == GST_PAD_LINK_OK;
    gst_object_unref(to);
}

std::span<const uint8_t> GstDemuxer::Read() {
    while (!Interrupted()) {
        GstSample* next = nullptr;
        g_signal_emit_by_name(sink_, "try-pull-sample", guint64{kPatience} * GST_MSECOND, &next);
        const Ref<GstSample> sample(next);
        if (!sample) {
            if (AtEnd()) return {};
            continue;
        }
        Take(sample.get());
        if (!bytes_.empty()) return bytes_;
    }
    return {};
}

void GstDemuxer::Take(GstSample* sample) {
    bytes_ = Bytes(gst_sample_get_buffer(sample));
    if (configured_) return;
    configured_ = true;
    const std::vector<uint8_t> configuration = CodecData(sample);
    // Many write it a second time before the first picture.
    const bool repeated =
        configuration.size() <= bytes_.size() && std::equal(configuration.begin(), configuration.end(), bytes_.begin());
    if (!repeated) bytes_.insert(bytes_.begin(), configuration.begin(), configuration.end());
}

bool GstDemuxer::AtEnd() {
    if (ended_) return true;
    const Ref<GstMessage> message(
        gst_bus_pop_filtered(bus_.get(), static_cast<GstMessageType>(GST_MESSAGE_ERROR | GST_MESSAGE_EOS)));
    if (message && GST_MESSAGE_TYPE(message.get()) == GST_MESSAGE_ERROR) Explain(message.get());
    // Demuxers have no error of their own for this.
    if (other_tracks_ && !linked_ && (message || no_more_pads_)) {
        problem_ = std::string("this ") + NameOf(container_) + " has no track of MPEG-4 Part 2 video";
    }
    ended_ = message || !problem_.empty();
    return ended_;
}

void GstDemuxer::Explain(GstMessage* message) {
    GError* error = nullptr;
    gst_message_parse_error(message, &error, nullptr);
    const Ref<GError> owner(error);
    std::string text = error ? error->message : "unknown";
    while (text.ends_with('.')) text.pop_back();
    problem_ =
        std::string("this ") + NameOf(container_) + " is damaged near byte " + std::to_string(position_) + ": " + text;
}

}  // namespace

std::unique_ptr<Demuxer> MakeDemuxer(Container container, InputFile& file, std::span<const uint8_t> head) {
    GError* failure = nullptr;
    if (!gst_init_check(nullptr, nullptr, &failure)) {
        const Ref<GError> owner(failure);
        throw FileError(std::string("cannot start GStreamer: ") + (failure ? failure->message : "unknown reason"));
    }
    return std::make_unique<GstDemuxer>(container, file, head);
}

const char* DemuxerVersion() {
    return "GStreamer";
}

}  // namespace mp4v

#endif  // MP4VDEC_GSTREAMER
