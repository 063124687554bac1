// The gradient of the objective and, by the same routine, the product of its approximate Hessian with a direction:
//
//   g   = G' W_d r / N + mu (compatible gradient of phi_m) + barrier part, r = W_d (G m - d)
//   H p = G' W_d^2 G p / N + mu (compatible product with p) + barrier part
//
// Symbols as in objective.h; the compatible form of the norm's derivative is in regularisation.h. There is no factor 2:
// without barrier g is half the derivative where widths and depth weights are 1.
#pragma once

#include <span>

#include "inversion/barrier.h"
#include "inversion/inversion_problem.h"

namespace voxlith {

// out (k, i, j, model type; not the array of `vector`) becomes g or H p; fixed cells get 0, the barrier part apart.
//
// In gradient mode this starts from obs.predData and the product rows as calcObjective left them at the same model:
// call it directly after that. In the other mode the forward product runs here, on `vector`. Overwrites obs.obsWork1,
// the product rows, arrays.adjointSum and arrays.trialModel. Allocates nothing.
void calcGradient(GradientMode mode, const InversionProblem& problem, const Barrier& barrier,
                  std::span<const double> vector, std::span<double> out);

}  // namespace voxlith
