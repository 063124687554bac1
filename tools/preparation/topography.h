// The surface of the ground by points of known elevation.
//
// The file is in the published UBC form: the number of points, then a line "x y elevation" each; the number may be left
// out. Everything from "!" to the end of a line is comment. Between the points the surface is that of the Delaunay
// triangles; beyond them it has the elevation of the nearest place of their outline. Points that coincide (within
// 1.5e-8 of the extent) count as one with their mean elevation.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "preparation/triangulation.h"

namespace voxlith {

struct SurfacePoint {
    double x = 0, y = 0, elevation = 0;
};

struct Topography {
    double x0 = 0, y0 = 0, step = 1;  // of the grid of whole numbers
    Triangulation triangles;
    std::vector<double> elevation;  // of the points of the triangles
};

// Throws RunError (file, line, what was expected and found).
std::vector<SurfacePoint> readSurfacePoints(const std::string& fileName);

// At least one point; coordinates within 1e12.
Topography surfaceOf(std::span<const SurfacePoint> points);

// Elevation of the surface. `triangle` is where the search begins and then where it ended; start with 0.
double surfaceElevation(const Topography& topography, double x, double y, std::int32_t& triangle);

}  // namespace voxlith
