#include "run/convergence/newton_step.h"

#include <algorithm>
#include <array>
#include <cassert>
#include <cmath>
#include <limits>

#include "run/convergence/norm_operator.h"
#include "survey/dummy_value.h"

namespace voxlith {

namespace {

constexpr double infinite = std::numeric_limits<double>::infinity();
constexpr std::size_t sumBlock = 4096;

std::span<double> modelOf(const InversionProblem& problem) {
    return std::span(problem.arrays.model).first(problem.modelSize());
}

// Calls call(first cell) for the model types; the slices are mesh.cellCount() long.
template <class Call>
void eachModelType(const InversionProblem& problem, const Call& call) {
    for (std::size_t type = 0; type < problem.modelTypes(); ++type) {
        call(type * problem.mesh.cellCount());
    }
}

void addNormToAll(const InversionProblem& problem, NewtonWork& work, GradientMode mode, std::span<const double> vector,
                  std::span<double> out) {
    const std::size_t cells = problem.mesh.cellCount();
    eachModelType(problem, [&](std::size_t first) {
        addNormProduct(problem.regularisation(), mode, vector.subspan(first, cells),
                       std::span<const double>(problem.arrays.refModel).subspan(first, cells),
                       problem.options.multiplier, work.scaled, out.subspan(first, cells));
    });
}

void takeBounds(const InversionProblem& problem, NewtonWork& work) {
    const ModelBounds& bounds = problem.bounds;
    const std::size_t size = problem.modelSize(), cells = problem.mesh.cellCount();
    work.lower.assign(size, -infinite);
    work.upper.assign(size, infinite);
    const std::span<const float> depthWeight = problem.foldedWeight(0);
    for (std::size_t n = 0; n < size; ++n) {
        const std::int32_t type = bounds.boundType[n];
        if (type != boundNone && type != boundUpper) {
            work.lower[n] = bounds.lowerBound[n];
        } else if (isStrict(problem.options.positivity)) {
            const double weight = depthWeight.empty() ? 1.0 : static_cast<double>(depthWeight[n % cells]);
            work.lower[n] = static_cast<double>(strictPositiveMinimum) * weight;
        }
        if (type != boundNone && type != boundLower) {
            work.upper[n] = bounds.upperBound[n];
        }
    }
}

void projectStart(const InversionProblem& problem, const NewtonWork& work) {
    const std::span<double> model = modelOf(problem);
    for (std::size_t n = 0; n < model.size(); ++n) {
        if (!isValid(model[n])) {
            model[n] = 0.0;
        }
        if (problem.bounds.fixedCell[n] == 0) {
            model[n] = std::min(std::max(model[n], work.lower[n]), work.upper[n]);
        }
    }
}

// Cells that are not fixed, have any term, and are not held at a bound by the gradient.
std::size_t findFreeCells(const InversionProblem& problem, NewtonWork& work) {
    const std::span<const double> model = modelOf(problem);
    std::size_t count = 0;
    for (std::size_t n = 0; n < model.size(); ++n) {
        const bool held = (model[n] <= work.lower[n] && work.gradient[n] > 0.0) ||
                          (model[n] >= work.upper[n] && work.gradient[n] < 0.0);
        const double diagonal = work.dataDiagonal[n] + problem.options.multiplier * work.normDiagonal[n];
        work.isFree[n] = problem.bounds.fixedCell[n] == 0 && !held && diagonal > 0.0 ? 1 : 0;
        count += work.isFree[n];
    }
    return count;
}

void keepFree(const NewtonWork& work, std::span<double> values) {
    for (std::size_t n = 0; n < values.size(); ++n) {
        values[n] = work.isFree[n] != 0 ? values[n] : 0.0;
    }
}

// The preconditioner for the free cells and the trade-off of this step; `extraDiagonal` is empty or by cell.
void updatePreconditioner(const InversionProblem& problem, NewtonWork& work, std::span<const double> extraDiagonal) {
    constexpr double dataShare = 0.1;  // most of diag(J'J) lies in few directions: all of it slows convergence
    const std::size_t cells = problem.mesh.cellCount();
    for (std::size_t n = 0; n < work.direction.size(); ++n) {
        work.direction[n] = dataShare * work.dataDiagonal[n] + (extraDiagonal.empty() ? 0.0 : extraDiagonal[n]);
    }
    for (std::size_t type = 0; type < work.grids.size(); ++type) {
        updateMultigrid(problem.regularisation(), problem.options.multiplier,
                        std::span<const double>(problem.arrays.refModel).subspan(type * cells, cells),
                        std::span<const double>(work.direction).subspan(type * cells, cells),
                        std::span<const std::uint8_t>(work.isFree).subspan(type * cells, cells), work.grids[type]);
    }
}

void precondition(const InversionProblem& problem, NewtonWork& work) {
    const std::size_t cells = problem.mesh.cellCount();
    for (std::size_t type = 0; type < work.grids.size(); ++type) {
        applyMultigrid(problem.regularisation(), std::span<const double>(work.residual).subspan(type * cells, cells),
                       work.grids[type], std::span(work.preconditioned).subspan(type * cells, cells));
    }
}

// work.product = H work.direction
void applyHessian(const InversionProblem& problem, NewtonWork& work) {
    applyJacobian(problem, work.data, work.direction, work.dataVector);
    applyTransposedJacobian(problem, work.data, work.dataVector, work.product);
    const double nData = problem.obs.nData;
    for (double& value : work.product) {
        value /= nData;
    }
    addNormToAll(problem, work, GradientMode::hessianProduct, work.direction, work.product);
    addCrossHessian(work.cross, work.direction, work.product);
    keepFree(work, work.product);
}

double dot(NewtonWork& work, std::span<const double> a, std::span<const double> b) {
    return blockedProduct(a, b, work.blockSums);
}

// work.step = an approximate solution of (H + extra diagonal) step = work.residual over the free cells, which becomes
// what is left of it.
void solveForStep(const InversionProblem& problem, NewtonWork& work, const NewtonLimits& limits,
                  std::span<const double> extraDiagonal, NewtonResult& result) {
    std::fill(work.step.begin(), work.step.end(), 0.0);
    updatePreconditioner(problem, work, extraDiagonal);
    precondition(problem, work);
    work.direction = work.preconditioned;
    double rz = dot(work, work.residual, work.preconditioned);
    const double rzStart = rz;
    result.gradientNorm = std::sqrt(rz);
    const double rzEnd = limits.solveTolerance * limits.solveTolerance * rzStart;
    while (rz > rzEnd && result.solveSteps < limits.mostSolveSteps) {
        applyHessian(problem, work);
        for (std::size_t n = 0; n < extraDiagonal.size(); ++n) {
            work.product[n] += extraDiagonal[n] * work.direction[n];
        }
        const double curvature = dot(work, work.direction, work.product);
        if (!(curvature > 0.0) || !std::isfinite(curvature)) {
            break;
        }
        const double length = rz / curvature;
        for (std::size_t n = 0; n < work.step.size(); ++n) {
            work.step[n] += length * work.direction[n];
            work.residual[n] -= length * work.product[n];
        }
        result.predictedDecrease += length * rz;
        ++result.solveSteps;
        precondition(problem, work);
        const double rzNew = dot(work, work.residual, work.preconditioned);
        const double ratio = rzNew / rz;
        for (std::size_t n = 0; n < work.step.size(); ++n) {
            work.direction[n] = work.preconditioned[n] + ratio * work.direction[n];
        }
        rz = rzNew;
    }
}

// work.trial = projection of the model plus `length` times the step; returns g'(trial - model).
double projectTrial(const InversionProblem& problem, NewtonWork& work, double length) {
    const std::span<const double> model = modelOf(problem);
    for (std::size_t n = 0; n < model.size(); ++n) {
        const double moved = std::min(std::max(model[n] + length * work.step[n], work.lower[n]), work.upper[n]);
        work.trial[n] = work.isFree[n] != 0 ? moved : model[n];
        work.product[n] = work.trial[n] - model[n];
    }
    return dot(work, work.gradient, work.product);
}

// Halves the length until the objective falls by a share of what its slope promises.
bool searchAlongProjection(const InversionProblem& problem, NewtonWork& work, const ScaledObjective& current,
                           std::int32_t mostTrials, NewtonResult& result) {
    constexpr double requiredShare = 1.0e-4;
    double length = 1.0;
    for (std::int32_t n = 0; n < mostTrials; ++n) {
        const double slope = projectTrial(problem, work, length);
        length *= 0.5;
        if (!(slope < 0.0)) {
            continue;
        }
        ++result.trials;
        const ScaledObjective found = evaluateObjective(problem, work, work.trial);
        if (found.objective <= current.objective + requiredShare * 2.0 * slope) {
            result.terms = found.terms;
            result.misfit = found.misfit;
            result.objective = found.objective;
            result.cross = found.cross;
            std::copy(work.trial.begin(), work.trial.end(), modelOf(problem).begin());
            return true;
        }
    }
    return false;
}

void takeNegativeGradient(NewtonWork& work) {
    for (std::size_t n = 0; n < work.residual.size(); ++n) {
        work.residual[n] = work.isFree[n] != 0 ? -work.gradient[n] : 0.0;
    }
}

// An interior point of the quadratic model of phi: work.trial, with multipliers of the bounds; 0 where there is none.
struct InteriorPoint {
    std::vector<double> ofLower, ofUpper, diagonal;
    double share = 1;   // of the last step
    double bounds = 0;  // finite bounds of free cells
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
        const double diagonal = work.dataDiagonal[n] + problem.options.multiplier * work.normDiagonal[n];
        work.isFree[n] = problem.bounds.fixedCell[n] == 0 && diagonal > 0.0 && work.lower[n] < work.upper[n] ? 1 : 0;
        if (work.isFree[n] != 0) {
            point.bounds += (work.lower[n] > -infinite ? 1.0 : 0.0) + (work.upper[n] < infinite ? 1.0 : 0.0);
        }
    }
    const double share = gap / std::max(point.bounds, 1.0);
    for (std::size_t n = 0; n < model.size(); ++n) {
        work.trial[n] = model[n];
        if (work.isFree[n] != 0) {
            const double diagonal = work.dataDiagonal[n] + problem.options.multiplier * work.normDiagonal[n];
            const double force = std::max(std::abs(work.gradient[n]), leastForce * std::sqrt(share * diagonal));
            const double least = std::min(share / force, mostOfWidth * (work.upper[n] - work.lower[n]));
            work.trial[n] = std::min(std::max(model[n], work.lower[n] + least), work.upper[n] - least);
            point.ofLower[n] = work.lower[n] > -infinite ? share / distanceFrom(work.lower[n], work.trial[n]) : 0.0;
            point.ofUpper[n] = work.upper[n] < infinite ? share / distanceFrom(work.upper[n], work.trial[n]) : 0.0;
        }
        work.direction[n] = work.trial[n] - model[n];
    }
    applyHessian(problem, work);
    for (std::size_t n = 0; n < model.size(); ++n) {
        work.gradient[n] += work.product[n];
    }
    return point;
}

bool hasBounds(const NewtonWork& work) {
    for (std::size_t n = 0; n < work.lower.size(); ++n) {
        if (work.isFree[n] != 0 && (work.lower[n] > -infinite || work.upper[n] < infinite)) {
            return true;
        }
    }
    return false;
}

// The largest share of `change` that leaves `value` above 0, up to 1.
double longestShare(double value, double change, double longest) {
    constexpr double margin = 0.99;
    return change < 0.0 ? std::min(longest, -margin * value / change) : longest;
}

// One step of the interior point towards products of multipliers and distances of `target`. Returns by how much phi at
// the point can be above its minimum.
double moveInterior(const InversionProblem& problem, NewtonWork& work, const NewtonLimits& limits, double target,
                    InteriorPoint& point) {
    const std::size_t size = work.trial.size();
    for (std::size_t n = 0; n < size; ++n) {
        const double below = distanceFrom(work.lower[n], work.trial[n]);
        const double above = distanceFrom(work.upper[n], work.trial[n]);
        const bool hasLower = point.ofLower[n] > 0.0, hasUpper = point.ofUpper[n] > 0.0;
        point.diagonal[n] = (hasLower ? point.ofLower[n] / below : 0.0) + (hasUpper ? point.ofUpper[n] / above : 0.0);
        const double force = (hasLower ? target / below : 0.0) - (hasUpper ? target / above : 0.0);
        work.residual[n] = work.isFree[n] != 0 ? force - work.gradient[n] : 0.0;
    }
    NewtonResult solved;
    solveForStep(problem, work, limits, point.diagonal, solved);
    double longest = 1.0;
    const auto changeOf = [&](double multiplier, double distance, double step) {
        return target / distance - multiplier - multiplier * step / distance;
    };
    for (std::size_t n = 0; n < size; ++n) {
        const double step = work.step[n];
        if (point.ofLower[n] > 0.0) {
            const double below = distanceFrom(work.lower[n], work.trial[n]);
            longest = longestShare(below, step, longest);
            longest = longestShare(point.ofLower[n], changeOf(point.ofLower[n], below, step), longest);
        }
        if (point.ofUpper[n] > 0.0) {
            const double above = distanceFrom(work.upper[n], work.trial[n]);
            longest = longestShare(above, -step, longest);
            longest = longestShare(point.ofUpper[n], changeOf(point.ofUpper[n], above, -step), longest);
        }
    }
    work.direction = work.step;
    applyHessian(problem, work);
    for (std::size_t n = 0; n < size; ++n) {
        const double step = work.step[n];
        if (point.ofLower[n] > 0.0) {
            point.ofLower[n] += longest * changeOf(point.ofLower[n], distanceFrom(work.lower[n], work.trial[n]), step);
        }
        if (point.ofUpper[n] > 0.0) {
            point.ofUpper[n] += longest * changeOf(point.ofUpper[n], distanceFrom(work.upper[n], work.trial[n]), -step);
        }
        work.gradient[n] += longest * work.product[n];
        work.trial[n] += longest * step;
    }
    point.share = longest;
    const double unsolved = (1.0 - longest) * (1.0 - longest) + limits.solveTolerance * limits.solveTolerance;
    return 2.0 * complementarity(work, point) + unsolved * solved.predictedDecrease;
}

// Brings cells to the bounds that hold them, and takes the way there from the model as step.
void finishInterior(const InversionProblem& problem, NewtonWork& work, const InteriorPoint& point) {
    const std::span<const double> model = modelOf(problem);
    for (std::size_t n = 0; n < model.size(); ++n) {
        const double diagonal = work.dataDiagonal[n] + problem.options.multiplier * work.normDiagonal[n];
        double end = work.trial[n];
        if (point.ofLower[n] > diagonal * distanceFrom(work.lower[n], work.trial[n])) {
            end = work.lower[n];
        } else if (point.ofUpper[n] > diagonal * distanceFrom(work.upper[n], work.trial[n])) {
            end = work.upper[n];
        }
        work.step[n] = work.isFree[n] != 0 ? end - model[n] : 0.0;
    }
}

// Minimises the quadratic model of phi within the bounds by a primal-dual interior-point method, and searches along the
// way to its minimum. obs.predData and work.gradient belong to the model.
void searchByInterior(const InversionProblem& problem, NewtonWork& work, const ScaledObjective& current,
                      const NewtonLimits& limits, NewtonResult& result) {
    constexpr std::int32_t mostMoves = 60, mostSteps = 400, mostTrials = 30;
    constexpr double startingGap = 10.0, fullShare = 0.5, reductionOfFull = 0.3, reductionOfShort = 0.6;
    constexpr double margin = 0.1;  // the objective will be smaller
    NewtonLimits inner;
    inner.mostSolveSteps = mostSteps;
    const double wanted = margin * limits.accuracy * current.objective;
    if (!hasBounds(work)) {
        return;
    }
    InteriorPoint point = enterInterior(problem, work, startingGap * current.objective);
    double left = infinite, target = reductionOfFull * complementarity(work, point) / std::max(point.bounds, 1.0);
    for (std::int32_t n = 0; n < mostMoves && left > wanted; ++n) {
        left = moveInterior(problem, work, inner, target, point);
        const double reduction = point.share > fullShare ? reductionOfFull : reductionOfShort;
        target = reduction * complementarity(work, point) / std::max(point.bounds, 1.0);
    }
    finishInterior(problem, work, point);
    evaluateGradient(problem, work, modelOf(problem));
    if (searchAlongProjection(problem, work, current, mostTrials, result)) {
        result.improved = true;
        result.predictedDecrease = left;
    } else {
        evaluateObjective(problem, work, modelOf(problem));
    }
}

double bestTangentDecrease(double gradient, double curvature, double longest) {
    // max over 0 <= t <= longest of 2 gradient t - curvature t^2, gradient > 0
    const double best = curvature > 0.0 ? gradient / curvature : infinite;
    const double t = std::min(best, longest);
    return t < infinite ? 2.0 * gradient * t - curvature * t * t : infinite;
}

}  // namespace

