// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

#include "common/ivop.h"

#include "common/picture.h"

namespace {

MP4V_INLINE void ReconstructMb(Mp4vDecCtx* ptCtx, BsCursor& tBs, uint32_t u32Column, uint32_t u32Row, bool bPortable) {
    if (MP4V_LIKELY(bPortable)) return DecIntraMbPortable(ptCtx, &tBs, u32Column, u32Row);
    tBs.StoreTo(&ptCtx->tBs);
    DecIntraMB(ptCtx, ptCtx->tMb.as16Coef, u32Column, u32Row);
    ReconIntraMB(ptCtx, u32Column, u32Row);
    tBs = BsCursor(ptCtx->tBs);
}

uint32_t DecodePicture(Mp4vDecCtx* ptCtx, BsCursor& tBs, PictureOutput& tOutput) {
    uint32_t u32Quant = ptCtx->u32VopQuant;
    for (uint32_t u32Row = 0; u32Row < ptCtx->u32MbHeight; u32Row++) {
        StartMbRow(ptCtx, u32Row);
        tOutput.StartRow(u32Row);
        const bool bPortable = IntraIsPortable(ptCtx);
        for (uint32_t u32Column = 0; u32Column < ptCtx->u32MbWidth; u32Column++, NextMb(&ptCtx->tMb)) {
            if (DecIntraMbHeader(ptCtx, tBs, &u32Quant)) {
                ReconstructMb(ptCtx, tBs, u32Column, u32Row, bPortable);
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
