// What an inversion works on: the record of its options, and the record that refers to data, mesh, sensitivities,
// weights, bounds and arrays. Both are put together once, before the first evaluation.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "base/overhead_timers.h"
#include "formats/weight_file.h"
#include "inversion/regularisation.h"
#include "sensitivity/product_tables.h"
#include "sensitivity/sensitivity.h"
#include "survey/data_types.h"
#include "survey/inversion_style.h"
#include "survey/line_average.h"
#include "survey/mesh_geometry.h"
#include "survey/model_bounds.h"
#include "survey/obs_set.h"
#include "survey/positivity.h"

namespace voxlith {

// What the user asks of an inversion.
struct InversionOptions {
    std::int32_t nModelTypes = 1;
    std::array<std::string, maxFiles> modelLabel;  // at most 8 characters each; blank for none
    Positivity positivity = Positivity::notGiven;  // given, or set by the data type, before an inversion
    double multiplier = 0;                         // trade-off mu
    std::int32_t iBackground = 0;                  // 1: fit and remove the background, 2: remove BackVal
    double BackVal = 0;
    std::int32_t startIteration = 0;  // iterations done by earlier runs
    std::int32_t maxIterations = 300;
    std::int32_t outputStep = 0;       // iterations between numbered models; 0: none
    std::int32_t InversionMethod = 0;  // of the optimiser
};

// Vectors of a conjugate-gradient solution, (k, i, j, model type) each at least.
struct ConjugateGradientArrays {
    std::vector<double> rightSide, residual, direction, preconditioned, product;
};

struct InversionArrays {
    // (k, i, j, model type)
    std::vector<double> model, refModel;
    std::vector<double> delm;        // gradient of the optimiser; step of the conjugate gradients. May be longer
    std::vector<double> maxStep;     // largest steps of the optimiser; all 0: no limits
    std::vector<double> adjointSum;  // work of the gradient: transposed products, summed by model type
    std::vector<double> trialModel;  // work of the step search; in the gradient, one transposed product
    ConjugateGradientArrays conjugateGradient;
    std::vector<double> waBFGS;
    std::vector<std::int32_t> iwaBFGS;
    // (k, i, j)
    std::vector<float> regDiag, precond;
};

// A bundle of references. What the references point to changes during an inversion, as each routine says.
struct InversionProblem {
    const InversionOptions& options;
    const MeshGeometry& mesh;
    const SmoothnessWeights& weights;
    const ProductTables& products;
    Sensitivity& sensitivity;
    ObsSet& obs;
    LineIntegration& lines;
    ModelBounds& bounds;
    InversionArrays& arrays;
    OverheadTimers& timers;

    InversionStyle style() const { return sensitivity.header.inversionStyle; }
    std::size_t modelTypes() const { return static_cast<std::size_t>(options.nModelTypes); }
    std::size_t modelSize() const { return mesh.cellCount() * modelTypes(); }
    // The depth weight W of a sensitivity file where the inversion variable holds it; empty where the products apply
    // it.
    std::span<const float> foldedWeight(std::size_t file) const {
        return sensitivity.foldDepthWeight ? sensitivity.depthWeightOf(file) : std::span<const float>{};
    }
    // The regularisation of any model type.
    Regularisation regularisation() const {
        // Compatibility: norm and differences of all model types take the depth weight of the first file.
        return {mesh, weights, foldedWeight(0), hasVerticalTerms(style())};
    }
};

}  // namespace voxlith
