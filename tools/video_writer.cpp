/* SPDX-License-Identifier: BSD-2-Clause
 * Copyright (c) 2026, the mp4vdec authors */
#include "tools/video_writer.h"

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <regex>

#include "tools/image.h"

namespace mp4v {
namespace {

void WriteInterleaved(OutputFile& file, const Picture& picture) {
    const PlaneView& luma = picture.planes[0];
    for (uint32_t y = 0; y < luma.height; y++) file.Write(std::span(luma.samples + y * luma.pitch, luma.width));
    std::vector<uint8_t> row(size_t{2} * picture.planes[1].width);
    for (uint32_t y = 0; y < picture.planes[1].height; y++) {
        for (size_t i = 0; i < row.size(); i++) {
            const PlaneView& plane = picture.planes[1 + i % 2];
            row[i] = plane.samples[y * plane.pitch + i / 2];
        }
        file.Write(row);
    }
    file.Flush();
}

void WriteSamples(OutputFile& file, const Picture& picture) {
    for (const PlaneView& plane : picture.planes) {
        for (uint32_t y = 0; y < plane.height; y++) {
            file.Write(std::span(plane.samples + y * plane.pitch, plane.width));
        }
    }
    file.Flush();  // so that whoever reads from a pipe gets whole pictures at once
}

std::string Text(Ratio ratio) {
    return std::to_string(ratio.numerator) + ":" + std::to_string(ratio.denominator);
}

// Chroma samples lie between rows and on columns of luma (ISO/IEC 14496-2 figure 6-1): that is "mpeg2", not "jpeg".
std::string Y4mHeader(const Picture& picture, const VideoFormat& format) {
    return "YUV4MPEG2 W" + std::to_string(picture.width) + " H" + std::to_string(picture.height) + " F" +
           Text(format.rate) + " I" + format.interlacing + " A" + Text(format.aspect) + " C420mpeg2\n";
}

}  // namespace

OutputFormat FormatByName(const std::string& path) {
    std::string extension = std::filesystem::path(path).extension().string();
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    if (extension == ".y4m") return OutputFormat::kY4m;
    if (extension == ".yuv" || extension == ".i420") return OutputFormat::kI420;
    if (extension == ".nv12") return OutputFormat::kNv12;
    if (extension == ".png") return OutputFormat::kPng;
    return OutputFormat::kByName;
}

std::unique_ptr<VideoWriter> MakeWriter(const std::string& path, OutputFormat format) {
    switch (format) {
        case OutputFormat::kI420:
        case OutputFormat::kNv12:
            return std::make_unique<RawWriter>(path, format);
        case OutputFormat::kPng:
            return std::make_unique<PngWriter>(path);
        default:
            return std::make_unique<Y4mWriter>(path);
    }
}

bool RawWriter::Write(const Picture& picture, const FormatSource&) {
    interleaved_ ? WriteInterleaved(file_, picture) : WriteSamples(file_, picture);
    return true;
}

bool PngWriter::Write(const Picture& picture, const FormatSource&) {
    WritePng(ToImage(picture), Name(pattern_, ++files_));
    return true;
}

bool PngWriter::HasNumber(const std::string& pattern) {
    static const std::regex shape("[^%]*%(0[1-9])?d[^%]*");
    return std::regex_match(pattern, shape);
}

std::string PngWriter::Name(const std::string& pattern, unsigned number) {
    const size_t begin = pattern.find('%');
    if (!HasNumber(pattern)) return pattern;
    const size_t end = pattern.find('d', begin);
    const size_t digits = end > begin + 1 ? static_cast<size_t>(pattern[end - 1] - '0') : 1;
    std::string text = std::to_string(number);
    text.insert(0, digits - std::min(digits, text.size()), '0');
    return pattern.substr(0, begin) + text + pattern.substr(end + 1);
}

Y4mWriter::Y4mWriter(const std::string& path) : path_(path), file_(std::make_unique<OutputFile>(path)) {
    std::error_code error;
    may_have_siblings_ = path != "-" && std::filesystem::is_regular_file(path, error);
}

bool Y4mWriter::Write(const Picture& picture, const FormatSource& format) {
    const bool same_size = picture.width == width_ && picture.height == height_;
    if (!same_size && !StartFile(picture, format)) return false;
    file_->Write("FRAME\n");
    WriteSamples(*file_, picture);
    return true;
}

bool Y4mWriter::StartFile(const Picture& picture, const FormatSource& format) {
    if (width_ != 0) {
        if (!may_have_siblings_ || files_ == kMaxFiles) return false;
        file_->Close();
        file_ = std::make_unique<OutputFile>(NumberedName(path_, ++files_));
    }
    width_ = picture.width;
    height_ = picture.height;
    file_->Write(Y4mHeader(picture, format()));
    return true;
}

void Y4mWriter::Close() {
    file_->Close();
}

std::string NumberedName(const std::string& path, unsigned number) {
    std::filesystem::path name(path);
    const std::string extension = name.extension().string();
    name.replace_extension("." + std::to_string(number) + extension);
    return name.string();
}

}  // namespace mp4v
