/* SPDX-License-Identifier: BSD-2-Clause
 * Copyright (c) 2026, the mp4vdec authors */
#include "tools/decode_command.h"

#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <chrono>
#include <filesystem>
#include <iostream>
#include <memory>
#include <optional>

#include "mp4vdec.hpp"
#include "tools/contact_sheet.h"
#include "tools/exit_code.h"
#include "tools/file.h"
#include "tools/md5.h"
#include "tools/progress.h"
#include "tools/report.h"
#include "tools/stream_source.h"
#include "tools/video_writer.h"

namespace mp4v {
namespace {

// Chunks; enough to see how far pictures are apart in time.
constexpr size_t kLookAhead = 4;

std::string LowerExtension(const std::string& path) {
    std::string extension = std::filesystem::path(path).extension().string();
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return extension;
}

bool IsRaw(const DecodeOptions& options) {
    return options.raw || LowerExtension(options.output) == ".yuv";
}

bool SameFile(const std::string& a, const std::string& b) {
    if (a == "-" || b == "-") return false;
    std::error_code error;
    return std::filesystem::equivalent(a, b, error) && !error && std::filesystem::is_regular_file(a, error);
}

// Devices and pipes have names without an ending; they get Y4M, as standard output does.
bool IsDevice(const std::string& path) {
    std::error_code error;
    return std::filesystem::is_other(path, error);
}

void CheckStandardOutput(const DecodeOptions& options) {
    const int users = (options.output == "-") + (options.frame_md5 == "-") + options.md5;
    if (users > 1) throw UsageError("only one of -o -, --framemd5 - and --md5 can have standard output");
    if (options.contact_sheet == "-") throw UsageError("a contact sheet needs a file name");
    if (options.output == "-" && isatty(STDOUT_FILENO)) {
        throw UsageError("pictures are not written to a terminal; use a file name or a pipe");
    }
}

void Check(const DecodeOptions& options) {
    CheckStandardOutput(options);
    for (const std::string& path : {options.output, options.frame_md5, options.contact_sheet}) {
        if (!path.empty() && SameFile(options.input, path)) {
            throw UsageError("'" + path + "' is the input; it is not overwritten");
        }
    }
    if (options.output.empty() || options.output == "-" || options.raw || IsDevice(options.output)) return;
    const std::string extension = LowerExtension(options.output);
    if (extension != ".y4m" && extension != ".yuv") {
        throw UsageError("cannot tell the format of '" + options.output + "': end it in .y4m or .yuv, or give --raw");
    }
}

std::unique_ptr<VideoWriter> MakeWriter(const DecodeOptions& options) {
    if (options.output.empty()) return nullptr;
    if (IsRaw(options)) return std::make_unique<RawWriter>(options.output);
    return std::make_unique<Y4mWriter>(options.output);
}

SessionOptions MakeSessionOptions(const DecodeOptions& options) {
    SessionOptions session;
    session.deblock_threshold = options.deblock_threshold;
    session.look_ahead = kLookAhead;
    return session;
}

// One run over a stream: what comes out of the session goes to everybody who asked for it.
class DecodeRun {
  public:
    explicit DecodeRun(const DecodeOptions& options)
        : options_(options),
          source_(options.input),
          session_(MakeSessionOptions(options)),
          writer_(MakeWriter(options)),
          progress_(options.quiet ? std::nullopt : source_.file().size()) {
        if (!options.frame_md5.empty()) frame_md5_ = std::make_unique<OutputFile>(options.frame_md5);
    }

    int Run();

  private:
    void Take(const Session::Results& results);
    void Deliver(const Picture& picture);
    void Finish();
    void PrintReport();
    std::string InputName() const { return options_.input == "-" ? "standard input" : options_.input; }

    const DecodeOptions& options_;
    StreamSource source_;
    Session session_;
    std::unique_ptr<VideoWriter> writer_;
    std::unique_ptr<OutputFile> frame_md5_;
    Md5 md5_;
    ContactSheet sheet_;
    Progress progress_;
    Report report_;
    std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

int DecodeRun::Run() {
    for (std::span<const uint8_t> bytes; !(bytes = source_.Read()).empty();) {
        Take(session_.Feed(bytes));
        progress_.Update(source_.position());
    }
    // What has arrived of the next picture when interrupted is not the whole of it.
    if (!Interrupted()) Take(session_.Finish());
    report_.SetProblem(source_.problem());
    progress_.Finish();
    Finish();
    if (!options_.quiet) PrintReport();
    if (Interrupted()) return kExitInterrupted;
    return report_.good() ? kExitGood : kExitDamage;
}

void DecodeRun::Take(const Session::Results& results) {
    for (const Result& result : results) {
        if (result.picture) Deliver(*result.picture);
        report_.Add(result);
        if (Interrupted()) return;
    }
}

void DecodeRun::Deliver(const Picture& picture) {
    if (writer_) {
        if (!writer_->Write(picture, [&] { return session_.Format(); })) report_.CountLeftOut();
    }
    if (options_.md5) md5_.Add(picture);
    if (frame_md5_) {
        Md5 digest;
        digest.Add(picture);
        frame_md5_->Write(std::to_string(report_.pictures()) + " " + digest.Hex() + "\n");
    }
    if (!options_.contact_sheet.empty()) sheet_.Add(picture);
}

void DecodeRun::Finish() {
    if (writer_) writer_->Close();
    if (frame_md5_) frame_md5_->Close();
    if (options_.md5) {
        OutputFile out("-");
        out.Write(md5_.Hex() + "\n");
        out.Close();
    }
    if (!sheet_.empty()) WritePng(sheet_.Render(), options_.contact_sheet);
}

void DecodeRun::PrintReport() {
    std::cerr << report_.Text(InputName(), std::chrono::steady_clock::now() - start_);
    if (writer_ && writer_->files() > 1) {
        std::cerr << "The picture size changes: the pictures are in " << writer_->files() << " files, "
                  << options_.output << " to " << NumberedName(options_.output, writer_->files()) << ".\n";
    }
    if (report_.left_out() > 0) {
        std::cerr << "The picture size changes, which one Y4M stream cannot show; write to a file or use --raw.\n";
    }
    if (Interrupted()) std::cerr << "Interrupted; what is written is complete up to here.\n";
}

}  // namespace

int Decode(const DecodeOptions& options) {
    Check(options);
    InstallSignalHandlers();
    return DecodeRun(options).Run();
}

}  // namespace mp4v
