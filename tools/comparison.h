/* SPDX-License-Identifier: BSD-2-Clause
 * Copyright (c) 2026, the mp4vdec authors */
#ifndef MP4VDEC_TOOLS_COMPARISON_H_
#define MP4VDEC_TOOLS_COMPARISON_H_

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "mp4vdec.hpp"
#include "tools/image.h"

namespace mp4v {

/** How two videos differ, picture by picture. */
class Comparison {
  public:
    /** Both of the same size. */
    void Add(const Picture& a, const Picture& b);

    /** How many pictures one has more than the other. */
    void SetLeftOver(uint64_t a, uint64_t b) { left_over_ = {a, b}; }
    void SetRefused(uint64_t a, uint64_t b) { refused_ = {a, b}; }
    /** The comparison ends where the sizes differ. */
    void SetSizesDiffer(const Picture& a, const Picture& b);

    bool same() const {
        return !first_ && sizes_.empty() && left_over_[0] + left_over_[1] == 0 && pictures_.size() > 0;
    }
    /** Of luma, in dB; infinite where nothing differs. Both of the same size. */
    static double LumaPsnr(const Picture& a, const Picture& b);

    bool differs_in_samples() const { return first_.has_value(); }

    std::string Text(const std::string& a, const std::string& b) const;
    std::string Json(const std::string& a, const std::string& b) const;

    /** The first pictures that differ, beside each other and beside what differs, the first macroblock framed. */
    const Image& difference() const { return difference_; }

  private:
    struct PlaneSum {
        uint64_t squares = 0;
        uint64_t samples = 0;
        int largest = 0;

        void Add(const PlaneSum& other);
        std::optional<double> psnr() const;  // null: no difference
    };
    struct First {
        uint64_t picture;
        size_t plane;
        uint32_t x;
        uint32_t y;
        int a;
        int b;
        uint32_t macroblock;
        uint32_t column;
        uint32_t row;
    };

    static PlaneSum AddPlane(const PlaneView& a, const PlaneView& b);
    void FindFirst(const Picture& a, const Picture& b);
    void Draw(const Picture& a, const Picture& b);

    std::vector<std::array<PlaneSum, 3>> pictures_;
    std::optional<First> first_;
    std::array<uint64_t, 2> left_over_{};
    std::array<uint64_t, 2> refused_{};
    std::string sizes_;
    Image difference_;
};

}  // namespace mp4v

#endif  // MP4VDEC_TOOLS_COMPARISON_H_
