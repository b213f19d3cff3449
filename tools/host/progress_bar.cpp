#include "host/progress_bar.h"

#include "host/printable.h"

#include <algorithm>
#include <cstdio>
#include <unistd.h>

namespace {

constexpr int kWidth = 30;              // characters of the bar itself
constexpr double kRedrawSeconds = 0.1;  // also what counts as short work

double secondsSince(const struct timespec& then) {
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<double>(now.tv_sec - then.tv_sec) +
           static_cast<double>(now.tv_nsec - then.tv_nsec) / 1e9;
}

}  // namespace

ProgressBar::ProgressBar()
    : visible_(isatty(STDOUT_FILENO) == 1), sink_([this](uint64_t bytes) { advance(bytes); }) {
    clock_gettime(CLOCK_MONOTONIC, &last_);
}

ProgressBar::~ProgressBar() {
    if (!drawn_) return;
    printf("\r\033[K");
    fflush(stdout);
}

void ProgressBar::expect(uint64_t bytes) {
    total_ = bytes;
}

void ProgressBar::begin(const std::string& what) {
    label_ = printable(what);
}

void ProgressBar::advance(uint64_t bytes) {
    done_ += bytes;
    if (!visible_ || total_ == 0 || secondsSince(last_) < kRedrawSeconds) return;
    clock_gettime(CLOCK_MONOTONIC, &last_);
    draw();
}

void ProgressBar::draw() {
    const double share = std::min(1.0, static_cast<double>(done_) / static_cast<double>(total_));
    const int filled = static_cast<int>(share * kWidth);
    const std::string bar = std::string(static_cast<size_t>(filled), '#') +
                            std::string(static_cast<size_t>(kWidth - filled), '.');
    printf("\r[%s] %3d%%  %s\033[K", bar.c_str(), static_cast<int>(share * 100), label_.c_str());
    fflush(stdout);
    drawn_ = true;
}
