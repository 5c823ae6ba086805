/* SPDX-License-Identifier: BSD-2-Clause
 * Copyright (c) 2026, the mp4vdec authors */
#ifndef MP4VDEC_TOOLS_MD5_H_
#define MP4VDEC_TOOLS_MD5_H_

#include <md5.h>

#include <string>

#include "mp4vdec.hpp"

namespace mp4v {

/** MD5 of everything added. */
class Md5 {
  public:
    Md5() { MD5Init(&context_); }

    /** Adds the samples of Y, U and V at the picture's size. */
    void Add(const Picture& picture) {
        for (const PlaneView& plane : picture.planes) {
            for (uint32_t y = 0; y < plane.height; y++) {
                MD5Update(&context_, plane.samples + y * plane.pitch, plane.width);
            }
        }
    }

    /** 32 hexadecimal digits. Ends the computation. */
    std::string Hex() {
        char text[MD5_DIGEST_STRING_LENGTH];
        return MD5End(&context_, text);
    }

  private:
    MD5_CTX context_;
};

}  // namespace mp4v

#endif  // MP4VDEC_TOOLS_MD5_H_
