/* SPDX-License-Identifier: BSD-2-Clause
 * Copyright (c) 2026, the mp4vdec authors */
#ifndef MP4VDEC_TOOLS_INSPECT_COMMAND_H_
#define MP4VDEC_TOOLS_INSPECT_COMMAND_H_

#include <cstdint>
#include <optional>
#include <string>

namespace mp4v {

struct InspectOptions {
    std::string input;
    std::optional<uint64_t> picture;  // one of the two, or only a plot
    std::optional<uint64_t> chunk;
    std::string folder;     // for pictures and lists; empty: none
    std::string plot;       // SVG or PNG; empty: none
    std::string reference;  // Y4M or stream, for PSNR; empty: none
    bool json = false;
};

/** Runs `mp4vdec inspect`. Returns the exit status; throws UsageError and FileError. */
int Inspect(const InspectOptions& options);

}  // namespace mp4v

#endif  // MP4VDEC_TOOLS_INSPECT_COMMAND_H_
