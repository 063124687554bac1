// Which cells of a mesh are air, and where the stations stand above the ground.
//
// A cell is air when its centre lies above the surface (by more than a millionth of its thickness, so that a centre on
// the surface is ground whatever the rounding). Above each place there is one surface, so the air of a column is at its
// top.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "preparation/station_file.h"
#include "preparation/topography.h"
#include "survey/mesh_geometry.h"

namespace voxlith {

struct Ground {
    std::vector<std::int32_t> inactiveCells;  // at the top of each column, x fastest, then y; empty: no air anywhere
    std::vector<double> height;               // of each station above the surface; below it, under 0

    bool hasInactive() const { return !inactiveCells.empty(); }
    bool isInactive(std::size_t cell, std::size_t nz) const {
        return hasInactive() && cell % nz < static_cast<std::size_t>(inactiveCells[cell / nz]);
    }
};

Ground groundBelow(const Topography& topography, const MeshGeometry& mesh, std::span<const Station> stations);

// Columns whose surface lies more than half a cell above the top of the mesh, where ground is missing.
std::size_t columnsCutOff(const Topography& topography, const MeshGeometry& mesh);

enum class StationPosition { aboveGround, inTopCell, belowTopCell };

// Where a station stands: in the open (also on a face of a cell of air, or beyond the mesh), inside the first cell of
// ground of its column, as the steps of the mesh bring about on a slope, or deeper.
StationPosition placeOfStation(const Ground& ground, const MeshGeometry& mesh, const StationPoint& point);

// Sets the responses of air cells to 0.
void clearInactive(const Ground& ground, std::size_t nz, std::span<double> cells);

}  // namespace voxlith
