// How far the objective can be above its minimum.
//
// For convex problems phi lies above its quadratic model with the Hessian of the model norm alone, as that of the data
// is positive. For a change d of the model within the bounds,
//
//   phi(x + d) >= phi(x) + 2 g'd + d'A d,   A = mu R
//
// Each cell goes to one of two sets: B, where the bounds limit what 2 g d can gain, and Q, the others. So
//
//   phi(x) - minimum <= sum over B of 2 |g| (distance from the bound) + gQ' A^-1 gQ
//
// Conjugate gradients give v with A v = gQ - r, and gQ' A^-1 gQ = v'(gQ + r) + r' A^-1 r. A is at least its reference
// term, a diagonal, which bounds the rest. No product with the sensitivities is needed.
#pragma once

#include "inversion/inversion_problem.h"
#include "run/convergence/newton_work.h"

namespace voxlith {

// The bound, in units of phi; infinite where there is none, as without a reference term for cells without bounds. Takes
// work.gradient at arrays.model; changes work.isFree and work arrays, not the gradient.
double largestPossibleDecrease(const InversionProblem& problem, NewtonWork& work);

}  // namespace voxlith
