// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

// Reading bits from a chunk.
//
// Two forms with the same results: BsReader, the record in the instance, for headers; BsCursor, the same state in
// registers, for loops over macroblock data. A cursor is loaded from the reader and stored back once.
#ifndef MP4VDEC_SOURCE_COMMON_BSREADER_H_
#define MP4VDEC_SOURCE_COMMON_BSREADER_H_

#include <string.h>

#include "common/context.h"

#define MP4V_LIKELY(x) __builtin_expect(!!(x), 1)
#define MP4V_UNLIKELY(x) __builtin_expect(!!(x), 0)
#define MP4V_INLINE inline __attribute__((always_inline))

static MP4V_INLINE uint32_t LoadBigEndian32(const uint8_t* pu8) {
    uint32_t u32;
    memcpy(&u32, pu8, 4);
#if __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
    u32 = __builtin_bswap32(u32);
#endif
    return u32;
}

// The word at a byte offset at or near the end of the chunk. Only the chunk and the 8 bytes behind it exist; what lies
// further reads as 0.
extern "C" uint32_t BsLoadNearEnd(const uint8_t* pu8BufStart, uint64_t u64Offset, uint32_t u32BufLen);

struct BsCursor {
    uint64_t u64Bits;    // what is ahead: u64Window << u32BitPos
    uint64_t u64Window;  // u32CurWord:u32NextWord
    uint32_t u32BitPos;  // [0, 31]
    uint32_t u32BsError;
    const uint8_t* pu8ReadPtr;
    const uint8_t* pu8BufStart;
    uint32_t u32BufLen;

    explicit MP4V_INLINE BsCursor(const BsReader& tBs)
        : u64Window((uint64_t)tBs.u32CurWord << 32 | tBs.u32NextWord),
          u32BitPos(tBs.u32BitPos),
          u32BsError(tBs.u32BsError),
          pu8ReadPtr(reinterpret_cast<const uint8_t*>(tBs.pu32ReadPtr)),
          pu8BufStart(tBs.pu8BufStart),
          u32BufLen(tBs.u32BufLen) {
        u64Bits = u64Window << u32BitPos;
    }

    MP4V_INLINE void StoreTo(BsReader* ptBs) const {
        ptBs->u32CurWord = (uint32_t)(u64Window >> 32);
        ptBs->u32NextWord = (uint32_t)u64Window;
        ptBs->u32BitPos = u32BitPos;
        ptBs->pu32ReadPtr = reinterpret_cast<const uint32_t*>(pu8ReadPtr);
        ptBs->u32BsError = u32BsError;
    }

    // 1 <= n <= 32
    MP4V_INLINE uint32_t Show(uint32_t u32Bits) const { return (uint32_t)(u64Bits >> (64 - u32Bits)); }

    // 0 <= n <= 32
    MP4V_INLINE void Skip(uint32_t u32Bits) { SkipTwice(u32Bits, 0); }

    // Skip(u32First), then Skip(u32Second); together at most 32.
    MP4V_INLINE void SkipTwice(uint32_t u32First, uint32_t u32Second) {
        u64Bits <<= u32First + u32Second;
        u32BitPos += u32First + u32Second;
        if (u32BitPos & 32) Refill(u32Second);
    }

    // 1 <= n <= 32
    MP4V_INLINE uint32_t Read(uint32_t u32Bits) {
        const uint32_t u32Value = Show(u32Bits);
        Skip(u32Bits);
        return u32Value;
    }

  private:
    // u32Last: how many of the skipped bits were skipped by a step of their own. Where the end of the chunk is near,
    // it matters which step crosses into the next word.
    MP4V_INLINE void Refill(uint32_t u32Last) {
        u32BitPos -= 32;
        // At most a word ahead of what is consumed: while the word begins inside the chunk or right behind it, it can
        // be loaded whole and nothing can have been read past the end.
        const uint64_t u64Offset = (uint64_t)((uintptr_t)pu8ReadPtr - (uintptr_t)pu8BufStart);
        uint32_t u32Word;
        if (MP4V_LIKELY(u64Offset <= u32BufLen)) {
            u32Word = LoadBigEndian32(pu8ReadPtr);
        } else {
            u32Word = BsLoadNearEnd(pu8BufStart, u64Offset, u32BufLen);
            const uint32_t u32Crossed = u32BitPos >= u32Last ? u32BitPos - u32Last : u32BitPos;
            const uint64_t u64Consumed = u64Offset - ((32 - u32Crossed) >> 3);  // whole bytes touched so far
            if (u64Consumed > u32BufLen) u32BsError = ERR_VID_MPEG4DEC_BITSTREAM;
        }
        // NOLINTNEXTLINE(performance-no-int-to-ptr): a pointer may not be counted beyond the chunk
        pu8ReadPtr = reinterpret_cast<const uint8_t*>((uintptr_t)pu8ReadPtr + 4);
        u64Window = u64Window << 32 | u32Word;
        u64Bits |= (uint64_t)u32Word << u32BitPos;
    }
};

// Sets the reader up on a chunk and clears the sticky error.
static inline void BsInit(BsReader* ptBs, const uint8_t* pu8Buf, uint32_t u32BufLen) {
    ptBs->u32CurWord = LoadBigEndian32(pu8Buf);
    ptBs->u32NextWord = LoadBigEndian32(pu8Buf + 4);
    ptBs->u32BitPos = 0;
    ptBs->pu32ReadPtr = reinterpret_cast<const uint32_t*>(pu8Buf + 8);
    ptBs->pu8BufStart = pu8Buf;
    ptBs->u32BufLen = u32BufLen;
    ptBs->u32BsError = 0;
}

// The next n bits, 0 <= n <= 32; 0 bits are 0.
static inline uint32_t BsShow(const BsReader* ptBs, uint32_t u32Bits) {
    return u32Bits ? BsCursor(*ptBs).Show(u32Bits) : 0;
}

// 0 <= n <= 32
static inline void BsSkip(BsReader* ptBs, uint32_t u32Bits) {
    BsCursor tCursor(*ptBs);
    tCursor.Skip(u32Bits);
    tCursor.StoreTo(ptBs);
}

// 0 <= n <= 32; 0 bits are 0 and nothing is consumed
static inline uint32_t BsRead(BsReader* ptBs, uint32_t u32Bits) {
    const uint32_t u32Value = BsShow(ptBs, u32Bits);
    BsSkip(ptBs, u32Bits);
    return u32Value;
}

static inline void BsByteAlign(BsReader* ptBs) {
    BsSkip(ptBs, (8 - ptBs->u32BitPos % 8) % 8);
}

// True when the position stands on a start code (00 00 01 xx).
static inline bool BsAtStartCode(const BsReader* ptBs) {
    return BsShow(ptBs, 32) >> 8 == 1;
}

#endif  // MP4VDEC_SOURCE_COMMON_BSREADER_H_
