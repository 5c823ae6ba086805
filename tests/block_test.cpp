// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors
#include "common/block.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>

#include "support/bit_writer.h"
#include "support/random.h"
#include "support/reader_model.h"
#include "support/vlc_codes.h"

namespace mp4v::test {
namespace {

constexpr uint32_t kCoeff = 0xA2C0001F;
constexpr uint32_t kBitstream = 0xA2C0001E;

using Block = std::array<int16_t, 64>;
using Blocks = std::array<int16_t, 7 * 64>;  // six, and one that nothing may write

int Raster(uint32_t scan, uint32_t index) {
    return TableRows("SCAN" + std::to_string(scan)).at(index).fields[0];
}

// ---- The decoders told code by code

// Tables B-19 to B-22.
int IntraLevelMax(int last, int run) {
    if (last) return run == 0 ? 8 : run == 1 ? 3 : run <= 6 ? 2 : run <= 20 ? 1 : 0;
    if (run <= 3) return std::array{27, 10, 5, 4}[static_cast<size_t>(run)];
    return run <= 7 ? 3 : run <= 9 ? 2 : run <= 14 ? 1 : 0;
}

int IntraRunMax(int last, int level) {
    if (last) return level == 1 ? 20 : level == 2 ? 6 : level == 3 ? 1 : 0;
    if (level <= 5) return std::array{-1, 14, 9, 7, 3, 2}[static_cast<size_t>(level)];
    return level <= 10 ? 1 : 0;
}

int InterLevelMax(int last, int run) {
    if (last) return run == 0 ? 3 : run == 1 ? 2 : run <= 40 ? 1 : 0;
    if (run <= 2) return std::array{12, 6, 4}[static_cast<size_t>(run)];
    return run <= 6 ? 3 : run <= 10 ? 2 : run <= 26 ? 1 : 0;
}

int InterRunMax(int last, int level) {
    if (last) return level == 1 ? 40 : level == 2 ? 1 : 0;
    if (level <= 4) return std::array{-1, 26, 10, 6, 2}[static_cast<size_t>(level)];
    return level <= 6 ? 1 : 0;
}

struct Event {
    int last;
    int run;
    int level;
};

// The event of a row. An escape code in the place of an escaped event has its packed value taken apart like all others.
Event EventOf(const CodeRow& row, bool intra) {
    if (!IsEscape(row)) return {row.fields[0], row.fields[1], row.fields[2]};
    return intra ? Event{1, 47, 63} : Event{1, 191, 15};
}

int Signed12(uint32_t bits) {
    return bits < 2048 ? static_cast<int>(bits) : static_cast<int>(bits) - 4096;
}

// False when there is no such code.
bool ModelIntraEvent(ReaderModel& model, Event& event) {
    const CodeRow* row = FindCode("B-16", model.Digits(12));
    if (!row) return false;
    model.Skip(static_cast<unsigned>(row->code.size()));
    const std::string mode = IsEscape(*row) ? model.Digits(2) : "none";
    if (mode == "11") {
        model.Skip(2);
        event.last = static_cast<int>(model.Read(1));
        event.run = static_cast<int>(model.Read(6));
        model.Skip(1);
        event.level = Signed12(model.Read(12));
        model.Skip(1);
        return true;
    }
    if (mode != "none") {
        model.Skip(mode == "10" ? 2 : 1);
        row = FindCode("B-16", model.Digits(12));
        if (!row) return false;
        model.Skip(static_cast<unsigned>(row->code.size()));
    }
    event = EventOf(*row, true);
    if (mode == "10") {
        event.run += IntraRunMax(event.last, event.level) + 1;
    } else if (mode != "none") {
        event.level += IntraLevelMax(event.last, event.run);
    }
    if (model.Read(1)) event.level = -event.level;
    return true;
}

bool ModelInterEvent(ReaderModel& model, Event& event) {
    const std::string digits = model.Digits(32);
    const CodeRow* row = FindCode("B-17", digits);
    if (!row) return false;
    if (!IsEscape(*row)) {
        event = EventOf(*row, false);
        if (digits[row->code.size()] == '1') event.level = -event.level;
        model.Skip(static_cast<unsigned>(row->code.size()) + 1);
        return true;
    }
    if (digits.compare(7, 2, "11") == 0) {
        event.last = digits[9] == '1';
        event.run = std::stoi(digits.substr(10, 6), nullptr, 2);
        event.level = Signed12(static_cast<uint32_t>(std::stoul(digits.substr(17, 12), nullptr, 2)));
        model.Skip(30);
        return true;
    }
    const bool raises_run = digits[7] == '1';
    const size_t prefix = raises_run ? 9 : 8;
    row = FindCode("B-17", digits.substr(prefix));
    if (!row) {
        model.Skip(static_cast<unsigned>(prefix));
        return false;
    }
    event = EventOf(*row, false);
    if (raises_run) {
        event.run += InterRunMax(event.last, event.level) + 1;
    } else {
        event.level += InterLevelMax(event.last, event.run);
    }
    const size_t sign = prefix + row->code.size();
    if (digits[sign] == '1') event.level = -event.level;
    model.Skip(static_cast<unsigned>(sign) + 1);
    return true;
}

uint32_t ModelBlock(ReaderModel& model, int16_t* block, uint32_t scan, uint64_t start, bool intra) {
    uint64_t index = intra ? start : 0;
    for (;;) {
        Event event{};
        const bool exists = intra ? ModelIntraEvent(model, event) : ModelInterEvent(model, event);
        index += static_cast<uint64_t>(event.run);
        if (!exists || index > 63) {
            model.set_error(kCoeff);
            return kCoeff;
        }
        const int raster = Raster(scan, static_cast<uint32_t>(index++));
        block[raster] = static_cast<int16_t>(event.level);
        if (event.last) return intra ? static_cast<uint32_t>(event.level) : static_cast<uint32_t>(raster);
    }
}

// ---- Running one decoder

struct Outcome {
    uint32_t result = 0;
    uint64_t bits = 0;
    uint32_t error = 0;
    Block block{};
};

BitWriter Written(const std::string& digits) {
    BitWriter writer;
    writer.Bits(digits).Put(0xAAAAAAAA, 32).Put(0xAAAAAAAA, 32).Put(0xAAAAAAAA, 32);
    return writer;
}

uint64_t Consumed(const BsReader& reader) {
    const auto next = reinterpret_cast<uintptr_t>(reader.pu32ReadPtr) - reinterpret_cast<uintptr_t>(reader.pu8BufStart);
    return uint64_t{next - 8} * 8 + reader.u32BitPos;
}

template <typename Decode>
Outcome DecodeDigits(const std::string& digits, Decode decode) {
    const ExactChunk chunk(Written(digits).Bytes());
    BsReader reader = chunk.Reader();
    Outcome run;
    run.result = decode(&reader, run.block.data());
    run.bits = Consumed(reader);
    run.error = reader.u32BsError;
    return run;
}

Outcome Intra(const std::string& digits, uint32_t start = 0, uint32_t scan = 0) {
    return DecodeDigits(digits,
                        [=](BsReader* reader, int16_t* block) { return DecIntraBlock_c(reader, block, scan, start); });
}

Outcome Inter(const std::string& digits) {
    return DecodeDigits(digits, [](BsReader* reader, int16_t* block) { return DecInterBlock_c(reader, block); });
}

Block BlockOf(std::initializer_list<std::pair<int, int>> coefficients) {
    Block block{};
    for (const auto& [raster, level] : coefficients)
        block.at(static_cast<size_t>(raster)) = static_cast<int16_t>(level);
    return block;
}

// Records calls of the dequantisation kernel, and negates the block so that they show.
class DecInterBlocksTest : public testing::Test {
  protected:
    void SetUp() override {
        saved_ = DequantH263Inter;
        DequantH263Inter = Negate;
        calls.clear();
    }
    void TearDown() override { DequantH263Inter = saved_; }

