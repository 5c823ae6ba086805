// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors
#include "common/bsreader.h"

uint32_t BsLoadNearEnd(const uint8_t* pu8BufStart, uint64_t u64Offset, uint32_t u32BufLen) {
    const uint64_t u64End = (uint64_t)u32BufLen + MP4VDEC_CHUNK_PADDING;
    uint32_t u32Word = 0;
    for (uint64_t i = u64Offset; i < u64Offset + 4; i++) u32Word = u32Word << 8 | (i < u64End ? pu8BufStart[i] : 0u);
    return u32Word;
}
