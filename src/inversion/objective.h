// The objective of the inversion: data misfit, model norm and barrier. The terms are returned one by one; their
// sums are formed in two ways.
#pragma once

#include <span>

#include "inversion/barrier.h"
#include "inversion/inversion_problem.h"

namespace voxlith {

struct ObjectiveTerms {
    double misfit = 0;
    double refNorm = 0;
    double barrierNorm = 0;
    double smoothNorm = 0;
    double smoothY = 0;
    double smoothX = 0;
    double smoothZ = 0;
};

// All terms at `model` (k, i, j, model type). Overwrites obs.predData and the product rows of the sensitivity record.
// Whatever the model type, the depth weight is that of the first sensitivity file. Allocates nothing.
ObjectiveTerms calcObjective(const InversionProblem& problem, const Barrier& barrier, std::span<const double> model);

// What the optimiser minimises. The barrier term holds beta already, which thus enters squared.
double optimiserObjective(const ObjectiveTerms& terms, const Barrier& barrier, double multiplier);

// What the step search compares, and what logs and tables show.
double reportedTotal(const ObjectiveTerms& terms, double multiplier);

}  // namespace voxlith
