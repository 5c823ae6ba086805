/* SPDX-License-Identifier: BSD-2-Clause
 * Copyright (c) 2026, the mp4vdec authors */
#include "tools/stream_source.h"

#include <utility>

namespace mp4v {
namespace {

constexpr size_t kBlockSize = size_t{1} << 16;
constexpr size_t kHeadSize = 12;

}  // namespace

StreamSource::StreamSource(const std::string& path) : file_(path), block_(kBlockSize) {
    size_t size = 0;
    while (size < kHeadSize) {  // a pipe may deliver it in pieces
        const size_t got = file_.Read(std::span(block_).subspan(size));
        if (got == 0) break;
        size += got;
    }
    bytes_read_ = size;
    first_ = std::span(block_).first(size);
    container_ = ContainerOf(first_);
    if (container_ == Container::kNone) return;
    missing_ = MissingBytes(container_, file_);
    demuxer_ = MakeDemuxer(container_, file_, first_);
}

std::span<const uint8_t> StreamSource::Read() {
    if (demuxer_) return demuxer_->Read();
    return first_.empty() ? ReadBlock() : std::exchange(first_, {});
}

// Demuxers take the end of a file for that of the video.
std::string StreamSource::problem() const {
    if (!demuxer_ || !demuxer_->problem().empty() || missing_ == 0) return demuxer_ ? demuxer_->problem() : "";
    return std::string("this ") + NameOf(container_) + " is cut off; " + std::to_string(missing_) +
           " bytes are missing";
}

std::span<const uint8_t> StreamSource::ReadBlock() {
    const size_t got = file_.Read(block_);
    bytes_read_ += got;
    return std::span(block_).first(got);
}

}  // namespace mp4v
