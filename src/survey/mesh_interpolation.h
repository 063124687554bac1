// The value of a model at a point, linear between cell centres.
#pragma once

#include <span>

#include "survey/mesh_geometry.h"

namespace voxlith {

// Linear in x and y between the centres around (x, y), at the height of the first layer's centre; `model` by cell. The
// outermost centres are extrapolated up to the edge of the mesh. Missing values around the point count as 0. Gives the
// dummy value outside the mesh, in a cell without a value, and on meshes with less than two cells along x or y.
double interpolateInFirstLayer(const MeshGeometry& mesh, std::span<const double> model, double x, double y);

}  // namespace voxlith
