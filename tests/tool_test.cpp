// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

// Runs the player as a user does and looks at its exit status, its files and what it says.
#include "support/tool.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>

#include "support/headers_writer.h"
#include "support/small_stream.h"

namespace mp4v::test {
namespace {

VolHeader Layer(uint32_t width = 48, uint32_t height = 32) {
    return LayerOf(width, height);
}

void PutPictureAt(BitWriter& out, const VolHeader& vol, int luma, uint32_t ticks, uint32_t seconds = 0) {
    VopHeader vop;
    vop.time_increment = ticks;
    vop.modulo_time_base = seconds;
    PutFlatPicture(out, vol, luma, vop);
}

// Intra, predicted, not coded; flat at 100.
Bytes ThreePictures(const VolHeader& vol = Layer()) {
    BitWriter out;
    PutLayer(out, vol);
    PutFlatPicture(out, vol, 100);
    PutSkippedPicture(out, vol);
    PutNotCodedPicture(out, vol);
    return out.Bytes();
}

Bytes FlatPictures(const VolHeader& vol, int count) {
    BitWriter out;
    PutLayer(out, vol);
    for (int i = 0; i < count; i++) PutFlatPicture(out, vol, 100 + i % 80);
    return out.Bytes();
}

Bytes Join(Bytes a, const Bytes& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

std::string Repeat(const std::string& text, int count) {
    std::string all;
    for (int i = 0; i < count; i++) all += text;
    return all;
}

std::string Frame(uint32_t width, uint32_t height, int luma) {
    return "FRAME\n" + Text(FlatSamples(width, height, luma));
}

TEST_F(Tool, WritesY4mAtTheStreamsOwnSize) {
    WriteFile("in.m4v", ThreePictures(Layer(45, 31)));
    const Result result = Run("decode in.m4v -o out.y4m");
    EXPECT_EQ(kGood, result.status) << result.err;
    EXPECT_EQ("YUV4MPEG2 W45 H31 F30:1 Ip A1:1 C420mpeg2\n" + Repeat(Frame(45, 31, 100), 3), ReadFile("out.y4m"));
    EXPECT_EQ("", result.out);
    EXPECT_TRUE(Contains(result.err, "in.m4v: 45 x 31, 3 pictures (1 intra, 1 predicted, 1 not coded), "))
        << result.err;
}

TEST_F(Tool, WritesRawPicturesByTheNamesEnding) {
    WriteFile("in.m4v", ThreePictures());
    EXPECT_EQ(kGood, Run("decode -i in.m4v --output OUT.YUV").status);
    EXPECT_EQ(Repeat(Text(FlatSamples(48, 32, 100)), 3), ReadFile("OUT.YUV"));
    EXPECT_EQ(kGood, Run("decode in.m4v --raw -o out.bin").status);
    EXPECT_EQ(ReadFile("OUT.YUV"), ReadFile("out.bin"));
}

TEST_F(Tool, WorksInAPipe) {
    WriteFile("in.m4v", ThreePictures());
    const Result y4m = Shell("cat in.m4v | \"$P\" decode - -o - | cat");
    EXPECT_EQ("YUV4MPEG2 W48 H32 F30:1 Ip A1:1 C420mpeg2\n" + Repeat(Frame(48, 32, 100), 3), y4m.out);
    EXPECT_TRUE(Contains(y4m.err, "standard input: 48 x 32, 3 pictures"));
    const Result raw = Run("decode in.m4v --raw -o -");
    EXPECT_EQ(kGood, raw.status);
    EXPECT_EQ(Repeat(Text(FlatSamples(48, 32, 100)), 3), raw.out);
}

TEST_F(Tool, DecodesWithoutAnOutput) {
    WriteFile("in.m4v", ThreePictures());
    const Result result = Run("decode in.m4v");
    EXPECT_EQ(kGood, result.status);
    EXPECT_EQ("", result.out);
}

TEST_F(Tool, IsQuietOnRequest) {
    WriteFile("good.m4v", ThreePictures());
    WriteFile("bad.m4v", Bytes(100, 0x55));
    const Result good = Run("decode good.m4v -q -o out.y4m");
    EXPECT_EQ(kGood, good.status);
    EXPECT_EQ("", good.out + good.err);
    const Result bad = Run("decode bad.m4v --quiet");
    EXPECT_EQ(kDamage, bad.status);
    EXPECT_EQ("", bad.out + bad.err);
}

TEST_F(Tool, ComputesDigestsAsMd5sumDoes) {
    WriteFile("in.m4v", FlatPictures(Layer(47, 33), 3));
    ASSERT_EQ(kGood, Run("decode in.m4v -q -o out.yuv").status);
    const std::string whole = Shell("md5sum < out.yuv | cut -c1-32").out;
    EXPECT_EQ(33u, whole.size());
    EXPECT_EQ(whole, Run("decode in.m4v -q --md5").out);

    std::string lines;
    for (int i = 0; i < 3; i++) {
        WriteFile("one.yuv", FlatSamples(47, 33, 100 + i));
        lines += std::to_string(i) + " " + Shell("md5sum < one.yuv | cut -c1-32").out;
    }
    EXPECT_EQ(lines, Run("decode in.m4v -q --framemd5 -").out);
    EXPECT_EQ(kGood, Run("decode in.m4v -q --md5 --framemd5 lines.txt -o again.yuv").status);
    EXPECT_EQ(lines, ReadFile("lines.txt"));
    EXPECT_EQ(ReadFile("out.yuv"), ReadFile("again.yuv"));
}

TEST_F(Tool, SwitchesTheDeblockingThreshold) {
    // At this quantiser the lower threshold smooths edges, the higher one does not.
    const VolHeader vol = Layer();
    BitWriter out;
    PutLayer(out, vol);
    VopHeader vop;
    vop.quant = 20;
    int step = 0;
    PutIntraPicture(out, vol, vop, [&] { return step++ % 2 ? 1 : -1; });
    WriteFile("in.m4v", out.Bytes());
    const std::string standard = Run("decode in.m4v -q --md5").out;
    EXPECT_EQ(standard, Run("decode in.m4v -q --md5 --deblock-threshold 10").out);
    EXPECT_NE(standard, Run("decode in.m4v -q --md5 --deblock-threshold 30").out);
}

std::string Y4mHeader(const std::string& y4m) {
    return y4m.substr(0, y4m.find('\n'));
}

TEST_F(Tool, TakesTheRateFromTheLayerWhenItIsFixed) {
    VolHeader vol = Layer();
    vol.time_increment_resolution = 30000;
    vol.fixed_time_increment = 1001;
    WriteFile("in.m4v", ThreePictures(vol));
    EXPECT_EQ("YUV4MPEG2 W48 H32 F30000:1001 Ip A1:1 C420mpeg2", Y4mHeader(Run("decode in.m4v -o -").out));
    vol.time_increment_resolution = 50;
    vol.fixed_time_increment = 2;
    WriteFile("in.m4v", ThreePictures(vol));
    EXPECT_EQ("YUV4MPEG2 W48 H32 F25:1 Ip A1:1 C420mpeg2", Y4mHeader(Run("decode in.m4v -o -").out));
}

TEST_F(Tool, TakesTheRateFromTheTimeStampsOtherwise) {
    VolHeader vol = Layer();
    vol.time_increment_resolution = 30000;
    BitWriter steady;
    PutLayer(steady, vol);
    for (const uint32_t i : {0u, 1u, 2u, 3u}) PutPictureAt(steady, vol, 100, i * 1001);
    WriteFile("steady.m4v", steady.Bytes());
    EXPECT_EQ("YUV4MPEG2 W48 H32 F30000:1001 Ip A1:1 C420mpeg2", Y4mHeader(Run("decode steady.m4v -o -").out));

    // Over the end of a second, and the shortest distance counts.
    vol.time_increment_resolution = 25;
    BitWriter wrapped;
    PutLayer(wrapped, vol);
    PutPictureAt(wrapped, vol, 100, 20);
    PutPictureAt(wrapped, vol, 100, 24);
    PutPictureAt(wrapped, vol, 100, 1, 1);
    WriteFile("wrapped.m4v", wrapped.Bytes());
    EXPECT_EQ("YUV4MPEG2 W48 H32 F25:2 Ip A1:1 C420mpeg2", Y4mHeader(Run("decode wrapped.m4v -o -").out));
}

TEST_F(Tool, TakesTheRateFromTheTimesOfGroups) {
    VolHeader vol = Layer();
    vol.time_increment_resolution = 10;
    BitWriter out;
    for (const uint32_t second : {1u, 2u}) {
        PutLayer(out, vol);
        PutGroupOfVop(out, (1u << 8) | (second << 2));
        PutPictureAt(out, vol, 100, second == 1 ? 8 : 3);
    }
    WriteFile("in.m4v", out.Bytes());
    EXPECT_EQ("YUV4MPEG2 W48 H32 F2:1 Ip A1:1 C420mpeg2", Y4mHeader(Run("decode in.m4v -o -").out));
}

TEST_F(Tool, FallsBackToAPlausibleRate) {
    VolHeader vol = Layer();
    vol.time_increment_resolution = 24;
    WriteFile("still.m4v", FlatPictures(vol, 1));
    EXPECT_EQ("YUV4MPEG2 W48 H32 F24:1 Ip A1:1 C420mpeg2", Y4mHeader(Run("decode still.m4v -o -").out));
    vol.time_increment_resolution = 0;
    WriteFile("none.m4v", FlatPictures(vol, 2));
    EXPECT_EQ("YUV4MPEG2 W48 H32 F25:1 Ip A1:1 C420mpeg2", Y4mHeader(Run("decode none.m4v -o -").out));
}

TEST_F(Tool, TellsInterlacingAndAspect) {
    VolHeader vol = Layer();
    vol.interlaced = true;
    vol.aspect_ratio_info = 2;
    for (const uint32_t first : {0u, 1u}) {
        VopHeader vop;
        vop.top_field_first = first;
        BitWriter out;
        PutLayer(out, vol);
        PutFlatPicture(out, vol, 100, vop);
        WriteFile("in.m4v", out.Bytes());
        EXPECT_EQ(std::string("YUV4MPEG2 W48 H32 F30:1 I") + (first ? "t" : "b") + " A12:11 C420mpeg2",
                  Y4mHeader(Run("decode in.m4v -o -").out));
    }
}

Bytes TwoSizes() {
    Bytes stream = FlatPictures(Layer(48, 32), 2);
    stream = Join(stream, FlatPictures(Layer(20, 18), 1));
    return Join(stream, FlatPictures(Layer(64, 64), 1));
}

TEST_F(Tool, BeginsANewY4mFileWhenTheSizeChanges) {
    WriteFile("in.m4v", TwoSizes());
    const Result result = Run("decode in.m4v -o out.v1.y4m");
    EXPECT_EQ(kGood, result.status);
    EXPECT_EQ("YUV4MPEG2 W48 H32 F30:1 Ip A1:1 C420mpeg2\n" + Frame(48, 32, 100) + Frame(48, 32, 101),
              ReadFile("out.v1.y4m"));
    EXPECT_EQ("YUV4MPEG2 W20 H18 F30:1 Ip A1:1 C420mpeg2\n" + Frame(20, 18, 100), ReadFile("out.v1.2.y4m"));
    EXPECT_EQ("YUV4MPEG2 W64 H64 F30:1 Ip A1:1 C420mpeg2\n" + Frame(64, 64, 100), ReadFile("out.v1.3.y4m"));
    EXPECT_TRUE(Contains(result.err, "48 x 32, 20 x 18, 64 x 64, 4 pictures")) << result.err;
    EXPECT_TRUE(Contains(result.err, "3 files")) << result.err;
}

TEST_F(Tool, LeavesOtherSizesOutOfAY4mPipe) {
    WriteFile("in.m4v", TwoSizes());
    const Result result = Run("decode in.m4v -o -");
    EXPECT_EQ(kDamage, result.status);
    EXPECT_EQ("YUV4MPEG2 W48 H32 F30:1 Ip A1:1 C420mpeg2\n" + Frame(48, 32, 100) + Frame(48, 32, 101), result.out);
    EXPECT_TRUE(Contains(result.err, "2 pictures not written")) << result.err;
}

TEST_F(Tool, MakesNoNumberedNeighboursOfNamedPipes) {
    WriteFile("in.m4v", TwoSizes());
    const Result result =
        Shell("mkfifo pipe; cat pipe >out.y4m & \"$P\" decode in.m4v -o pipe; echo $? >status.txt; wait");
    EXPECT_EQ("1\n", ReadFile("status.txt"));
    EXPECT_EQ("YUV4MPEG2 W48 H32 F30:1 Ip A1:1 C420mpeg2\n" + Frame(48, 32, 100) + Frame(48, 32, 101),
              ReadFile("out.y4m"));
    EXPECT_FALSE(Exists("pipe.2"));
    EXPECT_TRUE(Contains(result.err, "2 pictures not written")) << result.err;
}

TEST_F(Tool, WritesAllSizesIntoOneRawFile) {
    WriteFile("in.m4v", TwoSizes());
    EXPECT_EQ(kGood, Run("decode in.m4v -o out.yuv").status);
    EXPECT_EQ(Text(FlatSamples(48, 32, 100)) + Text(FlatSamples(48, 32, 101)) + Text(FlatSamples(20, 18, 100)) +
                  Text(FlatSamples(64, 64, 100)),
              ReadFile("out.yuv"));
}

uint32_t BigEndian(const std::string& bytes, size_t pos) {
    uint32_t value = 0;
    for (size_t i = 0; i < 4; i++) value = value << 8 | static_cast<uint8_t>(bytes.at(pos + i));
    return value;
}

TEST_F(Tool, DrawsContactSheets) {
    const struct {
        int pictures;
        uint32_t columns, rows;
    } kRows[] = {{1, 1, 1}, {4, 4, 1}, {5, 4, 2}, {16, 4, 4}, {17, 4, 4}, {31, 4, 4}, {32, 4, 4}, {70, 4, 4}};
    for (const auto& row : kRows) {
        WriteFile("in.m4v", FlatPictures(Layer(), row.pictures));
        EXPECT_EQ(kGood, Run("decode in.m4v --contact-sheet sheet.png").status);
        const std::string png = ReadFile("sheet.png");
        ASSERT_GT(png.size(), 24u);
        EXPECT_EQ("\x89PNG\r\n\x1A\n", png.substr(0, 8));
        EXPECT_EQ(row.columns * (48 + 4) + 4, BigEndian(png, 16)) << row.pictures;
        EXPECT_EQ(row.rows * (32 + 4) + 4, BigEndian(png, 20)) << row.pictures;
    }
}

TEST_F(Tool, MakesLargePicturesSmallOnTheContactSheet) {
    WriteFile("in.m4v", FlatPictures(Layer(641, 100), 1));  // a third of it: 214 x 34
    EXPECT_EQ(kGood, Run("decode in.m4v --contact-sheet sheet.png").status);
    EXPECT_EQ(214u + 8u, BigEndian(ReadFile("sheet.png"), 16));
    EXPECT_EQ(34u + 8u, BigEndian(ReadFile("sheet.png"), 20));
}

TEST_F(Tool, ReportsRefusalsAndGoesOn) {
    const VolHeader vol = Layer();
    const Bytes first = ThreePictures(vol);
    BitWriter b;
    VopHeader vop;
    vop.coding_type = 2;
    vop.PutTo(b, vol);
    Bytes stream = Join(first, b.Bytes());
    stream = Join(stream, FlatPictures(vol, 1));
    WriteFile("in.m4v", stream);
    const Result result = Run("decode in.m4v -o out.yuv");
    EXPECT_EQ(kDamage, result.status);
    EXPECT_EQ(Repeat(Text(FlatSamples(48, 32, 100)), 4), ReadFile("out.yuv"));
    EXPECT_TRUE(Contains(result.err, "chunk 3 at byte " + std::to_string(first.size()) +
                                         ": ERR_VID_MPEG4DEC_UNSUPPORT_BFRAME: it is a B or sprite picture"))
        << result.err;
    EXPECT_TRUE(Contains(result.err, "4 pictures (2 intra, 1 predicted, 1 not coded)")) << result.err;
    EXPECT_TRUE(Contains(result.err, "1 of 5 chunks refused or damaged")) << result.err;
}

TEST_F(Tool, ReportsDamage) {
    Bytes stream = FlatPictures(Layer(), 2);
    stream.resize(stream.size() - 8);
    WriteFile("in.m4v", stream);
    const Result result = Run("decode in.m4v -o out.yuv");
    EXPECT_EQ(kDamage, result.status);
    EXPECT_EQ(Text(FlatSamples(48, 32, 100)), ReadFile("out.yuv"));
    EXPECT_TRUE(Contains(result.err, "chunk 1 at byte ")) << result.err;
}

TEST_F(Tool, ListsOnlyTheFirstOfManyRefusals) {
    Bytes stream;
    BitWriter picture;
    PutSkippedPicture(picture, Layer());
    for (int i = 0; i < 25; i++) stream = Join(stream, picture.Bytes());
    WriteFile("in.m4v", stream);
    const Result result = Run("decode in.m4v");
    EXPECT_EQ(kDamage, result.status);
    EXPECT_TRUE(Contains(result.err, "chunk 19 at byte "));
    EXPECT_FALSE(Contains(result.err, "chunk 20 at byte "));
    EXPECT_TRUE(Contains(result.err, "and 5 more like these"));
    EXPECT_TRUE(Contains(result.err, "ERR_VID_MPEG4DEC_VOL_NOT_FOUND"));
    EXPECT_TRUE(Contains(result.err, "nothing was decoded, 25 of 25 chunks"));
}

TEST_F(Tool, LeavesNoEmptyFileWhenNothingIsDecoded) {
    WriteFile("empty.m4v", {});
    WriteFile("noise.m4v", Bytes(1000, 0x55));
    const Result empty = Run("decode empty.m4v -o out.y4m --contact-sheet out.png");
    EXPECT_EQ(kDamage, empty.status);
    EXPECT_TRUE(Contains(empty.err, "nothing was decoded; there are no data in it")) << empty.err;
    EXPECT_EQ(kDamage, Run("decode noise.m4v -o out.yuv").status);
    EXPECT_FALSE(Exists("out.y4m"));
    EXPECT_FALSE(Exists("out.yuv"));
    EXPECT_FALSE(Exists("out.png"));
}

TEST_F(Tool, RefusesBadUsage) {
    WriteFile("in.m4v", ThreePictures());
    for (const char* const arguments : {
             "",
             "play in.m4v",
             "decode",
             "decode in.m4v --no-such-option",
             "decode in.m4v in.m4v -o out.y4m",
             "decode in.m4v in.m4v -o out/",
             "decode in.m4v in.m4v --framemd5 lines.txt",
             "decode - -",
             "decode in.m4v --json --md5 -o -",
             "decode in.m4v --json --framemd5 -",
             "decode in.m4v --format avi -o out",
             "decode in.m4v -o out.png",
             "decode in.m4v -o out%d%d.png",
             "decode in.m4v -o - --format png",
             "decode in.m4v --verify 12345",
             "decode in.m4v --fps 0",
             "decode in.m4v --fps fast",
             "decode in.m4v --limit 0",
             "decode in.m4v --limit -1",
             "decode in.m4v --skip -1",
             "decode in.m4v --skip 99999999999999999999",
             "decode in.m4v --on-error ignore",
             "decode in.m4v -j 0",
             "decode in.m4v --benchmark --md5",
             "decode in.m4v --benchmark -o out.y4m",
             "decode in.m4v -o out.avi",
             "decode in.m4v -o out",
             "decode in.m4v --deblock-threshold 20",
             "decode in.m4v --deblock-threshold ten",
             "decode in.m4v -o - --md5",
             "decode in.m4v -o - --framemd5 -",
             "decode in.m4v --md5 --framemd5 -",
             "decode in.m4v --contact-sheet -",
             "decode in.m4v --raw -o in.m4v",
             "decode in.m4v --framemd5 ./in.m4v",
         }) {
        const Result result = Run(arguments);
        EXPECT_EQ(kUsage, result.status) << arguments;
        EXPECT_EQ("", result.out) << arguments;
        EXPECT_NE("", result.err) << arguments;
    }
    EXPECT_EQ(Text(ThreePictures()), ReadFile("in.m4v"));
}

TEST_F(Tool, DoesNotWritePicturesToATerminal) {
    WriteFile("in.m4v", ThreePictures());
    const int terminal = posix_openpt(O_RDWR | O_NOCTTY);
    ASSERT_GE(terminal, 0);
    ASSERT_EQ(0, grantpt(terminal));
    ASSERT_EQ(0, unlockpt(terminal));
    const std::string name = ptsname(terminal);
    const Result result = Run("decode in.m4v -o - >" + name);
    EXPECT_EQ(kUsage, result.status);
    EXPECT_TRUE(Contains(result.err, "not written to a terminal")) << result.err;
    close(terminal);
}

TEST_F(Tool, ReportsFilesThatDoNotWork) {
    WriteFile("in.m4v", ThreePictures());
    for (const char* const arguments : {
             "decode missing.m4v",
             "decode .",
             "decode in.m4v -o missing/out.y4m",
             "decode in.m4v --framemd5 missing/lines.txt",
             "decode in.m4v --contact-sheet missing/sheet.png",
             "decode in.m4v -o /dev/full",
             "decode in.m4v --framemd5 /dev/full",
             "decode in.m4v --md5 >/dev/full",
             "decode in.m4v -o - >/dev/full",
         }) {
        const Result result = Run(arguments);
        EXPECT_EQ(kFiles, result.status) << arguments;
        EXPECT_EQ(0u, result.err.find("mp4vdec: cannot ")) << arguments << ": " << result.err;
    }
}

TEST_F(Tool, EndsWithAMessageWhenItsPipeIsClosed) {
    WriteFile("in.m4v", FlatPictures(Layer(320, 320), 20));
    const Result result = Shell("{ \"$P\" decode in.m4v -o -; echo $? >status.txt; } | head -c 10 >/dev/null");
    EXPECT_EQ("3\n", ReadFile("status.txt"));
    EXPECT_TRUE(Contains(result.err, "mp4vdec: cannot write to standard output: ")) << result.err;
}

TEST_F(Tool, LeavesWholePicturesBehindWhenInterrupted) {
    // The input stays open, so that only the signal can end the run; the first output byte shows that it is under way.
    int input[2];
    int output[2];
    ASSERT_EQ(0, pipe2(input, O_CLOEXEC));
    ASSERT_EQ(0, pipe2(output, O_CLOEXEC));
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        dup2(input[0], STDIN_FILENO);
        dup2(output[1], STDOUT_FILENO);
        execl(MP4VDEC_PLAYER, MP4VDEC_PLAYER, "decode", "-", "-o", "-", "-q", static_cast<char*>(nullptr));
        _exit(127);
    }
    close(input[0]);
    close(output[1]);
    const Bytes stream = FlatPictures(Layer(), 12);
    ASSERT_EQ(static_cast<ssize_t>(stream.size()), write(input[1], stream.data(), stream.size()));
    std::string written(1, '\0');
    ASSERT_EQ(1, read(output[0], written.data(), 1));
    kill(child, SIGINT);
    close(input[1]);
    char block[4096];
    ssize_t got = 0;
    while ((got = read(output[0], block, sizeof block)) > 0) written.append(block, static_cast<size_t>(got));
    close(output[0]);
    int status = 0;
    ASSERT_EQ(child, waitpid(child, &status, 0));
    EXPECT_EQ(kInterrupted, ExitStatus(status));

    const std::string header = "YUV4MPEG2 W48 H32 F30:1 Ip A1:1 C420mpeg2\n";
    ASSERT_EQ(header, written.substr(0, header.size()));
    const size_t frame = Frame(48, 32, 0).size();
    EXPECT_EQ(0u, (written.size() - header.size()) % frame);
    EXPECT_GE(written.size(), header.size() + frame);
}

TEST_F(Tool, TellsItsVersionAndHelps) {
    const Result version = Run("--version");
    EXPECT_EQ(kGood, version.status);
    EXPECT_EQ(0u, version.out.find("mp4vdec 1."));
    for (const char* const arguments : {"--help", "decode --help"}) {
        const Result help = Run(arguments);
        EXPECT_EQ(kGood, help.status);
        EXPECT_TRUE(Contains(help.out, "mp4vdec decode camera.m4v -o camera.y4m")) << arguments;
        EXPECT_TRUE(Contains(help.out, "Exit status")) << arguments;
    }
}

}  // namespace
}  // namespace mp4v::test
