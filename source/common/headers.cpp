// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

#include "common/headers.h"

#include <string.h>

#include "c/image.h"
#include "common/bsreader.h"
#include "common/quant_tables.h"

const uint32_t g_au32IntraDcThTable[8] = {32, 13, 15, 17, 19, 21, 23, 1};

namespace {

enum : uint32_t {
    kVideoObjectLayerFirst = 0x00000120,  // to 0x0000012F
    kVisualObjectSequence = 0x000001B0,
    kUserData = 0x000001B2,
    kGroupOfVop = 0x000001B3,
    kVisualObject = 0x000001B5,
    kVop = 0x000001B6,

    kUserDataMax = 128,  // bytes in one chunk
    kKeywordOffset = 7,  // of the keyword in the user data
    kKeywordLength = 5,
    kModuloTimeBaseMax = 128,
};

enum : uint16_t { kShapeRectangular = 0, kShapeBinaryOnly = 2, kShapeGrayscale = 3 };

bool IsSupportedVisualObject(BsReader* ptBs) {
    if (BsRead(ptBs, 1)) BsSkip(ptBs, 4 + 3);      // visual_object_verid, visual_object_priority
    if (BsRead(ptBs, 4) != 1) return false;        // visual_object_type: video
    if (BsRead(ptBs, 1)) {                         // video_signal_type
        BsSkip(ptBs, 3 + 1);                       // video_format, video_range
        if (BsRead(ptBs, 1)) BsSkip(ptBs, 3 * 8);  // colour_description
    }
    return true;
}

// User data of one chunk. The counter and the keyword run on over all its segments.
struct UserData {
    uint32_t u32Bytes = 0;
    char as8Keyword[kKeywordLength + 1] = "0";
};

uint32_t DecUserData(Mp4vDecCtx* ptCtx, UserData* ptUserData) {
    BsReader* const ptBs = &ptCtx->tBs;
    while (!BsAtStartCode(ptBs)) {
        const uint32_t u32Index = ptUserData->u32Bytes - kKeywordOffset;
        const uint32_t u32Byte = BsRead(ptBs, 8);
        if (u32Index < kKeywordLength) ptUserData->as8Keyword[u32Index] = (char)u32Byte;
        if (++ptUserData->u32Bytes > kUserDataMax) return ptCtx->u32HeaderStatus = ERR_VID_MPEG4DEC_USERDATA;
    }
    static constexpr char kKeywords[3][kKeywordLength + 1] = {"FRAME", "FIELD", "FRM_I"};
    ptCtx->u32PicStructHintSet = 0;
    for (uint32_t i = 0; i < 3; i++) {
        if (strcmp(ptUserData->as8Keyword, kKeywords[i]) != 0) continue;
        ptCtx->u32PicStructHint = i + 1;
        ptCtx->u32PicStructHintSet = 1;
    }
    return MP4VDEC_OK;
}

// A size within the open size takes effect at once.
void SetSize(Mp4vDecCtx* ptCtx, uint32_t u32Width, uint32_t u32Height) {
    ptCtx->u32Width = u32Width;
    ptCtx->u32Height = u32Height;
    VopDecReset(&ptCtx->tCurFrame, ptCtx, u32Width, u32Height);
    VopDecReset(&ptCtx->tRefFrame, ptCtx, u32Width, u32Height);
    const uint32_t u32Row = ptCtx->u32MbWidth + 1;
    const uint32_t u32Rows = ptCtx->u32MbHeight;
    if (ptCtx->u32ClearBefore < u32Row) ptCtx->u32ClearBefore = u32Row;
    if (ptCtx->u32ClearFrom < u32Row * u32Rows) ptCtx->u32ClearFrom = u32Row * u32Rows;
}

uint32_t DecVolSize(Mp4vDecCtx* ptCtx) {
    BsReader* const ptBs = &ptCtx->tBs;
    BsSkip(ptBs, 1);  // marker_bit
    const uint32_t u32Width = BsRead(ptBs, 13);
    BsSkip(ptBs, 1);
    const uint32_t u32Height = BsRead(ptBs, 13);
    BsSkip(ptBs, 1);
    if (u32Width > MP4VDEC_MAX_WIDTH || u32Height > MP4VDEC_MAX_HEIGHT) return ERR_VID_MPEG4DEC_OVER_MAXSUPPORT_SIZE;
    if (u32Width > ptCtx->u32OpenWidth || u32Height > ptCtx->u32OpenHeight) return ERR_VID_MPEG4DEC_OVER_INIT_SIZE;
    if (!ptCtx->u32PicStructHintSet) ptCtx->u32PicStructHint = 1;
    if (u32Width != ptCtx->u32Width || u32Height != ptCtx->u32Height) SetSize(ptCtx, u32Width, u32Height);
    return MP4VDEC_OK;
}

void DecVolMatrix(BsReader* ptBs, int16_t* ps16Matrix, const int16_t* ps16Default) {
    if (BsRead(ptBs, 1)) {  // load_intra_quant_mat, load_nonintra_quant_mat
        GetMatrix(ptBs, ps16Matrix);
    } else {
        memcpy(ps16Matrix, ps16Default, 64 * sizeof *ps16Matrix);
    }
}

void SkipVolControlParameters(BsReader* ptBs) {
    BsSkip(ptBs, 2 + 1);           // chroma_format, low_delay
    if (!BsRead(ptBs, 1)) return;  // vbv_parameters
    static constexpr uint8_t kWidths[] = {15, 1, 15, 1, 15, 1, 3, 11, 1, 15, 1};
    for (const uint8_t u8Bits : kWidths) BsSkip(ptBs, u8Bits);
}

// Returns 0, or the status with which the header is refused.
uint32_t ParseVol(Mp4vDecCtx* ptCtx) {
    BsReader* const ptBs = &ptCtx->tBs;
    BsSkip(ptBs, 1);  // random_accessible_vol
    const uint32_t u32TypeIndication = BsRead(ptBs, 8);
    if (u32TypeIndication != 0 && u32TypeIndication != 1 && u32TypeIndication != 17) {
        return ERR_VID_MPEG4DEC_UNSUPPORT_VOTYPEID;
    }
    uint32_t u32VerId = 1;
    if (BsRead(ptBs, 1)) {  // is_object_layer_identifier
        u32VerId = BsRead(ptBs, 4);
        BsSkip(ptBs, 3);  // video_object_layer_priority
    }
    if (BsRead(ptBs, 4) == 15) BsSkip(ptBs, 8 + 8);  // aspect_ratio_info, par_width, par_height
    if (BsRead(ptBs, 1)) SkipVolControlParameters(ptBs);
    ptCtx->u16VolShape = (uint16_t)BsRead(ptBs, 2);
    if (ptCtx->u16VolShape == kShapeGrayscale) return ERR_VID_MPEG4DEC_UNSUPPORT_SHAPE;
    BsSkip(ptBs, 1);  // marker_bit
    ptCtx->u32VopTimeIncRes = BsRead(ptBs, 16);
    ptCtx->u32VopTimeIncBits =
        ptCtx->u32VopTimeIncRes > 2 ? 32 - (uint32_t)__builtin_clz(ptCtx->u32VopTimeIncRes - 1) : 1;
    BsSkip(ptBs, 1);                                              // marker_bit
    if (BsRead(ptBs, 1)) BsSkip(ptBs, ptCtx->u32VopTimeIncBits);  // fixed_vop_rate, fixed_vop_time_increment

    if (ptCtx->u16VolShape == kShapeBinaryOnly) {
        if (u32VerId != 1 && BsRead(ptBs, 1)) return ERR_VID_MPEG4DEC_UNSUPPORT_SCALABLE;
        BsSkip(ptBs, 1);  // resync_marker_disable
        return MP4VDEC_OK;
    }
    if (ptCtx->u16VolShape == kShapeRectangular) {
        const uint32_t u32Status = DecVolSize(ptCtx);
        if (u32Status) return u32Status;
    }
    ptCtx->s16Interlaced = (int16_t)BsRead(ptBs, 1);
    if (!BsRead(ptBs, 1)) return ERR_VID_MPEG4DEC_UNSUPPORT_OBMC;  // obmc_disable
    if (BsRead(ptBs, u32VerId == 1 ? 1 : 2)) return ERR_VID_MPEG4DEC_UNSUPPORT_SPRITE;
    if (u32VerId != 1 && ptCtx->u16VolShape != kShapeRectangular) BsSkip(ptBs, 1);  // sadct_disable
    ptCtx->u32QuantPrecision = 5;
    if (BsRead(ptBs, 1)) {  // not_8_bit
        ptCtx->u32QuantPrecision = BsRead(ptBs, 4);
        BsSkip(ptBs, 4);  // bits_per_pixel
    }
    ptCtx->u16QuantType = (uint16_t)BsRead(ptBs, 1);
    if (ptCtx->u16QuantType) {
        DecVolMatrix(ptBs, ptCtx->as16IntraQuantMatrix, g_as16DefaultIntraMatrix);
        DecVolMatrix(ptBs, ptCtx->as16InterQuantMatrix, g_as16DefaultInterMatrix);
    }
    ptCtx->u16QuarterSample = (uint16_t)(u32VerId == 1 ? 0 : BsRead(ptBs, 1));
    if (!BsRead(ptBs, 1)) return ERR_VID_MPEG4DEC_UNSUPPORT_COMPLXES;  // complexity_estimation_disable
    BsSkip(ptBs, 1);                                                   // resync_marker_disable
    if (BsRead(ptBs, 1)) return ERR_VID_MPEG4DEC_UNSUPPORT_DP;         // data_partitioned
    if (u32VerId != 1) {
        if (BsRead(ptBs, 1))
            BsSkip(ptBs, 2 + 1);  // newpred_enable, requested_upstream_message_type, newpred_segment_type
        if (BsRead(ptBs, 1)) return ERR_VID_MPEG4DEC_UNSUPPORT_RRVOP;  // reduced_resolution_vop_enable
    }
    if (BsRead(ptBs, 1)) return ERR_VID_MPEG4DEC_UNSUPPORT_SCALABLE;
    return MP4VDEC_OK;
}

// vop_width to vop_vertical_mc_spatial_ref with their markers, change_conv_ratio_disable, vop_constant_alpha_value
void SkipVopShape(BsReader* ptBs) {
    for (int i = 0; i < 4; i++) BsSkip(ptBs, 13 + 1);
    BsSkip(ptBs, 1);
    if (BsRead(ptBs, 1)) BsSkip(ptBs, 8);
}

}  // namespace

