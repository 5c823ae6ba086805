// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors
#include <gtest/gtest.h>

#include <algorithm>

#include "host/bit_cursor.h"
#include "host/vol_header.h"
#include "support/headers_writer.h"
#include "support/random.h"
#include "support/small_stream.h"

namespace mp4v::test {
namespace {

Bytes Write(const VolHeader& vol) {
    BitWriter out;
    PutLayer(out, vol);
    return out.Bytes();
}

mp4v::VolHeader ReadOnly(const VolHeader& vol) {
    const ChunkHeaders headers = ScanHeaders(Write(vol));
    EXPECT_EQ(1u, headers.vols.size());
    return headers.vols.empty() ? mp4v::VolHeader{} : headers.vols[0];
}

Bytes Rounded(Bytes chunk) {
    RoundVolSizes(chunk, ScanHeaders(chunk));
    return chunk;
}

TEST(HostVolHeader, ReadsAnOrdinaryHeader) {
    VolHeader vol;
    vol.width = 352;
    vol.height = 288;
    vol.time_increment_resolution = 25;
    vol.interlaced = true;
    const mp4v::VolHeader read = ReadOnly(vol);
    EXPECT_EQ(1u, read.type_indication);
    EXPECT_EQ(1u, read.version);
    EXPECT_TRUE(read.has_size());
    EXPECT_EQ(352u, read.width);
    EXPECT_EQ(288u, read.height);
    EXPECT_EQ(25u, read.time_resolution);
    EXPECT_EQ(5u, read.time_increment_bits());
    EXPECT_EQ(0u, read.fixed_time_increment);
    EXPECT_EQ(1u, read.aspect_width);
    EXPECT_EQ(1u, read.aspect_height);
    EXPECT_TRUE(read.interlaced);
    EXPECT_EQ(14u, read.position);  // behind 5, 5 and 4 bytes
}

TEST(HostVolHeader, FindsTheSizeBehindEveryOptionalField) {
    for (uint32_t bits = 0; bits < 64; bits++) {
        SCOPED_TRACE(bits);
        VolHeader vol;
        vol.width = 1234;
        vol.height = 987;
        vol.time_increment_resolution = 30000;
        vol.filler = bits & 1;
        if (bits & 2) vol.verid = 2;
        vol.aspect_ratio_info = bits & 4 ? 15 : 3;
        vol.control_parameters = bits & 8;
        vol.vbv_parameters = bits & 16;
        if (bits & 32) vol.fixed_time_increment = 1001;
        const mp4v::VolHeader read = ReadOnly(vol);
        EXPECT_EQ(1234u, read.width);
        EXPECT_EQ(987u, read.height);
        EXPECT_EQ(30000u, read.time_resolution);
        EXPECT_EQ(bits & 32 ? 1001u : 0u, read.fixed_time_increment);
        EXPECT_EQ(bits & 2 ? 2u : 1u, read.version);
    }
}

TEST(HostVolHeader, TellsTheAspectRatio) {
    const struct {
        uint32_t info, width, height;
    } kRows[] = {{0, 0, 0}, {1, 1, 1}, {2, 12, 11}, {3, 10, 11}, {4, 16, 11}, {5, 40, 33}, {6, 0, 0}, {14, 0, 0}};
    for (const auto& row : kRows) {
        VolHeader vol;
        vol.aspect_ratio_info = row.info;
        EXPECT_EQ(row.width, ReadOnly(vol).aspect_width) << row.info;
        EXPECT_EQ(row.height, ReadOnly(vol).aspect_height) << row.info;
    }
    VolHeader vol;
    vol.aspect_ratio_info = 15;
    vol.filler = 1;
    EXPECT_EQ(255u, ReadOnly(vol).aspect_width);
    EXPECT_EQ(255u, ReadOnly(vol).aspect_height);
}

TEST(HostVolHeader, NeedsOneBitForAResolutionOfOneOrNone) {
    const struct {
        uint32_t resolution, bits;
    } kRows[] = {{0, 1}, {1, 1}, {2, 1}, {3, 2}, {30, 5}, {32, 5}, {33, 6}, {65535, 16}};
    for (const auto& row : kRows) {
        VolHeader vol;
        vol.time_increment_resolution = row.resolution;
        EXPECT_EQ(row.bits, ReadOnly(vol).time_increment_bits()) << row.resolution;
    }
}

TEST(HostVolHeader, KnowsNoSizeOfOtherShapes) {
    for (const uint32_t shape : {1u, 2u}) {
        VolHeader vol;
        vol.shape = shape;
        const Bytes chunk = Write(vol);
        EXPECT_FALSE(ReadOnly(vol).has_size());
        EXPECT_EQ(chunk, Rounded(chunk));
    }
}

TEST(HostVolHeader, RoundsUpToMacroblocksAndTouchesNothingElse) {
    const struct {
        uint32_t width, height, rounded_width, rounded_height;
    } kRows[] = {
        {1920, 1080, 1920, 1088}, {1920, 1088, 1920, 1088}, {120, 90, 128, 96},
        {854, 480, 864, 480},     {1, 1, 16, 16},           {16, 16, 16, 16},
        {17, 31, 32, 32},         {1905, 1073, 1920, 1088}, {0, 0, 0, 0},
    };
    for (const auto& row : kRows) {
        VolHeader vol = LayerOf(row.width, row.height);
        const VolHeader want = LayerOf(row.rounded_width, row.rounded_height);
        EXPECT_EQ(Write(want), Rounded(Write(vol))) << row.width << " x " << row.height;
    }
}

TEST(HostVolHeader, RoundsFieldsAtEveryBitPosition) {
    // The increment's width moves what follows bit by bit.
    for (unsigned bits = 1; bits <= 16; bits++) {
        VolHeader vol = LayerOf(101, 57);
        vol.time_increment_resolution = bits == 16 ? 65535 : 1u << bits;
        vol.fixed_time_increment = 1;
        VolHeader want = vol;
        want.width = 112;
        want.height = 64;
        EXPECT_EQ(Write(want), Rounded(Write(vol))) << bits;
    }
}

TEST(HostVolHeader, LeavesSizesBeyondTheGreatestAlone) {
    for (const auto& [width, height] : {std::pair{1921u, 100u}, {100u, 1089u}, {1914u, 1090u}, {8191u, 8191u}}) {
        const Bytes chunk = Write(LayerOf(width, height));
        EXPECT_EQ(chunk, Rounded(chunk));
        EXPECT_FALSE(IsSupportedSize(width, height));
    }
    EXPECT_TRUE(IsSupportedSize(1920, 1088));
}

TEST(HostVolHeader, RoundsEveryHeaderOfAChunk) {
    BitWriter out, want;
    for (const uint32_t size : {20u, 40u, 60u}) {
        PutLayer(out, LayerOf(size, size));
        PutLayer(want, LayerOf((size + 15) / 16 * 16, (size + 15) / 16 * 16));
    }
    EXPECT_EQ(3u, ScanHeaders(out.Bytes()).vols.size());
    EXPECT_EQ(want.Bytes(), Rounded(out.Bytes()));
}

TEST(HostVolHeader, StopsAtThePicture) {
    BitWriter out;
    PutLayer(out, LayerOf(20, 20));
    out.Align();
    const size_t vop = out.Bytes().size();
    PutStartCode(out, kVopCode).Put(0x12, 8);
    PutLayer(out, LayerOf(36, 36));
    const ChunkHeaders headers = ScanHeaders(out.Bytes());
    EXPECT_EQ(1u, headers.vols.size());
    EXPECT_EQ(vop, headers.vop_position);
    const Bytes rounded = Rounded(out.Bytes());
    EXPECT_TRUE(std::equal(rounded.begin() + static_cast<ptrdiff_t>(vop), rounded.end(),
                           out.Bytes().begin() + static_cast<ptrdiff_t>(vop)));
}

TEST(HostVolHeader, FindsNoHeaderInsideOtherHeadersFields) {
    // The zeros and the one of these fields would make a start code together with what follows.
    const Bytes sequence = {0, 0, 1, 0xB0, 0, 0, 1, 0x20, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};
    EXPECT_TRUE(ScanHeaders(sequence).vols.empty());
    const Bytes group = {0, 0, 1, 0xB3, 0, 0, 1, 0x20, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};
    EXPECT_TRUE(ScanHeaders(group).vols.empty());
}

TEST(HostVolHeader, DoesNotLookForStartCodesInsideAHeader) {
    // A resolution and markers of 0 put 00 00 01 B6 into the header itself.
    VolHeader vol = LayerOf(32, 32);
    vol.time_increment_resolution = 0;
    vol.marker = 0;
    Bytes chunk = Write(vol);
    const size_t start = ScanHeaders(chunk).vols.at(0).position;
    ASSERT_GT(chunk.size(), start + 10);
    chunk[start + 6] = 0;
    chunk[start + 7] = 0;
    chunk[start + 8] = 1;
    chunk[start + 9] = 0xB6;
    const ChunkHeaders headers = ScanHeaders(chunk);
    EXPECT_EQ(1u, headers.vols.size());
    EXPECT_FALSE(headers.vop_position.has_value());
}

TEST(HostVolHeader, SeesUserDataAndTheTimeOfAGroup) {
    BitWriter out;
    EXPECT_FALSE(ScanHeaders(out.Bytes()).has_user_data);
    PutUserData(out, "1234567FRAME");
    PutGroupOfVop(out, (2u << 15) | (3u << 9) | (1u << 8) | (4u << 2));  // 2 hours, 3 minutes, marker, 4 seconds
    out.Align();
    const ChunkHeaders headers = ScanHeaders(out.Bytes());
    EXPECT_TRUE(headers.has_user_data);
    EXPECT_EQ(7384u, headers.group_seconds);
    EXPECT_TRUE(headers.vols.empty());
}

TEST(HostVolHeader, LeavesOutAHeaderThatTheEndCutsOff) {
    const Bytes whole = Write(LayerOf(20, 20));
    const mp4v::VolHeader vol = ScanHeaders(whole).vols.at(0);
    const size_t needed = (vol.height_position + 13 + 2 + 7) / 8;  // behind the height: marker and interlaced
    for (size_t size = 0; size <= whole.size(); size++) {
        Bytes cut(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(size));
        EXPECT_EQ(size >= needed ? 1u : 0u, ScanHeaders(cut).vols.size()) << size;
        Rounded(cut);
    }
}

TEST(HostVolHeader, SurvivesNoise) {
    for (uint32_t seed = 0; seed < 500; seed++) {
        Random random(seed);
        Bytes chunk = random.SparseBytes(random.Below(200));
        for (size_t i = 0; i + 4 < chunk.size(); i += 11 + random.Below(20)) {
            const uint8_t codes[] = {0x20, 0xB0, 0xB2, 0xB3, 0xB5, 0xB6};
            chunk[i] = chunk[i + 1] = 0;
            chunk[i + 2] = 1;
            chunk[i + 3] = codes[random.Below(6)];
        }
        const ChunkHeaders headers = ScanHeaders(chunk);
        const Bytes rounded = Rounded(chunk);
        ASSERT_EQ(chunk.size(), rounded.size());
        // Rounding is idempotent wherever the headers end up.
        for (const mp4v::VolHeader& vol : ScanHeaders(rounded).vols) {
            if (vol.has_size() && IsSupportedSize(vol.width, vol.height)) {
                ASSERT_EQ(0u, vol.width % 16);
                ASSERT_EQ(0u, vol.height % 16);
            }
        }
        if (headers.vop_position) {
            const auto vop = static_cast<ptrdiff_t>(*headers.vop_position);
            ASSERT_TRUE(std::equal(chunk.begin() + vop, chunk.end(), rounded.begin() + vop));
        }
    }
}

std::optional<mp4v::VopHeader> ReadVop(const VopHeader& vop, const VolHeader& layer) {
    BitWriter out;
    PutLayer(out, layer);
    vop.PutTo(out, layer);
    const ChunkHeaders headers = ScanHeaders(out.Bytes());
    return ReadVopHeader(out.Bytes(), headers.vop_position.value(), headers.vols.at(0));
}

TEST(HostVopHeader, ReadsTypeAndTime) {
    VolHeader layer;
    layer.time_increment_resolution = 30000;
    VopHeader vop;
    vop.coding_type = 1;
    vop.modulo_time_base = 3;
    vop.time_increment = 12345;
    const auto read = ReadVop(vop, layer);
    ASSERT_TRUE(read.has_value());
    EXPECT_EQ(1u, read->coding_type);
    EXPECT_EQ(3u, read->modulo_time);
    EXPECT_EQ(12345u, read->time_increment);
    EXPECT_TRUE(read->coded);
    EXPECT_FALSE(read->top_field_first.has_value());
    vop.coded = false;
    EXPECT_FALSE(ReadVop(vop, layer)->coded);
}

TEST(HostVopHeader, KnowsTheFirstFieldOfInterlacedPictures) {
    VolHeader layer;
    layer.interlaced = true;
    for (const uint32_t type : {0u, 1u}) {
        for (const uint32_t first : {0u, 1u}) {
            VopHeader vop;
            vop.coding_type = type;
            vop.rounding_type = 1 - first;
            vop.top_field_first = first;
            EXPECT_EQ(first == 1, ReadVop(vop, layer)->top_field_first.value());
        }
    }
}

TEST(HostVopHeader, GivesUpOnAnEndlessTimeBase) {
    VopHeader vop;
    vop.modulo_time_base = 128;
    EXPECT_EQ(128u, ReadVop(vop, {})->modulo_time);
    vop.modulo_time_base = 129;
    EXPECT_FALSE(ReadVop(vop, {}).has_value());
}

TEST(HostVopHeader, IsNotReadBeyondTheChunk) {
    const Bytes chunk = {0, 0, 1, 0xB6};
    EXPECT_FALSE(ReadVopHeader(chunk, 0, {}).has_value());
}

TEST(HostBitCursor, ReadsZerosBehindTheEnd) {
    const Bytes bytes = {0xA5};
    BitCursor bits(bytes, 0);
    EXPECT_EQ(0xA50u, bits.Read(12));
    EXPECT_TRUE(bits.overrun());
    BitCursor whole(bytes, 0);
    EXPECT_EQ(0u, whole.Read(0));
    EXPECT_EQ(0xA5u, whole.Read(8));
    EXPECT_FALSE(whole.overrun());
}

TEST(HostBitCursor, WritesOnlyTheBitsItIsTold) {
    Bytes bytes = {0xFF, 0x00, 0xFF};
    WriteBits(bytes, 5, 13, 0x0AAA);  // 0 1010 1010 1010
    EXPECT_EQ((Bytes{0xFA, 0xAA, 0xBF}), bytes);
}

}  // namespace
}  // namespace mp4v::test
