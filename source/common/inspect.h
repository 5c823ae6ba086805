// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

// What a decoded picture consists of, macroblock by macroblock. The only view into an instance that there is from
// outside of the decoder; decoding neither uses it nor pays for it.
#ifndef MP4VDEC_SOURCE_COMMON_INSPECT_H_
#define MP4VDEC_SOURCE_COMMON_INSPECT_H_

#include <stdint.h>

extern "C" {

enum Mp4vMbKind : uint8_t {
    MP4V_MB_NOT_CODED,
    MP4V_MB_INTER,
    MP4V_MB_INTER_4V,
    MP4V_MB_INTER_FIELD,
    MP4V_MB_INTRA,
    MP4V_MB_INVALID,  // a code that does not exist stands in its place
};

struct Mp4vMbView {
    uint32_t u32Column;
    uint32_t u32Row;
    uint32_t u32FirstBit;  // in the chunk
    uint32_t u32Bits;
    Mp4vMbKind eKind;
    uint8_t u8Quant;         // 0: none applies
    uint8_t u8Dquant;        // 1: it has a dquant
    uint8_t u8Cbp;           // bit 5 - b: block b is coded
    uint8_t u8AcPred;        // ac_pred_flag
    uint8_t u8FieldDct;      // dct_type
    uint8_t au8FieldRef[2];  // forward_top_field_reference, forward_bottom_field_reference
    // x, y in half or quarter samples. 4V: of each luma block; field: of the top and the bottom field, y in lines of
    // the frame; else all the same.
    int32_t aas32Mv[4][2];
};

struct Mp4vVopView {
    uint32_t u32MbWidth;
    uint32_t u32MbHeight;
    uint32_t u32HeaderBits;  // of the chunk, before the first macroblock
    uint32_t u32Quant;       // vop_quant
    uint8_t u8Predicted;
    uint8_t u8NotCoded;  // vop_coded is 0: there are no macroblocks
    uint8_t u8QuarterSample;
    uint8_t u8Interlaced;
};

typedef void Mp4vVisitMb(void* pvUser, const Mp4vMbView* ptMb);

// Goes once more through the chunk that the instance has decoded last, in the order of its macroblocks. Changes
// nothing. pu8Buf: the chunk with 8 readable bytes behind it. Returns the status with which the chunk was decoded;
// after damage the macroblocks up to there, it included, have been visited.
uint32_t InspectVop(const void* pvHandle, const uint8_t* pu8Buf, uint32_t u32BufLen, Mp4vVopView* ptVop,
                    Mp4vVisitMb* pfVisit, void* pvUser);
}

#endif  // MP4VDEC_SOURCE_COMMON_INSPECT_H_
