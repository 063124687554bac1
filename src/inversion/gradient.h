// The gradient of the objective and, by the same routine, the product of its approximate Hessian with a direction.
#pragma once

#include <span>

#include "inversion/barrier.h"
#include "inversion/inversion_problem.h"

namespace voxlith {

// out (k, i, j, model type; not the array of `vector`) becomes half the derivative of the data and reference terms,
// plus the differences of model_terms.h and the barrier part; fixed cells get 0, the barrier part apart.
//
// In gradient mode this relies on obs.predData and the product rows as calcObjective left them at the same model, and
// must be called directly behind it. In the other mode the forward product runs here, on `vector`, and the reference
// data enter as in any forward run. Overwrites obs.obsWork1, the product rows and the work arrays. Allocates nothing.
void calcGradient(GradientMode mode, const InversionProblem& problem, const Barrier& barrier,
                  std::span<const double> vector, std::span<double> out);

}  // namespace voxlith
