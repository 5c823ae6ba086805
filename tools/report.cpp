/* SPDX-License-Identifier: BSD-2-Clause
 * Copyright (c) 2026, the mp4vdec authors */
#include "tools/report.h"

#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>
#include <sstream>

#include "mp4vdec.h"

namespace mp4v {
namespace {

constexpr size_t kMaxSizes = 8;

std::string Count(uint64_t count, const char* what) {
    return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

// What to do, where that can be said.
const char* Advice(uint32_t status, bool has_pictures) {
    if (status >= ERR_VID_MPEG4DEC_UNSUPPORT_VOTYPEID && status <= ERR_VID_MPEG4DEC_UNSUPPORT_VOPTYPE) {
        return "what is refused needs another decoder; mp4vdec info tells what the stream uses";
    }
    switch (status) {
        case ERR_VID_MPEG4DEC_VOL_NOT_FOUND:
            return "pictures before the first layer header cannot be decoded; let the stream begin with its headers";
        case ERR_VID_MPEG4DEC_BITSTREAM:
        case ERR_VID_MPEG4DEC_COEFF:
            if (!has_pictures) return "no picture was found; perhaps it is no MPEG-4 Part 2 video";
            return "pictures may look wrong until the next intra picture; --on-error repeat keeps the length of the "
                   "video";
        default:
            return nullptr;
    }
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
    refusals_.push_back({pictures() + repeated_, result.number, result.offset, result.error});
}

void Report::AddSize(const Picture& picture) {
    const std::string size = std::to_string(picture.width) + " x " + std::to_string(picture.height);
    if (std::find(sizes_.begin(), sizes_.end(), size) == sizes_.end()) sizes_.push_back(size);
}

bool Report::good() const {
    return problem_.empty() && verified_.value_or(true) && refused_ == 0 && left_out_ == 0 && pictures() > 0;
}

std::string Report::Sizes() const {
    std::string text;
    for (size_t i = 0; i < std::min(sizes_.size(), kMaxSizes); i++) text += (i ? ", " : "") + sizes_[i];
    return sizes_.size() > kMaxSizes ? text + " and others" : text;
}

std::string Report::Text(const std::string& name, std::chrono::duration<double> elapsed) const {
    std::ostringstream out;
    for (const Refusal& refusal : refusals_) {
        out << name << ": picture " << refusal.picture << ", chunk " << refusal.chunk << " at byte " << refusal.offset
            << ": ";
        if (refusal.error.status) out << refusal.error.name() << ": ";
        out << refusal.error.text << ".\n";
    }
    if (refused_ > refusals_.size()) out << name << ": and " << refused_ - refusals_.size() << " more like these.\n";
    if (!problem_.empty()) out << name << ": " << problem_ << ".\n";
    out << Summary(name, elapsed);
    if (refused_ > 0) {
        const char* const advice = Advice(refusals_.front().error.status, pictures() > 0);
        if (advice) out << name << ": " << advice << ".\n";
    }
    if (verified_)
        out << name << ": " << (*verified_ ? "the MD5 is as wanted.\n" : "the MD5 is not the one that was wanted.\n");
    return out.str();
}

std::string Report::Summary(const std::string& name, std::chrono::duration<double> elapsed) const {
    std::ostringstream out;
    out << name << ": ";
    if (pictures() == 0) {
        out << "nothing was decoded";
        if (chunks_ == 0 && problem_.empty()) out << "; there are no data in it";
    } else {
        out << Sizes() << ", " << Count(pictures(), "picture") << " (" << intra_ << " intra, " << predicted_
            << " predicted, " << not_coded_ << " not coded)";
        out << ", " << std::llround(Rate(elapsed)) << " pictures/s";
    }
    if (refused_ > 0) out << ", " << refused_ << " of " << Count(chunks_, "chunk") << " refused or damaged";
    if (repeated_ > 0) out << ", " << Count(repeated_, "picture") << " repeated for them";
    if (left_out_ > 0) out << ", " << Count(left_out_, "picture") << " not written";
    if (stopped_) out << ", stopped there";
    out << "\n";
    return out.str();
}

double Report::Rate(std::chrono::duration<double> elapsed) const {
    return static_cast<double>(pictures()) / std::max(elapsed.count(), 1e-6);
}

std::string Report::Json(const std::string& name, std::chrono::duration<double> elapsed) const {
    nlohmann::ordered_json json;
    json["input"] = name;
    json["good"] = good();
    json["sizes"] = sizes_;
    json["pictures"] = pictures();
    json["intra"] = intra_;
    json["predicted"] = predicted_;
    json["not_coded"] = not_coded_;
    json["repeated"] = repeated_;
    json["not_written"] = left_out_;
    json["chunks"] = chunks_;
    json["refused"] = refused_;
    json["stopped"] = stopped_;
    json["errors"] = nlohmann::ordered_json::array();
    for (const Refusal& refusal : refusals_) {
        nlohmann::ordered_json error;
        error["picture"] = refusal.picture;
        error["chunk"] = refusal.chunk;
        error["byte"] = refusal.offset;
        error["error"] = refusal.error.status ? refusal.error.name() : "";
        error["text"] = refusal.error.text;
        json["errors"].push_back(std::move(error));
    }
    if (!problem_.empty()) json["problem"] = problem_;
    if (!md5_.empty()) json["md5"] = md5_;
    if (verified_) json["verified"] = *verified_;
    json["seconds"] = elapsed.count();
    json["pictures_per_second"] = Rate(elapsed);
    // Names of files are bytes, not always UTF-8.
    return json.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n";
}

}  // namespace mp4v
