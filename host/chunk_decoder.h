/* SPDX-License-Identifier: BSD-2-Clause
 * Copyright (c) 2026, the mp4vdec authors */
#ifndef MP4VDEC_HOST_CHUNK_DECODER_H_
#define MP4VDEC_HOST_CHUNK_DECODER_H_

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "host/inspection.h"
#include "host/memory.h"
#include "host/vol_header.h"
#include "mp4vdec.h"
#include "mp4vdec.hpp"

namespace mp4v {

struct DecodeResult {
    uint32_t status = 0;       // of the decoder; 0: fine
    bool has_picture = false;  // false although fine: hidden, or the layer has size 0
    bool hidden = false;       // decoded, but not written out as MP4VDEC_CTRL_INTRA_ONLY asks
    Picture picture;           // valid until the next chunk
    uint64_t offset = 0;
    uint64_t time_stamp = 0;

    std::string status_name() const;
};

struct ChunkDecoderOptions {
    uint32_t control_flags = 0;  // MP4VDEC_CTRL_*
    uint32_t ext_param = 0;      // Mp4vDecOpenParams::u32ExtParam
};

/**
 * One decoder with what a host owes it: memory, a padded copy of each chunk, and a picture buffer.
 *
 * The decoder is opened when the first picture size is known, and again when a layer outgrows it; its
 * pictures come back at the size that the stream tells, whatever the decoder worked with.
 */
class ChunkDecoder {
  public:
    explicit ChunkDecoder(ChunkDecoderOptions options = {});
    ~ChunkDecoder();
    ChunkDecoder(const ChunkDecoder&) = delete;
    ChunkDecoder& operator=(const ChunkDecoder&) = delete;

    /** Decodes one chunk. `offset` and `time_stamp` are handed through. */
    DecodeResult Decode(std::span<const uint8_t> chunk, uint64_t offset = 0, uint64_t time_stamp = 0);

    /**
     * The same, with the picture in the caller's memory when that has room for the largest one that the decoder may
     * write by now; else in this object's. Whatever becomes of the picture, the memory may have been written to.
     */
    DecodeResult DecodeInto(std::span<uint8_t> memory, std::span<const uint8_t> chunk);

    /** Has the decoder judge the headers of a chunk: the status with which it refuses one. */
    uint32_t Judge(std::span<const uint8_t> chunk);

    /** What the chunk that was decoded last consists of. */
    Inspection Inspect() const;

    void set_control_flags(uint32_t flags) { options_.control_flags = flags; }

    /** The last layer header with a size, accepted or not; null before the first. */
    const VolHeader* layer() const { return has_layer_ ? &layer_ : nullptr; }
    uint32_t open_width() const { return open_width_; }
    uint32_t open_height() const { return open_height_; }
    uint32_t times_opened() const { return times_opened_; }
    MemoryService& memory() { return memory_; }

  private:
    struct Size {
        uint32_t width;
        uint32_t height;
    };

    Size SizeFor(const ChunkHeaders& headers) const;
    uint32_t EnsureOpen(Size size);
    void Close();
    void Load(std::span<const uint8_t> chunk);
    void ReplayHeaders();
    void Replay(const std::vector<uint8_t>& padded);
    void Remember(const ChunkHeaders& headers);
    Picture MakePicture(const Mp4vDecOutArgs& out) const;

    ChunkDecoderOptions options_;
    MemoryService memory_;
    void* decoder_ = nullptr;
    uint32_t open_width_ = 0;
    uint32_t open_height_ = 0;
    uint32_t times_opened_ = 0;
    std::vector<uint8_t> chunk_;    // the current chunk, sizes rounded, padding behind
    std::vector<uint8_t> picture_;  // of the open size
    // Headers of past chunks, padded: the latest with a layer, the latest with user data, and the layer before those.
    std::vector<uint8_t> layer_headers_;
    std::vector<uint8_t> user_data_headers_;
    std::vector<uint8_t> user_data_layer_;
    VolHeader layer_;
    bool has_layer_ = false;
};

}  // namespace mp4v

#endif  // MP4VDEC_HOST_CHUNK_DECODER_H_
