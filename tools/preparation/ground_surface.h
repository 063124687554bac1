// The ground below a surface of known elevations. A cell is inactive when its centre lies above the surface (by more
// than a millionth of its thickness, so that a centre on the surface is active whatever the rounding).
#pragma once

#include <cstddef>
#include <span>

#include "forward/ground.h"
#include "preparation/topography.h"

namespace voxlith {

Ground groundBelow(const Topography& topography, const MeshGeometry& mesh, std::span<const Station> stations);

// Columns whose surface lies more than half a cell above the top of the mesh, where ground is missing.
std::size_t columnsCutOff(const Topography& topography, const MeshGeometry& mesh);

}  // namespace voxlith
