/* SPDX-License-Identifier: BSD-2-Clause
 * Copyright (c) 2026, the mp4vdec authors */
#include "tools/contact_sheet.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace mp4v {
namespace {

constexpr uint32_t kGap = 4;
constexpr uint8_t kBackground = 32;
constexpr uint32_t kMargin = 2;

void PutTime(Image& image, double seconds) {
    const Image text = DigitsImage(TimeCode(seconds));
    if (text.width + 2 * kMargin > image.width || text.height * 3 > image.height) return;
    Paste(image, text, kMargin, image.height - text.height - kMargin);
}

}  // namespace

std::string TimeCode(double seconds) {
    const auto hundredths = static_cast<unsigned long long>(std::llround(std::max(seconds, 0.0) * 100));
    char text[48];
    (void)std::snprintf(text, sizeof text, "%llu:%02llu:%02llu.%02llu", hundredths / 360000, hundredths / 6000 % 60,
                        hundredths / 100 % 60, hundredths % 100);
    return text;
}

void ContactSheet::Add(const Picture& picture, std::optional<double> seconds) {
    if (seen_++ % stride_ != 0) return;
    thumbnails_.push_back(ToImage(picture, (picture.width + kCellWidth - 1) / kCellWidth));
    if (seconds) PutTime(thumbnails_.back(), *seconds);
    if (thumbnails_.size() < 2 * kCells) return;
    for (size_t i = 1; i < kCells; i++) thumbnails_[i] = std::move(thumbnails_[2 * i]);
    thumbnails_.resize(kCells);
    stride_ *= 2;
}

Image ContactSheet::Render() const {
    const size_t count = std::min(thumbnails_.size(), kCells);
    const auto columns = static_cast<uint32_t>(std::min<size_t>(count, kColumns));
    const auto rows = static_cast<uint32_t>((count + kColumns - 1) / kColumns);
    uint32_t cell_width = 0;
    uint32_t cell_height = 0;
    for (const Image& image : thumbnails_) {
        cell_width = std::max(cell_width, image.width);
        cell_height = std::max(cell_height, image.height);
    }
    Image sheet;
    sheet.width = columns * (cell_width + kGap) + kGap;
    sheet.height = rows * (cell_height + kGap) + kGap;
    sheet.rgb.assign(size_t{sheet.width} * sheet.height * 3, kBackground);
    for (size_t i = 0; i < count; i++) {
        const Image& image = thumbnails_[i * thumbnails_.size() / count];
        const auto column = static_cast<uint32_t>(i % kColumns);
        const auto row = static_cast<uint32_t>(i / kColumns);
        Paste(sheet, image, kGap + column * (cell_width + kGap), kGap + row * (cell_height + kGap));
    }
    return sheet;
}

}  // namespace mp4v
