// The line search after a conjugate-gradient step: a march along the step while the objective falls.
#pragma once

#include <array>
#include <cstdint>
#include <span>

#include "inversion/barrier.h"
#include "inversion/objective.h"

namespace voxlith {

constexpr std::int32_t mostAcceptedSteps = 20;

struct StepSearchResult {
    std::int32_t stepCount = 0;  // accepted trials
    // The start and the accepted steps with their objectives: stepCount + 1 entries count.
    std::array<float, mostAcceptedSteps + 1> stepHistory{};
    std::array<double, mostAcceptedSteps + 1> objectiveHistory{};
};

// Tries `model` + t `delm` (k, i, j, model type), projected into the bounds, for t growing by `stepStart`, which is
// doubled in place at every eighth accepted trial, as long as the objective falls and at most 20 times. Then moves the
// free cells of `model` by the last accepted t, within the bounds. `termsAtModel` are the terms to improve on.
// Overwrites arrays.trialModel and what calcObjective overwrites. Without an accepted trial `model` does not change; a
// trial whose objective is not a number is no improvement.
StepSearchResult stepSearch(const InversionProblem& problem, const Barrier& barrier, const ObjectiveTerms& termsAtModel,
                            std::span<const double> delm, float& stepStart, std::span<double> model);

}  // namespace voxlith
