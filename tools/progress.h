/* SPDX-License-Identifier: BSD-2-Clause
 * Copyright (c) 2026, the mp4vdec authors */
#ifndef MP4VDEC_TOOLS_PROGRESS_H_
#define MP4VDEC_TOOLS_PROGRESS_H_

#include <chrono>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace mp4v {

/** A line per input at the bottom of a terminal, and nothing where standard error is none. For several threads. */
class Progress {
  public:
    explicit Progress(bool wanted);
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    /** Returns the number of the line. It shows itself only when there is still work after a second. */
    size_t Begin(const std::string& name, std::optional<uint64_t> total);
    void Update(size_t line, uint64_t done, uint64_t pictures);
    void End(size_t line);

    /** Writes to standard error, above the lines. */
    void Say(const std::string& text);

  private:
    using Clock = std::chrono::steady_clock;

    struct Line {
        std::string name;
        uint64_t total;  // 0: unknown
        uint64_t done;
        uint64_t pictures;
        Clock::time_point start;
        bool active;
    };

    static std::string Text(const Line& line, size_t columns);
    void Erase();
    void Draw();

    const bool shown_;
    std::mutex mutex_;
    std::vector<Line> lines_;
    Clock::time_point drawn_at_;
    size_t drawn_ = 0;  // lines on the terminal
};

}  // namespace mp4v

#endif  // MP4VDEC_TOOLS_PROGRESS_H_
