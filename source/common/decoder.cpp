// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

// The entry points, the diagnostics and the descriptor.
#include <stdio.h>
#include <string.h>

#include "c/image.h"
#include "common/bsreader.h"
#include "common/extparam.h"
#include "common/headers.h"
#include "common/intra.h"
#include "common/kernels.h"
#include "common/pvop.h"
#include "common/vlc.h"

namespace {

constexpr char kFile[] = "../source/common/decoder.cpp";

enum : uint32_t {
    kQpelBufBytes = 512,
    kLumaWorkBytes = 512,    // 32 columns of 16 samples, transposed
    kChromaWorkBytes = 128,  // 16 columns of 8 samples, transposed
    kModeFieldStacked = 1,
    kModeDeinterlace = 2,
};

uint32_t Macroblocks(uint32_t u32Samples) {
    return (uint32_t)(((uint64_t)u32Samples + 15) >> 4);
}

// Samples with the borders. Saturates where no frame fits 32 bits any more, but its bytes are still counted in 64.
uint32_t Padded(uint32_t u32Samples) {
    constexpr uint64_t kTooMany = UINT64_C(1) << 31;
    const uint64_t u64Padded = ((uint64_t)Macroblocks(u32Samples) + 4) * 16;
    return (uint32_t)(u64Padded < kTooMany ? u64Padded : kTooMany);
}

void* Alloc(const Mp4vDecCtx* ptCtx, uint64_t u64Size, int32_t s32Line) {
    return MemAlloc(ptCtx->pMemCtx, u64Size, kTagMemory, kFile, s32Line);
}

void Free(const Mp4vDecCtx* ptCtx, void* pvMem, int32_t s32Line) {
    VideoMemFree_c(ptCtx->pMemCtx, pvMem, kTagFree, kFile, s32Line);
}

void FreeIfThere(const Mp4vDecCtx* ptCtx, void* pvMem, int32_t s32Line) {
    if (pvMem) Free(ptCtx, pvMem, s32Line);
}

// One spare row of records lies above the picture.
MbInfo* MbInfoStart(const Mp4vDecCtx* ptCtx) {
    return ptCtx->ptMbInfo - (Macroblocks(ptCtx->u32OpenWidth) + 1);
}

void InitInstance(Mp4vDecCtx* ptCtx, const Mp4vDecOpenParams* ptParams) {
    ptCtx->u32Width = ptCtx->u32OpenWidth = ptParams->u32Width;
    ptCtx->u32Height = ptCtx->u32OpenHeight = ptParams->u32Height;
    ptCtx->u32LumaStride = Padded(ptCtx->u32Width);
    ptCtx->u32PaddedHeight = Padded(ptCtx->u32Height);
    ptCtx->u32MbWidth = Macroblocks(ptCtx->u32Width);
    ptCtx->u32MbHeight = Macroblocks(ptCtx->u32Height);
    ptCtx->s32VopTimeIncr = -1;
    ptCtx->s32PrevVopTimeIncr = -1;
    ptCtx->u32HeaderStatus = ERR_VID_MPEG4DEC_VOL_NOT_FOUND;
    ptCtx->s32DeblockQpThr = 10;
}

uint32_t AllocMbInfo(Mp4vDecCtx* ptCtx) {
    const uint64_t u64Row = (uint64_t)ptCtx->u32MbWidth + 1;
    const uint64_t u64Bytes = ((uint64_t)ptCtx->u32MbHeight + 1) * u64Row * sizeof(MbInfo);
    void* const pvStart = Alloc(ptCtx, u64Bytes, 375);
    if (!pvStart) return ERR_VID_MPEG4DEC_MALLOC_CTX_INFO;
    memset(pvStart, 0, (size_t)u64Bytes);
    ptCtx->ptMbInfo = static_cast<MbInfo*>(pvStart) + u64Row;
    return MP4VDEC_OK;
}

uint8_t* AllocCleared(const Mp4vDecCtx* ptCtx, uint32_t u32Bytes, int32_t s32Line) {
    void* const pvMem = Alloc(ptCtx, u32Bytes, s32Line);
    if (pvMem) memset(pvMem, 0, u32Bytes);
    return static_cast<uint8_t*>(pvMem);
}

uint32_t AllocWorkBuffers(Mp4vDecCtx* ptCtx) {
    if ((ptCtx->pu8WorkBuf512 = AllocCleared(ptCtx, kLumaWorkBytes, 388)) &&
        (ptCtx->pu8WorkBuf128A = AllocCleared(ptCtx, kChromaWorkBytes, 396)) &&
        (ptCtx->pu8WorkBuf128B = AllocCleared(ptCtx, kChromaWorkBytes, 404))) {
        return MP4VDEC_OK;
    }
    Free(ptCtx, MbInfoStart(ptCtx), 446);
    return ERR_VID_MPEG4DEC_MALLOC_CTX_INFO;
}

uint32_t AllocPictures(Mp4vDecCtx* ptCtx) {
    if (VopDecCreate(&ptCtx->tCurFrame, ptCtx)) return ERR_VID_MPEG4DEC_MALLOC_CUR_FRAME;
    if (VopDecCreate(&ptCtx->tRefFrame, ptCtx)) return ERR_VID_MPEG4DEC_MALLOC_REF_FRAME;
    const uint32_t u32Status = AllocMbInfo(ptCtx);
    return u32Status ? u32Status : AllocWorkBuffers(ptCtx);
}

void Unwind(Mp4vDecCtx* ptCtx) {
    VopDecRelease(ptCtx);
    FreeIfThere(ptCtx, ptCtx->pu8QpelBuf, 453);
    FreeIfThere(ptCtx, ptCtx->pu8WorkBuf512, 458);
    FreeIfThere(ptCtx, ptCtx->pu8WorkBuf128A, 463);
    FreeIfThere(ptCtx, ptCtx->pu8WorkBuf128B, 468);
    Free(ptCtx, ptCtx, 471);
}

void ApplyExtensions(Mp4vDecCtx* ptCtx, uint32_t u32ExtParam) {
    if (!u32ExtParam) return;
    uint32_t u32Record = 0;
    const Mp4vDecTypeSlot tSlot = {MP4VDEC_EXT_PIC_STRUCT, &u32Record};
    MPEG4DecParseReservedType(u32ExtParam, &tSlot, 1);
    if (!u32Record) return;
    uint32_t au32Record[4];
    // NOLINTNEXTLINE(performance-no-int-to-ptr): the interface hands addresses as 32 bits
    memcpy(au32Record, reinterpret_cast<const void*>((uintptr_t)u32Record), sizeof au32Record);
    if (au32Record[3] == 2) {
        ptCtx->u32PicStructHint = 2;
        ptCtx->u32ForceDeinterlace = 1;
    }
}

uint32_t DeinterlaceMode(const Mp4vDecCtx* ptCtx, uint32_t u32CtrlFlags) {
    if (ptCtx->u32ForceDeinterlace == 1) return kModeFieldStacked;
    const uint32_t w = ptCtx->u32Width;
    const uint32_t h = ptCtx->u32Height;
    if ((w != 352 && w != 704 && w != 720) || (h != 576 && h != 480)) return 0;
    uint32_t u32Mode = 0;
    if (ptCtx->u32PicStructHint == 2) u32Mode |= kModeFieldStacked;
    if (u32CtrlFlags & MP4VDEC_CTRL_DEINTERLACE) u32Mode |= kModeDeinterlace;
    return u32Mode;
}

void ExchangePlanes(Mp4vDecCtx* ptCtx) {
    VopFrame& tCur = ptCtx->tCurFrame;
    VopFrame& tRef = ptCtx->tRefFrame;
    const VopFrame tOld = tCur;
    tCur.pu8Y = tRef.pu8Y;
    tCur.pu8U = tRef.pu8U;
    tCur.pu8V = tRef.pu8V;
    tRef.pu8Y = tOld.pu8Y;
    tRef.pu8U = tOld.pu8U;
    tRef.pu8V = tOld.pu8V;
}

void RepeatReference(const Mp4vDecCtx* ptCtx, uint8_t* pu8Dst, uint32_t u32Mode) {
    const VopFrame& tRef = ptCtx->tRefFrame;
    if (pu8Dst) {
        VopOutput(tRef.pu8Y, tRef.pu8U, tRef.pu8V, pu8Dst, (int32_t)ptCtx->u32LumaStride, (int32_t)ptCtx->u32Width,
                  (int32_t)ptCtx->u32Height, (int32_t)(u32Mode & kModeFieldStacked),
                  (int32_t)(u32Mode & kModeDeinterlace));
    }
}

// Decodes the VOP behind its header and makes it the reference.
uint32_t DecodeVop(Mp4vDecCtx* ptCtx, uint32_t u32CtrlFlags, Mp4vDecOutArgs* ptOut) {
    uint8_t* const pu8Dst = ptOut->pu8Dst;
    ptCtx->s32DeblockQpThr = (u32CtrlFlags & MP4VDEC_CTRL_DEBLOCK_MASK) < 3 ? 10 : 30;
    ptCtx->u32PostProcOn = pu8Dst && (ptCtx->s16VopCodingType == VOP_I || !(u32CtrlFlags & MP4VDEC_CTRL_INTRA_ONLY));
    if (ptCtx->s16Interlaced == 1) ptCtx->u32PicStructHint = 1;
    const uint32_t u32Mode = DeinterlaceMode(ptCtx, u32CtrlFlags);

    uint32_t u32Status = MP4VDEC_OK;
    switch (ptCtx->s16VopCodingType) {
        case VOP_P:
            ptOut->u32PicType = MP4VDEC_PIC_PREDICTED;
            ClearCondemnedMbInfo(ptCtx);
            u32Status = PVopDecode(ptCtx, pu8Dst, u32Mode);
            break;
        case VOP_NOT_CODED:
            ptOut->u32PicType = MP4VDEC_PIC_NOT_CODED;
            RepeatReference(ptCtx, pu8Dst, u32Mode);
            return MP4VDEC_OK;
        case VOP_I:
            ptOut->u32PicType = MP4VDEC_PIC_INTRA;
            ClearCondemnedMbInfo(ptCtx);
            u32Status = IVopDecode(ptCtx, pu8Dst, u32Mode);
            break;
        default:
            return ERR_VID_MPEG4DEC_UNSUPPORT_VOPTYPE;
    }
    if (!u32Status) ExchangePlanes(ptCtx);
    return u32Status;
}

}  // namespace

