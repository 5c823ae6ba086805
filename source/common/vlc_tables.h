// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

// Code tables of the macroblock layer, scans and DC scalers.
#ifndef MP4VDEC_SOURCE_COMMON_VLC_TABLES_H_
#define MP4VDEC_SOURCE_COMMON_VLC_TABLES_H_

#include <stddef.h>
#include <stdint.h>

#include "common/context.h"

// A decoded value and the bits to skip; {-1, 0} where no code leads.
struct VlcEntry {
    int32_t s32Value;
    int32_t s32Length;
};

// A plain array of entries that the compiler can fill.
template <size_t N>
struct VlcTable {
    VlcEntry at[N];
    constexpr const VlcEntry& operator[](size_t i) const { return at[i]; }
};

// The value of the escape code in the coefficient tables, in both layouts.
#define MP4V_TCOEF_ESCAPE 0x1BFF

// The same events for the block loops, sign included: by the next 11 bits or, where those are below 64, by the next 13.
// Bits 0..5: length; 7: last; 8..15: run + 1, and 64 more if last; 16..31: the signed level, of inter blocks doubled
// and one further away from 0. So the fields below the level can be summed up over a block, which ends with a sum of
// 128 in bits 8..15 that begin at 64.
struct TcoefEvents {
    uint32_t au32Short[2048];
    uint32_t au32Long[256];
};

// Where there is an escape or no code: length 0, and the block ends.
#define MP4V_NO_EVENT UINT32_C(0x4100)

// How far an escaped event is shifted: LMAX by last and run, RMAX + 1 by last and level.
struct TcoefLimits {
    uint8_t au8LevelMax[2][64];
    uint8_t au8RunStep[2][64];
};

extern "C" {

// mcbpc: cbpc << 4 | mb_type. Intra: first 6 of 9 bits, below 32; inter: 9 bits, below 256.
extern const VlcTable<32> g_atMcbpcIntraTable;
extern const VlcTable<256> g_atMcbpcInterTable;

// cbpy of intra macroblocks, by 6 bits, below 48.
extern const VlcTable<48> g_atCbpyTable;

// Signed motion_code by the 12 bits v behind the first: [(v >> 8) - 2] from 512 on, [(v >> 2) - 32] from 128 on,
// [v - 4] from 4 on.
extern const VlcTable<14> g_atMvTab0;
extern const VlcTable<96> g_atMvTab1;
extern const VlcTable<124> g_atMvTab2;

// Coefficient events by the next 12 bits v: [(v >> 5) - 16] from 512 on, [(v >> 2) - 32] from 128 on, [v - 8] from 8
// on. Intra: last << 12 | run << 6 | level; inter: last << 12 | run << 4 | level. The length is without the sign bit.
extern const VlcTable<112> g_atTableB16_1;
extern const VlcTable<96> g_atTableB16_2;
extern const VlcTable<120> g_atTableB16_3;
extern const VlcTable<112> g_atTableB17_1;
extern const VlcTable<96> g_atTableB17_2;
extern const VlcTable<120> g_atTableB17_3;

extern const TcoefEvents g_tIntraEvents;
extern const TcoefEvents g_tInterEvents;

extern const TcoefLimits g_tIntraLimits;
extern const TcoefLimits g_tInterLimits;

// Raster index by place in the stream: zigzag, alternate-horizontal, alternate-vertical.
extern const uint16_t g_au16ScanTables[3][64];

// The same twice over, for places counted from 64 on.
struct ScanTable {
    uint16_t au16[128];
};
extern const ScanTable g_atScans[3];

// Luma by quantiser, then chroma by 33 + quantiser.
extern const uint32_t table_dc_scaler[66];

}  // extern "C"

#endif  // MP4VDEC_SOURCE_COMMON_VLC_TABLES_H_
