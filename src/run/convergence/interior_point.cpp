#include "run/convergence/interior_point.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <vector>

#include "run/convergence/newton_solve.h"

namespace voxlith {

namespace {

constexpr double infinite = std::numeric_limits<double>::infinity();

// What belongs to the point work.trial, at which work.gradient is that of the quadratic model.
struct InteriorPoint {
    std::vector<double> ofLower, ofUpper;  // multipliers of the bounds; 0 where there is none
    std::vector<double> diagonal;          // D of the linear system
    double share = 1;                      // of the last step that was taken
    double bounds = 0;                     // finite bounds of free cells
};

// Distances from the bounds, above 0 also where rounding leaves none.
double distanceFrom(double bound, double value) {
    constexpr double rounding = 1.0e-15;
    return std::max(std::abs(value - bound), rounding * std::abs(bound) + std::numeric_limits<double>::min());
}

double complementarity(const NewtonWork& work, const InteriorPoint& point) {
    double sum = 0.0;
    for (std::size_t n = 0; n < work.trial.size(); ++n) {
        sum += point.ofLower[n] > 0.0 ? point.ofLower[n] * distanceFrom(work.lower[n], work.trial[n]) : 0.0;
        sum += point.ofUpper[n] > 0.0 ? point.ofUpper[n] * distanceFrom(work.upper[n], work.trial[n]) : 0.0;
    }
    return sum;
}

// All cells with any term are free; those close to a bound move away from it, the less the more
// the gradient pushes them against it. `gap` is the sum of multipliers times distances.
InteriorPoint enterInterior(const InversionProblem& problem, NewtonWork& work, double gap) {
    constexpr double mostOfWidth = 0.25, leastForce = 10.0;  // the latter over the force of the curvature
    const std::span<const double> model = modelOf(problem);
    InteriorPoint point;
    point.ofLower.assign(model.size(), 0.0);
    point.ofUpper.assign(model.size(), 0.0);
    point.diagonal.assign(model.size(), 0.0);
    for (std::size_t n = 0; n < model.size(); ++n) {
        const bool determined = problem.bounds.fixedCell[n] == 0 && diagonalOf(problem, work, n) > 0.0;
        work.isFree[n] = determined && work.lower[n] < work.upper[n] ? 1 : 0;
        if (work.isFree[n] != 0) {
            point.bounds += (work.lower[n] > -infinite ? 1.0 : 0.0) + (work.upper[n] < infinite ? 1.0 : 0.0);
        }
    }
    const double share = gap / std::max(point.bounds, 1.0);
    for (std::size_t n = 0; n < model.size(); ++n) {
        work.trial[n] = model[n];
        if (work.isFree[n] != 0) {
            const double curvature = leastForce * std::sqrt(share * diagonalOf(problem, work, n));
            const double force = std::max(std::abs(work.gradient[n]), curvature);
            const double least = std::min(share / force, mostOfWidth * (work.upper[n] - work.lower[n]));
            work.trial[n] = std::min(std::max(model[n], work.lower[n] + least), work.upper[n] - least);
            point.ofLower[n] = work.lower[n] > -infinite ? share / distanceFrom(work.lower[n], work.trial[n]) : 0.0;
            point.ofUpper[n] = work.upper[n] < infinite ? share / distanceFrom(work.upper[n], work.trial[n]) : 0.0;
        }
        work.direction[n] = work.trial[n] - model[n];
    }
    applyHessian(problem, work, DataTerm::whole);
    for (std::size_t n = 0; n < model.size(); ++n) {
        work.gradient[n] += work.product[n];
    }
    return point;
}

double meanComplementarity(const NewtonWork& work, const InteriorPoint& point) {
    return complementarity(work, point) / std::max(point.bounds, 1.0);
}

// The linear system of a step towards products of multipliers and distances of `target`.
void setUpSystem(NewtonWork& work, double target, InteriorPoint& point) {
    for (std::size_t n = 0; n < work.trial.size(); ++n) {
        const double below = distanceFrom(work.lower[n], work.trial[n]);
        const double above = distanceFrom(work.upper[n], work.trial[n]);
        const bool hasLower = point.ofLower[n] > 0.0, hasUpper = point.ofUpper[n] > 0.0;
        point.diagonal[n] = (hasLower ? point.ofLower[n] / below : 0.0) + (hasUpper ? point.ofUpper[n] / above : 0.0);
        const double force = (hasLower ? target / below : 0.0) - (hasUpper ? target / above : 0.0);
        work.residual[n] = work.isFree[n] != 0 ? force - work.gradient[n] : 0.0;
    }
}

// Of a multiplier, when the distance of its cell from the bound grows by `step`.
double multiplierChange(double multiplier, double distance, double step, double target) {
    return target / distance - multiplier - multiplier * step / distance;
}

// The largest share of `change` that leaves `value` above 0, up to 1.
double longestShare(double value, double change, double longest) {
    constexpr double margin = 0.99;
    return change < 0.0 ? std::min(longest, -margin * value / change) : longest;
}

// The share of work.step that leaves all distances and multipliers above 0.
double longestShareOfStep(const NewtonWork& work, const InteriorPoint& point, double target) {
    double longest = 1.0;
    for (std::size_t n = 0; n < work.trial.size(); ++n) {
        const double step = work.step[n], lower = point.ofLower[n], upper = point.ofUpper[n];
        if (lower > 0.0) {
            const double below = distanceFrom(work.lower[n], work.trial[n]);
            longest = longestShare(below, step, longest);
            longest = longestShare(lower, multiplierChange(lower, below, step, target), longest);
        }
        if (upper > 0.0) {
            const double above = distanceFrom(work.upper[n], work.trial[n]);
            longest = longestShare(above, -step, longest);
            longest = longestShare(upper, multiplierChange(upper, above, -step, target), longest);
        }
    }
    return longest;
}

// Moves the point by a share of work.step; work.product = H work.step.
void moveBy(NewtonWork& work, double share, double target, InteriorPoint& point) {
    for (std::size_t n = 0; n < work.trial.size(); ++n) {
        const double step = work.step[n];
        double &lower = point.ofLower[n], &upper = point.ofUpper[n];
        if (lower > 0.0) {
            lower += share * multiplierChange(lower, distanceFrom(work.lower[n], work.trial[n]), step, target);
        }
        if (upper > 0.0) {
            upper += share * multiplierChange(upper, distanceFrom(work.upper[n], work.trial[n]), -step, target);
        }
        work.gradient[n] += share * work.product[n];
        work.trial[n] += share * step;
    }
    point.share = share;
}

// One step of the point towards products of multipliers and distances of `target`.
InteriorSolution moveInterior(const InversionProblem& problem, NewtonWork& work, double target, InteriorPoint& point) {
    constexpr SolveLimits limits{0.1, 400};
    setUpSystem(work, target, point);
    const SolveResult solved = solveForStep(problem, work, limits, SolveGoal{}, point.diagonal);
    if (solved.stopped) {
        return {infinite, true};
    }
    const double share = longestShareOfStep(work, point, target);
    work.direction = work.step;
    applyHessian(problem, work, DataTerm::whole);
    moveBy(work, share, target, point);
    const double unsolved = (1.0 - share) * (1.0 - share) + limits.tolerance * limits.tolerance;
    return {2.0 * complementarity(work, point) + unsolved * solved.predictedDecrease, false};
}

// Brings cells to the bounds that hold them, and takes the way there from the model as step.
void finishInterior(const InversionProblem& problem, NewtonWork& work, const InteriorPoint& point) {
    const std::span<const double> model = modelOf(problem);
    for (std::size_t n = 0; n < model.size(); ++n) {
        const double diagonal = diagonalOf(problem, work, n);
        double end = work.trial[n];
        if (point.ofLower[n] > diagonal * distanceFrom(work.lower[n], work.trial[n])) {
            end = work.lower[n];
        } else if (point.ofUpper[n] > diagonal * distanceFrom(work.upper[n], work.trial[n])) {
            end = work.upper[n];
        }
        work.step[n] = work.isFree[n] != 0 ? end - model[n] : 0.0;
    }
}

}  // namespace

bool hasBounds(const NewtonWork& work) {
    for (std::size_t n = 0; n < work.lower.size(); ++n) {
        if (work.isFree[n] != 0 && (work.lower[n] > -infinite || work.upper[n] < infinite)) {
            return true;
        }
    }
    return false;
}

InteriorSolution solveWithinBounds(const InversionProblem& problem, NewtonWork& work, double objective,
                                   double accuracy) {
    constexpr std::int32_t mostMoves = 60;
    constexpr double startingGap = 10.0, fullShare = 0.5, reductionOfFull = 0.3, reductionOfShort = 0.6;
    constexpr double margin = 0.1;  // the objective will be smaller
    const double wanted = margin * accuracy * objective;
    InteriorPoint point = enterInterior(problem, work, startingGap * objective);
    InteriorSolution solution{infinite, false};
    double target = reductionOfFull * meanComplementarity(work, point);
    for (std::int32_t n = 0; n < mostMoves && solution.remaining > wanted; ++n) {
        solution = moveInterior(problem, work, target, point);
        if (solution.stopped) {
            return solution;
        }
        target = (point.share > fullShare ? reductionOfFull : reductionOfShort) * meanComplementarity(work, point);
    }
    finishInterior(problem, work, point);
    return solution;
}

}  // namespace voxlith
