// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

#include "common/bsreader.h"
#include "common/intra.h"
#include "common/picture.h"
#include "common/vlc.h"

namespace {

// Decodes the macroblock's symbols behind ac_pred_flag, then the macroblock.
MP4V_INLINE void DecodeIntraMb(Mp4vDecCtx* ptCtx, BsCursor& tBs, uint32_t u32Mcbpc, uint32_t* pu32Quant,
                               uint32_t u32Column, uint32_t u32Row, bool bPortable) {
    Mp4vMbScratch& tMb = ptCtx->tMb;
    tMb.u32Cbp = u32Mcbpc >> 4 | DecCbpy(tBs, 1) << 2;  // an invalid cbpy sets all luma bits
    if (tMb.ptCurMbInfo->u8MbType == MB_INTRA_Q) *pu32Quant = ChangeQuantiser(*pu32Quant, tBs.Read(2));
    tMb.ptCurMbInfo->u8Qp = (uint8_t)*pu32Quant;
    tMb.s32DctType = ptCtx->s16Interlaced ? (int32_t)tBs.Read(1) : 0;
    if (MP4V_LIKELY(bPortable)) return DecIntraMbPortable(ptCtx, &tBs, u32Column, u32Row);
    tBs.StoreTo(&ptCtx->tBs);
    DecIntraMB(ptCtx, tMb.as16Coef, u32Column, u32Row);
    ReconIntraMB(ptCtx, u32Column, u32Row);
    tBs = BsCursor(ptCtx->tBs);
}

uint32_t DecodePicture(Mp4vDecCtx* ptCtx, BsCursor& tBs, PictureOutput& tOutput) {
    Mp4vMbScratch& tMb = ptCtx->tMb;
    uint32_t u32Quant = ptCtx->u32VopQuant;
    for (uint32_t u32Row = 0; u32Row < ptCtx->u32MbHeight; u32Row++) {
        StartMbRow(ptCtx, u32Row);
        tOutput.StartRow(u32Row);
        const bool bPortable = IntraIsPortable(ptCtx);
        for (uint32_t u32Column = 0; u32Column < ptCtx->u32MbWidth; u32Column++, NextMb(&tMb)) {
            const uint32_t u32Mcbpc = DecMcbpcIntra(tBs);
            tMb.ptCurMbInfo->u8MbType = u32Mcbpc & 7;
            tMb.u32AcPredFlag = tBs.Read(1);  // also behind an invalid mcbpc
            if (tMb.ptCurMbInfo->u8MbType != MB_INVALID) {
                DecodeIntraMb(ptCtx, tBs, u32Mcbpc, &u32Quant, u32Column, u32Row, bPortable);
                tOutput.Add(u32Column);
            } else {
                tOutput.Flush(u32Column);
            }
            if (tBs.u32BsError) {
                tOutput.Flush(u32Column + 1);
                return tBs.u32BsError;
            }
        }
        tOutput.Flush(ptCtx->u32MbWidth);
    }
    return MP4VDEC_OK;
}

}  // namespace

uint32_t IVopDecode(Mp4vDecCtx* ptCtx, uint8_t* pu8Out, uint32_t u32Flags) {
    PictureOutput tOutput = {ptCtx, pu8Out, u32Flags, 0, 0, 0};
    BsCursor tBs(ptCtx->tBs);
    const uint32_t u32Status = DecodePicture(ptCtx, tBs, tOutput);
    tBs.StoreTo(&ptCtx->tBs);
    return u32Status;
}
