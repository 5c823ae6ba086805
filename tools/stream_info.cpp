/* SPDX-License-Identifier: BSD-2-Clause
 * Copyright (c) 2026, the mp4vdec authors */
#include "tools/stream_info.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <nlohmann/json.hpp>

namespace mp4v {
namespace {

constexpr size_t kMostLayers = 32;
constexpr size_t kMostSeconds = size_t{24} * 3600;
constexpr size_t kChartColumns = 60;
constexpr const char* kBars[] = {"▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"};
constexpr const char* kTypes[] = {"I", "P", "B", "S"};

struct Profile {
    uint32_t first;
    uint32_t last;
    const char* name;
    uint32_t level;  // of the first
};

// ISO/IEC 14496-2 table G-1, the natural video profiles.
constexpr Profile kProfiles[] = {
    {0x01, 0x06, "Simple", 1},
    {0x08, 0x08, "Simple", 0},
    {0x10, 0x12, "Simple Scalable", 0},
    {0x21, 0x22, "Core", 1},
    {0x32, 0x34, "Main", 2},
    {0x42, 0x42, "N-bit", 2},
    {0x91, 0x94, "Advanced Real Time Simple", 1},
    {0xA1, 0xA3, "Core Scalable", 1},
    {0xB1, 0xB4, "Advanced Coding Efficiency", 1},
    {0xC1, 0xC2, "Advanced Core", 1},
    {0xF0, 0xF5, "Advanced Simple", 0},
};

struct Tool {
    const char* field;
    uint32_t value;
    bool differs;  // from the value, rather than being the same
    const char* name;
};

constexpr Tool kTools[] = {
    {"video_object_layer_shape", 0, true, "arbitrary shape"},
    {"interlaced", 1, false, "interlaced coding"},
    {"obmc_disable", 0, false, "overlapped motion compensation"},
    {"sprite_enable", 1, false, "static sprites"},
    {"sprite_enable", 2, false, "global motion compensation"},
    {"not_8_bit", 1, false, "samples of other than 8 bits"},
    {"quant_type", 1, false, "MPEG quantisation"},
    {"load_intra_quant_mat", 1, false, "own intra matrix"},
    {"load_nonintra_quant_mat", 1, false, "own inter matrix"},
    {"quarter_sample", 1, false, "quarter-sample prediction"},
    {"complexity_estimation_disable", 0, false, "complexity estimation"},
    {"resync_marker_disable", 0, false, "resynchronisation markers"},
    {"data_partitioned", 1, false, "data partitioning"},
    {"reversible_vlc", 1, false, "reversible codes"},
    {"newpred_enable", 1, false, "NEWPRED"},
    {"reduced_resolution_vop_enable", 1, false, "reduced-resolution pictures"},
    {"scalability", 1, false, "scalability"},
};

bool SameFields(const Header& a, const Header& b) {
    return std::equal(
        a.fields.begin(), a.fields.end(), b.fields.begin(), b.fields.end(),
        [](const Field& x, const Field& y) { return std::string_view(x.name) == y.name && x.value == y.value; });
}

std::string Join(const std::set<std::string>& words) {
    std::string text;
    for (const std::string& word : words) text += (text.empty() ? "" : ", ") + word;
    return text.empty() ? "none" : text;
}

std::string Format(const char* format, double value) {
    char text[48];
    (void)std::snprintf(text, sizeof text, format, value);
    return text;
}

}  // namespace

std::string ProfileName(uint32_t profile_and_level) {
    if (profile_and_level == 0xF7) return "Advanced Simple, level 3b";
    if (profile_and_level == 0x04) return "Simple, level 4a";
    for (const Profile& profile : kProfiles) {
        if (profile_and_level < profile.first || profile_and_level > profile.last) continue;
        return std::string(profile.name) + ", level " +
               std::to_string(profile.level + (profile_and_level - profile.first));
    }
    return "unknown";
}

void StreamInfo::Add(const Result& result) {
    bytes_ += result.bytes.size();
    for (const Header& header : reader_.Read(result.bytes)) {
        switch (header.kind) {
            case HeaderKind::kSequence:
                if (!profile_) profile_ = header.Find("profile_and_level_indication");
                break;
            case HeaderKind::kLayer:
                AddLayer(header, result.offset + header.position);
                break;
            case HeaderKind::kPicture:
                AddPicture(header);
                break;
            case HeaderKind::kGroup:
                tools_.insert("groups of pictures");
                break;
            case HeaderKind::kUserData:
                tools_.insert("user data");
                break;
            case HeaderKind::kShortHeader:
                tools_.insert("short header");
                break;
            default:
                break;
        }
    }
    AddBits(result);
    // Headers at the very end, without a picture, are no reason.
    if (result.error && !refusal_ && (result.coded || pictures_ == 0)) {
        refusal_ = {result.coded && pictures_ > 0 ? pictures_ - 1 : pictures_, result.offset, result.error};
    }
}

void StreamInfo::AddLayer(const Header& header, uint64_t offset) {
    AddTools(header);
    for (Layer& layer : layers_) {
        if (!SameFields(layer.header, header)) continue;
        layer.times++;
        return;
    }
    if (layers_.size() < kMostLayers) layers_.push_back({header, offset, 1});
}

void StreamInfo::AddTools(const Header& layer) {
    for (const Tool& tool : kTools) {
        const std::optional<uint32_t> value = layer.Find(tool.field);
        if (value && (*value == tool.value) != tool.differs) tools_.insert(tool.name);
    }
}

void StreamInfo::AddPicture(const Header& header) {
    pictures_++;
    types_[header.Find("vop_coding_type").value_or(0) & 3]++;
    if (header.Find("vop_coded") == 0u) not_coded_++;
    if (header.Find("vop_coding_type") == 2u) tools_.insert("B-pictures");
    if (header.Find("alternate_vertical_scan_flag") == 1u) tools_.insert("alternate scan");
    const std::optional<uint32_t> quant = header.Find("vop_quant");
    if (!quant) return;
    lowest_quant_ = std::min(lowest_quant_.value_or(*quant), *quant);
    highest_quant_ = std::max(highest_quant_.value_or(*quant), *quant);
}

// What carries no time belongs to the second of what came before.
void StreamInfo::AddBits(const Result& result) {
    if (result.seconds && !first_second_) first_second_ = *result.seconds;
    size_t second = bytes_per_second_.empty() ? 0 : bytes_per_second_.size() - 1;
    if (result.seconds && *result.seconds >= *first_second_) {
        second = static_cast<size_t>(std::min(*result.seconds - *first_second_, static_cast<double>(kMostSeconds)));
    }
    // A gap of hours is a damaged time stamp rather than a pause.
    if (second >= bytes_per_second_.size() + 3600) second = bytes_per_second_.size();
    if (second >= bytes_per_second_.size()) bytes_per_second_.resize(second + 1);
    bytes_per_second_[second] += result.bytes.size();
}

std::vector<double> StreamInfo::KilobitsPerSecond() const {
    std::vector<double> rates;
    for (const uint64_t bytes : bytes_per_second_) rates.push_back(static_cast<double>(bytes) * 8 / 1000);
    return rates;
}

std::string StreamInfo::BitRates() const {
    const std::vector<double> rates = KilobitsPerSecond();
    if (rates.empty()) return "unknown";
    const auto [low, high] = std::minmax_element(rates.begin(), rates.end());
    std::string text = Format("%.0f", *low) + " to " + Format("%.0f kbit", *high) + " in a second";
    if (rates.size() < 2 || *high == 0) return text;
    text += "\n  over time   ";
    const size_t columns = std::min(rates.size(), kChartColumns);
    for (size_t i = 0; i < columns; i++) {
        const auto from = rates.begin() + static_cast<ptrdiff_t>(i * rates.size() / columns);
        const auto to = rates.begin() + static_cast<ptrdiff_t>((i + 1) * rates.size() / columns);
        text += kBars[std::lround(*std::max_element(from, to) / *high * 7)];
    }
    return text;
}

std::string StreamInfo::Verdict() const {
    if (!problem_.empty()) return "no: " + problem_ + ".";
    if (refusal_) {
        std::string text = "no: picture " + std::to_string(refusal_->picture) + ", in the chunk at byte " +
                           std::to_string(refusal_->offset) + ", is refused with " + refusal_->error.name() + ": " +
                           refusal_->error.text + ".";
        if (tools_.count("short header")) text += " The stream has short headers (H.263), which are not supported.";
        return text;
    }
    if (pictures_ == 0) return "no: there is no picture in it.";
    if (tools_.count("resynchronisation markers"))
        return "yes, unless there are resynchronisation markers in its pictures.";
    return "yes, as far as its headers tell.";
}

std::string StreamInfo::Text(const std::string& name, const std::string& kind) const {
    std::string text = name + ": " + kind + "\n";
    if (profile_) {
        text += "  profile     " + ProfileName(*profile_) + " (profile_and_level_indication " +
                std::to_string(*profile_) + ")\n";
    }
    text += "  pictures    " + std::to_string(pictures_) + ":";
    for (size_t i = 0; i < types_.size(); i++)
        text += " " + std::to_string(types_[i]) + " " + kTypes[i] + (i < 3 ? "," : "");
    text += "; " + std::to_string(not_coded_) + " of them not coded\n";
    if (lowest_quant_) {
        text += "  vop_quant   " + std::to_string(*lowest_quant_) + " to " + std::to_string(*highest_quant_) + "\n";
    }
    text += "  stream      " + std::to_string(bytes_) + " bytes, " + BitRates() + "\n";
    text += "  tools       " + Join(tools_) + "\n";
    text += "  supported   " + Verdict() + "\n";
    for (const Layer& layer : layers_) {
        text += "\n  VOL at byte " + std::to_string(layer.offset);
        if (layer.times > 1) text += ", and " + std::to_string(layer.times - 1) + " times more";
        text += "\n";
        for (const Field& field : layer.header.fields) {
            const std::string field_name = field.name;
            text += "    " + field_name + std::string(36 - std::min<size_t>(field_name.size(), 35), ' ') +
                    std::to_string(field.value) + "\n";
        }
        if (!layer.header.whole) text += "    (the rest is not read)\n";
    }
    return text;
}

std::string StreamInfo::Json(const std::string& name, const std::string& kind) const {
    nlohmann::ordered_json json;
    json["input"] = name;
    json["kind"] = kind;
    if (profile_) {
        json["profile_and_level_indication"] = *profile_;
        json["profile"] = ProfileName(*profile_);
    }
    json["bytes"] = bytes_;
    json["pictures"] = pictures_;
    for (size_t i = 0; i < types_.size(); i++) json["types"][kTypes[i]] = types_[i];
    json["not_coded"] = not_coded_;
    if (lowest_quant_) json["vop_quant"] = {*lowest_quant_, *highest_quant_};
    json["kbit_per_second"] = KilobitsPerSecond();
    json["tools"] = tools_;
    json["supported"] = supported();
    if (refusal_) {
        json["refused"] = {{"picture", refusal_->picture},
                           {"byte", refusal_->offset},
                           {"error", refusal_->error.name()},
                           {"text", refusal_->error.text}};
    }
    if (!problem_.empty()) json["problem"] = problem_;
    json["layers"] = nlohmann::ordered_json::array();
    for (const Layer& layer : layers_) {
        nlohmann::ordered_json fields;
        for (const Field& field : layer.header.fields) fields[field.name] = field.value;
        json["layers"].push_back({{"byte", layer.offset}, {"times", layer.times}, {"fields", std::move(fields)}});
    }
    return json.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n";
}

}  // namespace mp4v
