// Small meshes for the targets that read files of cells.
#pragma once

#include "harness.h"
#include "survey/mesh_geometry.h"

namespace voxlith::fuzzing {

// 1 to 4 cells along each axis.
inline MeshGeometry smallMesh(Choices& choices) {
    MeshGeometry mesh;
    const auto axis = [&](std::int32_t& count, auto& nodes, auto& widths, auto& centres) {
        const std::size_t cells = 1 + choices.below(4);
        count = static_cast<std::int32_t>(cells);
        for (std::size_t node = 0; node <= cells; ++node) {
            nodes.push_back(10.0 * static_cast<double>(node));
        }
        widths.resize(cells);
        centres.resize(cells);
    };
    axis(mesh.nx, mesh.xNode, mesh.xWidth, mesh.xCentre);
    axis(mesh.ny, mesh.yNode, mesh.yWidth, mesh.yCentre);
    axis(mesh.nz, mesh.zNode, mesh.zWidth, mesh.zCentre);
    mesh.nzl = mesh.nz;
    buildMeshArrays(mesh);
    return mesh;
}

}  // namespace voxlith::fuzzing
