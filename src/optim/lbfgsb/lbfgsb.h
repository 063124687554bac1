// L-BFGS-B in reverse communication: limited-memory quasi-Newton minimisation of f(x) with simple bounds.
// R. H. Byrd, P. Lu, J. Nocedal and C. Zhu, A limited memory algorithm for bound constrained optimization, SIAM J. Sci.
// Comput. 16, 1995; C. Zhu, R. H. Byrd, P. Lu and J. Nocedal, Algorithm 778: L-BFGS-B, ACM TOMS 23, 1997. The subspace
// step is the direct primal one with plain truncation.
//
// Differences from the paper, for this program's problems: bound codes 2 and 3 are upper and both; variables with a
// flag keep their value, even outside their bounds; the first step can be limited for each variable. A trial whose
// value or slope is not finite counts as a failed search, so that x stays finite.
#pragma once

#include <cstdint>
#include <span>

#include "optim/lbfgsb/bounds.h"
#include "optim/lbfgsb/lbfgsb_state.h"
#include "optim/task_word.h"

namespace voxlith {

// One call of the engine; arguments and task words as described for optimiserStep. Besides those, "STOP" ends a run:
// the word stays, and with "STOP: CPU" x, f and g become those of the last iterate. Any other word requests an
// evaluation at x with "FG_START" and keeps the memory, so that a stopped run can be continued; after a refused "START"
// it repeats the error. Bounds, codes and flags must stay those of the last "START". Throws std::invalid_argument if
// `task` is not "START" and n or m are not those of the last "START", or if an array is too short. Allocates nothing;
// costs O(m n).
void lbfgsbStep(const BoxProblem& problem, std::span<double> x, double& f, std::span<double> g, double factr,
                double pgtol, std::span<double> wa, std::span<std::int32_t> iwa, TaskWord& task,
                const LbfgsbSavedArrays& saved);

}  // namespace voxlith
