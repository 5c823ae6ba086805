// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

// Writes the headers of an elementary stream (ISO/IEC 14496-2, 6.2) with every element settable, so that a test can
// also write what no encoder would. The defaults are an ordinary progressive Simple Profile stream.
#ifndef MP4VDEC_TESTS_SUPPORT_HEADERS_WRITER_H_
#define MP4VDEC_TESTS_SUPPORT_HEADERS_WRITER_H_

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

#include "support/bit_writer.h"

namespace mp4v::test {

constexpr uint8_t kVideoObjectCode = 0x00;       // to 0x1F
constexpr uint8_t kVideoObjectLayerCode = 0x20;  // to 0x2F
constexpr uint8_t kVisualObjectSequenceCode = 0xB0;
constexpr uint8_t kSequenceEndCode = 0xB1;
constexpr uint8_t kUserDataCode = 0xB2;
constexpr uint8_t kGroupOfVopCode = 0xB3;
constexpr uint8_t kVisualObjectCode = 0xB5;
constexpr uint8_t kVopCode = 0xB6;

inline BitWriter& PutStartCode(BitWriter& out, uint8_t code) {
    return out.Align().Put(0x00000100u | code, 32);
}

inline BitWriter& PutVisualObjectSequence(BitWriter& out, uint8_t profile_and_level = 0x01) {
    return PutStartCode(out, kVisualObjectSequenceCode).Put(profile_and_level, 8);
}

// The text without its terminating zero.
inline BitWriter& PutUserData(BitWriter& out, std::string_view text) {
    PutStartCode(out, kUserDataCode);
    for (const char c : text) out.Put(static_cast<uint8_t>(c), 8);
    return out;
}

struct VisualObjectHeader {
    bool identifier = false;  // is_visual_object_identifier
    uint32_t verid = 1;
    uint32_t priority = 1;
    uint32_t type = 1;  // video
    bool video_signal_type = false;
    bool colour_description = false;

    void PutTo(BitWriter& out) const {
        PutStartCode(out, kVisualObjectCode).Put(identifier, 1);
        if (identifier) out.Put(verid, 4).Put(priority, 3);
        out.Put(type, 4).Put(video_signal_type, 1);
        if (!video_signal_type) return;
        out.Put(5, 3).Put(1, 1).Put(colour_description, 1);
        if (colour_description) out.Put(0xFF, 8).Put(0xFF, 8).Put(0xFF, 8);
    }
};

struct VolHeader {
    uint8_t code = kVideoObjectLayerCode;
    bool random_accessible = false;
    uint32_t type_indication = 1;
    std::optional<uint32_t> verid{};  // with a value: is_object_layer_identifier
    uint32_t aspect_ratio_info = 1;   // 15: par_width and par_height follow
    bool control_parameters = false;
    bool vbv_parameters = false;
    uint32_t shape = 0;
    uint32_t time_increment_resolution = 30;
    std::optional<uint32_t> fixed_time_increment{};  // with a value: fixed_vop_rate
    uint32_t width = 32;
    uint32_t height = 32;
    bool interlaced = false;
    bool obmc_disable = true;
    uint32_t sprite_enable = 0;
    std::optional<uint32_t> quant_precision{};  // with a value: not_8_bit
    bool quant_type = false;
    std::optional<std::vector<uint8_t>> intra_matrix{};  // as coded, with the terminating 0 if there is to be one
    std::optional<std::vector<uint8_t>> inter_matrix{};
    bool quarter_sample = false;
    bool complexity_disable = true;
    bool resync_marker_disable = true;
    bool data_partitioned = false;
    bool newpred = false;
    bool reduced_resolution = false;
    bool scalability = false;
    uint32_t marker = 1;  // every marker_bit
    uint32_t filler = 0;  // every bit of the elements that the decoder has no use for

    bool version_1() const { return verid.value_or(1) == 1; }

    // Significant bits of the largest increment, at least 1.
    unsigned time_increment_bits() const {
        unsigned bits = 0;
        for (uint32_t largest = time_increment_resolution ? time_increment_resolution - 1 : 0; largest; largest /= 2) {
            bits++;
        }
        return bits ? bits : 1;
    }

    void PutTo(BitWriter& out) const {
        PutStartCode(out, code);
        PutBody(out);
    }

