// The diagonal preconditioner of the conjugate-gradient steps, built once before the first evaluation.
#pragma once

#include "inversion/inversion_problem.h"

namespace voxlith {

// regDiag (k, i, j): for every sensitivity file the reference weight of the cell and the weights of all pairs along y,
// x and z in which it stands, each over the square of the first cell's depth weight when that is folded. All arithmetic
// is real32. Pairs along z count whatever the inversion style.
void buildRegularisationDiagonal(const MeshGeometry& mesh, const SmoothnessWeights& weights,
                                 const Sensitivity& sensitivity, std::span<float> regDiag);

// precond (k, i, j) = 1/sqrt(multiplier regDiag W^2 + gtgdiag), without W^2 when the weight is not folded; W and
// gtgdiag are the first file's. A cell that nothing holds gets infinity. Serves all model types.
void buildPreconditioner(const Sensitivity& sensitivity, double multiplier, std::span<const float> regDiag,
                         std::span<float> precond);

}  // namespace voxlith
