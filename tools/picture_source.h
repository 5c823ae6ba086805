/* SPDX-License-Identifier: BSD-2-Clause
 * Copyright (c) 2026, the mp4vdec authors */
#ifndef MP4VDEC_TOOLS_PICTURE_SOURCE_H_
#define MP4VDEC_TOOLS_PICTURE_SOURCE_H_

#include <cstdint>
#include <memory>
#include <string>

#include "mp4vdec.hpp"

namespace mp4v {

/** Pictures one after the other, from whatever holds them. */
class PictureSource {
  public:
    virtual ~PictureSource() = default;

    /** False at the end, or when interrupted. The samples are valid until the next call. */
    virtual bool Next(Picture& picture) = 0;

    /** Chunks that gave no picture because they are refused or damaged. */
    virtual uint64_t refused() const = 0;
};

/** For a Y4M file (8 bits, 4:2:0), or anything that can be decoded; "-" is standard input. Throws FileError. */
std::unique_ptr<PictureSource> OpenPictures(const std::string& path);

}  // namespace mp4v

#endif  // MP4VDEC_TOOLS_PICTURE_SOURCE_H_
