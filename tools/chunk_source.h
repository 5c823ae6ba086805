/* SPDX-License-Identifier: BSD-2-Clause
 * Copyright (c) 2026, the mp4vdec authors */
#ifndef MP4VDEC_TOOLS_CHUNK_SOURCE_H_
#define MP4VDEC_TOOLS_CHUNK_SOURCE_H_

#include <deque>
#include <string>
#include <vector>

#include "host/splitter.h"
#include "tools/file.h"

namespace mp4v {

/** Reads chunks from a file, a few of them ahead. */
class ChunkSource {
  public:
    /** Enough to see how far pictures are apart in time. */
    static constexpr size_t kAhead = 4;

    explicit ChunkSource(const std::string& path);

    /** Takes the next chunk. False at the end, or when interrupted. */
    bool Next(Chunk& chunk);

    /** The chunks that follow the one taken last, at most kAhead. */
    const std::deque<Chunk>& ahead() const { return ahead_; }

    uint64_t bytes_read() const { return bytes_read_; }
    const InputFile& file() const { return file_; }

    /** What kind of file the first bytes tell of, when it is a well-known one that holds no bare stream; else null. */
    const char* container() const;

  private:
    void Fill();
    bool ReadBlock();

    InputFile file_;
    Splitter splitter_;
    std::vector<uint8_t> block_;
    std::vector<uint8_t> head_;
    std::deque<Chunk> ahead_;
    uint64_t bytes_read_ = 0;
    bool at_end_ = false;
};

}  // namespace mp4v

#endif  // MP4VDEC_TOOLS_CHUNK_SOURCE_H_
