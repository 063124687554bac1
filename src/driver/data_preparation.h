// What is done to data, bounds and models between reading them and the inversion.
#pragma once

#include "driver/run_state.h"

namespace voxlith {

// Clears refData, copies obsData to predData, and applies the data offset of the control file: a number, a list of
// numbers, or a reference data file, whose residual then stands in predData and in "voxlith_residual.obs".
void applyDataOffset(RunState& run);

// Count, minimum, maximum and "average" of predData on the screen and in the log.
void reportStatistics(RunState& run);

// Styles 1 to 3: holds all cells below the layers that the sensitivities cover, and counts them.
void fixUncoveredLayers(RunState& run);

// Decides whether the inversion variable holds the depth weight; where it does, multiplies models and bounds by it.
// Then holds the layers from clipLayer down in style 0.
void foldDepthWeights(RunState& run);

}  // namespace voxlith
