#include "inversion/step_search.h"

#include <cassert>
#include <cstddef>

namespace voxlith {

namespace {

// start + step delm in the free cells, within the bounds; `moved` may be `start` itself.
void moveModel(const InversionProblem& problem, std::span<const double> start, float step, std::span<const double> delm,
               std::span<double> moved) {
    for (std::size_t n = 0; n < moved.size(); ++n) {
        moved[n] = problem.bounds.fixedCell[n] == 0 ? start[n] + static_cast<double>(step) * delm[n] : start[n];
    }
    projectModel(problem.options.positivity, problem.bounds, moved);
}

}  // namespace

StepSearchResult stepSearch(const InversionProblem& problem, const Barrier& barrier, const ObjectiveTerms& termsAtModel,
                            std::span<const double> delm, float& stepStart, std::span<double> model) {
    constexpr std::int32_t stepsBeforeDoubling = 8;
    assert(model.size() == problem.modelSize() && delm.size() == model.size());
    const double multiplier = problem.options.multiplier;
    const std::span<double> trialModel = std::span(problem.arrays.trialModel).first(model.size());
    StepSearchResult result;
    double objective = reportedTotal(termsAtModel, multiplier);
    result.objectiveHistory[0] = objective;
    // Compatibility: trial steps are real32 and accumulate in it.
    float accepted = 0.0F;
    while (result.stepCount < mostAcceptedSteps) {
        const float trial = accepted + stepStart;
        moveModel(problem, model, trial, delm, trialModel);
        const double trialObjective = reportedTotal(calcObjective(problem, barrier, trialModel), multiplier);
        if (!(trialObjective < objective)) {
            break;
        }
        ++result.stepCount;
        objective = trialObjective;
        accepted = trial;
        const auto entry = static_cast<std::size_t>(result.stepCount);
        result.stepHistory[entry] = trial;
        result.objectiveHistory[entry] = trialObjective;
        if (result.stepCount % stepsBeforeDoubling == 0) {
            stepStart = 2.0F * stepStart;
        }
    }
    if (result.stepCount > 0) {
        moveModel(problem, model, accepted, delm, model);
    }
    return result;
}

}  // namespace voxlith