uint32_t Mp4vDecoderOpen(void** ppvHandle, const Mp4vDecOpenParams* ptParams, void* pvMemCtx) {
    if (!ptParams || !ppvHandle || !pvMemCtx) return ERR_VID_MPEG4DEC_OPEN_INPUT_POINT;
    if (ptParams->u32Width % 16 || ptParams->u32Height % 8) return ERR_VID_MPEG4DEC_INI_WIDTH_HEIGHT;
    auto* const ptCtx = static_cast<Mp4vDecCtx*>(MemAlloc(pvMemCtx, sizeof(Mp4vDecCtx), kTagInstance, kFile, 312));
    if (!ptCtx) return ERR_VID_MPEG4DEC_MALLOC_DEC_HANDLE;
    memset(ptCtx, 0, sizeof *ptCtx);
    ptCtx->pMemCtx = pvMemCtx;

    uint32_t u32Status = ERR_VID_MPEG4DEC_MALLOC_QPEL_BUF;
    ptCtx->pu8QpelBuf = static_cast<uint8_t*>(Alloc(ptCtx, kQpelBufBytes, 325));
    if (ptCtx->pu8QpelBuf) {
        *ppvHandle = ptCtx;
        InitInstance(ptCtx, ptParams);
        u32Status = AllocPictures(ptCtx);
        if (u32Status) *ppvHandle = nullptr;
    }
    if (u32Status) {
        Unwind(ptCtx);
        return u32Status;
    }
    ApplyExtensions(ptCtx, ptParams->u32ExtParam);
    Mp4vDecIdct8x8Init_c();
    InitDecVlcTables_c();
    return MP4VDEC_OK;
}

