#include "inversion/gradient.h"

#include <algorithm>
#include <cstddef>

#include "inversion/data_gradient.h"
#include "inversion/regularisation.h"
#include "sensitivity/products.h"

namespace voxlith {

namespace {

// The depth weight of one sensitivity file; empty when the products apply the weight.
std::span<const float> foldedWeight(const ObjectiveInputs& inputs, std::size_t file) {
    return inputs.sensitivity.foldDepthWeight ? inputs.sensitivity.depthWeightOf(file) : std::span<const float>{};
}

// The weight of the model type's own file; types beyond the last file take the last one. Only the pull of the reference
// model takes it: the differences, and the objective throughout, take the weight of the first file for all types.
std::span<const float> referenceGradientWeight(const ObjectiveInputs& inputs, std::size_t type) {
    const auto lastFile = static_cast<std::size_t>(inputs.sensitivity.nMtx) - 1;
    return foldedWeight(inputs, std::min(type, lastFile));
}

// The model part with the trade-off, and the mean of the data part; fixed cells do not move.
void combineWithModel(GradientMode mode, const ObjectiveInputs& inputs, std::span<const double> vector,
                      std::span<const double> adjoint, std::span<double> out) {
    const std::size_t cells = inputs.mesh.cellCount();
    const double start = clockSeconds();
    for (std::size_t type = 0; type < inputs.modelTypes(); ++type) {
        const auto reference =
            mode == GradientMode::gradient ? inputs.refModel.subspan(type * cells, cells) : std::span<const double>{};
        const ModelTerms terms{inputs.mesh, inputs.weights, foldedWeight(inputs, 0),
                               hasVerticalTerms(inputs.inversionStyle), widestInstructionSet()};
        addRegularisationGradient(terms, vector.subspan(type * cells, cells), reference,
                                  referenceGradientWeight(inputs, type), inputs.fixedCell.subspan(type * cells, cells),
                                  inputs.multiplier, adjoint.subspan(type * cells, cells), inputs.obs.nData,
                                  out.subspan(type * cells, cells));
    }
    inputs.timers.smoothness += clockSeconds() - start;
}

void takeDataPart(const ObjectiveInputs& inputs, std::span<const double> adjoint, std::span<double> out) {
    const double nData = inputs.obs.nData;
    for (std::size_t n = 0; n < out.size(); ++n)
        out[n] = inputs.fixedCell[n] != 0 ? 0.0 : adjoint[n] / nData;
}

// Held cells are not looked at here: the barrier gradients on them too.
void addLogarithmicBarrier(GradientMode mode, const Barrier& barrier, std::span<const double> vector,
                           std::span<double> out) {
    for (std::size_t n = 0; n < out.size(); ++n) {
        const double share = std::min(1.0, vector[n] / barrier.barrierLimit);
        const double slope = barrier.barrierLimit / share;
        if (mode == GradientMode::gradient)
            out[n] -= barrier.barrierWeight * slope;
        else
            out[n] += barrier.barrierWeight * (slope * slope);
    }
}

void addRationalBarrier(GradientMode mode, const ObjectiveInputs& inputs, const Barrier& barrier,
                        std::span<const double> vector, std::span<double> out) {
    const double beta = barrier.barrierWeight;
    const auto cells = static_cast<double>(inputs.mesh.cellCount());
    for (std::size_t n = 0; n < out.size(); ++n) {
        const double x = vector[n];
        const double sum = x * x + beta;
        if (mode == GradientMode::gradient)
            out[n] += 2.0 * x * beta / (sum * sum) / cells;
        else
            out[n] += 2.0 * beta * (beta - 3.0 * (x * x)) / (sum * sum * sum);
    }
}

}  // namespace

void calcGradient(GradientMode mode, const ObjectiveInputs& inputs, const Barrier& barrier,
                  std::span<const double> vector, const GradientWork& work, std::span<double> out) {
    const double start = clockSeconds();
    ObsSet& obs = inputs.obs;
    if (mode == GradientMode::gradient)
        residualRows(inputs);
    else
        forwardData(inputs.sensitivity, inputs.mesh, inputs.products, obs, inputs.lines, vector, obs.obsWork1,
                    obs.obsData, obs.refData, inputs.timers);
    sumAdjoints(inputs, work);
    if (inputs.multiplier > 0.0)
        combineWithModel(mode, inputs, vector, work.adjointWork, out);
    else
        takeDataPart(inputs, work.adjointWork, out);
    if (barrier.barrierWeight > 0.0) {
        if (isStrict(inputs.positivity))
            addLogarithmicBarrier(mode, barrier, vector, out);
        else
            addRationalBarrier(mode, inputs, barrier, vector, out);
    }
    inputs.timers.gradientInside += clockSeconds() - start;
}

}  // namespace voxlith
