// The table of apparent density at each station, for the styles with one free layer.
#pragma once

#include <span>
#include <string_view>

#include "survey/mesh_geometry.h"
#include "survey/obs_set.h"

namespace voxlith {

// `model` by cell, without division by the depth weight. Throws RunError when the file cannot be written.
void writeApparentDensityTable(std::string_view fileName, const MeshGeometry& mesh, std::span<const double> model,
                               const ObsSet& obs);

}  // namespace voxlith
