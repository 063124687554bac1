#include "run/convergence/known_minimum.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <span>

#include "run/convergence/free_cells.h"
#include "run/convergence/newton_solve.h"

namespace voxlith {

namespace {

// Moves work.trial along work.direction, by all of it at most, and work.gradient with it. Returns the decrease; 0, and
// nothing moved, where it is too small.
double moveAlongDirection(const InversionProblem& problem, NewtonWork& work) {
    constexpr double requiredShare = 1.0e-4;
    const double slope = blockedProduct(work.gradient, work.direction, work.blockSums);
    if (!(slope < 0.0)) {
        return 0.0;
    }
    applyHessian(problem, work, DataTerm::known);
    const double curvature = blockedProduct(work.direction, work.product, work.blockSums);
    if (2.0 * slope + curvature > 2.0 * requiredShare * slope) {
        return 0.0;
    }
    const double share = std::min(1.0, -slope / curvature);
    for (std::size_t n = 0; n < work.trial.size(); ++n) {
        work.trial[n] += share * work.direction[n];
        work.gradient[n] += share * work.product[n];
    }
    return -share * (2.0 * slope + share * curvature);
}

// Along the projection of work.step.
double moveAlongProjection(const InversionProblem& problem, NewtonWork& work) {
    constexpr int mostTrials = 20;
    double decrease = 0.0, length = 1.0;
    for (int trial = 0; trial < mostTrials && !(decrease > 0.0); ++trial) {
        for (std::size_t n = 0; n < work.trial.size(); ++n) {
            const double moved = work.trial[n] + length * work.step[n];
            const double kept = std::min(std::max(moved, work.lower[n]), work.upper[n]);
            work.direction[n] = work.isFree[n] != 0 ? kept - work.trial[n] : 0.0;
        }
        decrease = moveAlongDirection(problem, work);
        length *= 0.5;
    }
    return decrease;
}

// Cells that the gradient brings to a bound, by the curvature of the cell alone, go there: next to a bound they would
// stay free, and cut the step.
double moveToBounds(const InversionProblem& problem, NewtonWork& work) {
    for (std::size_t n = 0; n < work.trial.size(); ++n) {
        const double slope = work.gradient[n];
        const double way = (slope > 0.0 ? work.lower[n] : work.upper[n]) - work.trial[n];
        const bool reaches = std::abs(way) * diagonalOf(problem, work, n) <= std::abs(slope);
        work.direction[n] = problem.bounds.fixedCell[n] == 0 && reaches && std::isfinite(way) ? way : 0.0;
    }
    return moveAlongDirection(problem, work);
}

// Cells at a bound beyond which work.step, the last one, led: they can turn the next one into next to nothing.
void leaveOutCellsPushedOut(NewtonWork& work) {
    for (std::size_t n = 0; n < work.trial.size(); ++n) {
        const bool below = work.trial[n] <= work.lower[n] && work.step[n] < 0.0;
        const bool above = work.trial[n] >= work.upper[n] && work.step[n] > 0.0;
        if (below || above) {
            work.isFree[n] = 0;
            work.residual[n] = 0.0;
        }
    }
}

void takeDiagonalStep(const InversionProblem& problem, NewtonWork& work) {
    for (std::size_t n = 0; n < work.step.size(); ++n) {
        work.step[n] = work.isFree[n] != 0 ? -work.gradient[n] / diagonalOf(problem, work, n) : 0.0;
    }
}

}  // namespace

KnownMinimum findKnownMinimum(const InversionProblem& problem, NewtonWork& work) {
    constexpr SolveLimits limits{0.3, 60, DataTerm::known};
    constexpr int mostSteps = 20;
    constexpr double solved = 0.3;      // remaining over the decrease so far
    constexpr double leastShare = 0.1;  // of the predicted decrease, by a step that bounds do not cut to pieces
    const std::span<const double> model = modelOf(problem);
    std::copy(model.begin(), model.end(), work.trial.begin());
    KnownMinimum minimum;
    double inverseCurvature = 1.0;
    bool cut = false;
    for (int step = 0; step < mostSteps; ++step) {
        minimum.decrease += moveToBounds(problem, work);
        if (findFreeCells(problem, work, work.trial) == 0) {
            minimum.remaining = 0.0;
            break;
        }
        takeNegativeGradient(work);
        if (step > 0) {
            minimum.remaining = preconditionedSquare(problem, work, DataTerm::known) * inverseCurvature;
            if (minimum.remaining <= solved * minimum.decrease) {
                break;
            }
        }
        if (cut) {
            leaveOutCellsPushedOut(work);
        }
        const SolveResult result = solveForStep(problem, work, limits, SolveGoal{}, {});
        minimum.stopped = result.stopped;
        if (minimum.stopped) {
            break;
        }
        inverseCurvature = std::max(1.0, result.inverseCurvature);
        double decrease = moveAlongProjection(problem, work);
        if (!(decrease > 0.0)) {
            // The projection can turn the step into an ascent; the gradient over the diagonal descends for some length.
            takeDiagonalStep(problem, work);
            decrease = moveAlongProjection(problem, work);
        }
        minimum.decrease += decrease;
        minimum.remaining = std::max(minimum.remaining, result.predictedDecrease - decrease);
        if (!(decrease > 0.0)) {
            break;
        }
        cut = decrease < leastShare * result.predictedDecrease;
    }
    return minimum;
}

}  // namespace voxlith
