// The two files that document a background removal: data and the response of the surface layer, and data and their fit.
// In both, obs.predData holds the responses. Throws RunError when a file cannot be written.
#pragma once

#include "survey/obs_set.h"

namespace voxlith {

// "obs_surafce_calc.dat": station, coordinates, then datum and response of each component.
void writeSurfaceResponse(const ObsSet& obs);

// The same with line name and time. A row ends after the first datum when that or its response is missing.
void writeSurfaceResponseAlongLines(const ObsSet& obs);

// "obs_fit_pred.dat": datum, reference datum and their difference of each component.
void writeBackgroundFit(const ObsSet& obs);

}  // namespace voxlith
