/* SPDX-License-Identifier: BSD-2-Clause
 * Copyright (c) 2026, the mp4vdec authors */
#include "tools/decode_command.h"

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <charconv>
#include <filesystem>
#include <set>
#include <thread>

#include "tools/decode_run.h"
#include "tools/exit_code.h"
#include "tools/file.h"

namespace mp4v {
namespace {

namespace fs = std::filesystem;

// One input and where its pictures go.
struct Job {
    std::string input;
    std::string output;
    OutputFormat format = OutputFormat::kY4m;
};

// Devices and pipes have names without an ending; they get Y4M, as standard output does.
bool IsDevice(const std::string& path) {
    std::error_code error;
    return fs::is_other(path, error);
}

bool IsFolder(const std::string& path) {
    std::error_code error;
    return path.ends_with('/') || fs::is_directory(path, error);
}

const char* EndingOf(OutputFormat format) {
    switch (format) {
        case OutputFormat::kI420:
            return ".yuv";
        case OutputFormat::kNv12:
            return ".nv12";
        case OutputFormat::kPng:
            return "-%05d.png";
        default:
            return ".y4m";
    }
}

std::string NameInFolder(const std::string& folder, const std::string& input, OutputFormat format) {
    const std::string stem = input == "-" ? "stdin" : fs::path(input).stem().string();
    return (fs::path(folder) / (stem + EndingOf(format))).string();
}

void CheckStandardOutput(const DecodeOptions& options) {
    const int users =
        (options.output == "-") + (options.frame_md5 == "-") + (options.md5 && !options.json) + options.json;
    if (users > 1) throw UsageError("only one of -o -, --framemd5 -, --md5 and --json can have standard output");
    if (options.contact_sheet == "-") throw UsageError("a contact sheet needs a file name");
    if (options.output == "-" && isatty(STDOUT_FILENO)) {
        throw UsageError("pictures are not written to a terminal; use a file name or a pipe");
    }
}

void CheckCombination(const DecodeOptions& options) {
    const bool per_input = !options.frame_md5.empty() || !options.contact_sheet.empty() || !options.verify.empty();
    if (options.inputs.size() > 1 && per_input) {
        throw UsageError("--framemd5, --contact-sheet and --verify take one input at a time");
    }
    if (options.inputs.size() > 1 && !options.output.empty() && !IsFolder(options.output)) {
        throw UsageError("with several inputs, -o is a folder: end it in /");
    }
    if (std::count(options.inputs.begin(), options.inputs.end(), "-") > 1) {
        throw UsageError("standard input can be read only once");
    }
    if (options.benchmark && (per_input || !options.output.empty() || options.md5)) {
        throw UsageError("--benchmark goes without any output");
    }
    if (options.output == "-" && options.format == OutputFormat::kPng) {
        throw UsageError("PNG pictures need a file name");
    }
}

OutputFormat FormatOf(const DecodeOptions& options) {
    if (options.format != OutputFormat::kByName) return options.format;
    if (options.output == "-" || IsDevice(options.output) || IsFolder(options.output)) return OutputFormat::kY4m;
    const OutputFormat format = FormatByName(options.output);
    if (format == OutputFormat::kByName) {
        throw UsageError("cannot tell the format of '" + options.output +
                         "': end it in .y4m, .yuv, .nv12 or .png, or give --format");
    }
    return format;
}

std::vector<Job> MakeJobs(const DecodeOptions& options) {
    std::vector<Job> jobs;
    std::set<std::string> outputs;
    for (const std::string& input : options.inputs) {
        Job job{input, options.output};
        if (!options.output.empty()) {
            job.format = FormatOf(options);
            if (IsFolder(options.output)) job.output = NameInFolder(options.output, input, job.format);
            if (!outputs.insert(job.output).second) {
                throw UsageError("two inputs would be written to '" + job.output + "'");
            }
            if (job.format == OutputFormat::kPng && !PngWriter::HasNumber(job.output) && options.limit != 1) {
                throw UsageError("the name needs a place for the number, for example picture-%05d.png");
            }
        }
        jobs.push_back(std::move(job));
    }
    return jobs;
}

void CheckInputsAreKept(const DecodeOptions& options, const std::vector<Job>& jobs) {
    std::vector<std::string> written = {options.frame_md5, options.contact_sheet};
    for (const Job& job : jobs) written.push_back(job.output);
    for (const std::string& input : options.inputs) {
        for (const std::string& path : written) {
            if (!path.empty() && IsSameFile(input, path)) {
                throw UsageError("'" + path + "' is the input; it is not overwritten");
            }
        }
    }
}

// The one to report for several inputs.
int Worse(int a, int b) {
    return std::max(a, b);
}

int RunJob(const DecodeOptions& options, const Job& job, Progress& progress) {
    return DecodeRun(options, job.input, job.output, job.format, progress).Run();
}

// A file that does not work does not keep the others waiting.
int RunOneOfMany(const DecodeOptions& options, const Job& job, Progress& progress) {
    try {
        return RunJob(options, job, progress);
    } catch (const std::bad_alloc&) {
        progress.Say("mp4vdec: " + job.input + ": not enough memory\n");
    } catch (const std::exception& error) {
        progress.Say(std::string("mp4vdec: ") + error.what() + "\n");
    }
    return kExitFiles;
}

int RunAll(const DecodeOptions& options, const std::vector<Job>& jobs, Progress& progress) {
    std::atomic<size_t> next = 0;
    std::atomic<int> status = kExitGood;
    const auto work = [&] {
        for (size_t i = 0; !Interrupted() && (i = next++) < jobs.size();) {
            const int result = RunOneOfMany(options, jobs[i], progress);
            int before = status;
            while (!status.compare_exchange_weak(before, Worse(before, result))) {
            }
        }
    };
    std::vector<std::jthread> workers;
    for (size_t i = 1; i < std::min<size_t>(options.jobs, jobs.size()); i++) workers.emplace_back(work);
    work();
    workers.clear();
    return Interrupted() ? kExitInterrupted : status.load();
}

uint32_t ParseNumber(std::string_view text) {
    uint32_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    return error == std::errc{} && end == text.data() + text.size() ? value : 0;
}

}  // namespace

std::optional<Ratio> ParseRate(const std::string& text) {
    const size_t middle = text.find_first_of("/:");
    const std::string_view view = text;
    const uint32_t numerator = ParseNumber(view.substr(0, middle));
    const uint32_t denominator = middle == std::string::npos ? 1 : ParseNumber(view.substr(middle + 1));
    if (numerator == 0 || denominator == 0) return std::nullopt;
    return Ratio{numerator, denominator};
}

int Decode(DecodeOptions options) {
    CheckStandardOutput(options);
    CheckCombination(options);
    const std::vector<Job> jobs = MakeJobs(options);
    CheckInputsAreKept(options, jobs);
    if (!options.output.empty() && IsFolder(options.output)) {
        std::error_code error;
        fs::create_directories(options.output, error);
    }
    std::transform(options.verify.begin(), options.verify.end(), options.verify.begin(),
                   [](char c) { return c >= 'A' && c <= 'F' ? static_cast<char>(c - 'A' + 'a') : c; });
    InstallSignalHandlers();
    Progress progress(!options.quiet && !options.json);
    if (jobs.size() == 1) return RunJob(options, jobs[0], progress);
    return RunAll(options, jobs, progress);
}

}  // namespace mp4v
