// What is done to data, bounds and models between reading them and the inversion.
#pragma once

#include "driver/run_state.h"

namespace voxlith {

// Clears refData, copies obsData to predData, and applies the data offset of the control file: a number, a list of
// numbers, or a reference data file, whose residual then stands in predData and in "voxlith_residual.obs".
void applyDataOffset(RunState& run);

// Count, minimum and maximum of predData, by component, on the screen and in the log.
void reportStatistics(RunState& run);

// Surface styles: fixes all cells below the layers that the sensitivities cover, and counts them.
void fixUncoveredLayers(RunState& run);

// Decides whether the inversion variable holds the depth weight; where it does, multiplies models and bounds by it.
// Then fixes the layers from clipLayer down in the standard style.
void foldDepthWeights(RunState& run);

}  // namespace voxlith