uint32_t Mp4vDecoderClose(void* pvHandle) {
    if (!pvHandle) return ERR_VID_MPEG4DEC_CLOSE_INPUT_POINT;
    auto* const ptCtx = static_cast<Mp4vDecCtx*>(pvHandle);
    Free(ptCtx, ptCtx->pu8QpelBuf, 497);
    Free(ptCtx, MbInfoStart(ptCtx), 500);
    Free(ptCtx, ptCtx->pu8WorkBuf512, 502);
    Free(ptCtx, ptCtx->pu8WorkBuf128A, 503);
    Free(ptCtx, ptCtx->pu8WorkBuf128B, 504);
    VopDecRelease(ptCtx);
    Free(ptCtx, ptCtx, 507);
    return MP4VDEC_OK;
}

uint32_t Mp4vDecoderProcess(void* pvHandle, const Mp4vDecInArgs* ptIn, Mp4vDecOutArgs* ptOut) {
    if (!pvHandle || !ptOut || !ptIn) return ERR_VID_MPEG4DEC_PROC_INPUT_POINT;
    if (ptIn->u32BufLen == 0) return ERR_VID_MPEG4DEC_END_VALUE;
    if (ptIn->u8EndOfStream == 1) {
        ptOut->u8EndOfStream = 1;
        return MP4VDEC_END_OF_STREAM;
    }
    ptOut->u64TimeStamp = ptIn->u64TimeStamp;
    if (!ptIn->pu8Buf) return ERR_VID_MPEG4DEC_PROC_INPUT_POINT;

    auto* const ptCtx = static_cast<Mp4vDecCtx*>(pvHandle);
    BsInit(&ptCtx->tBs, ptIn->pu8Buf, ptIn->u32BufLen);
    uint32_t u32Status = BsHeaders(ptCtx);
    if (!u32Status) u32Status = ptCtx->u32HeaderStatus;
    if (!u32Status) u32Status = DecVopHeader(ptCtx);
    if (!u32Status) u32Status = DecodeVop(ptCtx, ptIn->u32CtrlFlags, ptOut);
    if (u32Status) return u32Status;

    ClearMMX(0);
    ptOut->u32Width = ptCtx->u32Width;
    ptOut->u32Height = ptCtx->u32Height;
    ptOut->u32FrameReady = 1;
    return MP4VDEC_OK;
}

