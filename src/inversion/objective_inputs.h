// What the objective and its gradient read, and no iteration changes: one bundle, made once before the first
// evaluation. The arrays behind the references that do change (predictions, residual rows, work arrays of the products)
// are named at each routine.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "base/overhead_timers.h"
#include "formats/weight_file.h"
#include "inversion/focus_term.h"
#include "sensitivity/product_tables.h"
#include "sensitivity/sensitivity.h"
#include "survey/line_average.h"
#include "survey/mesh_geometry.h"
#include "survey/obs_set.h"

namespace voxlith {

struct ObjectiveInputs {
    Sensitivity& sensitivity;
    const MeshGeometry& mesh;
    const ProductTables& products;
    ObsSet& obs;
    LineIntegration& lines;
    const SmoothnessWeights& weights;
    std::span<const double> refModel;         // (k, i, j, model type)
    std::span<const std::int32_t> fixedCell;  // (k, i, j, model type)
    OverheadTimers& timers;
    std::int32_t nModelTypes = 1;
    InversionStyle inversionStyle = InversionStyle::standard;
    Positivity positivity = Positivity::unconstrained;
    double multiplier = 1;
    FocusSettings focus{};

    std::size_t modelTypes() const { return static_cast<std::size_t>(nModelTypes); }
    std::size_t modelSize() const { return mesh.cellCount() * modelTypes(); }
};

}  // namespace voxlith
