// The regularisation of one model type: the model norm, its derivatives, and the diagonals that preconditioners need.
//
//   phi_m(x) = sum over cells wS ((x - r)/W)^2  +  sum over pairs w ((x1/W1 - x2/W2)/h)^2
//
//   x   inversion variable (k, i, j)
//   r   reference model in the units of x; a cell without one (a dummy) has no reference term
//   W   depth weight of the cell; 1 throughout where the products apply it and the variable does not hold it
//   wS  weight of the reference term, SmoothnessWeights::wtS
//   w   weight of the pair, that of its first cell: wtE along x, wtN along y, wtZ along z
//   h   distance of the two cell centres, m
//
// The reference term and pairs along x and y count down to layer nzl; pairs along z count in all nz layers, or not at
// all (surface styles). Weights are real32, all sums real64. It is the norm of Li and Oldenburg (1996, 1998), discrete.
//
// There are two derivatives. With D = diag(1/W), difference operators G (1/h times +1, -1) and M = diag(w):
//   exact       1/2 dphi_m/dx = D wS D (x - r) + D G'MG D x
//   compatible  D' wS (x - r) + (h G)'MG D x, with D' = diag(1/W) of the model type's own file
//
// Compatibility: `voxlith` follows the compatible form, which divides differences by h once and not by W again.
// Where nodes fall along an axis, h is negative, and the differences change their sign.
#pragma once

#include <cstdint>
#include <span>

#include "formats/weight_file.h"
#include "inversion/column_kernels.h"
#include "survey/mesh_geometry.h"

namespace voxlith {

enum class GradientMode {
    gradient,       // the vector is a model
    hessianProduct  // the vector is any direction
};

enum class NormForm { exact, compatible };

struct Regularisation {
    const MeshGeometry& mesh;
    const SmoothnessWeights& weights;
    std::span<const float> depthWeight;  // W (k, i, j); empty: 1 throughout
    bool vertical = true;                // with pairs along z
};

// Adds the reference term and the terms of each axis. All models are (k, i, j).
void addModelNorms(const Regularisation& regularisation, std::span<const double> model,
                   std::span<const double> refModel, ModelNorms& norms);

// out += scale times half the exact derivative at `vector`, or, for a Hessian product, times half the second derivative
// by `vector`; `refModel` then only says which cells have a reference. `out` is another array than `vector`.
void addNormGradient(const Regularisation& regularisation, GradientMode mode, std::span<const double> vector,
                     std::span<const double> refModel, double scale, std::span<double> out);

// out += scale times the diagonal of the Hessian product of a form. In the compatible form every cell down to nzl has a
// reference term, with the depth weight W.
void addNormDiagonal(const Regularisation& regularisation, NormForm form, std::span<const double> refModel,
                     double scale, std::span<double> out);

// The compatible form in one pass with the data part: out = multiplier * gradient + adjoint / nData, 0 where fixedCell
// is not 0. A cell without a reference is drawn towards 0; so are all cells when `refModel` is empty. `referenceWeight`
// (k, i, j) is the W of D', empty when `depthWeight` is.
void addRegularisationGradient(const Regularisation& regularisation, std::span<const double> model,
                               std::span<const double> refModel, std::span<const float> referenceWeight,
                               std::span<const std::int32_t> fixedCell, double multiplier,
                               std::span<const double> adjoint, double nData, std::span<double> out);

// diagonal += wS/W^2 of each cell, and w/W^2 of each pair for both its cells, W being that of the first cell. It counts
// all layers and all axes, whatever the style. All arithmetic is real32.
void addPreconditionerDiagonal(const Regularisation& regularisation, std::span<float> diagonal);

}  // namespace voxlith
