// The table that compares observed with predicted data record by record: "voxlith_error.dat".
#pragma once

#include "survey/obs_set.h"

namespace voxlith {

// Throws RunError when the file cannot be written.
void writeErrorTable(const ObsSet& obs);

}  // namespace voxlith
