// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

// The player and containers. tests/containers has one elementary stream in each kind.
#include <algorithm>

#include "support/tool.h"

namespace mp4v::test {
namespace {

const std::string kFolder = std::string(MP4VDEC_TEST_DATA_DIR) + "/containers/";
const std::string kStream = std::string(MP4VDEC_TEST_DATA_DIR) + "/streams/o25_tiny48x32.m4v";

class Containers : public Tool {
  protected:
    bool AreRead() const { return Contains(Run("--version").out, "GStreamer"); }

    // Puts a container beside the outputs, cut to `size` bytes.
    void Copy(const std::string& name, size_t size = SIZE_MAX) const {
        std::ifstream file(kFolder + name, std::ios::binary);
        Bytes bytes{std::istreambuf_iterator<char>(file), {}};
        ASSERT_GT(bytes.size(), 1000u) << name;
        bytes.resize(std::min(bytes.size(), size));
        WriteFile("in", bytes);
    }

    std::string FrameMd5(const std::string& input) const {
        const Result result = Run("decode " + input + " -q --framemd5 -");
        EXPECT_EQ(kGood, result.status) << input << result.err;
        return result.out;
    }
};

TEST_F(Containers, GiveThePicturesOfTheirElementaryStream) {
    if (!AreRead()) GTEST_SKIP() << "built without GStreamer";
    const std::string wanted = FrameMd5(kStream);
    EXPECT_EQ(60, std::count(wanted.begin(), wanted.end(), '\n'));
    for (const char* const name : {"tiny.avi", "tiny.mp4", "tiny.mov", "tiny.mkv"}) {
        SCOPED_TRACE(name);
        Copy(name);
        EXPECT_EQ(wanted, FrameMd5("in"));  // by content: the name tells nothing
        EXPECT_EQ(wanted, FrameMd5("- <in"));
        EXPECT_EQ(wanted, Shell("cat in | \"$P\" decode - -q --framemd5 -").out);
        EXPECT_EQ(wanted, Shell("{ head -c 5 in; sleep 0.05; tail -c +6 in; } | \"$P\" decode - -q --framemd5 -").out);
    }
}

TEST_F(Containers, WithoutTheVideoAreRefused) {
    if (!AreRead()) GTEST_SKIP() << "built without GStreamer";
    const Result result = Run("decode " + kFolder + "other.mkv -o out.y4m");
    EXPECT_EQ(kDamage, result.status);
    EXPECT_TRUE(Contains(result.err, "other.mkv: this Matroska file has no track of MPEG-4 Part 2 video"))
        << result.err;
    EXPECT_FALSE(Exists("out.y4m"));
}

TEST_F(Containers, ReportDamageWithItsPosition) {
    if (!AreRead()) GTEST_SKIP() << "built without GStreamer";
    const struct {
        const char* file;
        size_t size;
        const char* message;
    } kCuts[] = {
        {"tiny.avi", 700, "in: this AVI file is damaged near byte 700: "},
        {"tiny.mp4", 4000, "in: this MP4 or QuickTime file is damaged near byte "},
        {"tiny.mkv", 60, "in: this Matroska file is damaged near byte 60: "},
    };
    for (const auto& cut : kCuts) {
        Copy(cut.file, cut.size);
        const Result result = Run("decode in --md5");
        EXPECT_EQ(kDamage, result.status) << cut.file;
        EXPECT_TRUE(Contains(result.err, cut.message)) << result.err;
        EXPECT_TRUE(Contains(result.err, "nothing was decoded")) << result.err;
    }
}

TEST_F(Containers, TellWhenTheyAreCutOff) {
    if (!AreRead()) GTEST_SKIP() << "built without GStreamer";
    const struct {
        const char* file;
        size_t whole;
        const char* name;
    } kFiles[] = {{"tiny.avi", 13326, "AVI file"}, {"tiny.mkv", 11920, "Matroska file"}};
    for (const auto& file : kFiles) {
        Copy(file.file, 4000);
        const Result result = Run("decode in");
        EXPECT_EQ(kDamage, result.status);
        EXPECT_TRUE(Contains(result.err, std::string("in: this ") + file.name + " is cut off; " +
                                             std::to_string(file.whole - 4000) + " bytes are missing"))
            << result.err;
        EXPECT_TRUE(Contains(result.err, "(1 intra, ")) << result.err;
    }
}

TEST_F(Containers, AreNamedWhereTheyCannotBeRead) {
    if (AreRead()) GTEST_SKIP() << "built with GStreamer";
    for (const char* const name : {"tiny.avi", "tiny.mp4", "tiny.mov", "tiny.mkv"}) {
        const Result result = Run("decode " + kFolder + name);
        EXPECT_EQ(kFiles, result.status);
        EXPECT_TRUE(Contains(result.err, "built without GStreamer; take the elementary stream out of it first"));
    }
}

TEST_F(Containers, AreNotWaitedForAfterAnInterrupt) {
    if (!AreRead()) GTEST_SKIP() << "built without GStreamer";
    Copy("tiny.mkv", 4000);
    // The pipe stays open without data: only the signal can end the run.
    const Result result = Shell(
        "mkfifo pipe; { cat in; sleep 30; } >pipe & writer=$!; \"$P\" decode pipe --framemd5 lines.txt & player=$!; "
        "sleep 0.5; kill -INT $player; wait $player; echo $? >status.txt; kill $writer");
    EXPECT_EQ("130\n", ReadFile("status.txt")) << result.err;
}

}  // namespace
}  // namespace mp4v::test
