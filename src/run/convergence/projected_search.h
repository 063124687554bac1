// The step search along the projection of x + t s onto the bounds (Lin and More 1999; More and Toraldo 1991, see
// run/convergence/newton_step.h).
#pragma once

#include <cstdint>
#include <optional>

#include "inversion/inversion_problem.h"
#include "run/convergence/newton_work.h"

namespace voxlith {

struct ProjectedSearch {
    std::optional<ScaledObjective> found;  // at the new model; empty: the model is unchanged
    std::int32_t trials = 0;
};

// Halves t from 1, at most `mostTrials` times, until phi falls from that of `current` by a share of what its slope
// promises. Takes work.step, work.gradient and work.isFree at arrays.model, and changes arrays.model when it succeeds.
// obs.predData belongs to the last trial.
ProjectedSearch searchAlongProjection(const InversionProblem& problem, NewtonWork& work, const ScaledObjective& current,
                                      std::int32_t mostTrials);

}  // namespace voxlith
