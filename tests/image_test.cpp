// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

// The frame store and its borders.
#include "c/image.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <random>
#include <span>
#include <utility>
#include <vector>

#include "common/kernels.h"
#include "support/test_decoder.h"

namespace mp4v::test {
namespace {

constexpr char kImageFile[] = "../source/c/image.cpp";

// An instance that has nothing but a size and a memory service.
class FrameStore : public testing::Test {
  protected:
    FrameStore() {
        memory.FillNewBlocksWith(0xCD);
        memory.Record(true);
        ctx.pMemCtx = &memory;
        SetSize(176, 144);
    }
    ~FrameStore() override { VopDecRelease(&ctx); }

    void SetSize(uint32_t width, uint32_t height) {
        ctx.u32MbWidth = (width + 15) / 16;
        ctx.u32MbHeight = (height + 15) / 16;
        ctx.u32LumaStride = ctx.u32MbWidth * 16 + 64;
        ctx.u32PaddedHeight = ctx.u32MbHeight * 16 + 64;
    }

    MemoryService memory;
    Mp4vDecCtx ctx{};
};

TEST_F(FrameStore, AllocatesAFrameWithItsBorder) {
    ASSERT_EQ(VopDecCreate(&ctx.tCurFrame, &ctx), 0u);
    ASSERT_EQ(memory.calls().size(), 1u);
    const MemoryCall call = memory.calls()[0];
    EXPECT_EQ(call.kind, MemoryCall::Kind::kAllocate);
    EXPECT_EQ(call.size, 74880u);
    EXPECT_EQ(call.alignment, 16u);
    EXPECT_EQ(call.tag, -36);
    EXPECT_EQ(call.file, kImageFile);
    EXPECT_EQ(call.line, 49);
    EXPECT_EQ(call.block, ctx.tCurFrame.pu8Base);
}

TEST_F(FrameStore, LaysThePlanesOfAFrameOneBehindTheOther) {
    ASSERT_EQ(VopDecCreate(&ctx.tCurFrame, &ctx), 0u);
    EXPECT_EQ(ctx.tCurFrame.pu8Y - ctx.tCurFrame.pu8Base, 7712);
    EXPECT_EQ(ctx.tCurFrame.pu8U - ctx.tCurFrame.pu8Base, 51856);
    EXPECT_EQ(ctx.tCurFrame.pu8V - ctx.tCurFrame.pu8Base, 64336);
}

TEST_F(FrameStore, ZeroesANewFrame) {
    ASSERT_EQ(VopDecCreate(&ctx.tCurFrame, &ctx), 0u);
    EXPECT_TRUE(std::all_of(ctx.tCurFrame.pu8Base, ctx.tCurFrame.pu8Base + 74880, [](uint8_t b) { return b == 0; }));
}

TEST_F(FrameStore, KeepsAListOfItsAllocations) {
    ASSERT_EQ(VopDecCreate(&ctx.tCurFrame, &ctx), 0u);
    EXPECT_EQ(ctx.s16FrameAllocCount, 1);
    ASSERT_EQ(VopDecCreate(&ctx.tRefFrame, &ctx), 0u);
    EXPECT_EQ(ctx.s16FrameAllocCount, 2);
    EXPECT_EQ(ctx.apFrameAllocs[0], ctx.tCurFrame.pu8Base);
    EXPECT_EQ(ctx.apFrameAllocs[1], ctx.tRefFrame.pu8Base);
    for (int i = 2; i < 6; i++) EXPECT_EQ(ctx.apFrameAllocs[i], nullptr);
}

TEST_F(FrameStore, FreesAllFramesWhenOneCannotBeAllocated) {
    ASSERT_EQ(VopDecCreate(&ctx.tCurFrame, &ctx), 0u);
    memory.ClearCalls();
    memory.FailAllocation(1);
    EXPECT_EQ(VopDecCreate(&ctx.tRefFrame, &ctx), 0xA2C00008);
    ASSERT_EQ(memory.calls().size(), 2u);
    const MemoryCall freed = memory.calls()[1];
    EXPECT_EQ(freed.block, ctx.tCurFrame.pu8Base);
    EXPECT_EQ(freed.tag, -38);
    EXPECT_EQ(freed.file, kImageFile);
    EXPECT_EQ(freed.line, 59);
    EXPECT_EQ(ctx.s16FrameAllocCount, 1) << "the count stays";
    EXPECT_EQ(memory.live_blocks(), 0u);
}

TEST_F(FrameStore, DoesNotFreeAgainWhatAFailureHasFreed) {
    ASSERT_EQ(VopDecCreate(&ctx.tCurFrame, &ctx), 0u);
    memory.FailAllocation(1);
    ASSERT_NE(VopDecCreate(&ctx.tRefFrame, &ctx), 0u);
    memory.ClearCalls();
    VopDecRelease(&ctx);
    EXPECT_TRUE(memory.calls().empty());
    EXPECT_TRUE(memory.bad_frees().empty());
}

TEST_F(FrameStore, FreesNothingWhenTheFirstFrameCannotBeAllocated) {
    memory.FailAllocation(1);
    EXPECT_EQ(VopDecCreate(&ctx.tCurFrame, &ctx), 0xA2C00008);
    EXPECT_EQ(memory.calls().size(), 1u);
    EXPECT_EQ(ctx.s16FrameAllocCount, 0);
}

TEST_F(FrameStore, AsksForNoFrameBeyond32Bits) {
    ctx.u32LumaStride = 0x10000;
    ctx.u32PaddedHeight = 0x10000;
    EXPECT_EQ(VopDecCreate(&ctx.tCurFrame, &ctx), 0xA2C00008);
    EXPECT_TRUE(memory.calls().empty());
}

TEST_F(FrameStore, ReleasesItsFramesButKeepsTheList) {
    ASSERT_EQ(VopDecCreate(&ctx.tCurFrame, &ctx), 0u);
    ASSERT_EQ(VopDecCreate(&ctx.tRefFrame, &ctx), 0u);
    memory.ClearCalls();
    VopDecRelease(&ctx);
    ASSERT_EQ(memory.calls().size(), 2u);
    for (size_t i = 0; i < 2; i++) {
        const MemoryCall call = memory.calls()[i];
        EXPECT_EQ(call.kind, MemoryCall::Kind::kFree);
        EXPECT_EQ(call.block, ctx.apFrameAllocs[i]);
        EXPECT_EQ(call.tag, -38);
        EXPECT_EQ(call.file, kImageFile);
        EXPECT_EQ(call.line, 141);
    }
    EXPECT_EQ(ctx.s16FrameAllocCount, 2);
    EXPECT_NE(ctx.apFrameAllocs[1], nullptr);
    ctx.s16FrameAllocCount = 0;
}

TEST_F(FrameStore, ReleasesOnlyAsManyFramesAsItCounts) {
    ASSERT_EQ(VopDecCreate(&ctx.tCurFrame, &ctx), 0u);
    ASSERT_EQ(VopDecCreate(&ctx.tRefFrame, &ctx), 0u);
    ctx.s16FrameAllocCount = 1;
    VopDecRelease(&ctx);
    EXPECT_EQ(memory.live_blocks(), 1u);
    std::swap(ctx.apFrameAllocs[0], ctx.apFrameAllocs[1]);
}

TEST_F(FrameStore, SkipsEmptyEntriesWhenItReleases) {
    ctx.s16FrameAllocCount = 6;
    VopDecRelease(&ctx);
    EXPECT_TRUE(memory.calls().empty());
}

TEST_F(FrameStore, LaysAnExistingFrameOutForAnotherSize) {
    constexpr uint32_t kSizes[][2] = {{176, 144}, {160, 128}, {1, 1},   {0, 0},    {15, 17},
                                      {16, 16},   {120, 90},  {175, 8}, {64, 143}, {176, 0}};
    ASSERT_EQ(VopDecCreate(&ctx.tCurFrame, &ctx), 0u);
    uint8_t* const base = ctx.tCurFrame.pu8Base;
    memory.ClearCalls();
    for (const auto& [width, height] : kSizes) {
        SCOPED_TRACE(testing::Message() << width << " x " << height);
        VopDecReset(&ctx.tCurFrame, &ctx, width, height);
        const uint32_t columns = (width + 15) / 16, rows = (height + 15) / 16;
        const ptrdiff_t pitch = columns * 16 + 64, lines = rows * 16 + 64;
        EXPECT_EQ(ctx.u32MbWidth, columns);
        EXPECT_EQ(ctx.u32MbHeight, rows);
        EXPECT_EQ(ctx.u32LumaStride, static_cast<uint32_t>(pitch));
        EXPECT_EQ(ctx.u32PaddedHeight, static_cast<uint32_t>(lines));
        EXPECT_EQ(ctx.tCurFrame.pu8Base, base);
        EXPECT_EQ(ctx.tCurFrame.pu8Y - base, 32 * pitch + 32);
        EXPECT_EQ(ctx.tCurFrame.pu8U - base, pitch * lines + 16 * (pitch / 2) + 16);
        EXPECT_EQ(ctx.tCurFrame.pu8V - ctx.tCurFrame.pu8U, pitch / 2 * (lines / 2));
    }
    EXPECT_TRUE(memory.calls().empty());
}

TEST_F(FrameStore, KeepsTheSamplesWhenItLaysAFrameOut) {
    ASSERT_EQ(VopDecCreate(&ctx.tCurFrame, &ctx), 0u);
    memset(ctx.tCurFrame.pu8Base, 0x5A, 74880);
    VopDecReset(&ctx.tCurFrame, &ctx, 32, 32);
    EXPECT_TRUE(std::all_of(ctx.tCurFrame.pu8Base, ctx.tCurFrame.pu8Base + 74880, [](uint8_t b) { return b == 0x5A; }));
}

// ---- Borders

struct PlaneView {
    const uint8_t* start;
    ptrdiff_t pitch, width, height, border;

