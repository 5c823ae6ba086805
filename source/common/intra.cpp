// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

#include "common/intra.h"

#include <string.h>

#include "c/recon.h"
#include "common/block.h"
#include "common/bsreader.h"
#include "common/kernels.h"
#include "common/vlc.h"
#include "common/vlc_tables.h"

const int16_t g_as16DefaultAcDcValue[15] = {1024};

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

struct Source {
    const int16_t* ps16Pred;  // a block's as16AcDcPred
    uint32_t u32Quant;
};

// The neighbours of the current macroblock, as its blocks see them.
struct Neighbours {
    const MbInfo* ptCur;
    const MbInfo* ptLeft;  // null: not there or not intra
    const MbInfo* ptTop;
    const MbInfo* ptTopLeft;
    uint32_t u32LeftQuant;
    uint32_t u32TopQuant;
};

const MbInfo* IfIntra(bool bInside, const MbInfo* ptMb) {
    return bInside && IsIntra(ptMb->u8MbType) ? ptMb : nullptr;
}

const int16_t* PredOf(const MbInfo* ptMb, uint32_t u32Block) {
    return ptMb ? ptMb->as16AcDcPred[u32Block] : g_as16DefaultAcDcValue;
}

Neighbours FindNeighbours(const Mp4vDecCtx* ptCtx, uint32_t u32Column, uint32_t u32Row) {
    const MbInfo* const ptCur = ptCtx->tMb.ptCurMbInfo;
    const ptrdiff_t row = (ptrdiff_t)ptCtx->u32MbWidth + 1;
    Neighbours t;
    t.ptCur = ptCur;
    t.ptLeft = IfIntra(u32Column > 0, ptCur - 1);
    t.ptTop = IfIntra(u32Row > 0, ptCur - row);
    t.ptTopLeft = IfIntra(u32Column > 0 && u32Row > 0, ptCur - row - 1);
    t.u32LeftQuant = t.ptLeft ? t.ptLeft->u8Qp : ptCur->u8Qp;
    t.u32TopQuant = t.ptTop ? t.ptTop->u8Qp : ptCur->u8Qp;
    return t;
}

// Where each block's predictors lie: in the current macroblock or in a neighbour, and in which of its blocks.
enum Place : uint8_t { kCur, kLeft, kTop, kTopLeft };
struct BlockPlaces {
    Place eLeft;
    uint8_t u8Left;
    Place eTopLeft;
    uint8_t u8TopLeft;
    Place eTop;
    uint8_t u8Top;
};
constexpr BlockPlaces kPlaces[6] = {
    {kLeft, 1, kTopLeft, 3, kTop, 2},  //
    {kCur, 0, kTop, 2, kTop, 3},       //
    {kLeft, 3, kLeft, 1, kCur, 0},     //
    {kCur, 2, kCur, 0, kCur, 1},       //
    {kLeft, 4, kTopLeft, 4, kTop, 4},  //
    {kLeft, 5, kTopLeft, 5, kTop, 5},
};

Source SourceAt(const Neighbours& t, Place ePlace, uint32_t u32Block) {
    switch (ePlace) {
        case kLeft:
            return {PredOf(t.ptLeft, u32Block), t.u32LeftQuant};
        case kTop:
            return {PredOf(t.ptTop, u32Block), t.u32TopQuant};
        case kTopLeft:
            return {PredOf(t.ptTopLeft, u32Block), 0};  // only its DC is looked at
        default:
            return {t.ptCur->as16AcDcPred[u32Block], t.ptCur->u8Qp};
    }
}

struct Prediction {
    bool bVertical;
    Source tSource;
};

// ISO/IEC 14496-2, 7.4.3.1: from the side where the DC changes less; ties go left.
Prediction ChooseDirection(const Neighbours& t, uint32_t u32Block) {
    const BlockPlaces& p = kPlaces[u32Block];
    const Source tLeft = SourceAt(t, p.eLeft, p.u8Left);
    const Source tTop = SourceAt(t, p.eTop, p.u8Top);
    const int32_t s32TopLeftDc = SourceAt(t, p.eTopLeft, p.u8TopLeft).ps16Pred[0];
    const int32_t s32Horizontal = tLeft.ps16Pred[0] - s32TopLeftDc;
    const int32_t s32Vertical = s32TopLeftDc - tTop.ps16Pred[0];
    const bool bVertical = __builtin_abs(s32Horizontal) < __builtin_abs(s32Vertical);
    return {bVertical, bVertical ? tTop : tLeft};
}

// Adds the seven AC predictors, rescaled from their quantiser to the current one by a reciprocal.
void PredictAc(int16_t* ps16Block, const Prediction& tPred, uint32_t u32Quant) {
    const int16_t* const ps16Source = tPred.tSource.ps16Pred + (tPred.bVertical ? 0 : 7);
    const uint32_t u32Step = tPred.bVertical ? 1 : 8;
    const uint32_t u32Divider = (uint32_t)Divider(u32Quant);
    for (uint32_t k = 1; k < 8; k++) {
        const int32_t s32Value = ps16Source[k];
        if (s32Value == 0) continue;
        const uint32_t u32Scaled = (uint32_t)__builtin_abs(s32Value) * tPred.tSource.u32Quant + (u32Quant >> 1);
        const int32_t s32Pred = (int32_t)(u32Scaled * u32Divider) >> 16;
        ps16Block[k * u32Step] = (int16_t)(ps16Block[k * u32Step] + (s32Value < 0 ? -s32Pred : s32Pred));
    }
}

