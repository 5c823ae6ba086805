// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

// "mp4vdec inspect" on streams whose macroblocks are known.
#include <png.h>

#include <cmath>
#include <nlohmann/json.hpp>
#include <sstream>

#include "support/headers_writer.h"
#include "support/small_stream.h"
#include "support/tool.h"

namespace mp4v::test {
namespace {

using Json = nlohmann::json;

// 48 x 16, three macroblocks: an I-VOP; a P-VOP of one vector, not coded, and four vectors; a picture not coded.
Bytes SmallStream() {
    const VolHeader vol = LayerOf(48, 16);
    BitWriter out;
    PutLayer(out, vol);
    PutFlatPicture(out, vol, 100);
    VopHeader vop;
    vop.coding_type = 1;
    vop.quant = 9;
    vop.PutTo(out, vol);
    out.Bits("0 1 11 0000100 0 0000100 0");     // inter, no coefficients, (6, 6) half samples
    out.Bits("1");                              // not coded
    out.Bits("0 010 11 1 1 010 0010 1 1 1 1");  // four vectors
    PutStuffing(out);
    PutNotCodedPicture(out, vol);
    return out.Bytes();
}

struct Png {
    uint32_t width = 0;
    uint32_t height = 0;
    Bytes rgb;

    Bytes At(uint32_t x, uint32_t y) const {
        const size_t at = (size_t{y} * width + x) * 3;
        return {rgb.begin() + static_cast<ptrdiff_t>(at), rgb.begin() + static_cast<ptrdiff_t>(at) + 3};
    }
};

class ToolInspect : public Tool {
  protected:
    bool Draws() const { return Contains(Run("--version").out, "Drawing: cairo"); }

