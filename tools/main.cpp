/* SPDX-License-Identifier: BSD-2-Clause
 * Copyright (c) 2026, the mp4vdec authors */
#include <CLI/CLI.hpp>
#include <exception>
#include <iostream>
#include <new>
#include <string>

#include "tools/decode_command.h"
#include "tools/demuxer.h"
#include "tools/exit_code.h"

#ifndef MP4VDEC_VERSION
#define MP4VDEC_VERSION "1.0.0"
#endif

namespace {

constexpr const char* kExamples = R"(
Examples:
  mp4vdec decode camera.m4v -o camera.y4m
  mp4vdec decode camera.m4v -o - | player -
  mp4vdec decode camera.m4v --framemd5 - -q
  mp4vdec decode camera.m4v --contact-sheet camera.png

Pictures and chunks are counted from 0. Not-coded pictures repeat the one before and count as pictures.
A refused or damaged chunk is reported and decoding goes on with the next one.

When the picture size changes, a Y4M file ends: pictures of the next size go to OUT.2.y4m and so on; on standard
output, pipes and devices they are left out. Raw files simply go on.

Exit status: 0 good; 1 damage, refusals, pictures left out or nothing decoded; 2 usage; 3 files; 130 interrupted.)";

void AddDecode(CLI::App& app, mp4v::DecodeOptions& options) {
    CLI::App* const decode = app.add_subcommand("decode", "Decode an elementary stream (.m4v)");
    decode->add_option("INPUT,-i,--input", options.input, "Stream to decode; - is standard input")->required();
    decode->add_option("-o,--output", options.output,
                       "Pictures: .y4m or .yuv (raw planar 4:2:0); - is standard output, Y4M unless --raw");
    decode->add_flag("--raw", options.raw, "Write raw planar 4:2:0 whatever the name");
    decode->add_flag("--md5", options.md5, "Print the MD5 of all samples, as in a raw file");
    decode->add_option("--framemd5", options.frame_md5,
                       "Write a line per picture: number and MD5; - is standard output");
    decode->add_option("--contact-sheet", options.contact_sheet, "Write up to 16 pictures, evenly spaced, as one PNG");
    decode
        ->add_option("--deblock-threshold", options.deblock_threshold,
                     "Smooth block edges where the quantiser is above 10 or 30")
        ->check(CLI::IsMember({10, 30}))
        ->capture_default_str();
    decode->add_flag("-q,--quiet", options.quiet, "Say nothing but errors");
    decode->footer(kExamples);
}

std::string Version() {
    const char* const demuxer = mp4v::DemuxerVersion();
    return std::string("mp4vdec " MP4VDEC_VERSION "\nInput: elementary streams") +
           (demuxer ? std::string(", AVI, MP4/QuickTime and Matroska by ") + demuxer : "");
}

int Run(int argc, char** argv) {
    CLI::App app("mp4vdec decodes MPEG-4 Part 2 video (ISO/IEC 14496-2).", "mp4vdec");
    mp4v::DecodeOptions options;
    app.set_version_flag("--version", Version());
    app.require_subcommand(1);
    app.footer(kExamples);
    AddDecode(app, options);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? mp4v::kExitGood : mp4v::kExitUsage;
    }
    return mp4v::Decode(options);
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
