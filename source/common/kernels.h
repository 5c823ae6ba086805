// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

// The kernel table: 50 exported function pointers through which the decoding loops reach every block kernel. They are
// read at every call, so one assignment redirects all callers. Each starts out at the portable kernel of the same name
// with _c, except where noted. The portable kernels define the exact results of every replacement.
//
// Pictures are 8-bit samples, a start pointer and a line pitch in bytes, any alignment. Blocks are 64 signed 16-bit
// values, row by row. Sources and destinations do not overlap unless they are said to be the same.
#ifndef MP4VDEC_SOURCE_COMMON_KERNELS_H_
#define MP4VDEC_SOURCE_COMMON_KERNELS_H_

#include <stdint.h>

#include "common/context.h"

#define MP4V_KERNEL extern MP4VDEC_API

extern "C" {

// ---- Half-sample prediction: dst and src share the pitch; u32Rounding is vop_rounding_type, 0 or 1.
// H: (a + b + 1 - r) >> 1, V: (a + c + 1 - r) >> 1, HV: (a + b + c + d + 2 - r) >> 2, with b to the right of a and c, d
// below. Reads one column (H, HV) and one row (V, HV) beyond the block.
typedef void Mp4vInterpolate(uint8_t* pu8Dst, const uint8_t* pu8Src, int32_t s32Pitch, uint32_t u32Rounding);
MP4V_KERNEL Mp4vInterpolate *Interpolate16x16H, *Interpolate16x16V, *Interpolate16x16HV;
MP4V_KERNEL Mp4vInterpolate *Interpolate8x8H, *Interpolate8x8V, *Interpolate8x8HV;
MP4V_KERNEL Mp4vInterpolate *Interpolate8x4H, *Interpolate8x4V, *Interpolate8x4HV;

// ---- Copies within one pitch: 16 x 16, 8 x 8, 8 wide x 4 rows. Initially MP4DecMemCopy*_c.
typedef void Mp4vMemCopyBlock(uint8_t* pu8Dst, const uint8_t* pu8Src, int32_t s32Pitch);
MP4V_KERNEL Mp4vMemCopyBlock *MemCopy16x16, *MemCopy8x8, *MemCopy8x4;

// ---- Copies between pitches, source first: 16 x 16, 16 wide x 8 rows, 8 x 8, 8 wide x 4 rows; row after row.
typedef void Mp4vMemCopyStride(const uint8_t* pu8Src, int32_t s32SrcPitch, uint8_t* pu8Dst, int32_t s32DstPitch);
MP4V_KERNEL Mp4vMemCopyStride *MemCopyStride16x16, *MemCopyStride16x8, *MemCopyStride8x8, *MemCopyStride8x4;

// ---- Byte fill (MP4DecMemSet_c) and byte copy (MP4DecMemCopy_c).
typedef void Mp4vMemSet(void* pvDst, uint32_t u32Value, uint32_t u32Bytes);
MP4V_KERNEL Mp4vMemSet *MemSet, *MemSet16, *MemSetAlign16;
typedef void Mp4vMemCopy(void* pvDst, const void* pvSrc, uint32_t u32Bytes);
MP4V_KERNEL Mp4vMemCopy *MemCopy8, *MemCopyAlign16;

// ---- 8 x 8 block into a picture: stored with clipping to [0, 255], or added in 16 bits (wrapping) and clipped.
typedef void Mp4vMc16to8(uint8_t* pu8Dst, const int16_t* ps16Block, int32_t s32Pitch);
MP4V_KERNEL Mp4vMc16to8 *McCopy16to8, *McAdd16to8;

// ---- Quarter-sample passes: the 8-tap half-sample filter over s32Count rows (Horz) or columns (Vert) of 16 or 8
// outputs from 17 or 9 samples each, mirrored at both ends; Avg: then averaged with the sample before the half
// position, AvgUp: with the one after it. u32Rounding as above. s32Count < 1 does nothing.
typedef void Mp4vQpelPass(uint8_t* pu8Dst, const uint8_t* pu8Src, int32_t s32Count, int32_t s32DstPitch,
                          int32_t s32SrcPitch, uint32_t u32Rounding);
MP4V_KERNEL Mp4vQpelPass *HorzPass16, *HorzPassAvg16, *HorzPassAvgUp16, *HorzPass8, *HorzPassAvg8, *HorzPassAvgUp8;
MP4V_KERNEL Mp4vQpelPass *VertPass16, *VertPassAvg16, *VertPassAvgUp16, *VertPass8, *VertPassAvg8, *VertPassAvgUp8;

// ---- Dequantisation of one block, usually in place (ps16Dst == ps16Src). Results in [-2048, 2047].
typedef void Mp4vDequantIntra(int16_t* ps16Dst, const int16_t* ps16Src, uint32_t u32Quant, uint32_t u32DcScaler);
MP4V_KERNEL Mp4vDequantIntra *DequantH263Intra, *DequantMpegIntra;
MP4V_KERNEL void (*DequantH263Inter)(int16_t* ps16Dst, const int16_t* ps16Src, uint16_t u16Quant);
MP4V_KERNEL void (*DequantMpegInter)(int16_t* ps16Dst, const int16_t* ps16Src, uint32_t u32Quant);

// ---- Inverse transform, in place; results in [-256, 255]. Initially Mp4vDecIdct8x8_c.
MP4V_KERNEL void (*Idct8x8)(int16_t* ps16Block);
// Transforms the block (through Idct8x8) and adds it to 8 x 8 samples, clipped. Initially Mp4DecAddiDCT8x8Stride_c.
MP4V_KERNEL void (*AddIdct8x8)(int16_t* ps16Block, uint8_t* pu8Dst, int32_t s32Pitch);
// The same for the coded blocks of a macroblock, packed at ps16Blocks. s32RowOffset: bytes from the upper to the lower
// luma blocks. Uses the destination pointers of ptMb. Initially Mp4DecAddiDCT8x8Multi_c.
MP4V_KERNEL void (*AddIdct8x8Multi)(Mp4vMbScratch* ptMb, int16_t* ps16Blocks, uint32_t u32Cbp, int32_t s32RowOffset,
                                    int32_t s32LumaPitch, int32_t s32ChromaPitch);

// ---- Component-wise median of three vectors. Initially MPEG4DecGetMedian_c.
MP4V_KERNEL void (*GetMedian)(const Mp4vMv* ptA, const Mp4vMv* ptB, const Mp4vMv* ptC, int32_t* ps32X, int32_t* ps32Y);

// ---- Whole picture to a compact planar buffer. s32Pitch: luma pitch of the source, chroma half of it.
// s32FieldStacked: the source holds the top field above the bottom field. s32Deinterlace: adaptive deinterlacing.
MP4V_KERNEL void (*VopOutput)(const uint8_t* pu8Y, const uint8_t* pu8U, const uint8_t* pu8V, uint8_t* pu8Dst,
                              int32_t s32Pitch, int32_t s32Width, int32_t s32Height, int32_t s32FieldStacked,
                              int32_t s32Deinterlace);

// ---- Deblocking filter of 8 columns across the horizontal edge above pu8Edge: three rows above, three from it on.
// Initially Deblock8x8HorizFast_c.
MP4V_KERNEL void (*Deblock8x8Horiz)(uint8_t* pu8Edge, int32_t s32Pitch, uint32_t u32Qp);

typedef void Mp4vTranspose(uint8_t* pu8Dst, int32_t s32DstPitch, const uint8_t* pu8Src, int32_t s32SrcPitch);
MP4V_KERNEL Mp4vTranspose *Mp4vDecTranspose8x8, *Mp4vDecTranspose16x16;

// ---- Deinterlaces one macroblock into the output. Chroma pitches are half the given luma pitches.
// Frame: the macroblock's rows alternate between the fields. Field: the macroblock holds 16 rows of the bottom field,
// pu8DstY/U/V is the first odd output row and the top field already stands in the even output rows around it;
// s32DstPitch is twice the picture pitch.
typedef void Mp4vDeInterlaceMb(const uint8_t* pu8SrcY, const uint8_t* pu8SrcU, const uint8_t* pu8SrcV,
                               int32_t s32SrcPitch, uint8_t* pu8DstY, uint8_t* pu8DstU, uint8_t* pu8DstV,
                               int32_t s32DstPitch);
MP4V_KERNEL Mp4vDeInterlaceMb *DeInterlaceFrameMB, *DeInterlaceFieldMB;

// ---- Called once per decoded or repeated picture. Initially emms_c, which returns its argument.
MP4V_KERNEL int32_t (*ClearMMX)(int32_t s32Value);

// ---- The portable kernels.
MP4VDEC_API Mp4vInterpolate Interpolate16x16H_c, Interpolate16x16V_c, Interpolate16x16HV_c;
MP4VDEC_API Mp4vInterpolate Interpolate8x8H_c, Interpolate8x8V_c, Interpolate8x8HV_c;
MP4VDEC_API Mp4vInterpolate Interpolate8x4H_c, Interpolate8x4V_c, Interpolate8x4HV_c;
MP4VDEC_API Mp4vMemCopyBlock MP4DecMemCopy16x16_c, MP4DecMemCopy8x8_c, MP4DecMemCopy8x4_c;
MP4VDEC_API Mp4vMemCopyStride MemCopyStride16x16_c, MemCopyStride16x8_c, MemCopyStride8x8_c, MemCopyStride8x4_c;
MP4VDEC_API Mp4vMemSet MP4DecMemSet_c;
MP4VDEC_API Mp4vMemCopy MP4DecMemCopy_c;
MP4VDEC_API Mp4vMc16to8 McCopy16to8_c, McAdd16to8_c;
MP4VDEC_API Mp4vQpelPass HorzPass16_c, HorzPassAvg16_c, HorzPassAvgUp16_c, HorzPass8_c, HorzPassAvg8_c,
    HorzPassAvgUp8_c;
MP4VDEC_API Mp4vQpelPass VertPass16_c, VertPassAvg16_c, VertPassAvgUp16_c, VertPass8_c, VertPassAvg8_c,
    VertPassAvgUp8_c;
MP4VDEC_API Mp4vDequantIntra DequantH263Intra_c, DequantMpegIntra_c;
MP4VDEC_API void DequantH263Inter_c(int16_t* ps16Dst, const int16_t* ps16Src, uint16_t u16Quant);
MP4VDEC_API void DequantMpegInter_c(int16_t* ps16Dst, const int16_t* ps16Src, uint32_t u32Quant);
MP4VDEC_API void Mp4vDecIdct8x8_c(int16_t* ps16Block);
MP4VDEC_API void Mp4vDecIdct8x8_simple1_c(int16_t* ps16Block);
MP4VDEC_API void Mp4vDecIdct8x8Init_c(void);
MP4VDEC_API void Mp4DecAddiDCT8x8Stride_c(int16_t* ps16Block, uint8_t* pu8Dst, int32_t s32Pitch);
MP4VDEC_API void Mp4DecAddiDCT8x8Multi_c(Mp4vMbScratch* ptMb, int16_t* ps16Blocks, uint32_t u32Cbp,
                                         int32_t s32RowOffset, int32_t s32LumaPitch, int32_t s32ChromaPitch);
MP4VDEC_API void MPEG4DecGetMedian_c(const Mp4vMv* ptA, const Mp4vMv* ptB, const Mp4vMv* ptC, int32_t* ps32X,
                                     int32_t* ps32Y);
MP4VDEC_API void VopOutput_c(const uint8_t* pu8Y, const uint8_t* pu8U, const uint8_t* pu8V, uint8_t* pu8Dst,
                             int32_t s32Pitch, int32_t s32Width, int32_t s32Height, int32_t s32FieldStacked,
                             int32_t s32Deinterlace);
MP4VDEC_API void Deblock8x8HorizFast_c(uint8_t* pu8Edge, int32_t s32Pitch, uint32_t u32Qp);
MP4VDEC_API Mp4vTranspose Mp4vDecTranspose8x8_c, Mp4vDecTranspose16x16_c;
MP4VDEC_API Mp4vDeInterlaceMb DeInterlaceFrameMB_c, DeInterlaceFieldMB_c;
// One row of 8 samples: weave the row or interpolate its neighbours. Returns 1 when it interpolated.
MP4VDEC_API uint32_t Deinterlacing8_c(const uint8_t* pu8Src, int32_t s32Pitch, uint8_t* pu8Dst);
MP4VDEC_API uint32_t Deinterlacing8Field_c(const uint8_t* pu8Src, int32_t s32SrcPitch, uint8_t* pu8Dst,
                                           int32_t s32DstPitch);

// ---- Not exported.
int32_t emms_c(int32_t s32Value);
// s32Height output rows (pitch s32Width) from two fields of half as many rows each.
void Deinterlacing_c(const uint8_t* pu8Top, int32_t s32TopPitch, const uint8_t* pu8Bottom, int32_t s32BottomPitch,
                     uint8_t* pu8Dst, int32_t s32Width, int32_t s32Height);
// 8 x 8 quarter-sample prediction of the luma block at (s32X, s32Y) of the reference plane. pu8Scratch: 144 bytes.
void InterpolateQuarterPel8x8(uint8_t* pu8Dst, const uint8_t* pu8Ref, uint8_t* pu8Scratch, int32_t s32X, int32_t s32Y,
                              int32_t s32Vx, int32_t s32Vy, int32_t s32Pitch, uint32_t u32Rounding);

extern int16_t g_as16Clip[1024];
extern int16_t* g_ps16Clp;  // &g_as16Clip[512]; [k] is k clamped to [-256, 255]
extern int32_t l32Idx;

}  // extern "C"

#endif  // MP4VDEC_SOURCE_COMMON_KERNELS_H_
