// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors
#include <gtest/gtest.h>

#include "mp4vdec.hpp"
#include "support/headers_writer.h"
#include "support/random.h"
#include "support/small_stream.h"

namespace mp4v::test {
namespace {

VolHeader RandomLayer(Random& random) {
    VolHeader vol = LayerOf(random.Below(8192), random.Below(8192));
    vol.random_accessible = random.Chance(2);
    vol.type_indication = random.Below(256);
    if (random.Chance(2)) vol.verid = 1 + random.Below(5);
    vol.aspect_ratio_info = random.Chance(3) ? 15 : random.Below(15);
    vol.control_parameters = random.Chance(2);
    vol.vbv_parameters = random.Chance(2);
    vol.shape = random.Chance(3) ? random.Below(3) : 0;
    vol.time_increment_resolution = 1 + random.Below(65535);
    if (random.Chance(2)) vol.fixed_time_increment = random.Below(vol.time_increment_resolution);
    vol.interlaced = random.Chance(2);
    vol.obmc_disable = random.Chance(2);
    if (random.Chance(3)) vol.quant_precision = 3 + random.Below(7);
    vol.quant_type = random.Chance(2);
    if (random.Chance(2)) vol.intra_matrix = Bytes{8, 17, 255, 0};
    if (random.Chance(2)) vol.inter_matrix = Bytes(64, 19);
    vol.quarter_sample = random.Chance(2);
    vol.resync_marker_disable = random.Chance(2);
    vol.newpred = random.Chance(3);
    vol.reduced_resolution = random.Chance(3);
    return vol;
}

void ExpectLayer(const VolHeader& vol, const Header& header) {
    const auto expect = [&](const char* name, uint32_t value) {
        EXPECT_EQ(std::optional<uint32_t>(value), header.Find(name)) << name;
    };
    ASSERT_EQ(HeaderKind::kLayer, header.kind);
    EXPECT_TRUE(header.whole);
    expect("random_accessible_vol", vol.random_accessible);
    expect("video_object_type_indication", vol.type_indication);
    EXPECT_EQ(vol.verid, header.Find("video_object_layer_verid"));
    expect("aspect_ratio_info", vol.aspect_ratio_info);
    EXPECT_EQ(vol.aspect_ratio_info == 15, header.Find("par_height").has_value());
    EXPECT_EQ(vol.control_parameters && vol.vbv_parameters, header.Find("latter_half_vbv_occupancy").has_value());
    expect("video_object_layer_shape", vol.shape);
    expect("vop_time_increment_resolution", vol.time_increment_resolution);
    EXPECT_EQ(vol.fixed_time_increment, header.Find("fixed_vop_time_increment"));
    expect("resync_marker_disable", vol.resync_marker_disable);
    if (vol.shape == 2) return;
    if (vol.shape == 0) {
        expect("video_object_layer_width", vol.width);
        expect("video_object_layer_height", vol.height);
    }
    expect("interlaced", vol.interlaced);
    expect("obmc_disable", vol.obmc_disable);
    expect("sprite_enable", 0);
    EXPECT_EQ(vol.quant_precision, header.Find("quant_precision"));
    expect("quant_type", vol.quant_type);
    if (vol.quant_type) {
        expect("load_intra_quant_mat", vol.intra_matrix.has_value());
        expect("load_nonintra_quant_mat", vol.inter_matrix.has_value());
    }
    EXPECT_EQ(!vol.version_1(), header.Find("quarter_sample").has_value());
    if (!vol.version_1()) {
        expect("quarter_sample", vol.quarter_sample);
        expect("newpred_enable", vol.newpred);
        expect("reduced_resolution_vop_enable", vol.reduced_resolution);
    }
    expect("data_partitioned", 0);
    expect("scalability", 0);
}

TEST(HeaderReader, ReadsEveryFieldOfALayer) {
    for (uint32_t seed = 0; seed < 500; seed++) {
        SCOPED_TRACE(seed);
        Random random(seed);
        const VolHeader vol = RandomLayer(random);
        BitWriter out;
        PutLayer(out, vol);
        out.Align();
        const std::vector<Header> headers = HeaderReader().Read(out.Bytes());
        ASSERT_EQ(4u, headers.size());
        EXPECT_EQ(HeaderKind::kSequence, headers[0].kind);
        EXPECT_EQ(std::optional<uint32_t>(1), headers[0].Find("profile_and_level_indication"));
        EXPECT_EQ(HeaderKind::kVisualObject, headers[1].kind);
        EXPECT_EQ(HeaderKind::kVideoObject, headers[2].kind);
        EXPECT_EQ(14u, headers[3].position);
        ExpectLayer(vol, headers[3]);
    }
}

TEST(HeaderReader, ReadsPicturesByTheirLayer) {
    for (uint32_t seed = 0; seed < 200; seed++) {
        SCOPED_TRACE(seed);
        Random random(seed);
        VolHeader vol = LayerOf(32, 32);
        vol.time_increment_resolution = 1 + random.Below(65535);
        vol.interlaced = random.Chance(2);
        if (random.Chance(2)) vol.quant_precision = 3 + random.Below(7);
        VopHeader vop;
        vop.coding_type = random.Below(2);
        vop.modulo_time_base = random.Below(5);
        vop.time_increment = random.Below(vol.time_increment_resolution);
        vop.coded = !random.Chance(4);
        vop.quant = 1 + random.Below(7);
        vop.intra_dc_vlc_thr = random.Below(8);
        vop.alternate_vertical_scan = random.Below(2);
        HeaderReader reader;
        BitWriter layer;
        PutLayer(layer, vol);
        layer.Align();
        reader.Read(layer.Bytes());
        BitWriter picture;
        vop.PutTo(picture, vol);
        picture.Put(0xFFFF, 16).Align();
        const std::vector<Header> headers = reader.Read(picture.Bytes());
        ASSERT_EQ(1u, headers.size());
        const Header& header = headers[0];
        ASSERT_EQ(HeaderKind::kPicture, header.kind);
        EXPECT_EQ(std::optional(vop.coding_type), header.Find("vop_coding_type"));
        EXPECT_EQ(std::optional(vop.modulo_time_base), header.Find("modulo_time_base"));
        EXPECT_EQ(std::optional(vop.time_increment), header.Find("vop_time_increment"));
        EXPECT_EQ(std::optional<uint32_t>(vop.coded), header.Find("vop_coded"));
        if (!vop.coded) continue;
        EXPECT_EQ(std::optional(vop.quant), header.Find("vop_quant"));
        EXPECT_EQ(std::optional(vop.intra_dc_vlc_thr), header.Find("intra_dc_vlc_thr"));
        EXPECT_EQ(vol.interlaced ? std::optional(vop.alternate_vertical_scan) : std::nullopt,
                  header.Find("alternate_vertical_scan_flag"));
        EXPECT_EQ(vop.coding_type == 1, header.Find("vop_fcode_forward").has_value());
    }
}

TEST(HeaderReader, SaysWhereAHeaderIsCutOff) {
    BitWriter out;
    LayerOf(32, 32).PutTo(out);
    out.Align();
    Bytes chunk = out.Bytes();
    for (chunk.pop_back(); chunk.size() > 4; chunk.pop_back()) {
        const std::vector<Header> headers = HeaderReader().Read(chunk);
        ASSERT_EQ(1u, headers.size());
        EXPECT_FALSE(headers[0].whole) << chunk.size();
        EXPECT_FALSE(headers[0].Find("scalability")) << chunk.size();
    }
    EXPECT_EQ(0u, HeaderReader().Read({}).size());
}

TEST(HeaderReader, KnowsShortHeaders) {
    const Bytes chunk = {0, 0, 0x80, 0x02, 0x08};
    const std::vector<Header> headers = HeaderReader().Read(chunk);
    ASSERT_EQ(1u, headers.size());
    EXPECT_EQ(HeaderKind::kShortHeader, headers[0].kind);
}

TEST(HeaderReader, SurvivesNoise) {
    for (uint32_t seed = 0; seed < 300; seed++) {
        Random random(seed);
        HeaderReader reader;
        for (int i = 0; i < 4; i++) {
            Bytes chunk = random.SparseBytes(random.Below(200));
            const uint8_t code[] = {0, 0, 1, static_cast<uint8_t>(random.Chance(2) ? 0x20 : 0xB6)};
            chunk.insert(chunk.begin() + random.Below(static_cast<uint32_t>(chunk.size()) + 1), code, code + 4);
            for (const Header& header : reader.Read(chunk)) EXPECT_LT(header.position, chunk.size());
        }
    }
}

}  // namespace
}  // namespace mp4v::test
