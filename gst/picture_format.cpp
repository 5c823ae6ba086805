/* SPDX-License-Identifier: BSD-2-Clause
 * Copyright (c) 2026, the mp4vdec authors */
#include "gst/picture_format.h"

namespace mp4v {
namespace {

const GstStructure* First(const GstCaps* caps) {
    return caps && gst_caps_get_size(caps) > 0 ? gst_caps_get_structure(caps, 0) : nullptr;
}

void DescribeRate(const PictureFormat& format, const GstStructure* stream, GstVideoInfo& info) {
    gint numerator = 0;
    gint denominator = 1;
    if (!stream || !gst_structure_get_fraction(stream, "framerate", &numerator, &denominator) || numerator <= 0) {
        numerator = static_cast<gint>(format.rate_numerator);
        denominator = static_cast<gint>(format.rate_denominator);
    }
    info.fps_n = numerator;
    info.fps_d = denominator;
}

void DescribeAspect(const PictureFormat& format, const GstStructure* stream, GstVideoInfo& info) {
    gint width = 1;
    gint height = 1;
    if (stream) gst_structure_get_fraction(stream, "pixel-aspect-ratio", &width, &height);
    // Demuxers say 1:1 when they have been told nothing.
    if (width == height && format.aspect_width > 0 && format.aspect_height > 0) {
        width = static_cast<gint>(format.aspect_width);
        height = static_cast<gint>(format.aspect_height);
    }
    info.par_n = width;
    info.par_d = height;
}

void DescribeColorimetry(const PictureFormat& format, const GstStructure* stream, GstVideoInfo& info) {
    GstVideoInfo plain;
    gst_video_info_init(&plain);
    gst_video_info_set_format(&plain, GST_VIDEO_FORMAT_I420, format.width, format.height);
    info.colorimetry = plain.colorimetry;
    const gchar* const told = stream ? gst_structure_get_string(stream, "colorimetry") : nullptr;
    if (told && gst_video_colorimetry_from_string(&info.colorimetry, told)) return;
    format.signal.ApplyTo(info.colorimetry);
}

}  // namespace

void SignalReader::Read(std::span<const uint8_t> chunk) {
    for (const Header& header : HeaderReader().Read(chunk)) {
        if (header.kind != HeaderKind::kVisualObject) continue;
        range_ = header.Find("video_range");
        primaries_ = header.Find("colour_primaries");
        transfer_ = header.Find("transfer_characteristics");
        matrix_ = header.Find("matrix_coefficients");
    }
}

void SignalReader::ApplyTo(GstVideoColorimetry& colorimetry) const {
    if (range_) colorimetry.range = *range_ ? GST_VIDEO_COLOR_RANGE_0_255 : GST_VIDEO_COLOR_RANGE_16_235;
    // Values that are reserved, or that stand for "unspecified", tell nothing.
    if (const auto primaries = gst_video_color_primaries_from_iso(primaries_.value_or(0))) {
        colorimetry.primaries = primaries;
    }
    if (const auto transfer = gst_video_transfer_function_from_iso(transfer_.value_or(0))) {
        colorimetry.transfer = transfer;
    }
    // 0 is RGB, which the planes of this format cannot be.
    if (!matrix_ || *matrix_ == 0) return;
    if (const auto matrix = gst_video_color_matrix_from_iso(*matrix_)) colorimetry.matrix = matrix;
}

void Describe(const PictureFormat& format, const GstCaps* stream, GstVideoInfo& info) {
    const GstStructure* const told = First(stream);
    DescribeRate(format, told, info);
    DescribeAspect(format, told, info);
    DescribeColorimetry(format, told, info);
    info.interlace_mode =
        format.interlaced ? GST_VIDEO_INTERLACE_MODE_INTERLEAVED : GST_VIDEO_INTERLACE_MODE_PROGRESSIVE;
    GST_VIDEO_INFO_FIELD_ORDER(&info) = format.interlaced ? format.field_order : GST_VIDEO_FIELD_ORDER_UNKNOWN;
}

bool IsDeinterlaced(uint32_t width, uint32_t height) {
    return (width == 352 || width == 704 || width == 720) && (height == 480 || height == 576);
}

}  // namespace mp4v
