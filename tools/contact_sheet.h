/* SPDX-License-Identifier: BSD-2-Clause
 * Copyright (c) 2026, the mp4vdec authors */
#ifndef MP4VDEC_TOOLS_CONTACT_SHEET_H_
#define MP4VDEC_TOOLS_CONTACT_SHEET_H_

#include <cstdint>
#include <optional>
#include <vector>

#include "mp4vdec.hpp"
#include "tools/image.h"

namespace mp4v {

/**
 * Collects up to 16 pictures, evenly spaced over a stream of unknown length, and lays them out in rows of four.
 * Pictures that have room for it carry their time.
 */
class ContactSheet {
  public:
    static constexpr size_t kCells = 16;
    static constexpr uint32_t kColumns = 4;
    static constexpr uint32_t kCellWidth = 320;

    void Add(const Picture& picture, std::optional<double> seconds);
    bool empty() const { return thumbnails_.empty(); }
    Image Render() const;

  private:
    // Every stride_-th picture; when there are twice as many as wanted, every other one goes and the stride doubles.
    std::vector<Image> thumbnails_;
    uint64_t stride_ = 1;
    uint64_t seen_ = 0;
};

/** "1:02:03.04" */
std::string TimeCode(double seconds);

}  // namespace mp4v

#endif  // MP4VDEC_TOOLS_CONTACT_SHEET_H_
