/* SPDX-License-Identifier: BSD-2-Clause
 * Copyright (c) 2026, the mp4vdec authors */
#include "host/settings.h"

#include "mp4vdec.h"

namespace mp4v {
namespace {

constexpr unsigned kLowThreshold = 10;
constexpr uint32_t kDeblockAboveThirty = 3;

}  // namespace

uint32_t ControlFlags(const SessionOptions& options) {
    uint32_t flags = options.deblock_threshold > kLowThreshold ? kDeblockAboveThirty : 0;
    if (options.intra_only) flags |= MP4VDEC_CTRL_INTRA_ONLY;
    if (options.deinterlace) flags |= MP4VDEC_CTRL_DEINTERLACE;
    return flags;
}

std::vector<ExtensionRecord> ExtensionRecords(const SessionOptions& options) {
    if (!options.fields_stacked) return {};
    return {FieldsStacked()};
}

}  // namespace mp4v
