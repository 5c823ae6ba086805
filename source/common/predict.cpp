// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

#include "common/predict.h"

#include <string.h>

#include "c/halfpel.h"
#include "c/image.h"
#include "common/kernels.h"
#include "common/motion.h"
#include "common/pvop.h"

const uint32_t g_au32RoundTab[16] = {0, 0, 0, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 2, 2};

namespace {

// A plane of the reference frame and the allocation that it lies in.
struct RefPlane {
    const uint8_t* pu8Plane;  // first sample inside the border
    const uint8_t* pu8Base;
    int64_t bytes;
    int64_t stride;
    int64_t width, height, border;  // samples
};

// A plane of the reference with its border, where nearly all predictions lie: what that takes, and no more.
struct RefWindow {
    ptrdiff_t stride;
    int32_t s32Border;
    uint32_t u32Columns, u32Rows;  // with the borders

    // The block at a place, with one column and one row more, lies inside.
    MP4V_INLINE bool Contains(int32_t s32X, int32_t s32Y, int32_t s32Columns, int32_t s32Rows) const {
        return (uint32_t)(s32X + s32Border) < u32Columns - (uint32_t)s32Columns &&
               (uint32_t)(s32Y + s32Border) < u32Rows - (uint32_t)s32Rows;
    }
    MP4V_INLINE ptrdiff_t Offset(int32_t s32X, int32_t s32Y) const { return s32Y * stride + s32X; }
};

MP4V_INLINE RefWindow LumaWindow(const Mp4vDecCtx* ptCtx) {
    return {(ptrdiff_t)ptCtx->u32LumaStride, kLumaBorder, ptCtx->u32LumaStride, ptCtx->u32PaddedHeight};
}

MP4V_INLINE RefWindow ChromaWindow(const Mp4vDecCtx* ptCtx) {
    return {(ptrdiff_t)ptCtx->u32LumaStride / 2, kLumaBorder / 2, ptCtx->u32LumaStride / 2, ptCtx->u32PaddedHeight / 2};
}

// Where a prediction comes from: the first sample's column and line, and the lines from one row to the next (2: a
// field).
struct RefPlace {
    int64_t x, y, step;
};

constexpr int32_t kLocalPitch = 32;
constexpr int kMaxBlock = 16;
static_assert(kLocalPitch > kMaxBlock, "a block and one column more");

int64_t Clamp(int64_t v, int64_t low, int64_t high) {
    return v < low ? low : v > high ? high : v;
}

// The block at a place, with one column and one row more, lies inside the allocation.
bool IsInside(const RefPlane& t, const RefPlace& p, int64_t columns, int64_t rows) {
    const int64_t first = (t.pu8Plane - t.pu8Base) + p.y * t.stride + p.x;
    return first >= 0 && first + rows * p.step * t.stride + columns < t.bytes;
}

// Copies a block with one column and one row more, sample by sample, at kLocalPitch.
void FetchBlock(uint8_t* pu8Local, const RefPlane& t, const RefPlace& p, int64_t columns, int64_t rows) {
    const int64_t origin = t.pu8Plane - t.pu8Base;
    for (int64_t j = 0; j <= rows; j++) {
        const int64_t line = p.y + j * p.step;
        const int64_t near_line = Clamp(line, -t.border, t.height + t.border - 1);
        for (int64_t i = 0; i <= columns; i++) {
            const int64_t column = p.x + i;
            const int64_t near_column = Clamp(column, -t.border, t.width + t.border - 1);
            const int64_t literal = origin + line * t.stride + column;
            const bool bInside = literal >= 0 && literal < t.bytes;
            pu8Local[j * kLocalPitch + i] = t.pu8Base[bInside ? literal : origin + near_line * t.stride + near_column];
        }
    }
}

// Half-sample kernels of a block size. s32Phase: bit 1 the horizontal half, bit 0 the vertical half.
struct HalfPel16x16 {
    static constexpr int kColumns = 16, kRows = 16;
    static MP4V_INLINE void Run(uint8_t* pu8Dst, const uint8_t* pu8Src, int32_t s32Pitch, int32_t s32Phase,
                                uint32_t u32Rounding) {
        switch (s32Phase) {
            case 0:
                return MemCopy16x16(pu8Dst, pu8Src, s32Pitch);
            case 1:
                return Interpolate16x16V(pu8Dst, pu8Src, s32Pitch, u32Rounding);
            case 2:
                return Interpolate16x16H(pu8Dst, pu8Src, s32Pitch, u32Rounding);
            default:
                return Interpolate16x16HV(pu8Dst, pu8Src, s32Pitch, u32Rounding);
        }
    }
};

struct HalfPel8x8 {
    static constexpr int kColumns = 8, kRows = 8;
    static MP4V_INLINE void Run(uint8_t* pu8Dst, const uint8_t* pu8Src, int32_t s32Pitch, int32_t s32Phase,
                                uint32_t u32Rounding) {
        switch (s32Phase) {
            case 0:
                return MemCopy8x8(pu8Dst, pu8Src, s32Pitch);
            case 1:
                return Interpolate8x8V(pu8Dst, pu8Src, s32Pitch, u32Rounding);
            case 2:
                return Interpolate8x8H(pu8Dst, pu8Src, s32Pitch, u32Rounding);
            default:
                return Interpolate8x8HV(pu8Dst, pu8Src, s32Pitch, u32Rounding);
        }
    }
};

struct HalfPel8x4 {
    static constexpr int kColumns = 8, kRows = 4;
    static MP4V_INLINE void Run(uint8_t* pu8Dst, const uint8_t* pu8Src, int32_t s32Pitch, int32_t s32Phase,
                                uint32_t u32Rounding) {
        switch (s32Phase) {
            case 0:
                return MemCopy8x4(pu8Dst, pu8Src, s32Pitch);
            case 1:
                return Interpolate8x4V(pu8Dst, pu8Src, s32Pitch, u32Rounding);
            case 2:
                return Interpolate8x4H(pu8Dst, pu8Src, s32Pitch, u32Rounding);
            default:
                return Interpolate8x4HV(pu8Dst, pu8Src, s32Pitch, u32Rounding);
        }
    }
};

// The kernels have one pitch for source and destination, so a fetched block is predicted beside the picture.
template <typename Kernels>
__attribute__((noinline, cold)) void PredictHalfFetched(uint8_t* pu8Dst, const RefPlane& t, const RefPlace& p,
                                                        int32_t s32Phase, uint32_t u32Rounding) {
    uint8_t au8Src[(Kernels::kRows + 1) * kLocalPitch];
    uint8_t au8Dst[Kernels::kRows * kLocalPitch];
    FetchBlock(au8Src, t, p, Kernels::kColumns, Kernels::kRows);
    Kernels::Run(au8Dst, au8Src, kLocalPitch, s32Phase, u32Rounding);
    for (int j = 0; j < Kernels::kRows; j++) {
        memcpy(pu8Dst + j * p.step * t.stride, au8Dst + j * kLocalPitch, Kernels::kColumns);
    }
}

template <typename Kernels>
void PredictHalf(uint8_t* pu8Dst, const RefPlane& t, const RefPlace& p, int32_t s32Phase, uint32_t u32Rounding) {
    if (IsInside(t, p, Kernels::kColumns, Kernels::kRows)) {
        Kernels::Run(pu8Dst, t.pu8Plane + p.y * t.stride + p.x, (int32_t)(p.step * t.stride), s32Phase, u32Rounding);
    } else {
        PredictHalfFetched<Kernels>(pu8Dst, t, p, s32Phase, u32Rounding);
    }
}

// Both components of a half-sample vector as a kernel index.
int32_t Phase(int32_t s32X, int32_t s32Y) {
    return (s32X & 1) << 1 | (s32Y & 1);
}

// A frame-predicted block at (x, y) of the plane by a vector in half samples.
template <typename Kernels>
void PredictFrame(uint8_t* pu8Dst, const RefPlane& t, int64_t x, int64_t y, Mp4vMv tMv, uint32_t u32Rounding) {
    const RefPlace tPlace = {x + (tMv.s32X >> 1), y + (tMv.s32Y >> 1), 1};
    PredictHalf<Kernels>(pu8Dst, t, tPlace, Phase(tMv.s32X, tMv.s32Y), u32Rounding);
}

// ---- Quarter-sample luma

// A 16 x 16 block at a quarter position, s32X, s32Y in [0, 3]. Both directions: first the rows into the scratch, one
// more than the block has, then the columns.
void QuarterPel16x16(uint8_t* pu8Dst, int32_t s32DstPitch, const uint8_t* pu8Src, int32_t s32SrcPitch,
                     uint8_t* pu8Scratch, int32_t s32X, int32_t s32Y, uint32_t u32Rounding) {
    if (s32X) {
        Mp4vQpelPass* const pfHorz = s32X == 1 ? HorzPassAvg16 : s32X == 2 ? HorzPass16 : HorzPassAvgUp16;
        if (s32Y == 0) return pfHorz(pu8Dst, pu8Src, 16, s32DstPitch, s32SrcPitch, u32Rounding);
        pfHorz(pu8Scratch, pu8Src, 17, 16, s32SrcPitch, u32Rounding);
        pu8Src = pu8Scratch;
        s32SrcPitch = 16;
    }
    Mp4vQpelPass* const pfVert = s32Y == 1 ? VertPassAvg16 : s32Y == 2 ? VertPass16 : VertPassAvgUp16;
    pfVert(pu8Dst, pu8Src, 16, s32DstPitch, s32SrcPitch, u32Rounding);
}

void PredictQuarter16x16(Mp4vDecCtx* ptCtx, const RefPlane& t, int32_t s32X, int32_t s32Y, Mp4vMv tMv) {
    const int32_t s32AbsX = AddWrapping(tMv.s32X, 4 * s32X);
    const int32_t s32AbsY = AddWrapping(tMv.s32Y, 4 * s32Y);
    const RefPlace tPlace = {s32AbsX >> 2, s32AbsY >> 2, 1};
    const int32_t s32PhaseX = tMv.s32X & 3;
    const int32_t s32PhaseY = tMv.s32Y & 3;
    uint8_t* const pu8Dst = ptCtx->tMb.pu8DstY;
    const int32_t s32Pitch = (int32_t)t.stride;
    if (s32PhaseX == 0 && s32PhaseY == 0) {
        PredictHalf<HalfPel16x16>(pu8Dst, t, tPlace, 0, ptCtx->u32RoundingType);
    } else if (IsInside(t, tPlace, 16, 16)) {
        QuarterPel16x16(pu8Dst, s32Pitch, t.pu8Plane + tPlace.y * t.stride + tPlace.x, s32Pitch, ptCtx->pu8QpelBuf,
                        s32PhaseX, s32PhaseY, ptCtx->u32RoundingType);
    } else {
        uint8_t au8Src[17 * kLocalPitch];
        FetchBlock(au8Src, t, tPlace, 16, 16);
        QuarterPel16x16(pu8Dst, s32Pitch, au8Src, kLocalPitch, ptCtx->pu8QpelBuf, s32PhaseX, s32PhaseY,
                        ptCtx->u32RoundingType);
    }
}

void PredictQuarter8x8(Mp4vDecCtx* ptCtx, uint8_t* pu8Dst, const RefPlane& t, int32_t s32X, int32_t s32Y, Mp4vMv tMv) {
    const RefPlace tPlace = {AddWrapping(tMv.s32X, 4 * s32X) >> 2, AddWrapping(tMv.s32Y, 4 * s32Y) >> 2, 1};
    if (IsInside(t, tPlace, 8, 8)) {
        InterpolateQuarterPel8x8(pu8Dst, t.pu8Plane, ptCtx->pu8QpelBuf, s32X, s32Y, tMv.s32X, tMv.s32Y,
                                 (int32_t)t.stride, ptCtx->u32RoundingType);
        return;
    }
    uint8_t au8Src[9 * kLocalPitch];
    uint8_t au8Dst[8 * kLocalPitch];
    FetchBlock(au8Src, t, tPlace, 8, 8);
    InterpolateQuarterPel8x8(au8Dst, au8Src, ptCtx->pu8QpelBuf, 0, 0, tMv.s32X & 3, tMv.s32Y & 3, kLocalPitch,
                             ptCtx->u32RoundingType);
    for (int j = 0; j < 8; j++) memcpy(pu8Dst + j * t.stride, au8Dst + j * kLocalPitch, 8);
}

// ---- Chroma vectors, in half samples of chroma (ISO/IEC 14496-2, 7.6.5)

// Quarter positions go to the half position between.
int32_t ChromaOfOne(int32_t s32Luma) {
    return s32Luma & 3 ? s32Luma >> 1 | 1 : s32Luma / 2;
}

int32_t ChromaOfFour(int32_t s32Sum) {
    const uint32_t u32Magnitude = s32Sum < 0 ? 0 - (uint32_t)s32Sum : (uint32_t)s32Sum;
    const int32_t s32Chroma = (int32_t)(g_au32RoundTab[u32Magnitude & 15] + 2 * (u32Magnitude >> 4));
    return s32Sum < 0 ? -s32Chroma : s32Chroma;
}

// s32Divide: 2 for vectors in quarter samples, truncated to half samples one by one.
Mp4vMv SumOfFour(const Mp4vMv* ptMv, int32_t s32Divide) {
    // Not a loop: g++ 12 turned one into vector code with wrong sums where it was inlined.
    const auto sum = [=](int32_t s32A, int32_t s32B, int32_t s32C, int32_t s32D) {
        return AddWrapping(AddWrapping(s32A / s32Divide, s32B / s32Divide),
                           AddWrapping(s32C / s32Divide, s32D / s32Divide));
    };
    return {sum(ptMv[0].s32X, ptMv[1].s32X, ptMv[2].s32X, ptMv[3].s32X),
            sum(ptMv[0].s32Y, ptMv[1].s32Y, ptMv[2].s32Y, ptMv[3].s32Y)};
}

Mp4vMv ChromaVector(const MbInfo& tInfo, int32_t s32Divide) {
    if (tInfo.u8MbType == MB_INTER4V) {
        const Mp4vMv tSum = SumOfFour(tInfo.as32Mv, s32Divide);
        return {ChromaOfFour(tSum.s32X), ChromaOfFour(tSum.s32Y)};
    }
    return {ChromaOfOne(tInfo.as32Mv[0].s32X / s32Divide), ChromaOfOne(tInfo.as32Mv[0].s32Y / s32Divide)};
}

// Of a field's vector.
Mp4vMv FieldChromaVector(const MbInfo& tInfo, Mp4vMv tMv) {
    const Mp4vMv t =
        tInfo.u8MbType == MB_INTER4V ? ChromaVector(tInfo, 1) : Mp4vMv{ChromaOfOne(tMv.s32X), ChromaOfOne(tMv.s32Y)};
    return {t.s32X, t.s32Y >> 1 | (t.s32Y & 1)};  // half positions stay half positions of the field
}

// ---- The macroblock

struct RefPlanes {
    RefPlane y, u, v;
};

RefPlanes FindPlanes(const Mp4vDecCtx* ptCtx) {
    const VopFrame& tRef = ptCtx->tRefFrame;
    const int64_t stride = (int64_t)ptCtx->u32LumaStride;
    // The luma plane begins the allocation. That was made for the size at open, whatever the size is now.
    const uint8_t* const pu8Base = tRef.pu8Y - kLumaBorder * stride - kLumaBorder;
    const uint64_t u64OpenStride = (((uint64_t)ptCtx->u32OpenWidth + 15) & ~UINT64_C(15)) + 2 * kLumaBorder;
    const uint64_t u64OpenHeight = (((uint64_t)ptCtx->u32OpenHeight + 15) & ~UINT64_C(15)) + 2 * kLumaBorder;
    const int64_t bytes = (int64_t)FrameBytes(u64OpenStride, u64OpenHeight);
    const int64_t width = (int64_t)ptCtx->u32MbWidth * 16;
    const int64_t height = (int64_t)ptCtx->u32MbHeight * 16;
    return {{tRef.pu8Y, pu8Base, bytes, stride, width, height, kLumaBorder},
            {tRef.pu8U, pu8Base, bytes, stride / 2, width / 2, height / 2, kLumaBorder / 2},
            {tRef.pu8V, pu8Base, bytes, stride / 2, width / 2, height / 2, kLumaBorder / 2}};
}

void PredictLuma(Mp4vDecCtx* ptCtx, const RefPlane& t, int32_t s32X, int32_t s32Y) {
    const MbInfo& tInfo = *ptCtx->tMb.ptCurMbInfo;
    const uint32_t u32Rounding = ptCtx->u32RoundingType;
    uint8_t* const pu8Dst = ptCtx->tMb.pu8DstY;
    if (tInfo.u8MbType != MB_INTER4V) {
        if (ptCtx->u16QuarterSample) {
            PredictQuarter16x16(ptCtx, t, s32X, s32Y, tInfo.as32Mv[0]);
        } else {
            PredictFrame<HalfPel16x16>(pu8Dst, t, s32X, s32Y, tInfo.as32Mv[0], u32Rounding);
        }
        return;
    }
    for (int32_t b = 0; b < 4; b++) {
        const int32_t s32BlockX = 8 * (b & 1);
        const int32_t s32BlockY = 8 * (b >> 1);
        uint8_t* const pu8Block = pu8Dst + s32BlockX + s32BlockY * t.stride;
        if (ptCtx->u16QuarterSample) {
            PredictQuarter8x8(ptCtx, pu8Block, t, s32X + s32BlockX, s32Y + s32BlockY, tInfo.as32Mv[b]);
        } else {
            PredictFrame<HalfPel8x8>(pu8Block, t, s32X + s32BlockX, s32Y + s32BlockY, tInfo.as32Mv[b], u32Rounding);
        }
    }
}

// One field: 8 luma and 4 chroma lines from a field of the reference. Vectors are in half samples, also where other
// macroblocks have quarter samples.
__attribute__((noinline)) void PredictField(const Mp4vDecCtx* ptCtx, const RefPlanes& t, uint32_t u32Column,
                                            uint32_t u32Row, int64_t field) {
    const Mp4vMbScratch& tMb = ptCtx->tMb;
    const MbInfo& tInfo = *tMb.ptCurMbInfo;
    const Mp4vMv tMv = tInfo.as32Mv[field];
    const int64_t from = field ? tMb.u8FwdBotFieldRef : tMb.u8FwdTopFieldRef;
    const uint32_t u32Rounding = ptCtx->u32RoundingType;

    RefPlace tLuma = {(int64_t)16 * u32Column + (tMv.s32X >> 1), from + 2 * ((int64_t)8 * u32Row + (tMv.s32Y >> 2)), 2};
    const int32_t s32LumaPhase = Phase(tMv.s32X, tMv.s32Y >> 1);
    for (int i = 0; i < 2; i++, tLuma.x += 8) {
        PredictHalf<HalfPel8x8>(tMb.pu8DstY + field * t.y.stride + 8 * i, t.y, tLuma, s32LumaPhase, u32Rounding);
    }

    const Mp4vMv tChromaMv = FieldChromaVector(tInfo, tMv);
    const RefPlace tChroma = {(int64_t)8 * u32Column + (tChromaMv.s32X >> 1),
                              from + 2 * ((int64_t)4 * u32Row + (tChromaMv.s32Y >> 1)), 2};
    const int32_t s32ChromaPhase = Phase(tChromaMv.s32X, tChromaMv.s32Y);
    PredictHalf<HalfPel8x4>(tMb.pu8DstU + field * t.u.stride, t.u, tChroma, s32ChromaPhase, u32Rounding);
    PredictHalf<HalfPel8x4>(tMb.pu8DstV + field * t.v.stride, t.v, tChroma, s32ChromaPhase, u32Rounding);
}

__attribute__((noinline)) void PredictAnywhere(Mp4vDecCtx* ptCtx, uint32_t u32Column, uint32_t u32Row) {
    const Mp4vMbScratch& tMb = ptCtx->tMb;
    const RefPlanes tPlanes = FindPlanes(ptCtx);
    PredictLuma(ptCtx, tPlanes.y, (int32_t)(16 * u32Column), (int32_t)(16 * u32Row));
    const Mp4vMv tChroma = ChromaVector(*tMb.ptCurMbInfo, ptCtx->u16QuarterSample ? 2 : 1);
    const int64_t x = (int64_t)8 * u32Column;
    const int64_t y = (int64_t)8 * u32Row;
    PredictFrame<HalfPel8x8>(tMb.pu8DstU, tPlanes.u, x, y, tChroma, ptCtx->u32RoundingType);
    PredictFrame<HalfPel8x8>(tMb.pu8DstV, tPlanes.v, x, y, tChroma, ptCtx->u32RoundingType);
}

// ---- Where all that a macroblock needs lies inside the reference planes with their borders

// Half-sample blocks through the kernel table.
struct TableKernels {
    static MP4V_INLINE void Luma16x16(uint8_t* pu8Dst, const uint8_t* pu8Src, ptrdiff_t pitch, int32_t s32Phase,
                                      uint32_t u32Rounding) {
        HalfPel16x16::Run(pu8Dst, pu8Src, (int32_t)pitch, s32Phase, u32Rounding);
    }
    static MP4V_INLINE void Luma8x8(uint8_t* pu8Dst, const uint8_t* pu8Src, ptrdiff_t pitch, int32_t s32Phase,
                                    uint32_t u32Rounding) {
        HalfPel8x8::Run(pu8Dst, pu8Src, (int32_t)pitch, s32Phase, u32Rounding);
    }
    static MP4V_INLINE void Chroma8x8(uint8_t* const (&apu8Dst)[2], const uint8_t* const (&apu8Src)[2], ptrdiff_t pitch,
                                      int32_t s32Phase, uint32_t u32Rounding) {
        for (int i = 0; i < 2; i++) HalfPel8x8::Run(apu8Dst[i], apu8Src[i], (int32_t)pitch, s32Phase, u32Rounding);
    }
    static MP4V_INLINE void Luma16x8(uint8_t* pu8Dst, const uint8_t* pu8Src, ptrdiff_t pitch, int32_t s32Phase,
                                     uint32_t u32Rounding) {
        for (int i = 0; i < 16; i += 8) HalfPel8x8::Run(pu8Dst + i, pu8Src + i, (int32_t)pitch, s32Phase, u32Rounding);
    }
    static MP4V_INLINE void Chroma8x4(uint8_t* const (&apu8Dst)[2], const uint8_t* const (&apu8Src)[2], ptrdiff_t pitch,
                                      int32_t s32Phase, uint32_t u32Rounding) {
        for (int i = 0; i < 2; i++) HalfPel8x4::Run(apu8Dst[i], apu8Src[i], (int32_t)pitch, s32Phase, u32Rounding);
    }
};

// The portable kernels.
struct PortableKernels {
    static MP4V_INLINE void Luma16x16(uint8_t* pu8Dst, const uint8_t* pu8Src, ptrdiff_t pitch, int32_t s32Phase,
                                      uint32_t u32Rounding) {
        HalfSample<16, 16>(pu8Dst, pu8Src, pitch, s32Phase, u32Rounding);
    }
    static __attribute__((noinline)) void Luma8x8(uint8_t* pu8Dst, const uint8_t* pu8Src, ptrdiff_t pitch,
                                                  int32_t s32Phase, uint32_t u32Rounding) {
        HalfSample<8, 8>(pu8Dst, pu8Src, pitch, s32Phase, u32Rounding);
    }
    static MP4V_INLINE void Chroma8x8(uint8_t* const (&apu8Dst)[2], const uint8_t* const (&apu8Src)[2], ptrdiff_t pitch,
                                      int32_t s32Phase, uint32_t u32Rounding) {
        HalfSampleTwice<8>(apu8Dst, apu8Src, pitch, s32Phase, u32Rounding);
    }
    static MP4V_INLINE void Luma16x8(uint8_t* pu8Dst, const uint8_t* pu8Src, ptrdiff_t pitch, int32_t s32Phase,
                                     uint32_t u32Rounding) {
        HalfSample<16, 8>(pu8Dst, pu8Src, pitch, s32Phase, u32Rounding);
    }
    static MP4V_INLINE void Chroma8x4(uint8_t* const (&apu8Dst)[2], const uint8_t* const (&apu8Src)[2], ptrdiff_t pitch,
                                      int32_t s32Phase, uint32_t u32Rounding) {
        HalfSampleTwice<4>(apu8Dst, apu8Src, pitch, s32Phase, u32Rounding);
    }
};

// What the functions below have in common. They report false, and do nothing, when something lies outside.
struct Inside {
    Mp4vDecCtx* ptCtx;
    int32_t s32X, s32Y;  // of the macroblock's first luma sample
    RefWindow tLuma, tChroma;
    uint32_t u32Rounding;

