// --check: everything is read, nothing is inverted, no file is written.
#pragma once

#include <string>

#include "driver/run_state.h"

namespace voxlith {

// After the inputs have been read: sizes, memory, and the time that the iterations of the control file will take, from
// one evaluation of objective and gradient. Changes predicted data and work arrays.
std::string describeRun(RunState& run);

}  // namespace voxlith
