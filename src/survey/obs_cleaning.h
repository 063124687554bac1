// What is done to each value as it is read: limits, shift, standard deviation, normalisation.
#pragma once

#include <cstddef>

#include "survey/obs_set.h"

namespace voxlith {

// Observed datum of a component (from 0) and a record (from 0): obsData and obsStd hold what the file gave, and hold
// the normalised datum and its standard deviation afterwards. Counts in nMasked what the limits turn into dummies.
void cleanObserved(ObsSet& obs, const ObsCleaning& cleaning, std::size_t component, std::size_t record);

// The same for reference data, with the standard deviation of the observed datum. What is unusable becomes 0.
void cleanReference(ObsSet& obs, const ObsCleaning& cleaning, std::size_t component, std::size_t record);

}  // namespace voxlith
