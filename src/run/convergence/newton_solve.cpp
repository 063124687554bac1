#include "run/convergence/newton_solve.h"

#include <algorithm>
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

double dot(NewtonWork& work, std::span<const double> a, std::span<const double> b) {
    return blockedProduct(a, b, work.blockSums);
}

}  // namespace

void precondition(const InversionProblem& problem, NewtonWork& work) {
    const std::size_t cells = problem.mesh.cellCount();
    for (std::size_t type = 0; type < work.grids.size(); ++type) {
        applyMultigrid(problem.regularisation(), std::span<const double>(work.residual).subspan(type * cells, cells),
                       work.grids[type], std::span(work.preconditioned).subspan(type * cells, cells));
    }
}

void applyHessian(const InversionProblem& problem, NewtonWork& work) {
    applyJacobian(problem, work.data, work.direction, work.dataVector);
    applyTransposedJacobian(problem, work.data, work.dataVector, work.product);
    const double nData = problem.obs.nData;
    for (double& value : work.product) {
        value /= nData;
    }
    addNormOfTypes(problem, work, GradientMode::hessianProduct, work.direction, work.product);
    addCrossHessian(work.cross, work.direction, work.product);
    keepFree(work, work.product);
}

SolveResult solveForStep(const InversionProblem& problem, NewtonWork& work, const SolveLimits& limits,
                         std::span<const double> extraDiagonal) {
    SolveResult result;
    std::fill(work.step.begin(), work.step.end(), 0.0);
    updatePreconditioner(problem, work, extraDiagonal);
    precondition(problem, work);
    work.direction = work.preconditioned;
    double rz = dot(work, work.residual, work.preconditioned);
    const double rzStart = rz;
    result.residualNorm = std::sqrt(rz);
    const double rzEnd = limits.tolerance * limits.tolerance * rzStart;
    while (rz > rzEnd && result.steps < limits.mostSteps) {
        if (signalOfRanks() != 0) {
            result.stopped = true;
            break;
        }
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
