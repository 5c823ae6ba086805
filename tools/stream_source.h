/* SPDX-License-Identifier: BSD-2-Clause
 * Copyright (c) 2026, the mp4vdec authors */
#ifndef MP4VDEC_TOOLS_STREAM_SOURCE_H_
#define MP4VDEC_TOOLS_STREAM_SOURCE_H_

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "tools/file.h"

namespace mp4v {

/** The bytes of an elementary stream, from a file. */
class StreamSource {
  public:
    explicit StreamSource(const std::string& path);

    /** The next bytes, valid until the next call; none at the end, or when interrupted. */
    std::span<const uint8_t> Read();

    uint64_t bytes_read() const { return bytes_read_; }
    const InputFile& file() const { return file_; }

    /** What kind of file the first bytes tell of, when it is a well-known one that holds no bare stream; else null. */
    const char* container() const;

  private:
    std::span<const uint8_t> ReadBlock();

    InputFile file_;
    std::vector<uint8_t> block_;
    std::span<const uint8_t> first_;
    uint64_t bytes_read_ = 0;
};

}  // namespace mp4v

#endif  // MP4VDEC_TOOLS_STREAM_SOURCE_H_
