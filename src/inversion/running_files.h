// Names and writing of the files that a run leaves at every iteration, so that a stopped run loses nothing.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

#include "base/text_line.h"
#include "sensitivity/sensitivity.h"
#include "survey/data_types.h"
#include "survey/mesh_geometry.h"
#include "survey/obs_set.h"

namespace voxlith {

// What the names of models depend on. The first data type gives the suffix for all model types.
struct ModelNaming {
    DataType dataType = DataType::gz;
    std::int32_t nModelTypes = 1;
    const std::array<std::string, maxFiles>& modelLabel;
};

// "voxlith.kap" (magnetic) or "voxlith.rho"; with several model types "voxlith_" and the label, or the number in two
// digits when the label is blank. `modelType` counts from 0.
TextLine runningModelName(const ModelNaming& naming, std::size_t modelType);

// "voxlith_iter_", the iteration in as many digits as `maxIterations` asks for, with several model types the label or
// the number in two digits, and ".sus" (magnetic) or ".den".
TextLine iterationModelName(const ModelNaming& naming, std::int32_t iteration, std::int32_t maxIterations,
                            std::size_t modelType);

// How models are written: see writeModelFile.
struct ModelWriting {
    const MeshGeometry& mesh;
    const Sensitivity& sensitivity;
    InversionStyle inversionStyle = InversionStyle::standard;
};

// Each allocates nothing and throws RunError when a file cannot be written.
void writeRunningFiles(const ModelWriting& writing, const ModelNaming& naming, const ObsSet& obs,
                       std::span<const double> model);
void writeIterationModels(const ModelWriting& writing, const ModelNaming& naming, std::int32_t iteration,
                          std::int32_t maxIterations, std::span<const double> model);
void writeGradientFile(const ModelWriting& writing, std::span<const double> gradient);

}  // namespace voxlith
