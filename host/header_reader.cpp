/* SPDX-License-Identifier: BSD-2-Clause
 * Copyright (c) 2026, the mp4vdec authors */
#include <bit>

#include "host/bit_cursor.h"
#include "host/start_code.h"
#include "mp4vdec.hpp"

namespace mp4v {
namespace {

constexpr uint32_t kRectangular = 0;
constexpr uint32_t kBinaryOnly = 2;
constexpr uint32_t kGrayscale = 3;
constexpr uint32_t kExtendedAspect = 15;
constexpr uint32_t kStaticSprite = 1;
constexpr uint32_t kGlobalMotion = 2;
constexpr uint32_t kIntra = 0;
constexpr uint32_t kPredicted = 1;
constexpr uint32_t kBidirectional = 2;
constexpr uint32_t kMaxModuloTime = 128;
constexpr size_t kMaxHeaders = 256;  // of a chunk; a stream that repeats more is not video
constexpr uint8_t kLastVideoObjectCode = 0x1F;

// Takes fields from the bits of one header.
class FieldReader {
  public:
    FieldReader(BitCursor& bits, Header& header) : bits_(bits), header_(header) {}

    uint32_t Read(const char* name, unsigned count) {
        const uint32_t value = bits_.Read(count);
        if (bits_.overrun()) {
            header_.whole = false;
        } else {
            header_.fields.push_back({name, value});
        }
        return value;
    }
    bool ReadFlag(const char* name) { return Read(name, 1) != 0; }
    void Marker() { bits_.Skip(1); }
    void Stop() { header_.whole = false; }
    BitCursor& bits() { return bits_; }

