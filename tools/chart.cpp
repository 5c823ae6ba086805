/* SPDX-License-Identifier: BSD-2-Clause
 * Copyright (c) 2026, the mp4vdec authors */
#ifdef MP4VDEC_CAIRO

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "tools/canvas.h"
#include "tools/drawing.h"

namespace mp4v {
namespace {

constexpr double kWidth = 1100;
constexpr double kLeft = 70;
constexpr double kRight = 20;
constexpr double kTop = 58;
constexpr double kPanel = 150;
constexpr double kGap = 44;
constexpr double kTextSize = 12;
constexpr Colour kInk{0.2, 0.2, 0.2};
constexpr Colour kGrid{0.85, 0.85, 0.85};
constexpr Colour kLine{0.13, 0.40, 0.67};
constexpr Colour kBand{0.65, 0.78, 0.90};

struct TypeStyle {
    char type;
    const char* name;
    Colour colour;
};
// The key is written from the right.
constexpr TypeStyle kTypes[] = {
    {'x', "refused or damaged", {0.90, 0.10, 0.70}},
    {'N', "not coded", {0.55, 0.55, 0.55}},
    {'P', "P", {0.20, 0.47, 0.75}},
    {'I', "I", {0.84, 0.25, 0.20}},
};

// 1, 2 or 5 times a power of ten, for about four marks up to `largest`.
double NiceStep(double largest) {
    const double raw = std::max(largest, 1e-9) / 4;
    const double power = std::pow(10, std::floor(std::log10(raw)));
    for (const double factor : {1.0, 2.0, 5.0}) {
        if (raw <= factor * power) return factor * power;
    }
    return 10 * power;
}

std::string Number(double value) {
    char text[32];
    if (value >= 1e6) {
        (void)std::snprintf(text, sizeof text, "%g M", value / 1e6);
    } else if (value >= 1e4) {
        (void)std::snprintf(text, sizeof text, "%g k", value / 1e3);
    } else {
        (void)std::snprintf(text, sizeof text, "%g", value);
    }
    return text;
}

// One of the diagrams, which share the axis of pictures.
class Panel {
  public:
    Panel(const Canvas& canvas, double top, size_t pictures, double low, double high)
        : canvas_(canvas), top_(top), pictures_(pictures), low_(low), high_(high) {}

    double X(double picture) const {
        return kLeft + (kWidth - kLeft - kRight) * picture / static_cast<double>(pictures_);
    }
    double Y(double value) const { return top_ + kPanel * (high_ - value) / (high_ - low_); }
    void Axes(const std::string& title) const;

