// The one record of a run. There is one, it is never copied, and its arrays live from the start of the run to its end.
//
// Index convention of the whole program: arrays in memory count from 0, files and messages count from 1. Cell arrays
// run with z fastest (k), then x (i), then y (j); the model type or the sensitivity file (t) is the slowest index:
//   position of (k, i, j, t) = k + nz (i + nx (j + ny t)).
// Data arrays run station by station within a component, component by component.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

#include "base/line_file.h"
#include "base/messages.h"
#include "base/overhead_timers.h"
#include "driver/calendar.h"
#include "driver/control_values.h"
#include "formats/weight_file.h"
#include "inversion/inversion_problem.h"
#include "sensitivity/product_tables.h"
#include "sensitivity/sensitivity.h"
#include "survey/line_average.h"
#include "survey/mesh_geometry.h"
#include "survey/model_bounds.h"
#include "survey/obs_set.h"

namespace voxlith {

constexpr std::string_view programVersion = "2.01";

struct RunState {
    // Output channels
    Messages messages;
    LineFile progressTable;    // voxlith.aux
    LineFile lineSearchTable;  // voxlith.lsv; open only when iMode is -1

    // What the user asked for
    ControlValues control;
    DateTime startedAt;

    // The survey, the mesh and the sensitivities
    ObsSet obs;
    MeshGeometry mesh;
    Sensitivity sensitivity;
    ProductTables products;
    LineIntegration lines;

    // The model, its bounds and the weights of its norm
    ModelBounds bounds;
    SmoothnessWeights weights;
    InversionArrays arrays;

    // Progress and planning
    double memoryTally = 0;  // bytes of planned memory
    OverheadTimers timers;
};

}  // namespace voxlith