    uint8_t At(ptrdiff_t x, ptrdiff_t y) const { return start[y * pitch + x]; }
};

class Borders : public FrameStore {
  protected:
    void Create(uint32_t width, uint32_t height, unsigned seed) {
        SetSize(width, height);
        ASSERT_EQ(VopDecCreate(&ctx.tRefFrame, &ctx), 0u);
        std::mt19937 rng(seed);
        for (uint8_t& sample : Allocation()) sample = static_cast<uint8_t>(rng());
    }

    size_t Bytes() const { return size_t{ctx.u32LumaStride} * ctx.u32PaddedHeight * 3 / 2; }
    std::span<uint8_t> Allocation() const { return {ctx.tRefFrame.pu8Base, Bytes()}; }

    std::array<PlaneView, 3> Planes(const VopFrame& frame) const {
        const ptrdiff_t pitch = ctx.u32LumaStride, width = ctx.u32MbWidth * 16, height = ctx.u32MbHeight * 16;
        return {PlaneView{frame.pu8Y, pitch, width, height, 32},
                PlaneView{frame.pu8U, pitch / 2, width / 2, height / 2, 16},
                PlaneView{frame.pu8V, pitch / 2, width / 2, height / 2, 16}};
    }

    // Every sample of plane and border is that of the nearest place inside the plane as it was before.
    void ExpectExtended(const std::vector<uint8_t>& before) const {
        for (const PlaneView& plane : Planes(ctx.tRefFrame)) {
            const uint8_t* const old = before.data() + (plane.start - ctx.tRefFrame.pu8Base);
            for (ptrdiff_t y = -plane.border; y < plane.height + plane.border; y++) {
                for (ptrdiff_t x = -plane.border; x < plane.width + plane.border; x++) {
                    const ptrdiff_t from_x = std::clamp<ptrdiff_t>(x, 0, plane.width - 1);
                    const ptrdiff_t from_y = std::clamp<ptrdiff_t>(y, 0, plane.height - 1);
                    ASSERT_EQ(plane.At(x, y), old[from_y * plane.pitch + from_x]) << x << ", " << y;
                }
            }
        }
    }
};

TEST_F(Borders, RepeatTheNearestSampleOfThePlane) {
    unsigned seed = 0;
    for (const auto& [width, height] : {std::pair{16u, 16u}, {176u, 144u}, {16u, 64u}, {64u, 16u}, {48u, 48u}}) {
        SCOPED_TRACE(testing::Message() << width << " x " << height);
        Create(width, height, ++seed);
        const std::vector<uint8_t> before(Allocation().begin(), Allocation().end());
        VopEdgeExpand(&ctx, &ctx.tRefFrame);
        ExpectExtended(before);
    }
}

TEST_F(Borders, TakeTheirCornersFromThePicture) {
    Create(176, 144, 1);
    uint8_t* const luma = ctx.tRefFrame.pu8Y;
    luma[0] = 10;
    luma[175] = 20;
    luma[143 * 240] = 30;
    luma[143 * 240 + 175] = 40;
    VopEdgeExpand(&ctx, &ctx.tRefFrame);
    EXPECT_EQ(luma[-32 * 240 - 32], 10);
    EXPECT_EQ(luma[-32 * 240 + 207], 20);
    EXPECT_EQ(luma[175 * 240 - 32], 30);
    EXPECT_EQ(luma[175 * 240 + 207], 40);
    EXPECT_EQ(ctx.tRefFrame.pu8Base[0], 10);
    EXPECT_EQ(ctx.tRefFrame.pu8Base[240 * 208 - 1], 40);
}

// The macroblocks reach beyond a width of 20, and so does what is decoded.
TEST_F(Borders, BeginBehindTheLastMacroblockNotBehindTheWidth) {
    Create(64, 64, 2);
    VopDecReset(&ctx.tRefFrame, &ctx, 20, 18);
    ctx.u32Width = 20;
    ctx.u32Height = 18;
    const std::vector<uint8_t> before(Allocation().begin(), Allocation().end());
    ctx.tRefFrame.pu8Y[19] = 100;
    ctx.tRefFrame.pu8Y[31] = 200;
    VopEdgeExpand(&ctx, &ctx.tRefFrame);
    EXPECT_EQ(ctx.tRefFrame.pu8Y[32], 200);
    EXPECT_EQ(ctx.tRefFrame.pu8Y[63], 200);
    EXPECT_EQ(ctx.tRefFrame.pu8Y[-32 * 96 + 63], 200);
    EXPECT_EQ(ctx.tRefFrame.pu8Y[19], 100);
    EXPECT_EQ(ctx.tRefFrame.pu8Y[20], before[static_cast<size_t>(ctx.tRefFrame.pu8Y + 20 - ctx.tRefFrame.pu8Base)]);
}

TEST_F(Borders, BelongToThePlanesWhereverTheseLie) {
    Create(32, 32, 3);
    VopFrame other = ctx.tRefFrame;
    other.pu8Base = nullptr;  // the planes of this frame lie in another one's allocation
    const std::vector<uint8_t> before(Allocation().begin(), Allocation().end());
    VopEdgeExpand(&ctx, &other);
    ExpectExtended(before);
}

TEST_F(Borders, OfAPictureWithoutSamplesStayInsideTheAllocation) {
    for (const auto& [width, height] : {std::pair{0u, 0u}, {16u, 0u}, {0u, 16u}}) {
        Create(width, height, 4);
        VopEdgeExpand(&ctx, &ctx.tRefFrame);
    }
}

// The left border is filled first, so what lies behind it has the sample that the right one repeats.
TEST_F(Borders, OfAPictureWithoutColumnsRepeatTheSampleBehindTheLeftOne) {
    Create(0, 16, 7);
    const std::vector<uint8_t> before(Allocation().begin(), Allocation().end());
    VopEdgeExpand(&ctx, &ctx.tRefFrame);
    for (const PlaneView& plane : Planes(ctx.tRefFrame)) {
        const uint8_t* const old = before.data() + (plane.start - ctx.tRefFrame.pu8Base);
        for (ptrdiff_t y = -plane.border; y < plane.height + plane.border; y++) {
            const uint8_t expected = old[std::clamp<ptrdiff_t>(y, 0, plane.height - 1) * plane.pitch];
            for (ptrdiff_t x = -plane.border; x < plane.border; x++)
                ASSERT_EQ(plane.At(x, y), expected) << x << ", " << y;
        }
    }
}

struct KernelCall {
    const void* dst;
    uint32_t bytes;
};
std::vector<KernelCall> g_luma_sets, g_chroma_sets, g_luma_copies, g_chroma_copies;

void RecordLumaSet(void* dst, uint32_t value, uint32_t bytes) {
    g_luma_sets.push_back({dst, bytes});
    MP4DecMemSet_c(dst, value, bytes);
}
void RecordChromaSet(void* dst, uint32_t value, uint32_t bytes) {
    g_chroma_sets.push_back({dst, bytes});
    MP4DecMemSet_c(dst, value, bytes);
}
void RecordLumaCopy(void* dst, const void* src, uint32_t bytes) {
    g_luma_copies.push_back({dst, bytes});
    MP4DecMemCopy_c(dst, src, bytes);
}
void RecordChromaCopy(void* dst, const void* src, uint32_t bytes) {
    g_chroma_copies.push_back({dst, bytes});
    MP4DecMemCopy_c(dst, src, bytes);
}

TEST_F(Borders, AreWrittenThroughTheKernelVariables) {
    Create(48, 32, 5);
    for (auto* calls : {&g_luma_sets, &g_chroma_sets, &g_luma_copies, &g_chroma_copies}) calls->clear();
    const Redirect luma_set(MemSetAlign16, &RecordLumaSet);
    const Redirect chroma_set(MemSet16, &RecordChromaSet);
    const Redirect luma_copy(MemCopyAlign16, &RecordLumaCopy);
    const Redirect chroma_copy(MemCopy8, &RecordChromaCopy);
    const std::vector<uint8_t> before(Allocation().begin(), Allocation().end());
    VopEdgeExpand(&ctx, &ctx.tRefFrame);
    ExpectExtended(before);
    const auto all = [](const std::vector<KernelCall>& calls, uint32_t bytes) {
        return std::all_of(calls.begin(), calls.end(), [bytes](const KernelCall& call) { return call.bytes == bytes; });
    };
    EXPECT_EQ(g_luma_sets.size(), 2u * 32);
    EXPECT_TRUE(all(g_luma_sets, 32));
    EXPECT_EQ(g_chroma_sets.size(), 2u * 2 * 16);
    EXPECT_TRUE(all(g_chroma_sets, 16));
    EXPECT_EQ(g_luma_copies.size(), 2u * 32);
    EXPECT_TRUE(all(g_luma_copies, 112));
    EXPECT_EQ(g_chroma_copies.size(), 2u * 2 * 16);
    EXPECT_TRUE(all(g_chroma_copies, 56));
}

TEST_F(Borders, AreWrittenThroughASingleOtherKernel) {
    const auto check = [this](const std::vector<KernelCall>& calls, size_t count) {
        const std::vector<uint8_t> before(Allocation().begin(), Allocation().end());
        VopEdgeExpand(&ctx, &ctx.tRefFrame);
        ExpectExtended(before);
        EXPECT_EQ(calls.size(), count);
    };
    Create(48, 32, 6);
    for (auto* calls : {&g_luma_sets, &g_chroma_sets, &g_luma_copies, &g_chroma_copies}) calls->clear();
    {
        const Redirect luma_set(MemSetAlign16, &RecordLumaSet);
        check(g_luma_sets, 64);
    }
    {
        const Redirect chroma_set(MemSet16, &RecordChromaSet);
        check(g_chroma_sets, 64);
    }
    {
        const Redirect luma_copy(MemCopyAlign16, &RecordLumaCopy);
        check(g_luma_copies, 64);
    }
    const Redirect chroma_copy(MemCopy8, &RecordChromaCopy);
    check(g_chroma_copies, 64);
}

// ---- When borders are extended

int g_expansions;
void CountCopies(void* dst, const void* src, uint32_t bytes) {
    g_expansions++;
    MP4DecMemCopy_c(dst, src, bytes);
}

TEST(BorderExtension, HappensForPredictedPicturesOnly) {
    TestDecoder decoder(32, 32);
    const Redirect redirect(MemCopyAlign16, &CountCopies);
    g_expansions = 0;
    ASSERT_EQ(decoder.Process(FlatIntra({}, {50, 60, 70})).status, 0u);
    ASSERT_EQ(decoder.Process(NotCoded({})).status, 0u);
    EXPECT_EQ(g_expansions, 0);
    ASSERT_EQ(decoder.Process(SkippedPredicted({})).status, 0u);
    EXPECT_EQ(g_expansions, 64);
}

TEST(BorderExtension, WorksOnTheReferencePicture) {
    TestDecoder decoder(32, 32);
    ASSERT_EQ(decoder.Process(FlatIntra({}, {50, 60, 70})).status, 0u);
    const uint8_t* const reference = decoder.ctx().tRefFrame.pu8Y;
    const uint8_t* const current = decoder.ctx().tCurFrame.pu8Y;
    ASSERT_EQ(decoder.Process(SkippedPredicted({})).status, 0u);
    EXPECT_EQ(reference[-1], 50);
    EXPECT_EQ(current[-1], 0);
}

}  // namespace
}  // namespace mp4v::test
