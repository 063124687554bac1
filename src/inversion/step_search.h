// The marching line search behind a conjugate-gradient step.
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

// Marches along `delm` in steps of `stepStart`, doubled (in place) at every eighth accepted trial, as long as the
// objective falls, at most 20 steps; then moves the free cells of `model` by the last accepted step and brings it
// within the bounds. Steps are real32 and accumulate in it. `termsAtModel` are the objective's terms to improve on.
// Overwrites arrays.trialModel. Without an accepted trial `model` stays as it is. A trial whose objective is not a
// number is no improvement.
StepSearchResult stepSearch(const InversionProblem& problem, const Barrier& barrier, const ObjectiveTerms& termsAtModel,
                            std::span<const double> delm, float& stepStart, std::span<double> model);

}  // namespace voxlith
