/* SPDX-License-Identifier: BSD-2-Clause
 * Copyright (c) 2026, the mp4vdec authors */
#ifndef MP4VDEC_TOOLS_COMPARE_COMMAND_H_
#define MP4VDEC_TOOLS_COMPARE_COMMAND_H_

#include <string>

namespace mp4v {

struct CompareOptions {
    std::string a;
    std::string b;
    std::string difference;  // PNG; empty: none
    bool json = false;
};

/** Runs `mp4vdec compare`. Returns the exit status; throws UsageError and FileError. */
int Compare(const CompareOptions& options);

}  // namespace mp4v

#endif  // MP4VDEC_TOOLS_COMPARE_COMMAND_H_
