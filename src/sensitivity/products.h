// The products of the compressed sensitivity matrix with a model and with residuals, and the predicted data of a run.
//
// Each sensitivity file holds a matrix G (nData by cells, data unit per model unit) in compressed form (Li and
// Oldenburg 2003): W_d G W^-1 ~ R T P, with
//
//   W    depth weight of the cells, diagonal
//   P    the cells (k, i, j) at their positions in the padded mesh (npz, npx, npy), zeros elsewhere
//   T    orthonormal wavelet transform in three dimensions, so its transpose is its inverse
//   R    sparse rows of the coefficients that were kept, real32, divided by the standard deviations, W_d
//
//   forward      R T P V x           V = 1 where the variable is x = W m (foldDepthWeight), else V = W and x = m
//   transposed   V P' T' R' r
//
// A product costs one transform and one pass over the coefficients. Sums are real64, in an order that depends on the
// rows alone.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "base/overhead_timers.h"
#include "sensitivity/product_tables.h"
#include "sensitivity/sensitivity.h"
#include "survey/line_average.h"
#include "survey/mesh_geometry.h"
#include "survey/obs_set.h"

namespace voxlith {

// out (nData) = forward product of file `mtx` (from 0) with `model` (cells of one model type). `obsStd` (nData) divides
// the rows in disk mode. Overwrites paddedWork and waveletWork. Allocates nothing. Throws RunError on a read failure in
// disk mode.
void modelProduct(Sensitivity& sensitivity, const MeshGeometry& mesh, std::span<const double> model,
                  std::span<double> out, std::size_t mtx, std::span<const float> obsStd, OverheadTimers& timers);

// gradient (cells) = transposed product with `residual` (nData); the rest as above.
void transposeProduct(Sensitivity& sensitivity, const MeshGeometry& mesh, std::span<const double> residual,
                      std::span<double> gradient, std::size_t mtx, std::span<const float> obsStd,
                      OverheadTimers& timers);

// All products and components: `models` (cells by model type), `predicted`, `observed` and `reference` (nData by
// component), all data divided by standard deviations. Overwrites productResponse, and `predicted` with the products
// combined to components, plus the reference data. Returns phi_d, the sum of squared misfits over the valid data
// divided by nData.
double forwardData(Sensitivity& sensitivity, const MeshGeometry& mesh, const ProductTables& products, const ObsSet& obs,
                   LineIntegration& lines, std::span<const double> models, std::span<double> predicted,
                   std::span<const double> observed, std::span<const double> reference, OverheadTimers& timers);

// Turns the rows in memory into blocked rows, for which the products run fastest, once. The rows of each file are
// divided by the standard deviations in real32, where these are above 0; `obsStd` has a column (nData) for each of the
// first files, or none. Several ranks may have to load theirs once more. Throws std::bad_alloc, then RunError, too.
void buildBlockedRows(Sensitivity& sensitivity, std::span<const float> obsStd = {});

}  // namespace voxlith
