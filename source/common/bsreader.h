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
#ifdef MP4VDEC_COUNT_ONCE  // coverage: every branch once instead of in each inlined copy
#define MP4V_INLINE inline
#else
#define MP4V_INLINE inline __attribute__((always_inline))
#endif

static MP4V_INLINE uint32_t LoadBigEndian32(const uint8_t* pu8) {
    uint32_t u32;
    memcpy(&u32, pu8, 4);
#if __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
    u32 = __builtin_bswap32(u32);
#endif
    return u32;
}

// The word at a byte offset behind the end of the chunk. Only the chunk and the 8 bytes behind it exist; what lies
// further reads as 0. u32Crossed: where the step of the reader that needs the word ends, in bits behind the 4 bytes
// before the last 4. Bit 32 of the result: that is behind the end.
extern "C" uint64_t BsLoadNearEnd(const uint8_t* pu8BufStart, size_t offset, size_t length, uint32_t u32Crossed);

struct BsCursor {
    uint64_t u64Window;  // u32CurWord:u32NextWord
    uint32_t u32BitPos;  // [0, 31]
    uint32_t u32BsError;
    const uint8_t* pu8BufStart;
    size_t offset;  // of pu32ReadPtr
    size_t length;  // u32BufLen

    explicit MP4V_INLINE BsCursor(const BsReader& tBs)
        : u64Window((uint64_t)tBs.u32CurWord << 32 | tBs.u32NextWord),
          u32BitPos(tBs.u32BitPos),
          u32BsError(tBs.u32BsError),
          pu8BufStart(tBs.pu8BufStart),
          offset((uintptr_t)tBs.pu32ReadPtr - (uintptr_t)tBs.pu8BufStart),
          length(tBs.u32BufLen) {}

    MP4V_INLINE void StoreTo(BsReader* ptBs) const {
        ptBs->u32CurWord = (uint32_t)(u64Window >> 32);
        ptBs->u32NextWord = (uint32_t)u64Window;
        ptBs->u32BitPos = u32BitPos;
        // NOLINTNEXTLINE(performance-no-int-to-ptr): a pointer may not be counted beyond the chunk
        ptBs->pu32ReadPtr = reinterpret_cast<const uint32_t*>((uintptr_t)pu8BufStart + offset);
        ptBs->u32BsError = u32BsError;
    }

    // Moves another cursor on the same chunk here.
    MP4V_INLINE void MoveTo(BsCursor* ptOther) const {
        ptOther->u64Window = u64Window;
        ptOther->u32BitPos = u32BitPos;
        ptOther->offset = offset;
        ptOther->u32BsError = u32BsError;
    }

    // 1 <= n <= 32
    MP4V_INLINE uint32_t Show(uint32_t u32Bits) const { return (uint32_t)((u64Window << u32BitPos) >> (64 - u32Bits)); }

    // 0 <= n <= 32
    MP4V_INLINE void Skip(uint32_t u32Bits) { SkipTwice(u32Bits, 0); }

    // Skip(u32First), then Skip(u32Second); together at most 32.
    MP4V_INLINE void SkipTwice(uint32_t u32First, uint32_t u32Second) {
        u32BitPos += u32First + u32Second;
        if (u32BitPos & 32) {
            u32BitPos -= 32;
            Refill(u32BitPos, u32Second);
        }
    }

    // Skip while IsFarFromEnd, which is not looked at.
    MP4V_INLINE void SkipFar(uint32_t u32Bits) {
        u32BitPos += u32Bits;
        if (!(u32BitPos & 32)) return;
        u32BitPos -= 32;
        u64Window = u64Window << 32 | LoadBigEndian32(pu8BufStart + offset);
        offset += 4;
    }

    // 1 <= n <= 32
    MP4V_INLINE uint32_t Read(uint32_t u32Bits) {
        const uint32_t u32Value = Show(u32Bits);
        Skip(u32Bits);
        return u32Value;
    }

    // Nothing can have been read past the end, and the next word can be loaded whole: it begins inside the chunk or
    // right behind it, and is at most a word ahead of what is consumed.
    MP4V_INLINE bool IsFarFromEnd() const { return MP4V_LIKELY(offset <= length); }

    // Takes in the next word. u32BitPosition: where the reader stands in the word before. u32Last: how many bits it
    // came by a step of their own. Where the end of the chunk is near, it matters which step crosses into a word.
    MP4V_INLINE void Refill(uint32_t u32BitPosition, uint32_t u32Last) {
        uint32_t u32Word;
        if (IsFarFromEnd()) {
            u32Word = LoadBigEndian32(pu8BufStart + offset);
        } else {
            const uint64_t u64 = BsLoadNearEnd(pu8BufStart, offset, length,
                                               u32BitPosition >= u32Last ? u32BitPosition - u32Last : u32BitPosition);
            if (u64 >> 32) u32BsError = ERR_VID_MPEG4DEC_BITSTREAM;
            u32Word = (uint32_t)u64;
        }
        offset += 4;
        u64Window = u64Window << 32 | u32Word;
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
