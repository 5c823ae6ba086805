/* SPDX-License-Identifier: BSD-2-Clause
 * Copyright (c) 2026, the mp4vdec authors */
#include "tools/inspect_command.h"

#include <cstdio>
#include <filesystem>
#include <memory>
#include <nlohmann/json.hpp>
#include <vector>

#include "host/inspection.h"
#include "tools/comparison.h"
#include "tools/contact_sheet.h"
#include "tools/decode_command.h"
#include "tools/drawing.h"
#include "tools/exit_code.h"
#include "tools/file.h"
#include "tools/picture_report.h"
#include "tools/picture_source.h"
#include "tools/stream_source.h"

namespace mp4v {
namespace {

namespace fs = std::filesystem;

/** One run over a stream, up to the picture that is asked for, or to the end for a plot. */
class InspectRun {
  public:
    explicit InspectRun(const InspectOptions& options)
        : options_(options),
          source_(options.input),
          reference_(options.reference.empty() ? nullptr : OpenPictures(options.reference)) {}

    int Run();

  private:
    bool Wanted(const Result& result) const;
    void Take(const Session::Results& results);
    void Keep(const Result& result, Inspection inspection);
    void AddPoint(const Result& result, const Inspection& inspection);
    void WriteFiles();
    void Write(const std::string& name, const std::string& text);
    std::string Name(const std::string& what) const;
    std::string Title() const;
    std::string Text() const;
    std::string Json() const;

