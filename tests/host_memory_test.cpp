// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors
#include <gtest/gtest.h>

#include <algorithm>
#include <thread>

#include "host/memory.h"
#include "mp4vdec.h"

namespace mp4v::test {
namespace {

constexpr int32_t kInstanceTag = -38;
constexpr int32_t kOtherTag = -36;

void* Malloc(MemoryService& service, uint32_t size, uint32_t alignment = 16, const char* file = "a.cpp",
             int32_t line = 1) {
    return VideoMemMalloc_c(&service, size, alignment, kOtherTag, file, line);
}

void Free(MemoryService& service, void* block) {
    VideoMemFree_c(&service, block, kInstanceTag, "a.cpp", 2);
}

TEST(HostMemory, GivesAlignedBlocksThatDoNotOverlap) {
    MemoryService service;
    std::vector<uint8_t*> blocks;
    for (uint32_t alignment = 1; alignment <= 4096; alignment *= 2) {
        auto* const block = static_cast<uint8_t*>(Malloc(service, 100, alignment));
        ASSERT_NE(nullptr, block);
        EXPECT_EQ(0u, reinterpret_cast<uintptr_t>(block) % alignment);
        std::fill(block, block + 100, static_cast<uint8_t>(blocks.size()));
        blocks.push_back(block);
    }
    for (size_t i = 0; i < blocks.size(); i++) {
        EXPECT_EQ(100, std::count(blocks[i], blocks[i] + 100, static_cast<uint8_t>(i)));
        Free(service, blocks[i]);
    }
    EXPECT_EQ(0u, service.live_blocks());
}

TEST(HostMemory, CountsBlocksAndBytes) {
    MemoryService service;
    void* const a = Malloc(service, 10);
    void* const b = Malloc(service, 30);
    EXPECT_EQ(2u, service.live_blocks());
    EXPECT_EQ(40u, service.live_bytes());
    Free(service, a);
    EXPECT_EQ(1u, service.live_blocks());
    EXPECT_EQ(30u, service.live_bytes());
    EXPECT_EQ(40u, service.peak_bytes());
    Free(service, b);
    EXPECT_EQ(0u, service.live_bytes());
    EXPECT_EQ(2u, service.allocations());
    EXPECT_EQ(2u, service.frees());
    EXPECT_TRUE(service.bad_frees().empty());
}

TEST(HostMemory, RecordsCallsInOrderWhileTold) {
    MemoryService service;
    Free(service, Malloc(service, 1));
    service.Record(true);
    void* const block = VideoMemMalloc_c(&service, 512, 32, kOtherTag, "decoder.cpp", 325);
    VideoMemFree_c(&service, block, kInstanceTag, "other.cpp", 497);
    service.Record(false);
    Free(service, Malloc(service, 1));

    const std::vector<MemoryCall> calls = service.calls();
    ASSERT_EQ(2u, calls.size());
    EXPECT_EQ(MemoryCall::Kind::kAllocate, calls[0].kind);
    EXPECT_EQ(block, calls[0].block);
    EXPECT_EQ(512u, calls[0].size);
    EXPECT_EQ(32u, calls[0].alignment);
    EXPECT_EQ(-36, calls[0].tag);
    EXPECT_EQ("decoder.cpp", calls[0].file);
    EXPECT_EQ(325, calls[0].line);
    EXPECT_EQ(MemoryCall::Kind::kFree, calls[1].kind);
    EXPECT_EQ(block, calls[1].block);
    EXPECT_EQ(512u, calls[1].size);
    EXPECT_EQ(-38, calls[1].tag);
    EXPECT_EQ("other.cpp", calls[1].file);
    EXPECT_EQ(497, calls[1].line);
    service.ClearCalls();
    EXPECT_TRUE(service.calls().empty());
}

TEST(HostMemory, FailsTheCallItIsToldToAndNoOther) {
    MemoryService service;
    service.Record(true);
    service.FailAllocation(3);
    std::vector<void*> blocks;
    for (int i = 0; i < 5; i++) blocks.push_back(Malloc(service, 8));
    for (size_t i = 0; i < blocks.size(); i++) EXPECT_EQ(i == 2, blocks[i] == nullptr) << i;
    EXPECT_EQ(4u, service.live_blocks());
    EXPECT_EQ(4u, service.allocations());
    EXPECT_EQ(32u, service.live_bytes());
    ASSERT_EQ(5u, service.calls().size());
    EXPECT_EQ(nullptr, service.calls()[2].block);
    for (void* block : blocks) Free(service, block);
    EXPECT_TRUE(service.bad_frees().empty());
}

TEST(HostMemory, TakesAPlannedFailureBack) {
    MemoryService service;
    service.FailAllocation(1);
    service.FailAllocation(0);
    void* const block = Malloc(service, 8);
    EXPECT_NE(nullptr, block);
    Free(service, block);
}

TEST(HostMemory, NotesADoubleFreeAndGoesOn) {
    MemoryService service;
    void* const block = Malloc(service, 8);
    Free(service, block);
    VideoMemFree_c(&service, block, -7, "twice.cpp", 99);
    ASSERT_EQ(1u, service.bad_frees().size());
    const BadFree bad = service.bad_frees()[0];
    EXPECT_EQ(BadFree::Kind::kDouble, bad.kind);
    EXPECT_EQ(block, bad.block);
    EXPECT_EQ(-7, bad.tag);
    EXPECT_EQ("twice.cpp", bad.file);
    EXPECT_EQ(99, bad.line);
    EXPECT_EQ(1u, service.frees());
}

TEST(HostMemory, NotesAForeignFreeAndLeavesTheBlockAlone) {
    MemoryService service;
    int foreign = 5;
    Free(service, &foreign);
    MemoryService other;
    void* const block = Malloc(other, 8);
    Free(service, block);
    ASSERT_EQ(2u, service.bad_frees().size());
    EXPECT_EQ(BadFree::Kind::kForeign, service.bad_frees()[0].kind);
    EXPECT_EQ(BadFree::Kind::kForeign, service.bad_frees()[1].kind);
    EXPECT_EQ(5, foreign);
    EXPECT_EQ(1u, other.live_blocks());
    Free(other, block);
}

TEST(HostMemory, NotesAFreeInsideABlock) {
    MemoryService service;
    auto* const block = static_cast<uint8_t*>(Malloc(service, 64));
    Free(service, block + 16);
    EXPECT_EQ(1u, service.bad_frees().size());
    EXPECT_EQ(1u, service.live_blocks());
    Free(service, block);
}

TEST(HostMemory, IgnoresNullBlocksAndNullContexts) {
    MemoryService service;
    Free(service, nullptr);
    EXPECT_TRUE(service.bad_frees().empty());
    EXPECT_EQ(0u, service.frees());
    EXPECT_EQ(nullptr, VideoMemMalloc_c(nullptr, 8, 16, -36, "a.cpp", 1));
    VideoMemFree_c(nullptr, &service, -38, "a.cpp", 1);
}

TEST(HostMemory, TakesANullFileText) {
    MemoryService service;
    service.Record(true);
    Free(service, Malloc(service, 8, 16, nullptr));
    EXPECT_EQ("", service.calls()[0].file);
}

TEST(HostMemory, RefusesAlignmentsThatAreNoPowerOfTwo) {
    MemoryService service;
    for (const uint32_t alignment : {0u, 3u, 24u, 0xFFFFFFFFu}) EXPECT_EQ(nullptr, Malloc(service, 8, alignment));
    EXPECT_EQ(0u, service.live_blocks());
}

TEST(HostMemory, GivesDistinctBlocksOfSizeZero) {
    MemoryService service;
    void* const a = Malloc(service, 0);
    void* const b = Malloc(service, 0);
    EXPECT_NE(nullptr, a);
    EXPECT_NE(a, b);
    EXPECT_EQ(0u, service.live_bytes());
    Free(service, a);
    Free(service, b);
}

TEST(HostMemory, FillsNewBlocksOnRequest) {
    MemoryService service;
    service.FillNewBlocksWith(uint8_t{0xA5});
    auto* const block = static_cast<uint8_t*>(Malloc(service, 1000));
    EXPECT_EQ(1000, std::count(block, block + 1000, 0xA5));
    Free(service, block);
}

TEST(HostMemory, ForgetsAFreedAddressOnceItIsInUseAgain) {
    MemoryService service;
    for (int i = 0; i < 5000; i++) Free(service, Malloc(service, 64));
    EXPECT_EQ(5000u, service.frees());
    EXPECT_TRUE(service.bad_frees().empty());
}

TEST(HostMemory, ReleasesWhatIsLeftWhenItEnds) {
    // A leak checker is the judge here; without one this shows only that nothing breaks.
    MemoryService service;
    for (int i = 0; i < 10; i++) Malloc(service, 1000);
    EXPECT_EQ(10u, service.live_blocks());
}

TEST(HostMemory, ServesSeveralThreads) {
    MemoryService service;
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; t++) {
        threads.emplace_back([&] {
            for (int i = 0; i < 500; i++) Free(service, Malloc(service, 32));
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(2000u, service.allocations());
    EXPECT_EQ(2000u, service.frees());
    EXPECT_EQ(0u, service.live_bytes());
}

}  // namespace
}  // namespace mp4v::test
