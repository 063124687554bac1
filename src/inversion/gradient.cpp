#include "inversion/gradient.h"

#include <algorithm>
#include <cassert>
#include <cstddef>

#include "inversion/data_gradient.h"
#include "inversion/regularisation.h"
#include "sensitivity/products.h"

namespace voxlith {

namespace {

// The depth weight of the gradient of the reference term. Types beyond the last file take the last one.
std::span<const float> referenceGradientWeight(const InversionProblem& problem, std::size_t type) {
    // Compatibility: the weight is that of the type's own file, while norm and differences take the first file's.
    const auto lastFile = static_cast<std::size_t>(problem.sensitivity.nMtx) - 1;
    return problem.foldedWeight(std::min(type, lastFile));
}

// Data part and norm in one pass over the cells.
void combineWithModel(GradientMode mode, const InversionProblem& problem, std::span<const double> vector,
                      std::span<double> out) {
    const std::size_t cells = problem.mesh.cellCount();
    const double start = clockSeconds();
    for (std::size_t type = 0; type < problem.modelTypes(); ++type) {
        const auto ofType = [&](const auto& array) { return std::span(array).subspan(type * cells, cells); };
        addRegularisationGradient(
            problem.regularisation(), ofType(vector),
            mode == GradientMode::gradient ? std::span<const double>(ofType(problem.arrays.refModel))
                                           : std::span<const double>{},
            referenceGradientWeight(problem, type), ofType(problem.bounds.fixedCell), problem.options.multiplier,
            ofType(problem.arrays.adjointSum), problem.obs.nData, ofType(out));
    }
    problem.timers.smoothness += clockSeconds() - start;
}

// The same without a norm.
void takeDataPart(const InversionProblem& problem, std::span<double> out) {
    const double nData = problem.obs.nData;
    for (std::size_t n = 0; n < out.size(); ++n) {
        out[n] = problem.bounds.fixedCell[n] != 0 ? 0.0 : problem.arrays.adjointSum[n] / nData;
    }
}

// Compatibility: the slope is -beta u^2/x, and -beta u from u on, not the derivative of phi_b; fixed cells get it too.
void addLogarithmicBarrier(GradientMode mode, const Barrier& barrier, std::span<const double> vector,
                           std::span<double> out) {
    for (std::size_t n = 0; n < out.size(); ++n) {
        // Compatibility: in a Hessian product the direction stands in the place of the model.
        const double share = std::min(1.0, vector[n] / barrier.barrierLimit);
        const double slope = barrier.barrierLimit / share;
        if (mode == GradientMode::gradient) {
            out[n] -= barrier.barrierWeight * slope;
        } else {
            out[n] += barrier.barrierWeight * (slope * slope);
        }
    }
}

void addRationalBarrier(GradientMode mode, const InversionProblem& problem, const Barrier& barrier,
                        std::span<const double> vector, std::span<double> out) {
    const double beta = barrier.barrierWeight;
    const auto cells = static_cast<double>(problem.mesh.cellCount());
    for (std::size_t n = 0; n < out.size(); ++n) {
        const double x = vector[n];
        const double sum = x * x + beta;
        // Compatibility: the second derivative is not divided by the number of cells.
        if (mode == GradientMode::gradient) {
            out[n] += 2.0 * x * beta / (sum * sum) / cells;
        } else {
            out[n] += 2.0 * beta * (beta - 3.0 * (x * x)) / (sum * sum * sum);
        }
    }
}

}  // namespace

void calcGradient(GradientMode mode, const InversionProblem& problem, const Barrier& barrier,
                  std::span<const double> vector, std::span<double> out) {
    const double start = clockSeconds();
    assert(vector.size() == problem.modelSize() && out.size() == vector.size() && out.data() != vector.data());
    ObsSet& obs = problem.obs;
    if (mode == GradientMode::gradient) {
        residualRows(problem);
    } else {
        // Compatibility: the reference data are added to G p, as in any forward run.
        forwardData(problem.sensitivity, problem.mesh, problem.products, obs, problem.lines, vector, obs.obsWork1,
                    obs.obsData, obs.refData, problem.timers);
    }
    sumAdjoints(problem);
    if (problem.options.multiplier > 0.0) {
        combineWithModel(mode, problem, vector, out);
    } else {
        takeDataPart(problem, out);
    }
    if (barrier.barrierWeight > 0.0) {
        if (isStrict(problem.options.positivity)) {
            addLogarithmicBarrier(mode, barrier, vector, out);
        } else {
            addRationalBarrier(mode, problem, barrier, vector, out);
        }
    }
    problem.timers.gradientInside += clockSeconds() - start;
}

}  // namespace voxlith
