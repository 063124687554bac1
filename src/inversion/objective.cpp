#include "inversion/objective.h"

#include <cstddef>

#include "inversion/regularisation.h"
#include "sensitivity/products.h"

namespace voxlith {

ObjectiveTerms calcObjective(const ObjectiveInputs& inputs, const Barrier& barrier, std::span<const double> model) {
    const double start = clockSeconds();
    ObsSet& obs = inputs.obs;
    const bool fold = inputs.sensitivity.foldDepthWeight;
    const std::span<const float> depthWeight = fold ? inputs.sensitivity.depthWeightOf(0) : std::span<const float>{};

    ObjectiveTerms terms;
    terms.misfit = forwardData(inputs.sensitivity, inputs.mesh, inputs.products, obs, inputs.lines, model, obs.predData,
                               obs.obsData, obs.refData, inputs.timers);
    const ModelTerms modelTerms{inputs.mesh, inputs.weights, depthWeight, hasVerticalTerms(inputs.inversionStyle),
                                widestInstructionSet()};
    const ModelNorms norms = modelNorms(modelTerms, model, inputs.refModel);
    terms.refNorm = norms.reference;
    terms.smoothY = norms.y;
    terms.smoothX = norms.x;
    terms.smoothZ = norms.z;
    terms.barrierNorm = calcBarrier(inputs.positivity, barrier, inputs.mesh, model);
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
