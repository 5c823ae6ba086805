/* SPDX-License-Identifier: BSD-2-Clause
 * Copyright (c) 2026, the mp4vdec authors */
#include "tools/picture_report.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <nlohmann/json.hpp>

namespace mp4v {
namespace {

using Json = nlohmann::ordered_json;

constexpr std::array<const char*, MP4V_MB_INVALID + 1> kKinds = {"not coded",   "inter", "inter 4V",
                                                                 "inter field", "intra", "invalid"};

// How many vectors of a macroblock say something.
size_t VectorsOf(const Mp4vMbView& mb) {
    switch (mb.eKind) {
        case MP4V_MB_INTER:
            return 1;
        case MP4V_MB_INTER_FIELD:
            return 2;
        case MP4V_MB_INTER_4V:
            return 4;
        default:
            return 0;
    }
}

std::string OneDecimal(double value) {
    char text[48];
    (void)std::snprintf(text, sizeof text, "%.1f", value);
    return text;
}

std::string KindsText(const Inspection& inspection) {
    std::array<size_t, kKinds.size()> count{};
    for (const Mp4vMbView& mb : inspection.macroblocks) count[mb.eKind]++;
    std::string text;
    for (size_t i = 0; i < count.size(); i++) {
        if (count[i] > 0) text += (text.empty() ? "" : ", ") + std::to_string(count[i]) + " " + kKinds[i];
    }
    return text;
}

std::string BitsText(const PictureFacts& facts, const Inspection& inspection) {
    const std::vector<Mp4vMbView>& list = inspection.macroblocks;
    const auto most =
        std::max_element(list.begin(), list.end(), [](const auto& a, const auto& b) { return a.u32Bits < b.u32Bits; });
    const uint64_t all = list.back().u32FirstBit + uint64_t{list.back().u32Bits} - inspection.vop.u32HeaderBits;
    std::string text = std::to_string(facts.bytes * 8) + ": headers " + std::to_string(inspection.vop.u32HeaderBits) +
                       ", macroblocks " + std::to_string(all);
    text += " (mean " + OneDecimal(static_cast<double>(all) / static_cast<double>(list.size())) + ", most " +
            std::to_string(most->u32Bits) + " at column " + std::to_string(most->u32Column) + ", row " +
            std::to_string(most->u32Row) + ")";
    return text;
}

std::string VectorsText(const Inspection& inspection) {
    const double unit = inspection.vop.u8QuarterSample ? 4 : 2;
    double longest = 0;
    for (const Mp4vMbView& mb : inspection.macroblocks) {
        for (size_t i = 0; i < VectorsOf(mb); i++) {
            longest = std::max(longest, std::hypot(mb.aas32Mv[i][0] / unit, mb.aas32Mv[i][1] / unit));
        }
    }
    return "in " + std::string(inspection.vop.u8QuarterSample ? "quarter" : "half") + " samples, longest " +
           OneDecimal(longest) + " samples";
}

Json MacroblockJson(const Mp4vMbView& mb) {
    Json json = {{"column", mb.u32Column},
                 {"row", mb.u32Row},
                 {"first_bit", mb.u32FirstBit},
                 {"bits", mb.u32Bits},
                 {"kind", KindName(mb.eKind)}};
    if (mb.u8Quant == 0) return json;
    json["quant"] = mb.u8Quant;
    json["dquant"] = mb.u8Dquant != 0;
    json["cbp"] = mb.u8Cbp;
    json["ac_pred_flag"] = mb.u8AcPred;
    json["dct_type"] = mb.u8FieldDct;
    if (VectorsOf(mb) > 0) {
        json["vectors"] = Json::array();
        for (size_t i = 0; i < VectorsOf(mb); i++) json["vectors"].push_back({mb.aas32Mv[i][0], mb.aas32Mv[i][1]});
    }
    if (mb.eKind == MP4V_MB_INTER_FIELD) json["field_references"] = {mb.au8FieldRef[0], mb.au8FieldRef[1]};
    return json;
}

}  // namespace

std::string KindName(Mp4vMbKind kind) {
    return kKinds[kind];
}

const char* TypeName(const Mp4vVopView& vop) {
    return vop.u8NotCoded ? "not coded" : vop.u8Predicted ? "P" : "I";
}

char TypeOf(const Mp4vVopView& vop) {
    return vop.u8NotCoded ? 'N' : vop.u8Predicted ? 'P' : 'I';
}

std::optional<QuantiserRange> QuantisersOf(const Inspection& inspection) {
    uint64_t sum = 0;
    size_t count = 0;
    QuantiserRange range{255, 0, 0};
    for (const Mp4vMbView& mb : inspection.macroblocks) {
        if (mb.u8Quant == 0) continue;
        range.lowest = std::min<uint32_t>(range.lowest, mb.u8Quant);
        range.highest = std::max<uint32_t>(range.highest, mb.u8Quant);
        sum += mb.u8Quant;
        count++;
    }
    if (count == 0) return std::nullopt;
    range.mean = static_cast<double>(sum) / static_cast<double>(count);
    return range;
}

std::string PictureText(const PictureFacts& facts, const Inspection& inspection) {
    const Mp4vVopView& vop = inspection.vop;
    std::string text = "picture " + std::to_string(facts.picture) + ", chunk " + std::to_string(facts.chunk) +
                       " at byte " + std::to_string(facts.offset) + ": " + TypeName(vop);
    if (facts.width > 0) text += ", " + std::to_string(facts.width) + " x " + std::to_string(facts.height);
    text += ", " + std::to_string(facts.bytes) + " bytes\n";
    if (facts.error) text += "  " + facts.error.name() + ": " + facts.error.text + "\n";
    if (inspection.macroblocks.empty()) return text;
    text += "  macroblocks " + std::to_string(vop.u32MbWidth) + " x " + std::to_string(vop.u32MbHeight) + ": " +
            KindsText(inspection) + "\n";
    text += "  bits        " + BitsText(facts, inspection) + "\n";
    text += "  quantiser   vop_quant " + std::to_string(vop.u32Quant);
    if (const std::optional<QuantiserRange> range = QuantisersOf(inspection)) {
        text += "; " + std::to_string(range->lowest) + " to " + std::to_string(range->highest) + ", mean " +
                OneDecimal(range->mean);
    }
    text += "\n";
    if (vop.u8Predicted) text += "  vectors     " + VectorsText(inspection) + "\n";
    return text;
}

Json PictureJson(const PictureFacts& facts, const Inspection& inspection) {
    const Mp4vVopView& vop = inspection.vop;
    Json json;
    json["picture"] = facts.picture;
    json["chunk"] = facts.chunk;
    json["byte"] = facts.offset;
    json["bytes"] = facts.bytes;
    json["type"] = TypeName(vop);
    if (facts.seconds) json["seconds"] = *facts.seconds;
    if (facts.width > 0) json["size"] = {facts.width, facts.height};
    if (facts.error) json["error"] = {{"name", facts.error.name()}, {"text", facts.error.text}};
    json["columns"] = vop.u32MbWidth;
    json["rows"] = vop.u32MbHeight;
    json["header_bits"] = vop.u32HeaderBits;
    json["vop_quant"] = vop.u32Quant;
    json["interlaced"] = vop.u8Interlaced;
    json["vector_units_per_sample"] = vop.u8QuarterSample ? 4 : 2;
    json["macroblocks"] = Json::array();
    for (const Mp4vMbView& mb : inspection.macroblocks) json["macroblocks"].push_back(MacroblockJson(mb));
    return json;
}

std::string PictureCsv(const Inspection& inspection) {
    std::string text =
        "column,row,first_bit,bits,kind,quant,dquant,cbp,ac_pred_flag,dct_type,x0,y0,x1,y1,x2,y2,x3,y3\n";
    for (const Mp4vMbView& mb : inspection.macroblocks) {
        text += std::to_string(mb.u32Column) + "," + std::to_string(mb.u32Row) + "," + std::to_string(mb.u32FirstBit) +
                "," + std::to_string(mb.u32Bits) + "," + kKinds[mb.eKind];
        for (const uint8_t value : {mb.u8Quant, mb.u8Dquant, mb.u8Cbp, mb.u8AcPred, mb.u8FieldDct}) {
            text += "," + (mb.u8Quant ? std::to_string(value) : "");
        }
        for (size_t i = 0; i < 4; i++) {
            const bool has = i < VectorsOf(mb);
            text += "," + (has ? std::to_string(mb.aas32Mv[i][0]) : "") + "," +
                    (has ? std::to_string(mb.aas32Mv[i][1]) : "");
        }
        text += "\n";
    }
    return text;
}

}  // namespace mp4v
