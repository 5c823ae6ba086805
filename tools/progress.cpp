/* SPDX-License-Identifier: BSD-2-Clause
 * Copyright (c) 2026, the mp4vdec authors */
#include "tools/progress.h"

#include <unistd.h>

#include <algorithm>
#include <boost/timer/progress_display.hpp>
#include <iostream>

namespace mp4v {
namespace {

constexpr std::chrono::seconds kPatience{1};
constexpr unsigned long kSteps = 1000;

}  // namespace

class Progress::Bar {
  public:
    void Show(unsigned long step) {
        if (step > display_.count()) display_ += step - display_.count();
    }
    bool complete() const { return display_.count() == kSteps; }

  private:
    boost::timer::progress_display display_{kSteps, std::cerr};
};

Progress::Progress(std::optional<uint64_t> total) : start_(std::chrono::steady_clock::now()) {
    if (total && isatty(STDERR_FILENO)) total_ = *total;
}

Progress::~Progress() {
    Finish();
}

void Progress::Update(uint64_t done) {
    if (total_ == 0) return;
    if (!bar_) {
        if (std::chrono::steady_clock::now() - start_ < kPatience) return;
        bar_ = std::make_unique<Bar>();
    }
    const double part = static_cast<double>(std::min(done, total_)) / static_cast<double>(total_);
    bar_->Show(static_cast<unsigned long>(part * kSteps));
}

void Progress::Finish() {
    if (bar_ && !bar_->complete()) std::cerr << '\n';
    bar_.reset();
    total_ = 0;
}

}  // namespace mp4v
