/* SPDX-License-Identifier: BSD-2-Clause
 * Copyright (c) 2026, the mp4vdec authors */
#ifndef MP4VDEC_TOOLS_CANVAS_H_
#define MP4VDEC_TOOLS_CANVAS_H_

#include <cairo.h>

#include <cstdint>
#include <memory>
#include <string>

#include "tools/image.h"

namespace mp4v {

/** Red, green and blue in [0, 1]. */
struct Colour {
    double red;
    double green;
    double blue;
};

/** Something to draw on with cairo, in pixels from the top left. */
class Canvas {
  public:
    enum class Kind { kPng, kSvg };

    /** Throws FileError. */
    Canvas(Kind kind, std::string path, double width, double height);

    /** The way to all that has no function here. */
    cairo_t* get() const { return context_.get(); }

    void Set(const Colour& colour, double alpha = 1) const;
    void Fill(double x, double y, double width, double height) const;
    void Line(double x0, double y0, double x1, double y1, double width) const;
    /** `align`: 0 begins at x, 0.5 is centred, 1 ends there. Returns the width. */
    double Text(double x, double baseline, const std::string& text, double size, double align = 0) const;
    /** Enlarged by a factor. Grey: without its colours, and paler. */
    void Put(const Image& image, double x, double y, double factor, bool grey) const;

    /** Writes the file. Throws FileError. */
    void Finish();

  private:
    struct Destroy {
        void operator()(cairo_surface_t* surface) const { cairo_surface_destroy(surface); }
        void operator()(cairo_t* context) const { cairo_destroy(context); }
    };

    void Check(cairo_status_t status) const;

    Kind kind_;
    std::string path_;
    std::unique_ptr<cairo_surface_t, Destroy> surface_;
    std::unique_ptr<cairo_t, Destroy> context_;
};

}  // namespace mp4v

#endif  // MP4VDEC_TOOLS_CANVAS_H_
