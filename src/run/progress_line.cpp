#include "run/progress_line.h"

#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "base/overhead_timers.h"

namespace voxlith {

ProgressLine startProgressLine(bool quiet, std::int32_t iteration) {
    return {!quiet && ::isatty(STDERR_FILENO) == 1, 0, clockSeconds(), iteration};
}

void showProgress(ProgressLine& progress, std::int32_t iteration, std::int32_t lastIteration, double rmsMisfit) {
    if (!progress.onTerminal || iteration >= lastIteration) {
        return;
    }
    char number[32];
    std::snprintf(number, sizeof number, "%.4g", rmsMisfit);
    std::string text =
        "iteration " + std::to_string(iteration) + " of " + std::to_string(lastIteration) + ", RMS misfit " + number;
    const std::int32_t done = iteration - progress.firstIteration;
    if (done > 0) {
        const double each = (clockSeconds() - progress.startedAt) / done;
        text += ", " + durationText(each * (lastIteration - iteration)) + " left";
    }
    const std::size_t length = text.size();
    text.resize(std::max(length, progress.shownLength), ' ');
    progress.shownLength = length;
    std::fprintf(stderr, "\r%s", text.c_str());
    std::fflush(stderr);
}

void clearProgress(ProgressLine& progress) {
    if (progress.shownLength > 0) {
        std::fprintf(stderr, "\r%s\r", std::string(progress.shownLength, ' ').c_str());
        std::fflush(stderr);
        progress.shownLength = 0;
    }
}

std::string durationText(double seconds) {
    constexpr double longest = 1e9;
    const auto whole = static_cast<std::int64_t>(std::llround(std::clamp(seconds, 0.0, longest)));
    const std::int64_t minutes = whole / 60;
    if (minutes == 0) {
        return std::to_string(whole) + " s";
    }
    if (minutes < 60) {
        return std::to_string(minutes) + " min " + std::to_string(whole % 60) + " s";
    }
    return std::to_string(minutes / 60) + " h " + std::to_string(minutes % 60) + " min";
}

}  // namespace voxlith
