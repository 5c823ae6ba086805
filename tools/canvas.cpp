/* SPDX-License-Identifier: BSD-2-Clause
 * Copyright (c) 2026, the mp4vdec authors */
#ifdef MP4VDEC_CAIRO

#include "tools/canvas.h"

#include <cairo-svg.h>

#include <cstring>
#include <utility>
#include <vector>

#include "tools/file.h"

namespace mp4v {

Canvas::Canvas(Kind kind, std::string path, double width, double height)
    : kind_(kind),
      path_(std::move(path)),
      surface_(kind == Kind::kSvg
                   ? cairo_svg_surface_create(path_.c_str(), width, height)
                   : cairo_image_surface_create(CAIRO_FORMAT_RGB24, static_cast<int>(width), static_cast<int>(height))),
      context_(cairo_create(surface_.get())) {
    Check(cairo_surface_status(surface_.get()));
    cairo_select_font_face(get(), "sans-serif", CAIRO_FONT_SLANT_NORMAL, CAIRO_FONT_WEIGHT_NORMAL);
    Set({1, 1, 1});
    cairo_paint(get());
}

void Canvas::Check(cairo_status_t status) const {
    if (status != CAIRO_STATUS_SUCCESS) {
        throw FileError("cannot write to '" + path_ + "': " + cairo_status_to_string(status));
    }
}

void Canvas::Set(const Colour& colour, double alpha) const {
    cairo_set_source_rgba(get(), colour.red, colour.green, colour.blue, alpha);
}

void Canvas::Fill(double x, double y, double width, double height) const {
    cairo_rectangle(get(), x, y, width, height);
    cairo_fill(get());
}

void Canvas::Line(double x0, double y0, double x1, double y1, double width) const {
    cairo_set_line_width(get(), width);
    cairo_move_to(get(), x0, y0);
    cairo_line_to(get(), x1, y1);
    cairo_stroke(get());
}

double Canvas::Text(double x, double baseline, const std::string& text, double size, double align) const {
    cairo_text_extents_t extents;
    cairo_set_font_size(get(), size);
    cairo_text_extents(get(), text.c_str(), &extents);
    cairo_move_to(get(), x - align * extents.x_advance, baseline);
    cairo_show_text(get(), text.c_str());
    return extents.x_advance;
}

void Canvas::Put(const Image& image, double x, double y, double factor, bool grey) const {
    const int stride = cairo_format_stride_for_width(CAIRO_FORMAT_RGB24, static_cast<int>(image.width));
    std::vector<uint8_t> pixels(static_cast<size_t>(stride) * image.height);
    for (size_t row = 0; row < image.height; row++) {
        for (size_t column = 0; column < image.width; column++) {
            const uint8_t* const rgb = &image.rgb[(row * image.width + column) * 3];
            uint32_t pixel = uint32_t{rgb[0]} << 16 | uint32_t{rgb[1]} << 8 | rgb[2];
            if (grey) pixel = (64 + (rgb[0] * 77u + rgb[1] * 150u + rgb[2] * 29u) * 3 / 4 / 256) * 0x010101;
            std::memcpy(&pixels[row * static_cast<size_t>(stride) + column * 4], &pixel, 4);
        }
    }
    const std::unique_ptr<cairo_surface_t, Destroy> source(cairo_image_surface_create_for_data(
        pixels.data(), CAIRO_FORMAT_RGB24, static_cast<int>(image.width), static_cast<int>(image.height), stride));
    cairo_save(get());
    cairo_translate(get(), x, y);
    cairo_scale(get(), factor, factor);
    cairo_set_source_surface(get(), source.get(), 0, 0);
    cairo_pattern_set_filter(cairo_get_source(get()), CAIRO_FILTER_NEAREST);
    cairo_paint(get());
    cairo_restore(get());
}

void Canvas::Finish() {
    Check(cairo_status(get()));
    context_.reset();
    if (kind_ == Kind::kPng) Check(cairo_surface_write_to_png(surface_.get(), path_.c_str()));
    cairo_surface_finish(surface_.get());
    Check(cairo_surface_status(surface_.get()));
}

}  // namespace mp4v

#endif  // MP4VDEC_CAIRO
