/* SPDX-License-Identifier: BSD-2-Clause
 * Copyright (c) 2026, the mp4vdec authors */
#ifndef MP4VDEC_TOOLS_REPORT_H_
#define MP4VDEC_TOOLS_REPORT_H_

#include <chrono>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "mp4vdec.hpp"

namespace mp4v {

/** Counts what happens to a stream and tells it in the end. */
class Report {
  public:
    /** Only the first refusals are kept one by one. */
    static constexpr size_t kMaxListed = 20;

    void Add(const Result& result);
    void CountLeftOut() { left_out_++; }
    /** What ended the stream too early; empty: nothing did. */
    void SetProblem(std::string problem) { problem_ = std::move(problem); }

    uint64_t pictures() const { return intra_ + predicted_ + not_coded_; }
    uint64_t left_out() const { return left_out_; }

    /** True when all there was has been decoded and written, and that was something. */
    bool good() const;

    /** The lines for standard error. */
    std::string Text(const std::string& name, std::chrono::duration<double> elapsed) const;

  private:
    struct Refusal {
        uint64_t chunk;  // number
        uint64_t offset;
        std::string text;
    };

    void Refuse(const Result& result);
    void AddSize(const Picture& picture);
    std::string Sizes() const;

    uint64_t chunks_ = 0;
    uint64_t intra_ = 0;
    uint64_t predicted_ = 0;
    uint64_t not_coded_ = 0;
    uint64_t left_out_ = 0;
    uint64_t refused_ = 0;
    std::string problem_;
    std::vector<Refusal> refusals_;
    std::vector<std::string> sizes_;
};

}  // namespace mp4v

#endif  // MP4VDEC_TOOLS_REPORT_H_