    static void Negate(int16_t* dst, const int16_t* src, uint16_t quantiser) {
        calls.push_back({dst, src, quantiser});
        for (int i = 0; i < 64; i++) dst[i] = static_cast<int16_t>(-src[i]);
    }

    // Decodes into blocks filled with 99.
    Blocks Decode(const std::string& digits, uint32_t scan, uint32_t mask, uint32_t quantiser) {
        const ExactChunk chunk(Written(digits).Bytes());
        BsReader reader = chunk.Reader();
        Blocks blocks;
        blocks.fill(99);
        DecInterBlocks_c(&reader, blocks.data(), scan, mask, quantiser);
        bits = Consumed(reader);
        error = reader.u32BsError;
        for (Call& call : calls) {
            EXPECT_EQ(call.dst, call.src);
            call.slot = call.dst - blocks.data();
        }
        return blocks;
    }

    static Block Slot(const Blocks& blocks, size_t slot) {
        Block block;
        std::copy_n(blocks.begin() + static_cast<std::ptrdiff_t>(slot * 64), 64, block.begin());
        return block;
    }

    static Block Filled(int16_t value) {
        Block block;
        block.fill(value);
        return block;
    }

    struct Call {
        const int16_t* dst;
        const int16_t* src;
        uint16_t quantiser;
        std::ptrdiff_t slot = -1;
    };
    static std::vector<Call> calls;
    uint64_t bits = 0;
    uint32_t error = 0;

