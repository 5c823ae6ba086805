/* SPDX-License-Identifier: BSD-2-Clause
 * Copyright (c) 2026, the mp4vdec authors */
#include "tools/comparison.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <nlohmann/json.hpp>

namespace mp4v {
namespace {

constexpr uint32_t kMacroblock = 16;
constexpr uint32_t kGap = 4;
constexpr uint8_t kBackground = 32;
constexpr const char* kPlanes[] = {"Y", "U", "V"};

std::string SizeOf(const Picture& picture) {
    return std::to_string(picture.width) + " x " + std::to_string(picture.height);
}

std::string Decibels(std::optional<double> psnr) {
    if (!psnr) return "the same";
    char text[32];
    (void)std::snprintf(text, sizeof text, "%.2f dB", *psnr);
    return text;
}

int SampleAt(const PlaneView& plane, uint32_t x, uint32_t y) {
    return plane.samples[y * plane.pitch + x];
}

// Black where there is no difference in luma, and soon white where there is.
Image DrawDifference(const PlaneView& a, const PlaneView& b) {
    Image image{a.width, a.height, {}};
    image.rgb.reserve(size_t{a.width} * a.height * 3);
    for (uint32_t y = 0; y < a.height; y++) {
        for (uint32_t x = 0; x < a.width; x++) {
            const int difference = std::abs(SampleAt(a, x, y) - SampleAt(b, x, y));
            image.rgb.insert(image.rgb.end(), 3,
                             static_cast<uint8_t>(difference ? std::min(40 + difference * 8, 255) : 0));
        }
    }
    return image;
}

void Frame(Image& image, uint32_t left, uint32_t top) {
    const uint32_t right = std::min(left + kMacroblock, image.width) - 1;
    const uint32_t bottom = std::min(top + kMacroblock, image.height) - 1;
    for (uint32_t y = top; y <= bottom; y++) {
        for (uint32_t x = left; x <= right; x++) {
            if (x != left && x != right && y != top && y != bottom) continue;
            uint8_t* const rgb = &image.rgb[(size_t{y} * image.width + x) * 3];
            rgb[0] = 255;
            rgb[1] = rgb[2] = 0;
        }
    }
}

nlohmann::ordered_json OrNull(std::optional<double> value) {
    return value ? nlohmann::ordered_json(*value) : nlohmann::ordered_json(nullptr);
}

}  // namespace

void Comparison::PlaneSum::Add(const PlaneSum& other) {
    squares += other.squares;
    samples += other.samples;
    largest = std::max(largest, other.largest);
}

std::optional<double> Comparison::PlaneSum::psnr() const {
    if (squares == 0) return std::nullopt;
    return 10 * std::log10(255.0 * 255.0 * static_cast<double>(samples) / static_cast<double>(squares));
}

Comparison::PlaneSum Comparison::AddPlane(const PlaneView& a, const PlaneView& b) {
    PlaneSum sum;
    sum.samples = uint64_t{a.width} * a.height;
    for (uint32_t y = 0; y < a.height; y++) {
        const uint8_t* const row_a = a.samples + y * a.pitch;
        const uint8_t* const row_b = b.samples + y * b.pitch;
        uint32_t squares = 0;
        for (uint32_t x = 0; x < a.width; x++) {
            const int difference = row_a[x] - row_b[x];
            squares += static_cast<uint32_t>(difference * difference);
            sum.largest = std::max(sum.largest, std::abs(difference));
        }
        sum.squares += squares;
    }
    return sum;
}

double Comparison::LumaPsnr(const Picture& a, const Picture& b) {
    return AddPlane(a.planes[0], b.planes[0]).psnr().value_or(std::numeric_limits<double>::infinity());
}

void Comparison::Add(const Picture& a, const Picture& b) {
    std::array<PlaneSum, 3> sums;
    uint64_t squares = 0;
    for (size_t i = 0; i < sums.size(); i++) {
        sums[i] = AddPlane(a.planes[i], b.planes[i]);
        squares += sums[i].squares;
    }
    if (squares > 0 && !first_) {
        FindFirst(a, b);
        Draw(a, b);
    }
    pictures_.push_back(sums);
}

// The first macroblock in coding order, and its first sample.
void Comparison::FindFirst(const Picture& a, const Picture& b) {
    const uint32_t columns = (a.width + kMacroblock - 1) / kMacroblock;
    std::optional<First> first;
    for (size_t plane = 0; plane < 3; plane++) {
        const uint32_t side = plane == 0 ? kMacroblock : kMacroblock / 2;
        for (uint32_t y = 0; y < a.planes[plane].height; y++) {
            for (uint32_t x = 0; x < a.planes[plane].width; x++) {
                const int sample_a = SampleAt(a.planes[plane], x, y);
                const int sample_b = SampleAt(b.planes[plane], x, y);
                const uint32_t macroblock = y / side * columns + x / side;
                if (sample_a == sample_b || (first && first->macroblock <= macroblock)) continue;
                first = First{pictures_.size(), plane, x, y, sample_a, sample_b, macroblock, x / side, y / side};
            }
        }
    }
    first_ = first;
}

void Comparison::Draw(const Picture& a, const Picture& b) {
    Image parts[] = {ToImage(a), ToImage(b), DrawDifference(a.planes[0], b.planes[0])};
    difference_.width = 3 * a.width + 4 * kGap;
    difference_.height = a.height + 2 * kGap;
    difference_.rgb.assign(size_t{difference_.width} * difference_.height * 3, kBackground);
    for (uint32_t i = 0; i < 3; i++) {
        Frame(parts[i], first_->column * kMacroblock, first_->row * kMacroblock);
        Paste(difference_, parts[i], kGap + i * (a.width + kGap), kGap);
    }
}

void Comparison::SetSizesDiffer(const Picture& a, const Picture& b) {
    sizes_ = "picture " + std::to_string(pictures_.size()) + " is " + SizeOf(a) + " in the one and " + SizeOf(b) +
             " in the other";
}

std::string Comparison::Text(const std::string& a, const std::string& b) const {
    std::string text = a + " and " + b + ": " + std::to_string(pictures_.size()) + " pictures compared";
    size_t equal = 0;
    for (const auto& planes : pictures_) {
        equal += std::all_of(planes.begin(), planes.end(), [](const PlaneSum& sum) { return sum.squares == 0; });
    }
    if (!pictures_.empty())
        text += equal == pictures_.size() ? ", all the same" : ", " + std::to_string(equal) + " of them the same";
    text += "\n";
    for (size_t i = 0; i < 3 && first_; i++) {
        PlaneSum all;
        size_t worst = 0;
        for (size_t n = 0; n < pictures_.size(); n++) {
            all.Add(pictures_[n][i]);
            if (pictures_[n][i].squares > pictures_[worst][i].squares) worst = n;
        }
        text += std::string("  ") + kPlanes[i] + "  PSNR " + Decibels(all.psnr());
        if (all.squares > 0) {
            text += ", lowest " + Decibels(pictures_[worst][i].psnr()) + " in picture " + std::to_string(worst) +
                    ", largest difference " + std::to_string(all.largest);
        }
        text += "\n";
    }
    if (first_) {
        text += "  first difference: picture " + std::to_string(first_->picture) + ", macroblock " +
                std::to_string(first_->macroblock) + " (column " + std::to_string(first_->column) + ", row " +
                std::to_string(first_->row) + "), " + kPlanes[first_->plane] + " at " + std::to_string(first_->x) +
                ", " + std::to_string(first_->y) + ": " + std::to_string(first_->a) + " and " +
                std::to_string(first_->b) + "\n";
    }
    if (!sizes_.empty()) text += "  " + sizes_ + "\n";
    for (size_t i = 0; i < 2; i++) {
        const std::string& name = i == 0 ? a : b;
        if (left_over_[i] > 0) text += "  " + name + " has " + std::to_string(left_over_[i]) + " pictures more\n";
        if (refused_[i] > 0) text += "  " + name + ": " + std::to_string(refused_[i]) + " chunks refused or damaged\n";
    }
    return text;
}

std::string Comparison::Json(const std::string& a, const std::string& b) const {
    nlohmann::ordered_json json;
    json["inputs"] = {a, b};
    json["same"] = same();
    json["pictures"] = pictures_.size();
    json["left_over"] = left_over_;
    json["refused"] = refused_;
    if (!sizes_.empty()) json["sizes"] = sizes_;
    for (size_t i = 0; i < 3; i++) {
        PlaneSum all;
        auto list = nlohmann::ordered_json::array();
        for (const auto& planes : pictures_) {
            all.Add(planes[i]);
            list.push_back(OrNull(planes[i].psnr()));
        }
        json["psnr"][kPlanes[i]] = {
            {"all", OrNull(all.psnr())}, {"largest", all.largest}, {"pictures", std::move(list)}};
    }
    if (first_) {
        json["first"] = {{"picture", first_->picture},
                         {"macroblock", first_->macroblock},
                         {"plane", kPlanes[first_->plane]},
                         {"x", first_->x},
                         {"y", first_->y},
                         {"samples", {first_->a, first_->b}}};
    }
    return json.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n";
}

}  // namespace mp4v
