#include "run/convergence/newton_solve.h"

#include <algorithm>
#include <array>
#include <cmath>

#include "run/stop_signal.h"

namespace voxlith {

namespace {

void keepFree(const NewtonWork& work, std::span<double> values) {
    for (std::size_t n = 0; n < values.size(); ++n) {
        values[n] = work.isFree[n] != 0 ? values[n] : 0.0;
    }
}

// The preconditioner for the free cells and the trade-off of this step; `extraDiagonal` is empty or by cell.
void updatePreconditioner(const InversionProblem& problem, NewtonWork& work, DataTerm data,
                          std::span<const double> extraDiagonal) {
    // Most of diag(J'J) lies in few directions: all of it slows convergence.
    const double dataShare = data == DataTerm::whole ? 0.1 : 0.0;
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

double dot(NewtonWork& work, std::span<const double> a, std::span<const double> b) {
    return blockedProduct(a, b, work.blockSums);
}

using LastLengths = std::array<double, 4>;

// work.dataStep, the residuals after the step, for `length` more of the direction.
void addDataStep(NewtonWork& work, double length) {
    for (std::size_t n = 0; n < work.dataStep.size(); ++n) {
        work.dataStep[n] += length * work.dataVector[n];
    }
}

bool keepsWithinBounds(const InversionProblem& problem, const NewtonWork& work) {
    const std::span<const double> model = modelOf(problem);
    for (std::size_t n = 0; n < model.size(); ++n) {
        const double moved = model[n] + work.step[n];
        if (work.isFree[n] != 0 && (moved < work.lower[n] || moved > work.upper[n])) {
            return false;
        }
    }
    return true;
}

// `rz` is the square of the residual in the norm of the preconditioner.
bool isSolved(const InversionProblem& problem, const NewtonWork& work, const SolveLimits& limits, const SolveGoal& goal,
              double rz, double rzEnd, const SolveResult& result) {
    constexpr std::int32_t timesMost = 5;  // steps of a solution within the bounds, over those of others
    constexpr double margin = 0.5;
    if (rz > rzEnd && result.steps < limits.mostSteps) {
        return false;
    }
    if (!(goal.objective > 0.0 && rz > 0.0) || result.steps >= timesMost * limits.mostSteps) {
        return true;
    }
    double squares = 0.0;
    for (const double value : work.dataStep) {
        squares += value * value;
    }
    const double accuracy = accuracyAt(goal.accuracy, squares / problem.obs.nData);
    const double left = goal.objective - result.predictedDecrease;
    return rz * result.inverseCurvature <= margin * accuracy * left || !keepsWithinBounds(problem, work);
}

}  // namespace

void precondition(const InversionProblem& problem, NewtonWork& work) {
    const std::size_t cells = problem.mesh.cellCount();
    for (std::size_t type = 0; type < work.grids.size(); ++type) {
        applyMultigrid(problem.regularisation(), std::span<const double>(work.residual).subspan(type * cells, cells),
                       work.grids[type], std::span(work.preconditioned).subspan(type * cells, cells));
    }
}

double preconditionedSquare(const InversionProblem& problem, NewtonWork& work, DataTerm data) {
    updatePreconditioner(problem, work, data, {});
    precondition(problem, work);
    return dot(work, work.residual, work.preconditioned);
}

void applyHessian(const InversionProblem& problem, NewtonWork& work, DataTerm data) {
    if (data == DataTerm::known) {
        applyImages(work.subspace, work.direction, work.subspace.coefficients);
        combineImages(work.subspace, work.subspace.coefficients, work.product);
    } else {
        applyJacobian(problem, work.data, work.direction, work.dataVector);
        applyTransposedJacobian(problem, work.data, work.dataVector, work.product);
    }
    const double nData = problem.obs.nData;
    for (double& value : work.product) {
        value /= nData;
    }
    addNormOfTypes(problem, work, GradientMode::hessianProduct, work.direction, work.product);
    addCrossHessian(work.cross, work.direction, work.product);
}

SolveResult solveForStep(const InversionProblem& problem, NewtonWork& work, const SolveLimits& limits,
                         const SolveGoal& goal, std::span<const double> extraDiagonal) {
    SolveResult result;
    std::fill(work.step.begin(), work.step.end(), 0.0);
    scaledResiduals(problem, work.data, work.dataStep);
    updatePreconditioner(problem, work, limits.data, extraDiagonal);
    precondition(problem, work);
    work.direction = work.preconditioned;
    double rz = dot(work, work.residual, work.preconditioned);
    const double rzStart = rz;
    result.residualNorm = std::sqrt(rz);
    const double rzEnd = limits.tolerance * limits.tolerance * rzStart;
    LastLengths lengths{};
    while (!isSolved(problem, work, limits, goal, rz, rzEnd, result)) {
        if (signalOfRanks() != 0) {
            result.stopped = true;
            break;
        }
        applyHessian(problem, work, limits.data);
        keepFree(work, work.product);
        for (std::size_t n = 0; n < extraDiagonal.size(); ++n) {
            work.product[n] += extraDiagonal[n] * work.direction[n];
        }
        const double curvature = dot(work, work.direction, work.product);
        if (!(curvature > 0.0) || !std::isfinite(curvature)) {
            break;
        }
        const double length = rz / curvature;
        addDataStep(work, length);
        for (std::size_t n = 0; n < work.step.size(); ++n) {
            work.step[n] += length * work.direction[n];
            work.residual[n] -= length * work.product[n];
        }
        result.predictedDecrease += length * rz;
        lengths[static_cast<std::size_t>(result.steps) % lengths.size()] = length;
        result.inverseCurvature = *std::max_element(lengths.begin(), lengths.end());
        ++result.steps;
        precondition(problem, work);
        const double rzNew = dot(work, work.residual, work.preconditioned);
        const double ratio = rzNew / rz;
        for (std::size_t n = 0; n < work.step.size(); ++n) {
            work.direction[n] = work.preconditioned[n] + ratio * work.direction[n];
        }
        rz = rzNew;
    }
    return result;
}

}  // namespace voxlith
