// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors
#include "common/kernels.h"

int32_t emms_c(int32_t s32Value) {
    return s32Value;
}

// NOLINTNEXTLINE(bugprone-macro-parentheses): a variable is named
#define MP4V_TABLE_ENTRY(Name) decltype(Name) Name = Name##_c

MP4V_TABLE_ENTRY(VopOutput);
decltype(GetMedian) GetMedian = MPEG4DecGetMedian_c;
decltype(Deblock8x8Horiz) Deblock8x8Horiz = Deblock8x8HorizFast_c;
MP4V_TABLE_ENTRY(Mp4vDecTranspose16x16);
MP4V_TABLE_ENTRY(Mp4vDecTranspose8x8);
MP4V_TABLE_ENTRY(DeInterlaceFieldMB);
MP4V_TABLE_ENTRY(DeInterlaceFrameMB);
MP4V_TABLE_ENTRY(VertPassAvgUp8);
MP4V_TABLE_ENTRY(VertPassAvgUp16);
MP4V_TABLE_ENTRY(VertPass8);
MP4V_TABLE_ENTRY(VertPass16);
MP4V_TABLE_ENTRY(VertPassAvg8);
MP4V_TABLE_ENTRY(VertPassAvg16);
MP4V_TABLE_ENTRY(HorzPassAvgUp8);
MP4V_TABLE_ENTRY(HorzPassAvgUp16);
MP4V_TABLE_ENTRY(HorzPassAvg8);
MP4V_TABLE_ENTRY(HorzPassAvg16);
MP4V_TABLE_ENTRY(HorzPass8);
MP4V_TABLE_ENTRY(HorzPass16);
MP4V_TABLE_ENTRY(Interpolate8x4HV);
MP4V_TABLE_ENTRY(Interpolate8x4V);
MP4V_TABLE_ENTRY(Interpolate8x4H);
MP4V_TABLE_ENTRY(Interpolate8x8HV);
MP4V_TABLE_ENTRY(Interpolate8x8V);
MP4V_TABLE_ENTRY(Interpolate8x8H);
MP4V_TABLE_ENTRY(Interpolate16x16HV);
MP4V_TABLE_ENTRY(Interpolate16x16V);
MP4V_TABLE_ENTRY(Interpolate16x16H);
MP4V_TABLE_ENTRY(MemCopyStride8x4);
MP4V_TABLE_ENTRY(MemCopyStride8x8);
MP4V_TABLE_ENTRY(MemCopyStride16x8);
MP4V_TABLE_ENTRY(MemCopyStride16x16);
decltype(MemSet16) MemSet16 = MP4DecMemSet_c;
decltype(MemSetAlign16) MemSetAlign16 = MP4DecMemSet_c;
decltype(MemSet) MemSet = MP4DecMemSet_c;
decltype(MemCopy8) MemCopy8 = MP4DecMemCopy_c;
decltype(MemCopyAlign16) MemCopyAlign16 = MP4DecMemCopy_c;
MP4V_TABLE_ENTRY(McAdd16to8);
MP4V_TABLE_ENTRY(McCopy16to8);
decltype(MemCopy8x4) MemCopy8x4 = MP4DecMemCopy8x4_c;
decltype(MemCopy8x8) MemCopy8x8 = MP4DecMemCopy8x8_c;
decltype(MemCopy16x16) MemCopy16x16 = MP4DecMemCopy16x16_c;
MP4V_TABLE_ENTRY(DequantMpegInter);
MP4V_TABLE_ENTRY(DequantMpegIntra);
MP4V_TABLE_ENTRY(DequantH263Inter);
MP4V_TABLE_ENTRY(DequantH263Intra);
decltype(AddIdct8x8Multi) AddIdct8x8Multi = Mp4DecAddiDCT8x8Multi_c;
decltype(AddIdct8x8) AddIdct8x8 = Mp4DecAddiDCT8x8Stride_c;
decltype(Idct8x8) Idct8x8 = Mp4vDecIdct8x8_c;
decltype(ClearMMX) ClearMMX = emms_c;
