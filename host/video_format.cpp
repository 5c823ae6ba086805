/* SPDX-License-Identifier: BSD-2-Clause
 * Copyright (c) 2026, the mp4vdec authors */
#include "host/video_format.h"

#include <algorithm>
#include <numeric>
#include <optional>
#include <vector>

namespace mp4v {
namespace {

constexpr uint32_t kPredictedVop = 1;  // the highest coding type that gets decoded
constexpr Ratio kDefaultRate{25, 1};

Ratio Reduced(uint32_t numerator, uint32_t denominator) {
    const uint32_t common = std::gcd(numerator, denominator);
    return {numerator / common, denominator / common};
}

bool ChangesLayer(const Chunk& chunk, const VolHeader& vol) {
    const std::vector<VolHeader> vols = ScanHeaders(chunk.data).vols;
    return std::any_of(vols.begin(), vols.end(), [&](const VolHeader& other) {
        return other.time_resolution != vol.time_resolution || other.width != vol.width || other.height != vol.height;
    });
}

std::vector<uint64_t> PictureTimes(const VolHeader& vol, const Chunk& chunk, const std::deque<Chunk>& ahead) {
    PictureClock clock;
    std::vector<uint64_t> times;
    const auto add = [&](const Chunk& next) {
        if (const auto ticks = clock.TicksOf(next, vol)) times.push_back(*ticks);
    };
    add(chunk);
    for (const Chunk& next : ahead) {
        if (ChangesLayer(next, vol)) break;
        add(next);
    }
    return times;
}

// 0 when no two pictures differ in time.
uint64_t ShortestDistance(std::vector<uint64_t> times) {
    std::sort(times.begin(), times.end());
    uint64_t shortest = 0;
    for (size_t i = 1; i < times.size(); i++) {
        const uint64_t distance = times[i] - times[i - 1];
        if (distance > 0 && (shortest == 0 || distance < shortest)) shortest = distance;
    }
    return shortest;
}

}  // namespace

std::optional<uint64_t> PictureClock::TicksOf(const Chunk& chunk, const VolHeader& vol) {
    const ChunkHeaders headers = ScanHeaders(chunk.data);
    if (headers.group_seconds) seconds_ = *headers.group_seconds;
    if (!headers.vop_position) return std::nullopt;
    const std::optional<VopHeader> vop = ReadVopHeader(chunk.data, *headers.vop_position, vol);
    if (!vop || vop->coding_type > kPredictedVop) return std::nullopt;
    seconds_ += vop->modulo_time;
    return seconds_ * vol.time_resolution + vop->time_increment;
}

std::optional<double> PictureClock::SecondsOf(const Chunk& chunk, const VolHeader& vol) {
    const std::optional<uint64_t> ticks = TicksOf(chunk, vol);
    if (!ticks || vol.time_resolution == 0) return std::nullopt;
    return static_cast<double>(*ticks) / vol.time_resolution;
}

Ratio PictureRate(const VolHeader& vol, const Chunk& chunk, const std::deque<Chunk>& ahead) {
    if (vol.time_resolution == 0) return kDefaultRate;
    if (vol.fixed_time_increment > 0) return Reduced(vol.time_resolution, vol.fixed_time_increment);
    const uint64_t distance = ShortestDistance(PictureTimes(vol, chunk, ahead));
    // Pictures minutes apart are a gap in the time stamps rather than a rate.
    if (distance == 0 || distance > uint64_t{60} * vol.time_resolution) return {vol.time_resolution, 1};
    return Reduced(vol.time_resolution, static_cast<uint32_t>(distance));
}

VideoFormat FormatOf(const VolHeader& vol, const Chunk& chunk, const std::deque<Chunk>& ahead) {
    VideoFormat format;
    format.rate = PictureRate(vol, chunk, ahead);
    if (vol.aspect_width > 0 && vol.aspect_height > 0) format.aspect = Reduced(vol.aspect_width, vol.aspect_height);
    if (!vol.interlaced) return format;
    format.interlacing = 'm';
    const ChunkHeaders headers = ScanHeaders(chunk.data);
    if (!headers.vop_position) return format;
    const std::optional<VopHeader> vop = ReadVopHeader(chunk.data, *headers.vop_position, vol);
    if (vop && vop->top_field_first) format.interlacing = *vop->top_field_first ? 't' : 'b';
    return format;
}

}  // namespace mp4v
