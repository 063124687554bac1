// Preconditioned conjugate gradients for the step of the inversion (Hestenes and Stiefel 1952; Nocedal and Wright,
// Numerical Optimization, algorithm 5.3).
#pragma once

#include <array>
#include <cstdint>
#include <span>

#include "inversion/gradient.h"
#include "inversion/objective_inputs.h"

namespace voxlith {

struct ConjugateGradientWork {
    // (k, i, j, model type) each
    std::span<double> cgRhs, cgResidual, cgDirection, cgPrecondResidual, cgProduct;
};

struct ConjugateGradientLimits {
    double cgTolerance = static_cast<double>(0.001F);
    std::int32_t cgMaxIterations = 20;
};

struct ConjugateGradientResult {
    std::int32_t iterations = 0;
    double relativeResidual = 0;  // not a number when the gradient is 0 throughout
};

// Solves H s = -g, g the gradient at `model` and H the approximate Hessian. `delm` comes in as the starting step and
// goes out as s. `precond` (k, i, j) serves all model types and is applied once. The stopping value sqrt(rz/bNorm) sets
// the preconditioned residual against the plain right-hand side; it is kept so, since the number of steps hangs on it.
// Writes one line on the screen. Nothing is guarded: a zero gradient runs to the limit with values that are no numbers.
ConjugateGradientResult conjugateGradient(const ObjectiveInputs& inputs, const Barrier& barrier,
                                          std::span<const double> model, std::span<double> delm,
                                          std::span<const float> precond, const ConjugateGradientLimits& limits,
                                          const GradientWork& gradientWork, const ConjugateGradientWork& work);

}  // namespace voxlith
