/* SPDX-License-Identifier: BSD-2-Clause
 * Copyright (c) 2026, the mp4vdec authors */
#ifndef MP4VDEC_TOOLS_IMAGE_H_
#define MP4VDEC_TOOLS_IMAGE_H_

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

/** The picture in colours, made smaller by a whole factor. */
Image ToImage(const Picture& picture, uint32_t factor = 1);

/** Puts an image onto another, in which it must lie. */
void Paste(Image& onto, const Image& image, uint32_t left, uint32_t top);

/** White digits, colons and full stops on black; 6 columns per character, 9 rows. */
Image DigitsImage(const std::string& text);

/** Throws FileError. */
void WritePng(const Image& image, const std::string& path);

}  // namespace mp4v

#endif  // MP4VDEC_TOOLS_IMAGE_H_
