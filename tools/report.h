/* SPDX-License-Identifier: BSD-2-Clause
 * Copyright (c) 2026, the mp4vdec authors */
#ifndef MP4VDEC_TOOLS_REPORT_H_
#define MP4VDEC_TOOLS_REPORT_H_

#include <chrono>
#include <cstdint>
#include <optional>
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
    void CountRepeated() { repeated_++; }
    void SetStopped() { stopped_ = true; }
    void SetMd5(std::string md5) { md5_ = std::move(md5); }
    /** Whether the pictures' MD5 was the one that was asked for. */
    void SetVerified(bool same) { verified_ = same; }
    /** What ended the stream too early; empty: nothing did. */
    void SetProblem(std::string problem) { problem_ = std::move(problem); }

    uint64_t pictures() const { return intra_ + predicted_ + not_coded_; }
    uint64_t refused() const { return refused_; }
    uint64_t left_out() const { return left_out_; }

    /** True when all there was has been decoded and written, and that was something. */
    bool good() const;

    /** The lines for standard error. */
    std::string Text(const std::string& name, std::chrono::duration<double> elapsed) const;
    /** One line. */
    std::string Json(const std::string& name, std::chrono::duration<double> elapsed) const;

  private:
    struct Refusal {
        uint64_t picture;  // number of the next one
        uint64_t chunk;
        uint64_t offset;
        Error error;
    };

    void Refuse(const Result& result);
    void AddSize(const Picture& picture);
    std::string Sizes() const;
    std::string Summary(const std::string& name, std::chrono::duration<double> elapsed) const;
    double Rate(std::chrono::duration<double> elapsed) const;

    uint64_t chunks_ = 0;
    uint64_t intra_ = 0;
    uint64_t predicted_ = 0;
    uint64_t not_coded_ = 0;
    uint64_t left_out_ = 0;
    uint64_t refused_ = 0;
    uint64_t repeated_ = 0;
    bool stopped_ = false;
    std::optional<bool> verified_;
    std::string md5_;
    std::string problem_;
    std::vector<Refusal> refusals_;
    std::vector<std::string> sizes_;
};

}  // namespace mp4v

#endif  // MP4VDEC_TOOLS_REPORT_H_
