/* SPDX-License-Identifier: BSD-2-Clause
 * Copyright (c) 2026, the mp4vdec authors */
#ifndef MP4VDEC_TOOLS_STREAM_INFO_H_
#define MP4VDEC_TOOLS_STREAM_INFO_H_

#include <array>
#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "mp4vdec.hpp"

namespace mp4v {

/** Gathers what the headers of a stream tell about it. */
class StreamInfo {
  public:
    void Add(const Result& result);
    void SetProblem(std::string problem) { problem_ = std::move(problem); }

    /** True when there are pictures and the decoder takes them all. */
    bool supported() const { return pictures_ > 0 && !refusal_ && problem_.empty(); }

    std::string Text(const std::string& name, const std::string& kind) const;
    std::string Json(const std::string& name, const std::string& kind) const;

  private:
    // A layer header; the same one is often repeated.
    struct Layer {
        Header header;
        uint64_t offset;  // in the stream, of the first
        uint64_t times;
    };
    struct Refusal {
        uint64_t picture;
        uint64_t offset;
        Error error;
    };

    void AddLayer(const Header& header, uint64_t offset);
    void AddPicture(const Header& header);
    void AddBits(const Result& result);
    void AddTools(const Header& layer);
    std::string Verdict() const;
    std::string BitRates() const;
    std::vector<double> KilobitsPerSecond() const;

    std::vector<Layer> layers_;
    HeaderReader reader_;
    std::optional<uint32_t> profile_;
    uint64_t bytes_ = 0;
    uint64_t pictures_ = 0;
    uint64_t not_coded_ = 0;
    std::array<uint64_t, 4> types_{};  // I, P, B, S
    std::optional<uint32_t> lowest_quant_;
    std::optional<uint32_t> highest_quant_;
    std::optional<double> first_second_;
    std::vector<uint64_t> bytes_per_second_;
    std::set<std::string> tools_;
    std::optional<Refusal> refusal_;
    std::string problem_;
};

/** "Advanced Simple, level 5"; "unknown" where the number is none of the usual ones. */
std::string ProfileName(uint32_t profile_and_level);

}  // namespace mp4v

#endif  // MP4VDEC_TOOLS_STREAM_INFO_H_
