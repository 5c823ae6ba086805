// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <vector>

#include "common/context.h"
#include "host/low_memory.h"
#include "host/memory.h"

namespace mp4v {
namespace {

constexpr uint64_t kFourGigabytes = uint64_t{1} << 32;

TEST(LowMemory, LiesBelowFourGigabytesAndIsZeroed) {
    const LowMemory memory(10000);
    ASSERT_NE(memory.data(), nullptr) << memory.problem();
    EXPECT_EQ(memory.problem(), "");
    EXPECT_EQ(memory.size(), 10000u);
    EXPECT_LE(uint64_t{reinterpret_cast<uintptr_t>(memory.data())} + memory.size(), kFourGigabytes);
    EXPECT_EQ(reinterpret_cast<uint8_t*>(static_cast<uintptr_t>(memory.address(9999))), memory.data() + 9999);
    EXPECT_TRUE(std::all_of(memory.data(), memory.data() + 10000, [](uint8_t byte) { return byte == 0; }));
    std::memset(memory.data(), 0xFF, memory.size());
}

TEST(LowMemory, OfManyPlacesIsAlwaysAnother) {
    std::vector<std::unique_ptr<LowMemory>> all;
    for (int i = 0; i < 100; i++) {
        all.push_back(std::make_unique<LowMemory>(5000));
        ASSERT_NE(all.back()->data(), nullptr) << all.back()->problem();
        std::memset(all.back()->data(), i, 5000);
    }
    for (int i = 0; i < 100; i++) {
        const uint8_t* const data = all[static_cast<size_t>(i)]->data();
        EXPECT_TRUE(std::all_of(data, data + 5000, [i](uint8_t byte) { return byte == i; })) << i;
    }
}

TEST(LowMemory, OfNoBytesIsNone) {
    const LowMemory memory(0);
    EXPECT_EQ(memory.data(), nullptr);
    EXPECT_EQ(memory.size(), 0u);
    EXPECT_EQ(memory.problem(), "");
}

TEST(LowMemory, SaysWhenThereIsNotEnough) {
    const LowMemory memory(size_t{0xFFFFFFFF});
    EXPECT_EQ(memory.data(), nullptr);
    EXPECT_EQ(memory.size(), 0u);
    EXPECT_NE(memory.problem(), "");
}

TEST(ExtensionList, WithoutRecordsIsNoParameter) {
    const ExtensionList list({});
    EXPECT_EQ(list.param(), 0u);
    EXPECT_EQ(list.problem(), "");
}

TEST(ExtensionList, IsLaidOutAsTheHeaderSays) {
    const ExtensionRecord records[] = {{7, {1, 2, 3}}, FieldsStacked()};
    const ExtensionList list(records);
    ASSERT_NE(list.param(), 0u) << list.problem();
    const auto* const header = reinterpret_cast<const Mp4vDecExtList*>(static_cast<uintptr_t>(list.param()));
    EXPECT_EQ(header->u32Magic, 0xFEDCBA98u);
    ASSERT_EQ(header->s32Count, 2);
    const uint32_t want[2][4] = {{7, 1, 2, 3}, {103, 0, 0, 2}};
    for (int i = 0; i < 2; i++) {
        const auto* const record = reinterpret_cast<const void*>(static_cast<uintptr_t>(header->pu32Records[i]));
        EXPECT_EQ(std::memcmp(record, want[i], sizeof want[i]), 0) << i;
    }
}

// The decoder's own view of a list.
uint32_t PictureStructureAfterOpen(std::span<const ExtensionRecord> records) {
    const ExtensionList list(records);
    EXPECT_EQ(list.problem(), "");
    const Mp4vDecOpenParams params = {{0, 0}, 16, 16, list.param()};
    MemoryService memory;
    void* handle = nullptr;
    EXPECT_EQ(Mp4vDecoderOpen(&handle, &params, &memory), MP4VDEC_OK);
    const uint32_t hint = static_cast<const Mp4vDecCtx*>(handle)->u32PicStructHint;
    EXPECT_EQ(Mp4vDecoderClose(handle), MP4VDEC_OK);
    return hint;
}

TEST(ExtensionList, IsFoundByTheDecoder) {
    const ExtensionRecord other[] = {{7, {0, 0, 2}}};
    const ExtensionRecord both[] = {{7, {0, 0, 1}}, FieldsStacked()};
    EXPECT_EQ(PictureStructureAfterOpen({}), 0u);
    EXPECT_EQ(PictureStructureAfterOpen(other), 0u);
    EXPECT_EQ(PictureStructureAfterOpen(both), 2u);
}

}  // namespace
}  // namespace mp4v