  private:
    BitCursor& bits_;
    Header& header_;
};

uint32_t Of(const Header& header, std::string_view name) {
    return header.Find(name).value_or(0);
}

void ReadVideoSignal(FieldReader& in) {
    if (!in.ReadFlag("video_signal_type")) return;
    in.Read("video_format", 3);
    in.ReadFlag("video_range");
    if (!in.ReadFlag("colour_description")) return;
    in.Read("colour_primaries", 8);
    in.Read("transfer_characteristics", 8);
    in.Read("matrix_coefficients", 8);
}

void ReadVisualObject(FieldReader& in) {
    if (in.ReadFlag("is_visual_object_identifier")) {
        in.Read("visual_object_verid", 4);
        in.Read("visual_object_priority", 3);
    }
    const uint32_t type = in.Read("visual_object_type", 4);
    if (type == 1 || type == 2) ReadVideoSignal(in);
}

void ReadHalves(FieldReader& in, const char* first, unsigned first_bits, const char* latter, unsigned latter_bits) {
    in.Read(first, first_bits);
    in.Marker();
    in.Read(latter, latter_bits);
}

void ReadControlParameters(FieldReader& in) {
    if (!in.ReadFlag("vol_control_parameters")) return;
    in.Read("chroma_format", 2);
    in.ReadFlag("low_delay");
    if (!in.ReadFlag("vbv_parameters")) return;
    ReadHalves(in, "first_half_bit_rate", 15, "latter_half_bit_rate", 15);
    in.Marker();
    ReadHalves(in, "first_half_vbv_buffer_size", 15, "latter_half_vbv_buffer_size", 3);
    ReadHalves(in, "first_half_vbv_occupancy", 11, "latter_half_vbv_occupancy", 15);
    in.Marker();
}

void ReadSprite(FieldReader& in, uint32_t sprite) {
    if (sprite != kStaticSprite && sprite != kGlobalMotion) return;
    if (sprite == kStaticSprite) {
        for (const char* const name :
             {"sprite_width", "sprite_height", "sprite_left_coordinate", "sprite_top_coordinate"}) {
            in.Read(name, 13);
            in.Marker();
        }
    }
    in.Read("no_of_sprite_warping_points", 6);
    in.Read("sprite_warping_accuracy", 2);
    in.ReadFlag("sprite_brightness_change");
    if (sprite == kStaticSprite) in.ReadFlag("low_latency_sprite_enable");
}

void ReadMatrix(FieldReader& in, const char* name) {
    if (!in.ReadFlag(name)) return;
    for (int i = 0; i < 64 && in.bits().Read(8) != 0; i++) {
    }
}

void ReadScalability(FieldReader& in) {
    if (!in.ReadFlag("scalability")) return;
    in.ReadFlag("hierarchy_type");
    in.Read("ref_layer_id", 4);
    in.ReadFlag("ref_layer_sampling_direc");
    in.Read("hor_sampling_factor_n", 5);
    in.Read("hor_sampling_factor_m", 5);
    in.Read("vert_sampling_factor_n", 5);
    in.Read("vert_sampling_factor_m", 5);
    in.ReadFlag("enhancement_type");
}

// What follows complexity estimation, or the planes of a grayscale shape, is not read.
void ReadCodingTools(FieldReader& in, uint32_t version, uint32_t shape) {
    in.ReadFlag("interlaced");
    in.ReadFlag("obmc_disable");
    ReadSprite(in, in.Read("sprite_enable", version == 1 ? 1 : 2));
    if (version != 1 && shape != kRectangular) in.ReadFlag("sadct_disable");
    if (in.ReadFlag("not_8_bit")) {
        in.Read("quant_precision", 4);
        in.Read("bits_per_pixel", 4);
    }
    if (shape == kGrayscale) return in.Stop();
    if (in.ReadFlag("quant_type")) {
        ReadMatrix(in, "load_intra_quant_mat");
        ReadMatrix(in, "load_nonintra_quant_mat");
    }
    if (version != 1) in.ReadFlag("quarter_sample");
    if (!in.ReadFlag("complexity_estimation_disable")) return in.Stop();
    in.ReadFlag("resync_marker_disable");
    if (in.ReadFlag("data_partitioned")) in.ReadFlag("reversible_vlc");
    if (version != 1) {
        if (in.ReadFlag("newpred_enable")) {
            in.Read("requested_upstream_message_type", 2);
            in.ReadFlag("newpred_segment_type");
        }
        in.ReadFlag("reduced_resolution_vop_enable");
    }
    ReadScalability(in);
}

unsigned TimeIncrementBits(uint32_t resolution) {
    return resolution < 2 ? 1 : static_cast<unsigned>(std::bit_width(resolution - 1));
}

void ReadLayer(FieldReader& in) {
    uint32_t version = 1;
    in.ReadFlag("random_accessible_vol");
    in.Read("video_object_type_indication", 8);
    if (in.ReadFlag("is_object_layer_identifier")) {
        version = in.Read("video_object_layer_verid", 4);
        in.Read("video_object_layer_priority", 3);
    }
    if (in.Read("aspect_ratio_info", 4) == kExtendedAspect) {
        in.Read("par_width", 8);
        in.Read("par_height", 8);
    }
    ReadControlParameters(in);
    const uint32_t shape = in.Read("video_object_layer_shape", 2);
    if (shape == kGrayscale && version != 1) in.Read("video_object_layer_shape_extension", 4);
    in.Marker();
    const uint32_t resolution = in.Read("vop_time_increment_resolution", 16);
    in.Marker();
    if (in.ReadFlag("fixed_vop_rate")) in.Read("fixed_vop_time_increment", TimeIncrementBits(resolution));
    if (shape == kBinaryOnly) {
        if (version != 1) ReadScalability(in);
        in.ReadFlag("resync_marker_disable");
        return;
    }
    if (shape == kRectangular) {
        in.Marker();
        in.Read("video_object_layer_width", 13);
        in.Marker();
        in.Read("video_object_layer_height", 13);
        in.Marker();
    }
    ReadCodingTools(in, version, shape);
}

void ReadGroup(FieldReader& in) {
    in.Read("time_code_hours", 5);
    in.Read("time_code_minutes", 6);
    in.Marker();
    in.Read("time_code_seconds", 6);
    in.ReadFlag("closed_gov");
    in.ReadFlag("broken_link");
}

// The rest of what a layer outside the supported subset puts here is not read.
void ReadPicture(FieldReader& in, Header& header, const Header& layer) {
    const uint32_t type = in.Read("vop_coding_type", 2);
    uint32_t seconds = 0;
    while (seconds <= kMaxModuloTime && in.bits().ReadFlag()) seconds++;
    if (seconds > kMaxModuloTime) return in.Stop();
    header.fields.push_back({"modulo_time_base", seconds});
    in.Marker();
    in.Read("vop_time_increment", TimeIncrementBits(Of(layer, "vop_time_increment_resolution")));
    in.Marker();
    if (!in.ReadFlag("vop_coded")) return;
    const bool simple = Of(layer, "video_object_layer_shape") == kRectangular && Of(layer, "newpred_enable") == 0 &&
                        Of(layer, "sprite_enable") == 0 && Of(layer, "reduced_resolution_vop_enable") == 0 &&
                        Of(layer, "complexity_estimation_disable") == 1;
    if (layer.fields.empty() || !simple || type > kBidirectional) return in.Stop();
    if (type == kPredicted) in.ReadFlag("vop_rounding_type");
    in.Read("intra_dc_vlc_thr", 3);
    if (Of(layer, "interlaced")) {
        in.ReadFlag("top_field_first");
        in.ReadFlag("alternate_vertical_scan_flag");
    }
    in.Read("vop_quant", Of(layer, "not_8_bit") ? Of(layer, "quant_precision") : 5);
    if (type != kIntra) in.Read("vop_fcode_forward", 3);
    if (type == kBidirectional) in.Read("vop_fcode_backward", 3);
}

std::optional<HeaderKind> KindOf(uint8_t code) {
    if (code <= kLastVideoObjectCode) return HeaderKind::kVideoObject;
    if (IsVolCode(code)) return HeaderKind::kLayer;
    switch (code) {
        case kSequenceCode:
            return HeaderKind::kSequence;
        case kVisualObjectCode:
            return HeaderKind::kVisualObject;
        case kGroupOfVopCode:
            return HeaderKind::kGroup;
        case kUserDataCode:
            return HeaderKind::kUserData;
        case kVopCode:
            return HeaderKind::kPicture;
        default:
            return std::nullopt;
    }
}

void ReadFields(BitCursor& bits, Header& header, const Header& layer) {
    FieldReader in(bits, header);
    switch (header.kind) {
        case HeaderKind::kSequence:
            in.Read("profile_and_level_indication", 8);
            break;
        case HeaderKind::kVisualObject:
            ReadVisualObject(in);
            break;
        case HeaderKind::kLayer:
            ReadLayer(in);
            break;
        case HeaderKind::kGroup:
            ReadGroup(in);
            break;
        case HeaderKind::kPicture:
            ReadPicture(in, header, layer);
            break;
        default:
            break;
    }
}

// short_video_start_marker, ISO/IEC 14496-2, 6.2.5.2.
bool IsShortHeader(std::span<const uint8_t> chunk) {
    return chunk.size() > 3 && chunk[0] == 0 && chunk[1] == 0 && (chunk[2] & 0xFC) == 0x80;
}

}  // namespace

std::optional<uint32_t> Header::Find(std::string_view name) const {
    for (const Field& field : fields) {
        if (field.name == name) return field.value;
    }
    return std::nullopt;
}

std::vector<Header> HeaderReader::Read(std::span<const uint8_t> chunk) {
    std::vector<Header> headers;
    if (IsShortHeader(chunk)) headers.push_back({.kind = HeaderKind::kShortHeader, .fields = {}});
    size_t position = FindStartCode(chunk, 0);
    while (position < chunk.size() && headers.size() < kMaxHeaders) {
        const std::optional<HeaderKind> kind = KindOf(chunk[position + 3]);
        BitCursor bits(chunk, position + kStartCodeSize);
        if (kind) {
            Header header{.kind = *kind, .position = position, .fields = {}};
            ReadFields(bits, header, layer_);
            if (*kind == HeaderKind::kLayer) layer_ = header;
            headers.push_back(std::move(header));
            if (*kind == HeaderKind::kPicture) break;
        }
        position = FindStartCode(chunk, (bits.position() + 7) / 8);
    }
    return headers;
}

}  // namespace mp4v
