#include "run/convergence/subspace_step.h"

#include <algorithm>
#include <cmath>
#include <span>
#include <vector>

#include "run/convergence/known_minimum.h"
#include "run/convergence/newton_solve.h"
#include "run/stop_signal.h"

namespace voxlith {

namespace {

// Moves model and residuals by `share` of the way to work.trial and `found`, their residuals, on which phi is the
// parabola through both ends with the slope 2 `slope` at the model.
void moveTowards(const InversionProblem& problem, const NewtonWork& work, std::span<const double> found, double share,
                 std::span<double> residual, SubspaceResult& result) {
    const std::span<double> model = modelOf(problem);
    for (std::size_t n = 0; n < model.size(); ++n) {
        // Between two models within the bounds rounding can lead beyond them, and a continued run starts within.
        const double between = model[n] + share * work.direction[n];
        model[n] = share < 1.0 ? std::min(std::max(between, work.lower[n]), work.upper[n]) : work.trial[n];
    }
    double squares = 0.0;
    for (std::size_t n = 0; n < residual.size(); ++n) {
        residual[n] += share * (found[n] - residual[n]);
        squares += residual[n] * residual[n];
    }
    result.reached.misfit = squares / problem.obs.nData;
    result.improved = true;
}

}  // namespace

std::size_t directionsWorthwhile(const InversionProblem& problem) {
    // By experiment: a minimum without products takes time as products with some hundred coefficients for each cell.
    constexpr std::int64_t denseRows = 400, fewCells = 60000;
    constexpr std::size_t mostInMemory = 100, mostOnDisk = 40;
    const auto& amplitudes = problem.products.isAmplitude;
    if (std::find(amplitudes.begin(), amplitudes.end(), true) != amplitudes.end()) {
        return 0;
    }
    std::int64_t coefficients = 0;
    for (const Product& product : problem.products.products) {
        coefficients += problem.sensitivity.header.coefficientCount[static_cast<std::size_t>(product.mtx)];
    }
    const auto cells = static_cast<std::int64_t>(problem.modelSize());
    const bool onDisk = problem.sensitivity.idisk != 0;
    const bool worthwhile = onDisk || cells <= fewCells || coefficients >= denseRows * cells;
    return worthwhile ? (onDisk ? mostOnDisk : mostInMemory) : 0;
}

SubspaceResult takeSubspaceStep(const InversionProblem& problem, NewtonWork& work, const ScaledObjective& current,
                                const AccuracyRule& accuracy, std::int32_t mostRounds) {
    const std::span<const double> model = modelOf(problem);
    std::vector<double> residual(work.dataVector.size()), found(residual.size()), gradient(model.size());
    SubspaceResult result;
    result.reached = current;
    scaledResiduals(problem, work.data, residual);
    double share = 0.0;
    for (std::int32_t round = 0; round < mostRounds; ++round) {
        if (round > 0 && !takeGradient(problem, work, residual, model)) {
            break;
        }
        std::copy(work.gradient.begin(), work.gradient.end(), gradient.begin());
        const KnownMinimum known = findKnownMinimum(problem, work);
        result.stopped = known.stopped || signalOfRanks() != 0;
        if (result.stopped) {
            return result;
        }
        const double objective = result.reached.objective;
        const double least = objective - known.decrease - known.remaining;
        for (std::size_t n = 0; n < model.size(); ++n) {
            work.direction[n] = work.trial[n] - model[n];
        }
        const double slope = blockedProduct(gradient, work.direction, work.blockSums);
        const ScaledObjective there = evaluateObjective(problem, work, work.trial);
        ++result.trials;
        scaledResiduals(problem, work.data, found);
        const double curvature = there.objective - objective - 2.0 * slope;
        share = slope < 0.0 && curvature > 0.0 ? std::min(1.0, -slope / curvature) : 0.0;
        if (share > 0.0) {
            moveTowards(problem, work, found, share, residual, result);
            result.reached.objective += share * (2.0 * slope + share * curvature);
        }
        result.reached = share < 1.0 ? result.reached : there;
        result.remaining = std::max(0.0, result.reached.objective - least);
        if (share == 0.0 ||
            result.remaining <= accuracyAt(accuracy, result.reached.misfit) * result.reached.objective) {
            break;
        }
    }
    if (share < 1.0) {
        result.reached = evaluateObjective(problem, work, model);  // predictions by a product with the model itself
    }
    return result;
}

}  // namespace voxlith
