// The data part of the gradient, half the derivative of N phi_d: for each model type G' W_d r, with the residuals
// r = W_d (G m - d), summed over the sensitivity files and the coefficients of their products.
#pragma once

#include "inversion/inversion_problem.h"

namespace voxlith {

// Fills obs.obsWork1 (nData by component) with predData - obsData, 0 where either is missing. When the first component
// is an amplitude, the first three product rows become the residuals of its three parts.
void residualRows(const InversionProblem& problem);

// arrays.adjointSum becomes the sum of the coefficients of all terms times the transposed product of the residual rows
// (or, with amplitude data, of the product rows). Residual rows are first spread along the lines when there is an
// integration interval. Not divided by N. Overwrites arrays.trialModel, and obs.obsWork1 where residuals are spread.
void sumAdjoints(const InversionProblem& problem);

}  // namespace voxlith
