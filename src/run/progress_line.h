// A line on a terminal that says how far the inversion is and how long it will take. Nothing is shown elsewhere.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace voxlith {

struct ProgressLine {
    bool onTerminal = false;
    std::size_t shownLength = 0;  // characters on the line at present
    double startedAt = 0;         // clock reading, seconds
    std::int32_t firstIteration = 0;
};

// Shown on standard error, if that is a terminal and `quiet` is not set. Iterations count from `iteration` on.
ProgressLine startProgressLine(bool quiet, std::int32_t iteration);

// "iteration 12 of 300, RMS misfit 1.234, 4 min left"
void showProgress(ProgressLine& progress, std::int32_t iteration, std::int32_t lastIteration, double rmsMisfit);

// Makes the line blank, so that something else can be written there.
void clearProgress(ProgressLine& progress);

// "12 s", "3 min 20 s", "2 h 5 min".
std::string durationText(double seconds);

}  // namespace voxlith
