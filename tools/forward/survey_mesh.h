// Reads tensor mesh files in the published UBC form: cell counts to the east, to the north and downwards; the top
// south-west corner (east, north, elevation); then the widths along the three axes, n*w means n cells of width w.
// Everything from "!" to the end of a line is a comment; otherwise line ends are separators like blanks.
#pragma once

#include <string>

#include "survey/mesh_geometry.h"

namespace voxlith {

// Counts, nodes, widths and centres. xNode runs east, yNode north; zNode is the depth below the origin of elevation
// (minus the elevation) and rises downwards, so that the volume taken from the end nodes is positive. The padded counts
// stay 0. Throws RunError (file, line, what was expected and found).
MeshGeometry readSurveyMesh(const std::string& fileName);

}  // namespace voxlith
