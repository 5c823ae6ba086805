/* SPDX-License-Identifier: BSD-2-Clause
 * Copyright (c) 2026, the mp4vdec authors */
#include "gst/element.h"

#include <gst/video/gstvideodecoder.h>
#include <gst/video/gstvideopool.h>

#include <memory>
#include <new>
#include <optional>

#include "gst/decoding.h"

GST_DEBUG_CATEGORY(mp4vdec_debug);
#define GST_CAT_DEFAULT mp4vdec_debug

namespace {

// As demuxers and depayloaders call it; older "divx" versions are something else.
constexpr const char* kStreamCaps =
    "video/mpeg, mpegversion=(int)4, systemstream=(boolean)false; "
    "video/x-divx, divxversion=(int)[ 4, 5 ]; "
    "video/x-xvid";

struct Mp4vDec {
    GstVideoDecoder parent;
    mp4v::Decoding* decoding;        // between start and stop
    mp4v::ElementSettings settings;  // under the object lock
};

struct Mp4vDecClass {
    GstVideoDecoderClass parent;
};

enum Property : guint { kDeblockThreshold = 1, kDeinterlace, kFieldsStacked, kIntraOnly };

// cppcheck-suppress unknownMacro
G_DEFINE_TYPE(Mp4vDec, mp4vdec, GST_TYPE_VIDEO_DECODER)

Mp4vDec* Self(gpointer object) {
    return static_cast<Mp4vDec*>(object);
}

GType DeblockThresholdType() {
    static const GType type = [] {
        static const GEnumValue kValues[] = {
            {10, "Smooth block edges where the quantiser is above 10", "10"},
            {30, "Smooth block edges where the quantiser is above 30", "30"},
            {0, nullptr, nullptr},
        };
        return g_enum_register_static("Mp4vDecDeblockThreshold", kValues);
    }();
    return type;
}

mp4v::ElementSettings SettingsOf(Mp4vDec* self) {
    GST_OBJECT_LOCK(self);
    const mp4v::ElementSettings settings = self->settings;
    GST_OBJECT_UNLOCK(self);
    return settings;
}

// The base class is C: no exception may reach it.
template <typename Result, typename Function>
Result Guarded(Mp4vDec* self, Result failure, Function function) {
    try {
        return function();
    } catch (const std::bad_alloc&) {
        GST_ELEMENT_ERROR(self, RESOURCE, NO_SPACE_LEFT, ("There is not enough memory to decode this stream."),
                          (nullptr));
        return failure;
    }
}

void SetProperty(GObject* object, guint id, const GValue* value, GParamSpec* param) {
    Mp4vDec* const self = Self(object);
    GST_OBJECT_LOCK(self);
    switch (id) {
        case kDeblockThreshold:
            self->settings.deblock_threshold = static_cast<guint>(g_value_get_enum(value));
            break;
        case kDeinterlace:
            self->settings.deinterlace = g_value_get_boolean(value);
            break;
        case kFieldsStacked:
            self->settings.fields_stacked = g_value_get_boolean(value);
            break;
        case kIntraOnly:
            self->settings.intra_only = g_value_get_boolean(value);
            break;
        default:
            G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, param);
            break;
    }
    GST_OBJECT_UNLOCK(self);
}

void GetProperty(GObject* object, guint id, GValue* value, GParamSpec* param) {
    const mp4v::ElementSettings settings = SettingsOf(Self(object));
    switch (id) {
        case kDeblockThreshold:
            return g_value_set_enum(value, static_cast<gint>(settings.deblock_threshold));
        case kDeinterlace:
            return g_value_set_boolean(value, settings.deinterlace);
        case kFieldsStacked:
            return g_value_set_boolean(value, settings.fields_stacked);
        case kIntraOnly:
            return g_value_set_boolean(value, settings.intra_only);
        default:
            G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, param);
    }
}

gboolean Start(GstVideoDecoder* decoder) {
    Mp4vDec* const self = Self(decoder);
    return Guarded(self, gboolean{FALSE}, [=]() -> gboolean {
        self->decoding = new mp4v::Decoding(decoder, SettingsOf(self));
        return TRUE;
    });
}

gboolean Stop(GstVideoDecoder* decoder) {
    Mp4vDec* const self = Self(decoder);
    GST_OBJECT_LOCK(self);
    const std::unique_ptr<mp4v::Decoding> decoding(self->decoding);
    self->decoding = nullptr;
    GST_OBJECT_UNLOCK(self);
    return TRUE;
}

gboolean SetFormat(GstVideoDecoder* decoder, GstVideoCodecState* state) {
    Mp4vDec* const self = Self(decoder);
    return Guarded(self, gboolean{FALSE}, [=]() -> gboolean { return self->decoding->SetFormat(state); });
}

GstFlowReturn Parse(GstVideoDecoder* decoder, GstVideoCodecFrame* /*frame*/, GstAdapter* adapter, gboolean at_end) {
    Mp4vDec* const self = Self(decoder);
    return Guarded(self, GST_FLOW_ERROR, [=] { return self->decoding->Parse(adapter, at_end); });
}

