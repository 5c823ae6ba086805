/* SPDX-License-Identifier: BSD-2-Clause
 * Copyright (c) 2026, the mp4vdec authors */
#ifndef MP4VDEC_TOOLS_DECODE_COMMAND_H_
#define MP4VDEC_TOOLS_DECODE_COMMAND_H_

#include <stdexcept>
#include <string>

namespace mp4v {

/** The command line asks for something impossible; what() is a complete message. */
class UsageError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

struct DecodeOptions {
    std::string input;
    std::string output;         // empty: pictures are not written
    std::string frame_md5;      // file of a line per picture; empty: none
    std::string contact_sheet;  // PNG; empty: none
    unsigned deblock_threshold = 10;
    bool raw = false;
    bool md5 = false;
    bool quiet = false;
};

/** Runs `mp4vdec decode`. Returns the exit status; throws UsageError and FileError. */
int Decode(const DecodeOptions& options);

}  // namespace mp4v

#endif  // MP4VDEC_TOOLS_DECODE_COMMAND_H_
