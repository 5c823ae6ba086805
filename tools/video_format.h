/* SPDX-License-Identifier: BSD-2-Clause
 * Copyright (c) 2026, the mp4vdec authors */
#ifndef MP4VDEC_TOOLS_VIDEO_FORMAT_H_
#define MP4VDEC_TOOLS_VIDEO_FORMAT_H_

#include <cstdint>
#include <deque>

#include "host/splitter.h"
#include "host/vol_header.h"

namespace mp4v {

struct Ratio {
    uint32_t numerator = 0;
    uint32_t denominator = 0;
};

/** What a file of pictures tells about them beside their size. */
struct VideoFormat {
    Ratio rate{25, 1};       // pictures per second
    Ratio aspect;            // of one sample; 0:0 is unknown
    char interlacing = 'p';  // as Y4M has it: p progressive, t top or b bottom field first, m mixed
};

/**
 * Pictures per second of a layer: what its header fixes; otherwise from the shortest distance in time between the
 * pictures at hand, beginning with `chunk`; otherwise the clock's own rate.
 */
Ratio PictureRate(const VolHeader& vol, const Chunk& chunk, const std::deque<Chunk>& ahead);

/** Everything about the layer whose next picture is in `chunk`. */
VideoFormat FormatOf(const VolHeader& vol, const Chunk& chunk, const std::deque<Chunk>& ahead);

}  // namespace mp4v

#endif  // MP4VDEC_TOOLS_VIDEO_FORMAT_H_
