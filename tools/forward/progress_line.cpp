#include "forward/progress_line.h"

#include <unistd.h>

#include <cmath>
#include <cstdint>
#include <cstdio>

namespace voxlith {

ProgressLine::ProgressLine(std::string_view what, std::size_t total)
    : what_(what),
      total_(total),
      onTerminal_(::isatty(STDERR_FILENO) == 1),
      start_(std::chrono::steady_clock::now()),
      lastShown_(start_) {}

ProgressLine::~ProgressLine() {
    if (shown_) {
        std::fputs("\r\033[K", stderr);
    }
}

void ProgressLine::show(std::size_t done) {
    const auto now = std::chrono::steady_clock::now();
    if (!onTerminal_ || now - start_ < std::chrono::seconds(1) || now - lastShown_ < std::chrono::milliseconds(250)) {
        return;
    }
    lastShown_ = now;
    shown_ = true;
    const double elapsed = std::chrono::duration<double>(now - start_).count();
    const double left = elapsed * static_cast<double>(total_ - done) / static_cast<double>(done);
    std::fprintf(stderr, "\r%zu of %zu %s, %s left\033[K", done, total_, what_.c_str(), durationText(left).c_str());
    std::fflush(stderr);
}

std::string durationText(double seconds) {
    const auto whole = static_cast<std::int64_t>(std::llround(seconds));
    if (whole < 60) {
        return std::to_string(whole) + " s";
    }
    if (whole < 3600) {
        return std::to_string(whole / 60) + " min " + std::to_string(whole % 60) + " s";
    }
    return std::to_string(whole / 3600) + " h " + std::to_string(whole / 60 % 60) + " min";
}

}  // namespace voxlith
