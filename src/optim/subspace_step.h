// The subspace minimisation of L-BFGS-B: from the Cauchy point to the minimiser of the quadratic model over the
// variables that are free there, cut back along the way into the box (Byrd et al. 1995, section 5.1, direct primal
// method).
#pragma once

#include <cstdint>
#include <span>

#include "optim/bounds.h"
#include "optim/correction_memory.h"

namespace voxlith {

// r := -Z'(g + B(point - x)), the negated gradient of the model at the Cauchy point; 0 where a variable is held.
// `c` is W'(point - x), `products` scratch for 2 count elements. In a problem that is not `constrained` the point is x
// itself and r is -g.
void reducedGradient(const CorrectionMemory& memory, bool constrained, std::span<const double> x,
                     std::span<const double> g, std::span<const double> point, std::span<const std::int32_t> status,
                     std::span<const double> c, std::span<double> products, std::span<double> r);

// Moves `point` from the Cauchy point to the minimiser over the free variables, or as far as the box allows: the whole
// step is shortened by one factor. r comes in as reducedGradient left it and is overwritten by the full step. `factor`
// holds the factors of the subspace matrix. True if the step was shortened.
bool subspaceStep(const BoxProblem& problem, const CorrectionMemory& memory, SmallMatrix factor,
                  std::span<const std::int32_t> status, std::span<double> products, std::span<double> r,
                  std::span<double> point);

}  // namespace voxlith
