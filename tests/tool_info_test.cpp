// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

// "mp4vdec info" against what is recorded about the test streams.
#include <map>
#include <nlohmann/json.hpp>
#include <sstream>

#include "support/headers_writer.h"
#include "support/small_stream.h"
#include "support/tool.h"

namespace mp4v::test {
namespace {

using Json = nlohmann::json;
using Columns = std::map<std::string, std::string>;

const std::string kStreams = std::string(MP4VDEC_TEST_DATA_DIR) + "/streams/";

std::vector<std::string> Split(const std::string& text, char separator) {
    std::vector<std::string> parts;
    std::istringstream in(text);
    for (std::string part; std::getline(in, part, separator);) parts.push_back(part);
    return parts;
}

// The rows of a table by their first column.
std::map<std::string, Columns> ReadTable(const std::string& name, std::vector<std::string> titles) {
    std::ifstream file(kStreams + name);
    std::map<std::string, Columns> rows;
    for (std::string line; std::getline(file, line);) {
        if (line.empty() || line[0] == '#') continue;
        const std::vector<std::string> parts = Split(line, '\t');
        if (titles.empty()) {
            titles = parts;
            continue;
        }
        for (size_t i = 0; i < parts.size(); i++) rows[parts[0]][titles[i]] = parts[i];
    }
    return rows;
}

// "key=value key=value" and words alone.
Columns Facts(const std::string& text) {
    Columns facts;
    for (const std::string& word : Split(text, ' ')) {
        const size_t middle = word.find('=');
        facts[word.substr(0, middle)] = middle == std::string::npos ? "yes" : word.substr(middle + 1);
    }
    return facts;
}

uint64_t CountOf(const std::string& by_type, char type) {
    for (const std::string& word : Split(by_type, ' ')) {
        if (word[0] == type) return std::stoull(word.substr(1));
    }
    return 0;
}

void CheckFacts(const Json& info, const Columns& facts) {
    uint64_t layers = 0;
    for (const Json& layer : info["layers"]) layers += layer["times"].get<uint64_t>();
    EXPECT_EQ(facts.at("VOLs"), std::to_string(layers));
    const Json& fields = info["layers"][0]["fields"];
    const std::pair<const char*, const char*> kNames[] = {{"type_indication", "video_object_type_indication"},
                                                          {"time_res", "vop_time_increment_resolution"},
                                                          {"interlaced", "interlaced"},
                                                          {"quant_type", "quant_type"},
                                                          {"resync_marker_disable", "resync_marker_disable"}};
    for (const auto& [fact, field] : kNames) {
        if (!facts.count(fact) || !fields.count(field)) continue;
        EXPECT_EQ(facts.at(fact), std::to_string(fields[field].get<uint32_t>())) << fact;
    }
    if (!facts.count("vop_quant") || !info.count("vop_quant")) return;
    const std::string& quants = facts.at("vop_quant");  // "8", "3/4" or "3..8"
    EXPECT_EQ(info["vop_quant"][0], std::stoul(quants));
    EXPECT_EQ(info["vop_quant"][1], std::stoul(quants.substr(quants.find_last_of("/.") + 1)));
}

class ToolInfo : public Tool {};

TEST_F(ToolInfo, AgreesWithWhatIsRecordedAboutTheStreams) {
    const auto manifest = ReadTable("MANIFEST.tsv", {});
    const auto expected = ReadTable("EXPECTED.tsv", {"name", "status", "error"});
    size_t checked = 0;
    for (const auto& [file, row] : manifest) {
        SCOPED_TRACE(file);
        if (!std::filesystem::exists(kStreams + file) || row.at("vops") == "0") continue;
        const Result result = Run("info --json " + kStreams + file);
        const Json info = Json::parse(result.out);
        const auto refused = expected.find(file.substr(0, file.rfind('.')));
        const bool supported = refused == expected.end() || refused->second.at("status") == "any";
        EXPECT_EQ(supported ? kGood : kDamage, result.status);
        EXPECT_EQ(supported, info["supported"].get<bool>());
        checked++;
        if (!supported) {
            EXPECT_EQ(refused->second.at("error"), info["refused"]["error"]);
            continue;
        }
        EXPECT_EQ(row.at("bytes"), std::to_string(info["bytes"].get<uint64_t>()));
        EXPECT_EQ(row.at("vops"), std::to_string(info["pictures"].get<uint64_t>()));
        const std::string& types = row.at("vops_by_type");
        EXPECT_EQ(CountOf(types, 'I'), info["types"]["I"]);
        EXPECT_EQ(CountOf(types, 'P') + CountOf(types, 'N'), info["types"]["P"]);
        EXPECT_EQ(CountOf(types, 'N'), info["not_coded"]);
        CheckFacts(info, Facts(row.at("header_facts")));
    }
    EXPECT_GE(checked, 40u);
}

TEST_F(ToolInfo, TellsItInWords) {
    const Result good = Run("info " + kStreams + "o17_not_coded.m4v");
    EXPECT_EQ(kGood, good.status);
    EXPECT_EQ("", good.err);
    for (const char* const part :
         {"o17_not_coded.m4v: elementary stream\n", "  pictures    60: 3 I, 57 P, 0 B, 0 S; 30 of them not coded\n",
          "  supported   yes, as far as its headers tell.\n", "    video_object_layer_width            320\n",
          "  VOL at byte 15, and 2 times more\n"}) {
        EXPECT_TRUE(Contains(good.out, part)) << part << good.out;
    }
    const Result refused = Run("info " + kStreams + "r01_b_pictures.m4v");
    EXPECT_EQ(kDamage, refused.status);
    EXPECT_TRUE(Contains(refused.out,
                         "  supported   no: picture 2, in the chunk at byte 1826, is refused with "
                         "ERR_VID_MPEG4DEC_UNSUPPORT_BFRAME: it is a B or sprite picture"))
        << refused.out;
}

TEST_F(ToolInfo, TellsProfilesAndBitRates) {
    VolHeader vol = LayerOf(32, 32);
    BitWriter out;
    PutVisualObjectSequence(out, 0xF5);
    VisualObjectHeader{}.PutTo(out);
    vol.PutTo(out);
    // 2 pictures in the first second, 1 in each of two more.
    size_t sizes[3] = {};
    for (const size_t second : {0u, 0u, 1u, 2u}) {
        const size_t before = out.Bytes().size();
        VopHeader vop;
        vop.modulo_time_base = second > 0;
        PutFlatPicture(out, vol, 100, vop);
        sizes[second] += out.Bytes().size() - before;
        if (sizes[0] == out.Bytes().size() - before) sizes[0] += before;
    }
    WriteFile("in.m4v", out.Bytes());
    const Json info = Json::parse(Run("info in.m4v --json").out);
    EXPECT_EQ("Advanced Simple, level 5", info["profile"]);
    ASSERT_EQ(3u, info["kbit_per_second"].size());
    for (size_t i = 0; i < 3; i++) {
        EXPECT_DOUBLE_EQ(static_cast<double>(sizes[i]) * 8 / 1000, info["kbit_per_second"][i].get<double>()) << i;
    }
    EXPECT_TRUE(Contains(Run("info in.m4v").out, "  over time   █"));
}

TEST_F(ToolInfo, NamesTheToolsOfALayer) {
    VolHeader vol = LayerOf(32, 32);
    vol.verid = 5;
    vol.interlaced = true;
    vol.quant_type = true;
    vol.intra_matrix = Bytes{8, 9, 0};
    vol.quarter_sample = true;
    vol.resync_marker_disable = false;
    WriteFile("in.m4v", [&] {
        BitWriter out;
        PutLayer(out, vol);
        PutFlatPicture(out, vol, 100);
        return out.Bytes();
    }());
    const Json info = Json::parse(Run("info - --json <in.m4v").out);
    EXPECT_EQ(Json({"MPEG quantisation", "interlaced coding", "own intra matrix", "quarter-sample prediction",
                    "resynchronisation markers"}),
              info["tools"]);
    EXPECT_EQ("standard input", info["input"]);
}

TEST_F(ToolInfo, FindsNothingInNothing) {
    WriteFile("empty.m4v", {});
    WriteFile("noise.m4v", Bytes(1000, 0x55));
    const Result empty = Run("info empty.m4v");
    EXPECT_EQ(kDamage, empty.status);
    EXPECT_TRUE(Contains(empty.out, "  supported   no: there is no picture in it.\n")) << empty.out;
    EXPECT_EQ(kDamage, Run("info noise.m4v").status);
    EXPECT_EQ(kFiles, Run("info missing.m4v").status);
    EXPECT_EQ(kUsage, Run("info").status);
}

}  // namespace
}  // namespace mp4v::test
