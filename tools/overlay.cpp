/* SPDX-License-Identifier: BSD-2-Clause
 * Copyright (c) 2026, the mp4vdec authors */
#ifdef MP4VDEC_CAIRO

#include <algorithm>
#include <array>
#include <cmath>
#include <optional>

#include "tools/canvas.h"
#include "tools/drawing.h"
#include "tools/picture_report.h"

namespace mp4v {
namespace {

constexpr double kMacroblock = 16;
constexpr double kLeastWidth = 640;  // so that the key has room
constexpr double kKeyHeight = 60;
constexpr double kTextSize = 13;
constexpr double kMargin = 10;
constexpr Colour kInk{0.15, 0.15, 0.15};
constexpr Colour kBlack{0, 0, 0};
constexpr Colour kWhite{1, 1, 1};
constexpr Colour kVector{1, 0.85, 0.1};
constexpr Colour kTopField{0.2, 0.9, 1};
constexpr Colour kBottomField{1, 0.45, 0.9};

// By Mp4vMbKind.
constexpr Colour kKinds[] = {{0.55, 0.55, 0.55}, {0.15, 0.45, 0.85}, {0.05, 0.65, 0.40},
                             {0.60, 0.30, 0.80}, {0.90, 0.20, 0.15}, {1.00, 0.00, 0.90}};

// Dark blue to yellow, of even steps in lightness; `value` in [0, 1].
Colour Heat(double value) {
    static constexpr std::array<Colour, 5> kStops{{{0.267, 0.005, 0.329},
                                                   {0.230, 0.322, 0.546},
                                                   {0.128, 0.567, 0.551},
                                                   {0.369, 0.789, 0.383},
                                                   {0.993, 0.906, 0.144}}};
    const double at = std::clamp(value, 0.0, 1.0) * (kStops.size() - 1);
    const size_t i = std::min(static_cast<size_t>(at), kStops.size() - 2);
    const double part = at - static_cast<double>(i);
    const auto mix = [&](double a, double b) { return a + (b - a) * part; };
    return {mix(kStops[i].red, kStops[i + 1].red), mix(kStops[i].green, kStops[i + 1].green),
            mix(kStops[i].blue, kStops[i + 1].blue)};
}

class OverlayPicture {
  public:
    OverlayPicture(const InspectedPicture& picture, const std::string& path);

    void Types();
    void Vectors();
    void Quantiser();
    void Bits();
    void Finish() { canvas_.Finish(); }

  private:
    double side() const { return kMacroblock * factor_; }
    void Background(bool grey) const;
    void Tint(const Mp4vMbView& mb, const Colour& colour, double alpha) const;
    void Grid() const;
    void Arrow(double x, double y, const int32_t (&vector)[2], const Colour& colour) const;
    void Title() const;
    void Value(const Mp4vMbView& mb, uint32_t value, double heat) const;
    void HeatKey(const std::string& name, const std::array<std::string, 3>& marks) const;
    double Mark(double x, const Colour& colour, const std::string& text) const;

    static double FactorFor(uint32_t width);