    Png ReadPng(const std::string& name) const {
        Png png;
        png_image image{};
        image.version = PNG_IMAGE_VERSION;
        EXPECT_TRUE(png_image_begin_read_from_file(&image, Path(name).c_str())) << name;
        image.format = PNG_FORMAT_RGB;
        png.width = image.width;
        png.height = image.height;
        png.rgb.resize(PNG_IMAGE_SIZE(image));
        EXPECT_TRUE(png_image_finish_read(&image, nullptr, png.rgb.data(), 0, nullptr)) << name;
        return png;
    }
};

TEST_F(ToolInspect, TellsWhatAPictureConsistsOf) {
    WriteFile("in.m4v", SmallStream());
    const Result result = Run("inspect in.m4v --picture 1");
    EXPECT_EQ(kGood, result.status) << result.err;
    for (const char* const part : {"in.m4v, picture 1, chunk 1 at byte ", ": P, 48 x 16, ",
                                   "\n  macroblocks 3 x 1: 1 not coded, 1 inter, 1 inter 4V\n",
                                   "\n  quantiser   vop_quant 9; 9 to 9, mean 9.0\n",
                                   "\n  vectors     in half samples, longest 4.2 samples\n"}) {
        EXPECT_TRUE(Contains(result.out, part)) << part << result.out;
    }
    EXPECT_FALSE(Contains(result.out, "written")) << "nothing is written unless it is asked for";
    EXPECT_TRUE(Contains(Run("inspect - --picture 2 <in.m4v").out, "standard input, picture 2, chunk 2 at byte "));
    EXPECT_TRUE(Contains(Run("inspect in.m4v --picture 2").out, ": not coded, 48 x 16, "));
    EXPECT_EQ(Run("inspect in.m4v --picture 1").out, Run("inspect -i in.m4v --chunk 1").out);
}

TEST_F(ToolInspect, ListsMacroblocksAsJsonAndCsv) {
    WriteFile("in.m4v", SmallStream());
    const Result result = Run("inspect in.m4v --picture 1 --json -o out");
    ASSERT_EQ(kGood, result.status) << result.err;
    const Json json = Json::parse(result.out)["inspected"];
    EXPECT_EQ(json, Json::parse(ReadFile("out/00001-macroblocks.json")));
    EXPECT_EQ("P", json["type"]);
    EXPECT_EQ(9, json["vop_quant"]);
    EXPECT_EQ(2, json["vector_units_per_sample"]);
    ASSERT_EQ(3u, json["macroblocks"].size());
    const Json& mb = json["macroblocks"];
    const int first = json["header_bits"];
    EXPECT_EQ((Json{{"column", 0},
                    {"row", 0},
                    {"first_bit", first},
                    {"bits", 20},
                    {"kind", "inter"},
                    {"quant", 9},
                    {"dquant", false},
                    {"cbp", 0},
                    {"ac_pred_flag", 0},
                    {"dct_type", 0},
                    {"vectors", Json::array({{6, 6}})}}),
              mb[0]);
    EXPECT_EQ((Json{{"column", 1}, {"row", 0}, {"first_bit", first + 20}, {"bits", 1}, {"kind", "not coded"}}), mb[1]);
    EXPECT_EQ("inter 4V", mb[2]["kind"]);
    EXPECT_EQ((Json::array({{0, 0}, {1, 2}, {0, 0}, {0, 0}})), mb[2]["vectors"]);

    std::istringstream csv(ReadFile("out/00001-macroblocks.csv"));
    std::string line;
    std::getline(csv, line);
    EXPECT_EQ("column,row,first_bit,bits,kind,quant,dquant,cbp,ac_pred_flag,dct_type,x0,y0,x1,y1,x2,y2,x3,y3", line);
    std::getline(csv, line);
    EXPECT_EQ("0,0," + std::to_string(first) + ",20,inter,9,0,0,0,0,6,6,,,,,,", line);
    std::getline(csv, line);
    EXPECT_EQ("1,0," + std::to_string(first + 20) + ",1,not coded,,,,,,,,,,,,,", line);
    std::getline(csv, line);
    EXPECT_EQ("2,0," + std::to_string(first + 21) + ",19,inter 4V,9,0,0,0,0,0,0,1,2,0,0,0,0", line);
    EXPECT_FALSE(std::getline(csv, line));
}

TEST_F(ToolInspect, DrawsWhatLiesOverThePicture) {
    WriteFile("in.m4v", SmallStream());
    const Result result = Run("inspect in.m4v --picture 1 -o new/folder");
    ASSERT_EQ(kGood, result.status) << result.err;
    const Png plain = ReadPng("new/folder/00001-picture.png");
    EXPECT_EQ(48u, plain.width);
    EXPECT_EQ(16u, plain.height);
    if (!Draws()) {
        EXPECT_TRUE(Contains(result.out, "built without cairo"));
        EXPECT_FALSE(Exists("new/folder/00001-types.png"));
        return;
    }
    // Sixteen times as large: a macroblock is 256 x 256.
    const Png types = ReadPng("new/folder/00001-types.png");
    EXPECT_EQ(768u, types.width);
    EXPECT_EQ(256u + 60, types.height);
    const Bytes inter = types.At(50, 50);
    const Bytes not_coded = types.At(256 + 50, 50);
    const Bytes four = types.At(512 + 50, 50);
    EXPECT_GT(inter[2], inter[0] + 50) << "blue";
    EXPECT_EQ(not_coded[0], not_coded[2]) << "grey";
    EXPECT_GT(four[1], four[0] + 40) << "green";
    EXPECT_EQ((Bytes{255, 255, 255}), types.At(700, 300)) << "the key is on white";

    const Png vectors = ReadPng("new/folder/00001-vectors.png");
    const auto yellow = [&](uint32_t x, uint32_t y) {
        const Bytes rgb = vectors.At(x, y);
        return rgb[0] > 200 && rgb[1] > 150 && rgb[2] < 100;
    };
    // From the centre 3 samples to the right and down.
    EXPECT_TRUE(yellow(128 + 24, 128 + 24));
    EXPECT_FALSE(yellow(128 - 24, 128 - 24));
    EXPECT_FALSE(yellow(128 - 24, 128 + 24));
    for (uint32_t x = 256; x < 512; x++) ASSERT_FALSE(yellow(x, 128)) << "not coded";

    const Png bits = ReadPng("new/folder/00001-bits.png");
    EXPECT_GT(bits.At(20, 20)[1], bits.At(256 + 20, 20)[1]) << "20 bits are hotter than one";
    const Png quantiser = ReadPng("new/folder/00001-quantiser.png");
    EXPECT_EQ(quantiser.At(20, 20), quantiser.At(512 + 20, 20));
    EXPECT_NE(quantiser.At(20, 20), quantiser.At(256 + 20, 20)) << "where nothing is coded there is none";

    ASSERT_EQ(kGood, Run("inspect in.m4v --picture 0 -o intra").status);
    EXPECT_GT(ReadPng("intra/00000-types.png").At(300, 50)[0], 150) << "red";
    EXPECT_FALSE(Exists("intra/00000-vectors.png"));
}

TEST_F(ToolInspect, ShowsADamagedPictureUpToTheDamage) {
    Bytes stream = SmallStream();
    const VolHeader vol = LayerOf(48, 16);
    BitWriter damaged;
    VopHeader vop;
    vop.coding_type = 1;
    vop.PutTo(damaged, vol);
    damaged.Bits("1 0 0000 0000 0000 0000");  // not coded, and then no code
    const Bytes bytes = damaged.Bytes();
    stream.insert(stream.end(), bytes.begin(), bytes.end());
    WriteFile("in.m4v", stream);
    const Result result = Run("inspect in.m4v --chunk 3 -o out");
    EXPECT_EQ(kDamage, result.status);
    EXPECT_TRUE(Contains(result.out, "ERR_VID_MPEG4DEC_COEFF")) << result.out;
    EXPECT_TRUE(Contains(result.out, "1 not coded, 1 invalid\n")) << result.out;
    EXPECT_FALSE(Exists("out/00003-picture.png"));
    EXPECT_EQ(Draws(), Exists("out/00003-types.png"));
    EXPECT_EQ(kUsage, Run("inspect in.m4v --picture 3").status) << "it gave no picture";
}

TEST_F(ToolInspect, PlotsAStream) {
    if (!Draws()) {
        WriteFile("in.m4v", SmallStream());
        EXPECT_EQ(kUsage, Run("inspect in.m4v --plot out.svg").status);
        GTEST_SKIP() << "built without cairo";
    }
    const Bytes stream = SmallStream();
    WriteFile("in.m4v", stream);
    // The first picture 3 levels too dark in a quarter of its samples, the second the same.
    std::string y4m = "YUV4MPEG2 W48 H16 F25:1\n";
    for (const int less : {3, 0}) {
        Bytes samples = FlatSamples(48, 16, 100);
        for (size_t i = 0; i < 48 * 16 / 4; i++) samples[i] = static_cast<uint8_t>(100 - less);
        y4m += "FRAME\n" + Text(samples);
    }
    WriteFile("ref.y4m", Bytes(y4m.begin(), y4m.end()));
    const Result result = Run("inspect in.m4v --plot out.svg --reference ref.y4m --json");
    EXPECT_EQ(kGood, result.status) << result.err;
    const Json json = Json::parse(result.out);
    const Json& pictures = json["pictures"];
    ASSERT_EQ(3u, pictures.size());
    EXPECT_EQ("I", pictures[0]["type"]);
    EXPECT_EQ("P", pictures[1]["type"]);
    EXPECT_EQ("N", pictures[2]["type"]);
    EXPECT_EQ(stream.size() * 8, pictures[0]["bits"].get<size_t>() + pictures[1]["bits"].get<size_t>() +
                                     pictures[2]["bits"].get<size_t>());
    EXPECT_EQ(Json::array({9, 9.0, 9}), pictures[1]["quant"]);
    EXPECT_FALSE(pictures[2].contains("quant"));
    EXPECT_NEAR(10 * std::log10(255 * 255 / (9.0 / 4)), pictures[0]["psnr"].get<double>(), 1e-9);
    EXPECT_TRUE(pictures[1]["psnr"].is_null());
    EXPECT_EQ("it has only 2 pictures", json["reference_problem"]);
    const std::string svg = ReadFile("out.svg");
    EXPECT_TRUE(svg.starts_with("<?xml")) << svg.substr(0, 40);
    EXPECT_TRUE(Contains(svg, "<svg") && Contains(svg, "</svg>"));

    ASSERT_EQ(kGood, Run("inspect in.m4v --plot out.png").status);
    const Png png = ReadPng("out.png");
    EXPECT_EQ(1100u, png.width);
    // The bars fill their thirds above the axis of the first diagram, higher where there are more bits.
    EXPECT_GT(png.At(200, 200)[0], png.At(200, 200)[2] + 50) << "red: I";
    EXPECT_GT(png.At(550, 205)[2], png.At(550, 205)[0] + 50) << "blue: P";
}

TEST_F(ToolInspect, SaysWhatIsWrongWithACommand) {
    WriteFile("in.m4v", SmallStream());
    const struct {
        const char* arguments;
        int status;
        const char* text;
    } cases[] = {
        {"in.m4v", kUsage, "say what to inspect"},
        {"in.m4v --picture 3", kUsage, "there is no picture 3; 'in.m4v' has 3, counted from 0"},
        {"in.m4v --chunk 9", kUsage, "there is no picture in chunk 9; 'in.m4v' has 3 chunks"},
        {"in.m4v --picture 1 --chunk 1", kUsage, "do not go together"},
        {"in.m4v --picture -1", kUsage, "'-1' is not a number of pictures"},
        {"in.m4v --plot out.jpg", kUsage, "end 'out.jpg' in .svg or .png"},
        {"in.m4v --plot out.svg -o out", kUsage, "--plot names its file itself"},
        {"in.m4v --picture 1 --reference in.m4v", kUsage, "--reference is for --plot"},
        {"missing.m4v --picture 1", kFiles, "missing.m4v"},
        {"in.m4v --picture 1 -o in.m4v", kFiles, "in.m4v/00001-macroblocks.json"},
    };
    for (const auto& test : cases) {
        const Result result = Run(std::string("inspect ") + test.arguments);
        EXPECT_EQ(test.status, result.status) << test.arguments;
        EXPECT_TRUE(Contains(result.err, test.text)) << test.arguments << ": " << result.err;
        EXPECT_EQ("", result.out);
    }
    EXPECT_EQ(Text(SmallStream()), ReadFile("in.m4v"));
    if (!Draws()) return;
    fs::copy(Path("in.m4v"), Path("in.png"));
    EXPECT_EQ(kUsage, Run("inspect in.png --plot in.png").status);
    EXPECT_EQ(Text(SmallStream()), ReadFile("in.png"));
    EXPECT_EQ(kFiles, Run("inspect in.m4v --plot missing/out.svg").status);
    EXPECT_EQ(kFiles, Run("inspect in.m4v --plot missing/out.png").status);
}

}  // namespace
}  // namespace mp4v::test
