// The inversion: background removal, starting state, and the iterations, mostly steps of the limited-memory optimiser
// with one preconditioned conjugate-gradient step and a marching line search in every tenth place.
#pragma once

#include "inversion/inversion_problem.h"

namespace voxlith {

// Leaves model and predData at their last values; delm and refData are changed. Writes the running files of every
// iteration.
void inversionLoop(InversionProblem& problem, const LoopSettings& settings);

}  // namespace voxlith
