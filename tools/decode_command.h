/* SPDX-License-Identifier: BSD-2-Clause
 * Copyright (c) 2026, the mp4vdec authors */
#ifndef MP4VDEC_TOOLS_DECODE_COMMAND_H_
#define MP4VDEC_TOOLS_DECODE_COMMAND_H_

#include <cstdint>
#include <limits>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "mp4vdec.hpp"
#include "tools/video_writer.h"

namespace mp4v {

/** The command line asks for something impossible; what() is a complete message. */
class UsageError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

/** What a refused or damaged picture does to the output. */
enum class OnError { kSkip, kStop, kRepeat };

struct DecodeOptions {
    std::vector<std::string> inputs;
    std::string output;  // empty: pictures are not written
    OutputFormat format = OutputFormat::kByName;
    std::string frame_md5;      // file of a line per picture; empty: none
    std::string contact_sheet;  // PNG; empty: none
    std::string verify;         // MD5 of all samples; empty: not compared
    uint64_t skip = 0;
    uint64_t limit = std::numeric_limits<uint64_t>::max();
    std::optional<Ratio> rate;
    OnError on_error = OnError::kSkip;
    unsigned deblock_threshold = 10;
    bool intra_only = false;
    bool deinterlace = false;
    bool fields_stacked = false;
    unsigned jobs = 1;
    bool md5 = false;
    bool benchmark = false;
    bool quiet = false;
    bool json = false;
};

/** "25", "30000/1001" or "30000:1001"; null: something else. */
std::optional<Ratio> ParseRate(const std::string& text);

/** Runs `mp4vdec decode`. Returns the exit status; throws UsageError and FileError. */
int Decode(DecodeOptions options);

}  // namespace mp4v

#endif  // MP4VDEC_TOOLS_DECODE_COMMAND_H_
