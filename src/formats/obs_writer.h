// Writes any data array of the ObsSet in the form in which observed data are read.
#pragma once

#include <span>
#include <string_view>

#include "survey/obs_set.h"

namespace voxlith {

// `dataArray` is shaped like obs.obsData and normalised like it. The file is replaced. Throws RunError when it cannot
// be written. Allocates nothing.
void writeObsFile(std::string_view fileName, const ObsSet& obs, std::span<const double> dataArray);

}  // namespace voxlith
