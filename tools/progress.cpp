/* SPDX-License-Identifier: BSD-2-Clause
 * Copyright (c) 2026, the mp4vdec authors */
#include "tools/progress.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <iostream>

namespace mp4v {
namespace {

constexpr std::chrono::seconds kPatience{1};
constexpr std::chrono::milliseconds kInterval{100};
constexpr size_t kDefaultColumns = 80;
constexpr size_t kNameColumns = 20;
constexpr size_t kBarColumns = 20;

size_t TerminalColumns() {
    winsize size{};
    if (ioctl(STDERR_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_col == 0) return kDefaultColumns;
    return size.ws_col;
}

// The end tells files apart better than the beginning.
std::string Shortened(const std::string& name) {
    if (name.size() <= kNameColumns) return name + std::string(kNameColumns - name.size(), ' ');
    return ".." + name.substr(name.size() - (kNameColumns - 2));
}

std::string Bar(double part) {
    const auto full = static_cast<size_t>(part * kBarColumns);
    return "[" + std::string(full, '=') + std::string(kBarColumns - full, ' ') + "]";
}

std::string TimeLeft(double seconds) {
    const auto whole = static_cast<unsigned>(std::min(seconds, 359999.0));
    char text[32];
    if (whole >= 3600) {
        (void)std::snprintf(text, sizeof text, "%u:%02u:%02u left", whole / 3600, whole / 60 % 60, whole % 60);
    } else {
        (void)std::snprintf(text, sizeof text, "%u:%02u left", whole / 60, whole % 60);
    }
    return text;
}

}  // namespace

Progress::Progress(bool wanted) : shown_(wanted && isatty(STDERR_FILENO)) {}

Progress::~Progress() {
    Erase();
}

size_t Progress::Begin(const std::string& name, std::optional<uint64_t> total) {
    const std::lock_guard<std::mutex> lock(mutex_);
    lines_.push_back({name, total.value_or(0), 0, 0, Clock::now(), true});
    return lines_.size() - 1;
}

void Progress::Update(size_t line, uint64_t done, uint64_t pictures) {
    if (!shown_) return;
    const std::lock_guard<std::mutex> lock(mutex_);
    lines_[line].done = done;
    lines_[line].pictures = pictures;
    const Clock::time_point now = Clock::now();
    if (now - lines_[line].start < kPatience || now - drawn_at_ < kInterval) return;
    drawn_at_ = now;
    Erase();
    Draw();
}

void Progress::End(size_t line) {
    const std::lock_guard<std::mutex> lock(mutex_);
    lines_[line].active = false;
    Erase();
}

void Progress::Say(const std::string& text) {
    const std::lock_guard<std::mutex> lock(mutex_);
    Erase();
    std::cerr << text << std::flush;
}

std::string Progress::Text(const Line& line, size_t columns) {
    const double elapsed = std::chrono::duration<double>(Clock::now() - line.start).count();
    const double part =
        line.total ? static_cast<double>(std::min(line.done, line.total)) / static_cast<double>(line.total) : 0;
    char rate[64];
    (void)std::snprintf(rate, sizeof rate, "%6.0f pictures/s",
                        static_cast<double>(line.pictures) / std::max(elapsed, 1e-3));
    std::string text = Shortened(line.name);
    if (line.total) {
        char percent[16];
        (void)std::snprintf(percent, sizeof percent, " %3.0f %%", part * 100);
        text += " " + Bar(part) + percent + rate;
        if (part > 0) text += "  " + TimeLeft(elapsed / part - elapsed);
    } else {
        text += " " + std::to_string(line.pictures) + " pictures" + rate;
    }
    return text.substr(0, columns - 1);  // a full line would wrap
}

void Progress::Erase() {
    if (drawn_ == 0) return;
    std::string text = "\r\x1b[K";
    for (size_t i = 1; i < drawn_; i++) text += "\x1b[A\x1b[K";
    std::cerr << text << std::flush;
    drawn_ = 0;
}

void Progress::Draw() {
    const size_t columns = TerminalColumns();
    std::string text;
    for (const Line& line : lines_) {
        if (!line.active) continue;
        text += (drawn_ > 0 ? "\n" : "") + Text(line, columns);
        drawn_++;
    }
    std::cerr << text << std::flush;
}

}  // namespace mp4v
