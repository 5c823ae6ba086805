// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

// Kernels that are not the portable ones and yet do the same: with them in the table the decoder takes none of its
// shortcuts.
#ifndef MP4VDEC_FUZZ_OTHER_KERNELS_H_
#define MP4VDEC_FUZZ_OTHER_KERNELS_H_

#include "common/kernels.h"

namespace mp4v::fuzz {

template <auto kPortable>
struct Other;

template <typename Result, typename... Arguments, Result (*kPortable)(Arguments...)>
struct Other<kPortable> {
    static Result Call(Arguments... arguments) { return kPortable(arguments...); }
};

#define MP4V_FUZZ_KERNELS(X)                          \
    X(Interpolate16x16H, Interpolate16x16H_c)         \
    X(Interpolate16x16V, Interpolate16x16V_c)         \
    X(Interpolate16x16HV, Interpolate16x16HV_c)       \
    X(Interpolate8x8H, Interpolate8x8H_c)             \
    X(Interpolate8x8V, Interpolate8x8V_c)             \
    X(Interpolate8x8HV, Interpolate8x8HV_c)           \
    X(Interpolate8x4H, Interpolate8x4H_c)             \
    X(Interpolate8x4V, Interpolate8x4V_c)             \
    X(Interpolate8x4HV, Interpolate8x4HV_c)           \
    X(MemCopy16x16, MP4DecMemCopy16x16_c)             \
    X(MemCopy8x8, MP4DecMemCopy8x8_c)                 \
    X(MemCopy8x4, MP4DecMemCopy8x4_c)                 \
    X(MemCopyStride16x16, MemCopyStride16x16_c)       \
    X(MemCopyStride16x8, MemCopyStride16x8_c)         \
    X(MemCopyStride8x8, MemCopyStride8x8_c)           \
    X(MemCopyStride8x4, MemCopyStride8x4_c)           \
    X(MemSet, MP4DecMemSet_c)                         \
    X(MemSet16, MP4DecMemSet_c)                       \
    X(MemSetAlign16, MP4DecMemSet_c)                  \
    X(MemCopy8, MP4DecMemCopy_c)                      \
    X(MemCopyAlign16, MP4DecMemCopy_c)                \
    X(McCopy16to8, McCopy16to8_c)                     \
    X(McAdd16to8, McAdd16to8_c)                       \
    X(HorzPass16, HorzPass16_c)                       \
    X(HorzPassAvg16, HorzPassAvg16_c)                 \
    X(HorzPassAvgUp16, HorzPassAvgUp16_c)             \
    X(HorzPass8, HorzPass8_c)                         \
    X(HorzPassAvg8, HorzPassAvg8_c)                   \
    X(HorzPassAvgUp8, HorzPassAvgUp8_c)               \
    X(VertPass16, VertPass16_c)                       \
    X(VertPassAvg16, VertPassAvg16_c)                 \
    X(VertPassAvgUp16, VertPassAvgUp16_c)             \
    X(VertPass8, VertPass8_c)                         \
    X(VertPassAvg8, VertPassAvg8_c)                   \
    X(VertPassAvgUp8, VertPassAvgUp8_c)               \
    X(DequantH263Intra, DequantH263Intra_c)           \
    X(DequantH263Inter, DequantH263Inter_c)           \
    X(DequantMpegIntra, DequantMpegIntra_c)           \
    X(DequantMpegInter, DequantMpegInter_c)           \
    X(Idct8x8, Mp4vDecIdct8x8_c)                      \
    X(AddIdct8x8, Mp4DecAddiDCT8x8Stride_c)           \
    X(AddIdct8x8Multi, Mp4DecAddiDCT8x8Multi_c)       \
    X(GetMedian, MPEG4DecGetMedian_c)                 \
    X(VopOutput, VopOutput_c)                         \
    X(Deblock8x8Horiz, Deblock8x8HorizFast_c)         \
    X(Mp4vDecTranspose8x8, Mp4vDecTranspose8x8_c)     \
    X(Mp4vDecTranspose16x16, Mp4vDecTranspose16x16_c) \
    X(DeInterlaceFrameMB, DeInterlaceFrameMB_c)       \
    X(DeInterlaceFieldMB, DeInterlaceFieldMB_c)       \
    X(ClearMMX, emms_c)

// In the table from construction to destruction.
class OtherKernels {
  public:
    OtherKernels() {
#define MP4V_FUZZ_REPLACE(Variable, Portable) Variable = Other<Portable>::Call;
        MP4V_FUZZ_KERNELS(MP4V_FUZZ_REPLACE)
    }
    ~OtherKernels() {
#define MP4V_FUZZ_RESTORE(Variable, Portable) Variable = Portable;
        MP4V_FUZZ_KERNELS(MP4V_FUZZ_RESTORE)
    }
    OtherKernels(const OtherKernels&) = delete;
    OtherKernels& operator=(const OtherKernels&) = delete;
};

}  // namespace mp4v::fuzz

#endif  // MP4VDEC_FUZZ_OTHER_KERNELS_H_