    MP4V_INLINE Inside(Mp4vDecCtx* ptCtx_, uint32_t u32Column, uint32_t u32Row)
        : ptCtx(ptCtx_),
          s32X((int32_t)(16 * u32Column)),
          s32Y((int32_t)(16 * u32Row)),
          tLuma(LumaWindow(ptCtx_)),
          tChroma(ChromaWindow(ptCtx_)),
          u32Rounding(ptCtx_->u32RoundingType) {}

    MP4V_INLINE const Mp4vMv* Mv() const { return ptCtx->tMb.ptCurMbInfo->as32Mv; }
    MP4V_INLINE uint8_t* LumaBlock(int32_t b) const {
        return ptCtx->tMb.pu8DstY + 8 * (b & 1) + 8 * (b >> 1) * tLuma.stride;
    }
    MP4V_INLINE const uint8_t* Luma(int32_t s32AtX, int32_t s32AtY) const {
        return ptCtx->tRefFrame.pu8Y + tLuma.Offset(s32AtX, s32AtY);
    }
};

// Places of U and V.
struct ChromaPlaces {
    uint8_t* apu8Dst[2];
    const uint8_t* apu8Src[2];

    MP4V_INLINE ChromaPlaces(const Inside& t, ptrdiff_t srcOffset, ptrdiff_t dstOffset = 0)
        : apu8Dst{t.ptCtx->tMb.pu8DstU + dstOffset, t.ptCtx->tMb.pu8DstV + dstOffset},
          apu8Src{t.ptCtx->tRefFrame.pu8U + srcOffset, t.ptCtx->tRefFrame.pu8V + srcOffset} {}
};

template <typename Kernels>
MP4V_INLINE void ChromaInside(const Inside& t, ptrdiff_t srcOffset, int32_t s32Phase) {
    const ChromaPlaces tPlaces(t, srcOffset);
    Kernels::Chroma8x8(tPlaces.apu8Dst, tPlaces.apu8Src, t.tChroma.stride, s32Phase, t.u32Rounding);
}

template <typename Kernels>
MP4V_INLINE bool OneHalfInside(const Inside& t) {
    const Mp4vMv tMv = t.Mv()[0];
    const int32_t s32X = t.s32X + (tMv.s32X >> 1);
    const int32_t s32Y = t.s32Y + (tMv.s32Y >> 1);
    if (!t.tLuma.Contains(s32X, s32Y, 16, 16)) return false;
    // Half the place: inside as well. What is halved to quarter positions goes to the half position.
    const ptrdiff_t chroma = t.tChroma.Offset(s32X >> 1, s32Y >> 1);
    const int32_t s32ChromaPhase = Phase((tMv.s32X & 3) != 0, (tMv.s32Y & 3) != 0);
    Kernels::Luma16x16(t.ptCtx->tMb.pu8DstY, t.Luma(s32X, s32Y), t.tLuma.stride, Phase(tMv.s32X, tMv.s32Y),
                       t.u32Rounding);
    ChromaInside<Kernels>(t, chroma, s32ChromaPhase);
    return true;
}

template <typename Kernels>
MP4V_INLINE bool FourHalfInside(const Inside& t) {
    const Mp4vMv* const ptMv = t.Mv();
    const Mp4vMv tChromaMv = ChromaVector(*t.ptCtx->tMb.ptCurMbInfo, 1);
    const int32_t s32ChromaX = t.s32X / 2 + (tChromaMv.s32X >> 1);
    const int32_t s32ChromaY = t.s32Y / 2 + (tChromaMv.s32Y >> 1);
    if (!t.tChroma.Contains(s32ChromaX, s32ChromaY, 8, 8)) return false;
    const uint8_t* apu8Src[4];
    for (int32_t b = 0; b < 4; b++) {
        const int32_t s32X = t.s32X + 8 * (b & 1) + (ptMv[b].s32X >> 1);
        const int32_t s32Y = t.s32Y + 8 * (b >> 1) + (ptMv[b].s32Y >> 1);
        if (!t.tLuma.Contains(s32X, s32Y, 8, 8)) return false;
        apu8Src[b] = t.Luma(s32X, s32Y);
    }
    for (int32_t b = 0; b < 4; b++) {
        Kernels::Luma8x8(t.LumaBlock(b), apu8Src[b], t.tLuma.stride, Phase(ptMv[b].s32X, ptMv[b].s32Y), t.u32Rounding);
    }
    ChromaInside<Kernels>(t, t.tChroma.Offset(s32ChromaX, s32ChromaY), Phase(tChromaMv.s32X, tChromaMv.s32Y));
    return true;
}

template <typename Kernels>
MP4V_INLINE bool OneQuarterInside(const Inside& t) {
    const Mp4vMv tMv = t.Mv()[0];
    const int32_t s32X = t.s32X + (tMv.s32X >> 2);
    const int32_t s32Y = t.s32Y + (tMv.s32Y >> 2);
    const Mp4vMv tChromaMv = ChromaVector(*t.ptCtx->tMb.ptCurMbInfo, 2);
    const int32_t s32ChromaX = t.s32X / 2 + (tChromaMv.s32X >> 1);
    const int32_t s32ChromaY = t.s32Y / 2 + (tChromaMv.s32Y >> 1);
    if (!t.tLuma.Contains(s32X, s32Y, 16, 16) || !t.tChroma.Contains(s32ChromaX, s32ChromaY, 8, 8)) return false;
    const int32_t s32Pitch = (int32_t)t.tLuma.stride;
    uint8_t* const pu8Dst = t.LumaBlock(0);
    const uint8_t* const pu8Src = t.Luma(s32X, s32Y);
    const int32_t s32PhaseX = tMv.s32X & 3;
    const int32_t s32PhaseY = tMv.s32Y & 3;
    if (s32PhaseX | s32PhaseY) {
        QuarterPel16x16(pu8Dst, s32Pitch, pu8Src, s32Pitch, t.ptCtx->pu8QpelBuf, s32PhaseX, s32PhaseY, t.u32Rounding);
    } else {
        Kernels::Luma16x16(pu8Dst, pu8Src, s32Pitch, 0, t.u32Rounding);
    }
    ChromaInside<Kernels>(t, t.tChroma.Offset(s32ChromaX, s32ChromaY), Phase(tChromaMv.s32X, tChromaMv.s32Y));
    return true;
}

template <typename Kernels>
MP4V_INLINE bool FourQuarterInside(const Inside& t) {
    const Mp4vMv* const ptMv = t.Mv();
    const Mp4vMv tChromaMv = ChromaVector(*t.ptCtx->tMb.ptCurMbInfo, 2);
    const int32_t s32ChromaX = t.s32X / 2 + (tChromaMv.s32X >> 1);
    const int32_t s32ChromaY = t.s32Y / 2 + (tChromaMv.s32Y >> 1);
    if (!t.tChroma.Contains(s32ChromaX, s32ChromaY, 8, 8)) return false;
    for (int32_t b = 0; b < 4; b++) {
        const int32_t s32X = t.s32X + 8 * (b & 1) + (ptMv[b].s32X >> 2);
        const int32_t s32Y = t.s32Y + 8 * (b >> 1) + (ptMv[b].s32Y >> 2);
        if (!t.tLuma.Contains(s32X, s32Y, 8, 8)) return false;
    }
    for (int32_t b = 0; b < 4; b++) {
        InterpolateQuarterPel8x8(t.LumaBlock(b), t.ptCtx->tRefFrame.pu8Y, t.ptCtx->pu8QpelBuf, t.s32X + 8 * (b & 1),
                                 t.s32Y + 8 * (b >> 1), ptMv[b].s32X, ptMv[b].s32Y, (int32_t)t.tLuma.stride,
                                 t.u32Rounding);
    }
    ChromaInside<Kernels>(t, t.tChroma.Offset(s32ChromaX, s32ChromaY), Phase(tChromaMv.s32X, tChromaMv.s32Y));
    return true;
}

// One field, see PredictField.
template <typename Kernels>
MP4V_INLINE bool FieldInside(const Inside& t, int32_t s32Field) {
    const Mp4vMbScratch& tMb = t.ptCtx->tMb;
    const Mp4vMv tMv = t.Mv()[s32Field];
    const Mp4vMv tChromaMv = FieldChromaVector(*tMb.ptCurMbInfo, tMv);
    const int32_t s32From = s32Field ? tMb.u8FwdBotFieldRef : tMb.u8FwdTopFieldRef;
    const int32_t s32X = t.s32X + (tMv.s32X >> 1);
    const int32_t s32Y = t.s32Y + s32From + 2 * (tMv.s32Y >> 2);
    const int32_t s32ChromaX = t.s32X / 2 + (tChromaMv.s32X >> 1);
    const int32_t s32ChromaY = t.s32Y / 2 + s32From + 2 * (tChromaMv.s32Y >> 1);
    // Every second line: as many as the whole macroblock has.
    if (!t.tLuma.Contains(s32X, s32Y, 16, 16) || !t.tChroma.Contains(s32ChromaX, s32ChromaY, 8, 8)) return false;
    Kernels::Luma16x8(tMb.pu8DstY + s32Field * t.tLuma.stride, t.Luma(s32X, s32Y), 2 * t.tLuma.stride,
                      Phase(tMv.s32X, tMv.s32Y >> 1), t.u32Rounding);
    const ChromaPlaces tPlaces(t, t.tChroma.Offset(s32ChromaX, s32ChromaY), s32Field * t.tChroma.stride);
    Kernels::Chroma8x4(tPlaces.apu8Dst, tPlaces.apu8Src, 2 * t.tChroma.stride, Phase(tChromaMv.s32X, tChromaMv.s32Y),
                       t.u32Rounding);
    return true;
}

template <typename Kernels>
__attribute__((noinline)) void PredictFields(Mp4vDecCtx* ptCtx, uint32_t u32Column, uint32_t u32Row) {
    for (int32_t s32Field = 0; s32Field < 2; s32Field++) {
        if (!FieldInside<Kernels>({ptCtx, u32Column, u32Row}, s32Field))
            PredictField(ptCtx, FindPlanes(ptCtx), u32Column, u32Row, s32Field);
    }
}

template <typename Kernels>
__attribute__((noinline)) void PredictQuarter(Mp4vDecCtx* ptCtx, uint32_t u32Column, uint32_t u32Row) {
    const Inside t(ptCtx, u32Column, u32Row);
    const bool bFour = ptCtx->tMb.ptCurMbInfo->u8MbType == MB_INTER4V;
    if (!(bFour ? FourQuarterInside<Kernels>(t) : OneQuarterInside<Kernels>(t)))
        PredictAnywhere(ptCtx, u32Column, u32Row);
}

template <typename Kernels>
__attribute__((noinline)) void PredictFour(Mp4vDecCtx* ptCtx, uint32_t u32Column, uint32_t u32Row) {
    if (!FourHalfInside<Kernels>({ptCtx, u32Column, u32Row})) PredictAnywhere(ptCtx, u32Column, u32Row);
}

template <typename Kernels>
MP4V_INLINE void Predict(Mp4vDecCtx* ptCtx, uint32_t u32Column, uint32_t u32Row) {
    const MbInfo& tInfo = *ptCtx->tMb.ptCurMbInfo;
    if (tInfo.u8FieldPred) return PredictFields<Kernels>(ptCtx, u32Column, u32Row);
    if (ptCtx->u16QuarterSample) return PredictQuarter<Kernels>(ptCtx, u32Column, u32Row);
    if (tInfo.u8MbType == MB_INTER4V) return PredictFour<Kernels>(ptCtx, u32Column, u32Row);
    if (!OneHalfInside<Kernels>({ptCtx, u32Column, u32Row})) PredictAnywhere(ptCtx, u32Column, u32Row);
}

}  // namespace

void PredictInterMb(Mp4vDecCtx* ptCtx, uint32_t u32Column, uint32_t u32Row) {
    Predict<TableKernels>(ptCtx, u32Column, u32Row);
}

void PredictInterMbPortable(Mp4vDecCtx* ptCtx, uint32_t u32Column, uint32_t u32Row) {
    Predict<PortableKernels>(ptCtx, u32Column, u32Row);
}

bool PredictionIsPortable(bool bFields) {
    return MemCopy16x16 == MP4DecMemCopy16x16_c && Interpolate16x16H == Interpolate16x16H_c &&
           Interpolate16x16V == Interpolate16x16V_c && Interpolate16x16HV == Interpolate16x16HV_c &&
           MemCopy8x8 == MP4DecMemCopy8x8_c && Interpolate8x8H == Interpolate8x8H_c &&
           Interpolate8x8V == Interpolate8x8V_c && Interpolate8x8HV == Interpolate8x8HV_c &&
           (!bFields || (MemCopy8x4 == MP4DecMemCopy8x4_c && Interpolate8x4H == Interpolate8x4H_c &&
                         Interpolate8x4V == Interpolate8x4V_c && Interpolate8x4HV == Interpolate8x4HV_c));
}
