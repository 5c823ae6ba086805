// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

// The decoder that the test is linked with, for replays.
#ifndef MP4VDEC_TESTS_SUPPORT_LINKED_DECODER_H_
#define MP4VDEC_TESTS_SUPPORT_LINKED_DECODER_H_

#include <cstdint>

#include "common/context.h"
#include "vector_replay.h"

namespace mp4v::test {

// DecoderApi::current_size
inline void CurrentSize(const void* handle, uint32_t* width, uint32_t* height) {
    const auto* const ctx = static_cast<const Mp4vDecCtx*>(handle);
    *width = ctx->u32Width;
    *height = ctx->u32Height;
}

inline const DecoderApi kLinkedDecoder = {ptVidDec_MPEG4->ptFuncs, Mp4vPreDecBs, CurrentSize};

}  // namespace mp4v::test

#endif  // MP4VDEC_TESTS_SUPPORT_LINKED_DECODER_H_
