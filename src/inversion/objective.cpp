#include "inversion/objective.h"

#include <cstddef>

#include "inversion/regularisation.h"
#include "sensitivity/products.h"

namespace voxlith {

ObjectiveTerms calcObjective(const InversionProblem& problem, const Barrier& barrier, std::span<const double> model) {
    const double start = clockSeconds();
    ObsSet& obs = problem.obs;
    ObjectiveTerms terms;
    terms.misfit = forwardData(problem.sensitivity, problem.mesh, problem.products, obs, problem.lines, model,
                               obs.predData, obs.obsData, obs.refData, problem.timers);
    const ModelTerms modelTerms{problem.mesh, problem.weights, problem.foldedWeight(0),
                                hasVerticalTerms(problem.style()), widestInstructionSet()};
    const ModelNorms norms =
        modelNorms(modelTerms, model, std::span(problem.arrays.refModel).first(problem.modelSize()));
    terms.refNorm = norms.reference;
    terms.smoothY = norms.y;
    terms.smoothX = norms.x;
    terms.smoothZ = norms.z;
    terms.barrierNorm = calcBarrier(problem.options.positivity, barrier, problem.mesh, model);
    terms.smoothNorm = terms.smoothZ + terms.smoothY + terms.smoothX;
    problem.timers.objectiveInside += clockSeconds() - start;
    return terms;
}

double optimiserObjective(const ObjectiveTerms& terms, const Barrier& barrier, double multiplier) {
    return terms.misfit + barrier.barrierWeight * terms.barrierNorm + multiplier * (terms.refNorm + terms.smoothNorm);
}

double reportedTotal(const ObjectiveTerms& terms, double multiplier) {
    return terms.misfit + terms.barrierNorm + multiplier * (terms.refNorm + terms.smoothNorm);
}

}  // namespace voxlith
