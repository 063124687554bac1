// Reads the smoothness weights and turns them into the factors of the model norm.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "base/messages.h"
#include "survey/inversion_style.h"
#include "survey/mesh_geometry.h"

namespace voxlith {

struct Alphas {
    float alphaS = 0, alphaE = 0, alphaN = 0, alphaZ = 0;
};

struct SmoothnessWeights {
    // By (k, i, j), shared by all model types; the last plane of the difference weights is not used
    std::vector<float> wtS;  // smallest model
    std::vector<float> wtE;  // x differences
    std::vector<float> wtN;  // y differences
    std::vector<float> wtZ;  // z differences
};

// `names` holds 1 or 4 texts of the control line. Alphas of directions without differences become 0. The arrays of
// `weights` have their sizes. Missing files end the run through fatalStop, unreadable ones with a RunError.
void readWeightFiles(Messages& messages, InversionStyle inversionStyle, Alphas& alphas, std::int32_t nWeightFiles,
                     std::span<const std::string> names, const MeshGeometry& mesh, SmoothnessWeights& weights);

}  // namespace voxlith
