/* SPDX-License-Identifier: BSD-2-Clause
 * Copyright (c) 2026, the mp4vdec authors */
#include "gst/decoding.h"

#include <algorithm>
#include <cstring>
#include <deque>

#include "gst/element.h"
#include "host/settings.h"
#include "host/start_code.h"
#include "host/status.h"
#include "mp4vdec.h"

#define GST_CAT_DEFAULT mp4vdec_debug

namespace mp4v {
namespace {

constexpr uint32_t kIntra = 0;
constexpr uint32_t kPredicted = 1;
// A B-picture or a layer out of the supported subset may be a damaged header; two of them are what the stream is.
constexpr unsigned kToleratedRefusals = 1;
// Clocks that jump further begin anew, as they do where streams were joined.
constexpr uint64_t kLongestGap = 60;  // seconds
constexpr size_t kHeadSize = 64;      // of a VOP; its time is near its beginning

class BufferMap {
  public:
    BufferMap(GstBuffer* buffer, GstMapFlags flags)
        : buffer_(gst_buffer_ref(buffer)), mapped_(gst_buffer_map(buffer_, &map_, flags) != FALSE) {}
    ~BufferMap() {
        if (mapped_) gst_buffer_unmap(buffer_, &map_);
        gst_buffer_unref(buffer_);
    }
    BufferMap(const BufferMap&) = delete;
    BufferMap& operator=(const BufferMap&) = delete;

    std::span<const uint8_t> bytes() const {
        return mapped_ ? std::span<const uint8_t>(map_.data, map_.size) : std::span<const uint8_t>();
    }

