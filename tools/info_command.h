/* SPDX-License-Identifier: BSD-2-Clause
 * Copyright (c) 2026, the mp4vdec authors */
#ifndef MP4VDEC_TOOLS_INFO_COMMAND_H_
#define MP4VDEC_TOOLS_INFO_COMMAND_H_

#include <string>

namespace mp4v {

struct InfoOptions {
    std::string input;
    bool json = false;
};

/** Runs `mp4vdec info`. Returns the exit status; throws FileError. */
int Info(const InfoOptions& options);

}  // namespace mp4v

#endif  // MP4VDEC_TOOLS_INFO_COMMAND_H_
