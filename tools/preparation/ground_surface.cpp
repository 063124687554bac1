#include "preparation/ground_surface.h"

namespace voxlith {

namespace {

constexpr double onSurface = 1.0e-6;  // of a cell's thickness

std::int32_t inactiveOfColumn(const MeshGeometry& mesh, double surface) {
    std::int32_t inactive = 0;
    for (std::size_t k = 0; k < mesh.zCentre.size(); ++k) {
        if (-mesh.zCentre[k] <= surface + onSurface * mesh.zWidth[k]) {
            break;
        }
        ++inactive;
    }
    return inactive;
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

}  // namespace voxlith
