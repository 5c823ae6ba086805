/* SPDX-License-Identifier: BSD-2-Clause
 * Copyright (c) 2026, the mp4vdec authors */
#include "host/splitter.h"

#include <algorithm>

#include "host/start_code.h"

namespace mp4v {

bool ChunkBoundary::EndsBefore(uint8_t code) {
    if (has_picture_ && code != kEndOfSequenceCode) return true;
    has_picture_ = has_picture_ || code == kVopCode;
    return false;
}

Splitter::Splitter(size_t limit) : limit_(std::max(limit, kStartCodeSize)) {}

void Splitter::Append(std::span<const uint8_t> bytes) {
    if (finished_) return;
    if (begin_ >= buffer_.size() - begin_) {  // so that no byte is moved more than once, all in all
        buffer_.erase(buffer_.begin(), buffer_.begin() + static_cast<ptrdiff_t>(begin_));
        scan_ -= begin_;
        begin_ = 0;
    }
    buffer_.insert(buffer_.end(), bytes.begin(), bytes.end());
}

void Splitter::Finish() {
    finished_ = true;
}

bool Splitter::Next(Chunk& chunk) {
    if (FindEnd()) {
        Deliver(scan_, chunk);
        return true;
    }
    if (!finished_ || begin_ == buffer_.size()) return false;
    Deliver(buffer_.size(), chunk);
    return true;
}

// Moves scan_ to the start code that ends the current chunk, or as far as the buffer goes.
bool Splitter::FindEnd() {
    for (;;) {
        const size_t pos = FindStartCode(buffer_, scan_);
        if (pos == buffer_.size()) break;
        if (boundary_.EndsBefore(buffer_[pos + 3])) {
            scan_ = pos;
            return true;
        }
        scan_ = pos + kStartCodeSize;
    }
    // The last three bytes may be the beginning of a start code.
    if (buffer_.size() > scan_ + 3) scan_ = buffer_.size() - 3;
    DropExcess();
    return false;
}

// Keeps the memory bounded: what has been scanned beyond the limit is forgotten, the tail may still hold a start code.
void Splitter::DropExcess() {
    if (scan_ - begin_ <= limit_) return;
    const size_t from = begin_ + limit_;
    dropped_ += scan_ - from;
    buffer_.erase(buffer_.begin() + static_cast<ptrdiff_t>(from), buffer_.begin() + static_cast<ptrdiff_t>(scan_));
    scan_ = from;
}

void Splitter::Deliver(size_t end, Chunk& chunk) {
    const size_t kept_end = std::min(end, begin_ + limit_);
    chunk.offset = offset_;
    chunk.data.assign(buffer_.begin() + static_cast<ptrdiff_t>(begin_),
                      buffer_.begin() + static_cast<ptrdiff_t>(kept_end));
    chunk.has_picture = boundary_.has_picture();
    chunk.dropped = dropped_ + (end - kept_end);
    offset_ += (end - begin_) + dropped_;
    dropped_ = 0;
    boundary_.Reset();
    begin_ = scan_ = end;
}

}  // namespace mp4v
