/* SPDX-License-Identifier: BSD-2-Clause
 * Copyright (c) 2026, the mp4vdec authors */
#ifndef MP4VDEC_HOST_SESSION_H_
#define MP4VDEC_HOST_SESSION_H_

#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "host/memory.h"
#include "host/vol_header.h"

namespace mp4v {

enum class PictureType : uint32_t { kIntra = 1, kPredicted = 2, kNotCoded = 3 };

struct PlaneView {
    const uint8_t* samples = nullptr;
    uint32_t width = 0;
    uint32_t height = 0;
    size_t pitch = 0;  // bytes from one row to the next
};

/** A decoded picture at the stream's own size, planar 4:2:0; chroma of odd sizes is rounded up. */
struct Picture {
    PictureType type = PictureType::kIntra;
    uint32_t width = 0;
    uint32_t height = 0;
    std::array<PlaneView, 3> planes;  // Y, U, V

    /** Y, U and V without gaps. */
    std::vector<uint8_t> Pack() const;
    size_t packed_size() const;
};

struct DecodeResult {
    uint32_t status = 0;       // of the decoder; 0: fine
    bool has_picture = false;  // false although fine: not to be shown, or the layer has size 0
    Picture picture;           // valid until the next call of the session
    uint64_t offset = 0;
    uint64_t time_stamp = 0;

    std::string status_name() const;
};

struct SessionOptions {
    uint32_t control_flags = 0;  // MP4VDEC_CTRL_*
};

/**
 * One decoder with what a host owes it: memory, a padded copy of each chunk, and a picture buffer.
 *
 * The decoder is opened when the first picture size is known, and again when a layer outgrows it; its
 * pictures come back at the size that the stream tells, whatever the decoder worked with.
 */
class Session {
  public:
    explicit Session(SessionOptions options = {});
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    /** Decodes one chunk. `offset` and `time_stamp` are handed through. */
    DecodeResult Decode(std::span<const uint8_t> chunk, uint64_t offset = 0, uint64_t time_stamp = 0);

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
    Picture MakePicture(uint32_t coded_width, uint32_t coded_height, uint32_t type) const;

    SessionOptions options_;
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

#endif  // MP4VDEC_HOST_SESSION_H_
