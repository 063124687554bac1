#include "inversion/step_search.h"

#include <cstddef>

namespace voxlith {

namespace {

// start + step delm in the free cells, within the bounds; `moved` may be `start` itself.
void moveModel(const ObjectiveInputs& inputs, const ModelBounds& bounds, std::span<const double> start, float step,
               std::span<const double> delm, std::span<double> moved) {
    for (std::size_t n = 0; n < moved.size(); ++n)
        moved[n] = bounds.fixedCell[n] == 0 ? start[n] + static_cast<double>(step) * delm[n] : start[n];
    projectModel(inputs.positivity, bounds, moved);
}

}  // namespace

StepSearchResult stepSearch(const ObjectiveInputs& inputs, const Barrier& barrier, const ModelBounds& bounds,
                            const ObjectiveTerms& termsAtModel, std::span<const double> delm, float& stepStart,
                            std::span<double> trialModel, std::span<double> model) {
    constexpr std::int32_t stepsBeforeDoubling = 8;
    StepSearchResult result;
    double objective = lineSearchObjective(termsAtModel, inputs.multiplier);
    result.objectiveHistory[0] = objective;
    float accepted = 0.0F;
    while (result.stepCount < mostAcceptedSteps) {
        const float trial = accepted + stepStart;
        moveModel(inputs, bounds, model, trial, delm, trialModel);
        const double trialObjective =
            lineSearchObjective(calcObjective(inputs, barrier, trialModel), inputs.multiplier);
        if (!(trialObjective < objective))
            break;
        ++result.stepCount;
        objective = trialObjective;
        accepted = trial;
        const auto entry = static_cast<std::size_t>(result.stepCount);
        result.stepHistory[entry] = trial;
        result.objectiveHistory[entry] = trialObjective;
        if (result.stepCount % stepsBeforeDoubling == 0)
            stepStart = 2.0F * stepStart;
    }
    if (result.stepCount > 0)
        moveModel(inputs, bounds, model, accepted, delm, model);
    return result;
}

}  // namespace voxlith
