/* SPDX-License-Identifier: BSD-2-Clause
 * Copyright (c) 2026, the mp4vdec authors */
#ifndef MP4VDEC_TOOLS_VIDEO_WRITER_H_
#define MP4VDEC_TOOLS_VIDEO_WRITER_H_

#include <functional>
#include <memory>
#include <string>

#include "mp4vdec.hpp"
#include "tools/file.h"

namespace mp4v {

enum class OutputFormat { kByName, kY4m, kI420, kNv12, kPng };

/** By the ending of a name; kByName: none that is known. */
OutputFormat FormatByName(const std::string& path);

/** Asked for when a file begins. */
using FormatSource = std::function<VideoFormat()>;

/** Writes pictures one after the other. */
class VideoWriter {
  public:
    virtual ~VideoWriter() = default;

    /** False: this picture had to be left out. */
    virtual bool Write(const Picture& picture, const FormatSource& format) = 0;
    virtual void Close() = 0;

    /** How many files the pictures went to. */
    virtual unsigned files() const { return 1; }
};

/** Samples and nothing else; pictures of another size simply follow. */
class RawWriter : public VideoWriter {
  public:
    /** `format` is I420 or NV12. */
    RawWriter(const std::string& path, OutputFormat format)
        : file_(path), interleaved_(format == OutputFormat::kNv12) {}
    bool Write(const Picture& picture, const FormatSource& format) override;
    void Close() override { file_.Close(); }

  private:
    OutputFile file_;
    bool interleaved_;
};

/** A PNG file per picture, numbered from 1 where the name has a place for it: "%05d". */
class PngWriter : public VideoWriter {
  public:
    explicit PngWriter(const std::string& pattern) : pattern_(pattern) {}
    bool Write(const Picture& picture, const FormatSource& format) override;
    void Close() override {}

    /** True when the name has one place for a number, and no other "%". */
    static bool HasNumber(const std::string& pattern);
    static std::string Name(const std::string& pattern, unsigned number);

  private:
    std::string pattern_;
    unsigned files_ = 0;
};

/**
 * YUV4MPEG2. Such a file has one size, so pictures of another one go to a new file: after NAME.y4m come NAME.2.y4m,
 * NAME.3.y4m and so on. Standard output, pipes and devices have no second file; there they are left out.
 */
class Y4mWriter : public VideoWriter {
  public:
    /** More are left out: such a stream changes its size for the sake of it. */
    static constexpr unsigned kMaxFiles = 100;

    explicit Y4mWriter(const std::string& path);
    bool Write(const Picture& picture, const FormatSource& format) override;
    void Close() override;
    unsigned files() const override { return files_; }

  private:
    bool StartFile(const Picture& picture, const FormatSource& format);

    std::string path_;
    std::unique_ptr<OutputFile> file_;
    bool may_have_siblings_ = false;
    unsigned files_ = 1;
    uint32_t width_ = 0;  // of the current file; 0: no header has been written
    uint32_t height_ = 0;
};

std::unique_ptr<VideoWriter> MakeWriter(const std::string& path, OutputFormat format);

/** Name of the `number`-th file of a stream that changes its size: "a/b.y4m", 2 gives "a/b.2.y4m". */
std::string NumberedName(const std::string& path, unsigned number);

}  // namespace mp4v

#endif  // MP4VDEC_TOOLS_VIDEO_WRITER_H_