uint32_t Mp4vPreDecBs(void* pvHandle, const Mp4vDecInArgs* ptIn, uint32_t* pu32Width, uint32_t* pu32Height) {
    if (!pvHandle || !ptIn || !ptIn->pu8Buf || !pu32Width || !pu32Height) return ERR_VID_MPEG4DEC_PROC_INPUT_POINT;
    auto* const ptCtx = static_cast<Mp4vDecCtx*>(pvHandle);
    BsInit(&ptCtx->tBs, ptIn->pu8Buf, ptIn->u32BufLen);
    const uint32_t u32Status = BsHeaders(ptCtx);
    if (u32Status) return u32Status;
    *pu32Width = ptCtx->u32Width;
    return *pu32Height = ptCtx->u32Height;
}

// ---- Diagnostics

const char* const pas8MP4DecSelfAnalyzeErrorCode[MP4VDEC_ERROR_COUNT] = {
    "ERR_VID_MPEG4DEC_START_VALUE",
    "ERR_VID_MPEG4DEC_OPEN_INPUT_POINT",
    "ERR_VID_MPEG4DEC_PROC_INPUT_POINT",
    "ERR_VID_MPEG4DEC_CLOSE_INPUT_POINT",
    "ERR_VID_MPEG4DEC_SETPARAM_INPUT_POINT",
    "ERR_VID_MPEG4DEC_GETSTATUS_INPUT_POINT",
    "ERR_VID_MPEG4DEC_GETMEMSIZE_INPUT_POINT",
    "ERR_VID_MPEG4DEC_MALLOC_DEC_HANDLE",
    "ERR_VID_MPEG4DEC_MALLOC_DEC_VOP",
    "ERR_VID_MPEG4DEC_MALLOC_CUR_FRAME",
    "ERR_VID_MPEG4DEC_MALLOC_REF_FRAME",
    "ERR_VID_MPEG4DEC_MALLOC_MB_BUF",
    "ERR_VID_MPEG4DEC_MALLOC_CTX_INFO",
    "ERR_VID_MPEG4DEC_MALLOC_QPEL_BUF",
    "ERR_VID_MPEG4DEC_MALLOC_TRANS_BUF",
    "ERR_VID_MPEG4DEC_UNSUPPORT_VOTYPEID",
    "ERR_VID_MPEG4DEC_UNSUPPORT_SHAPE",
    "ERR_VID_MPEG4DEC_UNSUPPORT_OBMC",
    "ERR_VID_MPEG4DEC_UNSUPPORT_SPRITE",
    "ERR_VID_MPEG4DEC_UNSUPPORT_COMPLXES",
    "ERR_VID_MPEG4DEC_UNSUPPORT_RES",
    "ERR_VID_MPEG4DEC_UNSUPPORT_DP",
    "ERR_VID_MPEG4DEC_UNSUPPORT_RRVOP",
    "ERR_VID_MPEG4DEC_UNSUPPORT_SCALABLE",
    "ERR_VID_MPEG4DEC_UNSUPPORT_VSOTYPE",
    "ERR_VID_MPEG4DEC_UNSUPPORT_BFRAME",
    "ERR_VID_MPEG4DEC_OVER_MAXSUPPORT_SIZE",
    "ERR_VID_MPEG4DEC_UNSUPPORT_VOPTYPE",
    "ERR_VID_MPEG4DEC_USERDATA",
    "ERR_VID_MPEG4DEC_TIMEBASE",
    "ERR_VID_MPEG4DEC_BITSTREAM",
    "ERR_VID_MPEG4DEC_COEFF",
    "ERR_VID_MPEG4DEC_GET_VERSION",
    "ERR_VID_MPEG4DEC_OVER_INIT_SIZE",
    "ERR_VID_MPEG4DEC_INI_WIDTH_HEIGHT",
    "ERR_VID_MPEG4DEC_VOL_NOT_FOUND",
    "ERR_VID_MPEG4DEC_END_VALUE",
};

