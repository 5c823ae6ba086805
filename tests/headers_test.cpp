// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

// The walk over the start codes of a chunk, and user data.
#include "common/headers.h"

#include <gtest/gtest.h>

#include <string>

#include "support/header_parser.h"

namespace mp4v::test {
namespace {

constexpr uint32_t kBitstream = 0xA2C0001E;
constexpr uint32_t kVsoType = 0xA2C00018;
constexpr uint32_t kUserDataError = 0xA2C0001C;
constexpr uint32_t kVolNotFound = 0xA2C00023;

BitWriter& PutVop(BitWriter& out) {
    return PutStartCode(out, kVopCode).Put(0, 32);
}

BitWriter VopAlone() {
    BitWriter out;
    return PutVop(out);
}

TEST(BsHeaders, StopsOnTheFirstBitOfAVopStartCode) {
    HeaderParser parser;
    EXPECT_EQ(parser.Scan(VopAlone()), 0u);
    EXPECT_EQ(parser.Position(), 0u);
    EXPECT_TRUE(parser.AtStartCode(0xB6));
}

TEST(BsHeaders, StopsAtTheFirstOfTwoVopStartCodes) {
    HeaderParser parser;
    BitWriter bits;
    PutStartCode(PutStartCode(bits.Put(0xFF, 8), kVopCode), kVopCode);
    EXPECT_EQ(parser.Scan(bits), 0u);
    EXPECT_EQ(parser.Position(), 8u);
}

TEST(BsHeaders, ReturnsTheBitstreamErrorForAChunkWithoutStartCode) {
    for (const uint8_t byte : {uint8_t{0}, uint8_t{1}, uint8_t{0xB6}, uint8_t{0xFF}}) {
        for (size_t length = 1; length < 40; length++) {
            HeaderParser parser;
            ASSERT_EQ(parser.Scan(std::vector<uint8_t>(length, byte)), kBitstream) << length << " times " << +byte;
            ASSERT_EQ(parser.ctx().u32HeaderStatus, kVolNotFound);
        }
    }
}

TEST(BsHeaders, FindsAStartCodeAtAnyByte) {
    for (unsigned garbage = 0; garbage < 20; garbage++) {
        HeaderParser parser;
        BitWriter bits;
        for (unsigned i = 0; i < garbage; i++) bits.Put(0x5A, 8);
        EXPECT_EQ(parser.Scan(PutVop(bits)), 0u);
        EXPECT_EQ(parser.Position(), garbage * 8);
    }
}

TEST(BsHeaders, FindsAStartCodeBehindAnyNumberOfZeroBytes) {
    HeaderParser parser;
    BitWriter bits;
    bits.Put(0, 32).Put(0, 8);
    EXPECT_EQ(parser.Scan(PutVop(bits)), 0u);
    EXPECT_EQ(parser.Position(), 40u);
}

TEST(BsHeaders, FindsNoStartCodeBetweenTwoBytes) {
    for (unsigned shift = 1; shift < 8; shift++) {
        HeaderParser parser;
        BitWriter bits;
        bits.Put(0xFF, shift).Put(0x000001B6, 32).Put(0xFFFFFFFF, 32);
        EXPECT_EQ(parser.Scan(bits), kBitstream) << shift;
    }
}

TEST(BsHeaders, GoesOnWhereTheReaderStandsAtTheNextByte) {
    for (unsigned consumed = 0; consumed <= 16; consumed++) {
        HeaderParser parser;
        BitWriter bits;
        for (int i = 0; i < 3; i++) PutStartCode(bits, kVopCode);
        parser.SetReader(bits);
        BsSkip(&parser.ctx().tBs, consumed);
        EXPECT_EQ(BsHeaders(&parser.ctx()), 0u);
        EXPECT_EQ(parser.Position(), consumed == 0 ? 0u : 32u) << consumed;
    }
}

TEST(BsHeaders, ReturnsAnErrorThatIsAlreadySetWithoutMoving) {
    HeaderParser parser;
    parser.SetReader(VopAlone());
    BsSkip(&parser.ctx().tBs, 3);
    parser.ctx().tBs.u32BsError = 0xA2C0001F;
    EXPECT_EQ(BsHeaders(&parser.ctx()), 0xA2C0001F);
    EXPECT_EQ(parser.Position(), 3u);
}

// The chunk ends at byte 3; the alignment crosses into the next word, and only then the VOP is seen behind the end.
TEST(BsHeaders, ReturnsAnErrorThatTheAlignmentBeforeAVopRaises) {
    HeaderParser parser;
    std::vector<uint8_t> bytes = {0xFF, 0xFF, 0xFF, 0xFF, 0, 0, 1, 0xB6, 0, 0, 0};
    BsInit(&parser.ctx().tBs, bytes.data(), 3);
    BsSkip(&parser.ctx().tBs, 25);
    EXPECT_EQ(BsHeaders(&parser.ctx()), kBitstream);
    EXPECT_TRUE(parser.AtStartCode(0xB6));
}

TEST(BsHeaders, TakesAVopStartCodeThatEndsBehindTheChunk) {
    HeaderParser parser;
    const std::vector<uint8_t> bytes = {0, 0, 1, 0xB6, 0, 0, 0, 0, 0, 0, 0};
    BsInit(&parser.ctx().tBs, bytes.data(), 3);
    EXPECT_EQ(BsHeaders(&parser.ctx()), 0u);
}

TEST(BsHeaders, SkipsEveryCodeThatItDoesNotKnow) {
    for (uint32_t code = 0; code < 256; code++) {
        const bool known = (code >= 0x20 && code <= 0x2F) || code == 0xB0 || code == 0xB2 || code == 0xB3 ||
                           code == 0xB5 || code == 0xB6;
        if (known) continue;
        HeaderParser parser(16, 16);
        const std::vector<uint8_t> before = parser.State();
        BitWriter bits;
        PutStartCode(bits, static_cast<uint8_t>(code));
        ASSERT_EQ(parser.Scan(PutVop(bits)), 0u) << std::hex << code;
        ASSERT_EQ(parser.Position(), 32u) << std::hex << code;
        ASSERT_EQ(parser.State(), before) << std::hex << code;
    }
}

TEST(BsHeaders, SkipsTheEndOfTheSequence) {
    HeaderParser parser;
    BitWriter bits;
    PutStartCode(bits, kSequenceEndCode);
    EXPECT_EQ(parser.Scan(PutVop(bits)), 0u);
}

TEST(BsHeaders, TakesSixteenCodesForVideoObjectLayers) {
    for (uint8_t code = 0x20; code < 0x30; code++) {
        HeaderParser parser;
        BitWriter bits;
        VolHeader{.code = code}.PutTo(bits);
        ASSERT_EQ(parser.Scan(PutVop(bits)), 0u);
        ASSERT_EQ(parser.ctx().u32HeaderStatus, 0u) << +code;
        ASSERT_EQ(parser.ctx().u32Width, 32u) << +code;
    }
}

TEST(BsHeaders, TakesTheCodesBesideThemForSomethingElse) {
    for (const uint8_t code : {uint8_t{0x1F}, uint8_t{0x30}}) {
        HeaderParser parser;
        BitWriter bits;
        VolHeader{.code = code}.PutTo(bits);
        ASSERT_EQ(parser.Scan(PutVop(bits)), 0u);
        ASSERT_EQ(parser.ctx().u32HeaderStatus, kVolNotFound) << +code;
    }
}

TEST(BsHeaders, ReturnsTheRefusalOfAVolAtOnce) {
    HeaderParser parser;
    BitWriter bits;
    VolHeader{.type_indication = 2}.PutTo(bits);
    VolHeader().PutTo(bits);
    EXPECT_EQ(parser.Scan(PutVop(bits)), 0xA2C0000F);
    EXPECT_EQ(parser.Position(), 32u + 9);
    EXPECT_EQ(parser.ctx().u32HeaderStatus, 0xA2C0000F);
}

TEST(BsHeaders, TakesTheLastOfSeveralVols) {
    HeaderParser parser;
    BitWriter bits;
    VolHeader{.width = 16, .height = 16}.PutTo(bits);
    VolHeader{.width = 48, .height = 32}.PutTo(bits);
    EXPECT_EQ(parser.Scan(PutVop(bits)), 0u);
    EXPECT_EQ(parser.ctx().u32Width, 48u);
    EXPECT_EQ(parser.ctx().u32Height, 32u);
}

// The 8 bits behind the code may look like the beginning of another start code.
TEST(VisualObjectSequence, TakesItsProfileWithIt) {
    HeaderParser parser;
    EXPECT_EQ(parser.Scan({0, 0, 1, 0xB0, 0, 0, 1, 0xB6, 0xFF, 0xFF, 0xFF}), kBitstream);
    EXPECT_EQ(parser.Scan({0, 0, 1, 0xB0, 1, 0, 0, 1, 0xB6, 0, 0}), 0u);
    EXPECT_EQ(parser.Position(), 40u);
}

// 5 + 6 + 1 + 6 + 1 + 1 bits: what seems to begin in the three bytes behind the code is part of it.
TEST(GroupOfVop, TakesTwentyBitsWithIt) {
    HeaderParser parser;
    EXPECT_EQ(parser.Scan({0, 0, 1, 0xB3, 0, 0, 1, 0xB6, 0xFF, 0xFF, 0xFF}), kBitstream);
    EXPECT_EQ(parser.Scan({0, 0, 1, 0xB3, 0xFF, 0, 0, 1, 0xB6, 0xFF, 0xFF, 0xFF}), kBitstream);
    EXPECT_EQ(parser.Scan({0, 0, 1, 0xB3, 0xFF, 0xFF, 0, 0, 1, 0xB6, 0xFF, 0xFF, 0xFF}), kBitstream);
    EXPECT_EQ(parser.Scan({0, 0, 1, 0xB3, 0xFF, 0xFF, 0xFF, 0, 0, 1, 0xB6, 0, 0}), 0u);
    EXPECT_EQ(parser.Position(), 56u);
}

TEST(GroupOfVop, ChangesNothing) {
    HeaderParser parser(16, 16);
    const std::vector<uint8_t> before = parser.State();
    BitWriter bits;
    PutGroupOfVop(bits, 0xFFFFF);
    EXPECT_EQ(parser.Scan(PutVop(bits)), 0u);
    EXPECT_EQ(parser.State(), before);
}

// ---- Visual object

TEST(VisualObject, IsSteppedOverInAllItsForms) {
    for (unsigned form = 0; form < 8; form++) {
        for (const uint32_t stuffing : {0u, 0xFFu}) {
            const VisualObjectHeader header = {.identifier = (form & 1) != 0,
                                               .video_signal_type = (form & 2) != 0,
                                               .colour_description = (form & 4) != 0};
            HeaderParser parser;
            BitWriter bits;
            header.PutTo(bits);
            const auto rest = static_cast<unsigned>((8 - bits.bit_count() % 8) % 8);
            bits.Put(stuffing, rest);
            const size_t end = bits.bit_count();
            EXPECT_EQ(parser.Scan(PutVop(bits)), 0u) << form;
            EXPECT_EQ(parser.Position(), end) << form;
        }
    }
}

// With colour_description 35 bits belong to it: bytes 0 to 4. A VOP that seems to begin at byte 2 is part of it.
TEST(VisualObject, TakesItsColourDescriptionWithIt) {
    HeaderParser parser;
    BitWriter bits;
    PutStartCode(bits, kVisualObjectCode).Bits("0 0001 1 000 0 1").Put(0, 24).Bits("00001").Put(0xB6, 8);
    ASSERT_EQ(std::vector<uint8_t>(bits.Bytes().begin() + 6, bits.Bytes().end()),
              (std::vector<uint8_t>{0, 0, 1, 0xB6}));
    EXPECT_EQ(parser.Scan(PutVop(bits)), 0u);
    EXPECT_EQ(parser.Position(), 80u);
}

TEST(VisualObject, IsRefusedUnlessItsTypeIsVideo) {
    for (uint32_t type = 0; type < 16; type++) {
        for (const bool identifier : {false, true}) {
            HeaderParser parser(16, 16);
            BitWriter bits;
            VisualObjectHeader{.identifier = identifier, .verid = 15, .priority = 7, .type = type}.PutTo(bits);
            EXPECT_EQ(parser.Scan(PutVop(bits)), type == 1 ? 0 : kVsoType) << type;
            EXPECT_EQ(parser.ctx().u32HeaderStatus, kVolNotFound);
            if (type == 1) continue;
            EXPECT_EQ(parser.Position(), identifier ? 44u : 37u);
        }
    }
}

TEST(VisualObject, OfStillTextureIsRefusedEvenWhenAVolFollows) {
    HeaderParser parser;
    BitWriter bits;
    VisualObjectHeader{.type = 2}.PutTo(bits);
    VolHeader().PutTo(bits);
    EXPECT_EQ(parser.Scan(PutVop(bits)), kVsoType);
    EXPECT_EQ(parser.ctx().u32HeaderStatus, kVolNotFound);
}

TEST(VisualObject, LeavesTheStatusOfAnAcceptedVolWhenItIsRefused) {
    HeaderParser parser;
    BitWriter bits;
    VolHeader().PutTo(bits);
    VisualObjectHeader{.type = 2}.PutTo(bits);
    EXPECT_EQ(parser.Scan(bits), kVsoType);
    EXPECT_EQ(parser.ctx().u32HeaderStatus, 0u);
}

TEST(VisualObject, IsRefusedWithTheBitstreamErrorWhenItLiesBehindTheChunk) {
    HeaderParser parser;
    const std::vector<uint8_t> bytes = {0, 0, 1, 0xB5, 0x10, 0, 0, 0, 0, 0, 0, 0};
    BsInit(&parser.ctx().tBs, bytes.data(), 3);
    EXPECT_EQ(BsHeaders(&parser.ctx()), kBitstream);
    BsInit(&parser.ctx().tBs, bytes.data(), 4);
    EXPECT_EQ(BsHeaders(&parser.ctx()), kVsoType);
}

// ---- User data

struct Hint {
    uint32_t structure;
    uint32_t set;
    bool operator==(const Hint&) const = default;
    friend std::ostream& operator<<(std::ostream& out, const Hint& hint) {
        return out << hint.structure << (hint.set ? ", set" : ", not set");
    }
};

// The hint after segments of user data in one chunk. Before, it is 9, and set if `set`.
Hint HintAfter(const std::vector<std::string>& segments, uint32_t set = 7) {
    HeaderParser parser(16, 16);
    parser.ctx().u32PicStructHint = 9;
    parser.ctx().u32PicStructHintSet = set;
    BitWriter bits;
    for (const std::string& segment : segments) PutUserData(bits, segment);
    EXPECT_EQ(parser.Scan(PutVop(bits)), 0u);
    EXPECT_TRUE(parser.AtStartCode(0xB6));
    return {parser.ctx().u32PicStructHint, parser.ctx().u32PicStructHintSet};
}

TEST(UserData, SetsTheHintByItsKeyword) {
    EXPECT_EQ(HintAfter({"1234567FRAME"}), (Hint{1, 1}));
    EXPECT_EQ(HintAfter({"1234567FIELD"}), (Hint{2, 1}));
    EXPECT_EQ(HintAfter({"1234567FRM_I"}), (Hint{3, 1}));
}

TEST(UserData, TakesOnlyBytes8To12ForTheKeyword) {
    EXPECT_EQ(HintAfter({"1234567FIELD and more"}), (Hint{2, 1}));
    EXPECT_EQ(HintAfter({"1234567FRAMEFIELD"}), (Hint{1, 1}));
    EXPECT_EQ(HintAfter({std::string("\0\xFF\x01\0\x01\xB6\x01"
                                     "FIELD\0\xFF",
                                     14)}),
              (Hint{2, 1}));
}

TEST(UserData, KnowsNoKeywordAnywhereElse) {
    for (size_t before = 0; before < 20; before++) {
        if (before == 7) continue;
        EXPECT_EQ(HintAfter({std::string(before, '.') + "FRAME"}), (Hint{9, 0})) << before;
    }
}

TEST(UserData, KnowsNoOtherKeyword) {
    for (const char* text : {"frame", "FRAM", "FRAM\xC5", "FIEL", "FRM_P", "FRM_", "00000", "0", "FRAMF", "xFRAME"}) {
        EXPECT_EQ(HintAfter({std::string("1234567") + text}), (Hint{9, 0})) << text;
    }
    EXPECT_EQ(HintAfter({std::string("1234567FRA\0E", 12)}), (Hint{9, 0}));
}

TEST(UserData, ThatIsTooShortForAKeywordClearsTheMarkOnly) {
    for (size_t length = 0; length <= 7; length++) {
        EXPECT_EQ(HintAfter({std::string(length, 'x')}), (Hint{9, 0})) << length;
    }
}

TEST(UserData, OfALaterSegmentIsComparedByTheFirstKeyword) {
    EXPECT_EQ(HintAfter({"1234567FIELD", "1234567FRAME"}), (Hint{2, 1}));
    EXPECT_EQ(HintAfter({"1234567-----", "1234567FRAME"}), (Hint{9, 0}));
    EXPECT_EQ(HintAfter({"1234567FRM_I", ""}), (Hint{3, 1}));
}

TEST(UserData, CountsItsBytesOnFromSegmentToSegment) {
    EXPECT_EQ(HintAfter({"123", "4567FIELD"}), (Hint{2, 1}));
    EXPECT_EQ(HintAfter({"1234567FI", "ELD"}), (Hint{2, 1}));
    EXPECT_EQ(HintAfter({"1234567", "FRAME"}), (Hint{1, 1}));
}

TEST(UserData, CountsFromTheBeginningInTheNextChunk) {
    HeaderParser parser;
    BitWriter first, second;
    PutUserData(first, "1234567-----");
    PutUserData(second, "1234567FIELD");
    EXPECT_EQ(parser.Scan(PutVop(first)), 0u);
    EXPECT_EQ(parser.ctx().u32PicStructHintSet, 0u);
    EXPECT_EQ(parser.Scan(PutVop(second)), 0u);
    EXPECT_EQ(parser.ctx().u32PicStructHint, 2u);
}

TEST(UserData, MarksTheHintForTheVolThatFollows) {
    for (const auto& [text, hint] : {std::pair{"1234567FIELD", 2u}, {"1234567FRM_I", 3u}, {"1234567", 1u}}) {
        HeaderParser parser;
        BitWriter bits;
        PutUserData(bits, text);
        VolHeader().PutTo(bits);
        EXPECT_EQ(parser.Scan(PutVop(bits)), 0u);
        EXPECT_EQ(parser.ctx().u32PicStructHint, hint) << text;
    }
}

uint32_t StatusAfter(const std::vector<size_t>& lengths, uint32_t* header_status) {
    HeaderParser parser(16, 16);
    parser.ctx().u32HeaderStatus = 0;
    BitWriter bits;
    for (const size_t length : lengths) PutUserData(bits, std::string(length, 'x'));
    const uint32_t status = parser.Scan(PutVop(bits));
    *header_status = parser.ctx().u32HeaderStatus;
    return status;
}

TEST(UserData, MayHave128BytesInAChunk) {
    for (const std::vector<size_t>& lengths :
         std::vector<std::vector<size_t>>{{127}, {128}, {64, 64}, {128, 0}, {1, 0, 127}, {0, 128, 0}}) {
        uint32_t header_status = 1;
        EXPECT_EQ(StatusAfter(lengths, &header_status), 0u);
        EXPECT_EQ(header_status, 0u);
    }
}

TEST(UserData, MayNotHave129BytesInAChunk) {
    for (const std::vector<size_t>& lengths :
         std::vector<std::vector<size_t>>{{129}, {1000}, {64, 65}, {128, 1}, {128, 0, 1}, {1, 128}}) {
        uint32_t header_status = 0;
        EXPECT_EQ(StatusAfter(lengths, &header_status), kUserDataError);
        EXPECT_EQ(header_status, kUserDataError);
    }
}

TEST(UserData, IsRefusedAtIts129thByteWithoutTouchingTheHint) {
    HeaderParser parser;
    parser.ctx().u32PicStructHint = 9;
    parser.ctx().u32PicStructHintSet = 7;
    BitWriter bits;
    PutUserData(bits, "1234567FIELD" + std::string(1000, 'x'));
    EXPECT_EQ(parser.Scan(bits), kUserDataError);
    EXPECT_EQ(parser.Position(), (4u + 129) * 8);
    EXPECT_EQ(parser.ctx().u32PicStructHint, 9u);
    EXPECT_EQ(parser.ctx().u32PicStructHintSet, 7u);
}

TEST(UserData, ThatRunsIntoTheEndOfTheChunkIsTooLong) {
    HeaderParser parser;
    BitWriter bits;
    PutUserData(bits, "short");
    EXPECT_EQ(parser.Scan(bits), kUserDataError);
    EXPECT_EQ(parser.ctx().u32HeaderStatus, kUserDataError);
}

TEST(UserData, EndsAtAnyStartCode) {
    for (uint32_t code = 0; code < 256; code++) {
        if (code == 0xB2) continue;
        HeaderParser parser(16, 16);
        BitWriter bits;
        PutUserData(bits, "1234567FIELD");
        PutStartCode(bits, static_cast<uint8_t>(code)).Put(0, 32).Put(0, 32);
        parser.Scan(PutVop(bits));
        ASSERT_EQ(parser.ctx().u32PicStructHintSet, 1u) << code;
    }
}

TEST(UserData, EndsOnlyAtAByte) {
    HeaderParser parser;
    BitWriter bits;
    PutUserData(bits, "1234567FIELD");
    bits.Put(1, 1).Put(0x00000100, 32).Put(0x7F, 7);  // not on the byte grid
    EXPECT_EQ(parser.Scan(PutVop(bits)), 0u);
    EXPECT_EQ(parser.Position(), 4u * 8 + 12 * 8 + 40);
}

// ---- Everything together

TEST(BsHeaders, ReadsAnOrdinaryBeginningOfAStream) {
    HeaderParser parser;
    BitWriter bits;
    PutVisualObjectSequence(bits, 0xF5);
    VisualObjectHeader{.identifier = true, .video_signal_type = true, .colour_description = true}.PutTo(bits);
    PutStartCode(bits, kVideoObjectCode);
    VolHeader{.type_indication = 17, .verid = 2, .width = 48, .height = 40}.PutTo(bits);
    PutUserData(bits, "1234567FIELD");
    PutGroupOfVop(bits);
    const size_t end = (bits.bit_count() + 7) / 8 * 8;
    EXPECT_EQ(parser.Scan(PutVop(bits)), 0u);
    EXPECT_EQ(parser.Position(), end);
    EXPECT_EQ(parser.ctx().u32HeaderStatus, 0u);
    EXPECT_EQ(parser.ctx().u32Width, 48u);
    EXPECT_EQ(parser.ctx().u32Height, 40u);
    EXPECT_EQ(parser.ctx().u32PicStructHint, 2u);
}

}  // namespace
}  // namespace mp4v::test
