// The products of the compressed sensitivity matrix with a model and with residuals, and the predicted data of a run.
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

// out (nData) = rows of file `mtx` times the transform of `model` (cells of one model type). `obsStd` is the column of
// standard deviations that divides the rows in disk mode (nData). Allocates nothing. Throws RunError on a read failure
// in disk mode.
void modelProduct(Sensitivity& sensitivity, const MeshGeometry& mesh, std::span<const double> model,
                  std::span<double> out, std::size_t mtx, std::span<const float> obsStd, OverheadTimers& timers);

// gradient (cells) = transpose of the above times `residual` (nData).
void transposeProduct(Sensitivity& sensitivity, const MeshGeometry& mesh, std::span<const double> residual,
                      std::span<double> gradient, std::size_t mtx, std::span<const float> obsStd,
                      OverheadTimers& timers);

// All products and components: `models` holds cells times model types, `predicted`, `observed`, `reference` are shaped
// like obs.obsData. Returns the sum of squared misfits over the valid data divided by nData.
double forwardData(Sensitivity& sensitivity, const MeshGeometry& mesh, const ProductTables& products, const ObsSet& obs,
                   LineIntegration& lines, std::span<const double> models, std::span<double> predicted,
                   std::span<const double> observed, std::span<const double> reference, OverheadTimers& timers);

// Turns the rows in memory into the form in which the products run fastest, once. The rows of each file are divided by
// the standard deviations in real32, where these are above 0; `obsStd` has a column (nData) for each of the first
// files, or none. Throws std::bad_alloc.
void buildBlockedRows(Sensitivity& sensitivity, std::span<const float> obsStd = {});

}  // namespace voxlith
