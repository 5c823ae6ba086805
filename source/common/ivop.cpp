// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

#include "common/bsreader.h"
#include "common/intra.h"
#include "common/picture.h"
#include "common/vlc.h"

namespace {

// Decodes the macroblock's symbols behind ac_pred_flag, then the macroblock.
void DecodeIntraMb(Mp4vDecCtx* ptCtx, uint32_t u32Mcbpc, uint32_t* pu32Quant, uint32_t u32Column, uint32_t u32Row) {
    Mp4vMbScratch& tMb = ptCtx->tMb;
    BsReader* const ptBs = &ptCtx->tBs;
    tMb.u32Cbp = u32Mcbpc >> 4 | DecCbpy_c(ptBs, 1) << 2;  // an invalid cbpy sets all luma bits
    if (tMb.ptCurMbInfo->u8MbType == MB_INTRA_Q) *pu32Quant = ChangeQuantiser(*pu32Quant, BsRead(ptBs, 2));
    tMb.ptCurMbInfo->u8Qp = (uint8_t)*pu32Quant;
    tMb.s32DctType = ptCtx->s16Interlaced ? (int32_t)BsRead(ptBs, 1) : 0;
    DecIntraMB(ptCtx, tMb.as16Coef, u32Column, u32Row);
    ReconIntraMB(ptCtx, u32Column, u32Row);
}

}  // namespace

uint32_t IVopDecode(Mp4vDecCtx* ptCtx, uint8_t* pu8Out, uint32_t u32Flags) {
    Mp4vMbScratch& tMb = ptCtx->tMb;
    uint32_t u32Quant = ptCtx->u32VopQuant;
    PictureOutput tOutput = {ptCtx, pu8Out, u32Flags, 0, 0, 0};
    for (uint32_t u32Row = 0; u32Row < ptCtx->u32MbHeight; u32Row++) {
        StartMbRow(ptCtx, u32Row);
        tOutput.StartRow(u32Row);
        for (uint32_t u32Column = 0; u32Column < ptCtx->u32MbWidth; u32Column++, NextMb(&tMb)) {
            const uint32_t u32Mcbpc = DecMcbpcIntra_c(&ptCtx->tBs);
            tMb.ptCurMbInfo->u8MbType = u32Mcbpc & 7;
            tMb.u32AcPredFlag = BsRead(&ptCtx->tBs, 1);  // also behind an invalid mcbpc
            if (tMb.ptCurMbInfo->u8MbType != MB_INVALID) {
                DecodeIntraMb(ptCtx, u32Mcbpc, &u32Quant, u32Column, u32Row);
                tOutput.Add(u32Column);
            } else {
                tOutput.Flush(u32Column);
            }
            if (ptCtx->tBs.u32BsError) {
                tOutput.Flush(u32Column + 1);
                return ptCtx->tBs.u32BsError;
            }
        }
        tOutput.Flush(ptCtx->u32MbWidth);
    }
    return MP4VDEC_OK;
}
