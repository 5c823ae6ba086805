// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors
#include "common/vlc_tables.h"

// The rows stand as ISO/IEC 14496-2 prints them and are expanded by the compiler. What cannot be expanded stops the
// compilation by calling one of these, which are defined nowhere.
void VlcCodesOverlap();
void VlcCodeCrossesItsTable();

namespace {

struct VlcCode {
    const char* ps8Bits;
    int32_t s32Value;
};

struct McbpcCode {
    const char* ps8Bits;
    int32_t s32MbType;
    int32_t s32Cbpc;
};

struct TcoefCode {
    const char* ps8Bits;  // without the sign bit
    int32_t s32Last;
    int32_t s32Run;
    int32_t s32Level;
};

struct CodeBits {
    uint32_t u32Bits;
    uint32_t u32Length;
};

constexpr CodeBits ParseBits(const char* ps8Bits) {
    CodeBits t = {0, 0};
    for (; ps8Bits[t.u32Length]; t.u32Length++) t.u32Bits = t.u32Bits << 1 | (ps8Bits[t.u32Length] == '1');
    return t;
}

// Entry 0 of a table stands for the value u32First of the u32IndexBits bits that index it. A code fills every index
// that begins with it; codes that lie wholly outside belong to another table.
template <size_t N>
struct TableBuilder {
    uint32_t u32IndexBits;
    uint32_t u32First;
    VlcTable<N> tTable = {};

    constexpr TableBuilder(uint32_t u32Bits, uint32_t u32Base) : u32IndexBits(u32Bits), u32First(u32Base) {
        for (VlcEntry& tEntry : tTable.at) tEntry = {-1, 0};
    }

    constexpr void Add(CodeBits tCode, int32_t s32Value) {
        if (tCode.u32Length > u32IndexBits) {
            if (Contains(tCode.u32Bits >> (tCode.u32Length - u32IndexBits))) VlcCodeCrossesItsTable();
            return;
        }
        const uint32_t u32Free = u32IndexBits - tCode.u32Length;
        const uint32_t u32Low = tCode.u32Bits << u32Free;
        const uint32_t u32High = u32Low + (1u << u32Free) - 1;
        if (Contains(u32Low) != Contains(u32High)) VlcCodeCrossesItsTable();
        if (!Contains(u32Low)) return;
        for (uint32_t i = u32Low; i <= u32High; i++) {
            VlcEntry& tEntry = tTable.at[i - u32First];
            if (tEntry.s32Length) VlcCodesOverlap();
            tEntry = {s32Value, (int32_t)tCode.u32Length};
        }
    }

