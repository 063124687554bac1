// --check: everything is read, nothing is inverted, no file is written.
#pragma once

#include <string>

#include "driver/run_state.h"
#include "run/run_options.h"

namespace voxlith {

// After the inputs have been read: sizes, memory, and the time that the run will take: from one evaluation of objective
// and gradient for the iterations of the control file, or from a short step of a converged mode. Changes the model and
// work arrays. Throws RunError for settings that these inputs cannot have.
std::string describeRun(RunState& run, const RunOptions& options);

}  // namespace voxlith