void StorePredictors(int16_t* ps16Pred, const int16_t* ps16Block, int32_t s32Scaler) {
    for (int k = 1; k < 8; k++) ps16Pred[k] = ps16Block[k];
    for (int k = 1; k < 8; k++) ps16Pred[7 + k] = ps16Block[8 * k];
    ps16Pred[0] = (int16_t)(s32Scaler * ps16Block[0]);
}

int32_t DecDc(BsCursor& tBs, bool bLuma) {
    const uint32_t u32Size = bLuma ? DecDcSizeLuma(tBs) : DecDcSizeChroma(tBs);
    if (u32Size == 0) return 0;
    const int32_t s32Dc = DecDcDif(tBs, u32Size);
    if (u32Size > 8) tBs.Skip(1);  // marker_bit
    return s32Dc;
}

}  // namespace

void DecIntraMB(Mp4vDecCtx* ptCtx, int16_t* ps16Blocks, uint32_t u32Column, uint32_t u32Row) {
    Mp4vMbScratch& tMb = ptCtx->tMb;
    BsCursor tBs(ptCtx->tBs);
    const Neighbours tNeighbours = FindNeighbours(ptCtx, u32Column, u32Row);
    const uint32_t u32Quant = tMb.ptCurMbInfo->u8Qp;
    const bool bDcApart = ptCtx->u32IntraDcThr > u32Quant;
    const uint32_t au32Scaler[2] = {DcScaler(u32Quant), DcScaler(33 + u32Quant)};
    memset(ps16Blocks, 0, 6 * 64 * sizeof *ps16Blocks);
    for (uint32_t b = 0; b < 6; b++) {
        int16_t* const ps16Block = ps16Blocks + 64 * b;
        const int32_t s32Scaler = (int32_t)au32Scaler[b >= 4];
        if (bDcApart) ps16Block[0] = (int16_t)DecDc(tBs, b < 4);
        const Prediction tPred = ChooseDirection(tNeighbours, b);
        uint32_t u32Scan = 0;
        if (ptCtx->u32AltVertScan) {
            u32Scan = 2;
        } else if (tMb.u32AcPredFlag) {
            u32Scan = tPred.bVertical ? 1 : 2;
        }
        if (tMb.u32Cbp >> (5 - b) & 1) DecIntraBlock(tBs, ps16Block, u32Scan, bDcApart);
        const int32_t s32Dc = s32Scaler ? (tPred.tSource.ps16Pred[0] + (s32Scaler >> 1)) / s32Scaler : 0;
        ps16Block[0] = (int16_t)(ps16Block[0] + s32Dc);
        if (tMb.u32AcPredFlag) PredictAc(ps16Block, tPred, u32Quant);
        StorePredictors(tMb.ptCurMbInfo->as16AcDcPred[b], ps16Block, s32Scaler);
        tMb.au32DcScaler[b] = (uint32_t)s32Scaler;
    }
    tBs.StoreTo(&ptCtx->tBs);
}

namespace {

// One block, kernel by kernel unless they are the portable ones.
void ReconIntraBlock(int16_t* ps16Block, bool bMpegQuant, uint32_t u32Quant, uint32_t u32DcScaler, uint8_t* pu8Dst,
                     int32_t s32Pitch) {
    const bool bPortable = IntraTransformIsPortable();
    if (!bMpegQuant && bPortable && DequantH263Intra == DequantH263Intra_c)
        return StoreIntraBlockH263(ps16Block, u32Quant, u32DcScaler, pu8Dst, s32Pitch);
    (bMpegQuant ? DequantMpegIntra : DequantH263Intra)(ps16Block, ps16Block, u32Quant, u32DcScaler);
    if (bPortable) return StoreIntraBlock(ps16Block, pu8Dst, s32Pitch);
    Idct8x8(ps16Block);
    McCopy16to8(pu8Dst, ps16Block, s32Pitch);
}

}  // namespace

void ReconIntraMB(Mp4vDecCtx* ptCtx, uint32_t /*u32Column*/, uint32_t /*u32Row*/) {
    Mp4vMbScratch& tMb = ptCtx->tMb;
    const uint32_t u32Quant = tMb.ptCurMbInfo->u8Qp;
    const int32_t s32Stride = (int32_t)ptCtx->u32LumaStride;
    const bool bFieldDct = ptCtx->s16Interlaced && tMb.s32DctType == 1;
    const ptrdiff_t lower = bFieldDct ? s32Stride : 8 * s32Stride;
    const int32_t s32LumaPitch = bFieldDct ? 2 * s32Stride : s32Stride;
    for (uint32_t b = 0; b < 6; b++) {
        uint8_t* pu8Dst = tMb.pu8DstY + 8 * (b & 1) + (b >> 1) * lower;
        if (b >= 4) pu8Dst = b == 4 ? tMb.pu8DstU : tMb.pu8DstV;
        ReconIntraBlock(tMb.as16Coef + 64 * b, ptCtx->u16QuantType, u32Quant, tMb.au32DcScaler[b], pu8Dst,
                        b < 4 ? s32LumaPitch : s32Stride / 2);
    }
}
