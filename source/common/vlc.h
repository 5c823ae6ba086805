// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

// Symbols of the macroblock layer.
//
// Each decoder exists twice with the same results: inline on a cursor for the macroblock loops, and with _c on the
// reader. Invalid codes consume nothing. Nobody here looks at the sticky error.
#ifndef MP4VDEC_SOURCE_COMMON_VLC_H_
#define MP4VDEC_SOURCE_COMMON_VLC_H_

#include "common/bsreader.h"
#include "common/vlc_tables.h"

#define MP4V_INVALID_CODE UINT32_C(0xFFFFFFFF)

// Skip(u32First), then Skip(u32Second); together at most 32.
static MP4V_INLINE void SkipTwice(BsCursor& tBs, uint32_t u32First, uint32_t u32Second) {
    tBs.SkipTwice(u32First, u32Second);
}

// The mcbpc decoders show 9 bits; stuffing in front of the code is absorbed.
static MP4V_INLINE uint32_t ShowMcbpc(BsCursor& tBs) {
    uint32_t u32Code = tBs.Show(9);
    while (MP4V_UNLIKELY(u32Code == 1)) {
        tBs.Skip(9);
        u32Code = tBs.Show(9);
    }
    return u32Code;
}

// mcbpc of an I-VOP: cbpc << 4 | mb_type, or MP4V_INVALID_CODE.
static MP4V_INLINE uint32_t DecMcbpcIntra(BsCursor& tBs) {
    const uint32_t u32Code = ShowMcbpc(tBs);
    if (u32Code >= 256) {
        tBs.Skip(1);
        return MB_INTRA;
    }
    if (MP4V_UNLIKELY(u32Code < 8)) return MP4V_INVALID_CODE;
    const VlcEntry& tEntry = g_atMcbpcIntraTable[u32Code >> 3];
    tBs.Skip((uint32_t)tEntry.s32Length);
    return (uint32_t)tEntry.s32Value;
}

// mcbpc of a P-VOP.
static MP4V_INLINE uint32_t DecMcbpcInter(BsCursor& tBs) {
    const uint32_t u32Code = ShowMcbpc(tBs);
    if (u32Code >= 256) {
        tBs.Skip(1);
        return MB_INTER;
    }
    if (MP4V_UNLIKELY(u32Code == 0)) return MP4V_INVALID_CODE;
    const VlcEntry& tEntry = g_atMcbpcInterTable[u32Code];
    tBs.Skip((uint32_t)tEntry.s32Length);
    return (uint32_t)tEntry.s32Value;
}

// cbpy: bit 3 for luma block 0 down to bit 0 for block 3, or MP4V_INVALID_CODE.
static MP4V_INLINE uint32_t DecCbpy(BsCursor& tBs, uint32_t u32Intra) {
    const uint32_t u32Code = tBs.Show(6);
    uint32_t u32Cbpy = 15;
    if (u32Code >= 48) {
        tBs.Skip(2);
    } else {
        if (MP4V_UNLIKELY(u32Code < 2)) return MP4V_INVALID_CODE;
        const VlcEntry& tEntry = g_atCbpyTable[u32Code];
        tBs.Skip((uint32_t)tEntry.s32Length);
        u32Cbpy = (uint32_t)tEntry.s32Value;
    }
    return u32Intra ? u32Cbpy : 15 - u32Cbpy;
}

// A dct_dc_size and how many bits it takes.
struct DcSize {
    uint32_t u32Size;    // [0, 12]
    uint32_t u32Length;  // [0, 12]
};

// Of a luma block, at the start of 32 bits. Eleven zeros are size 0 and stay where they are.
static MP4V_INLINE DcSize FindDcSizeLuma(uint32_t u32Bits) {
    // 001: 4, 010: 3, 011: 0, 10x: 2, 11x: 1
    if (u32Bits >> 29) return {0x11220340u >> (u32Bits >> 29) * 4 & 15, 3 - (u32Bits >> 31)};
    if (MP4V_UNLIKELY(u32Bits >> 21 == 0)) return {0, 0};
    const uint32_t u32Zeros = (uint32_t)__builtin_clz(u32Bits);  // [3, 10]
    return {u32Zeros + 2, u32Zeros + 1};
}

