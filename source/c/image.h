// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

// The frame store.
#ifndef MP4VDEC_SOURCE_C_IMAGE_H_
#define MP4VDEC_SOURCE_C_IMAGE_H_

#include "common/context.h"

enum : int32_t {
    kLumaBorder = 32,  // samples on every side; chroma half of it
    kTagInstance = -38,
    kTagMemory = -36,
    kTagFree = -38,
};

// Allocates unless the byte count does not fit the 32 bits that the memory service takes.
static inline void* MemAlloc(void* pvMemCtx, uint64_t u64Size, int32_t s32Tag, const char* ps8File, int32_t s32Line) {
    if (u64Size > UINT32_MAX) return nullptr;
    return VideoMemMalloc_c(pvMemCtx, (uint32_t)u64Size, 16, s32Tag, ps8File, s32Line);
}

static inline uint64_t FrameBytes(uint64_t u64LumaStride, uint64_t u64PaddedHeight) {
    return u64LumaStride * u64PaddedHeight * 3 / 2;
}

extern "C" {

// Allocates a zeroed frame of the instance's current size and records the allocation in the instance.
// Returns 0, or MALLOC_DEC_VOP after freeing all recorded frames.
MP4VDEC_API uint32_t VopDecCreate(VopFrame* ptFrame, Mp4vDecCtx* ptCtx);

// Lays an existing frame out for a size that fits into its allocation, and sets the instance's strides and macroblock
// counts.
MP4VDEC_API void VopDecReset(VopFrame* ptFrame, Mp4vDecCtx* ptCtx, uint32_t u32Width, uint32_t u32Height);

// Frees all recorded frames.
MP4VDEC_API void VopDecRelease(Mp4vDecCtx* ptCtx);

// Fills the frame's borders from its edge samples, so that vectors may point outside the picture.
MP4VDEC_API void VopEdgeExpand(Mp4vDecCtx* ptCtx, const VopFrame* ptFrame);
}

#endif  // MP4VDEC_SOURCE_C_IMAGE_H_