GstFlowReturn HandleFrame(GstVideoDecoder* decoder, GstVideoCodecFrame* frame) {
    Mp4vDec* const self = Self(decoder);
    // Nothing is allocated once the frame has been handed on.
    const auto out_of_memory = static_cast<GstFlowReturn>(GST_FLOW_CUSTOM_ERROR_1);
    const GstFlowReturn flow = Guarded(self, out_of_memory, [=] {
        self->decoding->Set(SettingsOf(self));
        return self->decoding->Handle(frame);
    });
    if (flow != out_of_memory) return flow;
    gst_video_decoder_release_frame(decoder, frame);
    return GST_FLOW_ERROR;
}

gboolean Flush(GstVideoDecoder* decoder) {
    Mp4vDec* const self = Self(decoder);
    if (self->decoding) self->decoding->Flush();
    return TRUE;
}

// No picture waits for another.
GstFlowReturn Drain(GstVideoDecoder* /*decoder*/) {
    return GST_FLOW_OK;
}

gboolean SinkEvent(GstVideoDecoder* decoder, GstEvent* event) {
    Mp4vDec* const self = Self(decoder);
    if (GST_EVENT_TYPE(event) == GST_EVENT_SEGMENT && self->decoding) event = self->decoding->OnSegment(event);
    return GST_VIDEO_DECODER_CLASS(mp4vdec_parent_class)->sink_event(decoder, event);
}

// Files read as they are know bytes only. Applications ask and seek from their own threads, even during a stop.
GstEvent* SeekUpstream(Mp4vDec* self, GstEvent* event) {
    GST_OBJECT_LOCK(self);
    GstEvent* const seek = self->decoding ? self->decoding->SeekUpstream(event) : nullptr;
    GST_OBJECT_UNLOCK(self);
    return seek;
}

std::optional<GstClockTime> TimeOf(Mp4vDec* self, uint64_t bytes) {
    GST_OBJECT_LOCK(self);
    const auto time = self->decoding ? self->decoding->TimeOf(bytes) : std::nullopt;
    GST_OBJECT_UNLOCK(self);
    return time;
}

gboolean SrcEvent(GstVideoDecoder* decoder, GstEvent* event) {
    if (GST_EVENT_TYPE(event) == GST_EVENT_SEEK) {
        if (GstEvent* const seek = SeekUpstream(Self(decoder), event)) {
            gst_event_unref(event);
            return gst_pad_push_event(decoder->sinkpad, seek);
        }
    }
    return GST_VIDEO_DECODER_CLASS(mp4vdec_parent_class)->src_event(decoder, event);
}

gboolean SrcQuery(GstVideoDecoder* decoder, GstQuery* query) {
    if (GST_VIDEO_DECODER_CLASS(mp4vdec_parent_class)->src_query(decoder, query)) return TRUE;
    if (GST_QUERY_TYPE(query) != GST_QUERY_DURATION) return FALSE;
    GstFormat format = GST_FORMAT_UNDEFINED;
    gst_query_parse_duration(query, &format, nullptr);
    gint64 bytes = 0;
    if (format != GST_FORMAT_TIME || !gst_pad_peer_query_duration(decoder->sinkpad, GST_FORMAT_BYTES, &bytes)) {
        return FALSE;
    }
    const auto time = TimeOf(Self(decoder), static_cast<uint64_t>(bytes));
    if (!time) return FALSE;
    gst_query_set_duration(query, GST_FORMAT_TIME, static_cast<gint64>(*time));
    return TRUE;
}

// The decoder writes whole macroblocks without gaps. Buffers that are padded to them on the right and below take
// the pictures as they come; only a downstream that looks at the video meta finds its way in them.
void AlignPool(GstQuery* query, const GstVideoInfo& info) {
    GstVideoAlignment align;
    gst_video_alignment_reset(&align);
    const auto width = static_cast<guint>(info.width);
    const auto height = static_cast<guint>(info.height);
    align.padding_right = mp4v::RoundUpTo16(width) - width;
    align.padding_bottom = mp4v::RoundUpTo16(height) - height;
    if (align.padding_right == 0 && align.padding_bottom == 0) return;
    if (!gst_query_find_allocation_meta(query, GST_VIDEO_META_API_TYPE, nullptr)) return;

    GstBufferPool* pool = nullptr;
    gst_query_parse_nth_allocation_pool(query, 0, &pool, nullptr, nullptr, nullptr);
    if (!pool) return;
    if (gst_buffer_pool_has_option(pool, GST_BUFFER_POOL_OPTION_VIDEO_ALIGNMENT)) {
        GstStructure* const config = gst_buffer_pool_get_config(pool);
        GstStructure* const plain = gst_structure_copy(config);
        gst_buffer_pool_config_add_option(config, GST_BUFFER_POOL_OPTION_VIDEO_META);
        gst_buffer_pool_config_add_option(config, GST_BUFFER_POOL_OPTION_VIDEO_ALIGNMENT);
        gst_buffer_pool_config_set_video_alignment(config, &align);
        if (gst_buffer_pool_set_config(pool, config)) {
            gst_structure_free(plain);
        } else {
            gst_buffer_pool_set_config(pool, plain);
        }
    }
    gst_object_unref(pool);
}

