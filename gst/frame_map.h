/* SPDX-License-Identifier: BSD-2-Clause
 * Copyright (c) 2026, the mp4vdec authors */
#ifndef MP4VDEC_GST_FRAME_MAP_H_
#define MP4VDEC_GST_FRAME_MAP_H_

#include <gst/video/video.h>

#include <cstddef>
#include <cstdint>
#include <span>

namespace mp4v {

/** The samples of a buffer, for as long as the object lives. */
class FrameMap {
  public:
    FrameMap(GstBuffer* buffer, const GstVideoInfo& info, GstMapFlags flags) {
        GstVideoInfo copy = info;
        mapped_ = gst_video_frame_map(&frame_, &copy, buffer, flags) != FALSE;
    }
    ~FrameMap() {
        if (mapped_) gst_video_frame_unmap(&frame_);
    }
    FrameMap(const FrameMap&) = delete;
    FrameMap& operator=(const FrameMap&) = delete;

    explicit operator bool() const { return mapped_; }
    uint8_t* row(size_t plane, uint32_t y) const {
        return static_cast<uint8_t*>(frame_.data[plane]) + static_cast<ptrdiff_t>(y) * frame_.info.stride[plane];
    }

    /** What lies behind the first sample, if the planes lie as the decoder writes pictures of this size. */
    std::span<uint8_t> CompactMemory(uint32_t width, uint32_t height) const {
        auto* const luma = static_cast<uint8_t*>(frame_.data[0]);
        const size_t luma_size = size_t{width} * height;
        const auto pitch = static_cast<gint>(width);
        const bool compact = frame_.info.stride[0] == pitch && frame_.info.stride[1] == pitch / 2 &&
                             frame_.info.stride[2] == pitch / 2 && frame_.data[1] == luma + luma_size &&
                             frame_.data[2] == luma + luma_size * 5 / 4;
        if (!compact) return {};
        return {luma, static_cast<size_t>(frame_.map[0].data + frame_.map[0].size - luma)};
    }

  private:
    GstVideoFrame frame_{};
    bool mapped_ = false;
};

}  // namespace mp4v

#endif  // MP4VDEC_GST_FRAME_MAP_H_
