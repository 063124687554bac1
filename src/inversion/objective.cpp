#include "inversion/objective.h"

#include <cstddef>

#include "files/dummy_value.h"
#include "inversion/smoothness_terms.h"
#include "sensitivity/products.h"

namespace voxlith {

double referenceTerm(const ObjectiveInputs& inputs, std::span<const double> model) {
    const auto height = static_cast<std::size_t>(inputs.mesh.nz);
    const auto used = static_cast<std::size_t>(inputs.mesh.nzl);
    const std::size_t cells = inputs.mesh.cellCount();
    const bool fold = inputs.sensitivity.foldDepthWeight;
    const float* wtS = inputs.weights.wtS.data();
    const float* depthWeight = inputs.sensitivity.depthWeight.data();
    double sum = 0.0;
    for (std::size_t type = 0; type < inputs.modelTypes(); ++type) {
        const double* x = model.data() + type * cells;
        const double* reference = inputs.refModel.data() + type * cells;
        for (std::size_t column = 0; column < cells; column += height) {
            for (std::size_t n = column; n < column + used; ++n) {
                if (!(reference[n] > dummyValue))
                    continue;
                double difference = x[n] - reference[n];
                if (fold)
                    difference /= static_cast<double>(depthWeight[n]);
                sum += static_cast<double>(wtS[n]) * (difference * difference);
            }
        }
    }
    return sum;
}

ObjectiveTerms calcObjective(const ObjectiveInputs& inputs, const Barrier& barrier, std::span<const double> model) {
    const double start = clockSeconds();
    ObsSet& obs = inputs.obs;
    const bool fold = inputs.sensitivity.foldDepthWeight;
    const std::span<const float> depthWeight = fold ? inputs.sensitivity.depthWeightOf(0) : std::span<const float>{};

    ObjectiveTerms terms;
    terms.misfit = forwardData(inputs.sensitivity, inputs.mesh, inputs.products, obs, inputs.lines, model, obs.predData,
                               obs.obsData, obs.refData, inputs.timers);
    terms.refNorm = referenceTerm(inputs, model);
    terms.barrierNorm = calcBarrier(inputs.positivityFlag, barrier, inputs.mesh, model);
    terms.smoothY = roughnessY(inputs.mesh, model, depthWeight, inputs.weights.wtN);
    terms.smoothX = roughnessX(inputs.mesh, model, depthWeight, inputs.weights.wtE);
    if (hasVerticalTerms(inputs.inversionStyle))
        terms.smoothZ = roughnessZ(inputs.mesh, model, depthWeight, inputs.weights.wtZ);
    terms.smoothNorm = terms.smoothZ + terms.smoothY + terms.smoothX;
    terms.focusNorm = focusTerm(inputs.focus, model.first(inputs.mesh.cellCount()), depthWeight);

    inputs.timers.objectiveInside += clockSeconds() - start;
    return terms;
}

double optimiserObjective(const ObjectiveTerms& terms, const Barrier& barrier, double multiplier) {
    return terms.misfit + barrier.barrierWeight * terms.barrierNorm +
           multiplier * (terms.refNorm + terms.smoothNorm + static_cast<double>(terms.focusNorm));
}

double lineSearchObjective(const ObjectiveTerms& terms, double multiplier) {
    return terms.misfit + terms.barrierNorm +
           multiplier * (terms.refNorm + terms.smoothNorm + static_cast<double>(terms.focusNorm));
}

double reportedTotal(const ObjectiveTerms& terms, double multiplier) {
    return terms.misfit + terms.barrierNorm + multiplier * (terms.refNorm + terms.smoothNorm);
}

}  // namespace voxlith
