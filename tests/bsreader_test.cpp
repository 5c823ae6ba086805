// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors
#include "common/bsreader.h"

#include <gtest/gtest.h>

#include "support/bit_writer.h"
#include "support/random.h"
#include "support/reader_model.h"

namespace mp4v::test {
namespace {

const std::vector<uint8_t> kTwelveBytes = {0x80, 0x01, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD, 0xEF, 0x10, 0x32, 0x54};

TEST(BsInit, LoadsTwoBigEndianWords) {
    const ExactChunk chunk(kTwelveBytes);
    const BsReader reader = chunk.Reader();
    EXPECT_EQ(reader.u32CurWord, 0x80012345u);
    EXPECT_EQ(reader.u32NextWord, 0x6789ABCDu);
    EXPECT_EQ(reader.u32BitPos, 0u);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(reader.pu32ReadPtr), reinterpret_cast<uintptr_t>(chunk.data() + 8));
    EXPECT_EQ(reader.pu8BufStart, chunk.data());
    EXPECT_EQ(reader.u32BufLen, 12u);
    EXPECT_EQ(reader.u32BsError, 0u);
}

TEST(BsInit, ClearsTheStickyError) {
    const ExactChunk chunk(kTwelveBytes);
    BsReader reader = chunk.Reader();
    reader.u32BsError = ERR_VID_MPEG4DEC_COEFF;
    BsInit(&reader, chunk.data(), chunk.length());
    EXPECT_EQ(reader.u32BsError, 0u);
}

TEST(BsInit, TakesTheEightBytesBehindAChunkOfOneByte) {
    const ExactChunk chunk({0xA5}, 0, 0x3C);
    const BsReader reader = chunk.Reader();
    EXPECT_EQ(reader.u32CurWord, 0xA53C3C3Cu);
    EXPECT_EQ(reader.u32NextWord, 0x3C3C3C3Cu);
    EXPECT_EQ(reader.u32BsError, 0u);
}

TEST(BsRead, ThirtyTwoBitsAtPositionZeroAreTheWholeWordAndRefillOnce) {
    const ExactChunk chunk(kTwelveBytes);
    BsReader reader = chunk.Reader();
    EXPECT_EQ(BsRead(&reader, 32), 0x80012345u);
    EXPECT_EQ(reader.u32BitPos, 0u);
    EXPECT_EQ(reader.u32CurWord, 0x6789ABCDu);
    EXPECT_EQ(reader.u32NextWord, 0xEF103254u);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(reader.pu32ReadPtr), reinterpret_cast<uintptr_t>(chunk.data() + 12));
}

TEST(BsRead, CrossesAWordBoundary) {
    const ExactChunk chunk(kTwelveBytes);
    BsReader reader = chunk.Reader();
    BsSkip(&reader, 28);
    EXPECT_EQ(BsRead(&reader, 12), 0x567u);
    EXPECT_EQ(reader.u32BitPos, 8u);
    BsSkip(&reader, 23);
    EXPECT_EQ(reader.u32BitPos, 31u);
    EXPECT_EQ(BsRead(&reader, 32), 0xF788192Au);  // 1 11101111 00010000 00110010 0101010(0)
    EXPECT_EQ(reader.u32BitPos, 31u);
}

TEST(BsRead, ZeroBitsAreZeroAndConsumeNothing) {
    const ExactChunk chunk({0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF});
    BsReader reader = chunk.Reader();
    for (uint32_t position = 0; position < 32; position++) {
        const BsReader before = reader;
        EXPECT_EQ(BsShow(&reader, 0), 0u);
        EXPECT_EQ(BsRead(&reader, 0), 0u);
        EXPECT_EQ(reader, before);
        BsSkip(&reader, 1);
    }
}

TEST(BsShow, MovesNothing) {
    const ExactChunk chunk(kTwelveBytes);
    BsReader reader = chunk.Reader();
    BsSkip(&reader, 7);
    const BsReader before = reader;
    EXPECT_EQ(BsShow(&reader, 32), 0x0091A2B3u);  // 0x80012345 67 from bit 7 on
    EXPECT_EQ(BsShow(&reader, 1), 0u);
    EXPECT_EQ(reader, before);
}

TEST(BsSkip, EightBytesCanBeReadToTheLastBit) {
    const ExactChunk chunk({1, 2, 3, 4, 5, 6, 7, 8}, 0, 0xFF);
    BsReader reader = chunk.Reader();
    EXPECT_EQ(BsRead(&reader, 32), 0x01020304u);
    EXPECT_EQ(reader.u32BsError, 0u);
    EXPECT_EQ(BsRead(&reader, 32), 0x05060708u);
    EXPECT_EQ(reader.u32BsError, 0u);
}

