#include "forward/ground.h"

#include <algorithm>

namespace voxlith {

namespace {

// The cells (from 0) of an axis that a coordinate touches: one inside a cell, two on a node between cells, none on the
// first and last node and outside.
struct Touched {
    std::size_t first = 0, end = 0;
};

Touched touchedCells(std::span<const double> nodes, double coordinate) {
    if (!(coordinate > nodes.front() && coordinate < nodes.back())) {
        return {};
    }
    const auto above =
        static_cast<std::size_t>(std::upper_bound(nodes.begin(), nodes.end(), coordinate) - nodes.begin());
    return {nodes[above - 1] == coordinate ? above - 2 : above - 1, above};
}

std::int32_t inactiveOfColumn(const MeshGeometry& mesh, double surface) {
    constexpr double onSurface = 1.0e-6;  // of a cell's thickness
    std::int32_t inactive = 0;
    for (std::size_t k = 0; k < mesh.zCentre.size(); ++k) {
        if (-mesh.zCentre[k] <= surface + onSurface * mesh.zWidth[k]) {
            break;
        }
        ++inactive;
    }
    return inactive;
}

}  // namespace

Ground groundBelow(const Surface& surface, const MeshGeometry& mesh, std::span<const Station> stations) {
    Ground ground;
    for (const double elevation : surface.column) {
        ground.inactiveCells.push_back(inactiveOfColumn(mesh, elevation));
    }
    for (std::size_t n = 0; n < stations.size(); ++n) {
        ground.height.push_back(stations[n].elevation - surface.station[n]);
    }
    return ground;
}

std::size_t columnsCutOff(const Surface& surface, const MeshGeometry& mesh) {
    const double highest = -mesh.zNode.front() + 0.5 * mesh.zWidth.front();
    return static_cast<std::size_t>(std::count_if(surface.column.begin(), surface.column.end(),
                                                  [highest](double elevation) { return elevation > highest; }));
}

StationPosition positionOfStation(const Ground& ground, const MeshGeometry& mesh, const StationPoint& point) {
    const Touched x = touchedCells(mesh.xNode, point.x), y = touchedCells(mesh.yNode, point.y);
    const Touched z = touchedCells(mesh.zNode, point.depth);
    if (x.first == x.end || y.first == y.end || z.first == z.end) {
        return StationPosition::aboveGround;
    }
    bool deep = true;
    for (std::size_t j = y.first; j < y.end; ++j) {
        for (std::size_t i = x.first; i < x.end; ++i) {
            const auto inactive = static_cast<std::size_t>(ground.inactiveCells[i + mesh.xCentre.size() * j]);
            if (z.first < inactive) {
                return StationPosition::aboveGround;
            }
            deep = deep && z.first > inactive;
        }
    }
    return deep ? StationPosition::belowTopCell : StationPosition::inTopCell;
}

void clearInactive(const Ground& ground, std::size_t nz, std::span<double> cells) {
    for (std::size_t column = 0; column < ground.inactiveCells.size(); ++column) {
        std::fill_n(cells.begin() + static_cast<std::ptrdiff_t>(column * nz), ground.inactiveCells[column], 0.0);
    }
}

}  // namespace voxlith