    constexpr bool Contains(uint32_t u32Index) const { return u32Index >= u32First && u32Index - u32First < N; }
};

template <size_t N>
constexpr size_t CountUnused(const VlcTable<N>& tTable) {
    size_t u = 0;
    for (const VlcEntry& tEntry : tTable.at) u += tEntry.s32Length == 0;
    return u;
}

// ---- mcbpc

constexpr int32_t kStuffing = 15;  // 7 in the three bits of a type

// clang-format off

constexpr McbpcCode kMcbpcIntraCodes[] = {
    // Table B-6; "1" and stuffing are decoded without the table
    {"001", MB_INTRA, 1},    {"010", MB_INTRA, 2},      {"011", MB_INTRA, 3},
    {"0001", MB_INTRA_Q, 0}, {"000001", MB_INTRA_Q, 1}, {"000010", MB_INTRA_Q, 2}, {"000011", MB_INTRA_Q, 3},
};

constexpr McbpcCode kMcbpcInterCodes[] = {
    // Table B-7; "1" is decoded without the table
    {"0011", MB_INTER, 1},     {"0010", MB_INTER, 2},        {"000101", MB_INTER, 3},
    {"011", MB_INTER_Q, 0},    {"0000111", MB_INTER_Q, 1},   {"0000110", MB_INTER_Q, 2},   {"000000101", MB_INTER_Q, 3},
    {"010", MB_INTER4V, 0},    {"0000101", MB_INTER4V, 1},   {"0000100", MB_INTER4V, 2},   {"00000101", MB_INTER4V, 3},
    {"00011", MB_INTRA, 0},    {"00000100", MB_INTRA, 1},    {"00000011", MB_INTRA, 2},    {"0000011", MB_INTRA, 3},
    {"000100", MB_INTRA_Q, 0}, {"000000100", MB_INTRA_Q, 1}, {"000000011", MB_INTRA_Q, 2}, {"000000010", MB_INTRA_Q, 3},
    {"000000001", kStuffing, 15},
};

// clang-format on
template <size_t N, size_t M>
constexpr VlcTable<N> ExpandMcbpc(const McbpcCode (&atCodes)[M], uint32_t u32IndexBits) {
    TableBuilder<N> tBuilder(u32IndexBits, 0);
    for (const McbpcCode& tCode : atCodes) tBuilder.Add(ParseBits(tCode.ps8Bits), tCode.s32Cbpc << 4 | tCode.s32MbType);
    return tBuilder.tTable;
}

// ---- cbpy

constexpr VlcCode kCbpyCodes[] = {
    // Table B-8, intra column; "11" is decoded without the table
    {"0011", 0},  {"00101", 1},  {"00100", 2}, {"1001", 3},  {"00011", 4}, {"0111", 5},  {"000010", 6}, {"1011", 7},
    {"00010", 8}, {"000011", 9}, {"0101", 10}, {"1010", 11}, {"0100", 12}, {"1000", 13}, {"0110", 14},
};

constexpr VlcTable<48> ExpandCbpy() {
    TableBuilder<48> tBuilder(6, 0);
    for (const VlcCode& tCode : kCbpyCodes) tBuilder.Add(ParseBits(tCode.ps8Bits), tCode.s32Value);
    return tBuilder.tTable;
}

// ---- motion_code

constexpr VlcCode kMotionCodes[] = {
    // Table B-12 by magnitude, without the sign bit; "1" is decoded without the table
    {"01", 1},           {"001", 2},          {"0001", 3},          {"000011", 4},
    {"0000101", 5},      {"0000100", 6},      {"0000011", 7},       {"000001011", 8},
    {"000001010", 9},    {"000001001", 10},   {"0000010001", 11},   {"0000010000", 12},
    {"0000001111", 13},  {"0000001110", 14},  {"0000001101", 15},   {"0000001100", 16},
    {"0000001011", 17},  {"0000001010", 18},  {"0000001001", 19},   {"0000001000", 20},
    {"0000000111", 21},  {"0000000110", 22},  {"0000000101", 23},   {"0000000100", 24},
    {"00000000111", 25}, {"00000000110", 26}, {"00000000101", 27},  {"00000000100", 28},
    {"00000000011", 29}, {"00000000010", 30}, {"000000000011", 31}, {"000000000010", 32},
};

// The index begins behind the code's first bit, and the sign bit belongs to it.
template <size_t N>
constexpr VlcTable<N> ExpandMotion(uint32_t u32IndexBits, uint32_t u32First) {
    TableBuilder<N> tBuilder(u32IndexBits, u32First);
    for (const VlcCode& tCode : kMotionCodes) {
        const CodeBits tMagnitude = ParseBits(tCode.ps8Bits + 1);
        tBuilder.Add({tMagnitude.u32Bits << 1, tMagnitude.u32Length + 1}, tCode.s32Value);
        tBuilder.Add({tMagnitude.u32Bits << 1 | 1, tMagnitude.u32Length + 1}, -tCode.s32Value);
    }
    return tBuilder.tTable;
}

// ---- Transform coefficients

constexpr char kEscapeBits[] = "0000011";

// clang-format off
constexpr TcoefCode kIntraTcoefCodes[] = {
    // Table B-16: last, run, level
    {"10", 0, 0, 1}, {"110", 0, 0, 2}, {"1111", 0, 0, 3}, {"01101", 0, 0, 4}, {"01100", 0, 0, 5},
    {"010101", 0, 0, 6}, {"010011", 0, 0, 7}, {"010010", 0, 0, 8}, {"0010111", 0, 0, 9}, {"00011111", 0, 0, 10},
    {"00011110", 0, 0, 11}, {"00011101", 0, 0, 12}, {"000100101", 0, 0, 13}, {"000100100", 0, 0, 14},
    {"000100011", 0, 0, 15}, {"000100001", 0, 0, 16}, {"0000100001", 0, 0, 17}, {"0000100000", 0, 0, 18},
    {"0000001111", 0, 0, 19}, {"0000001110", 0, 0, 20}, {"00000000111", 0, 0, 21}, {"00000000110", 0, 0, 22},
    {"00000100000", 0, 0, 23}, {"00000100001", 0, 0, 24}, {"000001010000", 0, 0, 25}, {"000001010001", 0, 0, 26},
    {"000001010010", 0, 0, 27},
    {"1110", 0, 1, 1}, {"010100", 0, 1, 2}, {"0010110", 0, 1, 3}, {"00011100", 0, 1, 4}, {"000100000", 0, 1, 5},
    {"000011111", 0, 1, 6}, {"0000001101", 0, 1, 7}, {"00000100010", 0, 1, 8}, {"000001010011", 0, 1, 9},
    {"000001010101", 0, 1, 10},
    {"01011", 0, 2, 1}, {"0010101", 0, 2, 2}, {"000011110", 0, 2, 3}, {"0000001100", 0, 2, 4},
    {"000001010110", 0, 2, 5},
    {"010001", 0, 3, 1}, {"00011011", 0, 3, 2}, {"000011101", 0, 3, 3}, {"0000001011", 0, 3, 4},
    {"010000", 0, 4, 1}, {"000100010", 0, 4, 2}, {"0000001010", 0, 4, 3},
    {"001101", 0, 5, 1}, {"000011100", 0, 5, 2}, {"0000001000", 0, 5, 3},
    {"0010010", 0, 6, 1}, {"000011011", 0, 6, 2}, {"000001010100", 0, 6, 3},
    {"0010100", 0, 7, 1}, {"000011010", 0, 7, 2}, {"000001010111", 0, 7, 3},
    {"00011001", 0, 8, 1}, {"0000001001", 0, 8, 2},
    {"00011000", 0, 9, 1}, {"00000100011", 0, 9, 2},
    {"00010111", 0, 10, 1}, {"000011001", 0, 11, 1}, {"000011000", 0, 12, 1}, {"0000000111", 0, 13, 1},
    {"000001011000", 0, 14, 1},
    {"0111", 1, 0, 1}, {"001100", 1, 0, 2}, {"00010110", 1, 0, 3}, {"000010111", 1, 0, 4}, {"0000000110", 1, 0, 5},
    {"00000000101", 1, 0, 6}, {"00000000100", 1, 0, 7}, {"000001011001", 1, 0, 8},
    {"001111", 1, 1, 1}, {"000010110", 1, 1, 2}, {"0000000101", 1, 1, 3},
    {"001110", 1, 2, 1}, {"0000000100", 1, 2, 2},
    {"0010001", 1, 3, 1}, {"00000100100", 1, 3, 2},
    {"0010000", 1, 4, 1}, {"00000100101", 1, 4, 2},
    {"0010011", 1, 5, 1}, {"000001011010", 1, 5, 2},
    {"00010101", 1, 6, 1}, {"000001011011", 1, 6, 2},
    {"00010100", 1, 7, 1}, {"00010011", 1, 8, 1}, {"00011010", 1, 9, 1}, {"000010101", 1, 10, 1},
    {"000010100", 1, 11, 1}, {"000010011", 1, 12, 1}, {"000010010", 1, 13, 1}, {"000010001", 1, 14, 1},
    {"00000100110", 1, 15, 1}, {"00000100111", 1, 16, 1}, {"000001011100", 1, 17, 1}, {"000001011101", 1, 18, 1},
    {"000001011110", 1, 19, 1}, {"000001011111", 1, 20, 1},
};

constexpr TcoefCode kInterTcoefCodes[] = {
    // Table B-17: last, run, level
    {"10", 0, 0, 1}, {"1111", 0, 0, 2}, {"010101", 0, 0, 3}, {"0010111", 0, 0, 4}, {"00011111", 0, 0, 5},
    {"000100101", 0, 0, 6}, {"000100100", 0, 0, 7}, {"0000100001", 0, 0, 8}, {"0000100000", 0, 0, 9},
    {"00000000111", 0, 0, 10}, {"00000000110", 0, 0, 11}, {"00000100000", 0, 0, 12},
    {"110", 0, 1, 1}, {"010100", 0, 1, 2}, {"00011110", 0, 1, 3}, {"0000001111", 0, 1, 4}, {"00000100001", 0, 1, 5},
    {"000001010000", 0, 1, 6},
    {"1110", 0, 2, 1}, {"00011101", 0, 2, 2}, {"0000001110", 0, 2, 3}, {"000001010001", 0, 2, 4},
    {"01101", 0, 3, 1}, {"000100011", 0, 3, 2}, {"0000001101", 0, 3, 3},
    {"01100", 0, 4, 1}, {"000100010", 0, 4, 2}, {"000001010010", 0, 4, 3},
    {"01011", 0, 5, 1}, {"0000001100", 0, 5, 2}, {"000001010011", 0, 5, 3},
    {"010011", 0, 6, 1}, {"0000001011", 0, 6, 2}, {"000001010100", 0, 6, 3},
    {"010010", 0, 7, 1}, {"0000001010", 0, 7, 2},
    {"010001", 0, 8, 1}, {"0000001001", 0, 8, 2},
    {"010000", 0, 9, 1}, {"0000001000", 0, 9, 2},
    {"0010110", 0, 10, 1}, {"000001010101", 0, 10, 2},
    {"0010101", 0, 11, 1}, {"0010100", 0, 12, 1}, {"00011100", 0, 13, 1}, {"00011011", 0, 14, 1},
    {"000100001", 0, 15, 1}, {"000100000", 0, 16, 1}, {"000011111", 0, 17, 1}, {"000011110", 0, 18, 1},
    {"000011101", 0, 19, 1}, {"000011100", 0, 20, 1}, {"000011011", 0, 21, 1}, {"000011010", 0, 22, 1},
    {"00000100010", 0, 23, 1}, {"00000100011", 0, 24, 1}, {"000001010110", 0, 25, 1}, {"000001010111", 0, 26, 1},
    {"0111", 1, 0, 1}, {"000011001", 1, 0, 2}, {"00000000101", 1, 0, 3},
    {"001111", 1, 1, 1}, {"00000000100", 1, 1, 2},
    {"001110", 1, 2, 1}, {"001101", 1, 3, 1}, {"001100", 1, 4, 1}, {"0010011", 1, 5, 1}, {"0010010", 1, 6, 1},
    {"0010001", 1, 7, 1}, {"0010000", 1, 8, 1}, {"00011010", 1, 9, 1}, {"00011001", 1, 10, 1},
    {"00011000", 1, 11, 1}, {"00010111", 1, 12, 1}, {"00010110", 1, 13, 1}, {"00010101", 1, 14, 1},
    {"00010100", 1, 15, 1}, {"00010011", 1, 16, 1}, {"000011000", 1, 17, 1}, {"000010111", 1, 18, 1},
    {"000010110", 1, 19, 1}, {"000010101", 1, 20, 1}, {"000010100", 1, 21, 1}, {"000010011", 1, 22, 1},
    {"000010010", 1, 23, 1}, {"000010001", 1, 24, 1}, {"0000000111", 1, 25, 1}, {"0000000110", 1, 26, 1},
    {"0000000101", 1, 27, 1}, {"0000000100", 1, 28, 1}, {"00000100100", 1, 29, 1}, {"00000100101", 1, 30, 1},
    {"00000100110", 1, 31, 1}, {"00000100111", 1, 32, 1}, {"000001011000", 1, 33, 1}, {"000001011001", 1, 34, 1},
    {"000001011010", 1, 35, 1}, {"000001011011", 1, 36, 1}, {"000001011100", 1, 37, 1}, {"000001011101", 1, 38, 1},
    {"000001011110", 1, 39, 1}, {"000001011111", 1, 40, 1},
};

// clang-format on
template <size_t N, size_t M>
constexpr VlcTable<N> ExpandTcoef(const TcoefCode (&atCodes)[M], uint32_t u32RunShift, uint32_t u32IndexBits,
                                  uint32_t u32First) {
    TableBuilder<N> tBuilder(u32IndexBits, u32First);
    for (const TcoefCode& t : atCodes)
        tBuilder.Add(ParseBits(t.ps8Bits), t.s32Last << 12 | t.s32Run << u32RunShift | t.s32Level);
    tBuilder.Add(ParseBits(kEscapeBits), MP4V_TCOEF_ESCAPE);
    return tBuilder.tTable;
}

// Fills all values of u32IndexBits bits that begin with a code.
template <size_t N>
constexpr void FillEvent(uint32_t (&au32Table)[N], uint32_t u32IndexBits, CodeBits tCode, uint32_t u32Event) {
    if (tCode.u32Length > u32IndexBits) return;
    const uint32_t u32Free = u32IndexBits - tCode.u32Length;
    for (uint32_t i = 0; i < 1u << u32Free; i++) {
        const uint32_t u32Index = tCode.u32Bits << u32Free | i;
        if (u32Index < N) au32Table[u32Index] = u32Event;
    }
}

template <size_t M>
constexpr TcoefEvents ExpandEvents(const TcoefCode (&atCodes)[M], bool bInter) {
    TcoefEvents tEvents = {};
    for (uint32_t& u32 : tEvents.au32Short) u32 = MP4V_NO_EVENT;
    for (uint32_t& u32 : tEvents.au32Long) u32 = MP4V_NO_EVENT;
    for (const TcoefCode& t : atCodes) {
        const CodeBits tCode = ParseBits(t.ps8Bits);
        for (uint32_t u32Sign = 0; u32Sign < 2; u32Sign++) {
            const CodeBits tSigned = {tCode.u32Bits << 1 | u32Sign, tCode.u32Length + 1};
            const int32_t s32Level = bInter ? 2 * t.s32Level + 1 : t.s32Level;
            const uint32_t u32Level = (uint32_t)(u32Sign ? -s32Level : s32Level);
            const uint32_t u32Step = (uint32_t)(t.s32Run + 1 + 64 * t.s32Last);
            const uint32_t u32Event = u32Level << 16 | u32Step << 8 | (uint32_t)t.s32Last << 7;
            FillEvent(tEvents.au32Short, 11, tSigned, u32Event | tSigned.u32Length);
            FillEvent(tEvents.au32Long, 13, tSigned, u32Event | tSigned.u32Length);
        }
    }
    return tEvents;
}

// The escape limits are what the table itself can express.
template <size_t M>
constexpr TcoefLimits FindLimits(const TcoefCode (&atCodes)[M]) {
    TcoefLimits t = {};
    for (auto& au8Row : t.au8RunStep)
        for (uint8_t& u8Step : au8Row) u8Step = 1;
    for (const TcoefCode& tCode : atCodes) {
        uint8_t& u8LevelMax = t.au8LevelMax[tCode.s32Last][tCode.s32Run];
        uint8_t& u8RunStep = t.au8RunStep[tCode.s32Last][tCode.s32Level];
        if (tCode.s32Level > u8LevelMax) u8LevelMax = (uint8_t)tCode.s32Level;
        if (tCode.s32Run >= u8RunStep) u8RunStep = (uint8_t)(tCode.s32Run + 1);
    }
    return t;
}

}  // namespace

