// Cells that an inversion style fixes: the surface styles leave only the top of each column free.
#pragma once

#include <cstdint>
#include <span>

#include "survey/inversion_style.h"
#include "survey/mesh_geometry.h"
#include "survey/model_bounds.h"

namespace voxlith {

constexpr std::int32_t fixedByStyle = 2;  // code in fixedCell

// Fixes the cells below freeCellsPerColumn at their values in `model` (k, i, j, model type), for every model type.
// Their boundType and nFixedCells do not change.
void fixDeepCells(InversionStyle inversionStyle, const MeshGeometry& mesh, std::span<const double> model,
                  ModelBounds& bounds);

}  // namespace voxlith
