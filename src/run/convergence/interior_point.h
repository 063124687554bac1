// The minimum of the quadratic model of phi within the bounds, by a primal-dual interior-point method (Wright 1997, see
// run/convergence/newton_step.h):
//
//   minimise  2 g's + s'H s   subject to   l <= x + s <= u
//   H s - y + z = -g,   y (x + s - l) = t,   z (u - x - s) = t,   y, z > 0,   t towards 0
//
// y and z are the multipliers of the bounds. Each step eliminates them, which leaves a system with H and a positive
// diagonal for the conjugate gradients of run/convergence/newton_solve.h.
#pragma once

#include "inversion/inversion_problem.h"
#include "run/convergence/newton_work.h"

namespace voxlith {

struct InteriorSolution {
    double remaining = 0;  // how far phi at the solution can be above the minimum, the last linear system included
    bool stopped = false;  // by a signal, see run/stop_signal.h: there is no step
};

// True when a cell of work.isFree has a finite bound.
bool hasBounds(const NewtonWork& work);

// work.step = from arrays.model to the minimum, to `accuracy` of phi, with cells at the bounds that hold them; all
// cells that the data or the norm determine become free. work.gradient is that at arrays.model before and not
// afterwards; `objective` is phi there.
InteriorSolution solveWithinBounds(const InversionProblem& problem, NewtonWork& work, double objective,
                                   double accuracy);

}  // namespace voxlith
