/* SPDX-License-Identifier: BSD-2-Clause
 * Copyright (c) 2026, the mp4vdec authors */
#include "tools/file.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <mutex>

namespace mp4v {
namespace {

constexpr size_t kBufferSize = size_t{1} << 18;

volatile std::sig_atomic_t g_interrupted = 0;

void OnInterrupt(int) {
    g_interrupted = 1;
}

std::string Reason() {
    return std::strerror(errno);
}

}  // namespace

void InstallSignalHandlers() {
    struct sigaction action {};
    sigemptyset(&action.sa_mask);
    action.sa_handler = SIG_IGN;
    sigaction(SIGPIPE, &action, nullptr);
    action.sa_handler = OnInterrupt;
    action.sa_flags = static_cast<int>(SA_RESETHAND);  // no SA_RESTART: a blocking read has to return
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
}

bool Interrupted() {
    return g_interrupted != 0;
}

InputFile::InputFile(const std::string& path)
    : name_(path == "-" ? "standard input" : "'" + path + "'"),
      fd_(path == "-" ? STDIN_FILENO : open(path.c_str(), O_RDONLY | O_CLOEXEC)) {
    if (fd_ < 0) throw FileError("cannot open " + name_ + ": " + Reason());
    struct stat info {};
    if (fstat(fd_, &info) != 0 || !S_ISREG(info.st_mode)) return;
    begin_ = std::clamp<off_t>(lseek(fd_, 0, SEEK_CUR), 0, info.st_size);
    size_ = static_cast<uint64_t>(info.st_size - begin_);
}

InputFile::~InputFile() {
    if (fd_ != STDIN_FILENO) close(fd_);
}

size_t InputFile::Read(std::span<uint8_t> buffer) {
    while (!Interrupted()) {
        const ssize_t got = read(fd_, buffer.data(), buffer.size());
        if (got >= 0) return static_cast<size_t>(got);
        if (errno != EINTR) throw FileError("cannot read " + name_ + ": " + Reason());
    }
    return 0;
}

size_t InputFile::ReadOrStop(std::span<uint8_t> buffer) {
    for (;;) {
        const ssize_t got = read(fd_, buffer.data(), buffer.size());
        if (got >= 0) return static_cast<size_t>(got);
        if (errno != EINTR || Interrupted()) return 0;
    }
}

bool InputFile::Readable(int patience) const {
    pollfd wait{fd_, POLLIN, 0};
    return poll(&wait, 1, patience) > 0;
}

bool InputFile::Seek(uint64_t offset) {
    return size_ && offset <= *size_ && lseek(fd_, begin_ + static_cast<off_t>(offset), SEEK_SET) >= 0;
}

OutputFile::OutputFile(const std::string& path)
    : path_(path),
      name_(path == "-" ? "standard output" : "'" + path + "'"),
      fd_(path == "-" ? STDOUT_FILENO : open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666)) {
    if (fd_ < 0) throw FileError("cannot create " + name_ + ": " + Reason());
}

OutputFile::~OutputFile() {
    if (fd_ > STDOUT_FILENO) close(fd_);
}

void OutputFile::Fail() const {
    throw FileError("cannot write to " + name_ + ": " + Reason());
}

void OutputFile::Write(std::span<const uint8_t> bytes) {
    buffer_.insert(buffer_.end(), bytes.begin(), bytes.end());
    if (buffer_.size() >= kBufferSize) Flush();
}

void OutputFile::Write(std::string_view text) {
    Write(std::span(reinterpret_cast<const uint8_t*>(text.data()), text.size()));
}

void OutputFile::Flush() {
    WriteAll(buffer_);
    buffer_.clear();
}

// An interrupt does not cut a picture in two: what was begun is written to its end.
void OutputFile::WriteAll(std::span<const uint8_t> bytes) {
    while (!bytes.empty()) {
        const ssize_t put = write(fd_, bytes.data(), bytes.size());
        if (put < 0 && errno == EINTR) continue;
        if (put < 0) Fail();
        wrote_ = true;
        bytes = bytes.subspan(static_cast<size_t>(put));
    }
}

void OutputFile::Close() {
    if (fd_ < 0) return;
    Flush();
    struct stat info {};
    const bool empty_file = !wrote_ && path_ != "-" && fstat(fd_, &info) == 0 && S_ISREG(info.st_mode);
    if (fd_ > STDOUT_FILENO) {
        const int fd = fd_;
        fd_ = -1;
        if (close(fd) != 0 && errno != EINTR) Fail();
    }
    fd_ = -1;
    if (empty_file) unlink(path_.c_str());
}

bool IsSameFile(const std::string& a, const std::string& b) {
    if (a == "-" || b == "-") return false;
    std::error_code error;
    return std::filesystem::equivalent(a, b, error) && !error && std::filesystem::is_regular_file(a, error);
}

void WriteToStandardOutput(std::string_view text) {
    static std::mutex mutex;
    const std::lock_guard<std::mutex> lock(mutex);
    OutputFile out("-");
    out.Write(text);
    out.Close();
}

}  // namespace mp4v
