// The control file, voxlith.inp by default: lines 1 to 12 in strict order, then product definitions.
#pragma once

#include "base/messages.h"
#include "driver/calendar.h"
#include "driver/control_values.h"

namespace voxlith {

// Reads control.controlFileName, opens the log while line 1 is read, echoes everything to the log and makes every check
// of the inputs. Checks that fail end the run with their own messages; a required number that cannot be read is a
// RunError.
void readControlFile(Messages& messages, const DateTime& startedAt, ControlValues& control);

}  // namespace voxlith
