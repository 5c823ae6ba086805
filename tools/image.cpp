/* SPDX-License-Identifier: BSD-2-Clause
 * Copyright (c) 2026, the mp4vdec authors */
#include "tools/image.h"

#include <png.h>

#include <algorithm>
#include <array>
#include <string_view>

#include "tools/file.h"

namespace mp4v {
namespace {

// From here on, pictures are taken for ITU-R BT.709, smaller ones for BT.601: a stream seldom tells.
constexpr uint32_t kHdHeight = 720;

// Video range to RGB, in 1/256.
struct Matrix {
    int red_v;
    int green_u;
    int green_v;
    int blue_u;
};
constexpr Matrix kBt601{409, 100, 208, 516};
constexpr Matrix kBt709{459, 55, 136, 541};

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

void StoreRgb(uint8_t* rgb, const Matrix& matrix, int y, int u, int v) {
    const int luma = 298 * (y - 16) + 128;
    const int blue = u - 128;
    const int red = v - 128;
    rgb[0] = Clip((luma + matrix.red_v * red) >> 8);
    rgb[1] = Clip((luma - matrix.green_u * blue - matrix.green_v * red) >> 8);
    rgb[2] = Clip((luma + matrix.blue_u * blue) >> 8);
}

constexpr uint32_t kGlyphColumns = 6;
constexpr uint32_t kGlyphRows = 9;

// 5 x 7, row by row, the leftmost column in bit 4.
constexpr std::string_view kCharacters = "0123456789:.";
constexpr std::array<uint8_t, 7> kGlyphs[] = {
    {14, 17, 19, 21, 25, 17, 14}, {4, 12, 4, 4, 4, 4, 14},    {14, 17, 1, 6, 8, 16, 31},  {14, 17, 1, 6, 1, 17, 14},
    {2, 6, 10, 18, 31, 2, 2},     {31, 16, 30, 1, 1, 17, 14}, {6, 8, 16, 30, 17, 17, 14}, {31, 1, 2, 4, 8, 8, 8},
    {14, 17, 17, 14, 17, 17, 14}, {14, 17, 17, 15, 1, 2, 12}, {0, 4, 4, 0, 4, 4, 0},      {0, 0, 0, 0, 0, 12, 12},
};

}  // namespace

Image ToImage(const Picture& picture, uint32_t factor) {
    const Matrix& matrix = picture.height >= kHdHeight ? kBt709 : kBt601;
    const uint32_t n = std::max(factor, 1u);
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
            StoreRgb(rgb, matrix, luma, Mean(picture.planes[1], cx, cx + n / 2, cy, cy + n / 2),
                     Mean(picture.planes[2], cx, cx + n / 2, cy, cy + n / 2));
        }
    }
    return image;
}

void Paste(Image& onto, const Image& image, uint32_t left, uint32_t top) {
    for (uint32_t y = 0; y < image.height; y++) {
        const auto row = image.rgb.begin() + static_cast<ptrdiff_t>(size_t{y} * image.width * 3);
        const auto to = onto.rgb.begin() + static_cast<ptrdiff_t>(((size_t{top} + y) * onto.width + left) * 3);
        std::copy(row, row + static_cast<ptrdiff_t>(size_t{image.width} * 3), to);
    }
}

Image DigitsImage(const std::string& text) {
    Image image;
    image.width = kGlyphColumns * static_cast<uint32_t>(text.size()) + 1;
    image.height = kGlyphRows;
    image.rgb.assign(size_t{image.width} * image.height * 3, 0);
    for (size_t i = 0; i < text.size(); i++) {
        const size_t glyph = kCharacters.find(text[i]);
        if (glyph == std::string_view::npos) continue;
        for (size_t row = 0; row < 7; row++) {
            for (size_t column = 0; column < 5; column++) {
                if (!(kGlyphs[glyph][row] >> (4 - column) & 1)) continue;
                const size_t at = ((row + 1) * image.width + i * kGlyphColumns + 1 + column) * 3;
                std::fill_n(image.rgb.begin() + static_cast<ptrdiff_t>(at), 3, uint8_t{255});
            }
        }
    }
    return image;
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
