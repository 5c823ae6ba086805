// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors
#include "common/vlc_tables.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <ostream>

#include "support/vlc_codes.h"

inline bool operator==(const VlcEntry& a, const VlcEntry& b) {
    return a.s32Value == b.s32Value && a.s32Length == b.s32Length;
}

inline std::ostream& operator<<(std::ostream& out, const VlcEntry& entry) {
    return out << "{" << entry.s32Value << ", " << entry.s32Length << "}";
}

namespace mp4v::test {
namespace {

static_assert(sizeof(VlcEntry) == 8 && offsetof(VlcEntry, s32Length) == 4);
static_assert(sizeof(g_atMcbpcIntraTable) == 32 * 8 && sizeof(g_atMcbpcInterTable) == 256 * 8);
static_assert(sizeof(g_atCbpyTable) == 48 * 8);
static_assert(sizeof(g_atMvTab0) == 14 * 8 && sizeof(g_atMvTab1) == 96 * 8 && sizeof(g_atMvTab2) == 124 * 8);
static_assert(sizeof(g_atTableB16_1) == 112 * 8 && sizeof(g_atTableB16_2) == 96 * 8);
static_assert(sizeof(g_atTableB17_1) == 112 * 8 && sizeof(g_atTableB17_2) == 96 * 8);
static_assert(sizeof(g_atTableB16_3) == 120 * 8 && sizeof(g_atTableB17_3) == 120 * 8);

constexpr VlcEntry kUnused = {-1, 0};

// Compares each entry with what the code rows say about the digits that lead to it: `prefix` is what the decoder has
// consumed, `index_bits` digits follow, entry 0 stands for their value `first`.
template <size_t N>
void ExpectExpansion(const VlcTable<N>& table, const std::string& prefix, unsigned index_bits, int first,
                     const std::function<VlcEntry(const std::string&)>& lookup) {
    for (size_t i = 0; i < N; i++) {
        const std::string digits = prefix + Digits(first + static_cast<int>(i), index_bits);
        EXPECT_EQ(table[i], lookup(digits)) << "entry " << i << ", digits " << digits;
    }
}

VlcEntry LookUpMcbpc(const std::string& name, const std::string& digits) {
    const CodeRow* row = FindCode(name, digits);
    if (!row) return kUnused;
    const bool stuffing = row->fields[0] == 7;
    return {stuffing ? 255 : row->fields[1] * 16 + row->fields[0], static_cast<int32_t>(row->code.size())};
}

VlcEntry LookUpMotion(const std::string& digits) {
    const CodeRow* row = FindCode("B-12", digits);
    if (!row) return kUnused;
    const bool negative = digits[row->code.size()] == '1';
    return {negative ? -row->fields[0] : row->fields[0], static_cast<int32_t>(row->code.size())};
}

VlcEntry LookUpTcoef(const std::string& name, int run_weight, const std::string& digits) {
    const CodeRow* row = FindCode(name, digits);
    if (!row) return kUnused;
    const int32_t length = static_cast<int32_t>(row->code.size());
    if (IsEscape(*row)) return {7167, length};
    return {row->fields[0] * 4096 + row->fields[1] * run_weight + row->fields[2], length};
}

TEST(CodeTables, AreFreeOfPrefixes) {
    for (const char* name : {"B-6", "B-7", "B-8", "B-12", "B-13", "B-14", "B-16", "B-17"}) {
        const CodeTable& rows = TableRows(name);
        for (const CodeRow& a : rows) {
            for (const CodeRow& b : rows) {
                if (&a == &b) continue;
                EXPECT_NE(b.code.compare(0, a.code.size(), a.code), 0) << name << " " << a.code << " " << b.code;
            }
        }
    }
}

// How many of the 4096 strings of 12 digits begin with no code.
TEST(CodeTables, AreCompleteButForTheReservedCodes) {
    const std::pair<const char*, int> expected[] = {
        {"B-6", 56},  // 000000 without stuffing
        {"B-7", 8},  {"B-8", 128}, {"B-12", 2}, {"B-13", 2}, {"B-14", 1}, {"B-16", 8}, {"B-17", 8},
    };
    for (const auto& [name, unused] : expected) {
        int count = 0;
        for (int value = 0; value < 4096; value++) count += FindCode(name, Digits(value, 12)) == nullptr;
        EXPECT_EQ(count, unused) << name;
    }
}

TEST(CodeTables, HaveEveryEventOnce) {
    for (const char* name : {"B-16", "B-17"}) {
        EXPECT_EQ(TableRows(name).size(), 103u);
        for (const CodeRow& a : TableRows(name)) {
            const auto same = [&a](const CodeRow& b) { return a.fields == b.fields; };
            EXPECT_EQ(std::count_if(TableRows(name).begin(), TableRows(name).end(), same), 1) << name << " " << a.code;
        }
    }
}

TEST(McbpcIntraTable, IsTheExpansionOfTableB6) {
    // Digits behind the sixth do not matter to codes of up to six; stuffing never comes here.
    ExpectExpansion(g_atMcbpcIntraTable, "", 6, 0, [](const std::string& d) { return LookUpMcbpc("B-6", d + "000"); });
}

TEST(McbpcIntraTable, HasTheDocumentedEntries) {
    EXPECT_EQ(g_atMcbpcIntraTable[0], kUnused);
    EXPECT_EQ(g_atMcbpcIntraTable[1], (VlcEntry{20, 6}));
    for (size_t i = 8; i < 16; i++) EXPECT_EQ(g_atMcbpcIntraTable[i], (VlcEntry{19, 3}));
}

TEST(McbpcInterTable, IsTheExpansionOfTableB7) {
    ExpectExpansion(g_atMcbpcInterTable, "", 9, 0, [](const std::string& d) { return LookUpMcbpc("B-7", d); });
}

TEST(McbpcInterTable, HasTheDocumentedEntries) {
    EXPECT_EQ(g_atMcbpcInterTable[0], kUnused);
    EXPECT_EQ(g_atMcbpcInterTable[1], (VlcEntry{255, 9}));  // stuffing
}

TEST(CbpyTable, IsTheExpansionOfTheIntraColumnOfTableB8) {
    ExpectExpansion(g_atCbpyTable, "", 6, 0, [](const std::string& digits) {
        const CodeRow* row = FindCode("B-8", digits);
        return row ? VlcEntry{row->fields[0], static_cast<int32_t>(row->code.size())} : kUnused;
    });
}

TEST(CbpyTable, LeavesItsFirstTwoEntriesUnused) {
    EXPECT_EQ(g_atCbpyTable[0], kUnused);
    EXPECT_EQ(g_atCbpyTable[1], kUnused);
    EXPECT_NE(g_atCbpyTable[2], kUnused);
}

TEST(MvTables, AreTheExpansionOfTableB12BehindItsFirstBit) {
    // With the consumed 0 in front, a code and its sign are as long as the entry's length says: the 0 goes, the sign
    // comes.
    ExpectExpansion(g_atMvTab0, "0", 4, 2, LookUpMotion);
    ExpectExpansion(g_atMvTab1, "0", 10, 32, LookUpMotion);
    ExpectExpansion(g_atMvTab2, "0", 12, 4, LookUpMotion);
}

TEST(MvTables, HaveTheDocumentedEntries) {
    for (size_t i = 6; i < 10; i++) EXPECT_EQ(g_atMvTab0[i], (VlcEntry{1, 2}));
    for (size_t i = 10; i < 14; i++) EXPECT_EQ(g_atMvTab0[i], (VlcEntry{-1, 2}));
    EXPECT_EQ(g_atMvTab0[0], (VlcEntry{3, 4}));
    EXPECT_EQ(g_atMvTab0[1], (VlcEntry{-3, 4}));
    EXPECT_EQ(g_atMvTab1[0], (VlcEntry{12, 10}));
    EXPECT_EQ(g_atMvTab1[1], (VlcEntry{-12, 10}));
    EXPECT_EQ(g_atMvTab2[0], (VlcEntry{32, 12}));
    EXPECT_EQ(g_atMvTab2[1], (VlcEntry{-32, 12}));
}

TEST(MvTables, EndTheSecondTableWithFourEntriesForMinusFour) {
    for (size_t i = 92; i < 96; i++) EXPECT_EQ(g_atMvTab1[i], (VlcEntry{-4, 6}));
}

TEST(IntraTcoefTables, AreTheExpansionOfTableB16) {
    const auto lookup = [](const std::string& digits) { return LookUpTcoef("B-16", 64, digits); };
    ExpectExpansion(g_atTableB16_1, "", 7, 16, lookup);
    ExpectExpansion(g_atTableB16_2, "", 10, 32, lookup);
    ExpectExpansion(g_atTableB16_3, "", 12, 8, lookup);
}

TEST(InterTcoefTables, AreTheExpansionOfTableB17) {
    const auto lookup = [](const std::string& digits) { return LookUpTcoef("B-17", 16, digits); };
    ExpectExpansion(g_atTableB17_1, "", 7, 16, lookup);
    ExpectExpansion(g_atTableB17_2, "", 10, 32, lookup);
    ExpectExpansion(g_atTableB17_3, "", 12, 8, lookup);
}

// What the digits mean to the block loops: the sign follows the code; levels of inter blocks are doubled. Escapes, no
// code and codes whose sign lies behind the digits are marked alike.
uint32_t PackedEvent(const std::string& name, const std::string& digits) {
    const CodeRow* row = FindCode(name, digits);
    if (!row || IsEscape(*row) || row->code.size() >= digits.size()) return 0x4100;
    const int magnitude = name == "B-17" ? 2 * row->fields[2] + 1 : row->fields[2];
    const int level = digits[row->code.size()] == '1' ? -magnitude : magnitude;
    const auto length = static_cast<uint32_t>(row->code.size() + 1);
    return static_cast<uint32_t>(static_cast<uint16_t>(level)) * 0x10000u +
           static_cast<uint32_t>(row->fields[1] + 1 + 64 * row->fields[0]) * 0x100u +
           static_cast<uint32_t>(row->fields[0]) * 0x80u + length;
}

void ExpectEvents(const TcoefEvents& events, const std::string& name) {
    for (int i = 0; i < 2048; i++) EXPECT_EQ(events.au32Short[i], PackedEvent(name, Digits(i, 11))) << i;
    for (int i = 0; i < 256; i++) EXPECT_EQ(events.au32Long[i], PackedEvent(name, Digits(i, 13))) << i;
}

TEST(TcoefEvents, AreTheSignedCodesOfTableB16) {
    ExpectEvents(g_tIntraEvents, "B-16");
}

TEST(TcoefEvents, AreTheSignedCodesOfTableB17) {
    ExpectEvents(g_tInterEvents, "B-17");
}

TEST(TcoefEvents, HaveTheDocumentedEntries) {
    EXPECT_EQ(g_tIntraEvents.au32Short[0x400], 0x00010103u);                             // 10 0: run 0, level 1
    EXPECT_EQ(g_tIntraEvents.au32Short[0x500], 0xFFFF0103u);                             // 10 1: level -1
    EXPECT_EQ(g_tIntraEvents.au32Short[0x380], 0x00014185u);                             // 0111 0: last
    EXPECT_EQ(g_tInterEvents.au32Short[0x700], 0x00030305u);                             // 1110 0: run 2, level 1
    EXPECT_EQ(g_tInterEvents.au32Short[0x740], 0xFFFD0305u);                             // 1110 1: level -1
    for (int i = 48; i < 64; i++) EXPECT_EQ(g_tIntraEvents.au32Short[i], 0x4100u) << i;  // escape
    for (int i = 0; i < 16; i++) EXPECT_EQ(g_tInterEvents.au32Long[i], 0x4100u) << i;    // no code
}

TEST(TcoefTables, HaveTheDocumentedEntries) {
    EXPECT_EQ(g_atTableB16_1[64 - 16], (VlcEntry{0x1, 2}));     // 10
    EXPECT_EQ(g_atTableB16_1[112 - 16], (VlcEntry{0x41, 4}));   // 1110
    EXPECT_EQ(g_atTableB16_1[56 - 16], (VlcEntry{0x1001, 4}));  // 0111
    EXPECT_EQ(g_atTableB17_1[112 - 16], (VlcEntry{0x21, 4}));   // 1110
    EXPECT_EQ(g_atTableB17_1[120 - 16], (VlcEntry{0x2, 4}));    // 1111
    EXPECT_EQ(g_atTableB16_3[96 - 8], (VlcEntry{0x1BFF, 7}));   // 0000011
    EXPECT_EQ(g_atTableB17_3[127 - 8], (VlcEntry{0x1BFF, 7}));
}

// Tables B-19 and B-21: the largest level of a run, the largest run of a level.
int IntraLevelMax(int last, int run) {
    if (!last)
        return run == 0 ? 27 : run == 1 ? 10 : run == 2 ? 5 : run == 3 ? 4 : run <= 7 ? 3 : run <= 9 ? 2 : run <= 14;
    return run == 0 ? 8 : run == 1 ? 3 : run <= 6 ? 2 : run <= 20;
}

int IntraRunStep(int last, int level) {
    if (!last)
        return level == 1    ? 15
               : level == 2  ? 10
               : level == 3  ? 8
               : level == 4  ? 4
               : level == 5  ? 3
               : level <= 10 ? 2
                             : 1;
    return level == 1 ? 21 : level == 2 ? 7 : level == 3 ? 2 : 1;
}

// Tables B-20 and B-22
int InterLevelMax(int last, int run) {
    if (!last) return run == 0 ? 12 : run == 1 ? 6 : run == 2 ? 4 : run <= 6 ? 3 : run <= 10 ? 2 : run <= 26;
    return run == 0 ? 3 : run == 1 ? 2 : run <= 40;
}

int InterRunStep(int last, int level) {
    if (!last) return level == 1 ? 27 : level == 2 ? 11 : level == 3 ? 7 : level == 4 ? 3 : level <= 6 ? 2 : 1;
    return level == 1 ? 41 : level == 2 ? 2 : 1;
}

TEST(TcoefLimits, AreThoseOfTheStandard) {
    for (int last = 0; last < 2; last++) {
        for (int run = 0; run < 64; run++) {
            EXPECT_EQ(g_tIntraLimits.au8LevelMax[last][run], IntraLevelMax(last, run)) << last << " " << run;
            EXPECT_EQ(g_tInterLimits.au8LevelMax[last][run], InterLevelMax(last, run)) << last << " " << run;
        }
        for (int level = 1; level < 64; level++) {
            EXPECT_EQ(g_tIntraLimits.au8RunStep[last][level], IntraRunStep(last, level)) << last << " " << level;
            EXPECT_EQ(g_tInterLimits.au8RunStep[last][level], InterRunStep(last, level)) << last << " " << level;
        }
    }
}

TEST(ScanTables, AreThoseOfFigure72) {
    for (int scan = 0; scan < 3; scan++) {
        const CodeTable& rows = TableRows("SCAN" + std::to_string(scan));
        ASSERT_EQ(rows.size(), 64u);
        for (const CodeRow& row : rows) {
            EXPECT_EQ(g_au16ScanTables[scan][std::stoi(row.code)], row.fields[0]) << "scan " << scan << " " << row.code;
        }
    }
}

TEST(ScanTables, BeginAsDocumented) {
    constexpr uint16_t kZigzag[] = {0, 1, 8, 16, 9, 2, 3, 10};
    constexpr uint16_t kHorizontal[] = {0, 1, 2, 3, 8, 9, 16, 17, 10, 11, 4, 5};
    constexpr uint16_t kVertical[] = {0, 8, 16, 24, 1, 9, 2, 10, 17, 25, 32, 40};
    EXPECT_TRUE(std::equal(std::begin(kZigzag), std::end(kZigzag), g_au16ScanTables[0]));
    EXPECT_TRUE(std::equal(std::begin(kHorizontal), std::end(kHorizontal), g_au16ScanTables[1]));
    EXPECT_TRUE(std::equal(std::begin(kVertical), std::end(kVertical), g_au16ScanTables[2]));
}

TEST(ScanTables, VisitEveryCoefficientOnce) {
    for (const auto& scan : g_au16ScanTables) {
        std::vector<uint16_t> sorted(scan, scan + 64);
        std::sort(sorted.begin(), sorted.end());
        for (uint16_t i = 0; i < 64; i++) EXPECT_EQ(sorted[i], i);
    }
}

TEST(ScanTables, StandTwiceOverForTheBlockLoops) {
    for (size_t scan = 0; scan < 3; scan++)
        for (size_t i = 0; i < 128; i++) EXPECT_EQ(g_atScans[scan].au16[i], g_au16ScanTables[scan][i % 64]) << scan;
}

TEST(DcScalerTable, IsThatOfTheStandard) {
    ASSERT_EQ(TableRows("DCSCALER").size(), 33u);
    for (const CodeRow& row : TableRows("DCSCALER")) {
        const size_t quantiser = std::stoul(row.code);
        EXPECT_EQ(table_dc_scaler[quantiser], static_cast<uint32_t>(row.fields[0])) << quantiser;
        EXPECT_EQ(table_dc_scaler[33 + quantiser], static_cast<uint32_t>(row.fields[1])) << quantiser;
    }
}

TEST(DcScalerTable, IsZeroWhereThereIsNoQuantiser) {
    for (const size_t i : {0u, 32u, 33u, 65u}) EXPECT_EQ(table_dc_scaler[i], 0u);
}

}  // namespace
}  // namespace mp4v::test
