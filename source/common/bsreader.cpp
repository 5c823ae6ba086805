// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors
#include "common/bsreader.h"

uint64_t BsLoadNearEnd(const uint8_t* pu8BufStart, size_t offset, size_t length, uint32_t u32Crossed) {
    uint32_t u32Word = 0;
    for (size_t i = offset; i < offset + 4; i++)
        u32Word = u32Word << 8 | (i < (uint64_t)length + MP4VDEC_CHUNK_PADDING ? pu8BufStart[i] : 0u);
    const size_t consumed = offset - ((32 - u32Crossed) >> 3);  // whole bytes touched so far
    return (uint64_t)(consumed > length) << 32 | u32Word;
}
