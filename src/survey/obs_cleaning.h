// Cleaning of each value as it is read: limits, shift, standard deviation, normalisation.
#pragma once

#include <cstddef>

#include "survey/obs_set.h"

namespace voxlith {

// Observed datum of a component (from 0) and a record (from 0): obsData and obsStd hold the values of the file before,
// the normalised datum and its standard deviation after. Counts in nMasked the data that the limits turn into dummies.
void cleanObserved(ObsSet& obs, const ObsCleaning& cleaning, std::size_t component, std::size_t record);

// The same for reference data, with the standard deviation of the observed datum. Unusable data become 0.
void cleanReference(ObsSet& obs, const ObsCleaning& cleaning, std::size_t component, std::size_t record);

}  // namespace voxlith
