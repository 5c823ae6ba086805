/* SPDX-License-Identifier: BSD-2-Clause
 * Copyright (c) 2026, the mp4vdec authors */
#ifndef MP4VDEC_TOOLS_DRAWING_H_
#define MP4VDEC_TOOLS_DRAWING_H_

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "host/inspection.h"
#include "tools/image.h"

namespace mp4v {

/** What draws, for the version of the player; null: this build cannot. */
const char* DrawingVersion();

/** What is laid over a picture. */
enum class Overlay { kTypes, kVectors, kQuantiser, kBits };

struct InspectedPicture {
    std::string title;
    uint32_t width = 0;  // luma samples
    uint32_t height = 0;
    Image image;  // empty: damaged, there is none
    Inspection inspection;
};

/** A PNG of the picture, enlarged where it is small, with a key below. Throws FileError. */
void DrawOverlay(const InspectedPicture& picture, Overlay overlay, const std::string& path);

/** A picture of a stream, as a point in time. */
struct ChartPoint {
    char type = 'I';  // I, P, N not coded, or x refused or damaged
    uint64_t bits = 0;
    std::optional<uint32_t> lowest_quant;  // of its macroblocks; none where all are not coded
    std::optional<uint32_t> highest_quant;
    std::optional<double> mean_quant;
    std::optional<double> psnr;  // luma, dB
};

/** Bits, quantiser and, where there is one, PSNR over the pictures: as SVG, or PNG by the ending. Throws FileError. */
void DrawChart(const std::vector<ChartPoint>& points, const std::string& title, const std::string& path);

}  // namespace mp4v

#endif  // MP4VDEC_TOOLS_DRAWING_H_
