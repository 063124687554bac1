// The barrier that keeps a model positive (Li and Oldenburg 2003): its value, its parameters at the start, and their
// change after each conjugate-gradient step. With strict positivity
//
//   phi_b = -2 beta / N  sum of ln(x/u)  over the cells with 0 < x/u < 1,
//
// otherwise phi_b = 1/N  sum of x^2/(x^2 + beta)  over the valid cells. N is the number of cells of one model type down
// to layer nzl. No run gives beta a value above 0 without strict positivity.
#pragma once

#include <cstdint>
#include <span>

#include "survey/mesh_geometry.h"
#include "survey/positivity.h"

namespace voxlith {

struct Barrier {
    double barrierWeight = 0;  // beta; 0 switches the barrier off
    double barrierLimit = 0;   // u, in units of the inversion variable; cells above it are not held back
};

// phi_b of `model` (k, i, j, model type), whose layers count down to nzl. 0 when beta is not above 0.
double calcBarrier(Positivity positivity, const Barrier& barrier, const MeshGeometry& mesh,
                   std::span<const double> model);

// The parameters before the first iteration; beta is 0 unless positivity is strict.
Barrier startBarrier(Positivity positivity, const MeshGeometry& mesh, std::span<const double> model);

// Lowers beta, or sets it anew when the barrier outweighs the data misfit, and lifts u with the model. Returns the
// barrier term with the new parameters.
double updateBarrier(Positivity positivity, Barrier& barrier, const MeshGeometry& mesh, std::span<const double> model,
                     double misfit);

}  // namespace voxlith
