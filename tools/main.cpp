/* SPDX-License-Identifier: BSD-2-Clause
 * Copyright (c) 2026, the mp4vdec authors */
#include <CLI/CLI.hpp>
#include <algorithm>
#include <exception>
#include <iostream>
#include <map>
#include <new>
#include <string>

#include "tools/compare_command.h"
#include "tools/decode_command.h"
#include "tools/demuxer.h"
#include "tools/drawing.h"
#include "tools/exit_code.h"
#include "tools/info_command.h"
#include "tools/inspect_command.h"

#ifndef MP4VDEC_VERSION
#define MP4VDEC_VERSION "1.0.0"
#endif

namespace {

constexpr size_t kHelpColumn = 28;
constexpr unsigned kMostJobs = 64;

constexpr const char* kFooter = R"(
Examples:
  mp4vdec decode camera.m4v -o camera.y4m
  mp4vdec decode camera.avi -o - | player -
  mp4vdec decode *.mp4 -j 4 -o pictures/ --format png

Exit status: 0 good; 1 damage, refusals or a wrong MD5; 2 usage; 3 files;
130 interrupted. The manual page, mp4vdec(1), says more.)";

const std::map<std::string, mp4v::OutputFormat>& Formats() {
    static const std::map<std::string, mp4v::OutputFormat> formats = {{"y4m", mp4v::OutputFormat::kY4m},
                                                                      {"i420", mp4v::OutputFormat::kI420},
                                                                      {"nv12", mp4v::OutputFormat::kNv12},
                                                                      {"png", mp4v::OutputFormat::kPng}};
    return formats;
}

const std::map<std::string, mp4v::OnError>& Policies() {
    static const std::map<std::string, mp4v::OnError> policies = {
        {"skip", mp4v::OnError::kSkip}, {"stop", mp4v::OnError::kStop}, {"repeat", mp4v::OnError::kRepeat}};
    return policies;
}

template <typename T>
std::string OneOf(const std::map<std::string, T>& choices, const std::string& text, T& choice) {
    const auto found = choices.find(text);
    if (found != choices.end()) {
        choice = found->second;
        return "";
    }
    std::string names;
    for (const auto& [name, value] : choices) names += (names.empty() ? "" : ", ") + name;
    return "'" + text + "' is none of " + names;
}

// CLI11 takes -1 for a large number.
std::string CheckCount(const std::string& text) {
    constexpr size_t kMostDigits = 18;
    const bool good = !text.empty() && text.size() <= kMostDigits &&
                      std::all_of(text.begin(), text.end(), [](unsigned char c) { return std::isdigit(c); });
    return good ? "" : "'" + text + "' is not a number of pictures";
}

std::string CheckLimit(const std::string& text) {
    return text.find_first_not_of('0') == std::string::npos ? "at least 1 picture is needed" : CheckCount(text);
}

std::string CheckMd5(const std::string& text) {
    const bool good =
        text.size() == 32 && std::all_of(text.begin(), text.end(), [](unsigned char c) { return std::isxdigit(c); });
    return good ? "" : "an MD5 has 32 hexadecimal digits";
}

void AddOutput(CLI::App& decode, mp4v::DecodeOptions& options) {
    const char* const group = "Output";
    decode.add_option("-o,--output", options.output, "NAME.y4m .yuv .nv12 %05d.png, FOLDER/ or -")
        ->type_name("FILE")
        ->group(group);
    decode
        .add_option_function<std::string>(
            "--format", [](const std::string&) {}, "y4m, i420, nv12 or png, whatever the name")
        ->check([&](const std::string& text) { return OneOf(Formats(), text, options.format); })
        ->type_name("FORMAT")
        ->group(group);
    decode
        .add_flag_callback(
            "--raw", [&] { options.format = mp4v::OutputFormat::kI420; }, "The same as --format i420")
        ->group(group);
    decode.add_flag("--md5", options.md5, "Print the MD5 of all samples")->group(group);
    decode.add_option("--framemd5", options.frame_md5, "A line per picture: number, MD5")
        ->type_name("FILE")
        ->group(group);
    decode.add_option("--verify", options.verify, "Compare the MD5 of all samples")
        ->check(CheckMd5)
        ->type_name("MD5")
        ->group(group);
    decode.add_option("--contact-sheet", options.contact_sheet, "Up to 16 pictures with their times")
        ->type_name("PNG")
        ->group(group);
    decode.add_flag("--benchmark", options.benchmark, "No output; only how fast it was")->group(group);
}

void AddControl(CLI::App& decode, mp4v::DecodeOptions& options) {
    const char* const group = "Control";
    decode.add_option("--skip", options.skip, "Leave out the first N pictures")
        ->check(CheckCount)
        ->option_text("N")
        ->group(group);
    decode.add_option("--limit", options.limit, "Stop after N pictures")
        ->check(CheckLimit)
        ->option_text("N")
        ->group(group);
    decode
        .add_option_function<std::string>(
            "--fps", [](const std::string&) {}, "Rate for Y4M: 25 or 30000/1001")
        ->check([&](const std::string& text) {
            options.rate = mp4v::ParseRate(text);
            return std::string(options.rate ? "" : "a rate is a number or two, such as 30000/1001");
        })
        ->type_name("RATE")
        ->group(group);
    decode.add_option("--deblock-threshold", options.deblock_threshold, "Smooth above quantiser 10 or 30")
        ->check(CLI::IsMember({10, 30}))
        ->option_text("N")
        ->group(group);
    decode.add_flag("--intra-only", options.intra_only, "Only intra pictures")->group(group);
    decode.add_flag("--deinterlace", options.deinterlace, "Deinterlace SD pictures")->group(group);
    decode.add_flag("--fields-stacked", options.fields_stacked, "Weave fields stored one above the other")
        ->group(group);
    decode
        .add_option_function<std::string>(
            "--on-error", [](const std::string&) {}, "skip, stop or repeat the last picture")
        ->check([&](const std::string& text) { return OneOf(Policies(), text, options.on_error); })
        ->type_name("POLICY")
        ->group(group);
    decode.add_option("-j,--jobs", options.jobs, "Decode N inputs at once")
        ->check(CLI::Range(1u, kMostJobs))
        ->option_text("N")
        ->group(group);
}