  private:
    const Canvas& canvas_;
    double top_;
    size_t pictures_;
    double low_;
    double high_;
};

void Panel::Axes(const std::string& title) const {
    const double step = NiceStep(high_ - low_);
    for (auto mark = std::lround(std::ceil(low_ / step)); static_cast<double>(mark) * step <= high_; mark++) {
        const double value = static_cast<double>(mark) * step;
        canvas_.Set(kGrid);
        canvas_.Line(kLeft, Y(value), kWidth - kRight, Y(value), 1);
        canvas_.Set(kInk);
        canvas_.Text(kLeft - 8, Y(value) + 4, Number(value), kTextSize, 1);
    }
    const auto every = static_cast<size_t>(std::max(1.0, NiceStep(static_cast<double>(pictures_) * 2 / 5)));
    canvas_.Set(kInk);
    for (size_t picture = 0; picture < pictures_; picture += every) {
        const double x = X(static_cast<double>(picture) + 0.5);
        canvas_.Line(x, top_ + kPanel, x, top_ + kPanel + 4, 1);
        canvas_.Text(x, top_ + kPanel + 17, Number(static_cast<double>(picture)), kTextSize, 0.5);
    }
    canvas_.Line(kLeft, top_ + kPanel, kWidth - kRight, top_ + kPanel, 1);
    canvas_.Text(kLeft, top_ - 8, title, kTextSize + 1);
}

void DrawBits(const Canvas& canvas, const std::vector<ChartPoint>& points, double top) {
    uint64_t most = 1;
    for (const ChartPoint& point : points) most = std::max(most, point.bits);
    const Panel panel(canvas, top, points.size(), 0, static_cast<double>(most) * 1.05);
    panel.Axes("bits per picture");
    const double width = std::max(panel.X(1) - panel.X(0), 0.4);
    for (size_t i = 0; i < points.size(); i++) {
        for (const TypeStyle& style : kTypes) {
            if (style.type == points[i].type) canvas.Set(style.colour);
        }
        const double y = panel.Y(static_cast<double>(points[i].bits));
        canvas.Fill(panel.X(static_cast<double>(i)), y, width > 3 ? width - 1 : width, panel.Y(0) - y);
    }
    double x = kWidth - kRight;
    for (const TypeStyle& style : kTypes) {
        if (std::none_of(points.begin(), points.end(), [&](const ChartPoint& p) { return p.type == style.type; }))
            continue;
        canvas.Set(kInk);
        x -= canvas.Text(x, top - 8, style.name, kTextSize, 1) + 16;
        canvas.Set(style.colour);
        canvas.Fill(x, top - 18, 11, 11);
        x -= 16;
    }
}

// A line through the values that there are, broken where there is none.
template <typename Value>
void DrawLine(const Canvas& canvas, const Panel& panel, const std::vector<ChartPoint>& points, const Value& value) {
    cairo_set_line_width(canvas.get(), 1.5);
    cairo_set_line_join(canvas.get(), CAIRO_LINE_JOIN_ROUND);
    cairo_set_line_cap(canvas.get(), CAIRO_LINE_CAP_ROUND);
    canvas.Set(kLine);
    bool drawing = false;
    for (size_t i = 0; i < points.size(); i++) {
        const std::optional<double> here = value(points[i]);
        if (here) {
            const double x = panel.X(static_cast<double>(i) + 0.5);
            if (!drawing) cairo_move_to(canvas.get(), x, panel.Y(*here));
            cairo_line_to(canvas.get(), x, panel.Y(*here));
        }
        drawing = here.has_value();
    }
    cairo_stroke(canvas.get());
}

void DrawQuantiser(const Canvas& canvas, const std::vector<ChartPoint>& points, double top) {
    const Panel panel(canvas, top, points.size(), 0, 32);
    panel.Axes("quantiser: mean of the macroblocks, lowest to highest");
    canvas.Set(kBand);
    for (size_t i = 0; i < points.size(); i++) {
        if (!points[i].lowest_quant) continue;
        const double x = panel.X(static_cast<double>(i));
        const double y = panel.Y(*points[i].highest_quant + 0.2);
        canvas.Fill(x, y, panel.X(static_cast<double>(i) + 1) - x, panel.Y(*points[i].lowest_quant - 0.2) - y);
    }
    DrawLine(canvas, panel, points, [](const ChartPoint& point) { return point.mean_quant; });
}

void DrawPsnr(const Canvas& canvas, const std::vector<ChartPoint>& points, double top) {
    double low = 100;
    double high = 0;
    for (const ChartPoint& point : points) {
        if (!point.psnr || std::isinf(*point.psnr)) continue;
        low = std::min(low, *point.psnr);
        high = std::max(high, *point.psnr);
    }
    if (low > high) low = high = 50;
    const double room = std::max(1.0, (high - low) / 10);
    const Panel panel(canvas, top, points.size(), std::max(0.0, low - room), high + room);
    panel.Axes("PSNR of luma in dB");
    DrawLine(canvas, panel, points, [&](const ChartPoint& point) -> std::optional<double> {
        if (!point.psnr) return std::nullopt;
        return std::min(*point.psnr, high + room);  // the same picture: as high as it goes
    });
}

}  // namespace

void DrawChart(const std::vector<ChartPoint>& points, const std::string& title, const std::string& path) {
    const bool psnr = std::any_of(points.begin(), points.end(), [](const ChartPoint& p) { return p.psnr.has_value(); });
    const double panels = psnr ? 3 : 2;
    Canvas canvas(path.ends_with(".svg") ? Canvas::Kind::kSvg : Canvas::Kind::kPng, path, kWidth,
                  kTop + panels * (kPanel + kGap) + 16);
    canvas.Set(kInk);
    canvas.Text(kLeft, 20, title, kTextSize + 2);
    double top = kTop;
    DrawBits(canvas, points, top);
    DrawQuantiser(canvas, points, top += kPanel + kGap);
    if (psnr) DrawPsnr(canvas, points, top += kPanel + kGap);
    canvas.Set(kInk);
    canvas.Text(kWidth - kRight, top + kPanel + 34, "picture", kTextSize, 1);
    canvas.Finish();
}

}  // namespace mp4v

#endif  // MP4VDEC_CAIRO
