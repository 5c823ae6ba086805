// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors
#include "common/vlc.h"

void InitDecVlcTables_c(void) {}  // the tables are constants

uint32_t DecMcbpcIntra_c(BsReader* ptBs) {
    BsCursor tBs(*ptBs);
    const uint32_t u32Mcbpc = DecMcbpcIntra(tBs);
    tBs.StoreTo(ptBs);
    return u32Mcbpc;
}

uint32_t DecMcbpcInter_c(BsReader* ptBs) {
    BsCursor tBs(*ptBs);
    const uint32_t u32Mcbpc = DecMcbpcInter(tBs);
    tBs.StoreTo(ptBs);
    return u32Mcbpc;
}

uint32_t DecCbpy_c(BsReader* ptBs, uint32_t u32Intra) {
    BsCursor tBs(*ptBs);
    const uint32_t u32Cbpy = DecCbpy(tBs, u32Intra);
    tBs.StoreTo(ptBs);
    return u32Cbpy;
}

uint32_t DecDcSizeLuma_c(BsReader* ptBs) {
    BsCursor tBs(*ptBs);
    const uint32_t u32Size = DecDcSizeLuma(tBs);
    tBs.StoreTo(ptBs);
    return u32Size;
}

uint32_t DecDcSizeChroma_c(BsReader* ptBs) {
    BsCursor tBs(*ptBs);
    const uint32_t u32Size = DecDcSizeChroma(tBs);
    tBs.StoreTo(ptBs);
    return u32Size;
}

int32_t DecDcDif_c(BsReader* ptBs, uint32_t u32Size) {
    BsCursor tBs(*ptBs);
    const int32_t s32Dif = DecDcDif(tBs, u32Size);
    tBs.StoreTo(ptBs);
    return s32Dif;
}

int32_t DecMvData_c(BsReader* ptBs) {
    BsCursor tBs(*ptBs);
    const int32_t s32MotionCode = DecMvData(tBs);
    tBs.StoreTo(ptBs);
    return s32MotionCode;
}

uint32_t DecDcScaler_c(uint32_t u32Qp, uint32_t u32Luma) {
    if (u32Qp < 5) return 8;
    if (!u32Luma && u32Qp < 25) return (u32Qp + 13) >> 1;
    if (u32Qp < 9) return 2 * u32Qp;
    if (u32Qp < 25) return u32Qp + 8;
    return u32Luma ? 2 * u32Qp - 16 : u32Qp - 6;
}

const VlcEntry* GetB16Table(uint32_t u32Code12) {
    return FindTcoef<true>(u32Code12);
}

const VlcEntry* GetB17Table(uint32_t u32Code12) {
    return FindTcoef<false>(u32Code12);
}
