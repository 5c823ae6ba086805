// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

// Mp4vDecoderProcess and Mp4vPreDecBs.
#include <gtest/gtest.h>

#include <algorithm>
#include <initializer_list>

#include "common/bsreader.h"
#include "common/kernels.h"
#include "mp4vdec.h"
#include "support/low_memory.h"
#include "support/test_decoder.h"

namespace mp4v::test {
namespace {

constexpr Colour kRed = {80, 90, 240};
constexpr Colour kBlue = {40, 240, 110};
const VolHeader kVol32;  // 32 x 32
const std::vector<uint8_t> kUntouchedPicture(32 * 32 * 3 / 2, 0xA5);

BitWriter Headers(const VolHeader& vol) {
    BitWriter out;
    vol.PutTo(out);
    return out;
}

// Everything but pu8Dst is as it was before the call, unless named.
struct Written {
    bool size = false, type = false, ready = false, time_stamp = false, end_of_stream = false;
};

void ExpectWritten(const Mp4vDecOutArgs& out, const Written& written) {
    EXPECT_EQ(out.u32Width != kUntouched32, written.size);
    EXPECT_EQ(out.u32Height != kUntouched32, written.size);
    EXPECT_EQ(out.u32PicType != kUntouched32, written.type);
    EXPECT_EQ(out.u32FrameReady != kUntouched32, written.ready);
    EXPECT_EQ(out.u64TimeStamp != 0xDDDDDDDDDDDDDDDD, written.time_stamp);
    EXPECT_EQ(out.u8EndOfStream != kUntouchedByte, written.end_of_stream);
    EXPECT_EQ(out.au32Reserved[0], kUntouched32);
    EXPECT_EQ(out.au32Reserved[1], kUntouched32);
}

// ---- Arguments

class ProcessArguments : public testing::Test {
  protected:
    ProcessArguments() : decoder(32, 32), chunk(FlatIntra(kVol32, kRed)) {
        in.pu8Buf = chunk.data();
        in.u32BufLen = chunk.size();
        in.u64TimeStamp = 77;
        memset(&out, kUntouchedByte, sizeof out);
        out.pu8Dst = decoder.picture.data();
    }

    uint32_t Process() { return Mp4vDecoderProcess(decoder.handle, &in, &out); }

