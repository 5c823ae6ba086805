/* SPDX-License-Identifier: BSD-2-Clause
 * Copyright (c) 2026, the mp4vdec authors */
#ifndef MP4VDEC_HOST_STATUS_H_
#define MP4VDEC_HOST_STATUS_H_

#include <cstdint>
#include <string>

namespace mp4v {

/** The decoder's name for a status; "OK", "END_OF_STREAM" or the number in hexadecimal when it has none. */
std::string StatusName(uint32_t status);

/** One plain sentence, without a full stop, on what a status means to whoever plays the stream. */
const char* ExplainStatus(uint32_t status);

}  // namespace mp4v

#endif  // MP4VDEC_HOST_STATUS_H_
