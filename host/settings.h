/* SPDX-License-Identifier: BSD-2-Clause
 * Copyright (c) 2026, the mp4vdec authors */
#ifndef MP4VDEC_HOST_SETTINGS_H_
#define MP4VDEC_HOST_SETTINGS_H_

#include <cstdint>
#include <vector>

#include "host/low_memory.h"
#include "mp4vdec.hpp"

namespace mp4v {

/** What the decoder is told of the options with every chunk: MP4VDEC_CTRL_*. */
uint32_t ControlFlags(const SessionOptions& options);

/** What it is told when it is opened. */
std::vector<ExtensionRecord> ExtensionRecords(const SessionOptions& options);

}  // namespace mp4v

#endif  // MP4VDEC_HOST_SETTINGS_H_
