// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

#include "c/image.h"

#include <string.h>

#include "common/kernels.h"

namespace {

constexpr char kFile[] = "../source/c/image.cpp";

// Y, U and V follow one another in the allocation, each with its border.
void LayPlanes(VopFrame* ptFrame, size_t stride, size_t height) {
    const size_t chroma_stride = stride / 2;
    ptFrame->pu8Y = ptFrame->pu8Base + kLumaBorder * stride + kLumaBorder;
    ptFrame->pu8U = ptFrame->pu8Base + stride * height + kLumaBorder / 2 * chroma_stride + kLumaBorder / 2;
    ptFrame->pu8V = ptFrame->pu8U + chroma_stride * (height / 2);
}

// The sides go first: the rows copied up and down then carry the corners.
void ExtendPlane(uint8_t* pu8Plane, ptrdiff_t stride, ptrdiff_t width, ptrdiff_t height, uint32_t u32Border,
                 Mp4vMemSet* const& pfSet, Mp4vMemCopy* const& pfCopy) {
    const ptrdiff_t border = (ptrdiff_t)u32Border;
    for (ptrdiff_t y = 0; y < height; y++) {
        uint8_t* const pu8Row = pu8Plane + y * stride;
        pfSet(pu8Row - border, pu8Row[0], u32Border);
        pfSet(pu8Row + width, pu8Row[width - 1], u32Border);
    }
    const uint8_t* const pu8First = pu8Plane - border;
    const uint8_t* const pu8Last = pu8First + (height - 1) * stride;
    for (ptrdiff_t y = 1; y <= border; y++) {
        pfCopy(pu8Plane - border - y * stride, pu8First, (uint32_t)stride);
        pfCopy(pu8Plane - border + (height - 1 + y) * stride, pu8Last, (uint32_t)stride);
    }
}

}  // namespace

uint32_t VopDecCreate(VopFrame* ptFrame, Mp4vDecCtx* ptCtx) {
    const uint64_t u64Bytes = FrameBytes(ptCtx->u32LumaStride, ptCtx->u32PaddedHeight);
    void* const pvBase = MemAlloc(ptCtx->pMemCtx, u64Bytes, kTagMemory, kFile, 49);
    if (!pvBase) {
        for (void*& pvFrame : ptCtx->apFrameAllocs) {
            if (pvFrame) VideoMemFree_c(ptCtx->pMemCtx, pvFrame, kTagFree, kFile, 59);
            pvFrame = nullptr;  // or the release that follows would free it again
        }
        return ERR_VID_MPEG4DEC_MALLOC_DEC_VOP;
    }
    memset(pvBase, 0, (size_t)u64Bytes);
    ptCtx->apFrameAllocs[ptCtx->s16FrameAllocCount++] = pvBase;
    ptFrame->pu8Base = static_cast<uint8_t*>(pvBase);
    LayPlanes(ptFrame, ptCtx->u32LumaStride, ptCtx->u32PaddedHeight);
    return MP4VDEC_OK;
}

void VopDecReset(VopFrame* ptFrame, Mp4vDecCtx* ptCtx, uint32_t u32Width, uint32_t u32Height) {
    ptCtx->u32LumaStride = ((u32Width + 15) & ~15u) + 2 * kLumaBorder;
    ptCtx->u32PaddedHeight = ((u32Height + 15) & ~15u) + 2 * kLumaBorder;
    ptCtx->u32MbWidth = (u32Width + 15) >> 4;
    ptCtx->u32MbHeight = (u32Height + 15) >> 4;
    LayPlanes(ptFrame, ptCtx->u32LumaStride, ptCtx->u32PaddedHeight);
}

void VopDecRelease(Mp4vDecCtx* ptCtx) {
    for (int i = 0; i < ptCtx->s16FrameAllocCount; i++) {
        void* const pvFrame = ptCtx->apFrameAllocs[i];
        if (pvFrame) VideoMemFree_c(ptCtx->pMemCtx, pvFrame, kTagFree, kFile, 141);
    }
}

void VopEdgeExpand(Mp4vDecCtx* ptCtx, const VopFrame* ptFrame) {
    const ptrdiff_t stride = (ptrdiff_t)ptCtx->u32LumaStride;
    const ptrdiff_t width = (ptrdiff_t)ptCtx->u32MbWidth * 16;
    const ptrdiff_t height = (ptrdiff_t)ptCtx->u32MbHeight * 16;
    ExtendPlane(ptFrame->pu8Y, stride, width, height, kLumaBorder, MemSetAlign16, MemCopyAlign16);
    ExtendPlane(ptFrame->pu8U, stride / 2, width / 2, height / 2, kLumaBorder / 2, MemSet16, MemCopy8);
    ExtendPlane(ptFrame->pu8V, stride / 2, width / 2, height / 2, kLumaBorder / 2, MemSet16, MemCopy8);
}
