/* SPDX-License-Identifier: BSD-2-Clause
 * Copyright (c) 2026, the mp4vdec authors */
#ifndef MP4VDEC_TOOLS_FILE_H_
#define MP4VDEC_TOOLS_FILE_H_

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace mp4v {

/** A file cannot be opened, read or written; what() is a complete message. */
class FileError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

/** Makes writes to a closed pipe fail instead of ending the process, and Ctrl-C ask for an orderly end. */
void InstallSignalHandlers();

/** True once Ctrl-C was pressed (or termination asked for); a second time ends the process at once. */
bool Interrupted();

/** A file read from front to back; "-" is standard input. */
class InputFile {
  public:
    explicit InputFile(const std::string& path);
    ~InputFile();
    InputFile(const InputFile&) = delete;
    InputFile& operator=(const InputFile&) = delete;

    /** Returns how many bytes were read; 0 at the end or when interrupted. */
    size_t Read(std::span<uint8_t> buffer);

    /** The same for other threads: gives 0 instead of throwing. */
    size_t ReadOrStop(std::span<uint8_t> buffer);

    /** Waits until there is something to read, or the end. False after that many milliseconds. */
    bool Readable(int patience) const;

    /** Goes to a byte of a regular file. */
    bool Seek(uint64_t offset);

    /** Of a regular file. */
    std::optional<uint64_t> size() const { return size_; }
    /** For messages. */
    const std::string& name() const { return name_; }

  private:
    std::string name_;
    int fd_;
    off_t begin_ = 0;  // standard input may have been read from before
    std::optional<uint64_t> size_;
};

/** A file written from front to back; "-" is standard output. */
class OutputFile {
  public:
    explicit OutputFile(const std::string& path);
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    void Write(std::span<const uint8_t> bytes);
    void Write(std::string_view text);
    void Flush();

    /** Flushes and closes; errors that the system keeps until then are thrown. A regular file left empty is removed. */
    void Close();

  private:
    [[noreturn]] void Fail() const;
    void WriteAll(std::span<const uint8_t> bytes);

    std::string path_;
    std::string name_;
    int fd_;
    std::vector<uint8_t> buffer_;
    bool wrote_ = false;
};

/** True when both names are of one regular file. */
bool IsSameFile(const std::string& a, const std::string& b);

/** All at once, whatever other threads write there. Throws FileError. */
void WriteToStandardOutput(std::string_view text);

}  // namespace mp4v

#endif  // MP4VDEC_TOOLS_FILE_H_
