// Minimises the objective of the iteration table exactly, within the bounds, by projected Newton steps:
//
//   minimise  phi(x)   subject to   l <= x <= u, fixed cells unchanged          phi: run/convergence/newton_work.h
//
// A step leaves out the cells at a bound that the gradient pushes outwards (Bertsekas 1982), solves H s = -g for the
// others by preconditioned conjugate gradients, and searches along the projection of x + t s (Lin and More 1999; More
// and Toraldo 1991). Except for amplitude data the problem is convex, and any point where no step improves is the
// minimum. Where the projection leaves next to nothing of a step, as with small standard deviations, cells that
// alternate between free and held would make progress slow: a primal-dual interior-point method then finds the minimum
// within the bounds (Wright 1997; with the same conjugate gradients), except for amplitude data and coupled properties.
// How far phi is above its minimum is estimated by the gradient after the step, in the norm of the preconditioner,
// times the largest inverse curvature of the last conjugate gradients. Bounds are kept exactly, so positivity needs no
// barrier. While work.subspace is not full, the step is that of run/convergence/subspace_step.h, with its own limit.
//
//   D. P. Bertsekas, Projected Newton methods for optimization problems with simple constraints, SIAM J. Control and
//   Optimization 20, 1982. J. J. More and G. Toraldo, On the solution of large quadratic programming problems with
//   bound constraints, SIAM J. Optimization 1, 1991. C.-J. Lin and J. J. More, Newton's method for large
//   bound-constrained optimization problems, SIAM J. Optimization 9, 1999. S. J. Wright, Primal-dual interior-point
//   methods, SIAM 1997.
#pragma once

#include <cstdint>
#include <limits>

#include "inversion/inversion_problem.h"
#include "run/convergence/newton_solve.h"
#include "run/convergence/newton_work.h"

namespace voxlith {

struct NewtonLimits {
    SolveLimits solve;
    AccuracyRule accuracy{};       // that ends the run
    std::int32_t mostRounds = 12;  // of a step in the directions of the data, see run/convergence/subspace_step.h
};

struct NewtonResult {
    ScaledObjective reached;                                     // at the new model
    double predictedDecrease = 0;                                // of phi, by the solved step without its projection
    double inverseCurvature = 1;                                 // of the solved system, see SolveResult
    double remaining = std::numeric_limits<double>::infinity();  // estimate of phi less its minimum after the step
    // Of the projected gradient before and after the step, in the norm of the preconditioner.
    double gradientNorm = 0, gradientNormAfter = 0;
    std::int32_t trials = 0;
    bool improved = false;  // false: the model is unchanged, no step lowers phi in rounding
    bool stopped = false;   // by a signal, see run/stop_signal.h: the model is that before the step
};

// One step from arrays.model, at which `current` holds. obs.predData and the product rows belong to arrays.model before
// and after.
NewtonResult takeNewtonStep(const InversionProblem& problem, NewtonWork& work, const ScaledObjective& current,
                            const NewtonLimits& limits);

}  // namespace voxlith
