// Measurements that average over a stretch of the survey line: the line's times, the integration windows of the
// adjoint, and the running mean by splines of the forward product.
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

// The adjoint of the windows: `residual` (nData, changed in place) spread back over the stations, counting only terms
// where both `observed` and `predicted` are valid. `work` has room for nData.
void spreadAlongLines(const ObsSet& obs, const LineIntegration& lines, std::span<const double> observed,
                      std::span<const double> predicted, std::span<double> residual, std::span<double> work);

// The background form: integrals over the window, not divided by its length; stations whose window does not fit become
// dummies, and where the window runs over the start of a line `firstComponent` becomes a dummy as well.
void integrateBackgroundAlongLines(const ObsSet& obs, LineIntegration& lines, std::span<double> values,
                                   std::span<double> firstComponent);

}  // namespace voxlith
