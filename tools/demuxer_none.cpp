/* SPDX-License-Identifier: BSD-2-Clause
 * Copyright (c) 2026, the mp4vdec authors */
#ifndef MP4VDEC_GSTREAMER

#include "tools/demuxer.h"

namespace mp4v {

std::unique_ptr<Demuxer> MakeDemuxer(Container container, InputFile& file, std::span<const uint8_t>) {
    throw FileError("cannot read " + file.name() + ": it is of the kind '" + NameOf(container) +
                    "', and this mp4vdec was built without GStreamer; take the elementary stream out of it first");
}

const char* DemuxerVersion() {
    return nullptr;
}

}  // namespace mp4v

#endif  // MP4VDEC_GSTREAMER