    TestDecoder decoder;
    Chunk chunk;
    Mp4vDecInArgs in = {};
    Mp4vDecOutArgs out;
};

TEST_F(ProcessArguments, MustNotBeNull) {
    EXPECT_EQ(Mp4vDecoderProcess(nullptr, &in, &out), 0xA2C00002);
    EXPECT_EQ(Mp4vDecoderProcess(decoder.handle, &in, nullptr), 0xA2C00002);
    EXPECT_EQ(Mp4vDecoderProcess(decoder.handle, nullptr, &out), 0xA2C00002);
    EXPECT_EQ(Mp4vDecoderProcess(nullptr, nullptr, nullptr), 0xA2C00002);
    ExpectWritten(out, {});
    EXPECT_EQ(decoder.picture, kUntouchedPicture);
}

TEST_F(ProcessArguments, AreTestedForNullBeforeTheLength) {
    in.u32BufLen = 0;
    EXPECT_EQ(Mp4vDecoderProcess(nullptr, &in, &out), 0xA2C00002);
    EXPECT_EQ(Mp4vDecoderProcess(decoder.handle, &in, nullptr), 0xA2C00002);
}

TEST_F(ProcessArguments, RefuseAnEmptyChunk) {
    in.u32BufLen = 0;
    EXPECT_EQ(Process(), 0xA2C00024);
    ExpectWritten(out, {});
}

TEST_F(ProcessArguments, RefuseAnEmptyChunkEvenAtTheEndOfTheStream) {
    in.u32BufLen = 0;
    in.u8EndOfStream = 1;
    in.pu8Buf = nullptr;
    EXPECT_EQ(Process(), 0xA2C00024);
    ExpectWritten(out, {});
}

TEST_F(ProcessArguments, ReportTheEndOfTheStreamAndNothingElse) {
    in.u8EndOfStream = 1;
    EXPECT_EQ(Process(), 1u);
    EXPECT_EQ(out.u8EndOfStream, 1);
    ExpectWritten(out, {.end_of_stream = true});
    EXPECT_EQ(decoder.picture, kUntouchedPicture);
    EXPECT_EQ(decoder.ctx().u32HeaderStatus, 0xA2C00023) << "the chunk was looked at";
}

TEST_F(ProcessArguments, NeedNoChunkAtTheEndOfTheStream) {
    in.u8EndOfStream = 1;
    in.pu8Buf = nullptr;
    EXPECT_EQ(Process(), 1u);
}

TEST_F(ProcessArguments, TakeOnlyAFlagOfOneForTheEndOfTheStream) {
    for (const uint8_t flag : {uint8_t{2}, uint8_t{3}, uint8_t{255}}) {
        in.u8EndOfStream = flag;
        EXPECT_EQ(Process(), 0u);
        EXPECT_EQ(out.u8EndOfStream, kUntouchedByte);
    }
}

TEST_F(ProcessArguments, AllowDecodingAfterTheEndOfTheStream) {
    in.u8EndOfStream = 1;
    EXPECT_EQ(Process(), 1u);
    in.u8EndOfStream = 0;
    EXPECT_EQ(Process(), 0u);
    EXPECT_EQ(decoder.picture, FlatPicture(32, 32, kRed));
}

TEST_F(ProcessArguments, RefuseANullChunkAfterTakingTheTimeStamp) {
    in.pu8Buf = nullptr;
    EXPECT_EQ(Process(), 0xA2C00002);
    EXPECT_EQ(out.u64TimeStamp, 77u);
    ExpectWritten(out, {.time_stamp = true});
}

TEST_F(ProcessArguments, MayLieAtAnyAddress) {
    for (size_t shift = 1; shift < 8; shift++) {
        std::vector<uint8_t> bytes(shift);
        bytes.insert(bytes.end(), chunk.data(), chunk.data() + chunk.size() + 8);
        std::fill(decoder.picture.begin(), decoder.picture.end(), uint8_t{0});
        in.pu8Buf = bytes.data() + shift;
        EXPECT_EQ(Process(), 0u);
        EXPECT_EQ(decoder.picture, FlatPicture(32, 32, kRed));
    }
}

// ---- Headers and refusals

TEST(Mp4vDecoderProcess, RefusesEveryChunkBeforeTheFirstVol) {
    TestDecoder decoder(32, 32);
    for (int i = 0; i < 2; i++) {
        const Processed result = decoder.Process(FlatIntraAlone(kVol32, kRed));
        EXPECT_EQ(result.status, 0xA2C00023);
        EXPECT_EQ(result.out.u64TimeStamp, 0x0123456789ABCDEFu);
        ExpectWritten(result.out, {.time_stamp = true});
    }
    EXPECT_EQ(decoder.picture, kUntouchedPicture);
    EXPECT_EQ(decoder.Process(FlatIntra(kVol32, kRed)).status, 0u);
}

TEST(Mp4vDecoderProcess, DoesNotReadTheVopHeaderBeforeTheFirstVol) {
    TestDecoder decoder(32, 32);
    BitWriter bits;
    PutStartCode(bits, kVopCode).Put(2, 2).Put(0, 30);  // a B-VOP
    EXPECT_EQ(decoder.Process(bits).status, 0xA2C00023);
    EXPECT_EQ(decoder.ctx().s16VopCodingType, 0);
}

TEST(Mp4vDecoderProcess, RefusesAChunkOfHeadersAlone) {
    TestDecoder decoder(32, 32);
    const Processed result = decoder.Process(Headers(kVol32));
    EXPECT_EQ(result.status, 0xA2C0001E);
    ExpectWritten(result.out, {.time_stamp = true});
    EXPECT_EQ(decoder.Process(FlatIntraAlone(kVol32, kRed)).status, 0u) << "the VOL was accepted all the same";
}

TEST(Mp4vDecoderProcess, RefusesAChunkOfOneByte) {
    TestDecoder decoder(32, 32);
    EXPECT_EQ(decoder.Process(Chunk(std::vector<uint8_t>{0})).status, 0xA2C0001E);
}

TEST(Mp4vDecoderProcess, ReturnsWhatTheHeadersAreRefusedWith) {
    TestDecoder decoder(32, 32);
    const Processed result = decoder.Process(FlatIntra({.type_indication = 2}, kRed));
    EXPECT_EQ(result.status, 0xA2C0000F);
    ExpectWritten(result.out, {.time_stamp = true});
}

TEST(Mp4vDecoderProcess, RefusesEveryChunkAfterARefusedVolUntilOneIsAccepted) {
    TestDecoder decoder(32, 32);
    ASSERT_EQ(decoder.Process(FlatIntra(kVol32, kRed)).status, 0u);
    ASSERT_EQ(decoder.Process(FlatIntra({.data_partitioned = true}, kBlue)).status, 0xA2C00015);
    EXPECT_EQ(decoder.Process(FlatIntraAlone(kVol32, kBlue)).status, 0xA2C00015);
    EXPECT_EQ(decoder.Process(NotCoded(kVol32)).status, 0xA2C00015);
    EXPECT_EQ(decoder.picture, FlatPicture(32, 32, kRed));
    EXPECT_EQ(decoder.Process(FlatIntra(kVol32, kBlue)).status, 0u);
    EXPECT_EQ(decoder.picture, FlatPicture(32, 32, kBlue));
}

TEST(Mp4vDecoderProcess, RefusesEveryChunkAfterTooMuchUserDataUntilAVolIsAccepted) {
    TestDecoder decoder(32, 32);
    BitWriter bits = Headers(kVol32);
    PutUserData(bits, std::string(129, 'x'));
    PutFlatIntraVop(bits, kVol32, kRed);
    EXPECT_EQ(decoder.Process(bits).status, 0xA2C0001C);
    EXPECT_EQ(decoder.Process(FlatIntraAlone(kVol32, kRed)).status, 0xA2C0001C);
    EXPECT_EQ(decoder.Process(FlatIntra(kVol32, kRed)).status, 0u);
}

TEST(Mp4vDecoderProcess, ReturnsWhatTheVopHeaderIsRefusedWith) {
    TestDecoder decoder(32, 32);
    for (const auto& [vop, status] : {std::pair{VopHeader{.coding_type = 2}, 0xA2C00019u},
                                      {VopHeader{.coding_type = 3}, 0xA2C00019u},
                                      {VopHeader{.modulo_time_base = 129}, 0xA2C0001Du}}) {
        const Processed result = decoder.Process(FlatIntra(kVol32, kRed, vop));
        EXPECT_EQ(result.status, status);
        ExpectWritten(result.out, {.time_stamp = true});
    }
    EXPECT_EQ(decoder.picture, kUntouchedPicture);
    EXPECT_EQ(decoder.Process(FlatIntraAlone(kVol32, kRed)).status, 0u) << "only the one chunk is refused";
}

TEST(Mp4vDecoderProcess, ClearsTheStickyErrorWithEachChunk) {
    TestDecoder decoder(32, 32);
    ASSERT_EQ(decoder.Process(Headers(kVol32)).status, 0xA2C0001E);
    ASSERT_EQ(decoder.ctx().tBs.u32BsError, 0xA2C0001E);
    EXPECT_EQ(decoder.Process(FlatIntra(kVol32, kRed)).status, 0u);
    EXPECT_EQ(decoder.ctx().tBs.u32BsError, 0u);
}

// ---- Pictures

TEST(Mp4vDecoderProcess, DeliversAnIntraPicture) {
    TestDecoder decoder(32, 32);
    const Processed result = decoder.Process(FlatIntra(kVol32, kRed));
    EXPECT_EQ(result.status, 0u);
    EXPECT_EQ(result.out.u32Width, 32u);
    EXPECT_EQ(result.out.u32Height, 32u);
    EXPECT_EQ(result.out.u32PicType, 1u);
    EXPECT_EQ(result.out.u32FrameReady, 1u);
    EXPECT_EQ(result.out.u64TimeStamp, 0x0123456789ABCDEFu);
    ExpectWritten(result.out, {.size = true, .type = true, .ready = true, .time_stamp = true});
    EXPECT_EQ(decoder.picture, FlatPicture(32, 32, kRed));
}

TEST(Mp4vDecoderProcess, DeliversAPredictedPicture) {
    TestDecoder decoder(32, 32);
    ASSERT_EQ(decoder.Process(FlatIntra(kVol32, kRed)).status, 0u);
    decoder.picture = kUntouchedPicture;
    const Processed result = decoder.Process(SkippedPredicted(kVol32));
    EXPECT_EQ(result.status, 0u);
    EXPECT_EQ(result.out.u32PicType, 2u);
    EXPECT_EQ(result.out.u32FrameReady, 1u);
    EXPECT_EQ(decoder.picture, FlatPicture(32, 32, kRed));
}

TEST(Mp4vDecoderProcess, RepeatsTheReferenceForEveryNotCodedVop) {
    TestDecoder decoder(32, 32);
    ASSERT_EQ(decoder.Process(FlatIntra(kVol32, kRed)).status, 0u);
    ASSERT_EQ(decoder.Process(FlatIntra(kVol32, kBlue)).status, 0u);
    for (int i = 0; i < 3; i++) {
        decoder.picture = kUntouchedPicture;
        const Processed result = decoder.Process(NotCoded(kVol32));
        EXPECT_EQ(result.status, 0u);
        EXPECT_EQ(result.out.u32Width, 32u);
        EXPECT_EQ(result.out.u32Height, 32u);
        EXPECT_EQ(result.out.u32PicType, 3u);
        EXPECT_EQ(result.out.u32FrameReady, 1u);
        EXPECT_EQ(decoder.picture, FlatPicture(32, 32, kBlue)) << i;
    }
}

TEST(Mp4vDecoderProcess, PredictsFromTheReferenceAfterNotCodedVops) {
    TestDecoder decoder(32, 32);
    ASSERT_EQ(decoder.Process(FlatIntra(kVol32, kRed)).status, 0u);
    ASSERT_EQ(decoder.Process(FlatIntra(kVol32, kBlue)).status, 0u);
    ASSERT_EQ(decoder.Process(NotCoded(kVol32)).status, 0u);
    decoder.picture = kUntouchedPicture;
    ASSERT_EQ(decoder.Process(SkippedPredicted(kVol32)).status, 0u);
    EXPECT_EQ(decoder.picture, FlatPicture(32, 32, kBlue));
}

TEST(Mp4vDecoderProcess, TakesANotCodedVopOfIntraTypeToo) {
    TestDecoder decoder(32, 32);
    ASSERT_EQ(decoder.Process(FlatIntra(kVol32, kRed)).status, 0u);
    BitWriter bits;
    VopHeader{.coding_type = 0, .coded = false}.PutTo(bits, kVol32);
    EXPECT_EQ(decoder.Process(bits).out.u32PicType, 3u);
}

TEST(Mp4vDecoderProcess, RepeatsABlankPictureBeforeTheFirstOne) {
    TestDecoder decoder(32, 32);
    BitWriter bits = Headers(kVol32);
    PutNotCodedVop(bits, kVol32);
    EXPECT_EQ(decoder.Process(bits).status, 0u);
    EXPECT_EQ(decoder.picture, std::vector<uint8_t>(32 * 32 * 3 / 2, 0));
}

TEST(Mp4vDecoderProcess, DecodesOnlyTheFirstVopOfAChunk) {
    TestDecoder decoder(32, 32);
    BitWriter bits = FlatIntra(kVol32, kRed);
    PutFlatIntraVop(bits, kVol32, kBlue);
    EXPECT_EQ(decoder.Process(bits).status, 0u);
    EXPECT_EQ(decoder.picture, FlatPicture(32, 32, kRed));
}

TEST(Mp4vDecoderProcess, WritesHalfOfTheLastMacroblockRowWhenTheHeightIsAnOddMultipleOf8) {
    TestDecoder decoder(32, 24);
    EXPECT_EQ(decoder.Process(FlatIntra({.width = 32, .height = 24}, kRed)).status, 0u);
    EXPECT_EQ(decoder.picture, FlatPicture(32, 24, kRed));
}

TEST(Mp4vDecoderProcess, DeliversASmallerPictureCompactly) {
    TestDecoder decoder(32, 32);
    const Processed result = decoder.Process(FlatIntra({.width = 16, .height = 16}, kRed));
    EXPECT_EQ(result.status, 0u);
    EXPECT_EQ(result.out.u32Width, 16u);
    EXPECT_EQ(result.out.u32Height, 16u);
    EXPECT_EQ(decoder.picture, FlatPicture(16, 16, kRed, (32 * 32 - 16 * 16) * 3 / 2));
}

TEST(Mp4vDecoderProcess, DecodesPicturesOfNoSize) {
    TestDecoder decoder(0, 0);
    const VolHeader vol = {.width = 0, .height = 0};
    uint8_t nothing = 0xA5;
    for (const BitWriter& bits : {FlatIntra(vol, kRed), SkippedPredicted(vol), NotCoded(vol)}) {
        const Processed result = decoder.ProcessInto(&nothing, Chunk(bits));
        EXPECT_EQ(result.status, 0u);
        EXPECT_EQ(result.out.u32Width, 0u);
        EXPECT_EQ(result.out.u32Height, 0u);
    }
    EXPECT_EQ(nothing, 0xA5);
}

// ---- Damage

// A picture of 64 macroblocks that ends after the first one. Of the zeros behind the chunk each macroblock takes a bit.
const VolHeader kVol128 = {.width = 128, .height = 128};

BitWriter Truncated(Colour colour) {
    BitWriter out = Headers(kVol128);
    PutFlatIntraVop(out, {.width = 16, .height = 16}, colour);
    return out;
}

TEST(Mp4vDecoderProcess, WritesThePictureTypeBeforeItFindsTheDamage) {
    TestDecoder decoder(128, 128);
    const Processed intra = decoder.Process(Truncated(kRed));
    EXPECT_EQ(intra.status, 0xA2C0001E);
    EXPECT_EQ(intra.out.u32PicType, 1u);
    ExpectWritten(intra.out, {.type = true, .time_stamp = true});

    BitWriter predicted;
    VopHeader{.coding_type = 1}.PutTo(predicted, kVol128);
    predicted.Bits("0 000000000");  // coded, with an mcbpc that does not exist
    const Processed result = decoder.Process(predicted);
    EXPECT_EQ(result.status, 0xA2C0001F);
    EXPECT_EQ(result.out.u32PicType, 2u);
    ExpectWritten(result.out, {.type = true, .time_stamp = true});
}

TEST(Mp4vDecoderProcess, NeverTakesADamagedPictureForTheReference) {
    TestDecoder decoder(128, 128);
    ASSERT_EQ(decoder.Process(FlatIntra(kVol128, kRed)).status, 0u);
    ASSERT_EQ(decoder.Process(Truncated(kBlue)).status, 0xA2C0001E);
    EXPECT_NE(decoder.picture, FlatPicture(128, 128, kRed)) << "the damaged picture should have reached the output";
    ASSERT_EQ(decoder.Process(NotCoded(kVol128)).status, 0u);
    EXPECT_EQ(decoder.picture, FlatPicture(128, 128, kRed));
    ASSERT_EQ(decoder.Process(SkippedPredicted(kVol128)).status, 0u);
    EXPECT_EQ(decoder.picture, FlatPicture(128, 128, kRed));
}

TEST(Mp4vDecoderProcess, DecodesAsANewInstanceWouldAfterAnyPrefixOfAChunk) {
    const std::vector<uint8_t> whole = FlatIntra(kVol32, kRed).Bytes();
    for (size_t length = 1; length < whole.size(); length++) {
        TestDecoder decoder(32, 32);
        decoder.Process(Chunk({whole.begin(), whole.begin() + static_cast<ptrdiff_t>(length)}, 0xFF));
        decoder.picture = kUntouchedPicture;
        ASSERT_EQ(decoder.Process(FlatIntra(kVol32, kBlue)).status, 0u) << length;
        ASSERT_EQ(decoder.picture, FlatPicture(32, 32, kBlue)) << length;
    }
}

// ---- The exchange of the frames

struct Planes {
    const uint8_t *cur_y, *cur_u, *cur_v, *cur_base, *ref_y, *ref_u, *ref_v, *ref_base;

