// The data part of the gradient: residual rows, and the sums of their adjoint products by model type.
#pragma once

#include "inversion/inversion_problem.h"

namespace voxlith {

// Fills obs.obsWork1 with predData - obsData, 0 where either is missing. When the first component is an amplitude, the
// first three product rows become the residuals of its three parts.
void residualRows(const InversionProblem& problem);

// arrays.adjointSum becomes the sum of the coefficients of all terms times the adjoint of their product, for the rows
// of residuals (or, with amplitude data, the product rows) as they stand. Residual rows are first spread along the
// lines when there is an integration interval. Not divided by the number of data. Overwrites arrays.trialModel.
void sumAdjoints(const InversionProblem& problem);

}  // namespace voxlith