constexpr VlcTable<32> g_atMcbpcIntraTable = ExpandMcbpc<32>(kMcbpcIntraCodes, 6);
constexpr VlcTable<256> g_atMcbpcInterTable = ExpandMcbpc<256>(kMcbpcInterCodes, 9);
constexpr VlcTable<48> g_atCbpyTable = ExpandCbpy();
static_assert(CountUnused(g_atMcbpcIntraTable) == 1, "only 000000 is unused");
static_assert(CountUnused(g_atMcbpcInterTable) == 1, "only 000000000 is unused");
static_assert(CountUnused(g_atCbpyTable) == 2, "only 00000x is unused");

constexpr VlcTable<14> g_atMvTab0 = ExpandMotion<14>(4, 2);
constexpr VlcTable<96> g_atMvTab1 = ExpandMotion<96>(10, 32);
constexpr VlcTable<124> g_atMvTab2 = ExpandMotion<124>(12, 4);
static_assert(CountUnused(g_atMvTab0) + CountUnused(g_atMvTab1) + CountUnused(g_atMvTab2) == 0, "all codes are used");

constexpr VlcTable<112> g_atTableB16_1 = ExpandTcoef<112>(kIntraTcoefCodes, 6, 7, 16);
constexpr VlcTable<96> g_atTableB16_2 = ExpandTcoef<96>(kIntraTcoefCodes, 6, 10, 32);
constexpr VlcTable<120> g_atTableB16_3 = ExpandTcoef<120>(kIntraTcoefCodes, 6, 12, 8);
static_assert(CountUnused(g_atTableB16_1) + CountUnused(g_atTableB16_2) + CountUnused(g_atTableB16_3) == 0);

