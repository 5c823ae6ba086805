/* SPDX-License-Identifier: BSD-2-Clause
 * Copyright (c) 2026, the mp4vdec authors */
#include "tools/chunk_source.h"

#include <algorithm>
#include <string_view>

namespace mp4v {
namespace {

constexpr size_t kBlockSize = size_t{1} << 16;
constexpr size_t kHeadSize = 12;

}  // namespace

ChunkSource::ChunkSource(const std::string& path) : file_(path), block_(kBlockSize) {
    Fill();
}

bool ChunkSource::Next(Chunk& chunk) {
    if (ahead_.empty()) return false;
    chunk = std::move(ahead_.front());
    ahead_.pop_front();
    Fill();
    return true;
}

void ChunkSource::Fill() {
    Chunk chunk;
    while (ahead_.size() < kAhead) {
        if (splitter_.Next(chunk)) {
            ahead_.push_back(std::move(chunk));
        } else if (at_end_ || !ReadBlock()) {
            return;
        }
    }
}

// False when there is nothing more to split.
bool ChunkSource::ReadBlock() {
    const size_t got = file_.Read(block_);
    if (Interrupted()) {
        // What has arrived of the next picture is not the whole of it.
        at_end_ = true;
        return false;
    }
    bytes_read_ += got;
    const std::span<const uint8_t> bytes(block_.data(), got);
    const size_t wanted = std::min(got, kHeadSize - head_.size());
    head_.insert(head_.end(), bytes.begin(), bytes.begin() + static_cast<ptrdiff_t>(wanted));
    splitter_.Append(bytes);
    if (got == 0) {
        splitter_.Finish();
        at_end_ = true;
    }
    return true;
}

const char* ChunkSource::container() const {
    const std::string_view head(reinterpret_cast<const char*>(head_.data()), head_.size());
    if (head.size() < kHeadSize) return nullptr;
    if (head.starts_with("RIFF") && head.substr(8, 4) == "AVI ") return "an AVI file";
    if (head.substr(4, 4) == "ftyp") return "an MP4 file";
    if (head.starts_with("\x1A\x45\xDF\xA3")) return "a Matroska file";
    return nullptr;
}

}  // namespace mp4v