    explicit Planes(const Mp4vDecCtx& ctx)
        : cur_y(ctx.tCurFrame.pu8Y),
          cur_u(ctx.tCurFrame.pu8U),
          cur_v(ctx.tCurFrame.pu8V),
          cur_base(ctx.tCurFrame.pu8Base),
          ref_y(ctx.tRefFrame.pu8Y),
          ref_u(ctx.tRefFrame.pu8U),
          ref_v(ctx.tRefFrame.pu8V),
          ref_base(ctx.tRefFrame.pu8Base) {}
    bool operator==(const Planes&) const = default;

    Planes Exchanged() const {
        Planes other = *this;
        std::swap(other.cur_y, other.ref_y);
        std::swap(other.cur_u, other.ref_u);
        std::swap(other.cur_v, other.ref_v);
        return other;
    }
};

TEST(Frames, ExchangeTheirPlanesButNotTheirAllocationsAfterIntraAndPredictedPictures) {
    TestDecoder decoder(32, 32);
    const Planes opened(decoder.ctx());
    ASSERT_EQ(decoder.Process(FlatIntra(kVol32, kRed)).status, 0u);
    EXPECT_EQ(Planes(decoder.ctx()), opened.Exchanged());
    ASSERT_EQ(decoder.Process(SkippedPredicted(kVol32)).status, 0u);
    EXPECT_EQ(Planes(decoder.ctx()), opened);
}

TEST(Frames, StayAfterANotCodedVop) {
    TestDecoder decoder(32, 32);
    ASSERT_EQ(decoder.Process(FlatIntra(kVol32, kRed)).status, 0u);
    const Planes before(decoder.ctx());
    ASSERT_EQ(decoder.Process(NotCoded(kVol32)).status, 0u);
    EXPECT_EQ(Planes(decoder.ctx()), before);
}

TEST(Frames, StayAfterARefusedOrDamagedChunk) {
    TestDecoder decoder(128, 128);
    ASSERT_EQ(decoder.Process(FlatIntra(kVol128, kRed)).status, 0u);
    const Planes before(decoder.ctx());
    EXPECT_NE(decoder.Process(Truncated(kBlue)).status, 0u);
    EXPECT_NE(decoder.Process(FlatIntra(kVol128, kBlue, {.coding_type = 2})).status, 0u);
    EXPECT_NE(decoder.Process(FlatIntra({.width = 128, .height = 128, .scalability = true}, kBlue)).status, 0u);
    EXPECT_EQ(Planes(decoder.ctx()), before);
}

// ---- Kernels that Process itself calls

int g_clear_calls;
int32_t CountClear(int32_t value) {
    g_clear_calls++;
    return value;
}

TEST(ClearMmx, IsCalledOncePerDeliveredPicture) {
    TestDecoder decoder(32, 32);
    g_clear_calls = 0;
    const Redirect redirect(ClearMMX, &CountClear);
    decoder.Process(FlatIntra(kVol32, kRed));
    EXPECT_EQ(g_clear_calls, 1);
    decoder.Process(SkippedPredicted(kVol32));
    EXPECT_EQ(g_clear_calls, 2);
    decoder.Process(NotCoded(kVol32));
    EXPECT_EQ(g_clear_calls, 3);
}

TEST(ClearMmx, IsNotCalledWithoutAPicture) {
    TestDecoder decoder(128, 128);
    g_clear_calls = 0;
    const Redirect redirect(ClearMMX, &CountClear);
    decoder.Process(FlatIntraAlone(kVol128, kRed));                 // no VOL yet
    decoder.Process(Headers(kVol128));                              // no VOP
    decoder.Process(Truncated(kRed));                               // damaged
    decoder.Process(FlatIntra(kVol128, kRed, {.coding_type = 2}));  // B-VOP
    EXPECT_EQ(g_clear_calls, 0);
}

struct VopOutputCall {
    const uint8_t *y, *u, *v;
    uint8_t* dst;
    int32_t pitch, width, height, field_stacked, deinterlace;
    bool operator==(const VopOutputCall&) const = default;
};
std::vector<VopOutputCall> g_outputs;
void RecordVopOutput(const uint8_t* y, const uint8_t* u, const uint8_t* v, uint8_t* dst, int32_t pitch, int32_t width,
                     int32_t height, int32_t field_stacked, int32_t deinterlace) {
    g_outputs.push_back({y, u, v, dst, pitch, width, height, field_stacked, deinterlace});
}

TEST(NotCodedVop, GivesTheReferencePictureToVopOutput) {
    TestDecoder decoder(64, 48);
    const VolHeader vol = {.width = 32, .height = 16};
    ASSERT_EQ(decoder.Process(FlatIntra(vol, kRed)).status, 0u);
    const Mp4vDecCtx& ctx = decoder.ctx();
    g_outputs.clear();
    const Redirect redirect(VopOutput, &RecordVopOutput);
    ASSERT_EQ(decoder.Process(NotCoded(vol)).status, 0u);
    ASSERT_EQ(g_outputs.size(), 1u);
    EXPECT_TRUE(g_outputs[0] == (VopOutputCall{ctx.tRefFrame.pu8Y, ctx.tRefFrame.pu8U, ctx.tRefFrame.pu8V,
                                               decoder.picture.data(), 96, 32, 16, 0, 0}));
}

TEST(NotCodedVop, IsTheOnlyOneThatVopOutputIsCalledFor) {
    TestDecoder decoder(32, 32);
    g_outputs.clear();
    const Redirect redirect(VopOutput, &RecordVopOutput);
    ASSERT_EQ(decoder.Process(FlatIntra(kVol32, kRed)).status, 0u);
    ASSERT_EQ(decoder.Process(SkippedPredicted(kVol32)).status, 0u);
    EXPECT_TRUE(g_outputs.empty());
}

// ---- A null picture

TEST(NullPicture, IsDecodedWithoutOutput) {
    TestDecoder decoder(32, 32);
    const Processed intra = decoder.ProcessInto(nullptr, Chunk(FlatIntra(kVol32, kRed)));
    EXPECT_EQ(intra.status, 0u);
    EXPECT_EQ(intra.out.u32FrameReady, 1u);
    EXPECT_EQ(decoder.ProcessInto(nullptr, Chunk(SkippedPredicted(kVol32))).status, 0u);
    EXPECT_EQ(decoder.ctx().u32PostProcOn, 0u);
    EXPECT_EQ(decoder.ProcessInto(nullptr, Chunk(NotCoded(kVol32))).status, 0u);
    EXPECT_EQ(decoder.Process(NotCoded(kVol32)).status, 0u);
    EXPECT_EQ(decoder.picture, FlatPicture(32, 32, kRed));
}

// ---- Control flags

TEST(ControlFlags, ChooseTheDeblockingThreshold) {
    TestDecoder decoder(32, 32);
    for (uint32_t flags = 0; flags < 16; flags++) {
        for (const uint32_t others : {0u, 0xFFFFFFF0u}) {
            ASSERT_EQ(decoder.Process(FlatIntra(kVol32, kRed), flags | others).status, 0u);
            EXPECT_EQ(decoder.ctx().s32DeblockQpThr, flags < 3 ? 10 : 30) << flags << " " << others;
        }
    }
}

TEST(ControlFlags, ChooseTheThresholdForNotCodedAndDamagedVopsToo) {
    TestDecoder decoder(128, 128);
    ASSERT_EQ(decoder.Process(Truncated(kRed), 3).status, 0xA2C0001E);
    EXPECT_EQ(decoder.ctx().s32DeblockQpThr, 30);
    ASSERT_EQ(decoder.Process(NotCoded(kVol128), 2).status, 0u);
    EXPECT_EQ(decoder.ctx().s32DeblockQpThr, 10);
}

TEST(ControlFlags, StayAsTheyWereForARefusedChunk) {
    TestDecoder decoder(32, 32);
    ASSERT_EQ(decoder.Process(FlatIntra(kVol32, kRed), 3).status, 0u);
    EXPECT_NE(decoder.Process(FlatIntra(kVol32, kRed, {.coding_type = 2}), 0).status, 0u);
    EXPECT_EQ(decoder.ctx().s32DeblockQpThr, 30);
}

TEST(IntraOnlyFlag, KeepsPredictedPicturesOutOfTheOutput) {
    TestDecoder decoder(32, 32);
    ASSERT_EQ(decoder.Process(FlatIntra(kVol32, kRed), 0x10).status, 0u);
    EXPECT_EQ(decoder.picture, FlatPicture(32, 32, kRed));
    decoder.picture = kUntouchedPicture;
    const Processed result = decoder.Process(SkippedPredicted(kVol32), 0x10);
    EXPECT_EQ(result.status, 0u);
    EXPECT_EQ(result.out.u32PicType, 2u);
    EXPECT_EQ(result.out.u32FrameReady, 1u);
    EXPECT_EQ(decoder.picture, kUntouchedPicture);
    EXPECT_EQ(decoder.ctx().u32PostProcOn, 0u);
}

TEST(IntraOnlyFlag, StillMakesThePredictedPictureTheReference) {
    TestDecoder decoder(32, 32);
    ASSERT_EQ(decoder.Process(FlatIntra(kVol32, kRed)).status, 0u);
    const Planes before(decoder.ctx());
    ASSERT_EQ(decoder.Process(SkippedPredicted(kVol32), 0x10).status, 0u);
    EXPECT_EQ(Planes(decoder.ctx()), before.Exchanged());
    ASSERT_EQ(decoder.Process(SkippedPredicted(kVol32)).status, 0u);
    EXPECT_EQ(decoder.picture, FlatPicture(32, 32, kRed));
    EXPECT_EQ(decoder.ctx().u32PostProcOn, 1u);
}

TEST(IntraOnlyFlag, DoesNotKeepNotCodedVopsOutOfTheOutput) {
    TestDecoder decoder(32, 32);
    ASSERT_EQ(decoder.Process(FlatIntra(kVol32, kRed)).status, 0u);
    decoder.picture = kUntouchedPicture;
    ASSERT_EQ(decoder.Process(NotCoded(kVol32), 0x10).status, 0u);
    EXPECT_EQ(decoder.picture, FlatPicture(32, 32, kRed));
}

// ---- The deinterlace mode

struct Mode {
    int32_t field_stacked, deinterlace;
    bool operator==(const Mode&) const = default;
    friend std::ostream& operator<<(std::ostream& out, const Mode& mode) {
        return out << mode.field_stacked << "/" << mode.deinterlace;
    }
};

// A VOL with the keyword before it, and a not-coded VOP, whose mode VopOutput is told.
BitWriter NotCodedWith(const VolHeader& vol, const char* keyword) {
    BitWriter bits;
    if (*keyword) PutUserData(bits, std::string("1234567") + keyword);
    vol.PutTo(bits);
    PutNotCodedVop(bits, vol);
    return bits;
}

Mode ModeOf(TestDecoder& decoder, const VolHeader& vol, const char* keyword, uint32_t flags) {
    g_outputs.clear();
    const Redirect redirect(VopOutput, &RecordVopOutput);
    EXPECT_EQ(decoder.Process(NotCodedWith(vol, keyword), flags).status, 0u);
    if (g_outputs.size() != 1) return {-1, -1};
    return {g_outputs[0].field_stacked, g_outputs[0].deinterlace};
}

Mode ModeOf(const VolHeader& vol, const char* keyword, uint32_t flags) {
    TestDecoder decoder(1920, 1088);
    return ModeOf(decoder, vol, keyword, flags);
}

TEST(DeinterlaceMode, FollowsKeywordAndFlagAtSixSizes) {
    for (const uint32_t width : {352u, 704u, 720u}) {
        for (const uint32_t height : {480u, 576u}) {
            SCOPED_TRACE(testing::Message() << width << " x " << height);
            const VolHeader vol = {.width = width, .height = height};
            EXPECT_EQ(ModeOf(vol, "", 0), (Mode{0, 0}));
            EXPECT_EQ(ModeOf(vol, "FRAME", 0), (Mode{0, 0}));
            EXPECT_EQ(ModeOf(vol, "FIELD", 0), (Mode{1, 0}));
            EXPECT_EQ(ModeOf(vol, "FRM_I", 0), (Mode{0, 0}));
            EXPECT_EQ(ModeOf(vol, "", 0x20), (Mode{0, 2}));
            EXPECT_EQ(ModeOf(vol, "FRAME", 0x20), (Mode{0, 2}));
            EXPECT_EQ(ModeOf(vol, "FIELD", 0x20), (Mode{1, 2}));
            EXPECT_EQ(ModeOf(vol, "FRM_I", 0x20), (Mode{0, 2}));
        }
    }
}

TEST(DeinterlaceMode, IsZeroAtEveryOtherSize) {
    constexpr std::pair<uint32_t, uint32_t> kSizes[] = {{352, 288},  {352, 240}, {720, 288}, {368, 576}, {704, 560},
                                                        {720, 1080}, {576, 352}, {480, 704}, {640, 480}, {768, 576},
                                                        {352, 479},  {351, 576}, {353, 480}, {32, 32},   {1920, 1088}};
    for (const auto& [width, height] : kSizes) {
        EXPECT_EQ(ModeOf({.width = width, .height = height}, "FIELD", 0x20), (Mode{0, 0})) << width << " x " << height;
    }
}

TEST(DeinterlaceMode, LooksAtNoOtherFlag) {
    EXPECT_EQ(ModeOf({.width = 352, .height = 576}, "FIELD", 0xFFFFFFDF), (Mode{1, 0}));
    EXPECT_EQ(ModeOf({.width = 352, .height = 576}, "", 0xFFFFFFFF), (Mode{0, 2}));
}

TEST(DeinterlaceMode, TakesAnInterlacedVolForFrames) {
    TestDecoder decoder(352, 576);
    const VolHeader vol = {.width = 352, .height = 576, .interlaced = true};
    EXPECT_EQ(ModeOf(decoder, vol, "FIELD", 0x20), (Mode{0, 2}));
    EXPECT_EQ(decoder.ctx().u32PicStructHint, 1u);
}

TEST(DeinterlaceMode, KeepsTheHintFromChunkToChunk) {
    TestDecoder decoder(352, 576);
    const VolHeader vol = {.width = 352, .height = 576};
    EXPECT_EQ(ModeOf(decoder, vol, "FIELD", 0), (Mode{1, 0}));
    g_outputs.clear();
    const Redirect redirect(VopOutput, &RecordVopOutput);
    ASSERT_EQ(decoder.Process(NotCoded(vol)).status, 0u);
    EXPECT_EQ(g_outputs.at(0).field_stacked, 1);
}

TEST(ForcedDeinterlaceMode, IsOneAtAnySizeAndWithAnyFlag) {
    LowMemory memory;
    TestDecoder decoder(1920, 1088, memory.Record(103, 2));
    EXPECT_EQ(ModeOf(decoder, {.width = 32, .height = 32}, "", 0), (Mode{1, 0}));
    EXPECT_EQ(ModeOf(decoder, {.width = 32, .height = 32}, "", 0xFFFFFFFF), (Mode{1, 0}));
    EXPECT_EQ(ModeOf(decoder, {.width = 352, .height = 576}, "FRAME", 0x20), (Mode{1, 0}));
    EXPECT_EQ(ModeOf(decoder, {.width = 352, .height = 576, .interlaced = true}, "", 0x20), (Mode{1, 0}));
}

TEST(ForcedDeinterlaceMode, WeavesTheFieldsOfAnIntraPicture) {
    LowMemory memory;
    TestDecoder decoder(16, 32, memory.Record(103, 2));
    const VolHeader vol = {.width = 16, .height = 32};
    BitWriter bits = Headers(vol);
    VopHeader().PutTo(bits, vol);
    for (const int change : {-28, 100}) {  // the upper field is 100, the lower one 200
        bits.Bits(McbpcIntraCode(3, 0)).Put(0, 1).Bits(CbpyCode(0, true)).Bits(DcCode(change, true));
        for (int block = 1; block < 4; block++) bits.Bits(DcCode(0, true));
        bits.Bits(DcCode(0, false)).Bits(DcCode(0, false));
    }
    ASSERT_EQ(decoder.Process(bits).status, 0u);
    for (size_t y = 0; y < 32; y++) {
        for (size_t x = 0; x < 16; x++) ASSERT_EQ(decoder.picture[y * 16 + x], y % 2 ? 200 : 100) << x << ", " << y;
    }
    // The same from the frame store.
    const std::vector<uint8_t> first = decoder.picture;
    std::fill(decoder.picture.begin(), decoder.picture.end(), uint8_t{0});
    ASSERT_EQ(decoder.Process(NotCoded(vol)).status, 0u);
    EXPECT_EQ(decoder.picture, first);
}

int g_deinterlaced_macroblocks;
void CountDeInterlaceMb(const uint8_t*, const uint8_t*, const uint8_t*, int32_t, uint8_t*, uint8_t*, uint8_t*,
                        int32_t) {
    g_deinterlaced_macroblocks++;
}

TEST(DeinterlaceMode, ReachesIntraAndPredictedPictures) {
    const VolHeader vol = {.width = 352, .height = 480};
    TestDecoder decoder(352, 480);
    const Redirect redirect(DeInterlaceFrameMB, &CountDeInterlaceMb);
    for (const BitWriter& bits : {FlatIntra(vol, kRed), SkippedPredicted(vol)}) {
        g_deinterlaced_macroblocks = 0;
        ASSERT_EQ(decoder.Process(bits, 0x20).status, 0u);
        EXPECT_EQ(g_deinterlaced_macroblocks, 22 * 30);
        g_deinterlaced_macroblocks = 0;
        ASSERT_EQ(decoder.Process(bits, 0).status, 0u);
        EXPECT_EQ(g_deinterlaced_macroblocks, 0);
    }
}

TEST(PictureStructureHint, IsSetToOneByEveryVopOfAnInterlacedLayer) {
    TestDecoder decoder(32, 32);
    const VolHeader vol = {.interlaced = true};
    ASSERT_EQ(decoder.Process(FlatIntra(vol, kRed)).status, 0u);
    BitWriter bits;
    PutUserData(bits, "1234567FIELD");
    PutFlatIntraVop(bits, vol, kRed);
    ASSERT_EQ(decoder.Process(bits).status, 0u);
    EXPECT_EQ(decoder.ctx().u32PicStructHint, 1u);
}

TEST(PictureStructureHint, StaysWhatTheKeywordSaysInAProgressiveLayer) {
    TestDecoder decoder(32, 32);
    ASSERT_EQ(decoder.Process(FlatIntra(kVol32, kRed)).status, 0u);
    EXPECT_EQ(decoder.ctx().u32PicStructHint, 1u);
    for (const auto& [keyword, hint] : {std::pair{"FIELD", 2u}, {"FRM_I", 3u}, {"FRAME", 1u}}) {
        BitWriter bits;
        PutUserData(bits, std::string("1234567") + keyword);
        PutFlatIntraVop(bits, kVol32, kRed);
        ASSERT_EQ(decoder.Process(bits).status, 0u);
        EXPECT_EQ(decoder.ctx().u32PicStructHint, hint);
    }
}

// ---- Changes of size

// All records of the open size 64 x 64, from the first of the spare row above.
std::vector<MbInfo*> AllRecords(const Mp4vDecCtx& ctx) {
    std::vector<MbInfo*> records(25);
    for (size_t i = 0; i < records.size(); i++) records[i] = ctx.ptMbInfo - 5 + i;
    return records;
}

bool IsFilledWith(const MbInfo& record, int byte) {
    std::vector<uint8_t> expected(sizeof record, static_cast<uint8_t>(byte));
    return memcmp(&record, expected.data(), sizeof record) == 0;
}

class SizeChange : public testing::Test {
  protected:
    SizeChange() : decoder(64, 64) {
        EXPECT_EQ(decoder.Process(FlatIntra({.width = 64, .height = 64}, kRed)).status, 0u);
        for (MbInfo* record : AllRecords(decoder.ctx())) memset(record, 0x77, sizeof *record);
    }