double blockedProduct(std::span<const double> a, std::span<const double> b, std::span<double> blockSums) {
    constexpr std::size_t lanes = 8;
    const std::size_t blocks = (a.size() + sumBlock - 1) / sumBlock;
    assert(a.size() == b.size() && blockSums.size() >= blocks);
    for (std::size_t block = 0; block < blocks; ++block) {
        const std::size_t first = block * sumBlock, end = std::min(first + sumBlock, a.size());
        std::array<double, lanes> sums{};
        std::size_t n = first;
        for (; n + lanes <= end; n += lanes) {
            for (std::size_t lane = 0; lane < lanes; ++lane) {
                sums[lane] += a[n + lane] * b[n + lane];
            }
        }
        double sum = 0.0;
        for (; n < end; ++n) {
            sum += a[n] * b[n];
        }
        for (const double lane : sums) {
            sum += lane;
        }
        blockSums[block] = sum;
    }
    double sum = 0.0;
    for (std::size_t block = 0; block < blocks; ++block) {
        sum += blockSums[block];
    }
    return sum;
}

NewtonWork prepareNewton(const InversionProblem& problem) {
    const std::size_t size = problem.modelSize(), cells = problem.mesh.cellCount();
    NewtonWork work;
    work.data = makeDataOperator(problem);
    takeBounds(problem, work);
    projectStart(problem, work);
    for (std::vector<double>* array :
         {&work.dataDiagonal, &work.normDiagonal, &work.gradient, &work.step, &work.residual, &work.direction,
          &work.preconditioned, &work.product, &work.trial}) {
        array->assign(size, 0.0);
    }
    work.grids.assign(problem.modelTypes(), makeMultigrid(problem.mesh, hasVerticalTerms(problem.style())));
    work.scaled.assign(cells, 0.0);
    work.isFree.assign(size, 0);
    work.dataVector.assign(work.data.validData.size(), 0.0);
    work.blockSums.assign(size / sumBlock + 1, 0.0);
    estimateDataDiagonal(problem, work.data, work.dataDiagonal);
    const double nData = problem.obs.nData;
    for (double& value : work.dataDiagonal) {
        value /= nData;
    }
    eachModelType(problem, [&](std::size_t first) {
        addNormDiagonal(problem.regularisation(), NormForm::exact,
                        std::span<const double>(problem.arrays.refModel).subspan(first, cells), 1.0,
                        std::span(work.normDiagonal).subspan(first, cells));
    });
    return work;
}

