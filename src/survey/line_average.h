// Measurements that are averages over a part of the survey line: the times of the line, the running mean by splines of
// the forward product, and the integration windows of its transpose.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "survey/obs_set.h"

namespace voxlith {

struct StationWindow {
    std::int32_t first = -1;  // station within the line, from 1
    std::int32_t last = -1;
    std::int32_t count = 0;
};

struct LineIntegration {
    float integrationInterval = 0;  // L; not above 0: no averaging
    std::int32_t nWindows = 0;
    std::int32_t maxWindow = 0;
    std::vector<double> lineTime;            // (maxLineData) by line
    std::vector<StationWindow> windowRange;  // (maxLineData) by line
    std::vector<double> windowWeight;        // (maxWindow) by station by line
    std::vector<double> splineTable;         // 4 by maxLineData: work
};

// Replaces `values` (nData) by their running means along the lines. Allocates nothing.
void averageAlongLines(const ObsSet& obs, LineIntegration& lines, std::span<double> values);

// Transpose: each element of `residual` (nData, in place) becomes the weighted sum over its window of the elements
// whose `observed` and `predicted` are both valid. `work` has nData elements.
void spreadAlongLines(const ObsSet& obs, const LineIntegration& lines, std::span<const double> observed,
                      std::span<const double> predicted, std::span<double> residual, std::span<double> work);

// For the background response: integrals over the window, not divided by its length. Stations whose window does not fit
// become dummies; where the window begins before the line, so does `firstComponent`.
void integrateBackgroundAlongLines(const ObsSet& obs, LineIntegration& lines, std::span<double> values,
                                   std::span<double> firstComponent);

}  // namespace voxlith
