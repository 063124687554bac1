// The head and the closing lines of voxlith.log.
#pragma once

#include <cstdint>

#include "base/messages.h"
#include "driver/calendar.h"
#include "driver/control_values.h"

namespace voxlith {

// Both take the lock of the run on the log (a second run in the folder is refused, RunError) and then remove the
// unfinished files of killed runs.

// Replaces an earlier log and writes the head.
void openLogForNewRun(Messages& messages, const DateTime& startedAt);

// Continues the log of an earlier run (a missing one is begun) and names the kind of continuation on the screen.
void openLogForContinuation(Messages& messages, const DateTime& startedAt, std::int32_t iRestart);

// Date of the end, processor and clock minutes since the start of the loop; closes the log.
void closeLog(Messages& messages, double cpuStart, double julianStart);

}  // namespace voxlith
