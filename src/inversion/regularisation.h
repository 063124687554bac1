// What the model by itself adds to the objective, and the gradients that the gradient takes for its derivative:
// distance from the reference model and differences between neighbouring cells, all in one pass over the columns.
//
// Throughout, models are (k, i, j, model type), weights are (k, i, j), and the weight of a pair is that of its first
// cell. A value is x/W, or x when `depthWeight` is empty; `depthWeight` (k, i, j) serves all model types of the call.
// Pairs along y and x and the reference term are taken down to nzl, pairs along z over all of nz, and not at all for
// the surface styles.
#pragma once

#include <cstdint>
#include <span>

#include "formats/weight_file.h"
#include "inversion/column_kernels.h"
#include "survey/mesh_geometry.h"

namespace voxlith {

struct ModelTerms {
    const MeshGeometry& mesh;
    const SmoothnessWeights& weights;
    std::span<const float> depthWeight;
    bool vertical = true;  // with differences along z
    InstructionSet instructions = InstructionSet::plain;
};

// Along each axis the sum over the pairs of w ((v1 - v2)/distance)^2, the distance being half the sum of the two
// widths; and the sum of wtS ((x - r)/W)^2 over the cells that have a reference in `refModel`.
ModelNorms modelNorms(const ModelTerms& terms, std::span<const double> model, std::span<const double> refModel);

// out = multiplier * gradients + adjoint / nData for one model type, 0 where fixedCell is not 0. A pair gives w (v1 -
// v2)/distance to its first cell and takes it from the second. The difference is divided by the distance once and not
// by W again: this is not the derivative of the norms where widths or weights differ from 1, and stays so, since step
// lengths and models of earlier versions rest on it. The reference gradients by wtS (x - r)/W, a cell without one
// towards 0; so do all cells when `refModel` is empty. The W of this gradient is `referenceWeight` (k, i, j), which is
// empty when `depthWeight` is.
void addRegularisationGradient(const ModelTerms& terms, std::span<const double> model, std::span<const double> refModel,
                               std::span<const float> referenceWeight, std::span<const std::int32_t> fixedCell,
                               double multiplier, std::span<const double> adjoint, double nData, std::span<double> out);

}  // namespace voxlith
