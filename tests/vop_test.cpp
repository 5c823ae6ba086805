// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

// The VOP header.
#include <gtest/gtest.h>

#include <algorithm>

#include "support/header_parser.h"

namespace mp4v::test {
namespace {

constexpr uint32_t kBFrame = 0xA2C00019;
constexpr uint32_t kTimeBase = 0xA2C0001D;
constexpr uint32_t kVolNotFound = 0xA2C00023;

// An instance that knows its layer, and holds something old in every field that a VOP header may write.
class VopParser : public HeaderParser {
  public:
    explicit VopParser(const VolHeader& vol = {}) : HeaderParser(16, 16), vol_(vol) {
        Mp4vDecCtx& c = ctx();
        c.u32VopTimeIncBits = vol.time_increment_bits();
        c.u16VolShape = static_cast<uint16_t>(vol.shape);
        c.s16Interlaced = vol.interlaced;
        c.u32QuantPrecision = vol.quant_precision.value_or(5);
        c.s16VopCodingType = 77;
        c.u16QpCarry = 77;
        c.s32VopTimeIncr = 7;
        c.s32PrevVopTimeIncr = 6;
        c.u32RoundingType = 77;
        c.u32IntraDcThr = 77;
        c.u32TopFieldFirst = 77;
        c.u32AltVertScan = 77;
        c.u32VopQuant = 77;
        c.u32FcodeForward = 77;
    }

    uint32_t Parse(const VopHeader& vop) { return ParseVop(vop, vol_); }

