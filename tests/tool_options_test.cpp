// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

// What the options of the player do to its outputs, which are read by other means: libpng, a JSON parser, md5sum.
#include <fcntl.h>
#include <png.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>
#include <sstream>

#include "support/headers_writer.h"
#include "support/small_stream.h"
#include "support/tool.h"

namespace mp4v::test {
namespace {

const std::string kStreams = std::string(MP4VDEC_TEST_DATA_DIR) + "/streams/";
const std::string kTiny = kStreams + "o25_tiny48x32.m4v";  // 48 x 32, 60 pictures, the first of them intra
constexpr size_t kTinySize = 48 * 32 * 3 / 2;

// Flat pictures at luma 100, 101 ... in 30ths of a second; those in `damaged` lose their end.
Bytes Stream(int count, const std::vector<int>& damaged = {}) {
    const VolHeader vol = LayerOf(48, 32);
    Bytes stream;
    for (int i = 0; i < count; i++) {
        BitWriter out;
        if (i == 0) PutLayer(out, vol);
        VopHeader vop;
        vop.time_increment = static_cast<uint32_t>(i % 30);
        vop.modulo_time_base = i > 0 && i % 30 == 0;
        PutFlatPicture(out, vol, 100 + i, vop);
        Bytes picture = out.Bytes();
        if (std::count(damaged.begin(), damaged.end(), i)) picture.resize(picture.size() - 8);
        stream.insert(stream.end(), picture.begin(), picture.end());
    }
    return stream;
}

std::string Flat(int luma) {
    return Text(FlatSamples(48, 32, luma));
}

class ToolOptions : public Tool {
  protected:
    struct Png {
        uint32_t width = 0;
        uint32_t height = 0;
        Bytes rgb;

        const uint8_t* At(uint32_t x, uint32_t y) const { return &rgb[(size_t{y} * width + x) * 3]; }
    };