    const InspectedPicture& picture_;
    const double factor_;
    const double width_;
    const double height_;
    Canvas canvas_;
};

// The smaller, the larger.
double OverlayPicture::FactorFor(uint32_t width) {
    const double factor = std::clamp(std::floor(960.0 / std::max(width, 1u)), 1.0, 16.0);
    return factor < 2 && width <= 720 ? 2 : factor;
}

OverlayPicture::OverlayPicture(const InspectedPicture& picture, const std::string& path)
    : picture_(picture),
      factor_(FactorFor(picture.width)),
      width_(factor_ * picture.width),
      height_(factor_ * picture.height),
      canvas_(Canvas::Kind::kPng, path, std::max(width_, kLeastWidth), height_ + kKeyHeight) {
    Title();
}

void OverlayPicture::Background(bool grey) const {
    if (!picture_.image.rgb.empty()) {
        canvas_.Put(picture_.image, 0, 0, factor_, grey);
    } else {
        canvas_.Set({0.5, 0.5, 0.5});
        canvas_.Fill(0, 0, width_, height_);
    }
}

void OverlayPicture::Tint(const Mp4vMbView& mb, const Colour& colour, double alpha) const {
    const double x = mb.u32Column * side();
    const double y = mb.u32Row * side();
    canvas_.Set(colour, alpha);
    canvas_.Fill(x, y, std::min(side(), width_ - x), std::min(side(), height_ - y));
}

void OverlayPicture::Grid() const {
    if (side() < 24) return;
    canvas_.Set(kBlack, 0.25);
    for (int i = 1; i * side() < width_; i++) canvas_.Line(i * side(), 0, i * side(), height_, 1);
    for (int i = 1; i * side() < height_; i++) canvas_.Line(0, i * side(), width_, i * side(), 1);
}

void OverlayPicture::Title() const {
    canvas_.Set(kInk);
    canvas_.Text(kMargin, height_ + 22, picture_.title, kTextSize);
}

// A square of a colour and what it stands for. Returns where the next may begin.
double OverlayPicture::Mark(double x, const Colour& colour, const std::string& text) const {
    const double y = height_ + 36;
    canvas_.Set(colour);
    canvas_.Fill(x, y, 12, 12);
    canvas_.Set(kInk);
    return x + 17 + canvas_.Text(x + 17, y + 11, text, kTextSize) + 16;
}

void OverlayPicture::HeatKey(const std::string& name, const std::array<std::string, 3>& marks) const {
    const double y = height_ + 36;
    constexpr int bar = 240;
    canvas_.Set(kInk);
    const double x = kMargin + canvas_.Text(kMargin, y + 11, name, kTextSize) + 12;
    const double first = canvas_.Text(x, y + 11, marks[0], kTextSize) + 8;
    for (int i = 0; i < bar; i++) {
        canvas_.Set(Heat(i / (bar - 1.0)));
        canvas_.Fill(x + first + i, y, 1.5, 12);
    }
    canvas_.Set(kWhite);
    canvas_.Text(x + first + bar / 2.0, y + 11, marks[1], kTextSize, 0.5);
    canvas_.Set(kInk);
    canvas_.Text(x + first + bar + 8, y + 11, marks[2], kTextSize);
}

void OverlayPicture::Types() {
    Background(true);
    std::array<size_t, MP4V_MB_INVALID + 1> count{};
    size_t dquants = 0;
    for (const Mp4vMbView& mb : picture_.inspection.macroblocks) {
        count[mb.eKind]++;
        Tint(mb, kKinds[mb.eKind], mb.eKind == MP4V_MB_NOT_CODED ? 0.12 : 0.5);
        if (!mb.u8Dquant) continue;
        dquants++;
        canvas_.Set(kWhite);
        const double corner = side() / 4;
        cairo_move_to(canvas_.get(), mb.u32Column * side(), mb.u32Row * side());
        cairo_rel_line_to(canvas_.get(), corner, 0);
        cairo_rel_line_to(canvas_.get(), -corner, corner);
        cairo_fill(canvas_.get());
    }
    Grid();
    double x = kMargin;
    for (size_t i = 0; i < count.size(); i++) {
        if (count[i] > 0)
            x = Mark(x, kKinds[i], KindName(static_cast<Mp4vMbKind>(i)) + (" " + std::to_string(count[i])));
    }
    if (dquants > 0) {
        canvas_.Set(kInk);
        canvas_.Text(x, height_ + 47, "white corner: dquant " + std::to_string(dquants), kTextSize);
    }
}

void OverlayPicture::Arrow(double x, double y, const int32_t (&vector)[2], const Colour& colour) const {
    const double unit = factor_ / (picture_.inspection.vop.u8QuarterSample ? 4 : 2);
    const double dx = vector[0] * unit;
    const double dy = vector[1] * unit;
    const double length = std::hypot(dx, dy);
    if (length < 0.1) {
        canvas_.Set(kBlack, 0.6);
        canvas_.Fill(x - 1.5, y - 1.5, 3, 3);
        return;
    }
    const double head = std::min(6.0, length / 2);
    const double ex = dx / length * head;
    const double ey = dy / length * head;
    for (const bool halo : {true, false}) {
        canvas_.Set(halo ? kBlack : colour, halo ? 0.6 : 1);
        cairo_set_line_cap(canvas_.get(), CAIRO_LINE_CAP_ROUND);
        cairo_set_line_width(canvas_.get(), halo ? 3.2 : 1.4);
        cairo_move_to(canvas_.get(), x, y);
        cairo_line_to(canvas_.get(), x + dx, y + dy);
        cairo_move_to(canvas_.get(), x + dx - ex - ey / 2, y + dy - ey + ex / 2);
        cairo_line_to(canvas_.get(), x + dx, y + dy);
        cairo_line_to(canvas_.get(), x + dx - ex + ey / 2, y + dy - ey - ex / 2);
        cairo_stroke(canvas_.get());
    }
}

void OverlayPicture::Vectors() {
    Background(true);
    bool fields = false;
    for (const Mp4vMbView& mb : picture_.inspection.macroblocks) {
        if (mb.eKind == MP4V_MB_INTRA) Tint(mb, kKinds[MP4V_MB_INTRA], 0.3);
    }
    cairo_save(canvas_.get());
    cairo_rectangle(canvas_.get(), 0, 0, width_, height_);
    cairo_clip(canvas_.get());
    for (const Mp4vMbView& mb : picture_.inspection.macroblocks) {
        const double x = (mb.u32Column + 0.5) * side();
        const double y = (mb.u32Row + 0.5) * side();
        if (mb.eKind == MP4V_MB_INTER) Arrow(x, y, mb.aas32Mv[0], kVector);
        for (int b = 0; b < 4 && mb.eKind == MP4V_MB_INTER_4V; b++) {
            const double quarter = side() / 4;
            Arrow(x + (b & 1 ? quarter : -quarter), y + (b & 2 ? quarter : -quarter), mb.aas32Mv[b], kVector);
        }
        if (mb.eKind != MP4V_MB_INTER_FIELD) continue;
        fields = true;
        Arrow(x - side() / 8, y, mb.aas32Mv[0], kTopField);
        Arrow(x + side() / 8, y, mb.aas32Mv[1], kBottomField);
    }
    cairo_restore(canvas_.get());
    double x = Mark(kMargin, kVector, "vector, to where the block is predicted from");
    if (fields) {
        x = Mark(x, kTopField, "top field");
        x = Mark(x, kBottomField, "bottom field");
    }
    Mark(x, kKinds[MP4V_MB_INTRA], "intra");
}

// On top of the heat, in a macroblock that has room for it.
void OverlayPicture::Value(const Mp4vMbView& mb, uint32_t value, double heat) const {
    if (side() < 28) return;
    canvas_.Set(heat > 0.7 ? kBlack : kWhite);
    canvas_.Text((mb.u32Column + 0.5) * side(), (mb.u32Row + 0.5) * side() + 4, std::to_string(value), 10.5, 0.5);
}

// The colours span what there is, or some more, lest small changes look like large ones.
void OverlayPicture::Quantiser() {
    Background(true);
    const std::optional<QuantiserRange> range = QuantisersOf(picture_.inspection);
    const uint32_t low = range ? range->lowest : 1;
    const uint32_t high = std::max(range ? range->highest : 31, low + 8);
    for (const Mp4vMbView& mb : picture_.inspection.macroblocks) {
        if (mb.u8Quant == 0) continue;
        const double heat = double{1} * (mb.u8Quant - low) / (high - low);
        Tint(mb, Heat(heat), 0.65);
        Value(mb, mb.u8Quant, heat);
    }
    Grid();
    HeatKey("quantiser", {std::to_string(low), std::to_string((low + high) / 2), std::to_string(high)});
}

void OverlayPicture::Bits() {
    Background(true);
    uint32_t most = 1;
    for (const Mp4vMbView& mb : picture_.inspection.macroblocks) most = std::max(most, mb.u32Bits);
    for (const Mp4vMbView& mb : picture_.inspection.macroblocks) {
        const double heat = std::sqrt(double{1} * mb.u32Bits / most);
        Tint(mb, Heat(heat), 0.65);
        if (mb.eKind != MP4V_MB_NOT_CODED) Value(mb, mb.u32Bits, heat);
    }
    Grid();
    HeatKey("bits", {"0", std::to_string(most / 4), std::to_string(most)});
}

}  // namespace

const char* DrawingVersion() {
    static const std::string version = std::string("cairo ") + cairo_version_string();
    return version.c_str();
}

void DrawOverlay(const InspectedPicture& picture, Overlay overlay, const std::string& path) {
    OverlayPicture drawn(picture, path);
    switch (overlay) {
        case Overlay::kTypes:
            drawn.Types();
            break;
        case Overlay::kVectors:
            drawn.Vectors();
            break;
        case Overlay::kQuantiser:
            drawn.Quantiser();
            break;
        case Overlay::kBits:
            drawn.Bits();
            break;
    }
    drawn.Finish();
}

}  // namespace mp4v

#endif  // MP4VDEC_CAIRO
