/* SPDX-License-Identifier: BSD-2-Clause
 * Copyright (c) 2026, the mp4vdec authors */
#ifndef MP4VDEC_HOST_VIDEO_FORMAT_H_
#define MP4VDEC_HOST_VIDEO_FORMAT_H_

#include <cstdint>
#include <deque>
#include <optional>

#include "host/splitter.h"
#include "host/vol_header.h"
#include "mp4vdec.hpp"

namespace mp4v {

/**
 * Turns the relative times of pictures into absolute ones. modulo_time_base counts seconds since the picture before, or
 * since the time code of a GOV header when there is one in between (ISO/IEC 14496-2, 6.3.5).
 */
class PictureClock {
  public:
    /** In ticks of the layer's clock; null when the chunk has no picture that carries a time. */
    std::optional<uint64_t> TicksOf(const Chunk& chunk, const VolHeader& vol);
    std::optional<double> SecondsOf(const Chunk& chunk, const VolHeader& vol);

  private:
    uint64_t seconds_ = 0;
};

/**
 * Pictures per second of a layer: what its header fixes; otherwise from the shortest distance in time between the
 * pictures at hand, beginning with `chunk`; otherwise the clock's own rate.
 */
Ratio PictureRate(const VolHeader& vol, const Chunk& chunk, const std::deque<Chunk>& ahead);

/** Everything about the layer whose next picture is in `chunk`. */
VideoFormat FormatOf(const VolHeader& vol, const Chunk& chunk, const std::deque<Chunk>& ahead);

}  // namespace mp4v

#endif  // MP4VDEC_HOST_VIDEO_FORMAT_H_
