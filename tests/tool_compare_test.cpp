// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

// "mp4vdec compare" on pictures whose differences are known.
#include <png.h>

#include <cmath>
#include <nlohmann/json.hpp>

#include "support/headers_writer.h"
#include "support/small_stream.h"
#include "support/tool.h"

namespace mp4v::test {
namespace {

using Json = nlohmann::json;

// 4:2:0 at 40 x 24, so that the last macroblocks are cut: all of one value in each plane.
struct Frame {
    Bytes samples = Bytes(40 * 24 * 3 / 2, 100);

    uint8_t& Y(size_t x, size_t y) { return samples[y * 40 + x]; }
    uint8_t& V(size_t x, size_t y) { return samples[40 * 24 * 5 / 4 + y * 20 + x]; }
};

class ToolCompare : public Tool {
  protected:
    void WriteY4m(const std::string& name, const std::vector<Frame>& frames,
                  const std::string& header = "W40 H24 F25:1") {
        std::string text = "YUV4MPEG2 " + header + "\n";
        for (const Frame& frame : frames) text += "FRAME Ip\n" + Text(frame.samples);
        WriteFile(name, Bytes(text.begin(), text.end()));
    }
};

TEST_F(ToolCompare, FindsNothingBetweenAStreamAndItsPictures) {
    const std::string stream = std::string(MP4VDEC_TEST_DATA_DIR) + "/streams/o17_not_coded.m4v";
    ASSERT_EQ(kGood, Run("decode -q -o out.y4m " + stream).status);
    const Result result = Run("compare " + stream + " out.y4m --difference diff.png");
    EXPECT_EQ(kGood, result.status);
    EXPECT_TRUE(Contains(result.out, "out.y4m: 60 pictures compared, all the same\n")) << result.out;
    EXPECT_FALSE(Exists("diff.png"));
    EXPECT_EQ(kGood, Shell("\"$P\" decode -q -o - " + stream + " | \"$P\" compare - out.y4m").status);
}

TEST_F(ToolCompare, MeasuresAndFindsTheFirstDifference) {
    std::vector<Frame> frames(4);
    WriteY4m("a.y4m", frames);
    // In raster order the Y of macroblock 4 comes before the V of macroblock 2; in coding order after it.
    frames[1].Y(17, 17) = 110;
    frames[1].V(19, 2) = 94;
    frames[3].Y(0, 0) = 97;
    WriteY4m("b.y4m", frames);
    const Result result = Run("compare a.y4m b.y4m --difference diff.png");
    EXPECT_EQ(kDamage, result.status);
    char psnr[2][128];
    const double samples = 40 * 24;
    std::snprintf(psnr[0], sizeof psnr[0], "  Y  PSNR %.2f dB, lowest %.2f dB in picture 1, largest difference 10\n",
                  10 * std::log10(255 * 255 * 4 * samples / 109), 10 * std::log10(255 * 255 * samples / 100));
    std::snprintf(psnr[1], sizeof psnr[1], "  V  PSNR %.2f dB, lowest %.2f dB in picture 1, largest difference 6\n",
                  10 * std::log10(255 * 255 * samples / 36), 10 * std::log10(255 * 255 * samples / 4 / 36));
    for (const std::string& part : std::initializer_list<std::string>{
             "a.y4m and b.y4m: 4 pictures compared, 2 of them the same\n", psnr[0], "  U  PSNR the same\n", psnr[1],
             "  first difference: picture 1, macroblock 2 (column 2, row 0), V at 19, 2: 100 and 94\n"}) {
        EXPECT_TRUE(Contains(result.out, part)) << part << result.out;
    }

    const Json json = Json::parse(Run("compare a.y4m b.y4m --json").out);
    EXPECT_FALSE(json["same"].get<bool>());
    EXPECT_TRUE(json["psnr"]["Y"]["pictures"][0].is_null());
    EXPECT_NEAR(10 * std::log10(255 * 255 * samples / 9), json["psnr"]["Y"]["pictures"][3].get<double>(), 1e-9);
    EXPECT_EQ(2, json["first"]["macroblock"]);
    EXPECT_EQ(Json({100, 94}), json["first"]["samples"]);

    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    ASSERT_TRUE(png_image_begin_read_from_file(&image, Path("diff.png").c_str()));
    EXPECT_EQ(3 * 40u + 16, image.width);
    EXPECT_EQ(24u + 8, image.height);
    image.format = PNG_FORMAT_RGB;
    Bytes rgb(PNG_IMAGE_SIZE(image));
    ASSERT_TRUE(png_image_finish_read(&image, nullptr, rgb.data(), 0, nullptr));
    const auto at = [&](size_t x, size_t y) { return &rgb[((y + 4) * image.width + 4 + 2 * 44 + x) * 3]; };
    EXPECT_EQ(40 + 10 * 8, at(17, 17)[1]);
    EXPECT_EQ(0, at(18, 17)[1]);
    EXPECT_EQ((Bytes{255, 0, 0}), Bytes(at(32, 0), at(32, 0) + 3));
}

TEST_F(ToolCompare, TellsOfOtherLengthsAndSizes) {
    WriteY4m("two.y4m", std::vector<Frame>(2));
    WriteY4m("five.y4m", std::vector<Frame>(5));
    const Result longer = Run("compare two.y4m five.y4m");
    EXPECT_EQ(kDamage, longer.status);
    EXPECT_TRUE(Contains(longer.out, "2 pictures compared, all the same\n  five.y4m has 3 pictures more\n"))
        << longer.out;
    BitWriter out;
    PutLayer(out, LayerOf(48, 32));
    PutFlatPicture(out, LayerOf(48, 32), 100);
    WriteFile("in.m4v", out.Bytes());
    const Result size = Run("compare in.m4v two.y4m");
    EXPECT_EQ(kDamage, size.status);
    EXPECT_TRUE(Contains(size.out, "picture 0 is 48 x 32 in the one and 40 x 24 in the other")) << size.out;
}

TEST_F(ToolCompare, RefusesWhatItCannotRead) {
    WriteY4m("good.y4m", std::vector<Frame>(2));
    for (const char* const header : {"W40 H24 C444", "W40 H24 C420p10", "H24", "W0 H24", "W99999999999 H24"}) {
        WriteY4m("bad.y4m", std::vector<Frame>(2), header);
        const Result result = Run("compare good.y4m bad.y4m");
        EXPECT_EQ(kFiles, result.status) << header;
        EXPECT_EQ(0u, result.err.find("mp4vdec: cannot read 'bad.y4m': ")) << result.err;
    }
    WriteY4m("cut.y4m", std::vector<Frame>(2));
    const Result cut = Shell("truncate -s -1 cut.y4m; \"$P\" compare good.y4m cut.y4m");
    EXPECT_EQ(kFiles, cut.status);
    EXPECT_TRUE(Contains(cut.err, "picture 1 is cut off")) << cut.err;
    EXPECT_EQ(kFiles, Run("compare good.y4m missing.y4m").status);
    EXPECT_EQ(kUsage, Run("compare good.y4m").status);
    EXPECT_EQ(kUsage, Run("compare - -").status);
    EXPECT_EQ(kUsage, Run("compare good.y4m cut.y4m --difference good.y4m").status);
}

}  // namespace
}  // namespace mp4v::test
