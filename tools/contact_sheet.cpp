/* SPDX-License-Identifier: BSD-2-Clause
 * Copyright (c) 2026, the mp4vdec authors */
#include "tools/contact_sheet.h"

#include <png.h>

#include <algorithm>

#include "tools/file.h"

namespace mp4v {
namespace {

constexpr uint32_t kGap = 4;
constexpr uint8_t kBackground = 32;

// Mean of the samples of a plane in columns [x0, x1) and rows [y0, y1); at least one sample is taken.
int Mean(const PlaneView& plane, uint32_t x0, uint32_t x1, uint32_t y0, uint32_t y1) {
    x0 = std::min(x0, plane.width - 1);
    y0 = std::min(y0, plane.height - 1);
    x1 = std::clamp(x1, x0 + 1, plane.width);
    y1 = std::clamp(y1, y0 + 1, plane.height);
    uint32_t sum = 0;
    for (uint32_t y = y0; y < y1; y++) {
        for (uint32_t x = x0; x < x1; x++) sum += plane.samples[y * plane.pitch + x];
    }
    const uint32_t count = (x1 - x0) * (y1 - y0);
    // NOLINTNEXTLINE(clang-analyzer-core.DivideZero): there is a sample
    return static_cast<int>((sum + count / 2) / count);
}

uint8_t Clip(int value) {
    return static_cast<uint8_t>(std::clamp(value, 0, 255));
}

// ITU-R BT.601, video range, in 1/256.
void StoreRgb(uint8_t* rgb, int y, int u, int v) {
    const int luma = 298 * (y - 16) + 128;
    const int blue = u - 128;
    const int red = v - 128;
    rgb[0] = Clip((luma + 409 * red) >> 8);
    rgb[1] = Clip((luma - 100 * blue - 208 * red) >> 8);
    rgb[2] = Clip((luma + 516 * blue) >> 8);
}

void Paste(Image& sheet, const Image& image, uint32_t left, uint32_t top) {
    for (uint32_t y = 0; y < image.height; y++) {
        const auto row = image.rgb.begin() + static_cast<ptrdiff_t>(size_t{y} * image.width * 3);
        const auto to = sheet.rgb.begin() + static_cast<ptrdiff_t>(((size_t{top} + y) * sheet.width + left) * 3);
        std::copy(row, row + static_cast<ptrdiff_t>(size_t{image.width} * 3), to);
    }
}

}  // namespace

Image Thumbnail(const Picture& picture, uint32_t max_width) {
    const uint32_t n = std::max((picture.width + max_width - 1) / max_width, 1u);
    Image image;
    image.width = (picture.width + n - 1) / n;
    image.height = (picture.height + n - 1) / n;
    image.rgb.resize(size_t{image.width} * image.height * 3);
    uint8_t* rgb = image.rgb.data();
    for (uint32_t y = 0; y < image.height; y++) {
        for (uint32_t x = 0; x < image.width; x++, rgb += 3) {
            const int luma = Mean(picture.planes[0], x * n, x * n + n, y * n, y * n + n);
            const uint32_t cx = x * n / 2;
            const uint32_t cy = y * n / 2;
            StoreRgb(rgb, luma, Mean(picture.planes[1], cx, cx + n / 2, cy, cy + n / 2),
                     Mean(picture.planes[2], cx, cx + n / 2, cy, cy + n / 2));
        }
    }
    return image;
}

void ContactSheet::Add(const Picture& picture) {
    if (seen_++ % stride_ != 0) return;
    thumbnails_.push_back(Thumbnail(picture, kCellWidth));
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

void WritePng(const Image& image, const std::string& path) {
    png_image png{};
    png.version = PNG_IMAGE_VERSION;
    png.width = image.width;
    png.height = image.height;
    png.format = PNG_FORMAT_RGB;
    if (!png_image_write_to_file(&png, path.c_str(), 0, image.rgb.data(), 0, nullptr)) {
        throw FileError("cannot write to '" + path + "': " + png.message);
    }
}

}  // namespace mp4v
