// Reads observed data files and reference data files into the ObsSet and cleans what it reads.
#pragma once

#include <cstdint>
#include <string>

#include "base/messages.h"
#include "survey/obs_set.h"

namespace voxlith {

// readMode 1: observed data into obsData, obsStd and the line tables. 2: reference data into refData (coordinates are
// overwritten, obsStd and hasStd are used as mode 1 left them). 0: the header alone.
// Returns the count that stands in the file's header. Arrays are allocated by the caller; nData is not changed.
// Ends the run with its own texts through fatalStop; text in the header is a RunError.
std::int32_t readObsFile(Messages& messages, int readMode, const std::string& fileName, ObsSet& obs,
                         const ObsCleaning& cleaning);

}  // namespace voxlith
