/* SPDX-License-Identifier: BSD-2-Clause
 * Copyright (c) 2026, the mp4vdec authors */
#ifndef MP4VDEC_GST_DECODING_H_
#define MP4VDEC_GST_DECODING_H_

#include <gst/video/gstvideodecoder.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>

#include "gst/frame_map.h"
#include "gst/framer.h"
#include "gst/picture_format.h"
#include "host/chunk_decoder.h"
#include "host/low_memory.h"
#include "host/video_format.h"

namespace mp4v {

/** The element's properties are some of a session's options. */
using ElementSettings = SessionOptions;

/**
 * What the element does with one stream, from start to stop. What does not say otherwise is called from the
 * streaming thread, under the stream lock of the element.
 *
 * A stream comes framed, each buffer with whole pictures, or unframed, cut anywhere. The caps tell by `parsed`; where
 * they do not, a segment in bytes is that of a file read as it is and thus unframed, one in time comes from a
 * demuxer or a depayloader that has framed it.
 */
class Decoding {
  public:
    Decoding(GstVideoDecoder* element, const ElementSettings& settings);

    /** Takes the properties for what comes next; all but `fields_stacked`. */
    void Set(const ElementSettings& settings) { settings_ = settings; }

    /** Takes a segment event and gives what the base class is to see: one in time, where need be with a guessed start.
     */
    GstEvent* OnSegment(GstEvent* event);
    /** False, with an error message posted: the headers beside the stream ask for what the decoder has not. */
    bool SetFormat(GstVideoCodecState* state);
    GstFlowReturn Parse(GstAdapter* adapter, bool at_end);
    GstFlowReturn Handle(GstVideoCodecFrame* frame);
    /** Of so many bytes of a file read as it is, by the average so far. Called from any thread. */
    std::optional<GstClockTime> TimeOf(uint64_t bytes) const;
    /** What a seek in such a file is for whoever reads it; null when that cannot be told. Called from any thread. */
    GstEvent* SeekUpstream(GstEvent* event) const;
    /** The next chunk is from elsewhere in the stream. */
    void Flush();

  private:
    // A chunk with what its headers say.
    struct Input {
        static constexpr size_t kCodingTypeAt = 4;  // behind the VOP start code

        GstVideoCodecFrame* frame;
        std::span<const uint8_t> bytes;
        ChunkHeaders headers;
        bool after_gap;  // something is missing before it

        bool HasPicture() const { return headers.vop_position && *headers.vop_position + kCodingTypeAt < bytes.size(); }
        uint32_t CodingType() const { return uint32_t{bytes[*headers.vop_position + kCodingTypeAt]} >> 6; }
    };

    bool IsFramed() const;
    bool LearnRate(GstAdapter* adapter, size_t size, bool all_there);

    GstFlowReturn HandleHeaders(const Input& input);
    GstFlowReturn HandlePicture(const Input& input);
    bool Hides(const Input& input);
    bool ShowsIntraOnly() const;
    DecodeResult Decode(const Input& input, std::span<uint8_t> memory, bool hide);
    DecodeResult DecodeInPlace(const Input& input);
    GstFlowReturn Deliver(const Input& input, const DecodeResult& decoded);
    GstFlowReturn Allocate(const Input& input, const Picture& picture);
    bool Negotiate(const PictureFormat& format);
    GstVideoInfo OutputInfo() const;
    bool Copy(const Picture& picture, const FrameMap& map) const;

    const VolHeader* LayerOf(const Input& input) const;
    PictureFormat FormatOf(uint32_t width, uint32_t height) const;
    bool KeepsFormat(const Input& input) const;
    void NoteFieldOrder(const Input& input);
    void Stamp(const Input& input);
    void StampByClock(const Input& input);
    GstClockTime PictureDuration(const VolHeader& layer) const;

    GstFlowReturn Fail(const Input& input, uint32_t status);
    bool IsUnsupported(const Input& input);
    void ReportUnsupported(uint32_t status);
    GstFlowReturn ReportDamage(const std::string& what, const std::string& name);

    GstVideoDecoder* const element_;
    ElementSettings settings_;
    ExtensionList extensions_;
    ChunkDecoder decoder_;
    Framer framer_;

    std::unique_ptr<GstVideoCodecState, void (*)(GstVideoCodecState*)> input_;
    std::optional<bool> parsed_;  // what the caps say
    std::atomic<bool> segment_in_bytes_ = false;
    std::optional<Ratio> rate_;     // of an unframed stream, from the distance of its pictures
    uint32_t rate_resolution_ = 0;  // of the layer's clock then

    SignalReader signal_;
    std::optional<bool> top_field_first_;  // of the latest picture that tells
    bool field_order_varies_ = false;
    std::optional<PictureFormat> format_;  // as negotiated

    bool awaits_intra_ = true;  // there is nothing yet that a picture could be predicted from
    bool stale_ = false;        // the reference is not the picture that it should be
    bool after_gap_ = false;    // something is missing before the next picture
    bool has_decoded_ = false;  // an intra picture, since the caps were set
    unsigned refusals_ = 0;     // since the latest intra picture

    // Of unframed streams: ticks since clock_start_ are added to clock_base_.
    PictureClock clock_;
    bool clock_is_absolute_ = false;  // by the time code of a GOV header
    uint64_t clock_resolution_ = 0;
    std::optional<GstClockTime> clock_base_;
    uint64_t clock_start_ = 0;
    uint64_t clock_last_ = 0;
    GstClockTime last_stamp_ = 0;
    std::atomic<uint64_t> seen_bytes_ = 0;
    std::atomic<uint64_t> seen_time_ = 0;
};

}  // namespace mp4v

#endif  // MP4VDEC_GST_DECODING_H_
