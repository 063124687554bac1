#include "run/convergence/minimum_distance.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <initializer_list>
#include <limits>
#include <span>

#include "run/convergence/newton_solve.h"
#include "survey/dummy_value.h"

namespace voxlith {

namespace {

constexpr double infinite = std::numeric_limits<double>::infinity();

// Of the reference term: mu wS / w^2, or 0 where there is none.
double referenceCurvature(const InversionProblem& problem, std::size_t n) {
    const std::size_t cells = problem.mesh.cellCount(), height = static_cast<std::size_t>(problem.mesh.nz);
    const bool hasReference =
        n % height < static_cast<std::size_t>(problem.mesh.nzl) && problem.arrays.refModel[n] > dummyValue;
    if (!hasReference) {
        return 0.0;
    }
    const std::span<const float> depthWeight = problem.foldedWeight(0);
    const double weight = depthWeight.empty() ? 1.0 : static_cast<double>(depthWeight[n % cells]);
    return problem.options.multiplier * static_cast<double>(problem.weights.wtS[n % cells]) / (weight * weight);
}

// Frees the cells that can change, takes the gradient of set Q as work.residual, and returns the share of set B: cells
// where the bounds allow at most `factor` times what the curvature of the cell alone would allow.
double splitGradient(const InversionProblem& problem, double factor, NewtonWork& work) {
    const std::span<const double> model = modelOf(problem);
    double sum = 0.0;
    for (std::size_t n = 0; n < model.size(); ++n) {
        const double slope = work.gradient[n];
        const bool changes = problem.bounds.fixedCell[n] == 0 && slope != 0.0;
        const double longest = slope > 0.0 ? model[n] - work.lower[n] : work.upper[n] - model[n];
        const double curvature = problem.options.multiplier * work.normDiagonal[n];
        const double byBounds = changes ? 2.0 * std::abs(slope) * longest : 0.0;
        const double byCurvature =
            changes && curvature > 0.0 ? slope * slope / curvature : std::numeric_limits<double>::max();
        const bool bounded = !changes || byBounds <= factor * byCurvature;
        work.isFree[n] = problem.bounds.fixedCell[n] == 0 ? 1 : 0;
        work.residual[n] = bounded ? 0.0 : slope;
        sum += bounded ? byBounds : 0.0;
    }
    return sum;
}

void setUpPreconditioner(const InversionProblem& problem, NewtonWork& work) {
    const std::size_t cells = problem.mesh.cellCount();
    std::fill(work.direction.begin(), work.direction.end(), 0.0);
    for (std::size_t type = 0; type < work.grids.size(); ++type) {
        updateMultigrid(problem.regularisation(), problem.options.multiplier,
                        std::span<const double>(problem.arrays.refModel).subspan(type * cells, cells),
                        std::span<const double>(work.direction).subspan(type * cells, cells),
                        std::span<const std::uint8_t>(work.isFree).subspan(type * cells, cells), work.grids[type]);
    }
}

// r' A^-1 r at most, from the reference term.
double limitOfRest(const InversionProblem& problem, std::span<const double> residual) {
    double sum = 0.0;
    for (std::size_t n = 0; n < residual.size(); ++n) {
        sum += residual[n] != 0.0 ? residual[n] * residual[n] / referenceCurvature(problem, n) : 0.0;
    }
    return sum;
}

// work.product = A work.direction
void applyNorm(const InversionProblem& problem, NewtonWork& work) {
    std::fill(work.product.begin(), work.product.end(), 0.0);
    addNormOfTypes(problem, work, GradientMode::hessianProduct, work.direction, work.product);
    for (std::size_t n = 0; n < work.product.size(); ++n) {
        work.product[n] = work.isFree[n] != 0 ? work.product[n] : 0.0;
    }
}

// An upper limit of r' A^-1 r for the right side work.residual. Every step gives one; the smallest counts.
double limitByNorm(const InversionProblem& problem, NewtonWork& work) {
    constexpr int mostSteps = 100;
    constexpr double negligible = 0.01;  // rest over what is summed up
    double rest = limitOfRest(problem, work.residual), least = rest;
    if (!(rest > 0.0) || !std::isfinite(rest)) {
        return rest;
    }
    setUpPreconditioner(problem, work);
    precondition(problem, work);
    work.direction = work.preconditioned;
    double rz = blockedProduct(work.residual, work.preconditioned, work.blockSums), summed = 0.0;
    for (int step = 0; step < mostSteps && rest > negligible * summed; ++step) {
        applyNorm(problem, work);
        const double curvature = blockedProduct(work.direction, work.product, work.blockSums);
        if (!(curvature > 0.0) || !std::isfinite(curvature)) {
            break;
        }
        const double length = rz / curvature;
        for (std::size_t n = 0; n < work.residual.size(); ++n) {
            work.residual[n] -= length * work.product[n];
        }
        // r' A^-1 r falls by this along conjugate directions, whatever the preconditioner.
        summed += length * rz;
        rest = limitOfRest(problem, work.residual);
        least = std::min(least, summed + rest);
        precondition(problem, work);
        const double rzNew = blockedProduct(work.residual, work.preconditioned, work.blockSums);
        for (std::size_t n = 0; n < work.direction.size(); ++n) {
            work.direction[n] = work.preconditioned[n] + rzNew / rz * work.direction[n];
        }
        rz = rzNew;
    }
    return least;
}

}  // namespace

double largestPossibleDecrease(const InversionProblem& problem, NewtonWork& work) {
    // The gradient of all cells between their bounds can be close to orthogonal to smooth changes; that of a part is
    // not.
    double least = infinite;
    for (const double factor : {1.0, 0.0}) {
        const double byBounds = splitGradient(problem, factor, work);
        least = std::min(least, byBounds + limitByNorm(problem, work));
    }
    return least;
}

}  // namespace voxlith