uint32_t BsHeaders(Mp4vDecCtx* ptCtx) {
    BsReader* const ptBs = &ptCtx->tBs;
    UserData tUserData;
    while (!ptBs->u32BsError) {
        BsByteAlign(ptBs);
        if (!BsAtStartCode(ptBs)) {
            BsSkip(ptBs, 8);
            continue;
        }
        const uint32_t u32Code = BsShow(ptBs, 32);
        if (u32Code == kVop) break;
        BsSkip(ptBs, 32);
        uint32_t u32Status = MP4VDEC_OK;
        if (u32Code == kVisualObjectSequence) {
            BsSkip(ptBs, 8);  // profile_and_level_indication
        } else if (u32Code == kVisualObject) {
            if (IsSupportedVisualObject(ptBs)) continue;
            return ptBs->u32BsError ? ptBs->u32BsError : ERR_VID_MPEG4DEC_UNSUPPORT_VSOTYPE;
        } else if ((u32Code & ~15u) == kVideoObjectLayerFirst) {
            u32Status = DecVolHeader(ptCtx);
        } else if (u32Code == kGroupOfVop) {
            BsSkip(ptBs, 5 + 6 + 1 + 6 + 1 + 1);  // time_code, closed_gov, broken_link
        } else if (u32Code == kUserData) {
            u32Status = DecUserData(ptCtx, &tUserData);
        }
        if (u32Status) return u32Status;
    }
    return ptBs->u32BsError;
}