TEST(BsSkip, AnOverrunIsNoticedAtTheNextRefillAndNotBefore) {
    const ExactChunk chunk({1, 2, 3, 4, 5, 6, 7, 8}, 0, 0xFF);
    BsReader reader = chunk.Reader();
    BsSkip(&reader, 32);
    BsSkip(&reader, 32);
    BsSkip(&reader, 31);  // far behind the end, but inside the word
    EXPECT_EQ(reader.u32BsError, 0u);
    BsSkip(&reader, 1);
    EXPECT_EQ(reader.u32BsError, ERR_VID_MPEG4DEC_BITSTREAM);
}

TEST(BsSkip, ARefillThatLandsOneBitBehindTheEndIsAnOverrun) {
    const ExactChunk chunk({1, 2, 3, 4, 5, 6, 7, 8});
    BsReader reader = chunk.Reader();
    BsSkip(&reader, 32);
    BsSkip(&reader, 31);
    BsSkip(&reader, 2);
    EXPECT_EQ(reader.u32BitPos, 1u);
    EXPECT_EQ(reader.u32BsError, ERR_VID_MPEG4DEC_BITSTREAM);
}

TEST(BsSkip, AnOverrunInsideTheFirstWordOfAShortChunkIsNoticedWhenItIsLeft) {
    const ExactChunk chunk({0xFF});
    BsReader reader = chunk.Reader();
    BsSkip(&reader, 31);
    EXPECT_EQ(reader.u32BsError, 0u);
    BsSkip(&reader, 1);
    EXPECT_EQ(reader.u32BsError, ERR_VID_MPEG4DEC_BITSTREAM);
}

TEST(BsSkip, TheErrorIsStickyAndReadsGoOn) {
    const ExactChunk chunk({1, 2, 3, 4}, 0, 0xFF);
    BsReader reader = chunk.Reader();
    BsSkip(&reader, 32);
    BsSkip(&reader, 32);
    ASSERT_EQ(reader.u32BsError, ERR_VID_MPEG4DEC_BITSTREAM);
    EXPECT_EQ(BsRead(&reader, 16), 0xFFFFu);
    EXPECT_EQ(BsRead(&reader, 16), 0xFFFFu);
    EXPECT_EQ(reader.u32BsError, ERR_VID_MPEG4DEC_BITSTREAM);
}

TEST(BsSkip, AnOverrunReplacesAnotherError) {
    const ExactChunk chunk({1, 2, 3, 4});
    BsReader reader = chunk.Reader();
    reader.u32BsError = ERR_VID_MPEG4DEC_COEFF;
    BsSkip(&reader, 32);
    EXPECT_EQ(reader.u32BsError, ERR_VID_MPEG4DEC_COEFF);
    BsSkip(&reader, 32);
    EXPECT_EQ(reader.u32BsError, ERR_VID_MPEG4DEC_BITSTREAM);
}

TEST(BsRead, MoreThanEightBytesBehindTheChunkEverythingIsZero) {
    const ExactChunk chunk({1, 2, 3}, 0, 0xFF);
    BsReader reader = chunk.Reader();
    EXPECT_EQ(BsRead(&reader, 24), 0x010203u);
    EXPECT_EQ(BsRead(&reader, 32), 0xFFFFFFFFu);
    EXPECT_EQ(BsRead(&reader, 32), 0xFFFFFFFFu);
    for (int i = 0; i < 100; i++) EXPECT_EQ(BsRead(&reader, 32), 0u);
}

TEST(BsByteAlign, DoesNotMoveOnAByteBoundary) {
    const ExactChunk chunk(kTwelveBytes);
    BsReader reader = chunk.Reader();
    for (uint32_t position = 0; position < 32; position += 8) {
        const BsReader before = reader;
        BsByteAlign(&reader);
        EXPECT_EQ(reader, before) << position;
        BsSkip(&reader, 8);
    }
}

TEST(BsByteAlign, MovesToTheNextByte) {
    for (uint32_t position = 1; position < 64; position++) {
        if (position % 8 == 0) continue;
        const ExactChunk chunk(kTwelveBytes);
        BsReader reader = chunk.Reader();
        ReaderModel model(chunk);
        for (uint32_t i = 0; i < position; i++) {
            BsSkip(&reader, 1);
            model.Skip(1);
        }
        BsByteAlign(&reader);
        model.Skip(8 - position % 8);
        EXPECT_EQ(reader, model.Members()) << position;
    }
}

TEST(BsByteAlign, NoticesAnOverrunLikeAnySkip) {
    const ExactChunk chunk({1, 2, 3});
    BsReader reader = chunk.Reader();
    BsSkip(&reader, 25);
    BsByteAlign(&reader);
    EXPECT_EQ(reader.u32BitPos, 0u);
    EXPECT_EQ(reader.u32BsError, ERR_VID_MPEG4DEC_BITSTREAM);
}

