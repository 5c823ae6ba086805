/* SPDX-License-Identifier: BSD-2-Clause
 * Copyright (c) 2026, the mp4vdec authors */
#ifndef MP4VDEC_HOST_VOL_HEADER_H_
#define MP4VDEC_HOST_VOL_HEADER_H_

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace mp4v {

/** The part of a VOL header (ISO/IEC 14496-2, 6.2.3) that a host needs. */
struct VolHeader {
    size_t position = 0;  // of its start code in the chunk
    uint32_t type_indication = 0;
    uint32_t version = 1;               // video_object_layer_verid
    uint32_t aspect_width = 0;          // of one sample; 0: not told
    uint32_t aspect_height = 0;         // likewise
    uint32_t shape = 0;                 // 0: rectangular, the only shape with a size
    uint32_t time_resolution = 0;       // vop_time_increment_resolution, ticks per second
    uint32_t fixed_time_increment = 0;  // ticks per picture; 0: the rate is not fixed
    uint32_t width = 0;                 // luma samples, the stream's own size
    uint32_t height = 0;
    size_t width_position = 0;  // of the 13-bit fields, in bits from the chunk's first byte
    size_t height_position = 0;
    bool interlaced = false;

    bool has_size() const { return shape == 0; }
    /** Bits of every vop_time_increment of this layer. */
    unsigned time_increment_bits() const;
};

/** The fields at the beginning of a VOP header (ISO/IEC 14496-2, 6.2.5). */
struct VopHeader {
    uint32_t coding_type = 0;     // 0 I, 1 P, 2 B, 3 S
    uint32_t modulo_time = 0;     // seconds, from modulo_time_base
    uint32_t time_increment = 0;  // ticks
    bool coded = false;
    std::optional<bool> top_field_first;  // of coded I- and P-VOPs in interlaced rectangular layers
};

/** What a decoder meets in a chunk before and at its picture. */
struct ChunkHeaders {
    std::vector<VolHeader> vols;            // in order; a header that the chunk's end cuts off is left out
    std::optional<uint32_t> group_seconds;  // the time code of the last GOV header
    std::optional<size_t> vop_position;     // of the VOP start code
    bool has_user_data = false;
};

/**
 * Finds the headers of a chunk up to its first VOP. Start codes are looked for behind the fields of each VOL header,
 * not inside them; that, too, is how the decoder goes through a chunk.
 */
ChunkHeaders ScanHeaders(std::span<const uint8_t> chunk);

/** Parses the VOP header at ChunkHeaders::vop_position. Null: cut off, or of a kind that carries no time. */
std::optional<VopHeader> ReadVopHeader(std::span<const uint8_t> chunk, size_t position, const VolHeader& vol);

constexpr uint32_t RoundUpTo16(uint32_t size) {
    return (size + 15) / 16 * 16;
}

/** True when the size lies within what any decoder instance accepts. */
bool IsSupportedSize(uint32_t width, uint32_t height);

/**
 * Rounds the sizes in the VOL headers up to whole macroblocks. What is coded is whole macroblocks anyway, so the
 * macroblock data stay as they are and the decoder's picture holds the stream's own in its upper left corner.
 */
void RoundVolSizes(std::span<uint8_t> chunk, const ChunkHeaders& headers);

}  // namespace mp4v

#endif  // MP4VDEC_HOST_VOL_HEADER_H_