    // z: zero; -: as before; M: a macroblock that was decoded since
    std::string Records() const {
        std::string states;
        for (const MbInfo* record : AllRecords(decoder.ctx())) {
            states += IsFilledWith(*record, 0) ? 'z' : IsFilledWith(*record, 0x77) ? '-' : 'M';
        }
        return states;
    }

    TestDecoder decoder;
};

// 16 x 48: rows of two records. The array begins with the spare row above of the new layout, at its place before the
// first macroblock.
TEST_F(SizeChange, ClearsTheRecordsOfTheNewLayoutBeforeTheNextPicture) {
    ASSERT_EQ(decoder.Process(FlatIntra({.width = 16, .height = 48}, kBlue)).status, 0u);
    EXPECT_EQ(Records(), "---zzMzMzMz--------------");
}

TEST_F(SizeChange, ClearsForAPredictedPictureToo) {
    BitWriter bits = Headers({.width = 16, .height = 48});
    PutSkippedPredictedVop(bits, {.width = 16, .height = 48});
    ASSERT_EQ(decoder.Process(bits).status, 0u);
    EXPECT_EQ(Records(), "---zzMzMzMz--------------");
}

TEST_F(SizeChange, ClearsNothingForTheSameSize) {
    BitWriter bits = Headers({.width = 64, .height = 64});
    bits.Align();
    VopHeader().PutTo(bits, {.width = 64, .height = 64});
    bits.Bits("0000 0000 0000 0000");  // an mcbpc that does not exist: nothing is decoded
    decoder.Process(bits);
    EXPECT_EQ(Records().find('z'), std::string::npos);
}

TEST_F(SizeChange, ClearsOnceWhatAllVolsOfAChunkWouldHaveCleared) {
    BitWriter bits = Headers({.width = 64, .height = 16});  // 5 before, 5 from the first macroblock on
    VolHeader{.width = 16, .height = 64}.PutTo(bits);       // 2 before, 8 from the first macroblock on
    PutFlatIntraVop(bits, {.width = 16, .height = 64}, kBlue);
    ASSERT_EQ(decoder.Process(bits).status, 0u);
    EXPECT_EQ(Records(), "zzzzzMzMzMzMz------------");
}

TEST_F(SizeChange, ClearsEvenWhenTheOldSizeComesBackBeforeThePicture) {
    const VolHeader vol = {.width = 64, .height = 64};
    BitWriter bits = Headers({.width = 16, .height = 16});
    vol.PutTo(bits);
    PutFlatIntraVop(bits, vol, kBlue);
    ASSERT_EQ(decoder.Process(bits).status, 0u);
    EXPECT_EQ(Records(), "zzzzzMMMMzMMMMzMMMMzMMMMz");
}

TEST_F(SizeChange, ClearsBeforeTheNextPictureThoughItComesInALaterChunk) {
    const VolHeader vol = {.width = 16, .height = 48};
    EXPECT_EQ(decoder.Process(Headers(vol)).status, 0xA2C0001E);
    BitWriter refused = Headers({.width = 16, .height = 48, .scalability = true});
    EXPECT_EQ(decoder.Process(refused).status, 0xA2C00017);
    EXPECT_EQ(decoder.Process(NotCoded(vol)).status, 0xA2C00017);
    ASSERT_EQ(decoder.Process(FlatIntra(vol, kBlue)).status, 0u);
    EXPECT_EQ(Records(), "---zzMzMzMz--------------");
}

TEST_F(SizeChange, ClearsOnlyOnce) {
    const VolHeader vol = {.width = 16, .height = 48};
    ASSERT_EQ(decoder.Process(FlatIntra(vol, kBlue)).status, 0u);
    memset(decoder.ctx().ptMbInfo - 1, 0x77, sizeof(MbInfo));  // in the spare row above
    memset(decoder.ctx().ptMbInfo + 1, 0x77, sizeof(MbInfo));  // the spare record behind the first row
    ASSERT_EQ(decoder.Process(FlatIntra(vol, kBlue)).status, 0u);
    EXPECT_EQ(Records(), "---z-M-MzMz--------------");
}

TEST_F(SizeChange, DecodesAndRepeatsPicturesOfTheNewSize) {
    const VolHeader vol = {.width = 48, .height = 16};
    const std::vector<uint8_t> before = decoder.picture;
    ASSERT_EQ(decoder.Process(FlatIntra(vol, kBlue)).status, 0u);
    std::vector<uint8_t> expected = FlatPicture(48, 16, kBlue);
    expected.insert(expected.end(), before.begin() + static_cast<ptrdiff_t>(expected.size()), before.end());
    EXPECT_EQ(decoder.picture, expected);
    std::fill(decoder.picture.begin(), decoder.picture.begin() + 48 * 16 * 3 / 2, uint8_t{0});
    ASSERT_EQ(decoder.Process(NotCoded(vol)).status, 0u);
    EXPECT_EQ(decoder.picture, expected);
    ASSERT_EQ(decoder.Process(FlatIntra({.width = 64, .height = 64}, kRed)).status, 0u);
    EXPECT_EQ(decoder.picture, FlatPicture(64, 64, kRed));
}

TEST_F(SizeChange, ToOneBeyondTheOpenSizeIsRefusedAndChangesNothing) {
    const VolHeader vol = {.width = 64, .height = 64};
    EXPECT_EQ(decoder.Process(FlatIntra({.width = 80, .height = 16}, kBlue)).status, 0xA2C00021);
    EXPECT_EQ(decoder.ctx().u32Width, 64u);
    BitWriter bits = Headers(vol);
    PutNotCodedVop(bits, vol);
    ASSERT_EQ(decoder.Process(bits).status, 0u);
    EXPECT_EQ(decoder.picture, FlatPicture(64, 64, kRed));
}

// ---- Mp4vPreDecBs

class PreDecode : public testing::Test {
  protected:
    PreDecode() : decoder(64, 48) {}