ScaledObjective evaluateObjective(const InversionProblem& problem, NewtonWork& work, std::span<const double> model) {
    ScaledObjective found;
    found.terms = calcObjective(problem, Barrier{}, model);
    work.data.productCount += static_cast<std::int64_t>(problem.products.products.size());
    found.misfit = linearise(problem, work.data);
    found.cross = work.cross.weight * crossGradientNorm(work.cross, model);
    found.objective =
        found.misfit + problem.options.multiplier * (found.terms.refNorm + found.terms.smoothNorm) + found.cross;
    return found;
}

void evaluateGradient(const InversionProblem& problem, NewtonWork& work, std::span<const double> model) {
    scaledResiduals(problem, work.data, work.dataVector);
    applyTransposedJacobian(problem, work.data, work.dataVector, work.gradient);
    const double nData = problem.obs.nData;
    for (double& value : work.gradient) {
        value /= nData;
    }
    addNormToAll(problem, work, GradientMode::gradient, model, work.gradient);
    addCrossGradient(work.cross, model, work.gradient);
    for (std::size_t n = 0; n < work.gradient.size(); ++n) {
        work.gradient[n] = problem.bounds.fixedCell[n] == 0 ? work.gradient[n] : 0.0;
    }
}

NewtonResult takeNewtonStep(const InversionProblem& problem, NewtonWork& work, const ScaledObjective& current,
                            const NewtonLimits& limits) {
    constexpr std::int32_t trialsOfStep = 10, trialsOfGradient = 30;
    constexpr double leastShare = 0.05;
    NewtonResult result;
    result.terms = current.terms;
    result.misfit = current.misfit;
    result.objective = current.objective;
    result.cross = current.cross;
    evaluateGradient(problem, work, modelOf(problem));
    if (findFreeCells(problem, work) == 0) {
        return result;
    }
    takeNegativeGradient(work);
    solveForStep(problem, work, limits, {}, result);
    result.improved = searchAlongProjection(problem, work, current, trialsOfStep, result);
    if (!result.improved && result.gradientNorm > 0.0) {
        // The projection can turn a Newton step into an ascent; the scaled gradient descends for some length.
        takeNegativeGradient(work);
        precondition(problem, work);
        work.step = work.preconditioned;
        result.improved = searchAlongProjection(problem, work, current, trialsOfGradient, result);
    }
    if (!result.improved) {
        evaluateObjective(problem, work, modelOf(problem));  // predictions of the trial become those of the model again
    }
    const double decrease = current.objective - result.objective;
    const bool quadratic = !work.data.amplitude && work.cross.weight == 0.0;
    if (quadratic && result.predictedDecrease > limits.accuracy * current.objective &&
        decrease < leastShare * result.predictedDecrease) {
        // Many cells meet their bounds early on the way: steps would alternate between sets of free cells.
        const ScaledObjective reached{result.terms, result.misfit, result.objective, result.cross};
        evaluateGradient(problem, work, modelOf(problem));
        searchByInterior(problem, work, reached, limits, result);
    }
    return result;
}

double largestPossibleDecrease(const InversionProblem& problem, const NewtonWork& work) {
    const std::span<const double> model = modelOf(problem);
    const std::size_t cells = problem.mesh.cellCount(), height = static_cast<std::size_t>(problem.mesh.nz);
    const std::span<const float> depthWeight = problem.foldedWeight(0);
    double sum = 0.0;
    for (std::size_t n = 0; n < model.size(); ++n) {
        if (problem.bounds.fixedCell[n] != 0 || work.gradient[n] == 0.0) {
            continue;
        }
        const double weight = depthWeight.empty() ? 1.0 : static_cast<double>(depthWeight[n % cells]);
        const bool hasReference =
            n % height < static_cast<std::size_t>(problem.mesh.nzl) && problem.arrays.refModel[n] > dummyValue;
        const double curvature =
            hasReference
                ? problem.options.multiplier * static_cast<double>(problem.weights.wtS[n % cells]) / (weight * weight)
                : 0.0;
        const double longest = work.gradient[n] > 0.0 ? model[n] - work.lower[n] : work.upper[n] - model[n];
        sum += bestTangentDecrease(std::abs(work.gradient[n]), curvature, longest);
    }
    return sum;
}

}  // namespace voxlith
