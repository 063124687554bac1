#include "cli/work_estimate.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <string>

#include "forward/progress_line.h"

namespace voxlith {

namespace {

// Seconds; of an x86-64 core of about 3 GHz with AVX2.
constexpr double secondsPerResponse = 5.0e-9, secondsPerPaddedCell = 10.0e-9;

std::string bytesText(double bytes) {
    constexpr double step = 1000.0;
    constexpr std::array<const char*, 6> units = {"bytes", "kB", "MB", "GB", "TB", "PB"};
    std::size_t unit = 0;
    for (; bytes >= step && unit + 1 < units.size(); ++unit) {
        bytes /= step;
    }
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), unit > 0 && bytes < 10.0 ? "%.1f %s" : "%.0f %s", bytes, units[unit]);
    return text.data();
}

}  // namespace

void announceWork(const WorkEstimate& estimate) {
    const std::string time = "about " + durationText(std::max(1.0, estimate.seconds));
    std::fprintf(stderr, "voxlith-tools: %zu %.*s, %zu cells, a file of %s%.*s, %s\n", estimate.count,
                 static_cast<int>(estimate.items.size()), estimate.items.data(), estimate.cells,
                 bytesText(estimate.fileBytes).c_str(), static_cast<int>(estimate.fileRemark.size()),
                 estimate.fileRemark.data(), time.c_str());
}

double rowSeconds(std::size_t cells, std::size_t paddedCells) {
    return datumSeconds(cells) + secondsPerPaddedCell * static_cast<double>(paddedCells);
}

double datumSeconds(std::size_t cells) {
    return secondsPerResponse * static_cast<double>(cells);
}

}  // namespace voxlith
