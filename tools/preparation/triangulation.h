// Delaunay triangles of points in the plane, and where a point lies among them. Coordinates are whole numbers from 0 to
// largestGridCoordinate, so that every test of orientation and circle is exact: rows of points on a line, regular grids
// and other special places need no tolerance.
//
// Points are added in the order of their coordinates, each joined to the part of the outline that it sees; edges are
// then flipped until no circle through the corners of a triangle holds a further point (Lawson 1977, in Mathematical
// Software III, 161-194).
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <vector>

namespace voxlith {

constexpr std::int64_t largestGridCoordinate = std::int64_t{1} << 26;

struct GridPoint {
    std::int64_t x = 0, y = 0;
    friend bool operator==(const GridPoint&, const GridPoint&) = default;
};

struct Triangulation {
    std::vector<GridPoint> point;
    std::vector<std::int32_t> corner;  // three a triangle, anticlockwise; empty when all points lie on a line
    std::vector<std::int32_t> twin;    // by edge (from corner e to the next): the same edge of the neighbour, or -1
    // Pairs of points: the edges of the outline, or of the line; for a single point one pair of it twice.
    std::vector<std::array<std::int32_t, 2>> outline;
};

// `points` are all different, at least one and at most 100 million.
Triangulation triangulate(std::vector<GridPoint> points);

// The triangle (from 0) that holds `place`, its edges included, or -1 when it lies outside or there are no triangles.
// The search walks from triangle `start`; the result is a good start for a place near by.
std::int32_t triangleOf(const Triangulation& triangulation, GridPoint place, std::int32_t start);

// Twice the signed area of a triangle: above 0 when a, b, c run anticlockwise.
std::int64_t doubleArea(GridPoint a, GridPoint b, GridPoint c);

// Above 0 when d lies within the circle through a, b, c, which run anticlockwise; 0 on it.
int circleSide(GridPoint a, GridPoint b, GridPoint c, GridPoint d);

}  // namespace voxlith
