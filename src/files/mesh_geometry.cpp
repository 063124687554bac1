#include "files/mesh_geometry.h"

#include <cmath>
#include <span>

namespace voxlith {

namespace {

void fillAxis(std::span<const double> node, std::span<double> width, std::span<double> centre) {
    for (std::size_t cell = 0; cell < width.size(); ++cell) {
        width[cell] = node[cell + 1] - node[cell];
        centre[cell] = 0.5 * (node[cell] + node[cell + 1]);
    }
}

}  // namespace

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