constexpr VlcTable<112> g_atTableB17_1 = ExpandTcoef<112>(kInterTcoefCodes, 4, 7, 16);
constexpr VlcTable<96> g_atTableB17_2 = ExpandTcoef<96>(kInterTcoefCodes, 4, 10, 32);
constexpr VlcTable<120> g_atTableB17_3 = ExpandTcoef<120>(kInterTcoefCodes, 4, 12, 8);
static_assert(CountUnused(g_atTableB17_1) + CountUnused(g_atTableB17_2) + CountUnused(g_atTableB17_3) == 0);

constexpr TcoefEvents g_tIntraEvents = ExpandEvents(kIntraTcoefCodes, false);
constexpr TcoefEvents g_tInterEvents = ExpandEvents(kInterTcoefCodes, true);

constexpr TcoefLimits g_tIntraLimits = FindLimits(kIntraTcoefCodes);
constexpr TcoefLimits g_tInterLimits = FindLimits(kInterTcoefCodes);
static_assert(g_tIntraLimits.au8LevelMax[0][0] == 27 && g_tIntraLimits.au8RunStep[1][1] == 21);
static_assert(g_tInterLimits.au8LevelMax[0][0] == 12 && g_tInterLimits.au8RunStep[1][1] == 41);

// clang-format off
constexpr uint16_t g_au16ScanTables[3][64 /* place in the stream */] = {
    {
        // zigzag
         0,  1,  8, 16,  9,  2,  3, 10, 17, 24, 32, 25, 18, 11,  4,  5,
        12, 19, 26, 33, 40, 48, 41, 34, 27, 20, 13,  6,  7, 14, 21, 28,
        35, 42, 49, 56, 57, 50, 43, 36, 29, 22, 15, 23, 30, 37, 44, 51,
        58, 59, 52, 45, 38, 31, 39, 46, 53, 60, 61, 54, 47, 55, 62, 63,
    },
    {
        // alternate-horizontal
         0,  1,  2,  3,  8,  9, 16, 17, 10, 11,  4,  5,  6,  7, 15, 14,
        13, 12, 19, 18, 24, 25, 32, 33, 26, 27, 20, 21, 22, 23, 28, 29,
        30, 31, 34, 35, 40, 41, 48, 49, 42, 43, 36, 37, 38, 39, 44, 45,
        46, 47, 50, 51, 56, 57, 58, 59, 52, 53, 54, 55, 60, 61, 62, 63,
    },
    {
        // alternate-vertical
         0,  8, 16, 24,  1,  9,  2, 10, 17, 25, 32, 40, 48, 56, 57, 49,
        41, 33, 26, 18,  3, 11,  4, 12, 19, 27, 34, 42, 50, 58, 35, 43,
        51, 59, 20, 28,  5, 13,  6, 14, 21, 29, 36, 44, 52, 60, 37, 45,
        53, 61, 22, 30,  7, 15, 23, 31, 38, 46, 54, 62, 39, 47, 55, 63,
    },
};

