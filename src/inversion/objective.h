// The objective of the inversion (Li and Oldenburg 1996, 1998; the list of literature is in docs/architecture.md):
//
//   phi   = phi_d + mu phi_m + barrier
//   phi_d = |W_d (G m - d)|^2 / N
//   phi_m = reference term + differences along y, x and z, see regularisation.h
//
// Symbols:
//
//   m    model, g/cm3 or SI
//
//   x    inversion variable: W m with the depth weight W where foldDepthWeight is set, else m
//
//   G    sensitivities, data units per model unit, see sensitivity/products.h
//
//   d    observed data less the reference data, mGal, Eotvos or nT
//
//   W_d  diag(1/standard deviation). Data, predictions and rows of G are kept divided by the standard deviations:
//        phi_d has no unit, and its root is the RMS misfit of logs and tables
//
//   N    number of stations
//
//   mu   trade-off, options.multiplier
//
// Data, models and all sums are real64. Rows of G, standard deviations, depth weights and the weights of the norm are
// real32: files hold no more digits, and rows and weights take most of the memory.
//
// The terms are returned one by one; their sums are formed in two ways.
#pragma once

#include <span>

#include "inversion/barrier.h"
#include "inversion/inversion_problem.h"

namespace voxlith {

struct ObjectiveTerms {
    double misfit = 0;       // phi_d
    double refNorm = 0;      // reference term
    double barrierNorm = 0;  // see barrier.h
    double smoothNorm = 0;   // sum of the three that follow
    double smoothY = 0;
    double smoothX = 0;
    double smoothZ = 0;
};

// All terms at `model` (k, i, j, model type). Overwrites obs.predData and the product rows of the sensitivity record:
// the gradient at the same model starts from them. Allocates nothing.
ObjectiveTerms calcObjective(const InversionProblem& problem, const Barrier& barrier, std::span<const double> model);

// What the optimiser minimises.
double optimiserObjective(const ObjectiveTerms& terms, const Barrier& barrier, double multiplier);

// What the step search compares, and what logs and tables show.
double reportedTotal(const ObjectiveTerms& terms, double multiplier);

}  // namespace voxlith
