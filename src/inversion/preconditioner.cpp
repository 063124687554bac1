#include "inversion/preconditioner.h"

#include <algorithm>
#include <cassert>
#include <cmath>
#include <cstddef>
#include <span>

#include "inversion/regularisation.h"

namespace voxlith {

void buildPreconditioner(const InversionProblem& problem) {
    const Sensitivity& sensitivity = problem.sensitivity;
    const std::span<float> regDiag = problem.arrays.regDiag, precond = problem.arrays.precond;
    assert(regDiag.size() == problem.mesh.cellCount() && precond.size() == regDiag.size());
    std::fill(regDiag.begin(), regDiag.end(), 0.0F);
    for (std::size_t file = 0; file < static_cast<std::size_t>(sensitivity.nMtx); ++file) {
        addPreconditionerDiagonal({problem.mesh, problem.weights, problem.foldedWeight(file)}, regDiag);
    }
    for (std::size_t cell = 0; cell < precond.size(); ++cell) {
        double diagonal = problem.options.multiplier * static_cast<double>(regDiag[cell]);
        if (sensitivity.foldDepthWeight) {
            const auto depthWeight = static_cast<double>(sensitivity.depthWeight[cell]);
            diagonal *= depthWeight * depthWeight;
        }
        // Compatibility: the inverse root, not the inverse, of the diagonal.
        precond[cell] = static_cast<float>(1.0 / std::sqrt(diagonal + sensitivity.gtgdiag[cell]));
    }
}

}  // namespace voxlith
