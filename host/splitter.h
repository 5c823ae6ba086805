/* SPDX-License-Identifier: BSD-2-Clause
 * Copyright (c) 2026, the mp4vdec authors */
#ifndef MP4VDEC_HOST_SPLITTER_H_
#define MP4VDEC_HOST_SPLITTER_H_

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace mp4v {

/** What the decoder is fed in one call: any headers, then at most one picture. */
struct Chunk {
    uint64_t offset = 0;        // of the first byte in the stream
    std::vector<uint8_t> data;  // never empty once delivered
    bool has_picture = false;   // holds a VOP start code
    uint64_t dropped = 0;       // bytes after `data` that were left out because the chunk grew too long
};

/** Knows where a chunk ends from the start codes in it. */
class ChunkBoundary {
  public:
    /** Takes a start code by its last byte. True: the chunk ends before it, and it is the first of the next chunk. */
    bool EndsBefore(uint8_t code);
    bool has_picture() const { return has_picture_; }
    void Reset() { has_picture_ = false; }

  private:
    bool has_picture_ = false;
};

/**
 * Cuts an elementary stream (ISO/IEC 14496-2, clause 6.2) into chunks, as the bytes arrive.
 *
 * A chunk ends before the first start code after its VOP; an end-of-sequence code stays with the picture it follows,
 * since alone it would be a chunk without a picture. Bytes before the first start code belong to the first chunk,
 * headers that no picture follows are the last. The chunks joined together give the stream again, unless a
 * chunk exceeds the limit.
 */
class Splitter {
  public:
    /** Twice what the largest picture can be coded in; longer chunks are not video. */
    static constexpr size_t kDefaultLimit = size_t{32} << 20;

    explicit Splitter(size_t limit = kDefaultLimit);

    /** Adds the next bytes of the stream. Ignored after Finish(). */
    void Append(std::span<const uint8_t> bytes);

    /** Tells that the stream has ended, so that what is left is the last chunk. */
    void Finish();

    /** Takes the next complete chunk. False: more bytes are needed, or after Finish(), there is none left. */
    bool Next(Chunk& chunk);

  private:
    bool FindEnd();
    bool StartCodeAt(size_t pos) const;
    void DropExcess();
    void Deliver(size_t end, Chunk& chunk);

    size_t limit_;
    std::vector<uint8_t> buffer_;
    size_t begin_ = 0;  // of the current chunk in buffer_
    size_t scan_ = 0;   // start codes before it have been seen; begin_ <= scan_ <= buffer_.size()
    uint64_t offset_ = 0;
    uint64_t dropped_ = 0;
    ChunkBoundary boundary_;
    bool finished_ = false;
};

}  // namespace mp4v

#endif  // MP4VDEC_HOST_SPLITTER_H_
