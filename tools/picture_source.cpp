/* SPDX-License-Identifier: BSD-2-Clause
 * Copyright (c) 2026, the mp4vdec authors */
#include "tools/picture_source.h"

#include <algorithm>
#include <charconv>
#include <string_view>
#include <vector>

#include "tools/file.h"
#include "tools/stream_source.h"

namespace mp4v {
namespace {

constexpr std::string_view kY4mMagic = "YUV4MPEG2 ";
constexpr size_t kLongestLine = 1024;
constexpr uint32_t kLargestSide = 16384;

class StreamPictures : public PictureSource {
  public:
    explicit StreamPictures(std::unique_ptr<StreamSource> source) : source_(std::move(source)) {}

    bool Next(Picture& picture) override;
    uint64_t refused() const override { return refused_ + !source_->problem().empty(); }

  private:
    std::unique_ptr<StreamSource> source_;
    Session session_;
    uint64_t refused_ = 0;
    bool at_end_ = false;
};

bool StreamPictures::Next(Picture& picture) {
    for (;;) {
        for (const Result& result : at_end_ ? session_.Finish() : session_.Feed({})) {
            if (result.error) refused_++;
            if (!result.picture) continue;
            picture = *result.picture;
            return true;
        }
        if (at_end_ || Interrupted()) return false;
        const std::span<const uint8_t> bytes = source_->Read();
        at_end_ = bytes.empty();
        session_.Feed(bytes);
    }
}

class Y4mPictures : public PictureSource {
  public:
    Y4mPictures(std::unique_ptr<StreamSource> source, const std::string& path);

    bool Next(Picture& picture) override;
    uint64_t refused() const override { return 0; }

  private:
    bool ReadLine(std::string& line);
    bool Fill(std::span<uint8_t> bytes);
    void ReadHeader();
    [[noreturn]] void Fail(const std::string& what) const;

    std::unique_ptr<StreamSource> source_;
    std::string path_;
    std::vector<uint8_t> block_;
    size_t used_ = 0;
    uint32_t width_ = 0;
    uint32_t height_ = 0;
    uint64_t pictures_ = 0;
    std::vector<uint8_t> samples_;
};

Y4mPictures::Y4mPictures(std::unique_ptr<StreamSource> source, const std::string& path)
    : source_(std::move(source)), path_(path) {
    ReadHeader();
}

void Y4mPictures::Fail(const std::string& what) const {
    throw FileError("cannot read '" + path_ + "': " + what);
}

bool Y4mPictures::Fill(std::span<uint8_t> bytes) {
    while (!bytes.empty()) {
        if (used_ == block_.size()) {
            const std::span<const uint8_t> next = source_->Read();
            if (next.empty()) return false;
            block_.assign(next.begin(), next.end());
            used_ = 0;
        }
        const size_t size = std::min(bytes.size(), block_.size() - used_);
        std::copy_n(block_.begin() + static_cast<ptrdiff_t>(used_), size, bytes.begin());
        used_ += size;
        bytes = bytes.subspan(size);
    }
    return true;
}

bool Y4mPictures::ReadLine(std::string& line) {
    line.clear();
    for (uint8_t byte = 0; Fill({&byte, 1});) {
        if (byte == '\n') return true;
        line += static_cast<char>(byte);
        if (line.size() > kLongestLine) Fail("a header line of its Y4M is too long");
    }
    return false;
}

uint32_t Number(std::string_view text) {
    uint32_t value = 0;
    std::from_chars(text.data(), text.data() + text.size(), value);
    return value;
}

void Y4mPictures::ReadHeader() {
    std::string line;
    if (!ReadLine(line)) Fail("its Y4M header is cut off");
    std::string_view colours = "420";
    for (size_t at = line.find(' '); at != std::string::npos; at = line.find(' ', at + 1)) {
        const std::string_view word = std::string_view(line).substr(at + 1, line.find(' ', at + 1) - at - 1);
        if (word.starts_with('W')) width_ = Number(word.substr(1));
        if (word.starts_with('H')) height_ = Number(word.substr(1));
        if (word.starts_with('C')) colours = word.substr(1);
    }
    const bool known = colours == "420" || colours == "420jpeg" || colours == "420mpeg2" || colours == "420paldv";
    if (!known) Fail("its samples are not 4:2:0 of 8 bits");
    if (width_ == 0 || height_ == 0 || width_ > kLargestSide || height_ > kLargestSide) Fail("its size is impossible");
    const size_t chroma = size_t{(width_ + 1) / 2} * ((height_ + 1) / 2);
    samples_.resize(size_t{width_} * height_ + 2 * chroma);
}

bool Y4mPictures::Next(Picture& picture) {
    std::string line;
    if (!ReadLine(line)) {
        if (line.empty() || Interrupted()) return false;
        Fail("the header of picture " + std::to_string(pictures_) + " is cut off");
    }
    if (!line.starts_with("FRAME")) Fail("picture " + std::to_string(pictures_) + " does not begin with FRAME");
    if (!Fill(samples_)) Fail("picture " + std::to_string(pictures_) + " is cut off");
    pictures_++;
    picture.width = width_;
    picture.height = height_;
    const uint8_t* samples = samples_.data();
    for (size_t i = 0; i < picture.planes.size(); i++) {
        const uint32_t width = i == 0 ? width_ : (width_ + 1) / 2;
        const uint32_t height = i == 0 ? height_ : (height_ + 1) / 2;
        picture.planes[i] = {samples, width, height, width};
        samples += size_t{width} * height;
    }
    return true;
}

}  // namespace

std::unique_ptr<PictureSource> OpenPictures(const std::string& path) {
    auto source = std::make_unique<StreamSource>(path);
    const std::span<const uint8_t> head = source->head();
    const bool y4m = head.size() >= kY4mMagic.size() && std::equal(kY4mMagic.begin(), kY4mMagic.end(), head.begin());
    if (y4m) return std::make_unique<Y4mPictures>(std::move(source), path);
    return std::make_unique<StreamPictures>(std::move(source));
}

}  // namespace mp4v
