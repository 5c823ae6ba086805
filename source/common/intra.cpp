// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

#include "common/intra.h"

#include <string.h>

#include "c/recon.h"
#include "c/vec.h"
#include "common/block.h"
#include "common/bsreader.h"
#include "common/kernels.h"
#include "common/picture.h"
#include "common/vlc.h"
#include "common/vlc_tables.h"

constexpr int16_t g_as16DefaultAcDcValue[15] = {1024};

const int32_t g_al32Divider[32] = {
    0,    65537, 32769, 21846, 16385, 13108, 10923, 9363,  //
    8193, 7282,  6554,  5958,  5462,  5042,  4682,  4370,  //
    4097, 3856,  3641,  3450,  3277,  3121,  2979,  2850,  //
    2731, 2622,  2521,  2428,  2341,  2260,  2185,  2115,
};

const int32_t g_al32DequantTable[4] = {-1, -2, 1, 2};

namespace {

// Quantisers beyond 31 come from streams with more than 5 bits of quant_precision. The chroma half of the table follows
// the luma half, so the index of a luma scaler may reach it; behind both the scaler is 0, which makes the DC 0.
uint32_t DcScaler(uint32_t u32Index) {
    return u32Index < 66 ? table_dc_scaler[u32Index] : 0;
}

int32_t Divider(uint32_t u32Quant) {
    return u32Quant < 32 ? g_al32Divider[u32Quant] : 0;
}

// Where a block's predictors lie.
enum Place : uint8_t { kCur, kLeft, kTop, kTopLeft, kPlaces };
struct BlockPlaces {
    Place eLeft, eTopLeft, eTop;
    uint8_t u8Left, u8TopLeft, u8Top;  // the block there
};
constexpr BlockPlaces kBlockPlaces[6] = {
    {kLeft, kTopLeft, kTop, 1, 3, 2},  //
    {kCur, kTop, kTop, 0, 2, 3},       //
    {kLeft, kLeft, kCur, 3, 1, 0},     //
    {kCur, kCur, kCur, 2, 0, 1},       //
    {kLeft, kTopLeft, kTop, 4, 4, 4},  //
    {kLeft, kTopLeft, kTop, 5, 5, 5},
};

typedef const int16_t BlockPred[16];

// The predictors of a neighbour that is not there, laid out as a record's.
struct NoNeighbour {
    int16_t as16AcDcPred[6][16] = {};

