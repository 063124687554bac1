// What the inversion engine works on: its arrays, its settings, and the parts of the run's record that it reads and
// changes.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "base/line_file.h"
#include "base/messages.h"
#include "base/overhead_timers.h"
#include "formats/weight_file.h"
#include "sensitivity/product_tables.h"
#include "sensitivity/sensitivity.h"
#include "survey/data_types.h"
#include "survey/line_average.h"
#include "survey/mesh_geometry.h"
#include "survey/model_bounds.h"
#include "survey/obs_set.h"

namespace voxlith {

struct InversionArrays {
    // (k, i, j, model type)
    std::vector<double> model, refModel, modelBest;
    std::vector<double> delm;                   // model-sized or (nData, nMtx), whichever holds more
    std::vector<double> modelWork;              // adjoint sums
    std::vector<double> lbfgsWork;              // trial model; adjoint of one product
    std::array<std::vector<double>, 5> cgWork;  // each model-sized at least
    std::vector<double> waBFGS;
    std::vector<std::int32_t> iwaBFGS;
    // (k, i, j)
    std::array<std::vector<float>, 2> preconWork;  // regDiag and precond
};

struct LoopSettings {
    std::int32_t mtxVersion = 0;  // of the last file read
    InversionStyle inversionStyle = InversionStyle::standard;
    Positivity positivity = Positivity::unconstrained;
    double multiplier = 1;
    std::int32_t iBackground = 0;
    double BackVal = 0;
    std::int32_t maxIterations = 300;
    std::int32_t startIteration = 0;
    std::int32_t outputStep = 0;
    std::int32_t InversionMethod = 0;
};

struct InversionProblem {
    Messages& messages;
    LineFile& progressTable;  // voxlith.aux, open
    ObsSet& obs;
    const MeshGeometry& mesh;
    ModelBounds& bounds;
    const SmoothnessWeights& weights;
    Sensitivity& sensitivity;
    const ProductTables& products;
    LineIntegration& lines;
    InversionArrays& arrays;
    OverheadTimers& timers;
    std::int32_t nModelTypes = 1;
    const std::array<std::string, maxFiles>& modelLabel;  // at most 8 characters each; blank for none
};

}  // namespace voxlith
