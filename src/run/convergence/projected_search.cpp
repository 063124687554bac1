#include "run/convergence/projected_search.h"

#include <algorithm>

namespace voxlith {

namespace {

// work.trial = projection of the model plus `length` times the step; returns g'(trial - model).
double projectTrial(const InversionProblem& problem, NewtonWork& work, double length) {
    const std::span<const double> model = modelOf(problem);
    for (std::size_t n = 0; n < model.size(); ++n) {
        const double moved = std::min(std::max(model[n] + length * work.step[n], work.lower[n]), work.upper[n]);
        work.trial[n] = work.isFree[n] != 0 ? moved : model[n];
        work.product[n] = work.trial[n] - model[n];
    }
    return blockedProduct(work.gradient, work.product, work.blockSums);
}

}  // namespace

ProjectedSearch searchAlongProjection(const InversionProblem& problem, NewtonWork& work, const ScaledObjective& current,
                                      std::int32_t mostTrials) {
    constexpr double requiredShare = 1.0e-4;
    ProjectedSearch search;
    double length = 1.0;
    for (std::int32_t n = 0; n < mostTrials; ++n) {
        const double slope = projectTrial(problem, work, length);
        length *= 0.5;
        if (!(slope < 0.0)) {
            continue;
        }
        ++search.trials;
        const ScaledObjective found = evaluateObjective(problem, work, work.trial);
        if (found.objective <= current.objective + requiredShare * 2.0 * slope) {
            std::copy(work.trial.begin(), work.trial.end(), modelOf(problem).begin());
            search.found = found;
            break;
        }
    }
    return search;
}

}  // namespace voxlith
