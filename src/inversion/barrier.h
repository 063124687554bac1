// The barrier that keeps a model positive: its value, its parameters at the start, and their change after each
// conjugate-gradient step.
#pragma once

#include <cstdint>
#include <span>

#include "survey/mesh_geometry.h"
#include "survey/positivity.h"

namespace voxlith {

struct Barrier {
    double barrierWeight = 0;  // beta; 0 switches the barrier off
    double barrierLimit = 0;   // u, the upper end of the logarithm
};

// With strict positivity: the mean of -2 beta ln(x/u) over the cells with 0 < x/u < 1. Otherwise: the mean
// of x^2/(x^2 + beta) over the valid cells. The mean divides by the cells of nzl layers of one model type; `model` (k,
// i, j, model type) is taken down to nzl. 0 when beta is not above 0.
double calcBarrier(Positivity positivity, const Barrier& barrier, const MeshGeometry& mesh,
                   std::span<const double> model);

// The parameters before the first iteration; beta is 0 unless positivity is strict.
Barrier startBarrier(Positivity positivity, const MeshGeometry& mesh, std::span<const double> model);

// Lowers beta, or sets it anew when the barrier outweighs the data misfit, and lifts u with the model. Returns the
// barrier term with the new parameters.
double updateBarrier(Positivity positivity, Barrier& barrier, const MeshGeometry& mesh, std::span<const double> model,
                     double misfit);

}  // namespace voxlith
