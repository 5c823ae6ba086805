// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

// The records that the decoding stages share.
#ifndef MP4VDEC_SOURCE_COMMON_CONTEXT_H_
#define MP4VDEC_SOURCE_COMMON_CONTEXT_H_

#include <stddef.h>
#include <stdint.h>

#include "mp4vdec.h"

extern "C" {

// The bit reader as it stands between two operations. The 64 bits u32CurWord:u32NextWord start at byte
// pu32ReadPtr - 8 of the chunk; u32BitPos of them are consumed. Hot loops work on a BsCursor (bsreader.h).
struct BsReader {
    uint32_t u32CurWord;
    uint32_t u32NextWord;
    uint32_t u32BitPos;           // [0, 31]
    const uint32_t* pu32ReadPtr;  // any alignment; may lie behind the chunk, so it is never read unchecked
    const uint8_t* pu8BufStart;
    uint32_t u32BufLen;   // bytes
    uint32_t u32BsError;  // sticky: 0 or the status of the last error
};

// A motion vector, in half or quarter samples.
struct Mp4vMv {
    int32_t s32X;
    int32_t s32Y;
};

// One picture: planar 4:2:0 with a border of 32 luma (16 chroma) samples on every side, in one allocation.
struct VopFrame {
    uint8_t* pu8Y;  // first sample inside the border
    uint8_t* pu8U;
    uint8_t* pu8V;
    uint8_t* pu8Base;  // the frame's own allocation; the planes may lie in the other frame's
};

enum Mp4vMbType : uint8_t {
    MB_INTER = 0,
    MB_INTER_Q = 1,
    MB_INTER4V = 2,
    MB_INTRA = 3,
    MB_INTRA_Q = 4,
    MB_INVALID = 7,  // invalid code or stuffing: the macroblock is not decoded
    MB_NOT_CODED = 255,
};

// What a macroblock's neighbours and the next picture need to know of it.
struct MbInfo {
    // Per block: [0] reconstructed DC, [1..7] first row, [8..14] first column (rows 1..7), [15] unused.
    int16_t as16AcDcPred[6][16];
    Mp4vMv as32Mv[4];
    Mp4vMv as32FieldAvgMv;  // field-predicted macroblocks: what their neighbours predict from
    uint8_t u8FieldPred;
    uint8_t u8MbType;  // Mp4vMbType
    uint8_t u8Qp;      // low 8 bits of the quantiser
};
static_assert(sizeof(MbInfo) == 236 && offsetof(MbInfo, u8Qp) == 234, "hosts size memory by this record");

// The current macroblock. Kernels that take "the macroblock" take the address of this record.
struct Mp4vMbScratch {
    int16_t as16Coef[6 * 64];  // raster order; inter macroblocks hold only their coded blocks, packed
    uint8_t* pu8DstY;          // where the macroblock goes in the current frame
    uint8_t* pu8DstU;
    uint8_t* pu8DstV;
    MbInfo* ptCurMbInfo;
    uint32_t au32DcScaler[6];
    uint32_t u32Cbp;  // bit 5 - b: block b is coded
    uint32_t u32AcPredFlag;
    int32_t s32DctType;  // dct_type: 1 field DCT
    uint8_t u8FwdTopFieldRef;
    uint8_t u8FwdBotFieldRef;
};

// The instance.
struct Mp4vDecCtx {
    void* apFrameAllocs[6];
    int16_t s16FrameAllocCount;

    // VOL and VOP fields
    int16_t s16VopCodingType;  // vop_coding_type; 5 when vop_coded is 0
    int16_t s16Interlaced;
    uint16_t u16VolShape;
    uint16_t u16QuantType;
    uint16_t u16QuarterSample;
    uint16_t u16QpCarry;  // 0: every macroblock of a P-VOP starts again from vop_quant

    Mp4vMbScratch tMb;
    BsReader tBs;

    VopFrame tCurFrame;
    VopFrame tRefFrame;
    MbInfo* ptMbInfo;  // record of macroblock (0, 0); one spare row above, one spare record behind each row
    uint8_t* pu8QpelBuf;

    // Current size, within the size given at open
    uint32_t u32Width;
    uint32_t u32Height;
    uint32_t u32LumaStride;    // bytes; chroma half of it
    uint32_t u32PaddedHeight;  // luma rows of a frame with its border
    uint32_t u32MbWidth;
    uint32_t u32MbHeight;
    uint32_t u32OpenWidth;
    uint32_t u32OpenHeight;

    uint32_t u32HeaderStatus;  // 0 once a VOL header is accepted; else why chunks are refused
    int32_t s32VopTimeIncr;
    int32_t s32PrevVopTimeIncr;
    uint32_t u32VopTimeIncRes;
    uint32_t u32VopTimeIncBits;
    uint32_t u32QuantPrecision;
    uint32_t u32RoundingType;
    uint32_t u32IntraDcThr;
    uint32_t u32TopFieldFirst;
    uint32_t u32AltVertScan;
    uint32_t u32VopQuant;
    uint32_t u32FcodeForward;
    uint32_t u32RunningQp;

    // Macroblock records that size changes have condemned: this many before and from ptMbInfo on. A chunk may
    // change the size hundreds of times; they are cleared once, before the next picture is decoded.
    uint32_t u32ClearBefore;
    uint32_t u32ClearFrom;

    // Post-processing
    int32_t s32DeblockQpThr;
    uint32_t u32PostProcOn;
    uint32_t u32PicStructHint;
    uint32_t u32PicStructHintSet;
    uint32_t u32ForceDeinterlace;
    uint32_t u32LeftDeblockValid;
    uint8_t* pu8WorkBuf512;
    uint8_t* pu8WorkBuf128A;
    uint8_t* pu8WorkBuf128B;

    void* pMemCtx;
    int16_t as16IntraQuantMatrix[64];  // as loaded; decoding weights with the default values
    int16_t as16InterQuantMatrix[64];
};

// Mp4vDecoderGetMemSize counts 2864 bytes for this record and its four scratch buffers (512 + 512 + 128 + 128).
static_assert(sizeof(Mp4vDecCtx) <= 1584, "keep the reported memory size true");

}  // extern "C"

#endif  // MP4VDEC_SOURCE_COMMON_CONTEXT_H_
