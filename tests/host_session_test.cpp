// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <concepts>
#include <fstream>
#include <iterator>
#include <string>

#include "mp4vdec.h"
#include "mp4vdec.hpp"
#include "support/headers_writer.h"
#include "support/small_stream.h"

// The example itself, under another name.
#define main RunExample
#include "examples/pictures.cpp"
#undef main

namespace mp4v::test {
namespace {

static_assert(std::input_iterator<Session::Results::Iterator>);

// Pictures at luma 100, 101 ... `count` of them, each `ticks` after the one before.
Bytes FlatStream(const VolHeader& vol, int count, uint32_t ticks = 0) {
    BitWriter out;
    PutLayer(out, vol);
    for (int i = 0; i < count; i++) {
        VopHeader vop;
        vop.time_increment = ticks * static_cast<uint32_t>(i);
        PutFlatPicture(out, vol, 100 + i, vop);
    }
    return out.Bytes();
}

Bytes DamagedStream() {
    Bytes stream = FlatStream(LayerOf(48, 32), 2);
    stream.resize(stream.size() - 8);
    return stream;
}

// What the results of one feeding bring, packed; an empty one stands for an error.
std::vector<Bytes> Collect(const Session::Results& results) {
    std::vector<Bytes> all;
    for (const Result& result : results) {
        if (result.error) all.emplace_back();
        if (result.picture) all.push_back(result.picture->Pack());
    }
    return all;
}

TEST(HostSession, GivesPicturesAsTheyBecomeComplete) {
    const Bytes stream = FlatStream(LayerOf(45, 31), 3);
    Session session;
    std::vector<Bytes> pictures;
    for (const uint8_t byte : stream) {
        for (const Bytes& picture : Collect(session.Feed({&byte, 1}))) pictures.push_back(picture);
    }
    EXPECT_EQ(2u, pictures.size());
    for (const Bytes& picture : Collect(session.Finish())) pictures.push_back(picture);
    EXPECT_EQ((std::vector<Bytes>{FlatSamples(45, 31, 100), FlatSamples(45, 31, 101), FlatSamples(45, 31, 102)}),
              pictures);
    EXPECT_TRUE(Collect(session.Feed(stream)).empty());
    EXPECT_TRUE(Collect(session.Finish()).empty());
}

TEST(HostSession, CropsAndTellsWhereAPictureComesFrom) {
    const VolHeader vol = LayerOf(45, 31);
    const Bytes first = FlatStream(vol, 1);
    const Bytes both = FlatStream(vol, 2, 15);
    Session session;
    session.Feed(both);
    uint64_t number = 0;
    for (const Result& result : session.Finish()) {
        ASSERT_TRUE(result.picture);
        EXPECT_FALSE(result.error);
        EXPECT_TRUE(result.coded);
        EXPECT_EQ(number, result.number);
        EXPECT_EQ(number == 0 ? 0 : first.size(), result.offset);
        EXPECT_EQ(number == 0 ? first.size() : both.size() - first.size(), result.bytes.size());
        EXPECT_EQ(45u, result.picture->width);
        EXPECT_EQ(31u, result.picture->height);
        EXPECT_EQ(23u, result.picture->planes[1].width);
        EXPECT_EQ(16u, result.picture->planes[2].height);
        EXPECT_EQ(PictureType::kIntra, result.picture->type);
        EXPECT_DOUBLE_EQ(static_cast<double>(number) / 2, result.seconds.value_or(-1));  // 30 ticks per second
        number++;
    }
    EXPECT_EQ(2u, number);
}

TEST(HostSession, GoesOnWhereAnIterationWasGivenUp) {
    Session session;
    session.Feed(FlatStream(LayerOf(32, 32), 3));
    for (int luma = 100; luma < 103; luma++) {
        const Session::Results results = session.Finish();
        const auto first = results.begin();
        ASSERT_FALSE(first == results.end());
        EXPECT_EQ(FlatSamples(32, 32, luma), first->picture->Pack());
    }
    EXPECT_TRUE(session.Finish().begin() == std::default_sentinel);
}

TEST(HostSession, MovesWithItsDecoder) {
    Session first;
    first.Feed(FlatStream(LayerOf(32, 32), 2));
    EXPECT_EQ(1u, Collect(first.Feed({})).size());
    Session second = std::move(first);
    EXPECT_EQ(std::vector<Bytes>{FlatSamples(32, 32, 101)}, Collect(second.Finish()));
}

TEST(HostSession, GivesErrorsAsValues) {
    Session session;
    EXPECT_EQ(1u, Collect(session.Feed(DamagedStream())).size());
    const Session::Results results = session.Finish();
    const Result& result = *results.begin();
    EXPECT_TRUE(result.error);
    EXPECT_FALSE(result.picture);
    EXPECT_EQ(1u, result.number);
    EXPECT_EQ(ERR_VID_MPEG4DEC_COEFF, result.error.status);
    EXPECT_EQ("ERR_VID_MPEG4DEC_COEFF", result.error.name());
    EXPECT_EQ("the picture data are damaged", result.error.text);
}

TEST(HostSession, TellsOfLayersWithoutSamples) {
    BitWriter out;
    PutLayer(out, LayerOf(0, 0));
    VopHeader{}.PutTo(out, LayerOf(0, 0));
    out.Align();
    Session session;
    session.Feed(out.Bytes());
    const Session::Results results = session.Finish();
    const Result& result = *results.begin();
    EXPECT_EQ(0u, result.error.status);
    EXPECT_EQ("its layer header tells a picture without samples", result.error.text);
}

TEST(HostSession, HidesPredictedPicturesWithoutAnError) {
    const VolHeader vol = LayerOf(32, 32);
    BitWriter out;
    PutLayer(out, vol);
    PutFlatPicture(out, vol, 100);
    PutSkippedPicture(out, vol);
    PutFlatPicture(out, vol, 101);
    Session session({.intra_only = true});
    session.Feed(out.Bytes());
    EXPECT_EQ((std::vector<Bytes>{FlatSamples(32, 32, 100), FlatSamples(32, 32, 101)}), Collect(session.Finish()));
}

TEST(HostSession, TellsTheRateAfterLookingAhead) {
    VolHeader vol = LayerOf(32, 32);
    vol.time_increment_resolution = 50;
    const Bytes stream = FlatStream(vol, 5, 5);
    for (const size_t ahead : {0u, 1u, 3u}) {
        Session session({.look_ahead = ahead});
        const Session::Results results = session.Feed(stream);
        const Session::Results::Iterator first = results.begin();
        ASSERT_FALSE(first == results.end());
        const Ratio rate = session.Format().rate;
        EXPECT_EQ(ahead == 0 ? 50u : 10u, rate.numerator);
        EXPECT_EQ(1u, rate.denominator);
        EXPECT_EQ(3u - ahead, Collect(session.Feed({})).size());  // the last one is not known to be complete
        EXPECT_EQ(ahead + 1, Collect(session.Finish()).size());
    }
}

TEST(HostSession, TellsAspectAndInterlacing) {
    VolHeader vol = LayerOf(32, 32);
    vol.interlaced = true;
    vol.aspect_ratio_info = 2;
    Session session;
    EXPECT_EQ('p', session.Format().interlacing);
    session.Feed(FlatStream(vol, 1));
    EXPECT_EQ(1u, Collect(session.Finish()).size());
    const VideoFormat format = session.Format();
    EXPECT_EQ(12u, format.aspect.numerator);
    EXPECT_EQ(11u, format.aspect.denominator);
    EXPECT_EQ('b', format.interlacing);
}

// A picture whose every block is at another level.
Bytes Edges(const VolHeader& vol, uint32_t quant) {
    BitWriter out;
    PutLayer(out, vol);
    VopHeader vop;
    vop.quant = quant;
    int step = 0;
    PutIntraPicture(out, vol, vop, [&] { return step++ % 2 ? 1 : -2; });
    return out.Bytes();
}

std::vector<Bytes> Play(const SessionOptions& options, const Bytes& stream) {
    Session session(options);
    session.Feed(stream);
    return Collect(session.Finish());
}

TEST(HostSession, SwitchesTheDeblockingThreshold) {
    const Bytes stream = Edges(LayerOf(64, 64), 20);
    EXPECT_EQ(Play({}, stream), Play({.deblock_threshold = 10}, stream));
    EXPECT_NE(Play({}, stream), Play({.deblock_threshold = 30}, stream));
}

TEST(HostSession, DeinterlacesOnRequest) {
    std::ifstream file(std::string(MP4VDEC_TEST_DATA_DIR) + "/streams/o06_pal_interlaced.m4v", std::ios::binary);
    Bytes stream{std::istreambuf_iterator<char>(file), {}};
    ASSERT_GT(stream.size(), 20000u);
    stream.resize(20000);
    std::vector<Bytes> pictures;
    for (const bool deinterlace : {false, true}) {
        Session session({.deinterlace = deinterlace});
        for (const Result& result : session.Feed(stream)) {
            ASSERT_TRUE(result.picture);
            pictures.push_back(result.picture->Pack());
            break;
        }
    }
    ASSERT_EQ(2u, pictures.size());
    EXPECT_FALSE(pictures[0] == pictures[1]);
}

// Row `y` of the luma of a picture of 64 columns.
Bytes Row(const Bytes& picture, size_t y) {
    const auto begin = picture.begin() + static_cast<ptrdiff_t>(y * 64);
    return {begin, begin + 64};
}

TEST(HostSession, WeavesStackedFields) {
    const Bytes stream = Edges(LayerOf(64, 64), 5);
    const std::vector<Bytes> stored = Play({}, stream);
    const std::vector<Bytes> woven = Play({.fields_stacked = true}, stream);
    if (woven == std::vector<Bytes>{Bytes{}}) GTEST_SKIP() << "no memory below 4 GiB here";
    ASSERT_EQ(1u, stored.size());
    ASSERT_EQ(1u, woven.size());
    EXPECT_NE(stored, woven);
    for (size_t y = 0; y < 32; y++) {
        EXPECT_EQ(Row(stored[0], y), Row(woven[0], 2 * y)) << y;
        EXPECT_EQ(Row(stored[0], 32 + y), Row(woven[0], 2 * y + 1)) << y;
    }
}

// The lines from the first to the last statement, without what stands before each.
std::string Lines(const std::string& path, const std::string& prefix) {
    std::ifstream file(std::string(MP4VDEC_TEST_DATA_DIR) + "/../" + path);
    std::string text;
    bool inside = false;
    for (std::string line; std::getline(file, line);) {
        inside = inside || line == prefix + "mp4v::Session session;";
        if (!inside) continue;
        if (!line.starts_with(prefix)) return text;
        text += line.substr(prefix.size()) + "\n";
    }
    return text;
}

TEST(HostSession, HasItsExampleInTheHeader) {
    const std::string example = Lines("examples/pictures.cpp", "    ");
    EXPECT_NE(std::string::npos, example.find("return status;"));
    EXPECT_EQ(example, Lines("include/mp4vdec.hpp", " *     "));
}

struct Outcome {
    int status;
    std::string out;
    std::string err;
};

std::string ReadAll(FILE* file) {
    std::rewind(file);
    std::string text;
    for (int c = 0; (c = std::fgetc(file)) != EOF;) text += static_cast<char>(c);
    std::fclose(file);
    return text;
}

Outcome RunExampleOn(const Bytes& stream) {
    FILE* const files[] = {std::tmpfile(), std::tmpfile(), std::tmpfile()};
    std::fwrite(stream.data(), 1, stream.size(), files[0]);
    std::rewind(files[0]);
    std::fflush(stdout);
    const pid_t child = fork();
    if (child == 0) {
        for (int i = 0; i < 3; i++) dup2(fileno(files[i]), i);
        const int status = RunExample();
        std::fflush(stdout);
        _exit(status);
    }
    int status = -1;
    waitpid(child, &status, 0);
    std::fclose(files[0]);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, ReadAll(files[1]), ReadAll(files[2])};
}

TEST(HostSession, HasAnExampleThatWorks) {
    const Bytes first = FlatSamples(48, 32, 100);
    const Bytes second = FlatSamples(48, 32, 101);
    std::string wanted(first.begin(), first.end());

    const Outcome damaged = RunExampleOn(DamagedStream());
    EXPECT_EQ(1, damaged.status);
    EXPECT_TRUE(wanted == damaged.out);
    EXPECT_EQ("byte " + std::to_string(FlatStream(LayerOf(48, 32), 1).size()) + ": the picture data are damaged\n",
              damaged.err);

    wanted.append(second.begin(), second.end());
    const Outcome good = RunExampleOn(FlatStream(LayerOf(48, 32), 2));
    EXPECT_EQ(0, good.status);
    EXPECT_TRUE(wanted == good.out);
    EXPECT_EQ("", good.err);
}

}  // namespace
}  // namespace mp4v::test
