#include "survey/mesh_geometry.h"

#include <cassert>
#include <cmath>
#include <span>

namespace voxlith {

namespace {

void fillAxis(std::span<const double> node, std::span<double> width, std::span<double> centre) {
    assert(node.size() == width.size() + 1 && centre.size() == width.size());
    for (std::size_t cell = 0; cell < width.size(); ++cell) {
        width[cell] = node[cell + 1] - node[cell];
        centre[cell] = 0.5 * (node[cell] + node[cell + 1]);
    }
}

}  // namespace

void sizeMeshArrays(MeshGeometry& mesh) {
    const auto sizeAxis = [](std::int32_t cells, auto& node, auto& width, auto& centre) {
        node.assign(static_cast<std::size_t>(cells) + 1, 0.0);
        width.assign(static_cast<std::size_t>(cells), 0.0);
        centre.assign(static_cast<std::size_t>(cells), 0.0);
    };
    sizeAxis(mesh.ny, mesh.yNode, mesh.yWidth, mesh.yCentre);
    sizeAxis(mesh.nx, mesh.xNode, mesh.xWidth, mesh.xCentre);
    sizeAxis(mesh.nz, mesh.zNode, mesh.zWidth, mesh.zCentre);
}

void buildMeshArrays(MeshGeometry& mesh) {
    fillAxis(mesh.xNode, mesh.xWidth, mesh.xCentre);
    fillAxis(mesh.yNode, mesh.yWidth, mesh.yCentre);
    fillAxis(mesh.zNode, mesh.zWidth, mesh.zCentre);
    // z nodes may be given as elevations, which fall, or as depths, which rise.
    for (double& width : mesh.zWidth) {
        width = std::fabs(width);
    }
}

}  // namespace voxlith
