// The minimum within the bounds of the objective whose data term is what the products so far have shown of it, see
// run/convergence/data_subspace.h: by projected Newton steps that take no products.
#pragma once

#include "inversion/inversion_problem.h"
#include "run/convergence/newton_work.h"

namespace voxlith {

struct KnownMinimum {
    double decrease = 0;   // of that objective, from arrays.model to work.trial
    double remaining = 0;  // estimate of what it can fall from there
    bool stopped = false;  // by a signal
};

// work.trial = the minimiser, work.gradient = the gradient there of that objective, from the one at arrays.model.
KnownMinimum findKnownMinimum(const InversionProblem& problem, NewtonWork& work);

}  // namespace voxlith
