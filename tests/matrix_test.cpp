// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

// Quantisation matrices from the stream.
#include <gtest/gtest.h>

#include <array>
#include <numeric>

#include "support/header_parser.h"

namespace mp4v::test {
namespace {

using Matrix = std::array<int16_t, 64>;

// The zigzag scan, walked: up and down the diagonals.
std::array<size_t, 64> Zigzag() {
    std::array<size_t, 64> scan{};
    size_t k = 0;
    for (size_t diagonal = 0; diagonal < 15; diagonal++) {
        for (size_t i = 0; i <= diagonal; i++) {
            const size_t row = diagonal % 2 ? i : diagonal - i;
            const size_t column = diagonal - row;
            if (row < 8 && column < 8) scan[k++] = row * 8 + column;
        }
    }
    return scan;
}

const std::array<size_t, 64> kZigzag = Zigzag();
constexpr int16_t kOld = 99;

struct Loaded {
    Matrix matrix;
    size_t position;
    uint32_t error;

    int16_t AtScan(size_t k) const { return matrix[kZigzag[k]]; }
};

// Reads a matrix over one that is full of kOld.
Loaded Load(const std::vector<uint8_t>& bytes, unsigned consumed_before = 0) {
    HeaderParser parser(16, 16);
    BitWriter bits;
    bits.Put(0, consumed_before);
    for (const uint8_t byte : bytes) bits.Put(byte, 8);
    bits.Put(0xFF, 8);
    parser.SetReader(bits);
    BsSkip(&parser.ctx().tBs, consumed_before);
    Loaded loaded{};
    loaded.matrix.fill(kOld);
    GetMatrix(&parser.ctx().tBs, loaded.matrix.data());
    loaded.position = parser.Position() - consumed_before;
    loaded.error = parser.ctx().tBs.u32BsError;
    return loaded;
}

std::vector<uint8_t> Counting(size_t count) {
    std::vector<uint8_t> bytes(count);
    std::iota(bytes.begin(), bytes.end(), uint8_t{1});
    return bytes;
}

TEST(GetMatrix, ReadsAFullMatrixWithoutATerminator) {
    const Loaded loaded = Load(Counting(64));
    EXPECT_EQ(loaded.position, 512u);
    for (size_t k = 0; k < 64; k++) EXPECT_EQ(loaded.AtScan(k), static_cast<int>(k) + 1) << k;
}

TEST(GetMatrix, StoresInZigzagOrder) {
    const Loaded loaded = Load(Counting(64));
    EXPECT_EQ(loaded.matrix[0], 1);
    EXPECT_EQ(loaded.matrix[1], 2);
    EXPECT_EQ(loaded.matrix[8], 3);
    EXPECT_EQ(loaded.matrix[16], 4);
    EXPECT_EQ(loaded.matrix[9], 5);
    EXPECT_EQ(loaded.matrix[2], 6);
    EXPECT_EQ(loaded.matrix[55], 62);
    EXPECT_EQ(loaded.matrix[62], 63);
    EXPECT_EQ(loaded.matrix[63], 64);
}

TEST(GetMatrix, StoresEveryByteAsAPositiveValue) {
    const Loaded loaded = Load(std::vector<uint8_t>(64, 255));
    for (const int16_t value : loaded.matrix) EXPECT_EQ(value, 255);
}

TEST(GetMatrix, RepeatsTheLastValueAtEveryOtherScanPosition) {
    const Loaded loaded = Load({16, 0});
    EXPECT_EQ(loaded.position, 16u);
    EXPECT_EQ(loaded.AtScan(0), 16);
    for (size_t k = 1; k < 64; k++) EXPECT_EQ(loaded.AtScan(k), k % 2 ? 16 : kOld) << k;
}

TEST(GetMatrix, WritesZerosForALeadingZero) {
    const Loaded loaded = Load({0});
    EXPECT_EQ(loaded.position, 8u);
    for (size_t k = 0; k < 64; k++) EXPECT_EQ(loaded.AtScan(k), k % 2 ? kOld : 0) << k;
}

TEST(GetMatrix, FillsFromWhereverTheTerminatorStands) {
    for (size_t count = 0; count < 64; count++) {
        std::vector<uint8_t> bytes = Counting(count);
        bytes.push_back(0);
        const Loaded loaded = Load(bytes);
        ASSERT_EQ(loaded.position, (count + 1) * 8);
        for (size_t k = 0; k < 64; k++) {
            const size_t filled = (k - count) % 2 ? kOld : count;
            ASSERT_EQ(loaded.AtScan(k), static_cast<int>(k < count ? k + 1 : filled)) << count << " values, scan " << k;
        }
    }
}

TEST(GetMatrix, ReadsAtAnyBit) {
    for (unsigned before = 0; before < 32; before++) {
        const Loaded loaded = Load(Counting(64), before);
        EXPECT_EQ(loaded.position, 512u);
        EXPECT_EQ(loaded.AtScan(63), 64) << before;
    }
}

TEST(GetMatrix, LeavesAnOverrunInTheReader) {
    HeaderParser parser(16, 16);
    parser.SetReader(std::vector<uint8_t>(10, 5), 6);  // 10 bytes in the chunk, 8 behind it, then zeros
    Matrix matrix;
    matrix.fill(kOld);
    GetMatrix(&parser.ctx().tBs, matrix.data());
    EXPECT_EQ(parser.ctx().tBs.u32BsError, 0xA2C0001E);
    EXPECT_EQ(matrix[kZigzag[9]], 5);
    EXPECT_EQ(matrix[kZigzag[17]], 6);
    EXPECT_EQ(matrix[kZigzag[18]], 6);
    EXPECT_EQ(matrix[kZigzag[19]], kOld);
}

TEST(GetMatrix, RaisesNoErrorWhenTheMatrixEndsTheChunk) {
    HeaderParser parser(16, 16);
    parser.SetReader(std::vector<uint8_t>(64, 5));
    Matrix matrix;
    GetMatrix(&parser.ctx().tBs, matrix.data());
    EXPECT_EQ(parser.ctx().tBs.u32BsError, 0u);
    EXPECT_EQ(parser.Position(), 512u);
}

// ---- What loaded matrices do to pictures: nothing

// An I-VOP and a P-VOP of one macroblock with coefficients all over its first block.
void PutTexturedVops(BitWriter& intra, BitWriter& predicted, const VolHeader& vol) {
    VopHeader{.quant = 9}.PutTo(intra, vol);
    intra.Bits(McbpcIntraCode(3, 0)).Put(0, 1).Bits(CbpyCode(8, true));
    for (int block = 0; block < 4; block++) {
        intra.Bits(DcCode(0, true));
        if (block > 0) continue;
        for (int i = 0; i < 20; i++) intra.Bits(TcoefCode(true, 0, 1, i % 2 ? 5 : -6));
        intra.Bits(TcoefCode(true, 1, 0, 3));
    }
    intra.Bits(DcCode(0, false)).Bits(DcCode(0, false));

    VopHeader{.coding_type = 1, .quant = 9}.PutTo(predicted, vol);
    predicted.Put(0, 1).Bits(McbpcInterCode(0, 0)).Bits(CbpyCode(8, false)).Bits(MotionCode(0)).Bits(MotionCode(0));
    for (int i = 0; i < 20; i++) predicted.Bits(TcoefCode(false, 0, 2, i % 2 ? -4 : 7));
    predicted.Bits(TcoefCode(false, 1, 0, 3));
}

std::vector<std::vector<uint8_t>> Pictures(const VolHeader& vol) {
    TestDecoder decoder(16, 16);
    BitWriter intra, predicted;
    vol.PutTo(intra);
    PutTexturedVops(intra, predicted, vol);
    std::vector<std::vector<uint8_t>> pictures;
    for (const BitWriter& bits : {intra, predicted}) {
        EXPECT_EQ(decoder.Process(bits).status, 0u);
        pictures.push_back(decoder.picture);
    }
    return pictures;
}

TEST(LoadedMatrices, LeaveThePicturesAsTheDefaultsMakeThem) {
    VolHeader vol = {.width = 16, .height = 16, .quant_type = true};
    const auto expected = Pictures(vol);
    EXPECT_NE(expected[0], FlatPicture(16, 16, {128, 128, 128}));
    EXPECT_NE(expected[1], expected[0]);
    const std::vector<uint8_t> steep = Counting(64);
    vol.intra_matrix = steep;
    EXPECT_EQ(Pictures(vol), expected);
    vol.inter_matrix = std::vector<uint8_t>(64, 255);
    EXPECT_EQ(Pictures(vol), expected);
    vol.intra_matrix = std::vector<uint8_t>{0};
    EXPECT_EQ(Pictures(vol), expected);
}

}  // namespace
}  // namespace mp4v::test
