// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <string_view>

#include "host/splitter.h"
#include "host/start_code.h"
#include "support/random.h"

namespace mp4v::test {
namespace {

using Bytes = std::vector<uint8_t>;

// Hexadecimal digits; blanks only separate.
Bytes Hex(std::string_view text) {
    Bytes bytes;
    unsigned value = 0;
    unsigned digits = 0;
    for (const char c : text) {
        if (c == ' ') continue;
        value = value * 16 + static_cast<unsigned>(c <= '9' ? c - '0' : c - 'A' + 10);
        if (++digits % 2 == 0) bytes.push_back(static_cast<uint8_t>(value));
        value = digits % 2 ? value : 0;
    }
    return bytes;
}

std::vector<Chunk> Drain(Splitter& splitter) {
    std::vector<Chunk> chunks;
    Chunk chunk;
    while (splitter.Next(chunk)) chunks.push_back(chunk);
    return chunks;
}

std::vector<Chunk> Split(const Bytes& stream) {
    Splitter splitter;
    splitter.Append(stream);
    splitter.Finish();
    return Drain(splitter);
}

std::vector<Bytes> Data(const std::vector<Chunk>& chunks) {
    std::vector<Bytes> data;
    for (const Chunk& chunk : chunks) data.push_back(chunk.data);
    return data;
}

using Chunks = std::vector<Bytes>;

TEST(HostSplitter, EndsAChunkBehindItsPicture) {
    const std::vector<Chunk> chunks = Split(Hex("000001B0 01 00000120 AA 000001B6 11 22 000001B6 33"));
    EXPECT_EQ((Chunks{Hex("000001B0 01 00000120 AA 000001B6 11 22"), Hex("000001B6 33")}), Data(chunks));
    EXPECT_EQ(0u, chunks[0].offset);
    EXPECT_EQ(16u, chunks[1].offset);
    EXPECT_TRUE(chunks[0].has_picture);
    EXPECT_TRUE(chunks[1].has_picture);
}

TEST(HostSplitter, BeginsAChunkWithAnyHeaderBehindAPicture) {
    for (const char* const code : {"00", "1F", "20", "2F", "30", "B0", "B2", "B3", "B5", "B6", "B7", "FF"}) {
        const std::string next = std::string("000001") + code + "55";
        EXPECT_EQ((Chunks{Hex("000001B6 44"), Hex(next)}), Data(Split(Hex("000001B6 44" + next)))) << code;
    }
}

TEST(HostSplitter, KeepsTheEndCodeWithItsPicture) {
    EXPECT_EQ((Chunks{Hex("000001B6 44 000001B1")}), Data(Split(Hex("000001B6 44 000001B1"))));
    EXPECT_EQ((Chunks{Hex("000001B6 44 000001B1 00"), Hex("000001B0 01 000001B6")}),
              Data(Split(Hex("000001B6 44 000001B1 00 000001B0 01 000001B6"))));
}

TEST(HostSplitter, KeepsAllHeadersBeforeAPictureTogether) {
    const Bytes stream =
        Hex("000001B0 01 000001B2 41 000001B1 000001B5 09 00000100 00000120 00 000001B3 00 000001B6 77");
    EXPECT_EQ(Chunks{stream}, Data(Split(stream)));
}

TEST(HostSplitter, MakesTrailingHeadersTheLastChunk) {
    const std::vector<Chunk> chunks = Split(Hex("000001B6 44 000001B3 00 000001B2"));
    EXPECT_EQ((Chunks{Hex("000001B6 44"), Hex("000001B3 00 000001B2")}), Data(chunks));
    EXPECT_FALSE(chunks[1].has_picture);
}

TEST(HostSplitter, GivesLeadingBytesToTheFirstChunk) {
    EXPECT_EQ((Chunks{Hex("12 34 00 00 000001B6 44"), Hex("000001B6")}),
              Data(Split(Hex("12 34 00 00 000001B6 44 000001B6"))));
}

TEST(HostSplitter, MakesOneChunkOfBytesWithoutStartCodes) {
    const std::vector<Chunk> chunks = Split(Hex("12 34 56 00 00 02 00 01"));
    EXPECT_EQ(Chunks{Hex("12 34 56 00 00 02 00 01")}, Data(chunks));
    EXPECT_FALSE(chunks[0].has_picture);
}

TEST(HostSplitter, MakesNoChunkOfNothing) {
    EXPECT_TRUE(Split({}).empty());
    Splitter splitter;
    Chunk chunk;
    EXPECT_FALSE(splitter.Next(chunk));
}

TEST(HostSplitter, LeavesZerosBeforeAStartCodeToTheChunkBefore) {
    EXPECT_EQ((Chunks{Hex("000001B6 44 00 00 00"), Hex("000001B6")}), Data(Split(Hex("000001B6 44 000000 000001B6"))));
}

TEST(HostSplitter, DoesNotTakeTheLastByteOfAStartCodeForABeginning) {
    // 00 00 01 00, then 00 01 B6: the zero is the video object's number.
    EXPECT_EQ((Chunks{Hex("000001B6"), Hex("00000100 0001B6 00")}), Data(Split(Hex("000001B6 00000100 0001B6 00"))));
}

TEST(HostSplitter, SplitsPicturesThatHoldNothing) {
    EXPECT_EQ((Chunks{Hex("000001B6"), Hex("000001B6"), Hex("000001B6")}),
              Data(Split(Hex("000001B6 000001B6 000001B6"))));
}

TEST(HostSplitter, KeepsACutOffStartCodeAtTheEnd) {
    for (const char* const tail : {"00", "0000", "000001"}) {
        const Bytes stream = Hex(std::string("000001B6 44") + tail);
        EXPECT_EQ(Chunks{stream}, Data(Split(stream)));
    }
}

TEST(HostSplitter, DeliversAChunkAsSoonAsTheNextStartCodeIsThere) {
    Splitter splitter;
    Chunk chunk;
    splitter.Append(Hex("000001B6 44 000001"));
    EXPECT_FALSE(splitter.Next(chunk));
    splitter.Append(Hex("B6"));
    EXPECT_TRUE(splitter.Next(chunk));
    EXPECT_EQ(Hex("000001B6 44"), chunk.data);
    EXPECT_FALSE(splitter.Next(chunk));
}

TEST(HostSplitter, TakesNothingAfterTheEnd) {
    Splitter splitter;
    splitter.Append(Hex("000001B6"));
    splitter.Finish();
    splitter.Append(Hex("55"));
    EXPECT_EQ(Chunks{Hex("000001B6")}, Data(Drain(splitter)));
}

// Bytes in which start codes and almost start codes are frequent.
Bytes HostileBytes(Random& random, size_t size) {
    static constexpr uint8_t kBytes[] = {0, 0, 0, 0, 1, 1, 0xB6, 0xB6, 0xB1, 0x20, 0xB3, 0xFF};
    Bytes bytes(size);
    for (uint8_t& byte : bytes) byte = kBytes[random.Below(sizeof kBytes)];
    return bytes;
}

TEST(HostSplitter, DoesNotDependOnHowTheBytesArrive) {
    for (uint32_t seed = 0; seed < 200; seed++) {
        SCOPED_TRACE(seed);
        Random random(seed);
        const Bytes stream = HostileBytes(random, random.Below(400));
        const std::vector<Chunk> whole = Split(stream);

        Splitter splitter;
        std::vector<Chunk> pieces;
        for (size_t pos = 0; pos < stream.size();) {
            const size_t size = std::min<size_t>(stream.size() - pos, random.Below(9));
            splitter.Append(std::span(stream).subspan(pos, size));
            pos += size;
            if (random.Chance(2)) continue;
            for (Chunk& chunk : Drain(splitter)) pieces.push_back(std::move(chunk));
        }
        splitter.Finish();
        for (Chunk& chunk : Drain(splitter)) pieces.push_back(std::move(chunk));

        ASSERT_EQ(Data(whole), Data(pieces));
        for (size_t i = 0; i < whole.size(); i++) {
            EXPECT_EQ(whole[i].offset, pieces[i].offset);
            EXPECT_EQ(whole[i].has_picture, pieces[i].has_picture);
        }
    }
}

TEST(HostSplitter, LosesNothingAndPutsOnePictureIntoAChunk) {
    for (uint32_t seed = 0; seed < 200; seed++) {
        SCOPED_TRACE(seed);
        Random random(seed + 1000);
        const Bytes stream = HostileBytes(random, 300);
        Bytes joined;
        const std::vector<Chunk> chunks = Split(stream);
        for (size_t i = 0; i < chunks.size(); i++) {
            EXPECT_EQ(joined.size(), chunks[i].offset);
            EXPECT_FALSE(chunks[i].data.empty());
            EXPECT_TRUE(chunks[i].has_picture || i + 1 == chunks.size());
            joined.insert(joined.end(), chunks[i].data.begin(), chunks[i].data.end());
        }
        EXPECT_EQ(stream, joined);
    }
}

TEST(HostSplitter, BoundsTheMemoryOfAnEndlessChunk) {
    Splitter splitter(1000);
    splitter.Append(Hex("000001B6"));
    const Bytes noise(300, 0x55);
    Chunk chunk;
    for (int i = 0; i < 100; i++) {
        splitter.Append(noise);
        EXPECT_FALSE(splitter.Next(chunk));
    }
    splitter.Append(Hex("000001B6 77"));
    ASSERT_TRUE(splitter.Next(chunk));
    EXPECT_EQ(1000u, chunk.data.size());
    EXPECT_EQ(30004u - 1000u, chunk.dropped);
    EXPECT_EQ(0u, chunk.offset);
    splitter.Finish();
    ASSERT_TRUE(splitter.Next(chunk));
    EXPECT_EQ(Hex("000001B6 77"), chunk.data);
    EXPECT_EQ(30004u, chunk.offset);
    EXPECT_EQ(0u, chunk.dropped);
}

TEST(HostSplitter, DropsTheSameBytesHoweverTheyArrive) {
    Bytes stream = Hex("000001B6");
    stream.resize(2000, 0x66);
    const Bytes next = Hex("000001B6 77");
    stream.insert(stream.end(), next.begin(), next.end());
    for (uint32_t step : {1u, 7u, 100u, 5000u}) {
        Splitter splitter(64);
        std::vector<Chunk> chunks;
        for (size_t pos = 0; pos < stream.size(); pos += step) {
            splitter.Append(std::span(stream).subspan(pos, std::min<size_t>(step, stream.size() - pos)));
            for (Chunk& chunk : Drain(splitter)) chunks.push_back(std::move(chunk));
        }
        splitter.Finish();
        for (Chunk& chunk : Drain(splitter)) chunks.push_back(std::move(chunk));
        ASSERT_EQ(2u, chunks.size()) << step;
        EXPECT_EQ(Bytes(stream.begin(), stream.begin() + 64), chunks[0].data);
        EXPECT_EQ(2000u - 64u, chunks[0].dropped);
        EXPECT_EQ(next, chunks[1].data);
        EXPECT_EQ(2000u, chunks[1].offset);
    }
}

TEST(HostStartCode, IsFoundWhereItBeginsAndOnlyWhole) {
    const Bytes bytes = Hex("00 00 00 01 B6 00 00 01");
    EXPECT_EQ(1u, FindStartCode(bytes, 0));
    EXPECT_EQ(1u, FindStartCode(bytes, 1));
    EXPECT_EQ(8u, FindStartCode(bytes, 2));
    EXPECT_EQ(8u, FindStartCode(bytes, 100));
    EXPECT_EQ(3u, FindStartCode(std::span(bytes).first(3), 0));
    EXPECT_EQ(0u, FindStartCode({}, 0));
}

TEST(HostStartCode, AgreesWithAByteByByteSearch) {
    Random random(3);
    for (int i = 0; i < 300; i++) {
        const Bytes bytes = HostileBytes(random, random.Below(40));
        for (size_t from = 0; from <= bytes.size(); from++) {
            size_t want = from;
            while (want + 4 <= bytes.size() && !(bytes[want] == 0 && bytes[want + 1] == 0 && bytes[want + 2] == 1))
                want++;
            if (want + 4 > bytes.size()) want = bytes.size();
            ASSERT_EQ(want, FindStartCode(bytes, from));
        }
    }
}

}  // namespace
}  // namespace mp4v::test
