// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

// What users do to a player: seeking, scrubbing, other speeds, backwards, again from the start. After each step the
// position, the segment and the pictures are right.
#include <algorithm>

#include "support/gst_pipeline.h"
#include "support/random.h"

namespace mp4v::test {
namespace {

constexpr Clip kClip{"o02_qcif_camera_q8", 176, 144, 30};  // an intra picture every 12
constexpr size_t kPictures = 60;
constexpr size_t kGroup = 12;
constexpr GstClockTime kRounding = GST_MSECOND;  // containers count in coarser steps

struct Container {
    const char* muxer;
    const char* demuxer;
    const char* file;
};

void PrintTo(const Container& container, std::ostream* out) {
    *out << container.demuxer;
}

class GstScenario : public testing::TestWithParam<Container> {
  protected:
    void SetUp() override {
        wanted_ = RecordedMd5s(kClip.name);
        ASSERT_EQ(kPictures, wanted_.size());
        const std::string path = folder_.Path(GetParam().file);
        Mux(kClip, GetParam().muxer, path);
        pipeline_ = std::make_unique<Pipeline>("filesrc location=" + path + " ! " + GetParam().demuxer +
                                               " name=demuxer mp4vdec name=decoder ! "
                                               "appsink name=sink sync=false wait-on-eos=false");
        // Every time anew: the pads of a demuxer come and go with its state.
        g_signal_connect(pipeline_->Find("demuxer").get(), "pad-added", G_CALLBACK(Link),
                         pipeline_->Find("decoder").get());
    }

    static void Link(GstElement*, GstPad* pad, GstElement* decoder) {
        const Ref<GstPad> sink(gst_element_get_static_pad(decoder, "sink"));
        EXPECT_EQ(GST_PAD_LINK_OK, gst_pad_link(pad, sink.get()));
    }

    void Seek(double rate, GstSeekFlags flags, GstClockTime start, GstClockTime stop = GST_CLOCK_TIME_NONE) const {
        ASSERT_TRUE(gst_element_seek(pipeline_->element(), rate, GST_FORMAT_TIME,
                                     static_cast<GstSeekFlags>(GST_SEEK_FLAG_FLUSH | flags), GST_SEEK_TYPE_SET,
                                     static_cast<gint64>(start), GST_SEEK_TYPE_SET, static_cast<gint64>(stop)));
        ASSERT_EQ(GST_STATE_CHANGE_SUCCESS, gst_element_get_state(pipeline_->element(), nullptr, nullptr, kPatience));
    }

    // In the middle of a picture, so that rounding does not matter.
    static GstClockTime Within(size_t picture) { return (kClip.Time(picture) + kClip.Time(picture + 1)) / 2; }

    static void ExpectNear(GstClockTime wanted, GstClockTime time) {
        EXPECT_NEAR(static_cast<double>(wanted), static_cast<double>(time), static_cast<double>(kRounding));
    }

    std::vector<std::string> From(size_t first) const {
        return {wanted_.begin() + static_cast<ptrdiff_t>(first), wanted_.end()};
    }

