// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors
#include "common/extparam.h"

#include <gtest/gtest.h>

#include "support/low_memory.h"

namespace mp4v::test {
namespace {

constexpr uint32_t kStale = 0xAAAAAAAA;

// Two record types that are looked for, with slots that hold something old.
struct Slots {
    uint32_t found_103 = kStale;
    uint32_t found_7 = kStale;
    Mp4vDecTypeSlot list[2] = {{103, &found_103}, {7, &found_7}};

    void Parse(uint32_t ext, int32_t count = 2) { MPEG4DecParseReservedType(ext, list, count); }
};

TEST(MPEG4DecIsTypeInList, ReturnsTheIndexOfTheFirstEntryOfTheType) {
    const Mp4vDecTypeSlot list[4] = {{5, nullptr}, {103, nullptr}, {103, nullptr}, {0xFFFFFFFF, nullptr}};
    EXPECT_EQ(MPEG4DecIsTypeInList(5, list, 4), 0);
    EXPECT_EQ(MPEG4DecIsTypeInList(103, list, 4), 1);
    EXPECT_EQ(MPEG4DecIsTypeInList(0xFFFFFFFF, list, 4), 3);
}

TEST(MPEG4DecIsTypeInList, ReturnsMinusOneForATypeThatIsNotThere) {
    const Mp4vDecTypeSlot list[2] = {{5, nullptr}, {103, nullptr}};
    EXPECT_EQ(MPEG4DecIsTypeInList(104, list, 2), -1);
}

TEST(MPEG4DecIsTypeInList, LooksAtNoEntryBeyondTheCount) {
    const Mp4vDecTypeSlot list[2] = {{5, nullptr}, {103, nullptr}};
    EXPECT_EQ(MPEG4DecIsTypeInList(103, list, 1), -1);
}

TEST(MPEG4DecIsTypeInList, ReturnsMinusOneForAnEmptyOrNegativeCount) {
    const Mp4vDecTypeSlot list[1] = {{103, nullptr}};
    EXPECT_EQ(MPEG4DecIsTypeInList(103, list, 0), -1);
    EXPECT_EQ(MPEG4DecIsTypeInList(103, list, -1), -1);
    EXPECT_EQ(MPEG4DecIsTypeInList(103, nullptr, INT32_MIN), -1);
}

TEST(MPEG4DecParseReservedType, ClearsEverySlotWhenThereIsNoExtension) {
    Slots slots;
    slots.Parse(0);
    EXPECT_EQ(slots.found_103, 0u);
    EXPECT_EQ(slots.found_7, 0u);
}

TEST(MPEG4DecParseReservedType, ClearsNoSlotAndFindsNothingForAnEmptyTypeList) {
    LowMemory memory;
    Slots slots;
    slots.Parse(memory.Record(103, 2), 0);
    EXPECT_EQ(slots.found_103, kStale);
    slots.Parse(memory.Record(103, 2), -1);
    EXPECT_EQ(slots.found_103, kStale);
    slots.Parse(0, 0);
    EXPECT_EQ(slots.found_103, kStale);
}

TEST(MPEG4DecParseReservedType, LeavesTheSlotsBeyondTheCountAlone) {
    LowMemory memory;
    Slots slots;
    slots.Parse(memory.Record(7, 0), 1);
    EXPECT_EQ(slots.found_103, 0u);
    EXPECT_EQ(slots.found_7, kStale);
}

TEST(MPEG4DecParseReservedType, FindsASingleRecord) {
    LowMemory memory;
    Slots slots;
    const uint32_t record = memory.Record(103, 2);
    slots.Parse(record);
    EXPECT_EQ(slots.found_103, record);
    EXPECT_EQ(slots.found_7, 0u);
}

TEST(MPEG4DecParseReservedType, LeavesTheSlotsZeroForASingleRecordOfAnotherType) {
    LowMemory memory;
    Slots slots;
    slots.Parse(memory.Record(104, 2));
    EXPECT_EQ(slots.found_103, 0u);
    EXPECT_EQ(slots.found_7, 0u);
}

TEST(MPEG4DecParseReservedType, FillsTheFirstOfTwoSlotsOfOneType) {
    LowMemory memory;
    uint32_t first = kStale, second = kStale;
    const Mp4vDecTypeSlot list[2] = {{103, &first}, {103, &second}};
    const uint32_t record = memory.Record(103, 2);
    MPEG4DecParseReservedType(record, list, 2);
    EXPECT_EQ(first, record);
    EXPECT_EQ(second, 0u);
}

TEST(MPEG4DecParseReservedType, FindsEveryTypeInAList) {
    LowMemory memory;
    Slots slots;
    const std::vector<uint32_t> records = {memory.Record(1, 0), memory.Record(7, 0), memory.Record(103, 0)};
    slots.Parse(memory.List(records));
    EXPECT_EQ(slots.found_103, records[2]);
    EXPECT_EQ(slots.found_7, records[1]);
}

TEST(MPEG4DecParseReservedType, PointsToTheSecondOfTwoRecordsOfAType) {
    LowMemory memory;
    Slots slots;
    const std::vector<uint32_t> records = {memory.Record(103, 2), memory.Record(103, 1)};
    slots.Parse(memory.List(records));
    EXPECT_EQ(slots.found_103, records[1]);
}

TEST(MPEG4DecParseReservedType, SkipsZeroElements) {
    LowMemory memory;
    Slots slots;
    const std::vector<uint32_t> records = {0, memory.Record(103, 2), 0};
    slots.Parse(memory.List(records));
    EXPECT_EQ(slots.found_103, records[1]);
}

TEST(MPEG4DecParseReservedType, LooksAtNoElementBeyondTheCountOfTheList) {
    LowMemory memory;
    Slots slots;
    const std::vector<uint32_t> records = {memory.Record(7, 0), memory.Record(103, 2)};
    slots.Parse(memory.List(records, 1));
    EXPECT_EQ(slots.found_7, records[0]);
    EXPECT_EQ(slots.found_103, 0u);
}

TEST(MPEG4DecParseReservedType, SkipsAListWithAZeroOrNegativeCount) {
    LowMemory memory;
    for (const int32_t count : {0, -1, INT32_MIN}) {
        Slots slots;
        const std::vector<uint32_t> records = {memory.Record(103, 2)};
        slots.Parse(memory.List(records, count));
        EXPECT_EQ(slots.found_103, 0u) << count;
    }
}

TEST(MPEG4DecParseReservedType, SkipsAListWithoutElements) {
    LowMemory memory;
    Slots slots;
    auto* const list = static_cast<Mp4vDecExtList*>(memory.Take(sizeof(Mp4vDecExtList)));
    *list = {MP4VDEC_EXT_LIST_MAGIC, 1, nullptr};
    slots.Parse(LowMemory::Address(list));
    EXPECT_EQ(slots.found_103, 0u);
}

TEST(MPEG4DecParseReservedType, TakesAListInsideAListForARecordOfAnUnknownType) {
    LowMemory memory;
    Slots slots;
    const std::vector<uint32_t> inner = {memory.Record(103, 2)};
    const std::vector<uint32_t> outer = {memory.List(inner)};
    slots.Parse(memory.List(outer));
    EXPECT_EQ(slots.found_103, 0u);
}

// A slot may lie on the list itself; the list is looked at after that.
TEST(MPEG4DecParseReservedType, ClearsTheSlotsBeforeItLooksAtTheCount) {
    LowMemory memory;
    auto* const list = static_cast<Mp4vDecExtList*>(memory.Take(sizeof(Mp4vDecExtList)));
    uint32_t found = kStale;
    const Mp4vDecTypeSlot types[2] = {{103, &found}, {9, reinterpret_cast<uint32_t*>(&list->s32Count)}};
    const std::vector<uint32_t> records = {memory.Record(9, 0), memory.Record(103, 2)};
    *list = {MP4VDEC_EXT_LIST_MAGIC, 2, records.data()};
    MPEG4DecParseReservedType(LowMemory::Address(list), types, 2);
    EXPECT_EQ(found, 0u);
    EXPECT_EQ(list->s32Count, 0);
}

}  // namespace
}  // namespace mp4v::test
