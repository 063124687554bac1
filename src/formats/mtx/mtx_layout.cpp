#include "formats/mtx/mtx_layout.h"

namespace voxlith {

void setMeshCounts(const MtxHeader& header, MeshGeometry& mesh) {
    mesh.ny = header.cells.y;
    mesh.nx = header.cells.x;
    mesh.nz = header.cells.z;
    mesh.npy = header.padded.y;
    mesh.npx = header.padded.x;
    mesh.npz = header.padded.z;
    mesh.nzl = header.nzl();
}

}  // namespace voxlith
