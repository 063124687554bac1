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

// The preconditioner for the free cells and the trade-off of this step.
void updatePreconditioner(const InversionProblem& problem, NewtonWork& work) {
    constexpr double dataShare = 0.1;  // most of diag(J'J) lies in few directions: all of it slows convergence
    const std::size_t cells = problem.mesh.cellCount();
    for (std::size_t n = 0; n < work.direction.size(); ++n) {
        work.direction[n] = dataShare * work.dataDiagonal[n];
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

// work.step = an approximate solution of H step = -g over the free cells.
void solveForStep(const InversionProblem& problem, NewtonWork& work, const NewtonLimits& limits, NewtonResult& result) {
    std::fill(work.step.begin(), work.step.end(), 0.0);
    for (std::size_t n = 0; n < work.step.size(); ++n) {
        work.residual[n] = work.isFree[n] != 0 ? -work.gradient[n] : 0.0;
    }
    updatePreconditioner(problem, work);
    precondition(problem, work);
    work.direction = work.preconditioned;
    double rz = dot(work, work.residual, work.preconditioned);
    const double rzStart = rz;
    result.gradientNorm = std::sqrt(rz);
    const double rzEnd = limits.solveTolerance * limits.solveTolerance * rzStart;
    while (rz > rzEnd && result.solveSteps < limits.mostSolveSteps) {
        applyHessian(problem, work);
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
    NewtonResult result;
    result.terms = current.terms;
    result.misfit = current.misfit;
    result.objective = current.objective;
    result.cross = current.cross;
    evaluateGradient(problem, work, modelOf(problem));
    if (findFreeCells(problem, work) == 0) {
        return result;
    }
    solveForStep(problem, work, limits, result);
    result.improved = searchAlongProjection(problem, work, current, trialsOfStep, result);
    if (!result.improved && result.gradientNorm > 0.0) {
        // The projection can turn a Newton step into an ascent; the scaled gradient descends for some length.
        for (std::size_t n = 0; n < work.residual.size(); ++n) {
            work.residual[n] = work.isFree[n] != 0 ? -work.gradient[n] : 0.0;
        }
        precondition(problem, work);
        work.step = work.preconditioned;
        result.improved = searchAlongProjection(problem, work, current, trialsOfGradient, result);
    }
    if (!result.improved) {
        evaluateObjective(problem, work, modelOf(problem));  // predictions of the trial become those of the model again
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
