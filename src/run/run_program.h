// One run of voxlith-run: the steps of voxlith with an exit status that tells how the run ended.
#pragma once

#include "run/run_options.h"

namespace voxlith {

enum class RunStatus : int {
    completed = 0,
    stopped = 1,   // by a message of the run
    unusable = 2,  // wrong use, or a file that cannot be used
    // 128 + signal: by a signal, after a complete iteration
};

RunStatus runProgram(const RunOptions& options);

}  // namespace voxlith
