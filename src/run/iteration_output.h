// What voxlith-run does between two iterations: progress line, JSON log, checkpoint. It also says whether to go on.
#pragma once

#include <string_view>
#include <vector>

#include "inversion/inversion_loop.h"
#include "run/json_log.h"
#include "run/loop_checkpoint.h"
#include "run/progress_line.h"
#include "run/run_options.h"

namespace voxlith {

struct IterationOutput {
    ProgressLine progress;
    JsonLog json;
    InputChecksums inputs;
    double checkpointAt = 0;       // clock reading at the end of the last checkpoint, seconds
    double checkpointSeconds = 0;  // that it took
    int signal = 0;                // that one of the ranks was sent; 0 for none
};

// Before the first iteration of the loop, whose problem is complete. Opens the JSON log. Throws RunError.
void beginOutput(IterationOutput& output, const RunOptions& options, const InversionProblem& problem, bool continues);

// After beginInversion, or after the state has been restored: reports the starting state, writes the first checkpoint.
void reportStart(IterationOutput& output, InversionLoop& loop, const std::vector<StateBlock>& more = {});

// Before finishIteration, which writes to the screen: makes the progress line blank.
void beforeReport(IterationOutput& output);

// After an iteration whose state is complete. `step` names its kind in the JSON log; `more` are the blocks of another
// kind of step. Writes a checkpoint when that takes no more than a small share of the run, and before a stop. False
// when a signal asks for the stop. All ranks call it; the first one writes.
bool betweenIterations(IterationOutput& output, InversionLoop& loop, std::string_view step,
                       const std::vector<StateBlock>& more = {});

// For an iteration that a signal has stopped and whose step left no trace: writes the checkpoint with the state of the
// loop `before` it. All ranks call it; the first one writes.
void stopWithinIteration(IterationOutput& output, InversionLoop& loop, const LoopState& before,
                         const std::vector<StateBlock>& more);

}  // namespace voxlith
