// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

#include "common/postproc.h"

#include <string.h>

#include "c/copy_rows.h"
#include "c/deblock.h"
#include "common/bsreader.h"
#include "common/kernels.h"

namespace {

// The caller's picture. Macroblocks of sizes that are not multiples of 16 reach beyond lines and planes; what stays
// inside the picture is written as it comes, what does not is dropped.
struct Picture {
    uint8_t* pu8Start;
    ptrdiff_t size;

    bool Contains(ptrdiff_t first, ptrdiff_t last) const { return first >= 0 && last < size; }
};

// Places of the macroblock in the picture: offsets of its first samples, and line pitches.
struct MbPlace {
    ptrdiff_t y, u, v;
    ptrdiff_t pitch, chroma_pitch;
};

// Samples around a point of the picture that a filter reads or writes.
struct Window {
    int top, left, bottom, right;  // inclusive, relative to the point
};

// Runs fn(pointer, pitch) on the picture at an offset; on a copy of the window when that is not all inside.
// In the copy lines narrower than the window keep their pitch: there a sample may be part of two lines.
template <typename Fn>
void OnWindow(const Picture& tPic, ptrdiff_t offset, ptrdiff_t pitch, const Window& w, const Fn& fn) {
    if (tPic.Contains(offset + w.top * pitch + w.left, offset + w.bottom * pitch + w.right)) {
        fn(tPic.pu8Start + offset, (int32_t)pitch);
        return;
    }
    constexpr ptrdiff_t kPitch = 32;
    uint8_t au8Copy[16 * kPitch] = {};
    const ptrdiff_t copy_pitch = pitch < kPitch ? pitch : kPitch;
    uint8_t* const pu8Point = au8Copy - w.top * copy_pitch - w.left;
    const auto for_each_inside = [&](const auto& visit) {
        for (ptrdiff_t y = w.top; y <= w.bottom; y++) {
            for (ptrdiff_t x = w.left; x <= w.right; x++) {
                const ptrdiff_t at = offset + y * pitch + x;
                if (tPic.Contains(at, at)) visit(pu8Point[y * copy_pitch + x], tPic.pu8Start[at]);
            }
        }
    };
    for_each_inside([](uint8_t& u8Copy, uint8_t& u8Pic) { u8Copy = u8Pic; });
    fn(pu8Point, (int32_t)copy_pitch);
    for_each_inside([](uint8_t& u8Copy, uint8_t& u8Pic) { u8Pic = u8Copy; });
}

void CopyBlock(const Picture& tPic, ptrdiff_t offset, ptrdiff_t pitch, int rows, int columns,
               Mp4vMemCopyStride* const& pfCopy, const uint8_t* pu8Src, int32_t s32SrcPitch) {
    if (tPic.Contains(offset, offset + (rows - 1) * pitch + columns - 1)) {
        pfCopy(pu8Src, s32SrcPitch, tPic.pu8Start + offset, (int32_t)pitch);
        return;
    }
    uint8_t au8Copy[16 * 16];
    pfCopy(pu8Src, s32SrcPitch, au8Copy, 16);
    for (ptrdiff_t y = 0; y < rows; y++) {
        for (ptrdiff_t x = 0; x < columns; x++) {
            const ptrdiff_t at = offset + y * pitch + x;
            if (tPic.Contains(at, at)) tPic.pu8Start[at] = au8Copy[y * 16 + x];
        }
    }
}

void CopyMb(const Mp4vDecCtx* ptCtx, const Picture& tPic, const MbPlace& t, bool bHalf) {
    const Mp4vMbScratch& tMb = ptCtx->tMb;
    const int32_t s32Stride = (int32_t)ptCtx->u32LumaStride;
    const int rows = bHalf ? 8 : 16;
    Mp4vMemCopyStride* const& pfLuma = bHalf ? MemCopyStride16x8 : MemCopyStride16x16;
    Mp4vMemCopyStride* const& pfChroma = bHalf ? MemCopyStride8x4 : MemCopyStride8x8;
    CopyBlock(tPic, t.y, t.pitch, rows, 16, pfLuma, tMb.pu8DstY, s32Stride);
    CopyBlock(tPic, t.u, t.chroma_pitch, rows / 2, 8, pfChroma, tMb.pu8DstU, s32Stride / 2);
    CopyBlock(tPic, t.v, t.chroma_pitch, rows / 2, 8, pfChroma, tMb.pu8DstV, s32Stride / 2);
}

// Reports false, and does nothing, when the macroblock, or the line above it that a field is woven with, does not lie
// inside the picture.
bool DeinterlaceMb(const Mp4vDecCtx* ptCtx, const Picture& tPic, const MbPlace& t, bool bField,
                   Mp4vDeInterlaceMb* const& pfMb) {
    const ptrdiff_t above = bField ? t.chroma_pitch / 2 : 0;
    const ptrdiff_t chroma_last = 7 * t.chroma_pitch + 7;
    if (t.pitch != 2 * t.chroma_pitch || !tPic.Contains(t.y - 2 * above, t.y + 15 * t.pitch + 15) ||
        !tPic.Contains(t.u - above, t.u + chroma_last) || !tPic.Contains(t.v - above, t.v + chroma_last)) {
        return false;
    }
    const Mp4vMbScratch& tMb = ptCtx->tMb;
    pfMb(tMb.pu8DstY, tMb.pu8DstU, tMb.pu8DstV, (int32_t)ptCtx->u32LumaStride, tPic.pu8Start + t.y, tPic.pu8Start + t.u,
         tPic.pu8Start + t.v, (int32_t)t.pitch);
    return true;
}

// ---- Deblocking. Vertical edges are filtered as horizontal ones in transposed scratch: of luma, row r of the scratch
// is column r - 16 of the macroblock (pitch 16), of chroma column r - 8 (pitch 8). The columns left of the macroblock
// stay there from the macroblock before, already filtered.

constexpr Window kLumaEdges = {-3, 0, 10, 15};
constexpr Window kLumaLeft = {0, -8, 15, -1};
constexpr Window kLumaColumns = {0, -4, 15, 15};
constexpr Window kChromaLeft = {0, -8, 7, -1};
constexpr Window kChromaEdge = {-3, 0, 2, 7};
constexpr Window kChromaColumns = {0, -4, 7, 7};

void FilterHorizontalLumaEdges(uint8_t* pu8, int32_t s32Pitch, uint32_t u32Qp) {
    Deblock8x8Horiz(pu8, s32Pitch, u32Qp);
    Deblock8x8Horiz(pu8 + 8, s32Pitch, u32Qp);
    Deblock8x8Horiz(pu8 + 8 * (ptrdiff_t)s32Pitch, s32Pitch, u32Qp);
    Deblock8x8Horiz(pu8 + 8 * (ptrdiff_t)s32Pitch + 8, s32Pitch, u32Qp);
}

void LoadLeftLuma(uint8_t* pu8Scratch, const uint8_t* pu8, int32_t s32Pitch) {
    Mp4vDecTranspose8x8(pu8Scratch + 8 * 16, 16, pu8 - 8, s32Pitch);
    Mp4vDecTranspose8x8(pu8Scratch + 8 * 16 + 8, 16, pu8 - 8 + 8 * (ptrdiff_t)s32Pitch, s32Pitch);
}

void FilterVerticalLumaEdges(uint8_t* pu8Scratch, uint8_t* pu8, int32_t s32Pitch, uint32_t u32Qp) {
    for (int b = 0; b < 4; b++) {  // top left, bottom left, top right, bottom right
        uint8_t* const pu8Columns = pu8Scratch + (16 + 8 * (b >> 1)) * 16 + 8 * (b & 1);
        Mp4vDecTranspose8x8(pu8Columns, 16, pu8 + 8 * (b >> 1) + 8 * (b & 1) * (ptrdiff_t)s32Pitch, s32Pitch);
        Deblock8x8Horiz(pu8Columns, 16, u32Qp);
    }
    Mp4vDecTranspose16x16(pu8 - 4, s32Pitch, pu8Scratch + 12 * 16, 16);
    memcpy(pu8Scratch + 11 * 16, pu8Scratch + 27 * 16, 5 * 16);
}

void FilterVerticalChromaEdge(uint8_t* pu8Scratch, uint8_t* pu8, int32_t s32Pitch, uint32_t u32Qp) {
    Mp4vDecTranspose8x8(pu8Scratch + 8 * 8, 8, pu8, s32Pitch);
    Deblock8x8Horiz(pu8Scratch + 8 * 8, 8, u32Qp);
    Mp4vDecTranspose8x8(pu8 - 4, s32Pitch, pu8Scratch + 4 * 8, 8);
    memcpy(pu8Scratch + 3 * 8, pu8Scratch + 11 * 8, 5 * 8);
}

// Whether DeblockMb may call the portable kernels, and for whole macroblocks at once: while the table holds them and
// nothing is outside of the picture or overlaps.
bool CanDeblockWhole(const Picture& tPic, const MbPlace& t) {
    return Deblock8x8Horiz == Deblock8x8HorizFast_c && Mp4vDecTranspose8x8 == Mp4vDecTranspose8x8_c &&
           Mp4vDecTranspose16x16 == Mp4vDecTranspose16x16_c && t.pitch >= 16 && t.y >= 3 * t.pitch && t.u >= t.y &&
           t.v >= t.u && t.v + 7 * t.chroma_pitch + 7 < tPic.size;
}

void DeblockWholeMb(Mp4vDecCtx* ptCtx, const Picture& tPic, const MbPlace& t) {
    const uint32_t u32Qp = ptCtx->tMb.ptCurMbInfo->u8Qp;
    const int32_t s32Pitch = (int32_t)t.pitch, s32ChromaPitch = (int32_t)t.chroma_pitch;
    uint8_t* const pu8Luma = ptCtx->pu8WorkBuf512;
    uint8_t* const apu8Scratch[2] = {ptCtx->pu8WorkBuf128A, ptCtx->pu8WorkBuf128B};
    uint8_t* const pu8Y = tPic.pu8Start + t.y;
    uint8_t* const apu8Chroma[2] = {tPic.pu8Start + t.u, tPic.pu8Start + t.v};
    SmoothEdge<16>(pu8Y, t.pitch, u32Qp);
    SmoothEdge<16>(pu8Y + 8 * t.pitch, t.pitch, u32Qp);
    if (!ptCtx->u32LeftDeblockValid) {
        LoadLeftLuma(pu8Luma, pu8Y, s32Pitch);
        for (int i = 0; i < 2; i++) Mp4vDecTranspose8x8_c(apu8Scratch[i], 8, apu8Chroma[i] - 8, s32ChromaPitch);
    }
    Mp4vDecTranspose16x16_c(pu8Luma + 16 * 16, 16, pu8Y, s32Pitch);
    SmoothEdge<16>(pu8Luma + 16 * 16, 16, u32Qp);
    SmoothEdge<16>(pu8Luma + 24 * 16, 16, u32Qp);
    Mp4vDecTranspose16x16_c(pu8Y - 4, s32Pitch, pu8Luma + 12 * 16, 16);
    memcpy(pu8Luma + 11 * 16, pu8Luma + 27 * 16, 5 * 16);
    for (int i = 0; i < 2; i++) {
        SmoothEdge<8>(apu8Chroma[i], t.chroma_pitch, u32Qp);
        Mp4vDecTranspose8x8_c(apu8Scratch[i] + 8 * 8, 8, apu8Chroma[i], s32ChromaPitch);
        SmoothEdge<8>(apu8Scratch[i] + 8 * 8, 8, u32Qp);
        Mp4vDecTranspose8x8_c(apu8Chroma[i] - 4, s32ChromaPitch, apu8Scratch[i] + 4 * 8, 8);
        memcpy(apu8Scratch[i] + 3 * 8, apu8Scratch[i] + 11 * 8, 5 * 8);
    }
    ptCtx->u32LeftDeblockValid = 1;
}

void DeblockMb(Mp4vDecCtx* ptCtx, const Picture& tPic, const MbPlace& t) {
    if (CanDeblockWhole(tPic, t)) return DeblockWholeMb(ptCtx, tPic, t);
    const uint32_t u32Qp = ptCtx->tMb.ptCurMbInfo->u8Qp;
    uint8_t* const pu8Luma = ptCtx->pu8WorkBuf512;
    uint8_t* const apu8Chroma[2] = {ptCtx->pu8WorkBuf128A, ptCtx->pu8WorkBuf128B};
    const ptrdiff_t chroma[2] = {t.u, t.v};
    OnWindow(tPic, t.y, t.pitch, kLumaEdges,
             [&](uint8_t* pu8, int32_t s32Pitch) { FilterHorizontalLumaEdges(pu8, s32Pitch, u32Qp); });
    if (!ptCtx->u32LeftDeblockValid) {
        OnWindow(tPic, t.y, t.pitch, kLumaLeft,
                 [&](const uint8_t* pu8, int32_t s32Pitch) { LoadLeftLuma(pu8Luma, pu8, s32Pitch); });
        for (int i = 0; i < 2; i++) {
            OnWindow(tPic, chroma[i], t.chroma_pitch, kChromaLeft, [&](const uint8_t* pu8, int32_t s32Pitch) {
                Mp4vDecTranspose8x8(apu8Chroma[i], 8, pu8 - 8, s32Pitch);
            });
        }
    }
    OnWindow(tPic, t.y, t.pitch, kLumaColumns,
             [&](uint8_t* pu8, int32_t s32Pitch) { FilterVerticalLumaEdges(pu8Luma, pu8, s32Pitch, u32Qp); });
    for (int i = 0; i < 2; i++) {
        // Apart from the columns: what the filter writes outside the picture is lost before they are read.
        OnWindow(tPic, chroma[i], t.chroma_pitch, kChromaEdge,
                 [&](uint8_t* pu8, int32_t s32Pitch) { Deblock8x8Horiz(pu8, s32Pitch, u32Qp); });
        OnWindow(tPic, chroma[i], t.chroma_pitch, kChromaColumns, [&](uint8_t* pu8, int32_t s32Pitch) {
            FilterVerticalChromaEdge(apu8Chroma[i], pu8, s32Pitch, u32Qp);
        });
    }
    ptCtx->u32LeftDeblockValid = 1;
}

// The macroblock as it is, when all of it lies inside the picture. Reports false, and does nothing, when not.
MP4V_INLINE bool CopyWholeMb(const Mp4vDecCtx* ptCtx, const Picture& tPic, const MbPlace& t) {
    const Mp4vMbScratch& tMb = ptCtx->tMb;
    const ptrdiff_t stride = (ptrdiff_t)ptCtx->u32LumaStride;
    // The planes follow one another, so V ends last.
    const bool bInside = 0 <= t.y && t.y <= t.u && t.u <= t.v && t.y + 15 * t.pitch + 15 < tPic.size &&
                         t.v + 7 * t.chroma_pitch + 7 < tPic.size;
    if (MP4V_UNLIKELY(!bInside)) return false;
    uint8_t* const pu8Y = tPic.pu8Start + t.y;
    uint8_t* const pu8U = tPic.pu8Start + t.u;
    uint8_t* const pu8V = tPic.pu8Start + t.v;
    if (MP4V_LIKELY(MemCopyStride16x16 == MemCopyStride16x16_c)) {
        CopyRows<16, 16>(tMb.pu8DstY, stride, pu8Y, t.pitch);
    } else {
        MemCopyStride16x16(tMb.pu8DstY, (int32_t)stride, pu8Y, (int32_t)t.pitch);
    }
    if (MP4V_LIKELY(MemCopyStride8x8 == MemCopyStride8x8_c)) {
        CopyRows<8, 8>(tMb.pu8DstU, stride / 2, pu8U, t.chroma_pitch);
        CopyRows<8, 8>(tMb.pu8DstV, stride / 2, pu8V, t.chroma_pitch);
    } else {
        MemCopyStride8x8(tMb.pu8DstU, (int32_t)(stride / 2), pu8U, (int32_t)t.chroma_pitch);
        MemCopyStride8x8(tMb.pu8DstV, (int32_t)(stride / 2), pu8V, (int32_t)t.chroma_pitch);
    }
    return true;
}

// Whatever the flags and wherever the macroblock lies.
__attribute__((noinline)) void PostProcessAny(Mp4vDecCtx* ptCtx, uint32_t u32MbX, uint32_t u32MbY, uint8_t* pu8OutY,
                                              uint8_t* pu8OutU, uint8_t* pu8OutV, uint32_t u32Flags) {
    const ptrdiff_t width = (ptrdiff_t)ptCtx->u32Width;
    const ptrdiff_t height = (ptrdiff_t)ptCtx->u32Height;
    const ptrdiff_t mb_x = (ptrdiff_t)u32MbX;
    const ptrdiff_t mb_y = (ptrdiff_t)u32MbY;
    const ptrdiff_t top_rows = (ptrdiff_t)ptCtx->u32MbHeight >> 1;  // macroblock rows of the top field
    const bool bStacked = u32Flags & kPostFieldStacked;
    const bool bDeinterlace = u32Flags & kPostDeinterlace;
    const Picture tPic = {pu8OutY, width * height * 3 / 2};

    MbPlace t = {16 * mb_x, 8 * mb_x + (pu8OutU - pu8OutY), 8 * mb_x + (pu8OutV - pu8OutY), width, width / 2};
    ptrdiff_t row = 16 * mb_y;  // luma lines above the macroblock, at the pitch
    bool bFirstRow = u32MbY == 0;
    if (!bStacked) {
        t.u += row / 2 * t.chroma_pitch;
        t.v += row / 2 * t.chroma_pitch;
    } else if (mb_y < top_rows) {
        t.u += row * t.chroma_pitch;
        t.v += row * t.chroma_pitch;
        row *= 2;
    } else {
        const ptrdiff_t field_row = 16 * mb_y - 8 * (ptrdiff_t)ptCtx->u32MbHeight;
        t.u += (1 + field_row) * t.chroma_pitch;
        t.v += (1 + field_row) * t.chroma_pitch;
        row = 1 + 2 * field_row;
        bFirstRow = mb_y == top_rows;
    }
    t.y += row * width;
    if (bStacked) {
        t.pitch *= 2;
        t.chroma_pitch *= 2;
    }

    bool bWritten = false;
    if (bDeinterlace && !bStacked) bWritten = DeinterlaceMb(ptCtx, tPic, t, false, DeInterlaceFrameMB);
    if (bDeinterlace && bStacked && mb_y >= top_rows)
        bWritten = DeinterlaceMb(ptCtx, tPic, t, true, DeInterlaceFieldMB);
    const bool bHalf = !bStacked && u32MbY + 1 == ptCtx->u32MbHeight && height % 16 != 0;
    if (!bWritten) CopyMb(ptCtx, tPic, t, bHalf);

    if (u32Flags & kPostDeblock && u32MbX > 0 && !bFirstRow) {
        DeblockMb(ptCtx, tPic, t);
    } else {
        ptCtx->u32LeftDeblockValid = 0;
    }
}

}  // namespace

