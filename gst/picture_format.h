/* SPDX-License-Identifier: BSD-2-Clause
 * Copyright (c) 2026, the mp4vdec authors */
#ifndef MP4VDEC_GST_PICTURE_FORMAT_H_
#define MP4VDEC_GST_PICTURE_FORMAT_H_

#include <gst/video/video.h>

#include <cstdint>
#include <optional>
#include <span>

#include "host/vol_header.h"
#include "mp4vdec.hpp"

namespace mp4v {

/** Reads video_signal_type of the visual object header (ISO/IEC 14496-2, 6.2.2), which the decoder has no use for. */
class SignalReader {
  public:
    /** Takes note of the headers of a chunk that holds any. */
    void Read(std::span<const uint8_t> chunk);
    /** Overrules what the size of the pictures suggests with what the stream tells. */
    void ApplyTo(GstVideoColorimetry& colorimetry) const;
    bool operator==(const SignalReader&) const = default;

  private:
    std::optional<uint32_t> range_;  // 1: full
    std::optional<uint32_t> primaries_;
    std::optional<uint32_t> transfer_;
    std::optional<uint32_t> matrix_;
};

/** Everything that decides about the caps of the pictures beside the caps of the stream. */
struct PictureFormat {
    uint32_t width = 0;
    uint32_t height = 0;
    uint32_t rate_numerator = 0;  // 0: not known
    uint32_t rate_denominator = 1;
    uint32_t aspect_width = 0;  // of one sample; 0: not told
    uint32_t aspect_height = 0;
    bool interlaced = false;
    GstVideoFieldOrder field_order = GST_VIDEO_FIELD_ORDER_UNKNOWN;
    SignalReader signal;

    bool operator==(const PictureFormat&) const = default;
};

/**
 * Writes a format into the info of I420 pictures of its size. `stream` has the stream's caps, whose words on frame
 * rate, on an aspect ratio other than 1:1 and on colorimetry count more than those of the stream: they are from the
 * container.
 */
void Describe(const PictureFormat& format, const GstCaps* stream, GstVideoInfo& info);

/** True for sizes that the deinterlacer works on. */
bool IsDeinterlaced(uint32_t width, uint32_t height);

}  // namespace mp4v

#endif  // MP4VDEC_GST_PICTURE_FORMAT_H_