gboolean DecideAllocation(GstVideoDecoder* decoder, GstQuery* query) {
    if (!GST_VIDEO_DECODER_CLASS(mp4vdec_parent_class)->decide_allocation(decoder, query)) return FALSE;
    GstCaps* caps = nullptr;
    gst_query_parse_allocation(query, &caps, nullptr);
    GstVideoInfo info;
    if (caps && gst_video_info_from_caps(&info, caps)) AlignPool(query, info);
    return TRUE;
}

void mp4vdec_init(Mp4vDec* self) {
    self->decoding = nullptr;
    new (&self->settings) mp4v::ElementSettings;
    GstVideoDecoder* const decoder = &self->parent;
    // Framed buffers, too, go through Parse(): one may hold several pictures.
    gst_video_decoder_set_packetized(decoder, FALSE);
    gst_video_decoder_set_use_default_pad_acceptcaps(decoder, TRUE);
    GST_PAD_SET_ACCEPT_TEMPLATE(GST_VIDEO_DECODER_SINK_PAD(decoder));
}

constexpr auto kAlways =
    static_cast<GParamFlags>(G_PARAM_READWRITE | G_PARAM_STATIC_STRINGS | GST_PARAM_MUTABLE_PLAYING);
constexpr auto kBeforeStart =
    static_cast<GParamFlags>(G_PARAM_READWRITE | G_PARAM_STATIC_STRINGS | GST_PARAM_MUTABLE_READY);

void InstallProperties(GObjectClass* object) {
    object->set_property = SetProperty;
    object->get_property = GetProperty;
    g_object_class_install_property(
        object, kDeblockThreshold,
        g_param_spec_enum("deblock-threshold", "Deblocking threshold",
                          "Block edges are smoothed in pictures whose quantiser is above this", DeblockThresholdType(),
                          10, kAlways));
    g_object_class_install_property(
        object, kDeinterlace,
        g_param_spec_boolean("deinterlace", "Deinterlace",
                             "Deinterlace pictures of 352, 704 or 720 x 480 or 576; others stay as they are", FALSE,
                             kAlways));
    g_object_class_install_property(
        object, kFieldsStacked,
        g_param_spec_boolean("fields-stacked", "Fields stacked",
                             "Each picture is coded as one field above the other; weave them together", FALSE,
                             kBeforeStart));
    g_object_class_install_property(
        object, kIntraOnly,
        g_param_spec_boolean("intra-only", "Intra only", "Decode predicted pictures, but do not deliver them", FALSE,
                             kAlways));
}

void mp4vdec_class_init(Mp4vDecClass* type) {
    InstallProperties(G_OBJECT_CLASS(type));

    auto* const element = GST_ELEMENT_CLASS(type);
    GstCaps* const stream = gst_caps_from_string(kStreamCaps);
    gst_element_class_add_pad_template(element, gst_pad_template_new("sink", GST_PAD_SINK, GST_PAD_ALWAYS, stream));
    gst_caps_unref(stream);
    GstCaps* const pictures = gst_caps_from_string(GST_VIDEO_CAPS_MAKE("I420"));
    gst_element_class_add_pad_template(element, gst_pad_template_new("src", GST_PAD_SRC, GST_PAD_ALWAYS, pictures));
    gst_caps_unref(pictures);
    gst_element_class_set_static_metadata(
        element, "MPEG-4 Part 2 video decoder", "Codec/Decoder/Video",
        "Decodes rectangular video (ISO/IEC 14496-2) up to 1920 x 1088, progressive and interlaced, without "
        "B-pictures. "
        "Input that is cut anywhere is announced by parsed=false, or by a segment in bytes",
        "the mp4vdec authors");
    gst_type_mark_as_plugin_api(DeblockThresholdType(), static_cast<GstPluginAPIFlags>(0));

    auto* const decoder = GST_VIDEO_DECODER_CLASS(type);
    decoder->start = Start;
    decoder->stop = Stop;
    decoder->set_format = SetFormat;
    decoder->parse = Parse;
    decoder->handle_frame = HandleFrame;
    decoder->flush = Flush;
    decoder->drain = Drain;
    decoder->finish = Drain;
    decoder->sink_event = SinkEvent;
    decoder->src_event = SrcEvent;
    decoder->src_query = SrcQuery;
    decoder->decide_allocation = DecideAllocation;
}

}  // namespace

namespace mp4v {

bool RegisterElement(GstPlugin* plugin) {
    GST_DEBUG_CATEGORY_INIT(mp4vdec_debug, "mp4vdec", 0, "Decoder for MPEG-4 Part 2 video");
    return gst_element_register(plugin, "mp4vdec", GST_RANK_SECONDARY, mp4vdec_get_type());
}

}  // namespace mp4v
