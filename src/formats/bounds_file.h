// Reads the bounds line of the control file: null, two numbers, or a file of pairs.
#pragma once

#include <cstdint>
#include <string>

#include "base/messages.h"
#include "survey/mesh_geometry.h"
#include "survey/model_bounds.h"

namespace voxlith {

// `name` is the text of the control line. The arrays of `bounds` have their sizes (cells times nModelTypes);
// nFixedCells is counted from 0. Ends the run through fatalStop and plainStop.
void readBoundsFile(Messages& messages, Positivity positivity, const std::string& name, const MeshGeometry& mesh,
                    std::int32_t nModelTypes, ModelBounds& bounds);

}  // namespace voxlith
