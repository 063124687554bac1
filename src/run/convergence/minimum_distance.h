// How far the objective can be above its minimum.
#pragma once

#include "inversion/inversion_problem.h"
#include "run/convergence/newton_work.h"

namespace voxlith {

// How far phi(arrays.model) can be above the minimum at most: for convex problems phi lies above its tangent plus the
// reference term's curvature, so that phi - minimum <= sum over cells of max(2 g (x - y) - mu wS (x - y)^2) over the
// bounds. Infinite where that has no limit. Uses work.gradient.
double largestPossibleDecrease(const InversionProblem& problem, const NewtonWork& work);

}  // namespace voxlith