    constexpr NoNeighbour() {
        for (auto& as16Block : as16AcDcPred)
            for (int k = 0; k < 15; k++) as16Block[k] = g_as16DefaultAcDcValue[k];
    }
};
constexpr NoNeighbour kNoNeighbour;

// The predictors around the current macroblock and the quantisers that they were coded with.
struct Neighbours {
    BlockPred* apPred[kPlaces];
    uint32_t au32Quant[kPlaces];
};

MP4V_INLINE void LookAt(Neighbours* pt, Place ePlace, bool bInside, const MbInfo* ptMb) {
    if (!bInside || !IsIntra(ptMb->u8MbType)) return;
    pt->apPred[ePlace] = ptMb->as16AcDcPred;
    pt->au32Quant[ePlace] = ptMb->u8Qp;
}

MP4V_INLINE Neighbours FindNeighbours(const Mp4vDecCtx* ptCtx, uint32_t u32Column, uint32_t u32Row) {
    const MbInfo* const ptCur = ptCtx->tMb.ptCurMbInfo;
    const ptrdiff_t row = (ptrdiff_t)ptCtx->u32MbWidth + 1;
    const uint32_t u32Quant = ptCur->u8Qp;
    Neighbours t = {
        {ptCur->as16AcDcPred, kNoNeighbour.as16AcDcPred, kNoNeighbour.as16AcDcPred, kNoNeighbour.as16AcDcPred},
        {u32Quant, u32Quant, u32Quant, u32Quant}};
    LookAt(&t, kLeft, u32Column > 0, ptCur - 1);
    LookAt(&t, kTop, u32Row > 0, ptCur - row);
    LookAt(&t, kTopLeft, u32Column > 0 && u32Row > 0, ptCur - row - 1);
    return t;
}

struct Prediction {
    bool bVertical;
    const int16_t* ps16Pred;
    uint32_t u32Quant;
};

// ISO/IEC 14496-2, 7.4.3.1: from the side where the DC changes less; ties go left.
MP4V_INLINE Prediction ChooseDirection(const Neighbours& t, uint32_t u32Block) {
    const BlockPlaces& p = kBlockPlaces[u32Block];
    const int16_t* const ps16Left = t.apPred[p.eLeft][p.u8Left];
    const int16_t* const ps16Top = t.apPred[p.eTop][p.u8Top];
    const int32_t s32TopLeftDc = t.apPred[p.eTopLeft][p.u8TopLeft][0];
    const int32_t s32Horizontal = ps16Left[0] - s32TopLeftDc;
    const int32_t s32Vertical = s32TopLeftDc - ps16Top[0];
    if (__builtin_abs(s32Horizontal) < __builtin_abs(s32Vertical)) return {true, ps16Top, t.au32Quant[p.eTop]};
    return {false, ps16Left, t.au32Quant[p.eLeft]};
}

MP4V_INLINE Vec8u Splat(uint32_t u32) {
    return (Vec8u){} + (uint16_t)u32;
}

// AC predictors brought from their quantiser to the current one: (|v| * from + to / 2) * divider >> 16 with the sign
// of v, of which the low 16 bits count. u32From [0, 255].
MP4V_INLINE Vec8 Rescale(Vec8 v, uint32_t u32From, uint32_t u32To) {
    const Vec8u vSign = (Vec8u)(v >> 15);
    const Vec8u vAbs = ((Vec8u)v ^ vSign) - vSign;
    const uint32_t u32Divider = (uint32_t)Divider(u32To);  // [0, 65537]
    const Vec8u vLow = vAbs * Splat(u32From) + Splat(u32To >> 1);
    const Vec8u vCarry = (Vec8u)(vLow < Splat(u32To >> 1));  // -1 or 0
    const Vec8u vHigh = MulHigh(vAbs, Splat(u32From)) - vCarry;
    const Vec8u vScaled = MulHigh(vLow, Splat(u32Divider)) + vLow * Splat(u32Divider >> 16) + vHigh * Splat(u32Divider);
    return (Vec8)((vScaled ^ vSign) - vSign);
}

// All lanes but the first.
MP4V_INLINE Vec8 AcLanes(Vec8 v) {
    return v & (Vec8){0, -1, -1, -1, -1, -1, -1, -1};
}

MP4V_INLINE void StoreColumn(int16_t* ps16Pred, const int16_t* ps16Block) {
    for (int k = 1; k < 8; k++) ps16Pred[7 + k] = ps16Block[8 * k];
}

// Adds the seven AC predictors to the first row or column of the block, and keeps both in the block's record. Returns
// where they are not 0, as raster indices or-ed together.
MP4V_INLINE uint32_t PredictAc(int16_t* ps16Block, int16_t* ps16Pred, const Prediction& t, uint32_t u32Quant) {
    const Vec8 vPred = AcLanes(Rescale(LoadVec(t.ps16Pred + (t.bVertical ? 0 : 7)), t.u32Quant, u32Quant));
    const uint32_t u32Places = !AnyLane(vPred) ? 0 : AnyLane(ZipHigh64(vPred, vPred)) ? 7 : 3;
    StoreColumn(ps16Pred, ps16Block);
    if (t.bVertical) {
        StoreVec(ps16Block, AddWrap(LoadVec(ps16Block), vPred));
    } else {
        StoreVec(ps16Pred + 7, AddWrap(LoadVec(ps16Pred + 7), vPred));
        for (int k = 1; k < 8; k++) ps16Block[8 * k] = ps16Pred[7 + k];
    }
    StoreVec(ps16Pred, LoadVec(ps16Block));
    return t.bVertical ? u32Places : 8 * u32Places;
}

// What the blocks of a macroblock have in common.
struct IntraMb {
    Neighbours tNeighbours;
    uint32_t u32Quant;
    uint32_t u32Cbp;
    bool bAcPred;
    bool bDcApart;
    const ScanTable* aptScan[2];  // by direction of the prediction: horizontal, vertical
    uint32_t au32Scaler[2];       // luma, chroma
};

MP4V_INLINE IntraMb StartIntraMb(const Mp4vDecCtx* ptCtx, uint32_t u32Column, uint32_t u32Row) {
    const Mp4vMbScratch& tMb = ptCtx->tMb;
    const uint32_t u32Quant = tMb.ptCurMbInfo->u8Qp;
    const bool bAcPred = tMb.u32AcPredFlag;
    const uint32_t u32Scan = ptCtx->u32AltVertScan ? SCAN_ALT_VERTICAL : SCAN_ZIGZAG;
    return {FindNeighbours(ptCtx, u32Column, u32Row),
            u32Quant,
            tMb.u32Cbp,
            bAcPred,
            ptCtx->u32IntraDcThr > u32Quant,
            {&g_atScans[bAcPred ? SCAN_ALT_VERTICAL : u32Scan],
             &g_atScans[bAcPred && u32Scan == SCAN_ZIGZAG ? SCAN_ALT_HORIZONTAL : u32Scan]},
            {DcScaler(u32Quant), DcScaler(33 + u32Quant)}};
}

// Returns the raster indices of what is not 0 beside the first, or-ed together.
MP4V_INLINE uint32_t DecIntraBlockOf(const IntraMb& t, BsCursor* ptBs, uint32_t u32Block, int16_t* ps16Block,
                                     int16_t* ps16Pred) {
    const int32_t s32Scaler = (int32_t)t.au32Scaler[u32Block >> 2];
    const Prediction tPred = ChooseDirection(t.tNeighbours, u32Block);
    const bool bCoded = t.u32Cbp >> (5 - u32Block) & 1;
    uint32_t u32Places = DecIntraLevels(ptBs, ps16Block,
                                        !t.bDcApart    ? kDcAmongThem
                                        : u32Block < 4 ? kDcLuma
                                                       : kDcChroma,
                                        bCoded ? t.aptScan[tPred.bVertical] : nullptr);
    const int32_t s32DcPred = s32Scaler ? (tPred.ps16Pred[0] + (s32Scaler >> 1)) / s32Scaler : 0;
    ps16Block[0] = (int16_t)(ps16Block[0] + s32DcPred);
    if (t.bAcPred) {
        u32Places |= PredictAc(ps16Block, ps16Pred, tPred, t.u32Quant);
    } else {
        if (u32Places >> 3) {
            StoreColumn(ps16Pred, ps16Block);
        } else {
            StoreVec(ps16Pred + 7, Vec8{});
        }
        StoreVec(ps16Pred, LoadVec(ps16Block));
    }
    ps16Pred[0] = (int16_t)(s32Scaler * ps16Block[0]);
    return u32Places;
}

}  // namespace

