// The depth weight of the cells: W = ((depth + z0) / z0)^(-beta / 2), where depth is that of the cell's centre below
// the top of the mesh, or below the top of the first active cell of its column. Rows of the sensitivity matrix are
// divided by W, because the inversion works on the model multiplied by W (Li and Oldenburg 1996, Geophysics 61,
// 394-408, section on depth weighting).
#pragma once

#include <span>
#include <vector>

#include "forward/ground.h"
#include "forward/station_file.h"
#include "survey/data_types.h"
#include "survey/mesh_geometry.h"

namespace voxlith {

struct DepthWeight {
    double z0 = 0;  // both 0: no weighting
    double beta = 0;
};

// W falls off like the response of the cells: beta is 2 for the vertical attraction and 3 for gradients and magnetics,
// z0 is half the thickness of the first layer plus the mean height of the stations above the top of the mesh (0 when
// they are below it). With inactive cells, z0 is half the mean thickness of the columns' first active cells plus the
// mean height of the stations above the surface, taken from `ground`.
DepthWeight defaultDepthWeight(DataType type, const MeshGeometry& mesh, std::span<const Station> stations,
                               const Ground& ground = {});

// W of each cell in cell order; 1 for inactive cells, which have no response to be weighted. Throws RunError when one
// is too small for single precision.
std::vector<float> cellDepthWeights(const DepthWeight& weight, const MeshGeometry& mesh, const Ground& ground = {});

}  // namespace voxlith
