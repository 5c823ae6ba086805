/* SPDX-License-Identifier: BSD-2-Clause
 * Copyright (c) 2026, the mp4vdec authors */
#include "tools/decode_run.h"

#include "tools/exit_code.h"

namespace mp4v {
namespace {

// Chunks; enough to see how far pictures are apart in time.
constexpr size_t kLookAhead = 4;

SessionOptions MakeSessionOptions(const DecodeOptions& options) {
    SessionOptions session;
    session.deblock_threshold = options.deblock_threshold;
    session.intra_only = options.intra_only;
    session.deinterlace = options.deinterlace;
    session.fields_stacked = options.fields_stacked;
    session.look_ahead = options.benchmark ? 0 : kLookAhead;
    return session;
}

}  // namespace

DecodeRun::DecodeRun(const DecodeOptions& options, const std::string& input, const std::string& output,
                     OutputFormat format, Progress& progress)
    : options_(options),
      name_(input == "-" ? "standard input" : input),
      output_(output),
      source_(input),
      session_(MakeSessionOptions(options)),
      writer_(output.empty() ? nullptr : MakeWriter(output, format)),
      progress_(progress) {
    if (!options.frame_md5.empty()) frame_md5_ = std::make_unique<OutputFile>(options.frame_md5);
}

int DecodeRun::Run() {
    const size_t line = progress_.Begin(name_, source_.file().size());
    for (std::span<const uint8_t> bytes; !done_ && !(bytes = source_.Read()).empty();) {
        Take(session_.Feed(bytes));
        progress_.Update(line, source_.position(), delivered_);
    }
    // What has arrived of the next picture when interrupted is not the whole of it.
    if (!done_ && !Interrupted()) Take(session_.Finish());
    report_.SetProblem(source_.problem());
    progress_.End(line);
    Finish();
    Tell();
    if (Interrupted()) return kExitInterrupted;
    return report_.good() ? kExitGood : kExitDamage;
}

void DecodeRun::Take(const Session::Results& results) {
    for (const Result& result : results) {
        report_.Add(result);
        if (result.picture) Deliver(*result.picture, result.seconds);
        if (result.error && options_.on_error == OnError::kStop) {
            report_.SetStopped();
            done_ = true;
        }
        if (result.error && result.coded && !result.picture && options_.on_error == OnError::kRepeat) Repeat();
        if (done_ || Interrupted()) return;
    }
}

void DecodeRun::Deliver(const Picture& picture, std::optional<double> seconds) {
    const uint64_t number = delivered_++;
    if (number >= options_.skip) Write(picture, seconds);
    if (delivered_ >= options_.skip && delivered_ - options_.skip >= options_.limit) done_ = true;
    if (options_.on_error == OnError::kRepeat && &picture != &last_) Keep(picture);
}

void DecodeRun::Write(const Picture& picture, std::optional<double> seconds) {
    if (writer_) {
        const auto format = [&] {
            VideoFormat of_stream = session_.Format();
            if (options_.rate) of_stream.rate = *options_.rate;
            return of_stream;
        };
        if (!writer_->Write(picture, format)) report_.CountLeftOut();
    }
    if (options_.md5 || !options_.verify.empty()) md5_.Add(picture);
    if (frame_md5_) {
        Md5 digest;
        digest.Add(picture);
        frame_md5_->Write(std::to_string(delivered_ - 1) + " " + digest.Hex() + "\n");
    }
    if (!options_.contact_sheet.empty()) sheet_.Add(picture, seconds);
}

// Before the first good picture there is none to repeat.
void DecodeRun::Repeat() {
    if (last_samples_.empty()) return;
    report_.CountRepeated();
    Deliver(last_, std::nullopt);
}

void DecodeRun::Keep(const Picture& picture) {
    last_samples_ = picture.Pack();
    last_ = picture;
    const uint8_t* samples = last_samples_.data();
    for (PlaneView& plane : last_.planes) {
        plane.samples = samples;
        plane.pitch = plane.width;
        samples += size_t{plane.width} * plane.height;
    }
}

void DecodeRun::Finish() {
    if (writer_) writer_->Close();
    if (frame_md5_) frame_md5_->Close();
    if (options_.md5 || !options_.verify.empty()) {
        const std::string md5 = md5_.Hex();
        report_.SetMd5(md5);
        if (!options_.verify.empty()) report_.SetVerified(md5 == options_.verify);
        if (options_.md5 && !options_.json) {
            WriteToStandardOutput(md5 + (options_.inputs.size() > 1 ? "  " + name_ : "") + "\n");
        }
    }
    if (!sheet_.empty()) WritePng(sheet_.Render(), options_.contact_sheet);
}

void DecodeRun::Tell() {
    const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start_;
    if (options_.json) WriteToStandardOutput(report_.Json(name_, elapsed));
    if (options_.quiet || options_.json) return;
    std::string text = report_.Text(name_, elapsed);
    if (writer_ && writer_->files() > 1) {
        text += "The picture size changes: the pictures are in " + std::to_string(writer_->files()) + " files, " +
                output_ + " to " + NumberedName(output_, writer_->files()) + ".\n";
    }
    if (report_.left_out() > 0) {
        text += "The picture size changes, which one Y4M stream cannot show; write to a file or use --raw.\n";
    }
    if (Interrupted()) text += "Interrupted; what is written is complete up to here.\n";
    progress_.Say(text);
}

}  // namespace mp4v
