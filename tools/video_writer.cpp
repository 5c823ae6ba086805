/* SPDX-License-Identifier: BSD-2-Clause
 * Copyright (c) 2026, the mp4vdec authors */
#include "tools/video_writer.h"

#include <filesystem>

namespace mp4v {
namespace {

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
std::string Header(const Picture& picture, const VideoFormat& format) {
    return "YUV4MPEG2 W" + std::to_string(picture.width) + " H" + std::to_string(picture.height) + " F" +
           Text(format.rate) + " I" + format.interlacing + " A" + Text(format.aspect) + " C420mpeg2\n";
}

}  // namespace

bool RawWriter::Write(const Picture& picture, const FormatSource&) {
    WriteSamples(file_, picture);
    return true;
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
    file_->Write(Header(picture, format()));
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