  private:
    decltype(DequantH263Inter) saved_ = nullptr;
};
std::vector<DecInterBlocksTest::Call> DecInterBlocksTest::calls;

const std::string kMode1 = "0000011 0 ";
const std::string kMode2 = "0000011 10 ";
const std::string kInvalidCode = "000000000111";

// ---- Intra blocks

TEST(DecIntraBlock, StoresOneCoefficientWhenTheFirstEventIsTheLast) {
    const Outcome run = Intra("0111 0");
    EXPECT_EQ(run.block, BlockOf({{0, 1}}));
    EXPECT_EQ(run.result, 1u);
    EXPECT_EQ(run.bits, 5u);
    EXPECT_EQ(run.error, 0u);
}

TEST(DecIntraBlock, ReturnsTheLastLevelWithItsSign) {
    EXPECT_EQ(Intra("10 0 001100 1").result, static_cast<uint32_t>(-2));
    EXPECT_EQ(Intra(EscapedTcoefCode(1, 0, -2048)).result, static_cast<uint32_t>(-2048));
}

TEST(DecIntraBlock, DecodesEveryEvent) {
    for (const CodeRow& row : TableRows("B-16")) {
        if (IsEscape(row)) continue;
        for (const bool negative : {false, true}) {
            const int level = negative ? -row.fields[2] : row.fields[2];
            const std::string end = row.fields[0] ? "" : TcoefCode(true, 1, 0, 1);
            const Outcome run = Intra(row.code + (negative ? "1" : "0") + end);
            Block want = BlockOf({{Raster(0, static_cast<uint32_t>(row.fields[1])), level}});
            if (!row.fields[0]) want.at(static_cast<size_t>(Raster(0, static_cast<uint32_t>(row.fields[1] + 1)))) = 1;
            EXPECT_EQ(run.block, want) << row.code;
            EXPECT_EQ(run.bits, row.code.size() + 1 + end.size()) << row.code;
            EXPECT_EQ(run.error, 0u) << row.code;
        }
    }
}

TEST(DecIntraBlock, WritesNothingButWhatItDecodes) {
    const ExactChunk chunk(Written("110 1 0111 0").Bytes());
    BsReader reader = chunk.Reader();
    Block block;
    block.fill(77);
    DecIntraBlock_c(&reader, block.data(), 0, 0);
    Block want;
    want.fill(77);
    want[0] = -2;
    want[1] = 1;
    EXPECT_EQ(block, want);
}

TEST(DecIntraBlock, FailsOnARunOf63FromIndex1) {
    const Outcome run = Intra(EscapedTcoefCode(1, 63, 5), 1);
    EXPECT_EQ(run.result, kCoeff);
    EXPECT_EQ(run.error, kCoeff);
    EXPECT_EQ(run.block, Block{});
    EXPECT_EQ(run.bits, 30u);
}

TEST(DecIntraBlock, StoresTheLastCoefficientAfterARunOf62FromIndex1) {
    const Outcome run = Intra(EscapedTcoefCode(1, 62, 5), 1);
    EXPECT_EQ(run.result, 5u);
    EXPECT_EQ(run.error, 0u);
    EXPECT_EQ(run.block, BlockOf({{63, 5}}));
}

TEST(DecIntraBlock, FailsOnACoefficientBehindTheLastPlace) {
    const Outcome run = Intra(EscapedTcoefCode(0, 63, 5) + "10 0");
    EXPECT_EQ(run.result, kCoeff);
    EXPECT_EQ(run.block, BlockOf({{63, 5}}));
    EXPECT_EQ(run.bits, 33u);
}

TEST(DecIntraBlock, KeepsWhatItStoredBeforeAFailure) {
    const Outcome run = Intra("10 0 110 1" + kInvalidCode);
    EXPECT_EQ(run.result, kCoeff);
    EXPECT_EQ(run.error, kCoeff);
    EXPECT_EQ(run.block, BlockOf({{0, 1}, {1, -2}}));
    EXPECT_EQ(run.bits, 7u);  // nothing of the invalid code
}

TEST(DecIntraBlock, RefusesEveryCodeBelowEight) {
    for (int code = 0; code < 8; code++) {
        const Outcome run = Intra(Digits(code, 12));
        EXPECT_EQ(run.result, kCoeff);
        EXPECT_EQ(run.bits, 0u);
    }
    EXPECT_EQ(Intra(Digits(8, 12)).error, 0u) << "000000001000 is a code";
}

TEST(DecIntraBlock, EscapeMode1RaisesTheLevel) {
    const Outcome run = Intra(kMode1 + "10 0" + "0111 0");
    EXPECT_EQ(run.block, BlockOf({{0, 28}, {1, 1}}));
    EXPECT_EQ(run.bits, 16u);
    EXPECT_EQ(Intra(kMode1 + "10 1" + "0111 0").block, BlockOf({{0, -28}, {1, 1}}));
    EXPECT_EQ(Intra(kMode1 + "0111 1").block, BlockOf({{0, -9}}));
}

TEST(DecIntraBlock, EscapeMode2RaisesTheRun) {
    const Outcome run = Intra(kMode2 + "10 0" + "0111 0");
    EXPECT_EQ(run.block, BlockOf({{Raster(0, 15), 1}, {Raster(0, 16), 1}}));
    EXPECT_EQ(run.bits, 17u);
    EXPECT_EQ(Intra(kMode2 + "0111 1").block, BlockOf({{Raster(0, 21), -1}}));
}

TEST(DecIntraBlock, EscapeModes1And2RaiseEveryEvent) {
    for (const CodeRow& row : TableRows("B-16")) {
        if (IsEscape(row)) continue;
        const auto [last, run, level] = row.fields;
        const std::string end = last ? "" : TcoefCode(true, 1, 0, 1);
        const Outcome raised_level = Intra(kMode1 + row.code + "1" + end);
        EXPECT_EQ(raised_level.block[static_cast<size_t>(Raster(0, static_cast<uint32_t>(run)))],
                  -level - IntraLevelMax(last, run));
        const Outcome raised_run = Intra(kMode2 + row.code + "0" + end);
        const int index = run + IntraRunMax(last, level) + 1;
        EXPECT_EQ(raised_run.block[static_cast<size_t>(Raster(0, static_cast<uint32_t>(index)))], level);
    }
}

TEST(DecIntraBlock, EscapeMode3TakesAnyLevel) {
    EXPECT_EQ(Intra("0000011 11 1 000000 1 111111111111 1").block, BlockOf({{0, -1}}));
    EXPECT_EQ(Intra("0000011 11 1 000000 1 100000000000 1").block, BlockOf({{0, -2048}}));
    EXPECT_EQ(Intra("0000011 11 1 000000 1 011111111111 1").block, BlockOf({{0, 2047}}));
    const Outcome zero = Intra("0000011 11 1 000011 1 000000000000 1");
    EXPECT_EQ(zero.block, Block{});
    EXPECT_EQ(zero.result, 0u);
    EXPECT_EQ(zero.error, 0u);
    EXPECT_EQ(zero.bits, 30u);
}

TEST(DecIntraBlock, EscapeMode3IgnoresItsMarkers) {
    const Outcome run = Intra("0000011 11 1 000010 0 000000000101 0");
    EXPECT_EQ(run.block, BlockOf({{8, 5}}));
    EXPECT_EQ(run.error, 0u);
    EXPECT_EQ(run.bits, 30u);
}

TEST(DecIntraBlock, EscapeModes1And2FailOnAnInvalidCode) {
    const Outcome raised_level = Intra(kMode1 + kInvalidCode);
    EXPECT_EQ(raised_level.result, kCoeff);
    EXPECT_EQ(raised_level.error, kCoeff);
    EXPECT_EQ(raised_level.bits, 8u);
    const Outcome raised_run = Intra(kMode2 + kInvalidCode);
    EXPECT_EQ(raised_run.result, kCoeff);
    EXPECT_EQ(raised_run.bits, 9u);
}

TEST(DecIntraBlock, AnEscapedEscapeIsUnpackedLikeAnyEvent) {
    const Outcome raised_level = Intra(kMode1 + "0000011 1");
    EXPECT_EQ(raised_level.block, BlockOf({{Raster(0, 47), -63}}));
    EXPECT_EQ(raised_level.bits, 16u);
    const Outcome raised_run = Intra(kMode2 + "0000011 0", 15);
    EXPECT_EQ(raised_run.block, BlockOf({{Raster(0, 63), 63}}));
    EXPECT_EQ(Intra(kMode2 + "0000011 0", 16).result, kCoeff);
}

TEST(DecIntraBlock, PlacesTheThirdCoefficientByTheScan) {
    const std::string digits = "10 0 10 0 0111 0";
    EXPECT_EQ(Intra(digits, 0, 0).block, BlockOf({{0, 1}, {1, 1}, {8, 1}}));
    EXPECT_EQ(Intra(digits, 0, 1).block, BlockOf({{0, 1}, {1, 1}, {2, 1}}));
    EXPECT_EQ(Intra(digits, 0, 2).block, BlockOf({{0, 1}, {8, 1}, {16, 1}}));
}

TEST(DecIntraBlock, FillsABlockInTheOrderOfEachScan) {
    std::string digits;
    for (int i = 0; i < 64; i++) digits += EscapedTcoefCode(i == 63, 0, 100 + i);
    for (uint32_t scan = 0; scan < 3; scan++) {
        const Outcome run = Intra(digits, 0, scan);
        EXPECT_EQ(run.error, 0u);
        for (uint32_t i = 0; i < 64; i++)
            EXPECT_EQ(run.block[static_cast<size_t>(Raster(scan, i))], 100 + static_cast<int>(i));
    }
}

TEST(DecIntraBlock, StaysInsideItsTablesForUnknownScans) {
    for (const uint32_t scan : {3u, 4u, 0x80000000u, 0xFFFFFFFFu}) {
        EXPECT_EQ(Intra("10 0 10 0 0111 0", 0, scan).block, BlockOf({{0, 1}, {1, 1}, {8, 1}}));
    }
}

TEST(DecIntraBlock, FailsForStartsBehindTheBlock) {
    for (const uint32_t start : {64u, 65u, 0x7FFFFFFFu, 0xFFFFFFFFu, 0xFFFFFFF0u}) {
        const Outcome run = Intra(EscapedTcoefCode(1, 63, 5), start);
        EXPECT_EQ(run.result, kCoeff) << start;
        EXPECT_EQ(run.bits, 30u) << start;
        EXPECT_EQ(run.block, Block{}) << start;
    }
}

TEST(DecIntraBlock, ACoefficientErrorReplacesAnOverrun) {
    ExactChunk chunk({0xFF, 0xFF, 0xFF}, 0, 0);
    chunk.data()[3] = 0x0D;  // 110 1 up to bit 32, which is behind the end; then no code
    BsReader reader = chunk.Reader();
    BsSkip(&reader, 28);
    Block block{};
    EXPECT_EQ(DecIntraBlock_c(&reader, block.data(), 0, 0), kCoeff);
    EXPECT_EQ(block, BlockOf({{0, -2}}));
    EXPECT_EQ(Consumed(reader), 32u);
    EXPECT_EQ(reader.u32BsError, kCoeff);
}

TEST(DecIntraBlock, AnOverrunReplacesACoefficientError) {
    ExactChunk chunk({0xFF, 0xFF, 0xFF}, 0, 0x70);  // 0111 0 from bit 32 on
    chunk.data()[3] = 0x0D;
    BsReader reader = chunk.Reader();
    BsSkip(&reader, 28);
    reader.u32BsError = kCoeff;
    Block block{};
    EXPECT_EQ(DecIntraBlock_c(&reader, block.data(), 0, 0), 1u);
    EXPECT_EQ(block, BlockOf({{0, -2}, {1, 1}}));
    EXPECT_EQ(reader.u32BsError, kBitstream);
}

TEST(DecIntraBlock, GoesOnBehindTheChunkUntilAnEventIsTheLast) {
    const ExactChunk chunk({0x92}, 0, 0x38);  // 10 0 10 0 10 | 0 0111 0
    BsReader reader = chunk.Reader();
    Block block{};
    EXPECT_EQ(DecIntraBlock_c(&reader, block.data(), 0, 0), 1u);
    EXPECT_EQ(block, BlockOf({{0, 1}, {1, 1}, {8, 1}, {16, 1}}));
    EXPECT_EQ(reader.u32BsError, 0u) << "no word was left";
}

TEST(DecIntraBlock, EndsOnNothingButZeros) {
    const ExactChunk chunk({0x92, 0x49, 0x24}, 0, 0);
    BsReader reader = chunk.Reader();
    Block block{};
    EXPECT_EQ(DecIntraBlock_c(&reader, block.data(), 0, 0), kCoeff);
}

TEST(DecIntraBlock, EndsOnEndlessEvents) {
    const ExactChunk chunk(std::vector<uint8_t>(64, 0x92), 0, 0x92);
    BsReader reader = chunk.Reader();
    Block block{};
    EXPECT_EQ(DecIntraBlock_c(&reader, block.data(), 0, 0), kCoeff);
}

TEST(DecIntraBlockAlterScan, IsDecIntraBlockWithScan2) {
    const std::string digits = "10 0 110 1 01011 1 0111 0";
    const Outcome run = DecodeDigits(
        digits, [](BsReader* reader, int16_t* block) { return DecIntraBlockAlterScan_c(reader, block, 1); });
    EXPECT_EQ(run.block, BlockOf({{8, 1}, {16, -2}, {9, -1}, {2, 1}}));
    EXPECT_EQ(run.block, Intra(digits, 1, 2).block);
    EXPECT_EQ(run.result, 1u);
}

// ---- Inter blocks

TEST(DecInterBlock, ReturnsTheRasterPositionOfTheLastCoefficient) {
    const Outcome run = Inter("0111 1");
    EXPECT_EQ(run.block, BlockOf({{0, -1}}));
    EXPECT_EQ(run.result, 0u);
    EXPECT_EQ(run.bits, 5u);
    EXPECT_EQ(Inter(EscapedTcoefCode(1, 2, 7)).result, 8u);
}

TEST(DecInterBlock, DecodesEveryEvent) {
    for (const CodeRow& row : TableRows("B-17")) {
        if (IsEscape(row)) continue;
        for (const bool negative : {false, true}) {
            const int level = negative ? -row.fields[2] : row.fields[2];
            const std::string end = row.fields[0] ? "" : TcoefCode(false, 1, 0, 1);
            const Outcome run = Inter(row.code + (negative ? "1" : "0") + end);
            Block want = BlockOf({{Raster(0, static_cast<uint32_t>(row.fields[1])), level}});
            if (!row.fields[0]) want.at(static_cast<size_t>(Raster(0, static_cast<uint32_t>(row.fields[1] + 1)))) = 1;
            EXPECT_EQ(run.block, want) << row.code;
            EXPECT_EQ(run.bits, row.code.size() + 1 + end.size()) << row.code;
            EXPECT_EQ(run.error, 0u) << row.code;
        }
    }
}

TEST(DecInterBlock, EscapeMode1RaisesTheLevel) {
    const Outcome run = Inter(kMode1 + "0111 0");
    EXPECT_EQ(run.block, BlockOf({{0, 4}}));
    EXPECT_EQ(run.bits, 13u);
    EXPECT_EQ(Inter(kMode1 + "10 1 0111 0").block, BlockOf({{0, -13}, {1, 1}}));
}

TEST(DecInterBlock, EscapeMode2RaisesTheRun) {
    const Outcome run = Inter(kMode2 + "0111 0");
    EXPECT_EQ(run.block, BlockOf({{Raster(0, 41), 1}}));
    EXPECT_EQ(run.result, static_cast<uint32_t>(Raster(0, 41)));
    EXPECT_EQ(run.bits, 14u);
}

TEST(DecInterBlock, EscapeModes1And2RaiseEveryEvent) {
    for (const CodeRow& row : TableRows("B-17")) {
        if (IsEscape(row)) continue;
        const auto [last, run, level] = row.fields;
        const std::string end = last ? "" : TcoefCode(false, 1, 0, 1);
        const Outcome raised_level = Inter(kMode1 + row.code + "1" + end);
        EXPECT_EQ(raised_level.block[static_cast<size_t>(Raster(0, static_cast<uint32_t>(run)))],
                  -level - InterLevelMax(last, run));
        const Outcome raised_run = Inter(kMode2 + row.code + "0" + end);
        const int index = run + InterRunMax(last, level) + 1;
        if (index > 63) {
            EXPECT_EQ(raised_run.result, kCoeff);
            continue;
        }
        EXPECT_EQ(raised_run.block[static_cast<size_t>(Raster(0, static_cast<uint32_t>(index)))], level);
    }
}

TEST(DecInterBlock, EscapeMode3TakesAnyLevelAndIgnoresItsMarkers) {
    EXPECT_EQ(Inter("0000011 11 1 000000 0 111111111111 0").block, BlockOf({{0, -1}}));
    EXPECT_EQ(Inter("0000011 11 1 000001 1 100000000000 0").block, BlockOf({{1, -2048}}));
    const Outcome zero = Inter("0000011 11 1 111111 0 000000000000 1");
    EXPECT_EQ(zero.block, Block{});
    EXPECT_EQ(zero.result, 63u);
    EXPECT_EQ(zero.bits, 30u);
}

TEST(DecInterBlock, FailsOnAnInvalidCode) {
    const Outcome run = Inter("10 0" + kInvalidCode);
    EXPECT_EQ(run.result, kCoeff);
    EXPECT_EQ(run.error, kCoeff);
    EXPECT_EQ(run.bits, 3u);
    EXPECT_EQ(run.block, BlockOf({{0, 1}}));
}

TEST(DecInterBlock, SkipsTheEscapeAndItsModeInFrontOfAnInvalidCode) {
    EXPECT_EQ(Inter(kMode1 + kInvalidCode).result, kCoeff);
    EXPECT_EQ(Inter(kMode1 + kInvalidCode).bits, 8u);
    EXPECT_EQ(Inter(kMode2 + kInvalidCode).result, kCoeff);
    EXPECT_EQ(Inter(kMode2 + kInvalidCode).bits, 9u);
}

TEST(DecInterBlock, FailsOnAnEscapedEscape) {
    for (const std::string& mode : {kMode1, kMode2}) {
        const Outcome run = Inter(mode + "0000011 0");
        EXPECT_EQ(run.result, kCoeff);
        EXPECT_EQ(run.bits, mode == kMode1 ? 16u : 17u);
        EXPECT_EQ(run.block, Block{});
    }
}

TEST(DecInterBlock, FailsOnARunBehindTheBlock) {
    const Outcome run = Inter("10 0" + EscapedTcoefCode(1, 63, 9));
    EXPECT_EQ(run.result, kCoeff);
    EXPECT_EQ(run.block, BlockOf({{0, 1}}));
    EXPECT_EQ(run.bits, 33u);
}

TEST(DecInterBlock, FillsABlock) {
    std::string digits;
    for (int i = 0; i < 64; i++) digits += EscapedTcoefCode(i == 63, 0, i - 200);
    const Outcome run = Inter(digits);
    EXPECT_EQ(run.error, 0u);
    EXPECT_EQ(run.result, 63u);
    for (uint32_t i = 0; i < 64; i++)
        EXPECT_EQ(run.block[static_cast<size_t>(Raster(0, i))], static_cast<int>(i) - 200);
}

TEST(DecInterBlockAlterScan, UsesTheAlternateVerticalScan) {
    const Outcome run = DecodeDigits(
        "10 0 1110 1 0111 0", [](BsReader* reader, int16_t* block) { return DecInterBlockAlterScan_c(reader, block); });
    EXPECT_EQ(run.block, BlockOf({{0, 1}, {24, -1}, {1, 1}}));
    EXPECT_EQ(run.result, 1u);
}

// ---- All blocks of a macroblock

TEST_F(DecInterBlocksTest, WithoutCodedBlocksTouchesNothing) {
    const Blocks blocks = Decode("0111 0", 0, 0, 5);
    for (size_t slot = 0; slot < 7; slot++) EXPECT_EQ(Slot(blocks, slot), Filled(99));
    EXPECT_EQ(bits, 0u);
    EXPECT_TRUE(calls.empty());
}

TEST_F(DecInterBlocksTest, PacksTheCodedBlocks) {
    const Blocks blocks = Decode("0111 0 0111 1", 0, 0b100001, 0);
    EXPECT_EQ(Slot(blocks, 0), BlockOf({{0, 1}}));
    EXPECT_EQ(Slot(blocks, 1), BlockOf({{0, -1}}));
    for (size_t slot = 2; slot < 7; slot++) EXPECT_EQ(Slot(blocks, slot), Filled(99));
    EXPECT_EQ(bits, 10u);
    EXPECT_TRUE(calls.empty());
}

TEST_F(DecInterBlocksTest, DecodesSixBlocks) {
    std::string digits;
    for (int i = 0; i < 6; i++) digits += EscapedTcoefCode(1, i, i + 1);
    const Blocks blocks = Decode(digits, 0, 0x3F, 0);
    for (size_t slot = 0; slot < 6; slot++) {
        const int i = static_cast<int>(slot);
        EXPECT_EQ(Slot(blocks, slot), BlockOf({{Raster(0, static_cast<uint32_t>(i)), i + 1}}));
    }
    EXPECT_EQ(Slot(blocks, 6), Filled(99));
}

TEST_F(DecInterBlocksTest, IgnoresBitsAboveTheSixth) {
    const Blocks blocks = Decode("0111 0 0111 1 0111 0 0111 0 0111 0 0111 0 0111 0", 0, 0xFFFFFFC1, 0);
    EXPECT_EQ(Slot(blocks, 0), BlockOf({{0, 1}}));
    for (size_t slot = 1; slot < 7; slot++) EXPECT_EQ(Slot(blocks, slot), Filled(99));
    Decode("", 0, 0xFFFFFFC0, 0);
    EXPECT_EQ(bits, 0u);
}

TEST_F(DecInterBlocksTest, DequantisesEachBlockInPlace) {
    const Blocks blocks = Decode("0111 0 0111 1 110 0 0111 0", 0, 0b000111, 31);
    EXPECT_EQ(Slot(blocks, 0), BlockOf({{0, -1}}));
    EXPECT_EQ(Slot(blocks, 1), BlockOf({{0, 1}}));
    EXPECT_EQ(Slot(blocks, 2), BlockOf({{1, -1}, {8, -1}}));
    ASSERT_EQ(calls.size(), 3u);
    for (size_t i = 0; i < 3; i++) {
        EXPECT_EQ(calls[i].quantiser, 31);
        EXPECT_EQ(calls[i].slot, static_cast<std::ptrdiff_t>(i * 64));
    }
}

TEST_F(DecInterBlocksTest, UsesTheAlternateVerticalScan) {
    const Blocks blocks = Decode("10 0 0111 0", 2, 1, 0);
    EXPECT_EQ(Slot(blocks, 0), BlockOf({{0, 1}, {8, 1}}));
}

TEST_F(DecInterBlocksTest, ReadsNothingForOtherScans) {
    for (const uint32_t scan : {1u, 3u, 0xFFFFFFFFu}) {
        const Blocks blocks = Decode("0111 0 0111 0", scan, 0b11, 0);
        EXPECT_EQ(Slot(blocks, 0), Block{});
        EXPECT_EQ(Slot(blocks, 1), Block{});
        EXPECT_EQ(Slot(blocks, 2), Filled(99));
        EXPECT_EQ(bits, 0u);
        EXPECT_EQ(error, 0u);
    }
}

TEST_F(DecInterBlocksTest, StopsAtABlockThatFails) {
    const Blocks blocks = Decode("0111 0 10 0" + kInvalidCode + "0111 0", 0, 0b010101, 7);
    EXPECT_EQ(Slot(blocks, 0), BlockOf({{0, -1}})) << "decoded and dequantised";
    EXPECT_EQ(Slot(blocks, 1), BlockOf({{0, 1}})) << "not dequantised";
    EXPECT_EQ(Slot(blocks, 2), Block{}) << "zeroed only";
    EXPECT_EQ(Slot(blocks, 3), Filled(99));
    EXPECT_EQ(calls.size(), 1u);
    EXPECT_EQ(error, kCoeff);
    EXPECT_EQ(bits, 8u);
}

TEST_F(DecInterBlocksTest, GoesOnAfterAnOverrun) {
    const ExactChunk chunk({0x73, 0x9C}, 0, 0x73);  // 0111 0 0111 0 0111 0 0...
    BsReader reader = chunk.Reader();
    reader.u32BsError = kBitstream;
    Blocks blocks;
    blocks.fill(99);
    DecInterBlocks_c(&reader, blocks.data(), 0, 0b111, 1);
    for (size_t slot = 0; slot < 3; slot++) EXPECT_EQ(Slot(blocks, slot), BlockOf({{0, -1}}));
    EXPECT_EQ(reader.u32BsError, kBitstream);
    EXPECT_EQ(calls.size(), 3u);
}

// ---- The dispatcher

TEST(DecBlock, SendsEachKindAndScanToItsDecoder) {
    // An event that the two tables read differently, then one on the next place of the scan.
    const std::string digits = "1110 0 0111 0";
    const auto decode = [&digits](uint32_t scan, uint32_t start, uint32_t intra) {
        return DecodeDigits(
            digits, [=](BsReader* reader, int16_t* block) { return DecBlock_c(reader, block, scan, start, intra); });
    };
    EXPECT_EQ(decode(0, 0, 1).block, BlockOf({{1, 1}, {8, 1}}));
    EXPECT_EQ(decode(1, 0, 1).block, BlockOf({{1, 1}, {2, 1}}));
    EXPECT_EQ(decode(2, 0, 1).block, BlockOf({{8, 1}, {16, 1}}));
    EXPECT_EQ(decode(0, 1, 2).block, BlockOf({{8, 1}, {16, 1}}));
    EXPECT_EQ(decode(0, 0, 0).block, BlockOf({{8, 1}, {16, 1}}));
    EXPECT_EQ(decode(1, 0, 0).block, BlockOf({{8, 1}, {16, 1}})) << "zigzag for all but 2";
    EXPECT_EQ(decode(2, 0, 0).block, BlockOf({{16, 1}, {24, 1}}));
    EXPECT_EQ(decode(0, 60, 0).block, BlockOf({{8, 1}, {16, 1}})) << "inter blocks have no start";
    EXPECT_EQ(decode(0, 0, 1).result, 1u) << "a level";
    EXPECT_EQ(decode(2, 0, 0).result, 24u) << "a position";
}

TEST(DecBlock, PassesFailuresOn) {
    for (const uint32_t intra : {0u, 1u}) {
        for (const uint32_t scan : {0u, 2u}) {
            const Outcome run = DecodeDigits(kInvalidCode, [=](BsReader* reader, int16_t* block) {
                return DecBlock_c(reader, block, scan, 0, intra);
            });
            EXPECT_EQ(run.result, kCoeff);
            EXPECT_EQ(run.error, kCoeff);
        }
    }
}

// ---- Any bits

std::string RandomEvent(Random& random, bool intra, bool last) {
    const CodeTable& rows = TableRows(intra ? "B-16" : "B-17");
    const CodeRow* row = nullptr;
    do row = &rows[random.Below(static_cast<uint32_t>(rows.size()))];
    while (IsEscape(*row) || (row->fields[0] != 0) != last);
    const std::string event = row->code + (random.Chance(2) ? "1" : "0");
    switch (random.Below(8)) {
        case 0:
            return kMode1 + event;
        case 1:
            return kMode2 + event;
        case 2:
            return EscapedTcoefCode(last, random.Between(0, 12), random.Between(-2048, 2047));
        default:
            return event;
    }
}

// Decodes blocks until the model has been well past the end, with every form of the decoders, and compares everything.
void CompareWithModel(Random& random, const ExactChunk& chunk, int block_count) {
    BsReader reader = chunk.Reader();
    BsReader exported = reader;
    ReaderModel model(chunk);
    BsCursor cursor(reader);
    for (int i = 0; i < block_count; i++) {
        const bool intra = random.Chance(2);
        const uint32_t scan = intra ? random.Below(3) : random.Below(2) * 2;
        const uint32_t start = random.Chance(8) ? random.Below(70) : random.Below(2);
        Block want{};
        Block got{};
        Block from_cursor{};
        const uint32_t result = ModelBlock(model, want.data(), scan, start, intra);
        ASSERT_EQ(DecBlock_c(&exported, got.data(), scan, start, intra), result);
        ASSERT_EQ(intra ? DecIntraBlock(cursor, from_cursor.data(), scan, start)
                        : DecInterBlock(cursor, from_cursor.data(), scan),
                  result);
        cursor.StoreTo(&reader);
        ASSERT_EQ(got, want);
        ASSERT_EQ(from_cursor, want);
        ASSERT_EQ(exported, model.Members());
        ASSERT_EQ(reader, model.Members());
        if (result == kCoeff) {  // gets past codes that consume nothing
            const uint32_t skip = random.Below(13);
            BsSkip(&exported, skip);
            cursor.Skip(skip);
            model.Skip(skip);
        }
    }
}

TEST(BlockDecoders, AgreeWithTheModelOnAnyBits) {
    for (uint32_t seed = 0; seed < 4000; seed++) {
        SCOPED_TRACE(testing::Message() << "seed " << seed);
        Random random(seed);
        const std::vector<uint8_t> bytes =
            random.Chance(2) ? random.Bytes(random.Below(60)) : random.SparseBytes(random.Below(60));
        const ExactChunk chunk(bytes, random.Below(4), random.Byte());
        CompareWithModel(random, chunk, 16);
        if (HasFatalFailure()) return;
    }
}

TEST(BlockDecoders, AgreeWithTheModelOnValidEventsCutAnywhere) {
    for (uint32_t seed = 0; seed < 3000; seed++) {
        SCOPED_TRACE(testing::Message() << "seed " << seed);
        Random random(seed);
        BitWriter writer;
        for (int block = 0; block < 4; block++) {
            for (int events = random.Between(0, 6); events > 0; events--) {
                writer.Bits(RandomEvent(random, random.Chance(2), false));
            }
            writer.Bits(RandomEvent(random, random.Chance(2), true));
        }
        std::vector<uint8_t> bytes = writer.Bytes();
        bytes.resize(random.Below(static_cast<uint32_t>(bytes.size()) + 1));
        const ExactChunk chunk(bytes, random.Below(4), random.Chance(2) ? 0x92 : random.Byte());
        CompareWithModel(random, chunk, 10);
        if (HasFatalFailure()) return;
    }
}

// Every event at every position relative to the chunk's end, where the grouping of skips decides about the sticky
// error.
TEST(BlockDecoders, NoticeTheEndOfTheChunkExactlyWhereTheModelDoes) {
    Random random(7);
    for (const bool intra : {true, false}) {
        for (int variant = 0; variant < 300; variant++) {
            const std::string event = RandomEvent(random, intra, true);
            for (unsigned position = 24; position < 64; position++) {
                BitWriter writer;
                for (unsigned i = 0; i < position; i++) writer.Put(1, 1);
                writer.Bits(event).Put(0, 32).Put(0, 32);
                for (uint32_t length = 4; length <= 8; length++) {
                    ExactChunk chunk(std::vector<uint8_t>(writer.Bytes().begin(), writer.Bytes().begin() + length));
                    std::copy_n(writer.Bytes().begin() + length, 8, chunk.data() + length);
                    BsReader reader = chunk.Reader();
                    ReaderModel model(chunk);
                    BsSkip(&reader, position / 2);
                    BsSkip(&reader, position - position / 2);
                    model.Skip(position / 2);
                    model.Skip(position - position / 2);
                    Block want{};
                    Block got{};
                    const uint32_t result = ModelBlock(model, want.data(), 0, 0, intra);
                    ASSERT_EQ(DecBlock_c(&reader, got.data(), 0, 0, intra), result);
                    ASSERT_EQ(got, want);
                    ASSERT_EQ(reader, model.Members()) << event << " at " << position << " of " << length << " bytes";
                }
            }
        }
    }
}

// ---- The decoders of the macroblock loops

// Events of the kind, sometimes damaged, in a chunk that ends behind them or anywhere.
std::vector<uint8_t> SomeBlocks(Random& random, bool intra, int blocks, bool with_dc, bool luma) {
    BitWriter writer;
    for (; blocks > 0; blocks--) {
        if (with_dc) writer.Bits(DcCode(random.Between(-300, 300), luma));
        for (int events = random.Between(0, 12); events > 0; events--) writer.Bits(RandomEvent(random, intra, false));
        if (random.Chance(20)) writer.Put(random.Next(), 9);
        writer.Bits(RandomEvent(random, intra, true));
    }
    std::vector<uint8_t> bytes = writer.Bytes();
    if (random.Chance(2)) bytes.resize(random.Below(static_cast<uint32_t>(bytes.size()) + 1));
    return bytes;
}

uint32_t PlacesOf(const Block& block) {
    uint32_t places = 0;
    for (uint32_t i = 0; i < 64; i++)
        if (block.at(i)) places |= i;
    return places;
}

TEST(DecIntraLevels, AreTheSymbolsOneAfterAnother) {
    for (uint32_t seed = 0; seed < 6000; seed++) {
        SCOPED_TRACE(testing::Message() << "seed " << seed);
        Random random(seed);
        const auto dc = static_cast<IntraDc>(random.Below(3));
        const bool coded = !random.Chance(5);
        const uint32_t scan = random.Below(3);
        const ExactChunk chunk(SomeBlocks(random, true, 6, dc != kDcAmongThem, dc == kDcLuma), random.Below(4),
                               random.Byte());
        BsReader want_reader = chunk.Reader();
        BsReader got_reader = want_reader;
        BsCursor cursor(got_reader);
        for (int n = 0; n < 6; n++) {
            Block want{};
            Block got;
            got.fill(99);
            if (dc != kDcAmongThem) {
                const uint32_t size = dc == kDcLuma ? DecDcSizeLuma_c(&want_reader) : DecDcSizeChroma_c(&want_reader);
                want[0] = static_cast<int16_t>(DecDcDif_c(&want_reader, size));
                if (size > 8) BsSkip(&want_reader, 1);
            }
            if (coded) DecIntraBlock_c(&want_reader, want.data(), scan, dc != kDcAmongThem);
            const uint32_t places = DecIntraLevels(&cursor, got.data(), dc, coded ? &g_atScans[scan] : nullptr);
            cursor.StoreTo(&got_reader);
            ASSERT_EQ(got, want);
            ASSERT_EQ(got_reader, want_reader);
            want[0] = 0;
            ASSERT_EQ(places & PlacesOf(want), PlacesOf(want));
        }
    }
}

// Where they succeed: the block decoder and the kernel.
void CompareCoefs(Random& random, bool mpeg, int* count) {
    const uint32_t quant = 1 + random.Below(31);
    const uint32_t scan = random.Below(2) * 2;
    const ExactChunk chunk(SomeBlocks(random, false, 6, false, false), random.Below(4), random.Byte());
    BsReader want_reader = chunk.Reader();
    BsReader got_reader = want_reader;
    BsCursor cursor(got_reader);
    for (int n = 0; n < 6; n++) {
        Block want{};
        Block got;
        got.fill(99);
        const uint32_t result =
            scan ? DecInterBlockAlterScan_c(&want_reader, want.data()) : DecInterBlock_c(&want_reader, want.data());
        const uint32_t places = PlacesOf(want);
        mpeg ? DequantMpegInter_c(want.data(), want.data(), quant)
             : DequantH263Inter_c(want.data(), want.data(), static_cast<uint16_t>(quant));
        InterCoefs coefs{};
        if (!(mpeg ? DecMpegCoefs : DecH263Coefs)(&cursor, got.data(), &coefs, &g_atScans[scan], quant)) return;
        ++*count;
        ASSERT_NE(result, kCoeff);
        cursor.StoreTo(&got_reader);
        ASSERT_EQ(got_reader, want_reader);
        int64_t squares = 0;
        for (size_t i = 0; i < 63; i++) squares += got.at(i) * got.at(i);
        ASSERT_LE(squares, coefs.u32Squares);
        ASSERT_LE(coefs.u32Squares, kMaxSquares);
        ASSERT_EQ(coefs.u32Places & places, places);
        if (coefs.bAndLast) {
            ASSERT_EQ(got[63], 0);
            got[63] = 1;
        }
        ASSERT_EQ(got, want);
    }
}

TEST(InterCoefs, AreWhatTheKernelsMakeOfTheBlock) {
    for (const bool mpeg : {false, true}) {
        int count = 0;
        for (uint32_t seed = 0; seed < 8000; seed++) {
            SCOPED_TRACE(testing::Message() << "seed " << seed << ", MPEG " << mpeg);
            Random random(seed);
            CompareCoefs(random, mpeg, &count);
            if (HasFatalFailure()) return;
        }
        EXPECT_GT(count, 3000);
    }
}

// The largest levels that codes of their own and escapes can express, with every quantiser.
TEST(InterCoefs, RefuseWhatTheyWouldMakeWrong) {
    for (uint32_t quant = 1; quant < 32; quant++)
        for (const int level : {-2048, -2047, -900, -25, -1, 0, 1, 25, 100, 2047}) {
            SCOPED_TRACE(testing::Message() << quant << ' ' << level);
            const ExactChunk chunk(Written(EscapedTcoefCode(1, 5, level)).Bytes());
            for (const bool mpeg : {false, true}) {
                BsCursor cursor(chunk.Reader());
                Block got, want{};
                InterCoefs coefs{};
                want[2] = static_cast<int16_t>(level);
                mpeg ? DequantMpegInter_c(want.data(), want.data(), quant)
                     : DequantH263Inter_c(want.data(), want.data(), static_cast<uint16_t>(quant));
                const bool done =
                    (mpeg ? DecMpegCoefs : DecH263Coefs)(&cursor, got.data(), &coefs, &g_atScans[0], quant);
                if (coefs.bAndLast) got[63] = 1;
                const bool takes = level != 0 && (2 * std::abs(level) + 1) * static_cast<int>(quant) <= 1800;
                ASSERT_EQ(done, takes && std::abs(want[2]) <= 1000);
                if (done) {
                    ASSERT_EQ(got, want);
                }
            }
        }
}

TEST_F(DecInterBlocksTest, AgreesWithTheModelOnAnyBits) {
    for (uint32_t seed = 0; seed < 3000; seed++) {
        SCOPED_TRACE(testing::Message() << "seed " << seed);
        Random random(seed);
        BitWriter writer;
        for (int events = random.Between(0, 30); events > 0; events--) {
            if (!random.Chance(20)) writer.Bits(RandomEvent(random, false, random.Chance(3)));
            if (random.Chance(20)) writer.Put(random.Next(), 9);
        }
        const ExactChunk chunk(writer.Bytes(), random.Below(4), random.Byte());
        const uint32_t mask = random.Next();
        const uint32_t scan = random.Below(2) * 2;
        const uint32_t quantiser = random.Below(3);
        BsReader reader = chunk.Reader();
        ReaderModel model(chunk);
        Blocks want;
        want.fill(99);
        Blocks got = want;
        int16_t* end = want.data();
        for (uint32_t bit = 0; bit < 6; bit++) end += (mask >> bit & 1) * 64;
        std::fill(want.data(), end, int16_t{0});
        for (int16_t* block = want.data(); block != end; block += 64) {
            ModelBlock(model, block, scan, 0, false);
            if (model.error() == kCoeff) break;
            if (quantiser)
                std::transform(block, block + 64, block, [](int16_t level) { return static_cast<int16_t>(-level); });
        }
        DecInterBlocks_c(&reader, got.data(), scan, mask, quantiser);
        ASSERT_EQ(got, want);
        ASSERT_EQ(reader, model.Members());
    }
}

}  // namespace
}  // namespace mp4v::test