  private:
    VolHeader vol_;
};

size_t HeaderBits(const VopHeader& vop, const VolHeader& vol) {
    BitWriter bits;
    vop.PutTo(bits, vol);
    return bits.bit_count();
}

TEST(DecVopHeader, StoresTheFieldsOfAnIntraVop) {
    VopParser parser;
    EXPECT_EQ(parser.Parse({.time_increment = 29, .intra_dc_vlc_thr = 1, .quant = 17}), 0u);
    const Mp4vDecCtx& ctx = parser.ctx();
    EXPECT_EQ(ctx.s16VopCodingType, 0);
    EXPECT_EQ(ctx.u16QpCarry, 1);
    EXPECT_EQ(ctx.s32VopTimeIncr, 29);
    EXPECT_EQ(ctx.s32PrevVopTimeIncr, 7);
    EXPECT_EQ(ctx.u32IntraDcThr, 13u);
    EXPECT_EQ(ctx.u32TopFieldFirst, 0u);
    EXPECT_EQ(ctx.u32AltVertScan, 0u);
    EXPECT_EQ(ctx.u32VopQuant, 17u);
}

TEST(DecVopHeader, LeavesTheFieldsOfPredictedVopsToThem) {
    VopParser parser;
    EXPECT_EQ(parser.Parse({.coding_type = 0}), 0u);
    EXPECT_EQ(parser.ctx().u32RoundingType, 77u);
    EXPECT_EQ(parser.ctx().u32FcodeForward, 77u);
}

TEST(DecVopHeader, StoresTheFieldsOfAPredictedVop) {
    VopParser parser;
    EXPECT_EQ(parser.Parse({.coding_type = 1, .rounding_type = 1, .quant = 31, .fcode_forward = 5}), 0u);
    const Mp4vDecCtx& ctx = parser.ctx();
    EXPECT_EQ(ctx.s16VopCodingType, 1);
    EXPECT_EQ(ctx.u32RoundingType, 1u);
    EXPECT_EQ(ctx.u32VopQuant, 31u);
    EXPECT_EQ(ctx.u32FcodeForward, 5u);
    EXPECT_EQ(parser.Parse({.coding_type = 1, .rounding_type = 0}), 0u);
    EXPECT_EQ(ctx.u32RoundingType, 0u);
}

TEST(DecVopHeader, StoresAQuantiserAndAnFcodeOfZero) {
    VopParser parser;
    EXPECT_EQ(parser.Parse({.coding_type = 1, .quant = 0, .fcode_forward = 0}), 0u);
    EXPECT_EQ(parser.ctx().u32VopQuant, 0u);
    EXPECT_EQ(parser.ctx().u32FcodeForward, 0u);
}

TEST(DecVopHeader, TouchesNeitherTheStatusOfTheHeadersNorAnythingElse) {
    VopParser parser;
    std::vector<uint8_t> before = parser.State();
    EXPECT_EQ(parser.Parse({.coding_type = 1}), 0u);
    std::vector<uint8_t> after = parser.State();
    const auto forget = [&](const auto& member) {
        const auto offset = reinterpret_cast<const uint8_t*>(&member) - static_cast<const uint8_t*>(parser.handle);
        for (std::vector<uint8_t>* bytes : {&before, &after}) std::fill_n(bytes->begin() + offset, sizeof member, 0);
    };
    const Mp4vDecCtx& ctx = parser.ctx();
    forget(ctx.s16VopCodingType);
    forget(ctx.u16QpCarry);
    forget(ctx.s32VopTimeIncr);
    forget(ctx.s32PrevVopTimeIncr);
    forget(ctx.u32RoundingType);
    forget(ctx.u32IntraDcThr);
    forget(ctx.u32TopFieldFirst);
    forget(ctx.u32AltVertScan);
    forget(ctx.u32VopQuant);
    forget(ctx.u32FcodeForward);
    EXPECT_EQ(after, before);
    EXPECT_EQ(ctx.u32HeaderStatus, kVolNotFound);
}

// The optional parts in all combinations: exactly the bits that were written are read.
TEST(DecVopHeader, ReadsEveryFormToItsLastBit) {
    for (unsigned form = 0; form < 1u << 9; form++) {
        const auto bit = [form](unsigned n) { return (form >> n & 1) != 0; };
        VolHeader vol;
        vol.shape = form & 3;
        if (vol.shape == 3) continue;
        vol.interlaced = bit(2);
        if (bit(3)) vol.quant_precision = 11;
        vol.time_increment_resolution = bit(4) ? 65535 : 0;
        VopHeader vop;
        vop.coding_type = bit(5);
        vop.modulo_time_base = bit(6) ? 128 : 0;
        vop.coded = !bit(7);
        if (bit(8)) vop.constant_alpha = 0xFF;
        VopParser parser(vol);
        ASSERT_EQ(parser.Parse(vop), 0u) << form;
        ASSERT_EQ(parser.Position(), HeaderBits(vop, vol)) << form;
        ASSERT_EQ(parser.ctx().u32VopQuant, vop.coded ? 4u : 77u) << form;
    }
}

TEST(DecVopHeader, DoesNotLookAtItsStartCode) {
    VopParser parser;
    BitWriter bits;
    bits.Put(0xFFFFFFFF, 32).Bits("00 0 1 00000 1 1 000 00100");
    parser.SetReader(bits);
    EXPECT_EQ(DecVopHeader(&parser.ctx()), 0u);
    EXPECT_EQ(parser.ctx().u32VopQuant, 4u);
}

TEST(DecVopHeader, DoesNotLookAtTheMarkerBehindTheTime) {
    VopParser parser;
    BitWriter bits;
    bits.Put(0x000001B6, 32).Bits("00 0 1 00000 0 1 000 00100");
    parser.SetReader(bits);
    EXPECT_EQ(DecVopHeader(&parser.ctx()), 0u);
    EXPECT_EQ(parser.ctx().u32VopQuant, 4u);
}

// ---- The coding type

TEST(DecVopHeader, RefusesBAndSVopsAtOnce) {
    for (const uint32_t type : {2u, 3u}) {
        VopParser parser;
        const std::vector<uint8_t> before = parser.State();
        EXPECT_EQ(parser.Parse({.coding_type = type}), kBFrame);
        EXPECT_EQ(parser.Position(), 34u);
        EXPECT_EQ(parser.ctx().s16VopCodingType, static_cast<int>(type)) << "the refused value stays";
        EXPECT_EQ(parser.ctx().u32HeaderStatus, kVolNotFound);
        parser.ctx().s16VopCodingType = 77;
        EXPECT_EQ(parser.State(), before);
    }
}

TEST(DecVopHeader, RefusesBVopsEvenWhenTheyAreNotCoded) {
    VopParser parser;
    EXPECT_EQ(parser.Parse({.coding_type = 2, .coded = false}), kBFrame);
}

// ---- Time

TEST(ModuloTimeBase, MayHave128Ones) {
    for (const uint32_t ones : {0u, 1u, 31u, 32u, 33u, 127u, 128u}) {
        VopParser parser;
        EXPECT_EQ(parser.Parse({.modulo_time_base = ones, .time_increment = 21}), 0u) << ones;
        EXPECT_EQ(parser.ctx().s32VopTimeIncr, 21) << ones;
    }
}

TEST(ModuloTimeBase, MayNotHave129Ones) {
    for (const uint32_t ones : {129u, 130u, 1000u}) {
        VopParser parser;
        EXPECT_EQ(parser.Parse({.modulo_time_base = ones}), kTimeBase) << ones;
        EXPECT_EQ(parser.Position(), 34u + 129);
        EXPECT_EQ(parser.ctx().u32HeaderStatus, kVolNotFound);
        EXPECT_EQ(parser.ctx().s16VopCodingType, 0);
        EXPECT_EQ(parser.ctx().u16QpCarry, 77);
    }
}

TEST(VopTimeIncrement, MovesTheOldValueOn) {
    VopParser parser;
    EXPECT_EQ(parser.Parse({.time_increment = 29}), 0u);
    EXPECT_EQ(parser.ctx().s32PrevVopTimeIncr, 7);
    EXPECT_EQ(parser.Parse({.time_increment = 3}), 0u);
    EXPECT_EQ(parser.ctx().s32VopTimeIncr, 3);
    EXPECT_EQ(parser.ctx().s32PrevVopTimeIncr, 29);
}

TEST(VopTimeIncrement, IsSignedOnlyWhenItHas16Bits) {
    VopParser sixteen({.time_increment_resolution = 65535});
    EXPECT_EQ(sixteen.Parse({.time_increment = 0x8000}), 0u);
    EXPECT_EQ(sixteen.ctx().s32VopTimeIncr, -32768);
    EXPECT_EQ(sixteen.Parse({.time_increment = 0xFFFF}), 0u);
    EXPECT_EQ(sixteen.ctx().s32VopTimeIncr, -1);
    EXPECT_EQ(sixteen.Parse({.time_increment = 0x7FFF}), 0u);
    EXPECT_EQ(sixteen.ctx().s32VopTimeIncr, 32767);
    VopParser fifteen({.time_increment_resolution = 32768});
    EXPECT_EQ(fifteen.Parse({.time_increment = 0x7FFF}), 0u);
    EXPECT_EQ(fifteen.ctx().s32VopTimeIncr, 32767);
}

TEST(VopTimeIncrement, OfNoBitsIsNotRead) {
    VopParser parser;
    parser.ctx().u32VopTimeIncBits = 0;
    BitWriter bits;
    bits.Put(0x000001B6, 32).Bits("00 0 1 1 1 000 10101");
    parser.SetReader(bits);
    EXPECT_EQ(DecVopHeader(&parser.ctx()), 0u);
    EXPECT_EQ(parser.ctx().s32VopTimeIncr, 7);
    EXPECT_EQ(parser.ctx().s32PrevVopTimeIncr, 6);
    EXPECT_EQ(parser.ctx().u32VopQuant, 21u);
}

TEST(VopTimeIncrement, OfANewInstanceIsMinusOneBefore) {
    HeaderParser parser;
    ASSERT_EQ(parser.ParseVol({}), 0u);
    EXPECT_EQ(parser.ParseVop({.time_increment = 5}, {}), 0u);
    EXPECT_EQ(parser.ctx().s32VopTimeIncr, 5);
    EXPECT_EQ(parser.ctx().s32PrevVopTimeIncr, -1);
}

// ---- VOPs that are not coded

TEST(NotCodedVop, EndsBehindItsFlag) {
    for (const uint32_t type : {0u, 1u}) {
        VopParser parser;
        const VopHeader vop = {.coding_type = type, .time_increment = 9, .coded = false, .intra_dc_vlc_thr = 4};
        EXPECT_EQ(parser.Parse(vop), 0u);
        EXPECT_EQ(parser.Position(), 32u + 2 + 1 + 1 + 5 + 1 + 1);
        const Mp4vDecCtx& ctx = parser.ctx();
        EXPECT_EQ(ctx.s16VopCodingType, 5);
        EXPECT_EQ(ctx.u16QpCarry, 1);
        EXPECT_EQ(ctx.s32VopTimeIncr, 9);
        EXPECT_EQ(ctx.s32PrevVopTimeIncr, 7);
        EXPECT_EQ(ctx.u32RoundingType, 77u);
        EXPECT_EQ(ctx.u32IntraDcThr, 77u);
        EXPECT_EQ(ctx.u32TopFieldFirst, 77u);
        EXPECT_EQ(ctx.u32AltVertScan, 77u);
        EXPECT_EQ(ctx.u32VopQuant, 77u);
        EXPECT_EQ(ctx.u32FcodeForward, 77u);
    }
}

// ---- intra_dc_vlc_thr and the marker

TEST(IntraDcThreshold, ComesFromItsTable) {
    constexpr uint32_t kThresholds[8] = {32, 13, 15, 17, 19, 21, 23, 1};
    for (uint32_t code = 0; code < 8; code++) {
        VopParser parser;
        EXPECT_EQ(parser.Parse({.intra_dc_vlc_thr = code}), 0u);
        EXPECT_EQ(parser.ctx().u32IntraDcThr, kThresholds[code]);
        EXPECT_EQ(g_au32IntraDcThTable[code], kThresholds[code]);
    }
}

TEST(QpCarry, IsTheMarkerBehindModuloTimeBase) {
    for (const uint32_t marker : {0u, 1u}) {
        for (const uint32_t type : {0u, 1u}) {
            VopParser parser;
            EXPECT_EQ(parser.Parse({.coding_type = type, .marker = marker}), 0u);
            EXPECT_EQ(parser.ctx().u16QpCarry, marker);
        }
    }
}

TEST(QpCarry, IsClearedByAThresholdCodeOfFour) {
    for (uint32_t code = 0; code < 8; code++) {
        VopParser parser;
        EXPECT_EQ(parser.Parse({.marker = 1, .intra_dc_vlc_thr = code}), 0u);
        EXPECT_EQ(parser.ctx().u16QpCarry, code == 4 ? 0 : 1) << code;
    }
}

// ---- Interlaced layers

TEST(InterlacedFlags, AreZeroInAProgressiveLayer) {
    for (const uint32_t type : {0u, 1u}) {
        VopParser parser;
        EXPECT_EQ(parser.Parse({.coding_type = type, .top_field_first = 1, .alternate_vertical_scan = 1}), 0u);
        EXPECT_EQ(parser.ctx().u32TopFieldFirst, 0u);
        EXPECT_EQ(parser.ctx().u32AltVertScan, 0u);
    }
}

TEST(InterlacedFlags, AreReadInTheirOrder) {
    for (const uint32_t type : {0u, 1u}) {
        VopParser parser({.interlaced = true});
        EXPECT_EQ(parser.Parse({.coding_type = type, .top_field_first = 1, .alternate_vertical_scan = 0}), 0u);
        EXPECT_EQ(parser.ctx().u32TopFieldFirst, 1u);
        EXPECT_EQ(parser.ctx().u32AltVertScan, 0u);
        EXPECT_EQ(parser.Parse({.coding_type = type, .top_field_first = 0, .alternate_vertical_scan = 1}), 0u);
        EXPECT_EQ(parser.ctx().u32TopFieldFirst, 0u);
        EXPECT_EQ(parser.ctx().u32AltVertScan, 1u);
        EXPECT_EQ(parser.ctx().u32VopQuant, 4u);
    }
}

// ---- The quantiser

TEST(VopQuant, HasAsManyBitsAsTheLayerSays) {
    for (const auto& [precision, quant] : {std::pair{3u, 5u}, {4u, 9u}, {5u, 0x1Fu}, {9u, 0x155u}, {15u, 0x7ABCu}}) {
        VopParser parser({.quant_precision = precision});
        EXPECT_EQ(parser.Parse({.coding_type = 1, .quant = quant, .fcode_forward = 6}), 0u);
        EXPECT_EQ(parser.ctx().u32VopQuant, quant);
        EXPECT_EQ(parser.ctx().u32FcodeForward, 6u);
    }
}

TEST(VopQuant, OfNoBitsIsZero) {
    VopParser parser({.quant_precision = 0});
    EXPECT_EQ(parser.Parse({.coding_type = 1, .quant = 1, .fcode_forward = 6}), 0u);
    EXPECT_EQ(parser.ctx().u32VopQuant, 0u);
    EXPECT_EQ(parser.ctx().u32FcodeForward, 6u);
}

TEST(VopQuant, HasFiveBitsUnlessTheLayerSaysOtherwise) {
    HeaderParser parser;
    ASSERT_EQ(parser.ParseVol({}), 0u);
    ASSERT_EQ(parser.ParseVop({.quant = 0x15}, {}), 0u);
    EXPECT_EQ(parser.ctx().u32VopQuant, 0x15u);
    const VolHeader vol = {.quant_precision = 4};
    ASSERT_EQ(parser.ParseVol(vol), 0u);
    ASSERT_EQ(parser.ParseVop({.quant = 0xA}, vol), 0u);
    EXPECT_EQ(parser.ctx().u32VopQuant, 0xAu);
}

// ---- Layers with shape

TEST(BinaryShapeVop, StepsOverItsShape) {
    for (const bool alpha : {false, true}) {
        VopParser parser({.shape = 1, .interlaced = true});
        VopHeader vop = {.coding_type = 1,
                         .rounding_type = 1,
                         .intra_dc_vlc_thr = 7,
                         .top_field_first = 1,
                         .alternate_vertical_scan = 1,
                         .quant = 13,
                         .fcode_forward = 3};
        if (alpha) vop.constant_alpha = 0xAA;
        EXPECT_EQ(parser.Parse(vop), 0u);
        const Mp4vDecCtx& ctx = parser.ctx();
        EXPECT_EQ(ctx.u32RoundingType, 1u);
        EXPECT_EQ(ctx.u32IntraDcThr, 1u);
        EXPECT_EQ(ctx.u32TopFieldFirst, 1u);
        EXPECT_EQ(ctx.u32AltVertScan, 1u);
        EXPECT_EQ(ctx.u32VopQuant, 13u);
        EXPECT_EQ(ctx.u32FcodeForward, 3u);
    }
}

TEST(BinaryOnlyShapeVop, HasNeitherRoundingNorThresholdNorFieldFlags) {
    VopParser parser({.shape = 2, .interlaced = true});
    EXPECT_EQ(parser.Parse({.coding_type = 1,
                            .rounding_type = 1,
                            .constant_alpha = 0xAA,
                            .intra_dc_vlc_thr = 4,
                            .top_field_first = 1,
                            .alternate_vertical_scan = 1,
                            .quant = 13,
                            .fcode_forward = 3}),
              0u);
    const Mp4vDecCtx& ctx = parser.ctx();
    EXPECT_EQ(ctx.u32RoundingType, 77u);
    EXPECT_EQ(ctx.u16QpCarry, 1);
    EXPECT_EQ(ctx.u32IntraDcThr, 77u);
    EXPECT_EQ(ctx.u32TopFieldFirst, 77u);
    EXPECT_EQ(ctx.u32AltVertScan, 77u);
    EXPECT_EQ(ctx.u32VopQuant, 13u);
    EXPECT_EQ(ctx.u32FcodeForward, 3u);
}

// ---- The end of the chunk

TEST(DecVopHeader, LeavesAnOverrunInTheReader) {
    VopParser parser;
    const std::vector<uint8_t> bytes = {0, 0, 1, 0xB6, 0, 0, 0, 0, 0, 0, 0};
    BsInit(&parser.ctx().tBs, bytes.data(), 3);
    EXPECT_EQ(DecVopHeader(&parser.ctx()), 0u);
    EXPECT_EQ(parser.ctx().tBs.u32BsError, 0xA2C0001E);
}

TEST(DecVopHeader, StandsAnyCutInTheMiddle) {
    const VolHeader vol = {.shape = 1, .interlaced = true};
    const VopHeader vop = {.coding_type = 1, .modulo_time_base = 128, .constant_alpha = 1};
    BitWriter bits;
    vop.PutTo(bits, vol);
    const std::vector<uint8_t>& whole = bits.Bytes();
    for (size_t length = 1; length < whole.size(); length++) {
        for (const uint8_t tail : {uint8_t{0}, uint8_t{0xFF}}) {
            VopParser parser(vol);
            parser.SetReader(std::vector<uint8_t>(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(length)), tail);
            const uint32_t status = DecVopHeader(&parser.ctx());
            ASSERT_TRUE(status == 0 || status == kTimeBase || status == kBFrame) << length;
        }
    }
}

}  // namespace
}  // namespace mp4v::test