    Png ReadPng(const std::string& name) const {
        png_image image{};
        image.version = PNG_IMAGE_VERSION;
        EXPECT_TRUE(png_image_begin_read_from_file(&image, Path(name).c_str())) << image.message;
        EXPECT_EQ(PNG_FORMAT_RGB, image.format);
        image.format = PNG_FORMAT_RGB;
        Png png{image.width, image.height, Bytes(PNG_IMAGE_SIZE(image))};
        EXPECT_TRUE(png_image_finish_read(&image, nullptr, png.rgb.data(), 0, nullptr)) << image.message;
        return png;
    }
};

TEST_F(ToolOptions, WriteNv12) {
    ASSERT_EQ(kGood, Run("decode " + kTiny + " --limit 2 -q -o out.yuv").status);
    ASSERT_EQ(kGood, Run("decode " + kTiny + " --limit 2 -q -o out.nv12").status);
    ASSERT_EQ(kGood, Run("decode " + kTiny + " --limit 2 -q --format nv12 -o out.bin").status);
    const std::string planar = ReadFile("out.yuv");
    ASSERT_EQ(2 * kTinySize, planar.size());
    std::string wanted;
    for (size_t picture = 0; picture < planar.size(); picture += kTinySize) {
        wanted += planar.substr(picture, 48 * 32);
        for (size_t i = 0; i < 24 * 16; i++) {
            wanted += planar[picture + 48 * 32 + i];
            wanted += planar[picture + 48 * 32 * 5 / 4 + i];
        }
    }
    EXPECT_TRUE(wanted == ReadFile("out.nv12"));
    EXPECT_TRUE(wanted == ReadFile("out.bin"));
}

TEST_F(ToolOptions, WritePngInTheColoursOfBt601) {
    ASSERT_EQ(kGood, Run("decode " + kTiny + " --limit 3 -q -o 'picture-%03d.png'").status);
    EXPECT_TRUE(Exists("picture-002.png"));
    EXPECT_FALSE(Exists("picture-004.png"));
    ASSERT_EQ(kGood, Run("decode " + kTiny + " --skip 2 --limit 1 -q -o out.yuv").status);
    const std::string planar = ReadFile("out.yuv");
    ASSERT_EQ(kTinySize, planar.size());
    const auto sample = [&](size_t at) { return static_cast<double>(static_cast<uint8_t>(planar[at])); };
    const Png png = ReadPng("picture-003.png");
    ASSERT_EQ(48u, png.width);
    ASSERT_EQ(32u, png.height);
    for (uint32_t y = 0; y < 32; y++) {
        for (uint32_t x = 0; x < 48; x++) {
            const double luma = (sample(y * 48 + x) - 16) * 255 / 219;
            const double u = (sample(48 * 32 + y / 2 * 24 + x / 2) - 128) * 255 / 224;
            const double v = (sample(48 * 32 * 5 / 4 + y / 2 * 24 + x / 2) - 128) * 255 / 224;
            const double wanted[] = {luma + 1.402 * v, luma - 0.344136 * u - 0.714136 * v, luma + 1.772 * u};
            for (int i = 0; i < 3; i++) ASSERT_NEAR(std::clamp(wanted[i], 0.0, 255.0), png.At(x, y)[i], 1.5);
        }
    }
}

// Grey, with another first chroma coefficient in each plane: 168 and 96 throughout.
Bytes Coloured(const VolHeader& vol) {
    BitWriter out;
    PutLayer(out, vol);
    VopHeader vop;
    vop.PutTo(out, vol);
    for (uint32_t i = 0; i < Macroblocks(vol); i++) {
        out.Bits("1 0 0011");
        for (int block = 0; block < 4; block++) PutLumaDc(out, 0);
        // dct_dc_size_chrominance 6, then 40 and -32, ISO/IEC 14496-2 tables B-14 and B-15
        out.Bits(i == 0 ? "000001 101000 000001 011111" : "11 11");
    }
    PutStuffing(out);
    return out.Bytes();
}

TEST_F(ToolOptions, WriteLargePngInTheColoursOfBt709) {
    const double luma = (128 - 16) * 255.0 / 219;
    const double u = 40 * 255.0 / 224;
    const double v = -32 * 255.0 / 224;
    const double bt601[] = {luma + 1.402 * v, luma - 0.344136 * u - 0.714136 * v, luma + 1.772 * u};
    const double bt709[] = {luma + 1.5748 * v, luma - 0.187324 * u - 0.468124 * v, luma + 1.8556 * u};
    for (const uint32_t height : {704u, 720u}) {
        WriteFile("in.m4v", Coloured(LayerOf(32, height)));
        ASSERT_EQ(kGood, Run("decode in.m4v --limit 1 -q -o out.png").status);
        const Png png = ReadPng("out.png");
        for (int i = 0; i < 3; i++) {
            EXPECT_NEAR(std::min((height < 720 ? bt601 : bt709)[i], 255.0), png.At(31, height - 1)[i], 1.5)
                << height << i;
        }
    }
}

TEST_F(ToolOptions, PutTimesOnTheContactSheet) {
    VolHeader vol = LayerOf(96, 64);
    BitWriter out;
    PutLayer(out, vol);
    PutFlatPicture(out, vol, 100);
    WriteFile("in.m4v", out.Bytes());
    ASSERT_EQ(kGood, Run("decode in.m4v -q --contact-sheet sheet.png").status);
    const Png png = ReadPng("sheet.png");
    // "0:00:00.00" in the lower left corner, white on black; the rest of the picture is as it was.
    int white = 0;
    int black = 0;
    for (uint32_t y = 4; y < 68; y++) {
        for (uint32_t x = 4; x < 100; x++) {
            white += png.At(x, y)[0] == 255;
            black += png.At(x, y)[0] == 0;
            if (y < 57 || x > 67) {
                ASSERT_EQ(98, png.At(x, y)[1]) << x << " " << y;
            }
        }
    }
    EXPECT_EQ(7 * 19 + 2 * 4 + 4, white);  // seven zeros, two colons, one full stop
    EXPECT_EQ(61 * 9 - white, black);
}

TEST_F(ToolOptions, WriteWhatOtherProgramsRecognise) {
    if (Shell("command -v file").status != kGood) GTEST_SKIP() << "there is no program 'file'";
    ASSERT_EQ(kGood, Run("decode -q " + kTiny + " --contact-sheet sheet.png").status);
    ASSERT_EQ(kGood, Run("decode -q " + kTiny + " --limit 1 -o picture.png").status);
    EXPECT_TRUE(Contains(Shell("file -b sheet.png").out, "PNG image data, 212 x 148, 8-bit/color RGB"));
    EXPECT_TRUE(Contains(Shell("file -b picture.png").out, "PNG image data, 48 x 32, 8-bit/color RGB"));
    if (!Contains(Run("--version").out, "Drawing")) return;
    ASSERT_EQ(kGood, Run("inspect " + kTiny + " --plot plot.svg --picture 1 -o look").status);
    EXPECT_TRUE(Contains(Shell("file -b plot.svg").out, "SVG Scalable Vector Graphics image"));
    EXPECT_TRUE(Contains(Shell("file -b look/00001-bits.png").out, "PNG image data, 768 x 572"));
    EXPECT_TRUE(Contains(Shell("file -b look/00001-macroblocks.json").out, "JSON"));
    EXPECT_TRUE(Contains(Shell("file -b look/00001-macroblocks.csv").out, "CSV"));
}

TEST_F(ToolOptions, VerifyTheMd5) {
    WriteFile("in.m4v", Stream(3));
    const std::string md5 = Run("decode in.m4v -q --md5").out.substr(0, 32);
    ASSERT_EQ(32u, md5.size());
    const Result good = Run("decode in.m4v --verify " + md5);
    EXPECT_EQ(kGood, good.status);
    EXPECT_TRUE(Contains(good.err, "in.m4v: the MD5 is as wanted")) << good.err;
    std::string other = md5;
    other[5] = other[5] == '0' ? '1' : '0';
    const Result bad = Run("decode in.m4v --verify " + other);
    EXPECT_EQ(kDamage, bad.status);
    EXPECT_TRUE(Contains(bad.err, "in.m4v: the MD5 is not the one that was wanted")) << bad.err;
    std::string upper = md5;
    std::transform(upper.begin(), upper.end(), upper.begin(), [](unsigned char c) { return std::toupper(c); });
    EXPECT_EQ(kGood, Run("decode in.m4v -q --verify " + upper).status);
}

TEST_F(ToolOptions, SkipAndLimitPictures) {
    WriteFile("in.m4v", Stream(6));
    const auto raw = [&](const std::string& options) { return Run("decode in.m4v -q --raw -o - " + options).out; };
    EXPECT_TRUE(Flat(104) + Flat(105) == raw("--skip 4"));
    EXPECT_TRUE(Flat(100) + Flat(101) == raw("--limit 2"));
    EXPECT_TRUE(Flat(102) + Flat(103) == raw("--skip 2 --limit 2"));
    EXPECT_EQ("", raw("--skip 6"));
    const std::string lines = Run("decode in.m4v -q --framemd5 - --skip 5").out;
    EXPECT_EQ("5 ", lines.substr(0, 2));
    EXPECT_EQ(1, std::count(lines.begin(), lines.end(), '\n'));
}

TEST_F(ToolOptions, SetTheRate) {
    WriteFile("in.m4v", Stream(1));
    for (const char* const rate : {"24000/1001", "24000:1001"}) {
        EXPECT_TRUE(Contains(Run(std::string("decode in.m4v -o - --fps ") + rate).out, " F24000:1001 ")) << rate;
    }
    EXPECT_TRUE(Contains(Run("decode in.m4v -o - --fps 10").out, " F10:1 "));
}

TEST_F(ToolOptions, ShowOnlyIntraPictures) {
    const Result result = Run("decode " + kTiny + " --intra-only --raw -o -");
    EXPECT_EQ(kGood, result.status);
    EXPECT_EQ(kTinySize, result.out.size());
    EXPECT_TRUE(Contains(result.err, "1 picture (1 intra, 0 predicted, 0 not coded)")) << result.err;
}

TEST_F(ToolOptions, Deinterlace) {
    const std::string command = "decode " + kStreams + "o06_pal_interlaced.m4v -q --md5 --limit 1";
    const std::string plain = Run(command).out;
    EXPECT_EQ(33u, plain.size());
    EXPECT_NE(plain, Run(command + " --deinterlace").out);
}

TEST_F(ToolOptions, WeaveStackedFields) {
    // The upper half at 90, the lower at 110.
    const VolHeader vol = LayerOf(32, 64);
    BitWriter out;
    PutLayer(out, vol);
    int block = 0;
    PutIntraPicture(out, vol, {}, [&] { return block++ == 0 ? -38 : block == 17 ? 20 : 0; });
    WriteFile("in.m4v", out.Bytes());
    const Result woven = Run("decode in.m4v --raw -o - --fields-stacked");
    if (woven.status == kDamage) GTEST_SKIP() << woven.err;
    const std::string plain = Run("decode in.m4v -q --raw -o -").out;
    ASSERT_EQ(size_t{32 * 64 * 3 / 2}, woven.out.size());
    for (size_t y = 0; y < 64; y++) {
        EXPECT_TRUE(woven.out.substr(y * 32, 32) == plain.substr((y / 2 + y % 2 * 32) * 32, 32)) << y;
    }
}

TEST_F(ToolOptions, ChooseWhatDamageDoes) {
    WriteFile("in.m4v", Stream(4, {0, 2}));
    const Result skip = Run("decode in.m4v --raw -o - --on-error skip");
    EXPECT_EQ(kDamage, skip.status);
    EXPECT_TRUE(Flat(101) + Flat(103) == skip.out);
    EXPECT_TRUE(Contains(skip.err, "picture 1, chunk 2 at byte ")) << skip.err;
    EXPECT_TRUE(Contains(skip.err, "--on-error repeat keeps the length")) << skip.err;

    const Result stop = Run("decode in.m4v --raw -o - --on-error stop");
    EXPECT_EQ(kDamage, stop.status);
    EXPECT_EQ("", stop.out);
    EXPECT_TRUE(Contains(stop.err, "1 of 1 chunk refused or damaged, stopped there")) << stop.err;

    const Result repeat = Run("decode in.m4v --raw -o - --on-error repeat");
    EXPECT_EQ(kDamage, repeat.status);
    EXPECT_TRUE(Flat(101) + Flat(101) + Flat(103) == repeat.out);
    EXPECT_TRUE(Contains(repeat.err, "2 of 4 chunks refused or damaged, 1 picture repeated for them")) << repeat.err;
}

TEST_F(ToolOptions, PlayDamagedStreamsToTheEnd) {
    std::ifstream file(kTiny, std::ios::binary);
    const Bytes good{std::istreambuf_iterator<char>(file), {}};
    for (uint32_t seed = 0; seed < 6; seed++) {
        Bytes bad = good;
        for (size_t i = 0; i < 8; i++) bad[200 + (seed * 1511 + i * 37) % (bad.size() - 300)] ^= 0x5A;
        WriteFile("in.m4v", bad);
        uint64_t refused = 0;
        for (const char* const policy : {"skip", "stop", "repeat"}) {
            const Result result = Run(std::string("decode in.m4v --json -o out.yuv --on-error ") + policy);
            const auto json = nlohmann::json::parse(result.out);
            EXPECT_EQ(result.status == kGood, json["good"].get<bool>());
            EXPECT_EQ(result.status == kGood, json["refused"] == 0);
            EXPECT_EQ((json["pictures"].get<uint64_t>() + json["repeated"].get<uint64_t>()) * kTinySize,
                      ReadFile("out.yuv").size());
            if (std::string(policy) == "skip") refused = json["refused"];
            if (std::string(policy) == "repeat") {
                EXPECT_EQ(refused, json["refused"]);
                EXPECT_EQ(json["chunks"], json["pictures"].get<uint64_t>() + json["repeated"].get<uint64_t>());
            }
        }
    }
}

// Real streams of all kinds, each with a hundredth of its pictures damaged, and one at least.
TEST_F(ToolOptions, PlayEveryDamagedStreamToTheEnd) {
    unsigned streams = 0;
    uint64_t refused_in_all = 0;
    for (const auto& entry : fs::directory_iterator(std::string(MP4VDEC_TEST_DATA_DIR) + "/streams")) {
        const std::string name = entry.path().filename().string();
        if (!name.starts_with('o') || entry.path().extension() != ".m4v") continue;
        SCOPED_TRACE(name);
        std::ifstream file(entry.path(), std::ios::binary);
        Bytes bytes{std::istreambuf_iterator<char>(file), {}};
        const Bytes vop = {0, 0, 1, 0xB6};
        std::vector<size_t> pictures;
        for (auto at = bytes.begin(); (at = std::search(at, bytes.end(), vop.begin(), vop.end())) != bytes.end(); at++)
            pictures.push_back(static_cast<size_t>(at - bytes.begin()));
        ASSERT_GT(pictures.size(), 1u);
        for (size_t i = pictures.size() / 2; i < pictures.size(); i += 100) {
            const size_t end = i + 1 < pictures.size() ? pictures[i + 1] : bytes.size();
            const size_t first = pictures[i] + 9;
            for (size_t at = first; at < std::min(first + 24, end); at++) bytes[at] = 0;  // no code begins so
        }
        WriteFile("in.m4v", bytes);
        streams++;
        for (const char* const policy : {"skip", "stop", "repeat"}) {
            const Result result = Run(std::string("decode in.m4v --json --on-error ") + policy);
            const auto json = nlohmann::json::parse(result.out);
            const uint64_t shown = json["pictures"].get<uint64_t>() + json["repeated"].get<uint64_t>();
            const uint64_t refused = json["refused"];
            EXPECT_EQ(refused == 0 ? kGood : kDamage, result.status);
            if (std::string(policy) == "stop") {
                EXPECT_LE(refused, 1u);
                EXPECT_LE(shown, pictures.size());
            } else {
                EXPECT_EQ(pictures.size(), shown + (std::string(policy) == "skip" ? refused : 0));
                refused_in_all += refused;
            }
        }
    }
    EXPECT_GT(streams, 25u);
    EXPECT_GE(refused_in_all, streams) << "the damage was hardly noticed";
}

#ifndef MP4VDEC_TEST_INSTRUMENTED
// The most memory, in KiB, that the player takes for a stream that comes through a pipe so many times.
long PeakMemory(const std::string& stream, unsigned times) {
    int pipe_ends[2];
    EXPECT_EQ(0, pipe2(pipe_ends, O_CLOEXEC));
    const pid_t child = fork();
    if (child == 0) {
        dup2(pipe_ends[0], STDIN_FILENO);
        execl(MP4VDEC_PLAYER, MP4VDEC_PLAYER, "decode", "-", "--benchmark", "-q", static_cast<char*>(nullptr));
        _exit(127);
    }
    close(pipe_ends[0]);
    std::ifstream file(stream, std::ios::binary);
    const Bytes bytes{std::istreambuf_iterator<char>(file), {}};
    for (unsigned i = 0; i < times; i++) {
        for (size_t at = 0; at < bytes.size();) {
            const ssize_t wrote = write(pipe_ends[1], &bytes[at], bytes.size() - at);
            if (wrote <= 0) break;
            at += static_cast<size_t>(wrote);
        }
    }
    close(pipe_ends[1]);
    int status = 0;
    rusage usage{};
    EXPECT_EQ(child, wait4(child, &status, 0, &usage));
    EXPECT_EQ(kGood, ExitStatus(status));
    return usage.ru_maxrss;
}

TEST_F(ToolOptions, NeedNoMoreMemoryForALongStream) {
    const std::string stream = std::string(MP4VDEC_TEST_DATA_DIR) + "/streams/o10_odd120x90_noise.m4v";
    const auto size = fs::file_size(stream);
    const auto times = static_cast<unsigned>(24'000'000 / size);
    ASSERT_GT(times, 20u);
    EXPECT_LT(PeakMemory(stream, times), PeakMemory(stream, 2) + 8000) << "KiB; 24 MB came through";
}
#endif

TEST_F(ToolOptions, DecodeSeveralInputsAtOnce) {
    std::string inputs;
    std::string wanted;
    for (int i = 0; i < 5; i++) {
        const std::string name = "in" + std::to_string(i) + ".m4v";
        WriteFile(name, Stream(i + 1));
        inputs += " " + name;
        wanted += Run("decode -q --md5 " + name).out.substr(0, 32) + "  " + name + "\n";
    }
    const Result all = Shell("\"$P\" decode" + inputs + " -j 3 -q --md5 --format i420 -o out/ | sort -k 2");
    EXPECT_EQ(wanted, all.out);
    EXPECT_TRUE(Flat(100) + Flat(101) + Flat(102) == ReadFile("out/in2.yuv"));
    EXPECT_TRUE(Exists("out/in4.yuv"));

    const Result missing = Run("decode in0.m4v missing.m4v in1.m4v -j 2");
    EXPECT_EQ(kFiles, missing.status);
    EXPECT_TRUE(Contains(missing.err, "mp4vdec: cannot open 'missing.m4v'")) << missing.err;
    EXPECT_TRUE(Contains(missing.err, "in0.m4v: 48 x 32, 1 picture "));
    EXPECT_TRUE(Contains(missing.err, "in1.m4v: 48 x 32, 2 pictures "));
}

TEST_F(ToolOptions, ReportInJson) {
    const Bytes stream = Stream(3, {1});
    WriteFile("in.m4v", stream);
    const Result result = Run("decode in.m4v --json --md5");
    EXPECT_EQ(kDamage, result.status);
    EXPECT_EQ("", result.err);
    const auto json = nlohmann::json::parse(result.out);
    EXPECT_EQ("in.m4v", json["input"]);
    EXPECT_FALSE(json["good"].get<bool>());
    EXPECT_EQ(nlohmann::json({"48 x 32"}), json["sizes"]);
    EXPECT_EQ(2, json["pictures"]);
    EXPECT_EQ(2, json["intra"]);
    EXPECT_EQ(3, json["chunks"]);
    EXPECT_EQ(1, json["refused"]);
    ASSERT_EQ(1u, json["errors"].size());
    EXPECT_EQ(1, json["errors"][0]["chunk"]);
    EXPECT_EQ(1, json["errors"][0]["picture"]);
    EXPECT_EQ(Stream(1).size(), json["errors"][0]["byte"]);
    EXPECT_EQ("ERR_VID_MPEG4DEC_COEFF", json["errors"][0]["error"]);
    EXPECT_EQ(Run("decode in.m4v -q --md5").out, json["md5"].get<std::string>() + "\n");
}

TEST_F(ToolOptions, MeasureWithoutOutput) {
    WriteFile("in.m4v", Stream(3));
    const Result result = Run("decode in.m4v --benchmark");
    EXPECT_EQ(kGood, result.status);
    EXPECT_EQ("", result.out);
    EXPECT_TRUE(Contains(result.err, "3 pictures (3 intra, 0 predicted, 0 not coded)")) << result.err;
    EXPECT_TRUE(Contains(result.err, " pictures/s\n")) << result.err;
}

TEST_F(ToolOptions, ExplainThemselvesOnAScreen) {
    std::istringstream help(Run("decode --help").out);
    int lines = 0;
    for (std::string line; std::getline(help, line); lines++) EXPECT_LE(line.size(), 80u) << line;
    EXPECT_GT(lines, 30);
    EXPECT_LE(lines, 50);
}

TEST_F(ToolOptions, CompleteInBash) {
    const std::string script = std::string(MP4VDEC_TEST_DATA_DIR) + "/../packaging/completion.bash";
    const auto complete = [&](const std::string& words) {
        return Shell(
                   "bash -c '. \"$0\"; COMP_WORDS=(\"$@\"); COMP_CWORD=$(($# - 1)); "
                   "_mp4vdec \"$1\" \"${*: -1}\" \"${*: -2:1}\"; echo ${COMPREPLY[*]}' '" +
                   script + "' \"$P\" " + words)
            .out;
    };
    WriteFile("camera.m4v", {});
    EXPECT_EQ("decode\n", complete("de"));
    EXPECT_EQ("--format --framemd5 --fps --fields-stacked\n", complete("decode --f"));
    EXPECT_EQ("--json\n", complete("info --j"));
    EXPECT_EQ("--picture --plot\n", complete("inspect --p"));
    EXPECT_EQ("skip stop\n", complete("decode --on-error s"));
    EXPECT_EQ("camera.m4v\n", complete("decode cam"));
}

// What the command writes to a terminal of 80 columns.
std::string OnATerminal(const std::function<void(const std::string& terminal)>& run) {
    const int terminal = posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK);
    EXPECT_EQ(0, grantpt(terminal));
    EXPECT_EQ(0, unlockpt(terminal));
    const std::string name = ptsname(terminal);
    const int other_side = open(name.c_str(), O_RDWR | O_NOCTTY);
    const winsize size{.ws_row = 24, .ws_col = 80, .ws_xpixel = 0, .ws_ypixel = 0};
    EXPECT_EQ(0, ioctl(terminal, TIOCSWINSZ, &size));
    run(name);
    std::string text(1 << 16, '\0');
    const ssize_t got = read(terminal, text.data(), text.size());
    close(other_side);
    close(terminal);
    text.resize(got > 0 ? static_cast<size_t>(got) : 0);
    return text;
}

TEST_F(ToolOptions, ShowProgressOnATerminal) {
    WriteFile("in.m4v", Stream(20));
    // Longer than the second that a run must last, however late the player starts.
    const auto slow = [](const char* pause) {
        return std::string("{ cat in.m4v; sleep ") + pause + "; cat in.m4v; } | \"$P\" decode - ";
    };
    const std::string text = OnATerminal([&](const std::string& name) { Shell(slow("4") + "2>" + name); });
    EXPECT_TRUE(Contains(text, "standard input")) << text;
    EXPECT_TRUE(Contains(text, " pictures/s")) << text;
    EXPECT_TRUE(Contains(text, "\r\x1b[K")) << text;
    EXPECT_TRUE(Contains(text, "standard input: 48 x 32, 40 pictures")) << text;
    size_t longest = 0;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line, '\r');) {
        const size_t begin = line.find_first_not_of("\n\x1b[K");
        if (begin != std::string::npos && !Contains(line, "40 pictures"))
            longest = std::max(longest, line.size() - begin);
    }
    EXPECT_LT(longest, 80u);
    EXPECT_GT(longest, 20u);

    const Result piped = Shell(slow("1.2"));
    EXPECT_FALSE(Contains(piped.err, "\x1b")) << piped.err;
    EXPECT_EQ(1, std::count(piped.err.begin(), piped.err.end(), '\n'));
    const std::string quiet = OnATerminal([&](const std::string& name) { Shell(slow("1.2") + "-q 2>" + name); });
    EXPECT_EQ("", quiet);
}

}  // namespace
}  // namespace mp4v::test