uint32_t DecVolHeader(Mp4vDecCtx* ptCtx) {
    return ptCtx->u32HeaderStatus = ParseVol(ptCtx);
}

uint32_t DecVopHeader(Mp4vDecCtx* ptCtx) {
    BsReader* const ptBs = &ptCtx->tBs;
    BsSkip(ptBs, 32);
    ptCtx->s16VopCodingType = (int16_t)BsRead(ptBs, 2);
    if (ptCtx->s16VopCodingType > VOP_P) return ERR_VID_MPEG4DEC_UNSUPPORT_BFRAME;
    for (uint32_t u32Seconds = 0; BsRead(ptBs, 1); u32Seconds++) {
        if (u32Seconds == kModuloTimeBaseMax) return ERR_VID_MPEG4DEC_TIMEBASE;
    }
    ptCtx->u16QpCarry = (uint16_t)BsRead(ptBs, 1);
    if (ptCtx->u32VopTimeIncBits) {
        ptCtx->s32PrevVopTimeIncr = ptCtx->s32VopTimeIncr;
        ptCtx->s32VopTimeIncr = (int16_t)BsRead(ptBs, ptCtx->u32VopTimeIncBits);
    }
    BsSkip(ptBs, 1);  // marker_bit
    if (!BsRead(ptBs, 1)) {
        ptCtx->s16VopCodingType = VOP_NOT_CODED;
        return MP4VDEC_OK;
    }
    const bool bPredicted = ptCtx->s16VopCodingType == VOP_P;
    if (ptCtx->u16VolShape != kShapeBinaryOnly && bPredicted) ptCtx->u32RoundingType = BsRead(ptBs, 1);
    if (ptCtx->u16VolShape != kShapeRectangular) SkipVopShape(ptBs);
    if (ptCtx->u16VolShape != kShapeBinaryOnly) {
        const uint32_t u32IntraDcVlcThr = BsRead(ptBs, 3);
        if (u32IntraDcVlcThr == 4) ptCtx->u16QpCarry = 0;
        ptCtx->u32IntraDcThr = g_au32IntraDcThTable[u32IntraDcVlcThr];
        ptCtx->u32TopFieldFirst = ptCtx->s16Interlaced ? BsRead(ptBs, 1) : 0;
        ptCtx->u32AltVertScan = ptCtx->s16Interlaced ? BsRead(ptBs, 1) : 0;
    }
    ptCtx->u32VopQuant = BsRead(ptBs, ptCtx->u32QuantPrecision);
    if (bPredicted) ptCtx->u32FcodeForward = BsRead(ptBs, 3);
    return MP4VDEC_OK;
}

void GetMatrix(BsReader* ptBs, int16_t* ps16Matrix) {
    int16_t s16Last = 0;
    for (uint32_t k = 0; k < 64; k++) {
        const uint32_t u32Value = BsRead(ptBs, 8);
        if (u32Value == 0) {
            for (; k < 64; k += 2) ps16Matrix[g_au16ZigzagScanTable[k]] = s16Last;
            return;
        }
        s16Last = (int16_t)u32Value;
        ps16Matrix[g_au16ZigzagScanTable[k]] = s16Last;
    }
}

void ClearCondemnedMbInfo(Mp4vDecCtx* ptCtx) {
    const uint32_t u32Records = ptCtx->u32ClearBefore + ptCtx->u32ClearFrom;
    if (u32Records) memset(ptCtx->ptMbInfo - ptCtx->u32ClearBefore, 0, u32Records * sizeof(MbInfo));
    ptCtx->u32ClearBefore = 0;
    ptCtx->u32ClearFrom = 0;
}
