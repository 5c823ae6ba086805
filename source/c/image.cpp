// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

#include "c/image.h"

#include <string.h>

#include "c/vec.h"
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

struct Plane {
    uint8_t* pu8;  // first sample inside the border
    ptrdiff_t stride, width, height;
};

// The sides go first: the rows copied up and down then carry the corners.
void ExtendPlane(const Plane& t, uint32_t u32Border, Mp4vMemSet* const& pfSet, Mp4vMemCopy* const& pfCopy) {
    const ptrdiff_t border = (ptrdiff_t)u32Border;
    for (ptrdiff_t y = 0; y < t.height; y++) {
        uint8_t* const pu8Row = t.pu8 + y * t.stride;
        pfSet(pu8Row - border, pu8Row[0], u32Border);
        pfSet(pu8Row + t.width, pu8Row[t.width - 1], u32Border);
    }
    uint8_t* const pu8First = t.pu8 - border;
    uint8_t* const pu8Last = pu8First + (t.height - 1) * t.stride;
    for (ptrdiff_t y = 1; y <= border; y++) {
        pfCopy(pu8First - y * t.stride, pu8First, (uint32_t)t.stride);
        pfCopy(pu8Last + y * t.stride, pu8Last, (uint32_t)t.stride);
    }
}

// ---- The same with the portable kernels

template <int kColumns>
MP4V_VEC void RepeatColumns(uint8_t* pu8Row, ptrdiff_t stride, int rows) {
    Bytes16 av[(kColumns + 8) / 16];
    for (int i = 0; i < kColumns / 16; i++) av[i] = LoadBytes16(pu8Row + 16 * i);
    if (kColumns == 8) av[0] = LoadBytes8(pu8Row);
#pragma GCC unroll 4
    for (int y = 0; y < rows; y++) {
        pu8Row += stride;
        for (int i = 0; i < kColumns / 16; i++) StoreBytes16(pu8Row + 16 * i, av[i]);
        if (kColumns == 8) StoreBytes8(pu8Row, av[0]);
    }
}

// Copies a row, a multiple of 8 samples, to rows at a stride from it.
template <int kRows>
__attribute__((noinline)) void RepeatRow(uint8_t* pu8Row, ptrdiff_t columns, ptrdiff_t stride) {
    for (; columns >= 64; columns -= 64) {
        RepeatColumns<64>(pu8Row, stride, kRows);
        pu8Row += 64;
    }
    for (; columns >= 16; columns -= 16) {
        RepeatColumns<16>(pu8Row, stride, kRows);
        pu8Row += 16;
    }
    if (columns >= 8) RepeatColumns<8>(pu8Row, stride, kRows);
}

template <int kBorder>
void ExtendPlane(const Plane& t) {
    uint8_t* pu8Row = t.pu8;
    for (ptrdiff_t y = 0; y < t.height; y++) {
        const Bytes16 vLeft = Bytes16{} + pu8Row[0];
        for (int x = 0; x < kBorder; x += 16) StoreBytes16(pu8Row - kBorder + x, vLeft);
        const Bytes16 vRight = Bytes16{} + pu8Row[t.width - 1];  // of a picture without columns: from the left border
        for (int x = 0; x < kBorder; x += 16) StoreBytes16(pu8Row + t.width + x, vRight);
        pu8Row += t.stride;
    }
    RepeatRow<kBorder>(t.pu8 - kBorder, t.stride, -t.stride);
    RepeatRow<kBorder>(t.pu8 - kBorder + (t.height - 1) * t.stride, t.stride, t.stride);
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
    const Plane tY = {ptFrame->pu8Y, stride, width, height};
    const Plane tU = {ptFrame->pu8U, stride / 2, width / 2, height / 2};
    const Plane tV = {ptFrame->pu8V, stride / 2, width / 2, height / 2};
    if (MemSetAlign16 == MP4DecMemSet_c && MemCopyAlign16 == MP4DecMemCopy_c) {
        ExtendPlane<kLumaBorder>(tY);
    } else {
        ExtendPlane(tY, kLumaBorder, MemSetAlign16, MemCopyAlign16);
    }
    if (MemSet16 == MP4DecMemSet_c && MemCopy8 == MP4DecMemCopy_c) {
        ExtendPlane<kLumaBorder / 2>(tU);
        ExtendPlane<kLumaBorder / 2>(tV);
    } else {
        ExtendPlane(tU, kLumaBorder / 2, MemSet16, MemCopy8);
        ExtendPlane(tV, kLumaBorder / 2, MemSet16, MemCopy8);
    }
}
