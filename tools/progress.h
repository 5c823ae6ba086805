/* SPDX-License-Identifier: BSD-2-Clause
 * Copyright (c) 2026, the mp4vdec authors */
#ifndef MP4VDEC_TOOLS_PROGRESS_H_
#define MP4VDEC_TOOLS_PROGRESS_H_

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>

namespace mp4v {

/** A bar on standard error; it shows itself only when there is still work after a second. */
class Progress {
  public:
    /** Does nothing when `total` is unknown or standard error is no terminal. */
    explicit Progress(std::optional<uint64_t> total);
    ~Progress();

    void Update(uint64_t done);

    /** Leaves the cursor at the beginning of a line. */
    void Finish();

  private:
    class Bar;

    std::unique_ptr<Bar> bar_;
    uint64_t total_ = 0;
    std::chrono::steady_clock::time_point start_;
};

}  // namespace mp4v

#endif  // MP4VDEC_TOOLS_PROGRESS_H_
