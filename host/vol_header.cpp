/* SPDX-License-Identifier: BSD-2-Clause
 * Copyright (c) 2026, the mp4vdec authors */
#include "host/vol_header.h"

#include <bit>

#include "host/bit_cursor.h"
#include "host/start_code.h"
#include "mp4vdec.h"

namespace mp4v {
namespace {

constexpr unsigned kSizeBits = 13;
constexpr uint32_t kShapeRectangular = 0;
constexpr uint32_t kShapeGrayscale = 3;
constexpr uint32_t kExtendedAspect = 15;
// What one chunk's headers may say: a stream that repeats more is not video, and hosts keep a record of each.
constexpr size_t kMaxVols = 4096;
constexpr uint32_t kMaxModuloTime = 128;

struct Aspect {
    uint8_t width;
    uint8_t height;
};

// ISO/IEC 14496-2 table 6-12.
constexpr Aspect kAspects[] = {{0, 0}, {1, 1}, {12, 11}, {10, 11}, {16, 11}, {40, 33}};

void ReadAspect(BitCursor& bits, VolHeader& vol) {
    const uint32_t info = bits.Read(4);
    if (info == kExtendedAspect) {
        vol.aspect_width = bits.Read(8);
        vol.aspect_height = bits.Read(8);
    } else if (info < std::size(kAspects)) {
        vol.aspect_width = kAspects[info].width;
        vol.aspect_height = kAspects[info].height;
    }
}

void SkipControlParameters(BitCursor& bits) {
    if (!bits.ReadFlag()) return;
    bits.Skip(2 + 1);                    // chroma_format, low_delay
    if (bits.ReadFlag()) bits.Skip(79);  // vbv_parameters: six fields with their markers
}

void ReadTimeBase(BitCursor& bits, VolHeader& vol) {
    bits.Skip(1);
    vol.time_resolution = bits.Read(16);
    bits.Skip(1);
    if (bits.ReadFlag()) vol.fixed_time_increment = bits.Read(vol.time_increment_bits());
}

void ReadSize(BitCursor& bits, VolHeader& vol) {
    bits.Skip(1);
    vol.width_position = bits.position();
    vol.width = bits.Read(kSizeBits);
    bits.Skip(1);
    vol.height_position = bits.position();
    vol.height = bits.Read(kSizeBits);
    bits.Skip(1);
    vol.interlaced = bits.ReadFlag();
}

VolHeader ReadVol(BitCursor& bits) {
    VolHeader vol;
    bits.Skip(1);  // random_accessible_vol
    vol.type_indication = bits.Read(8);
    if (bits.ReadFlag()) {
        vol.version = bits.Read(4);
        bits.Skip(3);
    }
    ReadAspect(bits, vol);
    SkipControlParameters(bits);
    vol.shape = bits.Read(2);
    if (vol.shape == kShapeGrayscale && vol.version != 1) bits.Skip(4);
    ReadTimeBase(bits, vol);
    if (vol.shape == kShapeRectangular) ReadSize(bits, vol);
    return vol;
}

uint32_t ReadGroupSeconds(std::span<const uint8_t> chunk, size_t position) {
    BitCursor bits(chunk, position + kStartCodeSize);
    const uint32_t hours = bits.Read(5);
    const uint32_t minutes = bits.Read(6);
    bits.Skip(1);
    return (hours * 60 + minutes) * 60 + bits.Read(6);
}

size_t NextByte(const BitCursor& bits) {
    return (bits.position() + 7) / 8;
}

size_t EndOfVisualObject(BitCursor bits) {
    if (bits.ReadFlag()) bits.Skip(4 + 3);  // visual_object_verid, visual_object_priority
    bits.Skip(4);                           // visual_object_type
    if (bits.ReadFlag()) {                  // video_signal_type
        bits.Skip(3 + 1);
        if (bits.ReadFlag()) bits.Skip(8 + 8 + 8);  // colour_description
    }
    return NextByte(bits);
}

size_t ReadVolAt(std::span<const uint8_t> chunk, size_t position, ChunkHeaders& headers) {
    BitCursor bits(chunk, position + kStartCodeSize);
    VolHeader vol = ReadVol(bits);
    vol.position = position;
    if (!bits.overrun() && headers.vols.size() < kMaxVols) headers.vols.push_back(vol);
    return NextByte(bits);
}

// Takes note of the header at `position`; returns where the next start code may be. Like the decoder, it does not look
// for start codes among the fields of a header.
size_t ReadHeader(std::span<const uint8_t> chunk, size_t position, ChunkHeaders& headers) {
    const uint8_t code = chunk[position + 3];
    const size_t fields = position + kStartCodeSize;
    if (IsVolCode(code)) return ReadVolAt(chunk, position, headers);
    switch (code) {
        case kSequenceCode:
            return fields + 1;  // profile_and_level_indication
        case kVisualObjectCode:
            return EndOfVisualObject(BitCursor(chunk, fields));
        case kGroupOfVopCode:
            headers.group_seconds = ReadGroupSeconds(chunk, position);
            return fields + 3;  // 20 bits
        case kUserDataCode:
            headers.has_user_data = true;
            return fields;
        default:
            return fields;
    }
}

}  // namespace

unsigned VolHeader::time_increment_bits() const {
    return time_resolution < 2 ? 1 : static_cast<unsigned>(std::bit_width(time_resolution - 1));
}

ChunkHeaders ScanHeaders(std::span<const uint8_t> chunk) {
    ChunkHeaders headers;
    size_t position = FindStartCode(chunk, 0);
    while (position < chunk.size() && chunk[position + 3] != kVopCode) {
        position = FindStartCode(chunk, ReadHeader(chunk, position, headers));
    }
    if (position < chunk.size()) headers.vop_position = position;
    return headers;
}

std::optional<VopHeader> ReadVopHeader(std::span<const uint8_t> chunk, size_t position, const VolHeader& vol) {
    VopHeader vop;
    BitCursor bits(chunk, position + kStartCodeSize);
    vop.coding_type = bits.Read(2);
    while (bits.ReadFlag()) {
        if (++vop.modulo_time > kMaxModuloTime) return std::nullopt;
    }
    bits.Skip(1);
    vop.time_increment = bits.Read(vol.time_increment_bits());
    bits.Skip(1);
    vop.coded = bits.ReadFlag();
    if (bits.overrun()) return std::nullopt;
    if (!vop.coded || vop.coding_type > 1 || !vol.interlaced || !vol.has_size()) return vop;
    bits.Skip(vop.coding_type == 1 ? 1 + 3 : 3);  // vop_rounding_type of P-VOPs, intra_dc_vlc_thr
    vop.top_field_first = bits.ReadFlag();
    return vop;
}

bool IsSupportedSize(uint32_t width, uint32_t height) {
    return width <= MP4VDEC_MAX_WIDTH && height <= MP4VDEC_MAX_HEIGHT;
}

// The greatest supported size is itself whole macroblocks, so a size beyond it is beyond it rounded or not: such
// headers stay as they are, the decoder refuses them, and no rounded value can outgrow its 13 bits.
//
// New values may happen to form 00 00 01 together with their neighbours. Nobody looks: the decoder reads a VOL header
// field by field and takes up its search for start codes behind it.
void RoundVolSizes(std::span<uint8_t> chunk, const ChunkHeaders& headers) {
    static_assert(MP4VDEC_MAX_WIDTH % 16 == 0 && MP4VDEC_MAX_HEIGHT % 16 == 0);
    for (const VolHeader& vol : headers.vols) {
        if (!vol.has_size() || !IsSupportedSize(vol.width, vol.height)) continue;
        WriteBits(chunk, vol.width_position, kSizeBits, RoundUpTo16(vol.width));
        WriteBits(chunk, vol.height_position, kSizeBits, RoundUpTo16(vol.height));
    }
}

}  // namespace mp4v
