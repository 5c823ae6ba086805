/* SPDX-License-Identifier: BSD-2-Clause
 * Copyright (c) 2026, the mp4vdec authors */
#include "tools/report.h"

#include <algorithm>
#include <cmath>
#include <sstream>

namespace mp4v {
namespace {

constexpr size_t kMaxSizes = 8;

std::string Count(uint64_t count, const char* what) {
    return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

}  // namespace

void Report::Add(const Result& result) {
    chunks_++;
    if (result.error) Refuse(result);
    if (!result.picture) return;
    AddSize(*result.picture);
    switch (result.picture->type) {
        case PictureType::kIntra:
            intra_++;
            break;
        case PictureType::kPredicted:
            predicted_++;
            break;
        case PictureType::kNotCoded:
            not_coded_++;
            break;
    }
}

void Report::Refuse(const Result& result) {
    refused_++;
    if (refusals_.size() == kMaxListed) return;
    const Error& error = result.error;
    refusals_.push_back({result.number, result.offset, error.status ? error.name() + ": " + error.text : error.text});
}

void Report::AddSize(const Picture& picture) {
    const std::string size = std::to_string(picture.width) + " x " + std::to_string(picture.height);
    if (std::find(sizes_.begin(), sizes_.end(), size) == sizes_.end()) sizes_.push_back(size);
}

bool Report::good() const {
    return problem_.empty() && refused_ == 0 && left_out_ == 0 && pictures() > 0;
}

std::string Report::Sizes() const {
    std::string text;
    for (size_t i = 0; i < std::min(sizes_.size(), kMaxSizes); i++) text += (i ? ", " : "") + sizes_[i];
    return sizes_.size() > kMaxSizes ? text + " and others" : text;
}

std::string Report::Text(const std::string& name, std::chrono::duration<double> elapsed) const {
    std::ostringstream out;
    for (const Refusal& refusal : refusals_) {
        out << "chunk " << refusal.chunk << " at byte " << refusal.offset << ": " << refusal.text << ".\n";
    }
    if (refused_ > refusals_.size()) out << "and " << refused_ - refusals_.size() << " more like these.\n";

    if (!problem_.empty()) out << name << ": " << problem_ << ".\n";
    out << name << ": ";
    if (pictures() == 0) {
        out << "nothing was decoded";
        if (chunks_ == 0 && problem_.empty()) out << "; there are no data in it";
    } else {
        out << Sizes() << ", " << Count(pictures(), "picture") << " (" << intra_ << " intra, " << predicted_
            << " predicted, " << not_coded_ << " not coded)";
        const double rate = static_cast<double>(pictures()) / std::max(elapsed.count(), 1e-6);
        out << ", " << std::llround(rate) << " pictures/s";
    }
    if (refused_ > 0) out << ", " << refused_ << " of " << Count(chunks_, "chunk") << " refused or damaged";
    if (left_out_ > 0) out << ", " << Count(left_out_, "picture") << " not written";
    out << "\n";
    return out.str();
}

}  // namespace mp4v
