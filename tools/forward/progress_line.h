// A line on a terminal with the progress of long work and the time left. Nothing is shown elsewhere.
#pragma once

#include <chrono>
#include <cstddef>
#include <string>
#include <string_view>

namespace voxlith {

class ProgressLine {
public:
    // `what` names the items, of which there are `total`. Shown on standard error, if that is a terminal.
    ProgressLine(std::string_view what, std::size_t total);
    ~ProgressLine();  // clears the line
    ProgressLine(const ProgressLine&) = delete;
    ProgressLine& operator=(const ProgressLine&) = delete;

    // Shown at most a few times a second, and not during the first second.
    void show(std::size_t done);

private:
    std::string what_;
    std::size_t total_;
    bool onTerminal_;
    bool shown_ = false;
    std::chrono::steady_clock::time_point start_;
    std::chrono::steady_clock::time_point lastShown_;
};

// "12 s", "3 min 20 s", "2 h 5 min".
std::string durationText(double seconds);

}  // namespace voxlith
