// The depth weight of the cells: W = ((depth + z0) / z0)^(-beta / 2), with the depth of the cell's centre below the top
// of the mesh, or below the top of the first cell of ground in its column where there is air. Rows are divided by W,
// because the inversion works on the model multiplied by W (Li and Oldenburg 1996, Geophysics 61, 394-408, section on
// depth weighting).
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "preparation/ground.h"
#include "preparation/station_file.h"
#include "survey/mesh_geometry.h"

namespace voxlith {

struct DepthWeight {
    double z0 = 0;  // both 0: no weighting
    double beta = 0;
};

// `ground` without air, or with the heights of the stations. beta 2 for the vertical attraction, 3 for gradients and
// magnetics; z0 half the thickness of the first layer plus the mean height of the stations above the top of the mesh (0
// when they stand below it), so that W falls off like the response of the cells. With air, z0 is half the mean
// thickness of the columns' first cells of ground plus the mean height of the stations above the surface.
DepthWeight defaultDepthWeight(std::int32_t code, const MeshGeometry& mesh, std::span<const Station> stations,
                               const Ground& ground = {});

// The option's value: "z0,beta", or "none". Throws RunError for z0 not above 0 or beta below 0.
DepthWeight parseDepthWeight(const std::string& text);

// W of each cell in cell order; 1 for air, which has no response to be weighted and is held at zero. Throws RunError
// when one is too small for single precision.
std::vector<float> cellDepthWeights(const DepthWeight& weight, const MeshGeometry& mesh, const Ground& ground = {});

}  // namespace voxlith
