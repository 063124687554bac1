// A Newton step at two products for each direction of the data that it learns. The data term is replaced by what the
// products so far have shown of it (run/convergence/data_subspace.h). The minimum of that objective within the bounds
// costs no product, and is never above the minimum of phi: it limits how far phi can fall. A forward product at the
// model found gives its phi, the best model on the line to it follows without products, and a transposed product of the
// residuals there adds a direction.
//
// Without bounds this is a Galerkin solution of the dual problem in its Krylov space, smoothed as by Schoenauer and
// Weiss; with the model norm as preconditioner, but nothing is lost when cells meet their bounds or the trade-off
// changes. The minima take many cycles of the preconditioner: it pays where products cost more than those, or little
// altogether.
//
//   W. Schoenauer and R. Weiss, Efficient vectorizable PDE solvers, J. Computational and Applied Mathematics 27, 1989.
//   Cells that the gradient brings to a bound: D. P. Bertsekas, see run/convergence/newton_step.h.
#pragma once

#include <cstddef>
#include <cstdint>

#include "inversion/inversion_problem.h"
#include "run/convergence/accuracy_rule.h"
#include "run/convergence/newton_work.h"

namespace voxlith {

// Most directions that a run keeps; 0 where steps of this kind do not pay, or phi is not quadratic.
std::size_t directionsWorthwhile(const InversionProblem& problem);

struct SubspaceResult {
    ScaledObjective reached;  // at the new model
    double remaining = 0;     // phi less its minimum, at most, as far as the minima without products are exact
    std::int32_t trials = 0;
    bool improved = false;
    bool stopped = false;  // by a signal: the model is any
};

// At most `mostRounds` directions from arrays.model, at which `current` holds and work.gradient is the gradient. Ends
// early when phi is as near its minimum as `accuracy` wants, or when the subspace is full.
SubspaceResult takeSubspaceStep(const InversionProblem& problem, NewtonWork& work, const ScaledObjective& current,
                                const AccuracyRule& accuracy, std::int32_t mostRounds);

}  // namespace voxlith
