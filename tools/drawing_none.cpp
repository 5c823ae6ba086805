/* SPDX-License-Identifier: BSD-2-Clause
 * Copyright (c) 2026, the mp4vdec authors */
#ifndef MP4VDEC_CAIRO

#include "tools/drawing.h"

namespace mp4v {

const char* DrawingVersion() {
    return nullptr;
}

void DrawOverlay(const InspectedPicture&, Overlay, const std::string&) {}

void DrawChart(const std::vector<ChartPoint>&, const std::string&, const std::string&) {}

}  // namespace mp4v

#endif  // MP4VDEC_CAIRO
