// Product definitions that voxlith takes as they stand although their results are hardly what a user wants: rows
// divided by the standard deviations of other data, a product that several data types share, depth weights that differ.
#pragma once

#include <string>
#include <vector>

#include "driver/run_state.h"

namespace voxlith {

// After the survey has been read. `exactGradient` is true for converged inversions, whose gradient takes the residuals
// of all data types and each file's own depth weight. Returns a warning for each finding, mostly none.
std::vector<std::string> productWarnings(const RunState& run, bool exactGradient);

}  // namespace voxlith
