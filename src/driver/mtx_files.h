// The pass over the sensitivity files of a run: headers, rows and tails in order, with the arrays of the run allocated
// on the way, and the rows placed in memory or left on disk.
#pragma once

#include "driver/run_state.h"

namespace voxlith {

void readMtxFiles(RunState& run);

// The data types of the components, the defaults that depend on the first of them, and the echo of the field values.
void setDataTypes(RunState& run);

}  // namespace voxlith
