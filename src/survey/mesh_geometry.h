// The tensor mesh of the run: counts, nodes, widths, centres. It comes from the sensitivity files; no mesh file is
// read. Cells are ordered with z fastest, then x, then y.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace voxlith {

struct MeshGeometry {
    // Cells
    std::int32_t nx = 0, ny = 0, nz = 0;
    std::int32_t nzl = 0;                    // z layers that the sensitivities cover
    std::int32_t npx = 0, npy = 0, npz = 0;  // padded mesh of the wavelet transform

    // Node coordinates, one more than cells
    std::vector<double> xNode, yNode, zNode;
    // Widths: signed along x and y, absolute along z
    std::vector<double> xWidth, yWidth, zWidth;
    std::vector<double> xCentre, yCentre, zCentre;

    std::vector<std::int32_t> ubcTopo;  // topography of the record form; not used

    std::size_t cellCount() const {
        return static_cast<std::size_t>(nx) * static_cast<std::size_t>(ny) * static_cast<std::size_t>(nz);
    }
    // Index of cell (k, i, j) in cell arrays, all from 0.
    std::size_t cellIndex(std::size_t k, std::size_t i, std::size_t j) const {
        return k + static_cast<std::size_t>(nz) * (i + static_cast<std::size_t>(nx) * j);
    }
};

// Sizes nodes, widths and centres by the counts, all 0. Throws std::bad_alloc.
void sizeMeshArrays(MeshGeometry& mesh);

// Fills widths and centres from the nodes; all arrays have their sizes.
void buildMeshArrays(MeshGeometry& mesh);

}  // namespace voxlith
