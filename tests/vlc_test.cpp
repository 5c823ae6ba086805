// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors
#include "common/vlc.h"

#include <gtest/gtest.h>

#include "support/bit_writer.h"
#include "support/random.h"
#include "support/reader_model.h"
#include "support/vlc_codes.h"

namespace mp4v::test {
namespace {

constexpr uint32_t kInvalid = 0xFFFFFFFF;

// ---- The decoders told code by code

uint32_t ModelMcbpc(ReaderModel& model, const std::string& table) {
    while (model.Digits(9) == StuffingCode()) model.Skip(9);
    const CodeRow* row = FindCode(table, model.Digits(9));
    if (!row) return kInvalid;
    model.Skip(static_cast<unsigned>(row->code.size()));
    return static_cast<uint32_t>(row->fields[1] * 16 + row->fields[0]);
}

uint32_t ModelCbpy(ReaderModel& model, bool intra) {
    const CodeRow* row = FindCode("B-8", model.Digits(6));
    if (!row) return kInvalid;
    model.Skip(static_cast<unsigned>(row->code.size()));
    return static_cast<uint32_t>(intra ? row->fields[0] : 15 - row->fields[0]);
}

uint32_t ModelDcSize(ReaderModel& model, bool luma) {
    if (const CodeRow* row = FindCode(luma ? "B-13" : "B-14", model.Digits(12))) {
        model.Skip(static_cast<unsigned>(row->code.size()));
        return static_cast<uint32_t>(row->fields[0]);
    }
    if (luma) return 0;
    model.Skip(2);
    return 3;
}

int32_t ModelDcDif(ReaderModel& model, unsigned size) {
    const std::string digits = model.Digits(size);
    model.Skip(size);
    int32_t value = 0;
    for (const char digit : digits) value = value * 2 + (digit == digits[0]);  // its magnitude
    return digits[0] == '1' ? value : -value;
}

int32_t ModelMotion(ReaderModel& model) {
    const std::string digits = model.Digits(14);
    model.Skip(1);
    if (digits[0] == '1') return 0;
    const CodeRow* row = FindCode("B-12", digits);
    const size_t length = row ? row->code.size() : 6;  // the sign comes, the first bit is gone
    model.Skip(static_cast<unsigned>(length));
    if (!row) return -4;
    return digits[length] == '1' ? -row->fields[0] : row->fields[0];
}

// ---- Running one decoder

struct Decoded {
    int64_t value;
    uint32_t bits;
};

std::ostream& operator<<(std::ostream& out, const Decoded& d) {
    return out << d.value << " of " << d.bits << " bits";
}
bool operator==(const Decoded& a, const Decoded& b) {
    return a.value == b.value && a.bits == b.bits;
}

// Decodes from digits with `decode`; ones follow.
template <typename Decode>
Decoded DecodeDigits(const std::string& digits, Decode decode) {
    BitWriter writer;
    writer.Bits(digits);
    for (int i = 0; i < 4; i++) writer.Put(0xFFFFFFFF, 32);
    const ExactChunk chunk(writer.Bytes());
    BsReader reader = chunk.Reader();
    const int64_t value = decode(&reader);
    const auto next = reinterpret_cast<uintptr_t>(reader.pu32ReadPtr) - reinterpret_cast<uintptr_t>(chunk.data());
    return {value, static_cast<uint32_t>(next - 8) * 8 + reader.u32BitPos};
}

Decoded McbpcIntra(const std::string& digits) {
    return DecodeDigits(digits, DecMcbpcIntra_c);
}
Decoded McbpcInter(const std::string& digits) {
    return DecodeDigits(digits, DecMcbpcInter_c);
}
Decoded Cbpy(const std::string& digits, uint32_t intra) {
    return DecodeDigits(digits, [intra](BsReader* reader) { return DecCbpy_c(reader, intra); });
}
Decoded DcDif(const std::string& digits, uint32_t size) {
    return DecodeDigits(digits, [size](BsReader* reader) { return DecDcDif_c(reader, size); });
}

uint32_t Length(const std::string& code) {
    return static_cast<uint32_t>(code.size());
}

// ---- mcbpc

TEST(DecMcbpcIntra, DecodesEveryCode) {
    for (const CodeRow& row : TableRows("B-6")) {
        if (row.code == StuffingCode()) continue;
        EXPECT_EQ(McbpcIntra(row.code), (Decoded{row.fields[1] * 16 + row.fields[0], Length(row.code)})) << row.code;
    }
}

TEST(DecMcbpcIntra, AbsorbsTwoStuffingCodes) {
    EXPECT_EQ(McbpcIntra("000000001 000000001 1"), (Decoded{3, 19}));
}

TEST(DecMcbpcIntra, AbsorbsAnyNumberOfStuffingCodes) {
    std::string digits;
    for (int i = 0; i < 1000; i++) digits += StuffingCode();
    EXPECT_EQ(McbpcIntra(digits + "000001"), (Decoded{20, 9006}));
}

TEST(DecMcbpcIntra, ConsumesNothingOnAnInvalidCode) {
    for (const char* code :
         {"000000000", "000000010", "000000011", "000000100", "000000101", "000000110", "000000111"}) {
        EXPECT_EQ(McbpcIntra(code), (Decoded{kInvalid, 0})) << code;
    }
}

TEST(DecMcbpcIntra, ConsumesOnlyTheStuffingInFrontOfAnInvalidCode) {
    EXPECT_EQ(McbpcIntra("000000001 000000010"), (Decoded{kInvalid, 9}));
}

TEST(DecMcbpcIntra, EndsStuffingAtTheEndOfTheChunk) {
    // 72 bits hold eight codes of stuffing: the chunk and what may follow it.
    BitWriter writer;
    for (int i = 0; i < 16; i++) writer.Bits(StuffingCode());
    ExactChunk chunk(std::vector<uint8_t>(writer.Bytes().begin(), writer.Bytes().begin() + 9));
    std::copy(writer.Bytes().begin() + 9, writer.Bytes().begin() + 17, chunk.data() + 9);
    BsReader reader = chunk.Reader();
    EXPECT_EQ(DecMcbpcIntra_c(&reader), kInvalid);
    EXPECT_EQ(reader.u32BsError, ERR_VID_MPEG4DEC_BITSTREAM);
}

TEST(DecMcbpcInter, DecodesEveryCode) {
    for (const CodeRow& row : TableRows("B-7")) {
        if (row.code == StuffingCode()) continue;
        EXPECT_EQ(McbpcInter(row.code), (Decoded{row.fields[1] * 16 + row.fields[0], Length(row.code)})) << row.code;
    }
}

TEST(DecMcbpcInter, AbsorbsStuffing) {
    EXPECT_EQ(McbpcInter("000000001 1"), (Decoded{0, 10}));
    EXPECT_EQ(McbpcInter("000000001 000000001 000000001 000000010"), (Decoded{0x34, 36}));
}

TEST(DecMcbpcInter, ConsumesNothingOnAnInvalidCode) {
    EXPECT_EQ(McbpcInter("000000000"), (Decoded{kInvalid, 0}));
    EXPECT_LT(static_cast<int32_t>(McbpcInter("000000000").value), 0);
}

// ---- cbpy

TEST(DecCbpy, DecodesEveryCodeOfIntraMacroblocks) {
    for (const CodeRow& row : TableRows("B-8")) {
        EXPECT_EQ(Cbpy(row.code, 1), (Decoded{row.fields[0], Length(row.code)})) << row.code;
    }
}

TEST(DecCbpy, ComplementsTheValueOfInterMacroblocks) {
    for (const CodeRow& row : TableRows("B-8")) {
        EXPECT_EQ(Cbpy(row.code, 0), (Decoded{15 - row.fields[0], Length(row.code)})) << row.code;
    }
}

TEST(DecCbpy, GivesTheDocumentedValues) {
    EXPECT_EQ(Cbpy("0011", 1), (Decoded{0, 4}));
    EXPECT_EQ(Cbpy("0011", 0), (Decoded{15, 4}));
    EXPECT_EQ(Cbpy("11", 1), (Decoded{15, 2}));
    EXPECT_EQ(Cbpy("11", 0), (Decoded{0, 2}));
}

TEST(DecCbpy, TakesAnyNonzeroFlagForIntra) {
    EXPECT_EQ(Cbpy("0011", 0x80000000), (Decoded{0, 4}));
}

TEST(DecCbpy, ConsumesNothingOnAnInvalidCode) {
    for (const uint32_t intra : {0u, 1u}) {
        EXPECT_EQ(Cbpy("000000", intra), (Decoded{kInvalid, 0}));
        EXPECT_EQ(Cbpy("000001", intra), (Decoded{kInvalid, 0}));
    }
}

// ---- Intra DC

TEST(DecDcSizeLuma, DecodesEveryCode) {
    for (const CodeRow& row : TableRows("B-13")) {
        EXPECT_EQ(DecodeDigits(row.code, DecDcSizeLuma_c), (Decoded{row.fields[0], Length(row.code)})) << row.code;
    }
}

TEST(DecDcSizeLuma, IsZeroAndConsumesNothingOnElevenZeros) {
    EXPECT_EQ(DecodeDigits("00000000000", DecDcSizeLuma_c), (Decoded{0, 0}));
    EXPECT_EQ(DecodeDigits("0000000000000", DecDcSizeLuma_c), (Decoded{0, 0}));
}

TEST(DecDcSizeChroma, DecodesEveryCode) {
    for (const CodeRow& row : TableRows("B-14")) {
        EXPECT_EQ(DecodeDigits(row.code, DecDcSizeChroma_c), (Decoded{row.fields[0], Length(row.code)})) << row.code;
    }
}

TEST(DecDcSizeChroma, IsThreeOfTwoBitsOnTwelveZeros) {
    EXPECT_EQ(DecodeDigits("000000000000", DecDcSizeChroma_c), (Decoded{3, 2}));
}

TEST(DecDcDif, GivesTheDocumentedValues) {
    EXPECT_EQ(DcDif("011", 3), (Decoded{-4, 3}));
    EXPECT_EQ(DcDif("100", 3), (Decoded{4, 3}));
    EXPECT_EQ(DcDif("0", 1), (Decoded{-1, 1}));
    EXPECT_EQ(DcDif("1", 1), (Decoded{1, 1}));
    EXPECT_EQ(DcDif("000000000000", 12), (Decoded{-4095, 12}));
    EXPECT_EQ(DcDif("111111111111", 12), (Decoded{4095, 12}));
}

TEST(DecDcDif, LeavesTheMarkerBehindALongDifferential) {
    EXPECT_EQ(DcDif("100000000 1", 9), (Decoded{256, 9}));
}

TEST(DecDcDif, OfNoBitsIsZero) {
    EXPECT_EQ(DcDif("1", 0), (Decoded{0, 0}));
}

TEST(DecDcDif, InvertsTheEncoder) {
    for (int value = -4095; value <= 4095; value++) {
        if (value == 0) continue;
        const int size = DcSizeOf(value);
        const std::string digits = Digits(value < 0 ? value - 1 : value, static_cast<unsigned>(size));
        ASSERT_EQ(DcDif(digits, static_cast<uint32_t>(size)), (Decoded{value, static_cast<uint32_t>(size)}));
    }
}

TEST(DecDcScaler, EqualsTheTable) {
    for (const CodeRow& row : TableRows("DCSCALER")) {
        const auto quantiser = static_cast<uint32_t>(std::stoul(row.code));
        if (quantiser == 0 || quantiser == 32) continue;  // the table has 0 there
        EXPECT_EQ(DecDcScaler_c(quantiser, 1), static_cast<uint32_t>(row.fields[0])) << quantiser;
        EXPECT_EQ(DecDcScaler_c(quantiser, 0), static_cast<uint32_t>(row.fields[1])) << quantiser;
    }
}

TEST(DecDcScaler, GivesAFormulaAlsoOutsideTheTable) {
    EXPECT_EQ(DecDcScaler_c(0, 1), 8u);
    EXPECT_EQ(DecDcScaler_c(0, 0), 8u);
    EXPECT_EQ(DecDcScaler_c(32, 1), 48u);
    EXPECT_EQ(DecDcScaler_c(32, 0), 26u);
}

// ---- motion_code

TEST(DecMvData, DecodesEveryCode) {
    for (int value = -32; value <= 32; value++) {
        const std::string code = MotionCode(value);
        EXPECT_EQ(DecodeDigits(code, DecMvData_c), (Decoded{value, Length(code)})) << code;
    }
}

TEST(DecMvData, IsZeroAfterOneBit) {
    EXPECT_EQ(DecodeDigits("1", DecMvData_c), (Decoded{0, 1}));
}

TEST(DecMvData, IsMinusFourOnUndefinedCodes) {
    for (const char* code : {"0 000000000000", "0 000000000001", "0 000000000010", "0 000000000011"}) {
        EXPECT_EQ(DecodeDigits(code, DecMvData_c), (Decoded{-4, 7})) << code;
    }
}

// ---- Transform coefficients

TEST(GetB16Table, HasNoEntryBelowEight) {
    for (uint32_t code = 0; code < 8; code++) {
        EXPECT_EQ(GetB16Table(code), nullptr);
        EXPECT_EQ(GetB17Table(code), nullptr);
    }
}

TEST(GetB16Table, GivesTheEscape) {
    for (uint32_t code = 96; code < 128; code++) {
        ASSERT_NE(GetB16Table(code), nullptr);
        EXPECT_EQ(GetB16Table(code)->s32Value, 0x1BFF);
        EXPECT_EQ(GetB16Table(code)->s32Length, 7);
        EXPECT_EQ(GetB17Table(code)->s32Value, 0x1BFF);
        EXPECT_EQ(GetB17Table(code)->s32Length, 7);
    }
}

void ExpectEvents(const std::string& table, int run_weight, const VlcEntry* (*get)(uint32_t)) {
    for (uint32_t code = 8; code < 4096; code++) {
        const CodeRow* row = FindCode(table, Digits(static_cast<int>(code), 12));
        ASSERT_NE(row, nullptr) << code;
        const VlcEntry* entry = get(code);
        ASSERT_NE(entry, nullptr) << code;
        EXPECT_EQ(entry->s32Length, static_cast<int32_t>(row->code.size())) << code;
        if (IsEscape(*row)) continue;
        EXPECT_EQ(entry->s32Value, row->fields[0] * 4096 + row->fields[1] * run_weight + row->fields[2]) << code;
    }
}

TEST(GetB16Table, FindsTheEventOfEveryCode) {
    ExpectEvents("B-16", 64, GetB16Table);
}

TEST(GetB17Table, FindsTheEventOfEveryCode) {
    ExpectEvents("B-17", 16, GetB17Table);
}

TEST(InitDecVlcTables, LeavesTheTablesAlone) {
    const VlcEntry before = *GetB16Table(2048);
    InitDecVlcTables_c();
    EXPECT_EQ(GetB16Table(2048)->s32Value, before.s32Value);
    EXPECT_EQ(McbpcIntra("000001"), (Decoded{20, 6}));
}

// ---- Any bits

constexpr uint32_t kDecoders = 8;

int64_t RunModel(uint32_t decoder, ReaderModel& model, uint32_t size) {
    switch (decoder) {
        case 0:
            return ModelMcbpc(model, "B-6");
        case 1:
            return ModelMcbpc(model, "B-7");
        case 2:
            return ModelCbpy(model, true);
        case 3:
            return ModelCbpy(model, false);
        case 4:
            return ModelDcSize(model, true);
        case 5:
            return ModelDcSize(model, false);
        case 6:
            return ModelDcDif(model, size);
        default:
            return ModelMotion(model);
    }
}

int64_t RunOnReader(uint32_t decoder, BsReader* reader, uint32_t size) {
    switch (decoder) {
        case 0:
            return DecMcbpcIntra_c(reader);
        case 1:
            return DecMcbpcInter_c(reader);
        case 2:
            return DecCbpy_c(reader, 1);
        case 3:
            return DecCbpy_c(reader, 0);
        case 4:
            return DecDcSizeLuma_c(reader);
        case 5:
            return DecDcSizeChroma_c(reader);
        case 6:
            return DecDcDif_c(reader, size);
        default:
            return DecMvData_c(reader);
    }
}

int64_t RunOnCursor(uint32_t decoder, BsCursor& cursor, uint32_t size) {
    switch (decoder) {
        case 0:
            return DecMcbpcIntra(cursor);
        case 1:
            return DecMcbpcInter(cursor);
        case 2:
            return DecCbpy(cursor, 1);
        case 3:
            return DecCbpy(cursor, 0);
        case 4:
            return DecDcSizeLuma(cursor);
        case 5:
            return DecDcSizeChroma(cursor);
        case 6:
            return DecDcDif(cursor, size);
        default:
            return DecMvData(cursor);
    }
}

// Decodes from random places with random decoders far past the end; values, position and sticky error must be the
// model's.
TEST(SymbolDecoders, AgreeWithTheModelOnAnyBits) {
    for (uint32_t seed = 0; seed < 4000; seed++) {
        SCOPED_TRACE(testing::Message() << "seed " << seed);
        Random random(seed);
        const ExactChunk chunk(random.SparseBytes(random.Below(24)), random.Below(4), random.Chance(2) ? 0x01 : 0xFF);
        BsReader reader = chunk.Reader();
        BsCursor cursor(reader);
        ReaderModel model(chunk);
        for (int i = 0; i < 60; i++) {
            const uint32_t decoder = random.Below(kDecoders);
            const uint32_t size = 1 + random.Below(12);
            const int64_t want = RunModel(decoder, model, size);
            ASSERT_EQ(RunOnReader(decoder, &reader, size), want) << "decoder " << decoder;
            ASSERT_EQ(RunOnCursor(decoder, cursor, size), want) << "decoder " << decoder;
            ASSERT_EQ(reader, model.Members()) << "decoder " << decoder;
            const uint32_t skip = random.Below(4);  // gets past codes that consume nothing
            BsSkip(&reader, skip);
            cursor.Skip(skip);
            model.Skip(skip);
        }
        BsReader from_cursor = chunk.Reader();
        cursor.StoreTo(&from_cursor);
        ASSERT_EQ(from_cursor, model.Members());
    }
}

// The same, with every decoder at every position of the last two words and chunks of every length.
TEST(SymbolDecoders, AgreeWithTheModelAtTheEndOfTheChunk) {
    for (uint32_t length = 0; length <= 12; length++) {
        for (uint32_t seed = 0; seed < 12; seed++) {
            Random random(length * 100 + seed);
            const ExactChunk chunk(random.SparseBytes(length), 0, random.Byte());
            for (uint32_t position = 0; position < length * 8 + 80; position++) {
                for (uint32_t decoder = 0; decoder < kDecoders; decoder++) {
                    BsReader reader = chunk.Reader();
                    ReaderModel model(chunk);
                    for (uint32_t i = 0; i < position; i++) {
                        BsSkip(&reader, 1);
                        model.Skip(1);
                    }
                    reader.u32BsError = 0;  // so that the decoder's own overrun shows
                    model.set_error(0);
                    const uint32_t size = 1 + random.Below(12);
                    ASSERT_EQ(RunOnReader(decoder, &reader, size), RunModel(decoder, model, size));
                    ASSERT_EQ(reader, model.Members())
                        << "decoder " << decoder << " length " << length << " bit " << position;
                }
            }
        }
    }
}

TEST(SymbolDecoders, ReadBackWhatTheEncoderWrote) {
    for (uint32_t seed = 0; seed < 300; seed++) {
        SCOPED_TRACE(testing::Message() << "seed " << seed);
        Random random(seed);
        BitWriter writer;
        std::vector<std::pair<uint32_t, int64_t>> symbols;  // decoder, value
        std::vector<int> sizes;
        for (int i = 0; i < 100; i++) {
            int size = 0;
            int64_t value = 0;
            const uint32_t decoder = random.Below(kDecoders);
            if (decoder == 0) {
                value = random.Between(3, 4) + 16 * random.Between(0, 3);
                writer.Bits(McbpcIntraCode(value & 7, static_cast<int>(value) >> 4));
            } else if (decoder == 1) {
                value = random.Between(0, 4) + 16 * random.Between(0, 3);
                writer.Bits(McbpcInterCode(value & 7, static_cast<int>(value) >> 4));
            } else if (decoder <= 3) {
                value = random.Between(0, 15);
                writer.Bits(CbpyCode(static_cast<int>(value), decoder == 2));
            } else if (decoder <= 5) {
                value = random.Between(0, 12);
                writer.Bits(CodeOf(decoder == 4 ? "B-13" : "B-14", static_cast<int>(value)));
            } else if (decoder == 6) {
                value = random.Between(1, 4095) * (random.Chance(2) ? 1 : -1);
                size = DcSizeOf(static_cast<int>(value));
                writer.Bits(Digits(static_cast<int>(value < 0 ? value - 1 : value), static_cast<unsigned>(size)));
            } else {
                value = random.Between(-32, 32);
                writer.Bits(MotionCode(static_cast<int>(value)));
            }
            symbols.emplace_back(decoder, value);
            sizes.push_back(size);
        }
        const ExactChunk chunk(writer.Bytes());
        BsReader reader = chunk.Reader();
        for (size_t i = 0; i < symbols.size(); i++) {
            ASSERT_EQ(RunOnReader(symbols[i].first, &reader, static_cast<uint32_t>(sizes[i])), symbols[i].second);
        }
        const auto next = reinterpret_cast<uintptr_t>(reader.pu32ReadPtr) - reinterpret_cast<uintptr_t>(chunk.data());
        EXPECT_EQ((next - 8) * 8 + reader.u32BitPos, writer.bit_count());
        EXPECT_EQ(reader.u32BsError, 0u);
    }
}

// Two skips and one differ only in when they notice the end.
TEST(SkipTwice, EqualsTwoSkipsEverywhere) {
    for (uint32_t length = 0; length <= 9; length++) {
        const ExactChunk chunk(std::vector<uint8_t>(length, 0x5A), 0, 0xC3);
        for (uint32_t position = 0; position < 200; position++) {
            for (uint32_t first = 0; first <= 13; first++) {
                for (uint32_t second = 0; second <= 13; second++) {
                    BsReader reader = chunk.Reader();
                    ReaderModel model(chunk);
                    for (uint32_t i = 0; i < position; i++) {
                        BsSkip(&reader, 1);
                        model.Skip(1);
                    }
                    reader.u32BsError = 0;
                    model.set_error(0);
                    BsCursor cursor(reader);
                    SkipTwice(cursor, first, second);
                    cursor.StoreTo(&reader);
                    model.Skip(first);
                    model.Skip(second);
                    ASSERT_EQ(reader, model.Members())
                        << "length " << length << " bit " << position << " skips " << first << ", " << second;
                }
            }
        }
    }
}

}  // namespace
}  // namespace mp4v::test
