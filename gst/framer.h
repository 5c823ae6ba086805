/* SPDX-License-Identifier: BSD-2-Clause
 * Copyright (c) 2026, the mp4vdec authors */
#ifndef MP4VDEC_GST_FRAMER_H_
#define MP4VDEC_GST_FRAMER_H_

#include <gst/base/gstadapter.h>

#include <cstddef>
#include <deque>

#include "host/splitter.h"

namespace mp4v {

/** Finds the chunks in an adapter, whatever the buffers it was fed with. Every byte is looked at once. */
class Framer {
  public:
    /** Looks through what the adapter got since the last time. */
    void Scan(GstAdapter* adapter);

    /** Whether the end of chunk `n`, 0 being the first in the adapter, has been seen. */
    bool Has(size_t n) const { return ends_.size() > n; }
    /** Bytes from the first in the adapter to the end of chunk `n`. */
    size_t End(size_t n) const { return ends_[n]; }

    /** Tells that this many bytes leave the adapter: a chunk, or everything. */
    void Take(size_t bytes);
    void Reset();

  private:
    std::deque<size_t> ends_;
    ChunkBoundary boundary_;  // of the chunk behind the last of ends_
    size_t scan_ = 0;         // start codes before it have been seen
    size_t available_ = 0;
};

}  // namespace mp4v

#endif  // MP4VDEC_GST_FRAMER_H_