void AddDecode(CLI::App& app, mp4v::DecodeOptions& options) {
    CLI::App& decode = *app.add_subcommand("decode", "Decode streams and write their pictures");
    decode.get_formatter()->column_width(kHelpColumn);
    decode.add_option("INPUT,-i,--input", options.inputs, "Streams or containers; - is standard input")
        ->required()
        ->option_text("FILE...");
    AddOutput(decode, options);
    AddControl(decode, options);
    decode.add_flag("-q,--quiet", options.quiet, "Say nothing but errors")->group("Messages");
    decode.add_flag("--json", options.json, "Print the report as JSON")->group("Messages");
    decode.footer(kFooter);
}

void AddInfo(CLI::App& app, mp4v::InfoOptions& options) {
    CLI::App& info = *app.add_subcommand("info", "Tell what a stream is, without decoding it");
    info.get_formatter()->column_width(kHelpColumn);
    info.add_option("INPUT,-i,--input", options.input, "Stream or container; - is standard input")
        ->required()
        ->option_text("FILE");
    info.add_flag("--json", options.json, "Print it as JSON");
    info.footer("\nExit status: 0 the headers tell of nothing unsupported; 1 they do; 2 usage; 3 files.");
}

void AddCompare(CLI::App& app, mp4v::CompareOptions& options) {
    CLI::App& compare = *app.add_subcommand("compare", "Compare two streams or Y4M files, picture by picture");
    compare.get_formatter()->column_width(kHelpColumn);
    compare.add_option("A", options.a, "Stream, container or Y4M file")->required()->option_text("FILE");
    compare.add_option("B", options.b, "The same; one may be -, standard input")->required()->option_text("FILE");
    compare.add_option("--difference", options.difference, "The first pictures that differ, and how")->type_name("PNG");
    compare.add_flag("--json", options.json, "Print it as JSON, with the PSNR of every picture");
    compare.footer("\nExit status: 0 no sample differs; 1 some do, or damage; 2 usage; 3 files.");
}

void AddInspect(CLI::App& app, mp4v::InspectOptions& options) {
    CLI::App& inspect = *app.add_subcommand("inspect", "Look into a picture, or at how bits go over time");
    inspect.get_formatter()->column_width(kHelpColumn);
    inspect.add_option("INPUT,-i,--input", options.input, "Stream or container; - is standard input")
        ->required()
        ->option_text("FILE");
    inspect.add_option("--picture", options.picture, "Which picture, from 0")->check(CheckCount)->option_text("N");
    inspect.add_option("--chunk", options.chunk, "By its chunk instead; may be a damaged one")
        ->check(CheckCount)
        ->option_text("N");
    inspect.add_option("-o,--output", options.folder, "Folder for PNG, JSON and CSV")->type_name("FOLDER");
    inspect.add_option("--plot", options.plot, "Bits and quantiser over time: .svg or .png")->type_name("FILE");
    inspect.add_option("--reference", options.reference, "Y4M file or stream; the plot has PSNR then")
        ->type_name("FILE");
    inspect.add_flag("--json", options.json, "Print it as JSON");
    inspect.footer("\nExit status: 0 good; 1 damage; 2 usage, or no such picture; 3 files.");
}

std::string Version() {
    const char* const demuxer = mp4v::DemuxerVersion();
    const char* const drawing = mp4v::DrawingVersion();
    return std::string("mp4vdec " MP4VDEC_VERSION "\nInput: elementary streams") +
           (demuxer ? std::string(", AVI, MP4/QuickTime and Matroska by ") + demuxer : "") +
           (drawing ? std::string("\nDrawing: ") + drawing : "");
}

int Run(int argc, char** argv) {
    CLI::App app("mp4vdec decodes MPEG-4 Part 2 video (ISO/IEC 14496-2).", "mp4vdec");
    mp4v::DecodeOptions options;
    app.set_version_flag("--version", Version());
    app.require_subcommand(1);
    app.footer(kFooter);
    AddDecode(app, options);
    mp4v::InfoOptions info_options;
    AddInfo(app, info_options);
    mp4v::CompareOptions compare_options;
    AddCompare(app, compare_options);
    mp4v::InspectOptions inspect_options;
    AddInspect(app, inspect_options);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? mp4v::kExitGood : mp4v::kExitUsage;
    }
    if (app.got_subcommand("inspect")) return mp4v::Inspect(inspect_options);
    if (app.got_subcommand("compare")) return mp4v::Compare(compare_options);
    return app.got_subcommand("info") ? mp4v::Info(info_options) : mp4v::Decode(options);
}

}  // namespace

int main(int argc, char** argv) {
    try {
        return Run(argc, argv);
    } catch (const mp4v::UsageError& error) {
        std::cerr << "mp4vdec: " << error.what() << "\n";
        return mp4v::kExitUsage;
    } catch (const std::bad_alloc&) {
        std::cerr << "mp4vdec: not enough memory\n";
        return mp4v::kExitFiles;
    } catch (const std::exception& error) {
        std::cerr << "mp4vdec: " << error.what() << "\n";
        return mp4v::kExitFiles;
    }
}