    const InspectOptions& options_;
    StreamSource source_;
    Session session_;
    std::unique_ptr<PictureSource> reference_;
    std::string reference_problem_;
    uint64_t pictures_ = 0;
    uint64_t chunks_ = 0;
    bool damaged_ = false;
    bool found_ = false;
    PictureFacts facts_;
    Inspection inspection_;
    Image image_;
    std::vector<ChartPoint> points_;
    std::vector<std::string> written_;
};

std::string FileName(const std::string& path) {
    return path == "-" ? "standard input" : fs::path(path).filename().string();
}

int InspectRun::Run() {
    bool more = true;
    while (more && !Interrupted()) {
        const std::span<const uint8_t> bytes = source_.Read();
        more = !bytes.empty();
        if (Interrupted()) break;
        Take(more ? session_.Feed(bytes) : session_.Finish());
        if (found_ && options_.plot.empty()) break;
    }
    if (Interrupted()) return kExitInterrupted;
    if (!found_ && options_.picture) {
        throw UsageError("there is no picture " + std::to_string(*options_.picture) + "; '" + options_.input +
                         "' has " + std::to_string(pictures_) + ", counted from 0");
    }
    if (!found_ && options_.chunk) {
        throw UsageError("there is no picture in chunk " + std::to_string(*options_.chunk) + "; '" + options_.input +
                         "' has " + std::to_string(chunks_) + " chunks, counted from 0");
    }
    if (found_ && !options_.folder.empty()) WriteFiles();
    if (!options_.plot.empty()) {
        DrawChart(points_, FileName(options_.input) + ", " + std::to_string(points_.size()) + " pictures",
                  options_.plot);
        written_.push_back(options_.plot);
    }
    WriteToStandardOutput(options_.json ? Json() : Text());
    return damaged_ || !source_.problem().empty() ? kExitDamage : kExitGood;
}

bool InspectRun::Wanted(const Result& result) const {
    if (options_.chunk) return result.number == *options_.chunk;
    return options_.picture == pictures_ && result.picture;
}

void InspectRun::Take(const Session::Results& results) {
    for (const Result& result : results) {
        chunks_ = result.number + 1;
        if (!result.coded) continue;
        const bool wanted = Wanted(result);
        if (wanted || !options_.plot.empty()) {
            Inspection inspection = Inspect(session_);
            if (!options_.plot.empty()) AddPoint(result, inspection);
            if (wanted) Keep(result, std::move(inspection));
        }
        if (result.picture) pictures_++;
        if (found_ && options_.plot.empty()) return;
    }
}

void InspectRun::Keep(const Result& result, Inspection inspection) {
    found_ = true;
    damaged_ = damaged_ || result.error;
    facts_ = {pictures_, result.number, result.offset, result.bytes.size(), 0, 0, result.seconds, result.error};
    inspection_ = std::move(inspection);
    if (result.picture) {
        facts_.width = result.picture->width;
        facts_.height = result.picture->height;
        image_ = ToImage(*result.picture);
    }
}

void InspectRun::AddPoint(const Result& result, const Inspection& inspection) {
    ChartPoint point;
    point.type = result.picture ? TypeOf(inspection.vop) : 'x';
    point.bits = result.bytes.size() * 8;
    if (const std::optional<QuantiserRange> range = QuantisersOf(inspection)) {
        point.lowest_quant = range->lowest;
        point.highest_quant = range->highest;
        point.mean_quant = range->mean;
    }
    damaged_ = damaged_ || result.error;
    if (result.picture && reference_) {
        Picture other;
        if (!reference_->Next(other)) {
            reference_problem_ = "it has only " + std::to_string(pictures_) + " pictures";
            reference_.reset();
        } else if (other.width != result.picture->width || other.height != result.picture->height) {
            reference_problem_ = "its picture " + std::to_string(pictures_) + " is of another size";
            reference_.reset();
        } else {
            point.psnr = Comparison::LumaPsnr(*result.picture, other);
        }
    }
    points_.push_back(point);
}

std::string InspectRun::Title() const {
    std::string title = FileName(options_.input) + ", picture " + std::to_string(facts_.picture) + " (" +
                        TypeName(inspection_.vop) + ")";
    if (facts_.seconds) title += " at " + TimeCode(*facts_.seconds);
    title += ", " + std::to_string(facts_.bytes * 8) + " bits";
    if (facts_.error) title += ", " + facts_.error.name();
    return title;
}

std::string InspectRun::Name(const std::string& what) const {
    char number[24];
    (void)std::snprintf(number, sizeof number, "%05llu-", static_cast<unsigned long long>(facts_.picture));
    return (fs::path(options_.folder) / (number + what)).string();
}

void InspectRun::Write(const std::string& name, const std::string& text) {
    OutputFile file(Name(name));
    file.Write(text);
    file.Close();
    written_.push_back(Name(name));
}

void InspectRun::WriteFiles() {
    std::error_code error;
    fs::create_directories(options_.folder, error);  // that it failed shows when the first file is written
    Write("macroblocks.json", PictureJson(facts_, inspection_).dump() + "\n");
    Write("macroblocks.csv", PictureCsv(inspection_));
    if (!image_.rgb.empty()) {
        WritePng(image_, Name("picture.png"));
        written_.push_back(Name("picture.png"));
    }
    if (!DrawingVersion() || inspection_.macroblocks.empty()) return;
    InspectedPicture picture{Title(), facts_.width, facts_.height, std::move(image_), std::move(inspection_)};
    if (picture.width == 0) {
        picture.width = 16 * picture.inspection.vop.u32MbWidth;
        picture.height = 16 * picture.inspection.vop.u32MbHeight;
    }
    constexpr std::pair<Overlay, const char*> kOverlays[] = {{Overlay::kTypes, "types.png"},
                                                             {Overlay::kVectors, "vectors.png"},
                                                             {Overlay::kQuantiser, "quantiser.png"},
                                                             {Overlay::kBits, "bits.png"}};
    for (const auto& [overlay, name] : kOverlays) {
        if (overlay == Overlay::kVectors && !picture.inspection.vop.u8Predicted) continue;
        DrawOverlay(picture, overlay, Name(name));
        written_.push_back(Name(name));
    }
    inspection_ = std::move(picture.inspection);
}

std::string InspectRun::Text() const {
    std::string text;
    if (found_) text += FileName(options_.input) + ", " + PictureText(facts_, inspection_);
    if (!source_.problem().empty()) text += "  " + source_.problem() + "\n";
    if (!reference_problem_.empty())
        text += "  PSNR ends early: '" + options_.reference + "': " + reference_problem_ + "\n";
    for (size_t i = 0; i < written_.size(); i++)
        text += (i == 0 ? "  written     " : "              ") + written_[i] + "\n";
    if (found_ && !options_.folder.empty() && !DrawingVersion()) {
        text += "  This mp4vdec was built without cairo, which draws what lies over the picture.\n";
    }
    return text;
}

std::string InspectRun::Json() const {
    nlohmann::ordered_json json;
    json["input"] = options_.input == "-" ? "standard input" : options_.input;
    if (found_) json["inspected"] = PictureJson(facts_, inspection_);
    if (!options_.plot.empty()) {
        json["pictures"] = nlohmann::ordered_json::array();
        for (const ChartPoint& point : points_) {
            nlohmann::ordered_json entry = {{"type", std::string(1, point.type)}, {"bits", point.bits}};
            if (point.mean_quant) entry["quant"] = {*point.lowest_quant, *point.mean_quant, *point.highest_quant};
            if (point.psnr) entry["psnr"] = *point.psnr;  // infinity becomes null: the same picture
            json["pictures"].push_back(std::move(entry));
        }
    }
    if (!source_.problem().empty()) json["problem"] = source_.problem();
    if (!reference_problem_.empty()) json["reference_problem"] = reference_problem_;
    json["written"] = written_;
    return json.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n";
}

void Check(const InspectOptions& options) {
    if (!options.picture && !options.chunk && options.plot.empty()) {
        throw UsageError("say what to inspect: --picture N, --chunk N or --plot FILE");
    }
    if (options.picture && options.chunk) throw UsageError("--picture and --chunk do not go together");
    if (!options.folder.empty() && !options.picture && !options.chunk) {
        throw UsageError("-o is for --picture and --chunk; --plot names its file itself");
    }
    if (!options.reference.empty() && options.plot.empty()) throw UsageError("--reference is for --plot");
    if (options.reference == "-" && options.input == "-") throw UsageError("standard input can be read only once");
    if (options.plot.empty()) return;
    if (!options.plot.ends_with(".svg") && !options.plot.ends_with(".png")) {
        throw UsageError("a plot is SVG or PNG: end '" + options.plot + "' in .svg or .png");
    }
    if (IsSameFile(options.plot, options.input) || IsSameFile(options.plot, options.reference)) {
        throw UsageError("'" + options.plot + "' is an input; it is not overwritten");
    }
    if (!DrawingVersion()) throw UsageError("this mp4vdec was built without cairo, which draws plots");
}

}  // namespace

int Inspect(const InspectOptions& options) {
    Check(options);
    InstallSignalHandlers();
    return InspectRun(options).Run();
}

}  // namespace mp4v
