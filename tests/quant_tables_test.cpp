// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors
#include "common/quant_tables.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace mp4v::test {
namespace {

// Rows "NAME index value" of the tables of ISO/IEC 14496-2.
std::vector<int> Printed(const std::string& name) {
    std::ifstream file(MP4VDEC_TEST_DATA_DIR "/data/tables.tsv");
    std::vector<int> values;
    for (std::string line; std::getline(file, line);) {
        std::istringstream row(line);
        std::string table;
        size_t index = 0;
        int value = 0;
        if (!(row >> table) || table != name || !(row >> index >> value)) continue;
        EXPECT_EQ(values.size(), index) << line;
        values.push_back(value);
    }
    return values;
}

template <typename T>
std::vector<int> Values(const T (&table)[64]) {
    return {table, table + 64};
}

TEST(ZigzagScan, IsThePrintedScan) {
    ASSERT_EQ(64u, Printed("SCAN0").size());
    EXPECT_EQ(Printed("SCAN0"), Values(g_au16ZigzagScanTable));
}

TEST(ZigzagScan, WalksTheDiagonalsAlternately) {
    std::vector<int> want;
    for (int sum = 0; sum < 15; sum++)
        for (int i = 0; i <= sum; i++) {
            const int row = sum % 2 ? i : sum - i, column = sum - row;
            if (row < 8 && column < 8) want.push_back(8 * row + column);
        }
    EXPECT_EQ(want, Values(g_au16ZigzagScanTable));
}

TEST(DefaultMatrices, AreThePrintedOnes) {
    ASSERT_EQ(64u, Printed("QINTRA").size());
    ASSERT_EQ(64u, Printed("QINTER").size());
    EXPECT_EQ(Printed("QINTRA"), Values(g_as16DefaultIntraMatrix));
    EXPECT_EQ(Printed("QINTER"), Values(g_as16DefaultInterMatrix));
}

TEST(DefaultMatrices, BeginAndEndAsKnown) {
    EXPECT_EQ(8, g_as16DefaultIntraMatrix[0]);
    EXPECT_EQ(45, g_as16DefaultIntraMatrix[63]);
    EXPECT_EQ(16, g_as16DefaultInterMatrix[0]);
    EXPECT_EQ(33, g_as16DefaultInterMatrix[63]);
}

TEST(DequantiserWeights, AreTheDefaultMatrices) {
    EXPECT_EQ(Printed("QINTRA"), Values(g_as16IntraMatrix));
    EXPECT_EQ(Printed("QINTER"), Values(g_as16InterMatrix));
}

}  // namespace
}  // namespace mp4v::test