void PostProcess_MB(Mp4vDecCtx* ptCtx, uint32_t u32MbX, uint32_t u32MbY, uint8_t* pu8OutY, uint8_t* pu8OutU,
                    uint8_t* pu8OutV, uint32_t u32Flags) {
    // The last row of other heights may be half a macroblock.
    const bool bPlain = !(u32Flags & (kPostFieldStacked | kPostDeinterlace)) &&
                        (u32MbY + 1 != ptCtx->u32MbHeight || ptCtx->u32Height % 16 == 0);
    const ptrdiff_t width = (ptrdiff_t)ptCtx->u32Width;
    const ptrdiff_t luma = 16 * ((ptrdiff_t)u32MbY * width + (ptrdiff_t)u32MbX);
    const ptrdiff_t chroma = 8 * ((ptrdiff_t)u32MbY * (width / 2) + (ptrdiff_t)u32MbX);
    const Picture tPic = {pu8OutY, width * (ptrdiff_t)ptCtx->u32Height * 3 / 2};
    const MbPlace t = {luma, chroma + (pu8OutU - pu8OutY), chroma + (pu8OutV - pu8OutY), width, width / 2};
    if (!bPlain || !CopyWholeMb(ptCtx, tPic, t))
        return PostProcessAny(ptCtx, u32MbX, u32MbY, pu8OutY, pu8OutU, pu8OutV, u32Flags);
    if (u32Flags & kPostDeblock && u32MbX > 0 && u32MbY > 0) return DeblockMb(ptCtx, tPic, t);
    ptCtx->u32LeftDeblockValid = 0;
}
