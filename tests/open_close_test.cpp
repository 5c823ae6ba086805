// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

// Mp4vDecoderOpen and Mp4vDecoderClose: what they allocate and free, and what an instance looks like when it is new.
#include <gtest/gtest.h>

#include <algorithm>
#include <ostream>
#include <string>

#include "common/kernels.h"
#include "mp4vdec.h"
#include "support/low_memory.h"
#include "support/test_decoder.h"

namespace mp4v::test {
namespace {

constexpr char kDecoderFile[] = "../source/common/decoder.cpp";
constexpr char kImageFile[] = "../source/c/image.cpp";

uint32_t Open(void** handle, uint32_t width, uint32_t height, MemoryService* memory, uint32_t ext_param = 0) {
    const Mp4vDecOpenParams params = {{0xFFFFFFFF, 0xFFFFFFFF}, width, height, ext_param};
    return Mp4vDecoderOpen(handle, &params, memory);
}

// A call of the memory service as a test writes it down.
struct Call {
    size_t size;  // of a free: the size of the block
    int32_t tag;
    std::string file;
    int32_t line;

    bool operator==(const Call&) const = default;
    friend std::ostream& operator<<(std::ostream& out, const Call& call) {
        return out << call.size << " bytes, tag " << call.tag << ", " << call.file << ":" << call.line;
    }
};

std::vector<Call> Calls(const MemoryService& memory, MemoryCall::Kind kind) {
    std::vector<Call> calls;
    for (const MemoryCall& call : memory.calls()) {
        if (call.kind == kind) calls.push_back({call.size, call.tag, call.file, call.line});
    }
    return calls;
}

std::vector<Call> Allocations(const MemoryService& memory) {
    return Calls(memory, MemoryCall::Kind::kAllocate);
}

std::vector<Call> Frees(const MemoryService& memory) {
    return Calls(memory, MemoryCall::Kind::kFree);
}

// For 176 x 144: frames of 240 x 208 x 3 / 2 bytes, 12 x 10 macroblock records of 236 bytes.
constexpr size_t kFrameBytes = 74880;
constexpr size_t kMbInfoBytes = 28320;
const Call kInstance = {sizeof(Mp4vDecCtx), -38, kDecoderFile, 312};
const Call kQpelBuf = {512, -36, kDecoderFile, 325};
const Call kFrame = {kFrameBytes, -36, kImageFile, 49};
const Call kMbInfo = {kMbInfoBytes, -36, kDecoderFile, 375};
const Call kWorkBuf512 = {512, -36, kDecoderFile, 388};
const Call kWorkBuf128A = {128, -36, kDecoderFile, 396};
const Call kWorkBuf128B = {128, -36, kDecoderFile, 404};

TEST(Mp4vDecoderOpen, RefusesNullArguments) {
    MemoryService memory;
    memory.Record(true);
    int stale = 0;
    void* handle = &stale;
    const Mp4vDecOpenParams params = {{0, 0}, 16, 16, 0};
    EXPECT_EQ(Mp4vDecoderOpen(nullptr, &params, &memory), 0xA2C00001);
    EXPECT_EQ(Mp4vDecoderOpen(&handle, nullptr, &memory), 0xA2C00001);
    EXPECT_EQ(Mp4vDecoderOpen(&handle, &params, nullptr), 0xA2C00001);
    EXPECT_EQ(Mp4vDecoderOpen(nullptr, nullptr, nullptr), 0xA2C00001);
    EXPECT_EQ(handle, &stale);
    EXPECT_TRUE(memory.calls().empty());
}

TEST(Mp4vDecoderOpen, LooksForNullArgumentsBeforeTheSize) {
    const Mp4vDecOpenParams params = {{0, 0}, 17, 17, 0};
    void* handle = nullptr;
    EXPECT_EQ(Mp4vDecoderOpen(&handle, &params, nullptr), 0xA2C00001);
}

TEST(Mp4vDecoderOpen, RefusesAWidthThatIsNotAMultipleOf16) {
    for (const uint32_t width : {1u, 8u, 15u, 17u, 24u, 1080u, 1919u, 0xFFFFFFFFu, 0xFFFFFFF8u}) {
        MemoryService memory;
        memory.Record(true);
        int stale = 0;
        void* handle = &stale;
        EXPECT_EQ(Open(&handle, width, 16, &memory), 0xA2C00022) << width;
        EXPECT_EQ(handle, &stale);
        EXPECT_TRUE(memory.calls().empty());
    }
}

TEST(Mp4vDecoderOpen, RefusesAHeightThatIsNotAMultipleOf8) {
    for (const uint32_t height : {1u, 4u, 7u, 9u, 20u, 1081u, 0xFFFFFFFFu, 0xFFFFFFF4u}) {
        MemoryService memory;
        void* handle = nullptr;
        EXPECT_EQ(Open(&handle, 16, height, &memory), 0xA2C00022) << height;
        EXPECT_EQ(memory.allocations(), 0u);
    }
}

TEST(Mp4vDecoderOpen, AcceptsAHeightOf1080) {
    TestDecoder decoder(1920, 1080);
    EXPECT_EQ(decoder.ctx().u32MbHeight, 68u);
    EXPECT_EQ(decoder.ctx().u32PaddedHeight, 72u * 16);
}

TEST(Mp4vDecoderOpen, AllocatesInAFixedOrder) {
    MemoryService memory;
    memory.Record(true);
    void* handle = nullptr;
    ASSERT_EQ(Open(&handle, 176, 144, &memory), 0u);
    EXPECT_EQ(Allocations(memory), (std::vector<Call>{kInstance, kQpelBuf, kFrame, kFrame, kMbInfo, kWorkBuf512,
                                                      kWorkBuf128A, kWorkBuf128B}));
    EXPECT_TRUE(Frees(memory).empty());
    for (const MemoryCall& call : memory.calls()) EXPECT_EQ(call.alignment, 16u);
    Mp4vDecoderClose(handle);
}

TEST(Mp4vDecoderOpen, KeepsWhatItWasGivenWhereItBelongs) {
    MemoryService memory;
    memory.Record(true);
    void* handle = nullptr;
    ASSERT_EQ(Open(&handle, 176, 144, &memory), 0u);
    const std::vector<MemoryCall> calls = memory.calls();
    const auto& ctx = *static_cast<Mp4vDecCtx*>(handle);
    EXPECT_EQ(handle, calls[0].block);
    EXPECT_EQ(ctx.pu8QpelBuf, calls[1].block);
    EXPECT_EQ(ctx.tCurFrame.pu8Base, calls[2].block);
    EXPECT_EQ(ctx.tRefFrame.pu8Base, calls[3].block);
    EXPECT_EQ(ctx.apFrameAllocs[0], calls[2].block);
    EXPECT_EQ(ctx.apFrameAllocs[1], calls[3].block);
    EXPECT_EQ(ctx.ptMbInfo, static_cast<MbInfo*>(calls[4].block) + 12) << "a spare row above the picture";
    EXPECT_EQ(ctx.pu8WorkBuf512, calls[5].block);
    EXPECT_EQ(ctx.pu8WorkBuf128A, calls[6].block);
    EXPECT_EQ(ctx.pu8WorkBuf128B, calls[7].block);
    Mp4vDecoderClose(handle);
}

TEST(Mp4vDecoderOpen, SetsTheGeometryFromTheOpenSize) {
    TestDecoder decoder(176, 136);
    const Mp4vDecCtx& ctx = decoder.ctx();
    EXPECT_EQ(ctx.u32Width, 176u);
    EXPECT_EQ(ctx.u32Height, 136u);
    EXPECT_EQ(ctx.u32OpenWidth, 176u);
    EXPECT_EQ(ctx.u32OpenHeight, 136u);
    EXPECT_EQ(ctx.u32LumaStride, 240u);
    EXPECT_EQ(ctx.u32PaddedHeight, 208u);
    EXPECT_EQ(ctx.u32MbWidth, 11u);
    EXPECT_EQ(ctx.u32MbHeight, 9u);
}

TEST(Mp4vDecoderOpen, SetsTheStateBeforeTheFirstHeader) {
    TestDecoder decoder(176, 144);
    const Mp4vDecCtx& ctx = decoder.ctx();
    EXPECT_EQ(ctx.s32VopTimeIncr, -1);
    EXPECT_EQ(static_cast<uint32_t>(ctx.s32PrevVopTimeIncr), 0xFFFFFFFF);
    EXPECT_EQ(ctx.u32HeaderStatus, 0xA2C00023);
    EXPECT_EQ(ctx.s16FrameAllocCount, 2);
    EXPECT_EQ(ctx.pMemCtx, &decoder.memory);
    EXPECT_EQ(ctx.s32DeblockQpThr, 10);
}

// The memory service hands out memory full of 0xCD here.
TEST(Mp4vDecoderOpen, ZeroesEverythingElseInTheInstance) {
    TestDecoder decoder(176, 144);
    Mp4vDecCtx& ctx = decoder.ctx();
    std::vector<uint8_t> bytes(sizeof ctx);
    memcpy(bytes.data(), &ctx, sizeof ctx);
    const auto clear = [&](const auto& member) {
        const auto offset = reinterpret_cast<const uint8_t*>(&member) - reinterpret_cast<const uint8_t*>(&ctx);
        std::fill_n(bytes.begin() + offset, sizeof member, uint8_t{0});
    };
    clear(ctx.apFrameAllocs[0]);
    clear(ctx.apFrameAllocs[1]);
    clear(ctx.s16FrameAllocCount);
    clear(ctx.tCurFrame);
    clear(ctx.tRefFrame);
    clear(ctx.ptMbInfo);
    clear(ctx.pu8QpelBuf);
    clear(ctx.u32Width);
    clear(ctx.u32Height);
    clear(ctx.u32LumaStride);
    clear(ctx.u32PaddedHeight);
    clear(ctx.u32MbWidth);
    clear(ctx.u32MbHeight);
    clear(ctx.u32OpenWidth);
    clear(ctx.u32OpenHeight);
    clear(ctx.u32HeaderStatus);
    clear(ctx.s32VopTimeIncr);
    clear(ctx.s32PrevVopTimeIncr);
    clear(ctx.s32DeblockQpThr);
    clear(ctx.pu8WorkBuf512);
    clear(ctx.pu8WorkBuf128A);
    clear(ctx.pu8WorkBuf128B);
    clear(ctx.pMemCtx);
    EXPECT_EQ(bytes, std::vector<uint8_t>(sizeof ctx, 0));
}

TEST(Mp4vDecoderOpen, ZeroesFramesMacroblockRecordsAndPostProcessingScratch) {
    TestDecoder decoder(176, 144);
    const Mp4vDecCtx& ctx = decoder.ctx();
    const auto zero = [](const void* start, size_t size) {
        const auto* const bytes = static_cast<const uint8_t*>(start);
        return std::all_of(bytes, bytes + size, [](uint8_t byte) { return byte == 0; });
    };
    EXPECT_TRUE(zero(ctx.tCurFrame.pu8Base, kFrameBytes));
    EXPECT_TRUE(zero(ctx.tRefFrame.pu8Base, kFrameBytes));
    EXPECT_TRUE(zero(ctx.ptMbInfo - 12, kMbInfoBytes));
    EXPECT_TRUE(zero(ctx.pu8WorkBuf512, 512));
    EXPECT_TRUE(zero(ctx.pu8WorkBuf128A, 128));
    EXPECT_TRUE(zero(ctx.pu8WorkBuf128B, 128));
}

TEST(Mp4vDecoderOpen, FillsTheClippingTable) {
    TestDecoder decoder(16, 16);
    for (int k = -512; k < 512; k++) ASSERT_EQ(g_ps16Clp[k], std::clamp(k, -256, 255)) << k;
}

// ---- Failing allocations

struct Failure {
    size_t allocation;
    uint32_t status;
    std::vector<Call> frees;
};

std::ostream& operator<<(std::ostream& out, const Failure& failure) {
    return out << "allocation " << failure.allocation;
}

Call Freed(size_t size, int32_t line, const char* file = kDecoderFile) {
    return {size, -38, file, line};
}

const Call kFreedFrame = Freed(kFrameBytes, 141, kImageFile);
const Call kFreedInstance = Freed(sizeof(Mp4vDecCtx), 471);

class FailingAllocation : public testing::TestWithParam<Failure> {};

TEST_P(FailingAllocation, IsReportedAndEverythingIsFreedOnce) {
    MemoryService memory;
    memory.Record(true);
    memory.FillNewBlocksWith(0xCD);
    memory.FailAllocation(GetParam().allocation);
    int stale = 0;
    void* handle = &stale;
    // The extension record is at no address: nothing must look at it.
    EXPECT_EQ(Open(&handle, 176, 144, &memory, 4), GetParam().status);
    EXPECT_EQ(Frees(memory), GetParam().frees);
    EXPECT_EQ(memory.live_blocks(), 0u);
    EXPECT_TRUE(memory.bad_frees().empty());
    EXPECT_EQ(Allocations(memory).size(), GetParam().allocation) << "went on after the failure";
    EXPECT_EQ(handle, GetParam().allocation < 3 ? &stale : nullptr);
}

std::string NameOf(const testing::TestParamInfo<Failure>& info) {
    return "Allocation" + std::to_string(info.param.allocation);
}

INSTANTIATE_TEST_SUITE_P(
    Open, FailingAllocation,
    testing::Values(
        Failure{1, 0xA2C00007, {}},  //
        Failure{2, 0xA2C0000D, {kFreedInstance}}, Failure{3, 0xA2C00009, {Freed(512, 453), kFreedInstance}},
        Failure{4, 0xA2C0000A, {Freed(kFrameBytes, 59, kImageFile), Freed(512, 453), kFreedInstance}},
        Failure{5, 0xA2C0000C, {kFreedFrame, kFreedFrame, Freed(512, 453), kFreedInstance}},
        Failure{6, 0xA2C0000C, {Freed(kMbInfoBytes, 446), kFreedFrame, kFreedFrame, Freed(512, 453), kFreedInstance}},
        Failure{7,
                0xA2C0000C,
                {Freed(kMbInfoBytes, 446), kFreedFrame, kFreedFrame, Freed(512, 453), Freed(512, 458), kFreedInstance}},
        Failure{8,
                0xA2C0000C,
                {Freed(kMbInfoBytes, 446), kFreedFrame, kFreedFrame, Freed(512, 453), Freed(512, 458), Freed(128, 463),
                 kFreedInstance}}),
    NameOf);

TEST(Mp4vDecoderOpen, SucceedsAgainAfterAFailure) {
    MemoryService memory;
    for (size_t n = 1; n <= 8; n++) {
        void* handle = nullptr;
        memory.FailAllocation(n);
        EXPECT_NE(Open(&handle, 16, 16, &memory), 0u);
        ASSERT_EQ(Open(&handle, 16, 16, &memory), 0u);
        EXPECT_EQ(Mp4vDecoderClose(handle), 0u);
    }
    EXPECT_EQ(memory.live_blocks(), 0u);
}

// Neither what was freed nor a record that is not reached any more leaves a trace in the next instance.
TEST(Mp4vDecoderOpen, DecodesAfterAFailureWithTheSameMemoryContext) {
    const VolHeader vol = {.width = 32, .height = 32};
    const std::vector<uint8_t> want = FlatPicture(32, 32, {50, 60, 70});
    LowMemory low;
    const uint32_t record = low.Record(103, 2);
    const std::vector<uint32_t> addresses = {0, record};
    const uint32_t list = low.List(addresses);
    for (const uint32_t ext_param : {0u, record, list}) {
        for (size_t n = 1; n <= 9; n++) {
            TestDecoder decoder(32, 32);
            ASSERT_EQ(decoder.Close(), 0u);
            void* handle = nullptr;
            if (n <= 8) {
                decoder.memory.FailAllocation(n);
                ASSERT_NE(Open(&handle, 32, 32, &decoder.memory, ext_param), 0u);
            } else {
                ASSERT_EQ(Open(&handle, 0xFFFFFFF0, 0xFFFFFFF8, &decoder.memory, ext_param), 0xA2C00009);
            }
            EXPECT_EQ(handle, nullptr);
            EXPECT_EQ(decoder.memory.live_blocks(), 0u);
            ASSERT_EQ(Open(&decoder.handle, 32, 32, &decoder.memory, ext_param), 0u);
            EXPECT_EQ(decoder.ctx().u32ForceDeinterlace, ext_param ? 1u : 0u);
            ASSERT_EQ(decoder.Process(FlatIntra(vol, {50, 60, 70})).status, 0u);
            EXPECT_EQ(decoder.picture, want) << "failure " << n;
            EXPECT_EQ(decoder.Close(), 0u);
            EXPECT_EQ(decoder.memory.live_blocks(), 0u);
            EXPECT_TRUE(decoder.memory.bad_frees().empty());
        }
    }
}

// With a record that can be read, too.
TEST_P(FailingAllocation, IsTheSameWithExtensionRecords) {
    LowMemory low;
    const std::vector<uint32_t> addresses = {low.Record(103, 2)};
    for (const uint32_t ext_param : {addresses[0], low.List(addresses)}) {
        MemoryService memory;
        memory.Record(true);
        memory.FailAllocation(GetParam().allocation);
        void* handle = nullptr;
        EXPECT_EQ(Open(&handle, 176, 144, &memory, ext_param), GetParam().status);
        EXPECT_EQ(Frees(memory), GetParam().frees);
        EXPECT_EQ(memory.live_blocks(), 0u);
        EXPECT_TRUE(memory.bad_frees().empty());
        EXPECT_EQ(handle, nullptr);
    }
}

// ---- Sizes beyond 32 bits

TEST(Mp4vDecoderOpen, CountsAFrameBeyond32BitsAsAFailedAllocation) {
    // Taken modulo 2^32 each of these would be a frame of a few megabytes at most, or of 2 GiB (65472 x 65472).
    for (const auto& [width, height] : {std::pair{16u, 0xFFFFFFF8u},
                                        {16u, 0xFFFFFFF0u},
                                        {0xFFFFFFF0u, 16u},
                                        {0xFFFFFFF0u, 0u},
                                        {0u, 0xFFFFFFF8u},
                                        {0xFFFFFFF0u, 0xFFFFFFF8u},
                                        {0xFFFFFFB0u, 0xFFFFFFB0u},
                                        {65472u, 65472u},
                                        {0x80000000u, 0x80000000u}}) {
        SCOPED_TRACE(testing::Message() << width << " x " << height);
        MemoryService memory;
        memory.Record(true);
        int stale = 0;
        void* handle = &stale;
        EXPECT_EQ(Open(&handle, width, height, &memory), 0xA2C00009);
        EXPECT_EQ(Allocations(memory), (std::vector<Call>{kInstance, kQpelBuf}));
        EXPECT_EQ(Frees(memory), (std::vector<Call>{Freed(512, 453), kFreedInstance}));
        EXPECT_EQ(memory.live_blocks(), 0u);
        EXPECT_EQ(handle, nullptr);
    }
}

// 16 * 268419075 by 16 * 89483946 samples with the border: three halves of it, taken modulo 2^64, are 10484992 bytes.
TEST(Mp4vDecoderOpen, CountsAFrameBeyond64BitsAsAFailedAllocation) {
    MemoryService memory;
    memory.Record(true);
    int stale = 0;
    void* handle = &stale;
    EXPECT_EQ(Open(&handle, 16 * (268419075u - 4), 16 * (89483946u - 4), &memory), 0xA2C00009);
    EXPECT_EQ(Allocations(memory), (std::vector<Call>{kInstance, kQpelBuf}));
    EXPECT_EQ(Frees(memory), (std::vector<Call>{Freed(512, 453), kFreedInstance}));
    EXPECT_EQ(memory.live_blocks(), 0u);
    EXPECT_EQ(handle, nullptr);
}

// Whether a frame of this many macroblocks with the border, 384 bytes each, fits 32 bits; without any product.
bool FrameFits(uint64_t columns, uint64_t rows) {
    return columns <= UINT32_MAX / 384 / rows;
}

// Around every power of two, and up to the largest sizes that are accepted.
TEST(Mp4vDecoderOpen, AsksForAFrameExactlyWhenItsSizeFits32Bits) {
    std::vector<uint32_t> sides = {0};
    for (unsigned bit = 4; bit < 32; bit++) {
        for (const uint32_t side : {(1u << bit) - 16, 1u << bit, (1u << bit) + 16, 3u << (bit - 1)}) {
            sides.push_back(side & ~15u);
        }
    }
    sides.push_back(0xFFFFFFF0);
    size_t asked = 0;
    for (const uint32_t width : sides) {
        for (const uint32_t height : sides) {
            MemoryService memory;
            memory.Record(true);
            memory.FailAllocation(3);
            void* handle = nullptr;
            const uint64_t columns = uint64_t{width} / 16 + 4;
            const uint64_t rows = uint64_t{height} / 16 + 4;
            ASSERT_EQ(Open(&handle, width, height, &memory), 0xA2C00009) << width << " x " << height;
            const std::vector<Call> calls = Allocations(memory);
            ASSERT_EQ(calls.size(), FrameFits(columns, rows) ? 3u : 2u) << width << " x " << height;
            if (calls.size() == 3) {
                EXPECT_EQ(calls[2].size, columns * rows * 384);
                asked++;
            }
            EXPECT_EQ(memory.live_blocks(), 0u);
            EXPECT_TRUE(memory.bad_frees().empty());
        }
    }
    EXPECT_GT(asked, sides.size());
    EXPECT_LT(asked, sides.size() * sides.size() / 2);
}

// A pitch of 64 bytes: 96 bytes for each row with its chroma. 44739232 rows with the border are the most that fit.
TEST(Mp4vDecoderOpen, AsksForTheLargestFrameThatFits32Bits) {
    MemoryService memory;
    memory.Record(true);
    memory.FailAllocation(3);
    void* handle = nullptr;
    EXPECT_EQ(Open(&handle, 0, 44739232 - 64, &memory), 0xA2C00009);
    ASSERT_EQ(Allocations(memory).size(), 3u);
    EXPECT_EQ(Allocations(memory)[2], (Call{4294966272, -36, kImageFile, 49}));
}

TEST(Mp4vDecoderOpen, DoesNotAskForAFrameOneRowOfMacroblocksLarger) {
    MemoryService memory;
    memory.Record(true);
    memory.FailAllocation(3);
    void* handle = nullptr;
    EXPECT_EQ(Open(&handle, 0, 44739232 - 64 + 8, &memory), 0xA2C00009);
    EXPECT_EQ(Allocations(memory).size(), 2u);
}

// ---- Extension records

struct Hint {
    uint32_t structure;
    uint32_t forced;
    bool operator==(const Hint&) const = default;
};

Hint HintAfterOpen(uint32_t ext_param) {
    TestDecoder decoder(16, 16, ext_param);
    return {decoder.ctx().u32PicStructHint, decoder.ctx().u32ForceDeinterlace};
}

TEST(ExtensionRecord, OfTwoForcesStackedFields) {
    LowMemory memory;
    EXPECT_EQ(HintAfterOpen(memory.Record(103, 2)), (Hint{2, 1}));
}

TEST(ExtensionRecord, OfAnotherValueChangesNothing) {
    for (const uint32_t value : {0u, 1u, 3u, 102u, 0x00010002u, 0xFFFFFFFFu}) {
        LowMemory memory;
        EXPECT_EQ(HintAfterOpen(memory.Record(103, value)), (Hint{0, 0})) << value;
    }
}

TEST(ExtensionRecord, IsReadAtItsFourthWordOnly) {
    LowMemory memory;
    EXPECT_EQ(HintAfterOpen(memory.Record(103, 0, 2, 2)), (Hint{0, 0}));
    EXPECT_EQ(HintAfterOpen(memory.Record(103, 2, 0xFFFFFFFF, 0xFFFFFFFF)), (Hint{2, 1}));
}

TEST(ExtensionRecord, OfAnotherTypeChangesNothing) {
    LowMemory memory;
    EXPECT_EQ(HintAfterOpen(memory.Record(102, 2)), (Hint{0, 0}));
    EXPECT_EQ(HintAfterOpen(memory.Record(0, 2)), (Hint{0, 0}));
}

TEST(ExtensionRecord, IsFoundInAList) {
    LowMemory memory;
    const std::vector<uint32_t> records = {memory.Record(1, 2), 0, memory.Record(103, 2)};
    EXPECT_EQ(HintAfterOpen(memory.List(records)), (Hint{2, 1}));
}

TEST(ExtensionRecord, OfTheSameTypeFurtherBackInTheListWins) {
    LowMemory memory;
    const std::vector<uint32_t> on_off = {memory.Record(103, 2), memory.Record(103, 1)};
    const std::vector<uint32_t> off_on = {memory.Record(103, 1), memory.Record(103, 2)};
    EXPECT_EQ(HintAfterOpen(memory.List(on_off)), (Hint{0, 0}));
    EXPECT_EQ(HintAfterOpen(memory.List(off_on)), (Hint{2, 1}));
}

TEST(ExtensionRecord, IsNotLookedForInAnEmptyList) {
    LowMemory memory;
    EXPECT_EQ(HintAfterOpen(memory.List({}, 0)), (Hint{0, 0}));
    EXPECT_EQ(HintAfterOpen(memory.List({}, -1)), (Hint{0, 0}));
}

// ---- Close

TEST(Mp4vDecoderClose, RefusesANullHandle) {
    EXPECT_EQ(Mp4vDecoderClose(nullptr), 0xA2C00003);
}

const std::vector<Call> kFreedByClose = {
    Freed(512, 497), Freed(kMbInfoBytes, 500),       Freed(512, 502), Freed(128, 503), Freed(128, 504), kFreedFrame,
    kFreedFrame,     Freed(sizeof(Mp4vDecCtx), 507),
};

TEST(Mp4vDecoderClose, FreesEverythingInAFixedOrder) {
    TestDecoder decoder(176, 144);
    const Mp4vDecCtx ctx = decoder.ctx();
    decoder.memory.Record(true);
    void* const instance = decoder.handle;
    EXPECT_EQ(decoder.Close(), 0u);
    EXPECT_EQ(Frees(decoder.memory), kFreedByClose);
    std::vector<void*> blocks;
    for (const MemoryCall& call : decoder.memory.calls()) blocks.push_back(call.block);
    EXPECT_EQ(blocks, (std::vector<void*>{ctx.pu8QpelBuf, ctx.ptMbInfo - 12, ctx.pu8WorkBuf512, ctx.pu8WorkBuf128A,
                                          ctx.pu8WorkBuf128B, ctx.tCurFrame.pu8Base, ctx.tRefFrame.pu8Base, instance}));
    EXPECT_EQ(decoder.memory.live_blocks(), 0u);
    EXPECT_TRUE(decoder.memory.bad_frees().empty());
}

// The macroblock records are laid out for the current width, but their allocation began with the open width.
TEST(Mp4vDecoderClose, FindsTheMacroblockRecordsAfterAChangeOfSize) {
    TestDecoder decoder(176, 144);
    ASSERT_EQ(decoder.Process(FlatIntra({.width = 16, .height = 16}, {1, 2, 3})).status, 0u);
    ASSERT_EQ(decoder.ctx().u32MbWidth, 1u);
    decoder.memory.Record(true);
    EXPECT_EQ(decoder.Close(), 0u);
    EXPECT_EQ(Frees(decoder.memory), kFreedByClose);
    EXPECT_EQ(decoder.memory.live_blocks(), 0u);
    EXPECT_TRUE(decoder.memory.bad_frees().empty());
}

// The planes of the two frames have changed places after an odd number of pictures; the allocations have not.
TEST(Mp4vDecoderClose, FreesBothFramesAfterAnyNumberOfPictures) {
    for (int pictures = 1; pictures <= 2; pictures++) {
        TestDecoder decoder(16, 16);
        for (int i = 0; i < pictures; i++) {
            ASSERT_EQ(decoder.Process(FlatIntra({.width = 16, .height = 16}, {1, 2, 3})).status, 0u);
        }
        EXPECT_EQ(decoder.Close(), 0u);
        EXPECT_EQ(decoder.memory.live_blocks(), 0u);
        EXPECT_TRUE(decoder.memory.bad_frees().empty());
    }
}

TEST(Mp4vDecoderClose, LeavesOtherInstancesAlone) {
    TestDecoder first(16, 16);
    TestDecoder second(16, 16);
    ASSERT_EQ(first.Process(FlatIntra({.width = 16, .height = 16}, {50, 60, 70})).status, 0u);
    EXPECT_EQ(second.Close(), 0u);
    EXPECT_EQ(first.Process(NotCoded({})).status, 0u);
    EXPECT_EQ(first.picture, FlatPicture(16, 16, {50, 60, 70}));
}

TEST(Instance, TakesNoMemoryBetweenOpenAndClose) {
    TestDecoder decoder(32, 32);
    decoder.memory.Record(true);
    const VolHeader vol;
    decoder.Process(FlatIntra(vol, {50, 60, 70}));
    decoder.Process(SkippedPredicted(vol));
    decoder.Process(NotCoded(vol));
    decoder.Process(FlatIntra({.width = 16, .height = 16}, {50, 60, 70}));
    EXPECT_TRUE(decoder.memory.calls().empty());
}

}  // namespace
}  // namespace mp4v::test
