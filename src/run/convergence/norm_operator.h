// The exact derivative of the model norm, the same as addNormGradient (inversion/regularisation.h), fast enough for
// every step of a conjugate-gradient solution: each cell collects the terms of its six neighbours, so that cells can be
// computed in any order.
#pragma once

#include <span>

#include "inversion/regularisation.h"

namespace voxlith {

// out += scale times half the exact derivative at `vector`, or times half the second derivative by `vector`; all
// (k, i, j). `scaled` is work: a copy of the vector in physical units. Sums agree with addNormGradient to rounding.
void addNormProduct(const Regularisation& regularisation, GradientMode mode, std::span<const double> vector,
                    std::span<const double> refModel, double scale, std::span<double> scaled, std::span<double> out);

}  // namespace voxlith
