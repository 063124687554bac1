#include "preparation/ground.h"

#include <algorithm>

namespace voxlith {

namespace {

constexpr double onSurface = 1.0e-6;  // of a cell's thickness

// The cells (from 0) of an axis that a place touches: one inside a cell, two on a node between cells, none on the first
// and last node and beyond.
struct Touched {
    std::size_t first = 0, behind = 0;
};

Touched touchedCells(std::span<const double> nodes, double place) {
    if (!(place > nodes.front() && place < nodes.back())) {
        return {};
    }
    const auto above = static_cast<std::size_t>(std::upper_bound(nodes.begin(), nodes.end(), place) - nodes.begin());
    return {nodes[above - 1] == place ? above - 2 : above - 1, above};
}

std::int32_t inactiveOfColumn(const MeshGeometry& mesh, double surface) {
    std::int32_t air = 0;
    for (std::size_t k = 0; k < mesh.zCentre.size(); ++k) {
        if (-mesh.zCentre[k] <= surface + onSurface * mesh.zWidth[k]) {
            break;
        }
        ++air;
    }
    return air;
}

template <class Visit>
void visitColumns(const Topography& topography, const MeshGeometry& mesh, const Visit& visit) {
    std::int32_t triangle = 0;
    for (const double y : mesh.yCentre) {
        for (const double x : mesh.xCentre) {
            visit(surfaceElevation(topography, x, y, triangle));
        }
    }
}

}  // namespace

Ground groundBelow(const Topography& topography, const MeshGeometry& mesh, std::span<const Station> stations) {
    Ground ground;
    visitColumns(topography, mesh,
                 [&](double surface) { ground.inactiveCells.push_back(inactiveOfColumn(mesh, surface)); });
    std::int32_t triangle = 0;
    for (const Station& station : stations) {
        const double surface = surfaceElevation(topography, station.point.x, station.point.y, triangle);
        ground.height.push_back(station.elevation - surface);
    }
    return ground;
}

std::size_t columnsCutOff(const Topography& topography, const MeshGeometry& mesh) {
    std::size_t columns = 0;
    visitColumns(topography, mesh, [&](double surface) {
        columns += surface > -mesh.zNode.front() + 0.5 * mesh.zWidth.front() ? 1U : 0U;
    });
    return columns;
}

StationPosition placeOfStation(const Ground& ground, const MeshGeometry& mesh, const StationPoint& point) {
    const Touched x = touchedCells(mesh.xNode, point.x), y = touchedCells(mesh.yNode, point.y);
    const Touched z = touchedCells(mesh.zNode, point.depth);
    if (x.first == x.behind || y.first == y.behind || z.first == z.behind) {
        return StationPosition::aboveGround;
    }
    bool deep = true;
    for (std::size_t j = y.first; j < y.behind; ++j) {
        for (std::size_t i = x.first; i < x.behind; ++i) {
            const auto air = static_cast<std::size_t>(ground.inactiveCells[i + mesh.xCentre.size() * j]);
            if (z.first < air) {
                return StationPosition::aboveGround;
            }
            deep = deep && z.first > air;
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