constexpr uint32_t table_dc_scaler[66] = {
    // luma by quantiser, Table 7-1; 0 and 32 are no quantisers
     0,  8,  8,  8,  8, 10, 12, 14, 16, 17, 18, 19, 20, 21, 22, 23, 24,
    25, 26, 27, 28, 29, 30, 31, 32, 34, 36, 38, 40, 42, 44, 46,  0,
    // chroma by 33 + quantiser
     0,  8,  8,  8,  8,  9,  9, 10, 10, 11, 11, 12, 12, 13, 13, 14, 14,
    15, 15, 16, 16, 17, 17, 18, 18, 19, 20, 21, 22, 23, 24, 25,  0,
};
// clang-format on

namespace {
constexpr bool IsPermutation(const uint16_t (&au16Scan)[64]) {
    uint64_t u64Seen = 0;
    for (const uint16_t u16 : au16Scan) u64Seen |= (uint64_t)1 << u16;
    return u64Seen == ~(uint64_t)0;
}
static_assert(IsPermutation(g_au16ScanTables[0]) && IsPermutation(g_au16ScanTables[1]) &&
              IsPermutation(g_au16ScanTables[2]));

constexpr ScanTable TwiceOver(const uint16_t (&au16Scan)[64]) {
    ScanTable t = {};
    for (size_t i = 0; i < 128; i++) t.au16[i] = au16Scan[i % 64];
    return t;
}
}  // namespace

constexpr ScanTable g_atScans[3] = {TwiceOver(g_au16ScanTables[0]), TwiceOver(g_au16ScanTables[1]),
                                    TwiceOver(g_au16ScanTables[2])};
