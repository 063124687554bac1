// The step of a conjugate-gradient iteration: H s = -g, solved by preconditioned conjugate gradients, with g the
// gradient at the model and H the approximate Hessian.
#pragma once

#include <cstdint>
#include <span>

#include "inversion/barrier.h"
#include "inversion/inversion_problem.h"

namespace voxlith {

struct ConjugateGradientLimits {
    double cgTolerance = static_cast<double>(0.001F);
    std::int32_t cgMaxIterations = 20;
};

struct ConjugateGradientResult {
    std::int32_t iterations = 0;
    double relativeResidual = 0;  // sqrt(rz/bNorm); not a number when the gradient is 0 throughout
};

// `step` (k, i, j, model type) comes in as the starting step and goes out as s. The preconditioner is arrays.precond,
// for all model types. Overwrites what calcGradient overwrites and the conjugate-gradient arrays; writes one line on
// the screen. A zero gradient runs to the limit with values that are no numbers.
ConjugateGradientResult conjugateGradientStep(const InversionProblem& problem, const Barrier& barrier,
                                              std::span<const double> model, const ConjugateGradientLimits& limits,
                                              std::span<double> step);

}  // namespace voxlith
