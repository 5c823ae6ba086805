/* SPDX-License-Identifier: BSD-2-Clause
 * Copyright (c) 2026, the mp4vdec authors */
#ifndef MP4VDEC_TOOLS_STREAM_SOURCE_H_
#define MP4VDEC_TOOLS_STREAM_SOURCE_H_

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "tools/demuxer.h"
#include "tools/file.h"

namespace mp4v {

/** The bytes of an elementary stream, from a file that is one or a container. */
class StreamSource {
  public:
    explicit StreamSource(const std::string& path);

    /** The next bytes, valid until the next call; none at the end, or when interrupted. */
    std::span<const uint8_t> Read();

    /** How far the file has been read. */
    uint64_t position() const { return demuxer_ ? demuxer_->position() : bytes_read_; }
    const InputFile& file() const { return file_; }
    Container container() const { return container_; }
    /** The first bytes; only before Read(). */
    std::span<const uint8_t> head() const { return first_; }

    /** What ended the stream too early, as a sentence without a full stop; else empty. */
    std::string problem() const;

  private:
    std::span<const uint8_t> ReadBlock();

    InputFile file_;
    std::vector<uint8_t> block_;
    std::span<const uint8_t> first_;
    uint64_t bytes_read_ = 0;
    Container container_ = Container::kNone;
    uint64_t missing_ = 0;  // bytes of a container that is cut off
    std::unique_ptr<Demuxer> demuxer_;
};

}  // namespace mp4v

#endif  // MP4VDEC_TOOLS_STREAM_SOURCE_H_
