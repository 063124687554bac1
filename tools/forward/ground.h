// Which cells of a mesh are inactive, because they are above the ground, and where the stations are relative to it.
//
// There is one surface above each point of the plan, so the inactive cells of a column are at its top.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "forward/station_file.h"
#include "survey/mesh_geometry.h"

namespace voxlith {

struct Ground {
    std::vector<std::int32_t> inactiveCells;  // at the top of each column, x fastest, then y; empty: all are active
    std::vector<double> height;               // of each station above the surface; below it, under 0

    bool hasInactive() const { return !inactiveCells.empty(); }
    bool isInactive(std::size_t cell, std::size_t nz) const {
        return hasInactive() && cell % nz < static_cast<std::size_t>(inactiveCells[cell / nz]);
    }
};

// Elevations of a surface.
struct Surface {
    std::vector<double> column;   // at the centre of each column, x fastest, then y
    std::vector<double> station;  // at each station
};

// The ground below a surface. A cell is inactive when its centre lies above it by more than a millionth of the cell's
// thickness, so that a centre on the surface is active whatever the rounding.
Ground groundBelow(const Surface& surface, const MeshGeometry& mesh, std::span<const Station> stations);

// Columns whose surface lies more than half a cell above the top of the mesh, where ground is missing.
std::size_t columnsCutOff(const Surface& surface, const MeshGeometry& mesh);

enum class StationPosition { aboveGround, inTopCell, belowTopCell };

// Where a station is: above the ground (also on a face of an inactive cell, or outside the mesh), inside the first
// active cell of its column, which happens on a slope because the mesh follows it in steps, or deeper.
StationPosition positionOfStation(const Ground& ground, const MeshGeometry& mesh, const StationPoint& point);

// Sets the responses of inactive cells to 0.
void clearInactive(const Ground& ground, std::size_t nz, std::span<double> cells);

}  // namespace voxlith
