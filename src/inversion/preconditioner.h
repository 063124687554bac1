// The diagonal preconditioner of the conjugate-gradient steps, built once before the first evaluation.
#pragma once

#include "inversion/inversion_problem.h"

namespace voxlith {

// Fills arrays.regDiag (k, i, j), the diagonal of the regularisation summed over the sensitivity files, each with its
// own depth weight where the variable holds it, in real32; and
//   arrays.precond (k, i, j) = 1/sqrt(mu regDiag W^2 + diag(G'G)),
// without W^2 where the variable does not hold the weight; W and diag(G'G) are the first file's. A cell with neither
// term gets infinity.
void buildPreconditioner(const InversionProblem& problem);

}  // namespace voxlith
