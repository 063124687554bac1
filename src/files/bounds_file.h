// Reads the bounds line of the control file: null, two numbers, or a file of pairs.
#pragma once

#include <cstdint>
#include <string>

#include "files/mesh_geometry.h"
#include "files/model_bounds.h"
#include "text/messages.h"

namespace voxlith {

// `name` is the text of the control line. The arrays of `bounds` have their sizes already (cells times nModelTypes);
// nFixedCells starts anew. Ends the run through the stops told with each message.
void readBoundsFile(Messages& messages, std::int32_t positivityFlag, const std::string& name, const MeshGeometry& mesh,
                    std::int32_t nModelTypes, ModelBounds& bounds);

}  // namespace voxlith
