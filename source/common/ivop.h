// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

// The macroblock header of an I-VOP.
#ifndef MP4VDEC_SOURCE_COMMON_IVOP_H_
#define MP4VDEC_SOURCE_COMMON_IVOP_H_

#include "common/bsreader.h"
#include "common/intra.h"
#include "common/vlc.h"

// Decodes what precedes the blocks of the current macroblock. *pu32Quant: the quantiser so far, and from here on.
// Returns false for stuffing and where there is no code.
static MP4V_INLINE bool DecIntraMbHeader(Mp4vDecCtx* ptCtx, BsCursor& tBs, uint32_t* pu32Quant) {
    Mp4vMbScratch& tMb = ptCtx->tMb;
    const uint32_t u32Mcbpc = DecMcbpcIntra(tBs);
    tMb.ptCurMbInfo->u8MbType = u32Mcbpc & 7;
    tMb.u32AcPredFlag = tBs.Read(1);  // also behind an invalid mcbpc
    if (tMb.ptCurMbInfo->u8MbType == MB_INVALID) return false;
    tMb.u32Cbp = u32Mcbpc >> 4 | DecCbpy(tBs, 1) << 2;  // an invalid cbpy sets all luma bits
    if (tMb.ptCurMbInfo->u8MbType == MB_INTRA_Q) *pu32Quant = ChangeQuantiser(*pu32Quant, tBs.Read(2));
    tMb.ptCurMbInfo->u8Qp = (uint8_t)*pu32Quant;
    tMb.s32DctType = ptCtx->s16Interlaced ? (int32_t)tBs.Read(1) : 0;
    return true;
}

#endif  // MP4VDEC_SOURCE_COMMON_IVOP_H_
