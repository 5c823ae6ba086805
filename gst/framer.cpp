/* SPDX-License-Identifier: BSD-2-Clause
 * Copyright (c) 2026, the mp4vdec authors */
#include "gst/framer.h"

#include <algorithm>

#include "host/start_code.h"

namespace mp4v {
namespace {

constexpr guint32 kStartCodeMask = 0xFFFFFF00;
constexpr guint32 kStartCodePrefix = 0x00000100;

}  // namespace

void Framer::Scan(GstAdapter* adapter) {
    const size_t available = gst_adapter_available(adapter);
    if (available < available_) Reset();  // it was emptied behind our back
    available_ = available;
    while (available - scan_ >= kStartCodeSize) {
        guint32 code = 0;
        const gssize found = gst_adapter_masked_scan_uint32_peek(adapter, kStartCodeMask, kStartCodePrefix, scan_,
                                                                 available - scan_, &code);
        if (found < 0) {
            scan_ = available - (kStartCodeSize - 1);  // they may be the beginning of one
            return;
        }
        const auto position = static_cast<size_t>(found);
        const auto last = static_cast<uint8_t>(code & 0xFF);
        if (boundary_.EndsBefore(last)) {
            ends_.push_back(position);
            boundary_.Reset();
            boundary_.EndsBefore(last);
        }
        scan_ = position + kStartCodeSize;
    }
}

void Framer::Take(size_t bytes) {
    if (bytes >= available_) return Reset();
    available_ -= bytes;
    scan_ -= std::min(scan_, bytes);
    while (!ends_.empty() && ends_.front() <= bytes) ends_.pop_front();
    for (size_t& end : ends_) end -= bytes;
}

void Framer::Reset() {
    ends_.clear();
    boundary_.Reset();
    scan_ = 0;
    available_ = 0;
}

}  // namespace mp4v