    // What follows the start code.
    void PutBody(BitWriter& out) const {
        out.Put(random_accessible, 1).Put(type_indication, 8).Put(verid.has_value(), 1);
        if (verid) out.Put(*verid, 4).Put(Filler(), 3);
        out.Put(aspect_ratio_info, 4);
        if (aspect_ratio_info == 15) out.Put(Filler(), 8).Put(Filler(), 8);
        out.Put(control_parameters, 1);
        if (control_parameters) PutControlParameters(out);
        out.Put(shape, 2).Put(marker, 1).Put(time_increment_resolution, 16).Put(marker, 1);
        out.Put(fixed_time_increment.has_value(), 1);
        if (fixed_time_increment) out.Put(*fixed_time_increment, time_increment_bits());
        if (shape == 2) {
            if (!version_1()) out.Put(scalability, 1);
            out.Put(resync_marker_disable, 1);
            return;
        }
        if (shape == 0) out.Put(marker, 1).Put(width, 13).Put(marker, 1).Put(height, 13).Put(marker, 1);
        out.Put(interlaced, 1).Put(obmc_disable, 1).Put(sprite_enable, version_1() ? 1 : 2);
        if (!version_1() && shape != 0) out.Put(Filler(), 1);
        out.Put(quant_precision.has_value(), 1);
        if (quant_precision) out.Put(*quant_precision, 4).Put(Filler(), 4);
        out.Put(quant_type, 1);
        if (quant_type) {
            PutMatrix(out, intra_matrix);
            PutMatrix(out, inter_matrix);
        }
        if (!version_1()) out.Put(quarter_sample, 1);
        out.Put(complexity_disable, 1).Put(resync_marker_disable, 1).Put(data_partitioned, 1);
        if (!version_1()) {
            out.Put(newpred, 1);
            if (newpred) out.Put(Filler(), 3);
            out.Put(reduced_resolution, 1);
        }
        out.Put(scalability, 1);
    }

  private:
    uint32_t Filler() const { return filler ? 0xFFFFFFFFu : 0; }

    void PutControlParameters(BitWriter& out) const {
        out.Put(Filler(), 3).Put(vbv_parameters, 1);
        if (!vbv_parameters) return;
        for (const unsigned half : {15u, 15u, 15u}) out.Put(Filler(), half).Put(marker, 1);
        out.Put(Filler(), 3).Put(Filler(), 11).Put(marker, 1).Put(Filler(), 15).Put(marker, 1);
    }

    static void PutMatrix(BitWriter& out, const std::optional<std::vector<uint8_t>>& matrix) {
        out.Put(matrix.has_value(), 1);
        if (!matrix) return;
        for (const uint8_t value : *matrix) out.Put(value, 8);
    }
};

inline BitWriter& PutGroupOfVop(BitWriter& out, uint32_t bits = 0x00040) {  // 20 bits; this is the marker alone
    return PutStartCode(out, kGroupOfVopCode).Put(bits, 20);
}

struct VopHeader {
    uint32_t coding_type = 0;       // 0 I, 1 P, 2 B, 3 S
    uint32_t modulo_time_base = 0;  // ones before the 0
    uint32_t marker = 1;            // the one behind modulo_time_base
    uint32_t time_increment = 0;
    bool coded = true;
    uint32_t rounding_type = 0;
    std::optional<uint32_t> constant_alpha{};  // layers with shape: with a value, vop_constant_alpha
    uint32_t intra_dc_vlc_thr = 0;
    uint32_t top_field_first = 0;
    uint32_t alternate_vertical_scan = 0;
    uint32_t quant = 4;  // its DC scaler is 8
    uint32_t fcode_forward = 1;

    void PutTo(BitWriter& out, const VolHeader& vol) const {
        PutStartCode(out, kVopCode).Put(coding_type, 2);
        for (uint32_t i = 0; i < modulo_time_base; i++) out.Put(1, 1);
        out.Put(0, 1).Put(marker, 1).Put(time_increment, vol.time_increment_bits()).Put(1, 1).Put(coded, 1);
        if (!coded) return;
        if (vol.shape != 2 && coding_type == 1) out.Put(rounding_type, 1);
        if (vol.shape != 0) PutShape(out);
        if (vol.shape != 2) {
            out.Put(intra_dc_vlc_thr, 3);
            if (vol.interlaced) out.Put(top_field_first, 1).Put(alternate_vertical_scan, 1);
        }
        out.Put(quant, vol.quant_precision.value_or(5));
        if (coding_type == 1) out.Put(fcode_forward, 3);
    }

  private:
    void PutShape(BitWriter& out) const {
        for (int i = 0; i < 4; i++) out.Put(0x1555, 13).Put(1, 1);
        out.Put(1, 1).Put(constant_alpha.has_value(), 1);
        if (constant_alpha) out.Put(*constant_alpha, 8);
    }
};

}  // namespace mp4v::test

#endif  // MP4VDEC_TESTS_SUPPORT_HEADERS_WRITER_H_
