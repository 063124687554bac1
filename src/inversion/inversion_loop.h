// The inversion: background removal, starting state, and the iterations. Most are steps of the limited-memory
// optimiser; every tenth is one preconditioned conjugate-gradient step with a marching line search.
#pragma once

#include "base/line_file.h"
#include "base/messages.h"
#include "inversion/inversion_problem.h"

namespace voxlith {

// Leaves arrays.model and obs.predData at their last values; changes arrays.delm and obs.refData. Writes the running
// files of every iteration, and rows to `progressTable` (voxlith.aux, open). Ends after options.maxIterations, counted
// from the beginning of the first run, and after one iteration at least.
void inversionLoop(const InversionProblem& problem, Messages& messages, LineFile& progressTable);

}  // namespace voxlith