    TemporaryFolder folder_;
    std::vector<std::string> wanted_;
    std::unique_ptr<Pipeline> pipeline_;
};

TEST_P(GstScenario, TellsItsDurationAndPosition) {
    pipeline_->Set(GST_STATE_PAUSED);
    ASSERT_TRUE(pipeline_->Duration());
    ExpectNear(kClip.Time(kPictures), *pipeline_->Duration());
    ASSERT_TRUE(pipeline_->Position());
    EXPECT_EQ(0u, *pipeline_->Position());
}

TEST_P(GstScenario, SeeksToAnyPicture) {
    pipeline_->Set(GST_STATE_PAUSED);
    Random random(11);
    for (int i = 0; i < 25; i++) {
        const size_t picture = random.Below(kPictures);
        SCOPED_TRACE(picture);
        Seek(1.0, GST_SEEK_FLAG_ACCURATE, Within(picture));
        const std::optional<ShownPicture> shown = pipeline_->Preroll();
        ASSERT_TRUE(shown);
        EXPECT_EQ(wanted_[picture], shown->md5);
        EXPECT_EQ(Within(picture), shown->pts);  // clipped to the segment
        EXPECT_EQ(Within(picture), shown->segment.start);
        EXPECT_EQ(Within(picture), shown->segment.time);
        ASSERT_TRUE(pipeline_->Position());
        EXPECT_EQ(Within(picture), *pipeline_->Position());
    }
    pipeline_->Set(GST_STATE_PLAYING);
    Seek(1.0, GST_SEEK_FLAG_ACCURATE, Within(31));
    EXPECT_EQ(From(31), Md5sOf(pipeline_->PullAll()));
}

TEST_P(GstScenario, SeeksToIntraPictures) {
    pipeline_->Set(GST_STATE_PAUSED);
    Random random(12);
    for (int i = 0; i < 25; i++) {
        const size_t picture = random.Below(kPictures);
        SCOPED_TRACE(picture);
        Seek(1.0, static_cast<GstSeekFlags>(GST_SEEK_FLAG_KEY_UNIT | GST_SEEK_FLAG_SNAP_BEFORE), Within(picture));
        const std::optional<ShownPicture> shown = pipeline_->Preroll();
        ASSERT_TRUE(shown);
        const size_t intra = picture / kGroup * kGroup;
        EXPECT_EQ(wanted_[intra], shown->md5);
        ExpectNear(kClip.Time(intra), shown->pts);
        ExpectNear(kClip.Time(intra), shown->segment.start);
        ASSERT_TRUE(pipeline_->Position());
        ExpectNear(kClip.Time(intra), *pipeline_->Position());
    }
    pipeline_->Set(GST_STATE_PLAYING);
    Seek(1.0, static_cast<GstSeekFlags>(GST_SEEK_FLAG_KEY_UNIT | GST_SEEK_FLAG_SNAP_BEFORE), Within(31));
    EXPECT_EQ(From(24), Md5sOf(pipeline_->PullAll()));
}

TEST_P(GstScenario, SeeksWhilePlaying) {
    pipeline_->Set(GST_STATE_PLAYING);
    Random random(13);
    for (int i = 0; i < 25; i++) {
        const size_t picture = random.Below(kPictures);
        SCOPED_TRACE(picture);
        Seek(1.0, GST_SEEK_FLAG_ACCURATE, Within(picture));
        for (size_t next = picture; next < std::min(picture + 3, kPictures); next++) {
            const std::optional<ShownPicture> shown = pipeline_->Pull();
            ASSERT_TRUE(shown);
            EXPECT_EQ(wanted_[next], shown->md5);
        }
    }
}

TEST_P(GstScenario, ScrubsWhilePaused) {
    pipeline_->Set(GST_STATE_PAUSED);
    // To the end and back, by steps that leave no group out.
    std::vector<size_t> path;
    for (size_t picture = 0; picture < kPictures; picture += 5) path.push_back(picture);
    for (size_t picture = kPictures; picture >= 7; picture -= 7) path.push_back(picture - 1);
    for (const size_t picture : path) {
        SCOPED_TRACE(picture);
        Seek(1.0, GST_SEEK_FLAG_ACCURATE, Within(picture));
        const std::optional<ShownPicture> shown = pipeline_->Preroll();
        ASSERT_TRUE(shown);
        EXPECT_EQ(wanted_[picture], shown->md5);
        EXPECT_EQ(Within(picture), pipeline_->Position());
    }
}

TEST_P(GstScenario, PlaysASegment) {
    pipeline_->Set(GST_STATE_PLAYING);
    Seek(1.0, GST_SEEK_FLAG_ACCURATE, Within(10), Within(20));
    const std::vector<ShownPicture> pictures = pipeline_->PullAll();
    EXPECT_EQ(std::vector(wanted_.begin() + 10, wanted_.begin() + 21), Md5sOf(pictures));
    EXPECT_EQ(Within(20), pictures.back().pts + pictures.back().duration);
}

TEST_P(GstScenario, PlaysAtOtherSpeeds) {
    pipeline_->Set(GST_STATE_PLAYING);
    for (const double rate : {2.0, 0.5, 1.0}) {
        SCOPED_TRACE(rate);
        Seek(rate, GST_SEEK_FLAG_ACCURATE, 0);
        const std::vector<ShownPicture> pictures = pipeline_->PullAll();
        EXPECT_EQ(wanted_, Md5sOf(pictures));
        for (size_t i = 0; i < pictures.size(); i++) {
            EXPECT_EQ(rate, pictures[i].segment.rate);
            const GstClockTime running =
                gst_segment_to_running_time(&pictures[i].segment, GST_FORMAT_TIME, pictures[i].pts);
            ExpectNear(static_cast<GstClockTime>(static_cast<double>(kClip.Time(i)) / rate), running);
        }
    }
}

TEST_P(GstScenario, LeapsFromIntraPictureToIntraPicture) {
    pipeline_->Set(GST_STATE_PAUSED);
    Seek(4.0, static_cast<GstSeekFlags>(GST_SEEK_FLAG_TRICKMODE | GST_SEEK_FLAG_TRICKMODE_KEY_UNITS), 0);
    pipeline_->Set(GST_STATE_PLAYING);
    std::vector<std::string> intra;
    for (size_t i = 0; i < kPictures; i += kGroup) intra.push_back(wanted_[i]);
    EXPECT_EQ(intra, Md5sOf(pipeline_->PullAll()));
}

TEST_P(GstScenario, PlaysBackwards) {
    pipeline_->Set(GST_STATE_PAUSED);
    Seek(-1.0, GST_SEEK_FLAG_ACCURATE, 0, kClip.Time(kPictures));
    pipeline_->Set(GST_STATE_PLAYING);
    const std::vector<ShownPicture> pictures = pipeline_->PullAll();
    EXPECT_EQ(std::vector(wanted_.rbegin(), wanted_.rend()), Md5sOf(pictures));
    for (size_t i = 0; i < pictures.size(); i++) {
        EXPECT_EQ(-1.0, pictures[i].segment.rate);
        ExpectNear(kClip.Time(kPictures - 1 - i), pictures[i].pts);
    }
    Seek(1.0, GST_SEEK_FLAG_ACCURATE, 0, kClip.Time(kPictures));
    EXPECT_EQ(wanted_, Md5sOf(pipeline_->PullAll()));
}

TEST_P(GstScenario, PlaysAgainAfterTheEnd) {
    pipeline_->Set(GST_STATE_PLAYING);
    EXPECT_EQ(wanted_, Md5sOf(pipeline_->PullAll()));
    for (int i = 0; i < 3; i++) {
        Seek(1.0, GST_SEEK_FLAG_ACCURATE, 0);
        EXPECT_EQ(wanted_, Md5sOf(pipeline_->PullAll()));
    }
}

TEST_P(GstScenario, ChangesStatesInALoop) {
    for (int i = 0; i < 10; i++) {
        pipeline_->Set(GST_STATE_PAUSED);
        pipeline_->Set(GST_STATE_READY);
        pipeline_->Set(GST_STATE_PLAYING);
        pipeline_->Set(GST_STATE_PAUSED);
        pipeline_->Set(GST_STATE_PLAYING);
        EXPECT_EQ(wanted_, Md5sOf(pipeline_->PullAll()));
        pipeline_->Set(GST_STATE_NULL);  // in READY, an appsink would still be at the end
        pipeline_->Set(GST_STATE_PLAYING);
        for (size_t picture = 0; picture < static_cast<size_t>(i); picture++) {
            const std::optional<ShownPicture> shown = pipeline_->Pull();
            ASSERT_TRUE(shown);
            EXPECT_EQ(wanted_[picture], shown->md5);
        }
        pipeline_->Set(GST_STATE_NULL);  // in the middle
    }
}

INSTANTIATE_TEST_SUITE_P(Kinds, GstScenario,
                         testing::Values(Container{"avimux", "avidemux", "clip.avi"},
                                         Container{"mp4mux", "qtdemux", "clip.mp4"}));

// A file without any index: the place of a time is guessed from the bytes, and the next intra picture is shown.
TEST(GstScenarioOfAnElementaryStream, SeeksByGuessing) {
    const std::vector<std::string> wanted = RecordedMd5s(kClip.name);
    const Pipeline pipeline("filesrc location=" + StreamPath(kClip.name) +
                            ".m4v blocksize=512 ! typefind ! mp4vdec ! appsink name=sink sync=false wait-on-eos=false");
    pipeline.Set(GST_STATE_PLAYING);
    EXPECT_EQ(wanted, Md5sOf(pipeline.PullAll()));
    EXPECT_EQ(kPictures * kClip.Time(1), pipeline.Duration());
    for (const size_t picture : {30u, 5u, 20u, 0u}) {
        SCOPED_TRACE(picture);
        ASSERT_TRUE(gst_element_seek_simple(pipeline.element(), GST_FORMAT_TIME, GST_SEEK_FLAG_FLUSH,
                                            static_cast<gint64>(kClip.Time(picture))));
        const std::vector<ShownPicture> pictures = pipeline.PullAll();
        ASSERT_FALSE(pictures.empty());
        const size_t first = wanted.size() - pictures.size();
        EXPECT_EQ(0u, first % kGroup);
        EXPECT_LE(first, picture + 2 * kGroup);
        EXPECT_GE(first + 2 * kGroup, picture);
        EXPECT_EQ(std::vector(wanted.begin() + static_cast<ptrdiff_t>(first), wanted.end()), Md5sOf(pictures));
        for (size_t i = 1; i < pictures.size(); i++) EXPECT_GT(pictures[i].pts, pictures[i - 1].pts);
        EXPECT_GE(pictures.front().pts, pictures.front().segment.start);
    }
}

}  // namespace
}  // namespace mp4v::test
