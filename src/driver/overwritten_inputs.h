// Refuses inputs that the run itself would overwrite: data under the name of the predicted data, a control file under
// the name of the log. Files are compared by device and inode, so links count. Initial and reference models may have
// names of outputs: continued runs use them so.
#pragma once

#include <string>
#include <string_view>

#include "base/text_input.h"
#include "driver/run_state.h"

namespace voxlith {

// Before the log is opened, that is before anything is written: the control file and the data, sensitivity, weighting,
// bounds and offset files that it names, against the outputs that every run has; control, data and sensitivity files
// also against the names of models. `input` is the control file at its beginning, where it is again afterwards. Lines
// that cannot be read are left to the reader of the control file. Throws RunError.
void refuseOverwrittenInputs(TextInput& input, const std::string& controlFileName);

// When data types and inversion style are known: all these files against the models and tables of this very run.
void refuseOverwrittenModels(const RunState& run);

// Before an output that only some runs have: all these files against it.
void refuseOverwrittenBy(const ControlValues& control, std::string_view output);

}  // namespace voxlith
