// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

// Writes whole small streams whose pictures are known beforehand.
#ifndef MP4VDEC_TESTS_SUPPORT_SMALL_STREAM_H_
#define MP4VDEC_TESTS_SUPPORT_SMALL_STREAM_H_

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <utility>
#include <vector>

#include "support/bit_writer.h"
#include "support/headers_writer.h"

namespace mp4v::test {

using Bytes = std::vector<uint8_t>;

// Sequence, object and layer headers.
inline void PutLayer(BitWriter& out, const VolHeader& vol) {
    PutVisualObjectSequence(out);
    VisualObjectHeader{}.PutTo(out);
    PutStartCode(out, kVideoObjectCode);
    vol.PutTo(out);
}

inline uint32_t Macroblocks(const VolHeader& vol) {
    return ((vol.width + 15) / 16) * ((vol.height + 15) / 16);
}

// next_start_code(): a zero, then ones.
inline void PutStuffing(BitWriter& out) {
    out.Put(0, 1);
    while (out.bit_count() % 8) out.Put(1, 1);
}

// dct_dc_differential of a luma block, ISO/IEC 14496-2 tables B-13 and B-15; |difference| < 64.
inline void PutLumaDc(BitWriter& out, int difference) {
    static constexpr const char* kSizes[] = {"011", "11", "10", "010", "001", "0001", "00001"};
    const auto size = static_cast<unsigned>(std::bit_width(static_cast<unsigned>(std::abs(difference))));
    out.Bits(kSizes[size]);
    const int coded = difference > 0 ? difference : difference + (1 << size) - 1;
    if (size) out.Put(static_cast<uint32_t>(coded), size);
}

// An I-VOP of DC coefficients: `difference` gives that of each luma block against its prediction; chroma is 128.
inline void PutIntraPicture(BitWriter& out, const VolHeader& vol, VopHeader vop,
                            const std::function<int()>& difference) {
    vop.coding_type = 0;
    vop.PutTo(out, vol);
    for (uint32_t i = 0; i < Macroblocks(vol); i++) {
        out.Bits("1 0 0011");  // mcbpc: intra, no chroma coefficients; ac_pred_flag; cbpy: none
        if (vol.interlaced) out.Bits("0");
        for (int block = 0; block < 4; block++) PutLumaDc(out, difference());
        out.Bits("11 11");
    }
    PutStuffing(out);
}

// Every luma sample is `luma`, in [65, 191]: the first block differs from 128, all others are predicted well.
inline void PutFlatPicture(BitWriter& out, const VolHeader& vol, int luma, const VopHeader& vop = {}) {
    int first = luma - 128;
    PutIntraPicture(out, vol, vop, [&] { return std::exchange(first, 0); });
}

// A P-VOP that repeats the reference picture macroblock by macroblock.
inline void PutSkippedPicture(BitWriter& out, const VolHeader& vol, VopHeader vop = {}) {
    vop.coding_type = 1;
    vop.PutTo(out, vol);
    for (uint32_t i = 0; i < Macroblocks(vol); i++) out.Put(1, 1);
    PutStuffing(out);
}

inline void PutNotCodedPicture(BitWriter& out, const VolHeader& vol, VopHeader vop = {}) {
    vop.coding_type = 1;
    vop.coded = false;
    vop.PutTo(out, vol);
    PutStuffing(out);
}

// What a flat picture of odd or even size is in planar 4:2:0.
inline Bytes FlatSamples(uint32_t width, uint32_t height, int luma) {
    const size_t luma_size = size_t{width} * height;
    Bytes samples(luma_size + size_t{2} * ((width + 1) / 2) * ((height + 1) / 2), 128);
    std::fill_n(samples.begin(), luma_size, static_cast<uint8_t>(luma));
    return samples;
}

inline VolHeader LayerOf(uint32_t width, uint32_t height) {
    VolHeader vol;
    vol.width = width;
    vol.height = height;
    return vol;
}

}  // namespace mp4v::test

#endif  // MP4VDEC_TESTS_SUPPORT_SMALL_STREAM_H_
