#include "inversion/objective.h"

#include <cassert>
#include <cstddef>

#include "inversion/regularisation.h"
#include "sensitivity/products.h"

namespace voxlith {

ObjectiveTerms calcObjective(const InversionProblem& problem, const Barrier& barrier, std::span<const double> model) {
    const double start = clockSeconds();
    assert(model.size() == problem.modelSize() && problem.arrays.refModel.size() >= model.size());
    ObsSet& obs = problem.obs;
    ObjectiveTerms terms;
    terms.misfit = forwardData(problem.sensitivity, problem.mesh, problem.products, obs, problem.lines, model,
                               obs.predData, obs.obsData, obs.refData, problem.timers);
    // One running sum per term through all model types: the order of summation is part of the result.
    ModelNorms norms;
    const std::size_t cells = problem.mesh.cellCount();
    for (std::size_t type = 0; type < problem.modelTypes(); ++type) {
        addModelNorms(problem.regularisation(), model.subspan(type * cells, cells),
                      std::span(problem.arrays.refModel).subspan(type * cells, cells), norms);
    }
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
    // Compatibility: the barrier term holds its weight beta already, which thus enters squared.
    return terms.misfit + barrier.barrierWeight * terms.barrierNorm + multiplier * (terms.refNorm + terms.smoothNorm);
}

double reportedTotal(const ObjectiveTerms& terms, double multiplier) {
    return terms.misfit + terms.barrierNorm + multiplier * (terms.refNorm + terms.smoothNorm);
}

}  // namespace voxlith