TEST(BsAtStartCode, KnowsTheThreeBytesOfThePrefix) {
    const ExactChunk chunk({0, 0, 1, 0xB6, 0, 0, 1, 0x20});
    BsReader reader = chunk.Reader();
    EXPECT_TRUE(BsAtStartCode(&reader));
    BsSkip(&reader, 8);
    EXPECT_FALSE(BsAtStartCode(&reader));  // 00 01 B6 00
    BsSkip(&reader, 24);
    EXPECT_TRUE(BsAtStartCode(&reader));
    EXPECT_EQ(BsShow(&reader, 32) & 0xFF, 0x20u);
}

TEST(BsAtStartCode, RefusesNearMisses) {
    for (const std::vector<uint8_t>& bytes :
         {std::vector<uint8_t>{0, 0, 2, 0xB6}, {0, 1, 1, 0xB6}, {1, 0, 1, 0xB6}, {0, 0, 0, 1}, {0, 0, 3, 0}}) {
        const ExactChunk chunk(bytes);
        const BsReader reader = chunk.Reader();
        EXPECT_FALSE(BsAtStartCode(&reader));
    }
}

TEST(BsReader, ReadsTheSameAtEveryAlignment) {
    const std::vector<uint8_t> bytes = Random(1).Bytes(29);
    for (size_t offset = 0; offset < 8; offset++) {
        const ExactChunk chunk(bytes, offset);
        BsReader reader = chunk.Reader();
        for (size_t i = 0; i + 3 <= bytes.size() * 8; i += 3) {
            uint32_t want = 0;
            for (size_t bit = i; bit < i + 3; bit++) want = want * 2 + (bytes[bit / 8] >> (7 - bit % 8) & 1u);
            ASSERT_EQ(BsRead(&reader, 3), want) << "offset " << offset << " bit " << i;
        }
    }
}

// Bits, members and the sticky error after every operation of a random walk far past the end.
TEST(BsReader, WalksLikeTheModel) {
    for (uint32_t seed = 0; seed < 2000; seed++) {
        SCOPED_TRACE(testing::Message() << "seed " << seed);
        Random random(seed);
        const ExactChunk chunk(random.Bytes(random.Below(24)), random.Below(8), random.Byte());
        BsReader reader = chunk.Reader();
        ReaderModel model(chunk);
        const uint32_t largest = 1 + random.Below(32);
        while (model.position() < (chunk.length() + 24u) * 8) {
            const uint32_t bits = random.Below(largest + 1);
            if (random.Chance(3)) {
                ASSERT_EQ(BsShow(&reader, bits), model.Show(bits));
                BsSkip(&reader, bits);
                model.Skip(bits);
            } else {
                ASSERT_EQ(BsRead(&reader, bits), model.Read(bits));
            }
            ASSERT_EQ(reader, model.Members());
        }
    }
}

TEST(BsCursor, LeavesTheReaderAsTheSameSkipsOnTheReaderWould) {
    for (uint32_t seed = 0; seed < 500; seed++) {
        SCOPED_TRACE(testing::Message() << "seed " << seed);
        Random random(seed);
        const ExactChunk chunk(random.Bytes(1 + random.Below(20)), random.Below(4), 0xFF);
        BsReader reader = chunk.Reader();
        ReaderModel model(chunk);
        BsCursor cursor(reader);
        for (int i = 0; i < 40; i++) {
            const uint32_t bits = 1 + random.Below(32);
            ASSERT_EQ(cursor.Show(bits), model.Show(bits));
            ASSERT_EQ(cursor.Read(bits), model.Read(bits));
        }
        cursor.StoreTo(&reader);
        ASSERT_EQ(reader, model.Members());
    }
}

TEST(BitWriter, PutsTheMostSignificantBitFirst) {
    BitWriter writer;
    writer.Put(5, 3).Bits("0 1").Put(0xFFFFFFFF, 2);
    EXPECT_EQ(writer.bit_count(), 7u);
    EXPECT_EQ(writer.Bytes(), std::vector<uint8_t>{0xAE});
    writer.Align().Align().Put(0x12345678, 32).Put(9, 0);
    EXPECT_EQ(writer.Bytes(), (std::vector<uint8_t>{0xAE, 0x12, 0x34, 0x56, 0x78}));
    EXPECT_EQ(WithPadding({7}, 3), (std::vector<uint8_t>{7, 3, 3, 3, 3, 3, 3, 3, 3}));
}

}  // namespace
}  // namespace mp4v::test
