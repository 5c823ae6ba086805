/* SPDX-License-Identifier: BSD-2-Clause
 * Copyright (c) 2026, the mp4vdec authors */
#ifndef MP4VDEC_TOOLS_DECODE_RUN_H_
#define MP4VDEC_TOOLS_DECODE_RUN_H_

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "mp4vdec.hpp"
#include "tools/contact_sheet.h"
#include "tools/decode_command.h"
#include "tools/file.h"
#include "tools/md5.h"
#include "tools/progress.h"
#include "tools/report.h"
#include "tools/stream_source.h"
#include "tools/video_writer.h"

namespace mp4v {

/** One run over a stream: what comes out of the session goes to everybody who asked for it. */
class DecodeRun {
  public:
    /** `output` is where this input's pictures go; empty: nowhere. */
    DecodeRun(const DecodeOptions& options, const std::string& input, const std::string& output, OutputFormat format,
              Progress& progress);

    /** Returns the exit status. */
    int Run();

  private:
    void Take(const Session::Results& results);
    void Deliver(const Picture& picture, std::optional<double> seconds);
    void Write(const Picture& picture, std::optional<double> seconds);
    void Repeat();
    void Keep(const Picture& picture);
    void Finish();
    void Tell();

    const DecodeOptions& options_;
    const std::string name_;
    const std::string output_;
    StreamSource source_;
    Session session_;
    std::unique_ptr<VideoWriter> writer_;
    std::unique_ptr<OutputFile> frame_md5_;
    Md5 md5_;
    ContactSheet sheet_;
    Progress& progress_;
    Report report_;
    // The picture that stands in for damaged ones, when they are to be repeated.
    Picture last_;
    std::vector<uint8_t> last_samples_;
    uint64_t delivered_ = 0;
    bool done_ = false;
    std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

}  // namespace mp4v

#endif  // MP4VDEC_TOOLS_DECODE_RUN_H_