// Of a chroma block. Twelve zeros are size 3 of 2 bits.
static MP4V_INLINE DcSize FindDcSizeChroma(uint32_t u32Bits) {
    if (u32Bits >> 30 || u32Bits >> 20 == 0) return {3 - (u32Bits >> 30), 2};
    const uint32_t u32Zeros = (uint32_t)__builtin_clz(u32Bits);  // [2, 11]
    return {u32Zeros + 1, u32Zeros + 1};
}

static MP4V_INLINE uint32_t DecDcSizeLuma(BsCursor& tBs) {
    const DcSize t = FindDcSizeLuma(tBs.Show(32));
    tBs.Skip(t.u32Length);
    return t.u32Size;
}

static MP4V_INLINE uint32_t DecDcSizeChroma(BsCursor& tBs) {
    const DcSize t = FindDcSizeChroma(tBs.Show(32));
    tBs.Skip(t.u32Length);
    return t.u32Size;
}

// dct_dc_differential of 0..32 bits; the marker behind a long one stays.
static MP4V_INLINE int32_t DecDcDif(BsCursor& tBs, uint32_t u32Size) {
    if (u32Size == 0) return 0;
    const uint32_t u32Bits = tBs.Read(u32Size);
    if (u32Bits >> (u32Size - 1)) return (int32_t)u32Bits;
    return -(int32_t)(u32Bits ^ (0xFFFFFFFFu >> (32 - u32Size)));
}

// The entry of the motion code whose bits behind the first begin with the 12 given.
static MP4V_INLINE const VlcEntry& FindMotionEntry(uint32_t u32Code) {
    if (MP4V_LIKELY(u32Code >= 512)) return g_atMvTab0[(u32Code >> 8) - 2];
    if (u32Code >= 128) return g_atMvTab1[(u32Code >> 2) - 32];
    // Undefined codes decode as -4.
    return MP4V_LIKELY(u32Code >= 4) ? g_atMvTab2[u32Code - 4] : g_atMvTab1[92 + u32Code];
}

// motion_code [-32, 32]
static MP4V_INLINE int32_t DecMvData(BsCursor& tBs) {
    const uint32_t u32Code = tBs.Show(13);
    if (u32Code >> 12) {
        tBs.Skip(1);
        return 0;
    }
    const VlcEntry& tEntry = FindMotionEntry(u32Code);
    SkipTwice(tBs, 1, (uint32_t)tEntry.s32Length);
    return tEntry.s32Value;
}

// The coefficient event that 12 bits begin with, or null below 8. Intra: Table B-16, inter: Table B-17.
template <bool kIntra>
static MP4V_INLINE const VlcEntry* FindTcoef(uint32_t u32Code12) {
    if (MP4V_LIKELY(u32Code12 >= 512)) return &(kIntra ? g_atTableB16_1 : g_atTableB17_1)[(u32Code12 >> 5) - 16];
    if (u32Code12 >= 128) return &(kIntra ? g_atTableB16_2 : g_atTableB17_2)[(u32Code12 >> 2) - 32];
    return u32Code12 >= 8 ? &(kIntra ? g_atTableB16_3 : g_atTableB17_3)[u32Code12 - 8] : nullptr;
}

extern "C" {

MP4VDEC_API void InitDecVlcTables_c(void);
MP4VDEC_API uint32_t DecMcbpcIntra_c(BsReader* ptBs);
MP4VDEC_API uint32_t DecMcbpcInter_c(BsReader* ptBs);
MP4VDEC_API uint32_t DecCbpy_c(BsReader* ptBs, uint32_t u32Intra);
MP4VDEC_API uint32_t DecDcSizeLuma_c(BsReader* ptBs);
MP4VDEC_API uint32_t DecDcSizeChroma_c(BsReader* ptBs);
MP4VDEC_API int32_t DecDcDif_c(BsReader* ptBs, uint32_t u32Size);
MP4VDEC_API int32_t DecMvData_c(BsReader* ptBs);

// The values of table_dc_scaler, by formula. u32Qp: 1..31.
MP4VDEC_API uint32_t DecDcScaler_c(uint32_t u32Qp, uint32_t u32Luma);

// FindTcoef for intra (B16) and inter (B17) blocks.
MP4VDEC_API const VlcEntry* GetB16Table(uint32_t u32Code12);
MP4VDEC_API const VlcEntry* GetB17Table(uint32_t u32Code12);

}  // extern "C"

#endif  // MP4VDEC_SOURCE_COMMON_VLC_H_