  private:
    GstBuffer* const buffer_;  // may be all that keeps it
    GstMapInfo map_{};
    const bool mapped_;
};

bool LooksTheSame(const VolHeader& a, const VolHeader& b) {
    return a.width == b.width && a.height == b.height && a.interlaced == b.interlaced &&
           a.aspect_width == b.aspect_width && a.aspect_height == b.aspect_height &&
           a.time_resolution == b.time_resolution && a.fixed_time_increment == b.fixed_time_increment;
}

const VolHeader* LastLayer(const ChunkHeaders& headers) {
    const auto layer =
        std::find_if(headers.vols.rbegin(), headers.vols.rend(), [](const VolHeader& vol) { return vol.has_size(); });
    return layer == headers.vols.rend() ? nullptr : &*layer;
}

// The chunk up to the time of its picture, in the form that the clock takes.
Chunk HeadOf(std::span<const uint8_t> bytes, const ChunkHeaders& headers) {
    const size_t size = std::min(bytes.size(), headers.vop_position.value_or(0) + kHeadSize);
    Chunk chunk;
    chunk.data.assign(bytes.begin(), bytes.begin() + static_cast<ptrdiff_t>(size));
    chunk.has_picture = headers.vop_position.has_value();
    return chunk;
}

bool IsOutOfMemory(uint32_t status) {
    return status >= ERR_VID_MPEG4DEC_MALLOC_DEC_HANDLE && status <= ERR_VID_MPEG4DEC_MALLOC_TRANS_BUF;
}

bool IsOutsideOfSubset(uint32_t status) {
    return status >= ERR_VID_MPEG4DEC_UNSUPPORT_VOTYPEID && status <= ERR_VID_MPEG4DEC_UNSUPPORT_VOPTYPE;
}

}  // namespace

Decoding::Decoding(GstVideoDecoder* element, const ElementSettings& settings)
    : element_(element),
      settings_(settings),
      extensions_(ExtensionRecords(settings)),
      decoder_({.ext_param = extensions_.param()}),
      input_(nullptr, gst_video_codec_state_unref) {}

GstEvent* Decoding::OnSegment(GstEvent* event) {
    const GstSegment* segment = nullptr;
    gst_event_parse_segment(event, &segment);
    segment_in_bytes_ = segment->format == GST_FORMAT_BYTES;
    if (!segment_in_bytes_) return event;

    GstSegment in_time;
    gst_segment_init(&in_time, GST_FORMAT_TIME);
    in_time.rate = segment->rate;
    in_time.flags = segment->flags;
    in_time.start = TimeOf(segment->start).value_or(0);
    in_time.time = in_time.position = in_time.start;
    GstEvent* const replacement = gst_event_new_segment(&in_time);
    gst_event_set_seqnum(replacement, gst_event_get_seqnum(event));
    gst_event_unref(event);
    return replacement;
}

bool Decoding::SetFormat(GstVideoCodecState* state) {
    if (!extensions_.problem().empty()) {
        GST_ELEMENT_ERROR(element_, RESOURCE, FAILED, ("Pictures of stacked fields cannot be decoded here."),
                          ("%s", extensions_.problem().c_str()));
        return false;
    }
    input_.reset(gst_video_codec_state_ref(state));
    gboolean parsed = FALSE;
    const GstStructure* const caps = gst_caps_get_structure(state->caps, 0);
    parsed_ = gst_structure_get_boolean(caps, "parsed", &parsed) ? std::optional(parsed != FALSE) : std::nullopt;
    rate_.reset();
    rate_resolution_ = 0;
    top_field_first_.reset();
    field_order_varies_ = false;
    format_.reset();
    has_decoded_ = false;
    refusals_ = 0;
    if (!state->codec_data) return true;

    const BufferMap map(state->codec_data, GST_MAP_READ);
    if (map.bytes().empty()) return true;
    signal_.Read(map.bytes());
    const uint32_t status = Decode({nullptr, map.bytes(), ScanHeaders(map.bytes()), false}, {}, true).status;
    if (!IsOutsideOfSubset(status)) return true;
    ReportUnsupported(status);
    return false;
}

void Decoding::Flush() {
    framer_.Reset();
    awaits_intra_ = true;
    stale_ = false;
    after_gap_ = false;
    clock_ = {};
    clock_is_absolute_ = false;
    clock_base_.reset();
}

GstEvent* Decoding::SeekUpstream(GstEvent* event) const {
    gdouble rate = 0;
    GstFormat format = GST_FORMAT_UNDEFINED;
    GstSeekFlags flags = GST_SEEK_FLAG_NONE;
    GstSeekType start_type = GST_SEEK_TYPE_NONE;
    GstSeekType stop_type = GST_SEEK_TYPE_NONE;
    gint64 start = 0;
    gint64 stop = 0;
    gst_event_parse_seek(event, &rate, &format, &flags, &start_type, &start, &stop_type, &stop);
    const bool plain =
        rate > 0 && start_type == GST_SEEK_TYPE_SET && start >= 0 && (stop_type == GST_SEEK_TYPE_NONE || stop < 0);
    if (!segment_in_bytes_ || format != GST_FORMAT_TIME || !plain) return nullptr;
    const uint64_t bytes = seen_bytes_;
    const uint64_t time = seen_time_;
    if (time == 0) return nullptr;
    const guint64 position = gst_util_uint64_scale(static_cast<guint64>(start), bytes, time);
    GstEvent* const seek =
        gst_event_new_seek(rate, GST_FORMAT_BYTES, static_cast<GstSeekFlags>(flags & GST_SEEK_FLAG_FLUSH),
                           GST_SEEK_TYPE_SET, static_cast<gint64>(position), GST_SEEK_TYPE_NONE, -1);
    gst_event_set_seqnum(seek, gst_event_get_seqnum(event));
    return seek;
}

std::optional<GstClockTime> Decoding::TimeOf(uint64_t bytes) const {
    const uint64_t seen = seen_bytes_;
    if (!segment_in_bytes_ || seen == 0) return std::nullopt;
    return gst_util_uint64_scale(bytes, seen_time_, seen);
}

bool Decoding::IsFramed() const {
    return parsed_.value_or(!segment_in_bytes_);
}

GstFlowReturn Decoding::Parse(GstAdapter* adapter, bool at_end) {
    framer_.Scan(adapter);
    const size_t available = gst_adapter_available(adapter);
    const bool all_there = at_end || IsFramed() || available > Splitter::kDefaultLimit;
    if (!framer_.Has(0) && !all_there) return GST_VIDEO_DECODER_FLOW_NEED_DATA;
    const size_t size = framer_.Has(0) ? framer_.End(0) : available;
    if (!IsFramed() && !LearnRate(adapter, size, all_there)) return GST_VIDEO_DECODER_FLOW_NEED_DATA;
    if (gst_adapter_distance_from_discont(adapter) == 0) after_gap_ = true;
    framer_.Take(size);
    gst_video_decoder_add_to_frame(element_, static_cast<int>(size));
    return gst_video_decoder_have_frame(element_);
}

// The distance of the first two pictures of a layer tells their rate. False: the second is not there yet.
bool Decoding::LearnRate(GstAdapter* adapter, size_t size, bool all_there) {
    const auto* const bytes = static_cast<const uint8_t*>(gst_adapter_map(adapter, size));
    const ChunkHeaders headers = ScanHeaders({bytes, size});
    const Chunk first = HeadOf({bytes, size}, headers);
    gst_adapter_unmap(adapter);
    const VolHeader* const layer = LastLayer(headers);
    if (!layer || layer->time_resolution == rate_resolution_) return true;

    if (!framer_.Has(1) && !all_there) return false;
    std::deque<Chunk> ahead;
    const size_t both = framer_.Has(1) ? framer_.End(1) : gst_adapter_available(adapter);
    if (both > size) {
        const auto* const more = static_cast<const uint8_t*>(gst_adapter_map(adapter, both));
        const std::span<const uint8_t> second(more + size, both - size);
        ahead.push_back(HeadOf(second, ScanHeaders(second)));
        gst_adapter_unmap(adapter);
    }
    rate_ = PictureRate(*layer, first, ahead);
    rate_resolution_ = layer->time_resolution;
    return true;
}

GstFlowReturn Decoding::Handle(GstVideoCodecFrame* frame) {
    const BufferMap map(frame->input_buffer, GST_MAP_READ);
    const Input input{frame, map.bytes(), ScanHeaders(map.bytes()), after_gap_};
    if (input.headers.vop_position.value_or(1) > 0) signal_.Read(input.bytes);
    if (!input.HasPicture()) return HandleHeaders(input);
    after_gap_ = false;
    return HandlePicture(input);
}

// Headers in a buffer of their own, or a placeholder for a picture that was never coded.
GstFlowReturn Decoding::HandleHeaders(const Input& input) {
    const uint32_t status = Decode(input, {}, true).status;
    const bool no_start_code = FindStartCode(input.bytes, 0) == input.bytes.size();
    const bool damaged = input.headers.vop_position || (no_start_code && input.bytes.size() >= kStartCodeSize);
    if (IsOutOfMemory(status) || IsOutsideOfSubset(status) || damaged) return Fail(input, status);
    gst_video_decoder_release_frame(element_, input.frame);
    return GST_FLOW_OK;
}

GstFlowReturn Decoding::HandlePicture(const Input& input) {
    if (input.after_gap && !awaits_intra_) stale_ = true;
    NoteFieldOrder(input);
    Stamp(input);

    const bool hide = Hides(input);
    const bool in_place = !hide && KeepsFormat(input);
    if (in_place) {
        const GstFlowReturn flow = gst_video_decoder_allocate_output_frame(element_, input.frame);
        if (flow != GST_FLOW_OK) {
            gst_video_decoder_drop_frame(element_, input.frame);
            return flow;
        }
    }
    const DecodeResult decoded = in_place ? DecodeInPlace(input) : Decode(input, {}, hide);
    if (decoded.status != MP4VDEC_OK) return Fail(input, decoded.status);
    return Deliver(input, decoded);
}

// Whether a predicted picture is decoded without output: nobody wants it, or it would come too late.
bool Decoding::Hides(const Input& input) {
    if (input.CodingType() != kPredicted) return false;
    return ShowsIntraOnly() || awaits_intra_ || gst_video_decoder_get_max_decode_time(element_, input.frame) < 0;
}

bool Decoding::ShowsIntraOnly() const {
    return settings_.intra_only || (element_->input_segment.flags & GST_SEGMENT_FLAG_TRICKMODE_KEY_UNITS) != 0;
}

DecodeResult Decoding::Decode(const Input& input, std::span<uint8_t> memory, bool hide) {
    ElementSettings settings = settings_;
    settings.intra_only = hide;
    decoder_.set_control_flags(ControlFlags(settings));
    return decoder_.DecodeInto(memory, input.bytes);
}

// Into the buffer for downstream. Where its layout does not allow that, the picture is copied there.
DecodeResult Decoding::DecodeInPlace(const Input& input) {
    const FrameMap map(input.frame->output_buffer, OutputInfo(), static_cast<GstMapFlags>(GST_MAP_READWRITE));
    const std::span<uint8_t> memory =
        map ? map.CompactMemory(RoundUpTo16(format_->width), RoundUpTo16(format_->height)) : std::span<uint8_t>();
    DecodeResult decoded = Decode(input, memory, false);
    if (!decoded.has_picture) return decoded;
    const bool in_place = decoded.picture.planes[0].samples == memory.data();
    const bool fits = decoded.picture.width == format_->width && decoded.picture.height == format_->height;
    decoded.has_picture = map && fits && (in_place || Copy(decoded.picture, map));
    return decoded;
}

GstFlowReturn Decoding::Deliver(const Input& input, const DecodeResult& decoded) {
    if (!decoded.has_picture && !decoded.hidden) {
        const GstFlowReturn flow = ReportDamage("its size is not what its layer header tells", "OK");
        gst_video_decoder_drop_frame(element_, input.frame);
        return flow;
    }
    if (!decoded.hidden && decoded.picture.type == PictureType::kIntra) {
        awaits_intra_ = false;
        stale_ = false;
        has_decoded_ = true;
        refusals_ = 0;
    }
    if (decoded.hidden && ShowsIntraOnly()) {
        gst_video_decoder_release_frame(element_, input.frame);
        return GST_FLOW_OK;
    }
    if (decoded.hidden || awaits_intra_) return gst_video_decoder_drop_frame(element_, input.frame);

    if (!input.frame->output_buffer) {
        const GstFlowReturn flow = Allocate(input, decoded.picture);
        if (flow != GST_FLOW_OK) {
            gst_video_decoder_drop_frame(element_, input.frame);
            return flow;
        }
    }
    GstBuffer* const buffer = input.frame->output_buffer;
    if (format_->interlaced) {
        GST_BUFFER_FLAG_SET(buffer, GST_VIDEO_BUFFER_FLAG_INTERLACED);
        if (top_field_first_.value_or(false)) GST_BUFFER_FLAG_SET(buffer, GST_VIDEO_BUFFER_FLAG_TFF);
    }
    if (stale_) GST_VIDEO_CODEC_FRAME_FLAG_SET(input.frame, GST_VIDEO_CODEC_FRAME_FLAG_CORRUPTED);
    return gst_video_decoder_finish_frame(element_, input.frame);
}

// A buffer of the right format with the picture in it.
GstFlowReturn Decoding::Allocate(const Input& input, const Picture& picture) {
    const PictureFormat format = FormatOf(picture.width, picture.height);
    if (format_ != format && !Negotiate(format)) {
        return GST_PAD_IS_FLUSHING(element_->srcpad) ? GST_FLOW_FLUSHING : GST_FLOW_NOT_NEGOTIATED;
    }
    const GstFlowReturn flow = gst_video_decoder_allocate_output_frame(element_, input.frame);
    if (flow != GST_FLOW_OK) return flow;
    const FrameMap map(input.frame->output_buffer, OutputInfo(), GST_MAP_WRITE);
    return map && Copy(picture, map) ? GST_FLOW_OK : GST_FLOW_ERROR;
}

bool Decoding::Negotiate(const PictureFormat& format) {
    format_.reset();
    GstVideoCodecState* const state =
        gst_video_decoder_set_output_state(element_, GST_VIDEO_FORMAT_I420, format.width, format.height, input_.get());
    Describe(format, input_ ? input_->caps : nullptr, state->info);
    gst_video_codec_state_unref(state);
    if (!gst_video_decoder_negotiate(element_)) return false;
    format_ = format;
    return true;
}

GstVideoInfo Decoding::OutputInfo() const {
    GstVideoCodecState* const state = gst_video_decoder_get_output_state(element_);
    const GstVideoInfo info = state->info;
    gst_video_codec_state_unref(state);
    return info;
}

bool Decoding::Copy(const Picture& picture, const FrameMap& map) const {
    if (picture.width != format_->width || picture.height != format_->height) return false;
    for (size_t i = 0; i < picture.planes.size(); i++) {
        const PlaneView& plane = picture.planes[i];
        for (uint32_t y = 0; y < plane.height; y++) {
            std::memcpy(map.row(i, y), plane.samples + y * plane.pitch, plane.width);
        }
    }
    return true;
}

PictureFormat Decoding::FormatOf(uint32_t width, uint32_t height) const {
    PictureFormat format;
    format.width = width;
    format.height = height;
    format.signal = signal_;
    const VolHeader* const layer = decoder_.layer();
    if (!layer) return format;
    const bool fixed = layer->fixed_time_increment > 0 && layer->time_resolution > 0;
    if (const auto rate = fixed ? PictureRate(*layer, {}, {}) : rate_) {
        format.rate_numerator = rate->numerator;
        format.rate_denominator = rate->denominator;
    }
    format.aspect_width = layer->aspect_width;
    format.aspect_height = layer->aspect_height;
    const bool deinterlaced =
        settings_.deinterlace && !settings_.fields_stacked && IsDeinterlaced(RoundUpTo16(width), RoundUpTo16(height));
    format.interlaced = (layer->interlaced || settings_.fields_stacked) && !deinterlaced;
    if (format.interlaced && top_field_first_ && !field_order_varies_) {
        format.field_order =
            *top_field_first_ ? GST_VIDEO_FIELD_ORDER_TOP_FIELD_FIRST : GST_VIDEO_FIELD_ORDER_BOTTOM_FIELD_FIRST;
    }
    return format;
}

// Whether the picture will be of the format that is negotiated. False is no more than a copy of the picture.
bool Decoding::KeepsFormat(const Input& input) const {
    const VolHeader* const layer = decoder_.layer();
    if (!format_ || !layer) return false;
    const auto& vols = input.headers.vols;
    return std::all_of(vols.begin(), vols.end(), [&](const VolHeader& vol) { return LooksTheSame(vol, *layer); }) &&
           FormatOf(layer->width, layer->height) == *format_;
}

const VolHeader* Decoding::LayerOf(const Input& input) const {
    const VolHeader* const layer = LastLayer(input.headers);
    return layer ? layer : decoder_.layer();
}

void Decoding::NoteFieldOrder(const Input& input) {
    const VolHeader* const layer = LayerOf(input);
    if (!layer) return;
    const std::optional<VopHeader> vop = ReadVopHeader(input.bytes, *input.headers.vop_position, *layer);
    if (!vop || !vop->top_field_first) return;
    if (top_field_first_.value_or(*vop->top_field_first) != *vop->top_field_first) field_order_varies_ = true;
    top_field_first_ = vop->top_field_first;
}

// Demuxers of formats without presentation times give decoding times, which here are the same: no picture overtakes
// another.
void Decoding::Stamp(const Input& input) {
    GstVideoCodecFrame* const frame = input.frame;
    if (segment_in_bytes_) StampByClock(input);
    if (!GST_CLOCK_TIME_IS_VALID(frame->pts)) frame->pts = frame->dts;
    if (GST_CLOCK_TIME_IS_VALID(frame->pts)) {
        frame->deadline = gst_segment_to_running_time(&element_->input_segment, GST_FORMAT_TIME, frame->pts);
    }
}

// A file read as it is has no time stamps but those in the stream.
void Decoding::StampByClock(const Input& input) {
    const VolHeader* const layer = LayerOf(input);
    if (!layer || layer->time_resolution == 0) return;
    const std::optional<uint64_t> ticks = clock_.TicksOf(HeadOf(input.bytes, input.headers), *layer);
    if (!ticks) return;
    seen_bytes_ += input.bytes.size();
    seen_time_ += PictureDuration(*layer);
    const bool becomes_absolute = input.headers.group_seconds && !clock_is_absolute_;
    clock_is_absolute_ = clock_is_absolute_ || becomes_absolute;
    const uint64_t resolution = layer->time_resolution;
    const bool goes_on = clock_base_ && !becomes_absolute && resolution == clock_resolution_ && *ticks > clock_last_ &&
                         *ticks - clock_last_ < kLongestGap * resolution;
    if (!goes_on) {
        const GstClockTime start = element_->input_segment.start;
        clock_base_ = clock_base_ ? last_stamp_ + PictureDuration(*layer) : start;
        clock_start_ = *ticks;
        clock_resolution_ = resolution;
    }
    clock_last_ = *ticks;
    last_stamp_ = *clock_base_ + gst_util_uint64_scale(*ticks - clock_start_, GST_SECOND, resolution);
    input.frame->pts = last_stamp_;
    input.frame->dts = GST_CLOCK_TIME_NONE;
}

GstClockTime Decoding::PictureDuration(const VolHeader& layer) const {
    const Ratio rate = layer.fixed_time_increment == 0 && rate_ ? *rate_ : PictureRate(layer, {}, {});
    return gst_util_uint64_scale(GST_SECOND, rate.denominator, rate.numerator);
}

GstFlowReturn Decoding::Fail(const Input& input, uint32_t status) {
    GstVideoCodecFrame* const frame = input.frame;
    if (IsOutOfMemory(status)) {
        GST_ELEMENT_ERROR(element_, RESOURCE, NO_SPACE_LEFT, ("There is not enough memory to decode this stream."),
                          ("%s", StatusName(status).c_str()));
        gst_video_decoder_drop_frame(element_, frame);
        return GST_FLOW_ERROR;
    }
    if (IsOutsideOfSubset(status) && IsUnsupported(input)) {
        ReportUnsupported(status);
        gst_video_decoder_drop_frame(element_, frame);
        return GST_FLOW_ERROR;
    }
    const bool intra = input.HasPicture() && input.CodingType() == kIntra;
    if (status == ERR_VID_MPEG4DEC_VOL_NOT_FOUND || (awaits_intra_ && !intra)) {
        GST_DEBUG_OBJECT(element_, "left out before the first intra picture: %s", StatusName(status).c_str());
        gst_video_decoder_drop_frame(element_, frame);
        return GST_FLOW_OK;
    }
    stale_ = true;
    gst_video_decoder_request_sync_point(element_, frame, static_cast<GstVideoDecoderRequestSyncPointFlags>(0));
    const GstFlowReturn flow = ReportDamage(ExplainStatus(status), StatusName(status));
    gst_video_decoder_drop_frame(element_, frame);
    return flow;
}

// One refusal is what damage looks like, too; but what cannot be decoded from the first picture on, or again and again,
// is another decoder's.
bool Decoding::IsUnsupported(const Input& input) {
    const bool has_headers = input.headers.vop_position.value_or(1) > 0;
    // Plain pictures are refused only as what follows a refused layer.
    const bool by_itself = has_headers || (input.HasPicture() && input.CodingType() > kPredicted);
    if (by_itself) refusals_++;
    return refusals_ > (has_decoded_ ? kToleratedRefusals : 0);
}

void Decoding::ReportUnsupported(uint32_t status) {
    GST_ELEMENT_ERROR(element_, STREAM, WRONG_TYPE,
                      ("This stream is not supported: %s (%s).", ExplainStatus(status), StatusName(status).c_str()),
                      ("%s", StatusName(status).c_str()));
}

// A warning tells of every picture that is missing; the property max-errors says how many are too many.
GstFlowReturn Decoding::ReportDamage(const std::string& what, const std::string& name) {
    GST_ELEMENT_WARNING(element_, STREAM, DECODE, ("A picture is left out: %s.", what.c_str()), ("%s", name.c_str()));
    GstFlowReturn flow = GST_FLOW_OK;
    GST_VIDEO_DECODER_ERROR(element_, 1, STREAM, DECODE,
                            ("Too many pictures are damaged; the latest: %s.", what.c_str()), ("%s", name.c_str()),
                            flow);
    return flow;
}

}  // namespace mp4v