void DecIntraMB(Mp4vDecCtx* ptCtx, int16_t* ps16Blocks, uint32_t u32Column, uint32_t u32Row) {
    Mp4vMbScratch& tMb = ptCtx->tMb;
    const IntraMb t = StartIntraMb(ptCtx, u32Column, u32Row);
    BsCursor tBs(ptCtx->tBs);
    for (uint32_t b = 0; b < 6; b++) {
        DecIntraBlockOf(t, &tBs, b, ps16Blocks + 64 * b, tMb.ptCurMbInfo->as16AcDcPred[b]);
        tMb.au32DcScaler[b] = t.au32Scaler[b >> 2];
    }
    tBs.StoreTo(&ptCtx->tBs);
}

void ReconIntraMB(Mp4vDecCtx* ptCtx, uint32_t /*u32Column*/, uint32_t /*u32Row*/) {
    Mp4vMbScratch& tMb = ptCtx->tMb;
    const uint32_t u32Quant = tMb.ptCurMbInfo->u8Qp;
    const BlockLayout tLayout = LayoutOf(ptCtx);
    for (uint32_t b = 0; b < 6; b++) {
        int16_t* const ps16Block = tMb.as16Coef + 64 * b;
        const BlockTarget tTarget = TargetOf(tMb, tLayout, b);
        (ptCtx->u16QuantType ? DequantMpegIntra : DequantH263Intra)(ps16Block, ps16Block, u32Quant,
                                                                    tMb.au32DcScaler[b]);
        Idct8x8(ps16Block);
        McCopy16to8(tTarget.pu8Dst, ps16Block, tTarget.s32Pitch);
    }
}

bool IntraIsPortable(const Mp4vDecCtx* ptCtx) {
    return IntraTransformIsPortable() &&
           (ptCtx->u16QuantType ? DequantMpegIntra == DequantMpegIntra_c : DequantH263Intra == DequantH263Intra_c);
}

void DecIntraMbPortable(Mp4vDecCtx* ptCtx, BsCursor* ptBs, uint32_t u32Column, uint32_t u32Row) {
    Mp4vMbScratch& tMb = ptCtx->tMb;
    const IntraMb t = StartIntraMb(ptCtx, u32Column, u32Row);
    const BlockLayout tLayout = LayoutOf(ptCtx);
    int16_t* const ps16Block = tMb.as16Coef;
#pragma GCC unroll 6
    for (uint32_t b = 0; b < 6; b++) {
        const uint32_t u32Places = DecIntraBlockOf(t, ptBs, b, ps16Block, tMb.ptCurMbInfo->as16AcDcPred[b]);
        const BlockTarget tTarget = TargetOf(tMb, tLayout, b);
        const uint32_t u32Scaler = t.au32Scaler[b >> 2];
        if (ptCtx->u16QuantType) {
            DequantMpegIntra_c(ps16Block, ps16Block, t.u32Quant, u32Scaler);
            StoreIntraBlock(ps16Block, tTarget.pu8Dst, tTarget.s32Pitch, u32Places);
        } else {
            StoreIntraBlockH263(ps16Block, tTarget.pu8Dst, tTarget.s32Pitch, t.u32Quant, u32Scaler, u32Places);
        }
    }
}