uint32_t Mp4vDecoderSetParams(void* /*pvHandle*/, void* /*pvParams*/) {
    return MP4VDEC_OK;
}

uint32_t Mp4vDecoderDebug(void* /*pvHandle*/, void* /*pvArgs*/) {
    return MP4VDEC_OK;
}

uint32_t Mp4vDecoderGetVersion(char* ps8Buf, int32_t s32Size, int32_t* ps32Length) {
    if (s32Size <= 99 || !ps8Buf || !ps32Length) return ERR_VID_MPEG4DEC_GET_VERSION;
    // The date is part of the version: the same sources give the same bytes.
    *ps32Length = snprintf(ps8Buf, (size_t)s32Size, "Version: video.mpeg4dec_v900.004, Compile time: %s %s.\n",
                           "Apr 22 2020", "18:13:52");
    return MP4VDEC_OK;
}

uint32_t Mp4vDecoderGetStatus(void* pvHandle, Mp4vDecStatus* ptStatus) {
    if (!pvHandle || !ptStatus) return ERR_VID_MPEG4DEC_GETSTATUS_INPUT_POINT;
    const auto* const ptCtx = static_cast<const Mp4vDecCtx*>(pvHandle);
    ptStatus->u32CodecId = MP4VDEC_CODEC_ID;
    ptStatus->u32OpenWidth = ptCtx->u32OpenWidth;
    ptStatus->u32OpenHeight = ptCtx->u32OpenHeight;
    return MP4VDEC_OK;
}

uint32_t Mp4vDecoderAnalyzeErrorCode(uint32_t u32Code, int32_t s32Size, char* ps8Buf) {
    if (u32Code - ERR_VID_MPEG4DEC_START_VALUE >= MP4VDEC_ERROR_COUNT) return MP4VDEC_ANALYZE_UNKNOWN_CODE;
    const char* const ps8Name = pas8MP4DecSelfAnalyzeErrorCode[u32Code & 0xFFFF];
    const size_t length = strlen(ps8Name);
    // A negative size compares as a huge one, and a name of exactly s32Size characters passes: both part of the
    // interface.
    if (length > (size_t)(ptrdiff_t)s32Size || !ps8Buf) return MP4VDEC_ANALYZE_SMALL_BUFFER;
    memcpy(ps8Buf, ps8Name, length + 1);
    return MP4VDEC_OK;
}

uint32_t Mp4vDecoderGetMemSize(const Mp4vDecOpenParams* ptParams, uint32_t* pu32Size) {
    if (!pu32Size || !ptParams) return ERR_VID_MPEG4DEC_GETMEMSIZE_INPUT_POINT;
    const uint32_t u32MbWidth = (ptParams->u32Width + 15) >> 4;
    const uint32_t u32MbHeight = (ptParams->u32Height + 15) >> 4;
    *pu32Size = (u32MbHeight + 1) * (u32MbWidth + 1) * 236 + 2864 + (u32MbWidth + 4) * (u32MbHeight + 4) * 768;
    return MP4VDEC_OK;
}

// ---- Descriptor

const VidDecFuncs tMp4vDec = {
    Mp4vDecoderOpen,      Mp4vDecoderProcess,          Mp4vDecoderClose,
    Mp4vDecoderSetParams, Mp4vDecoderGetVersion,       Mp4vDecoderGetStatus,
    Mp4vDecoderDebug,     Mp4vDecoderAnalyzeErrorCode, Mp4vDecoderGetMemSize,
};

const VidDecDescriptor tVidDec_MPEG4 = {MP4VDEC_CODEC_ID, &tMp4vDec, "MPEG4_DEC"};

const VidDecDescriptor* const ptVidDec_MPEG4 = &tVidDec_MPEG4;