    uint32_t Run(const BitWriter& bits) {
        const Chunk chunk(bits);
        in = {};
        in.pu8Buf = chunk.data();
        in.u32BufLen = chunk.size();
        return Mp4vPreDecBs(decoder.handle, &in, &width, &height);
    }

    TestDecoder decoder;
    Mp4vDecInArgs in = {};
    uint32_t width = kUntouched32;
    uint32_t height = kUntouched32;
};

TEST_F(PreDecode, ReturnsTheHeightAndStoresTheSize) {
    EXPECT_EQ(Run(FlatIntra({.width = 32, .height = 16}, kRed)), 16u);
    EXPECT_EQ(width, 32u);
    EXPECT_EQ(height, 16u);
}

TEST_F(PreDecode, DecodesNoVop) {
    const Planes before(decoder.ctx());
    EXPECT_EQ(Run(FlatIntra({.width = 64, .height = 48}, kRed)), 48u);
    EXPECT_EQ(Planes(decoder.ctx()), before);
    EXPECT_EQ(decoder.ctx().u32VopQuant, 0u) << "read the VOP header";
    EXPECT_EQ(BsShow(&decoder.ctx().tBs, 32), 0x000001B6u);
}

TEST_F(PreDecode, LetsTheSameChunkBeDecodedAfterwards) {
    const BitWriter bits = FlatIntra({.width = 64, .height = 48}, kRed);
    EXPECT_EQ(Run(bits), 48u);
    EXPECT_EQ(decoder.Process(bits).status, 0u);
    EXPECT_EQ(decoder.picture, FlatPicture(64, 48, kRed));
}

TEST_F(PreDecode, TellsTheOpenSizeWhenThereIsNoVol) {
    EXPECT_EQ(Run(FlatIntraAlone(kVol32, kRed)), 48u);
    EXPECT_EQ(width, 64u);
    EXPECT_EQ(height, 48u);
}

TEST_F(PreDecode, DoesNotConsultTheStatusOfEarlierHeaders) {
    EXPECT_EQ(Run(FlatIntra({.type_indication = 2}, kRed)), 0xA2C0000F);
    EXPECT_EQ(decoder.ctx().u32HeaderStatus, 0xA2C0000F);
    EXPECT_EQ(Run(FlatIntraAlone(kVol32, kRed)), 48u);
}

TEST_F(PreDecode, ReturnsTheErrorAndLeavesTheOutputsAlone) {
    EXPECT_EQ(Run(FlatIntra({.width = 80, .height = 16}, kRed)), 0xA2C00021);
    EXPECT_EQ(Run(Headers(kVol32)), 0xA2C0001E);
    EXPECT_EQ(width, kUntouched32);
    EXPECT_EQ(height, kUntouched32);
}

TEST_F(PreDecode, RefusesNullPointers) {
    const Chunk chunk(FlatIntra(kVol32, kRed));
    in.u32BufLen = chunk.size();
    EXPECT_EQ(Mp4vPreDecBs(decoder.handle, &in, &width, &height), 0xA2C00002);
    in.pu8Buf = chunk.data();
    EXPECT_EQ(Mp4vPreDecBs(nullptr, &in, &width, &height), 0xA2C00002);
    EXPECT_EQ(Mp4vPreDecBs(decoder.handle, nullptr, &width, &height), 0xA2C00002);
    EXPECT_EQ(Mp4vPreDecBs(decoder.handle, &in, nullptr, &height), 0xA2C00002);
    EXPECT_EQ(Mp4vPreDecBs(decoder.handle, &in, &width, nullptr), 0xA2C00002);
    EXPECT_EQ(width, kUntouched32);
    EXPECT_EQ(height, kUntouched32);
}

TEST_F(PreDecode, FindsNothingInAnEmptyChunk) {
    EXPECT_EQ(Run(BitWriter()), 0xA2C0001E);
    EXPECT_EQ(width, kUntouched32);
}

TEST_F(PreDecode, LooksAtNeitherTimeStampNorEndOfStream) {
    const Chunk chunk(FlatIntra(kVol32, kRed));
    in = {chunk.data(), chunk.size(), 5, 1, 0xFFFFFFFF};
    EXPECT_EQ(Mp4vPreDecBs(decoder.handle, &in, &width, &height), 32u);
}

}  // namespace
}  // namespace mp4v::test
