// Minimises the objective of the iteration table exactly, within the bounds, by projected Newton steps:
//
//   minimise  phi(x) = phi_d(x) + mu phi_m(x)   subject to   l <= x <= u, fixed cells unchanged
//
//   g = half the gradient of phi:  J' r / N + mu R (x - reference),   r = scaled residuals
//   H = half the Hessian (Gauss-Newton for amplitude data):  J'J / N + mu R
//
// A step leaves out the cells at a bound that the gradient pushes outwards (Bertsekas 1982), solves H s = -g for the
// others by preconditioned conjugate gradients, and searches along the projection of x + t s (Lin and More 1999; More
// and Toraldo 1991). Except for amplitude data the problem is convex, and any point where no step improves is the
// minimum. Where the projection leaves next to nothing of a step, as with small standard deviations, cells that
// alternate between free and held would make progress slow: a primal-dual interior-point method then finds the minimum
// within the bounds (Wright 1997; with the same conjugate gradients), except for amplitude data and coupled properties.
// Bounds are kept exactly, so positivity needs no barrier.
//
//   D. P. Bertsekas, Projected Newton methods for optimization problems with simple constraints, SIAM J. Control and
//   Optimization 20, 1982. J. J. More and G. Toraldo, On the solution of large quadratic programming problems with
//   bound constraints, SIAM J. Optimization 1, 1991. C.-J. Lin and J. J. More, Newton's method for large
//   bound-constrained optimization problems, SIAM J. Optimization 9, 1999. S. J. Wright, Primal-dual interior-point
//   methods, SIAM 1997.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "inversion/inversion_problem.h"
#include "inversion/objective.h"
#include "run/convergence/cross_gradient.h"
#include "run/convergence/data_operator.h"
#include "run/convergence/multigrid.h"

namespace voxlith {

// Work arrays; nothing in them lasts from one step to the next except `dataDiagonal` and `normDiagonal`, which
// prepareNewton computes.
struct NewtonWork {
    DataOperator data;
    CrossGradient cross;  // beta phi_x in phi, g and H, see run/convergence/cross_gradient.h; none by default
    std::vector<double> lower, upper;                // bounds by cell, infinite where there are none
    std::vector<double> dataDiagonal, normDiagonal;  // estimates of diag(J'J)/N, diag(R)
    std::vector<double> gradient, step, residual, direction, preconditioned, product, scaled, trial;
    std::vector<double> dataVector;  // nData by component
    std::vector<double> blockSums;   // of inner products
    std::vector<std::uint8_t> isFree;
    std::vector<Multigrid> grids;  // by model type
};

struct NewtonLimits {
    double solveTolerance = 0.1;  // of the conjugate gradients, in the norm of the preconditioner
    std::int32_t mostSolveSteps = 60;
    double accuracy = 1.0e-6;  // promised decrease over the objective that ends the run
};

struct NewtonResult {
    ObjectiveTerms terms;          // at the new model
    double misfit = 0;             // phi_d with the component scales, which terms.misfit does not have
    double objective = 0;          // phi with `misfit`
    double cross = 0;              // beta phi_x
    double predictedDecrease = 0;  // of phi, by the solved step without its projection
    double gradientNorm = 0;       // of the projected gradient at the model before the step, in the preconditioned norm
    std::int32_t solveSteps = 0;
    std::int32_t trials = 0;
    bool improved = false;  // false: the model is unchanged, no step lowers phi in rounding
};

// Sizes all arrays and computes bounds and diagonals. Brings arrays.model within its bounds; no-data values become 0.
// Throws RunError, see makeDataOperator.
NewtonWork prepareNewton(const InversionProblem& problem);

// phi at `model`, with obs.predData and the derivative of the data taken there.
struct ScaledObjective {
    ObjectiveTerms terms;
    double misfit = 0, objective = 0;
    double cross = 0;  // beta phi_x
};
ScaledObjective evaluateObjective(const InversionProblem& problem, NewtonWork& work, std::span<const double> model);

// work.gradient = g at `model`, directly after evaluateObjective there.
void evaluateGradient(const InversionProblem& problem, NewtonWork& work, std::span<const double> model);

// One step from arrays.model, at which `current` holds. obs.predData and the product rows belong to arrays.model before
// and after.
NewtonResult takeNewtonStep(const InversionProblem& problem, NewtonWork& work, const ScaledObjective& current,
                            const NewtonLimits& limits);

// How far phi(arrays.model) can be above the minimum at most: for convex problems phi lies above its tangent plus the
// reference term's curvature, so that phi - minimum <= sum over cells of max(2 g (x - y) - mu wS (x - y)^2) over the
// bounds. Infinite where that has no limit. Uses work.gradient.
double largestPossibleDecrease(const InversionProblem& problem, const NewtonWork& work);

// a'b, summed in blocks of fixed length.
double blockedProduct(std::span<const double> a, std::span<const double> b, std::span<double> blockSums);

}  // namespace voxlith
