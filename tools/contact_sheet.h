/* SPDX-License-Identifier: BSD-2-Clause
 * Copyright (c) 2026, the mp4vdec authors */
#ifndef MP4VDEC_TOOLS_CONTACT_SHEET_H_
#define MP4VDEC_TOOLS_CONTACT_SHEET_H_

#include <cstdint>
#include <string>
#include <vector>

#include "mp4vdec.hpp"

namespace mp4v {

/** An RGB image, rows without gaps. */
struct Image {
    uint32_t width = 0;
    uint32_t height = 0;
    std::vector<uint8_t> rgb;
};

/** The picture, made smaller by a whole factor until it is at most `max_width` columns wide. */
Image Thumbnail(const Picture& picture, uint32_t max_width);

/**
 * Collects up to 16 pictures, evenly spaced over a stream of unknown length, and lays them out in rows of four.
 */
class ContactSheet {
  public:
    static constexpr size_t kCells = 16;
    static constexpr uint32_t kColumns = 4;
    static constexpr uint32_t kCellWidth = 320;

    void Add(const Picture& picture);
    bool empty() const { return thumbnails_.empty(); }
    Image Render() const;

  private:
    // Every stride_-th picture; when there are twice as many as wanted, every other one goes and the stride doubles.
    std::vector<Image> thumbnails_;
    uint64_t stride_ = 1;
    uint64_t seen_ = 0;
};

/** Throws FileError. */
void WritePng(const Image& image, const std::string& path);

}  // namespace mp4v

#endif  // MP4VDEC_TOOLS_CONTACT_SHEET_H_
