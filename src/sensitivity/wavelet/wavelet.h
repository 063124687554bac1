// The separable 3-D wavelet transform of padded cell arrays, and the way between mesh and padded array.
//
// The padded array holds npz * npx * npy values, z fastest, then x, then y; the mesh sits at its low corner. Extents
// are powers of two. The inverse is the exact transpose of the forward transform, whatever the taps are. Extents above
// 4 that are no powers of two are transformed by the same index rule, without that property.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "simd/instruction_set.h"
#include "survey/mesh_geometry.h"

namespace voxlith {

struct WaveletFilter {
    std::vector<float> coefLow;   // low-pass taps
    std::vector<float> coefHigh;  // high-pass taps, as many
};

struct PaddedExtents {
    std::size_t npz = 0, npx = 0, npy = 0;
    std::size_t total() const { return npz * npx * npy; }
};
PaddedExtents paddedExtentsOf(const MeshGeometry& mesh);

enum class WaveletDirection { forward = 1, inverse = -1 };

// The quadrature mirror of `coefLow`: coefHigh(n+1-k) = s coefLow(k), s = -1, +1, ... for k = 1, 2, ...
std::vector<float> mirrorTaps(std::span<const float> coefLow);

// Work room for the transform; made once with waveletWorkSize values.
std::size_t waveletWorkSize(const PaddedExtents& extents);

// One level on the first n values of `a`; `work` has room for n. Nothing happens below n = 4.
void waveletStep(std::span<double> a, std::size_t n, const WaveletFilter& filter, WaveletDirection direction,
                 std::span<double> work);

// All levels along z, x, y in this order; axes of extent 4 or less are left alone. In place. Allocates nothing. The
// result is the same to the byte for all instruction sets, and the same as line by line with waveletStep.
void waveletTransform3D(std::span<double> padded, const PaddedExtents& extents, const WaveletFilter& filter,
                        WaveletDirection direction, std::span<double> work,
                        InstructionSet instructions = widestInstructionSet());

// Mesh to padded array; `weight` (cells of the mesh) may be empty for none. Cells below npz are dropped.
void padCells(std::span<const double> model, std::span<const float> weight, const MeshGeometry& mesh,
              std::span<double> padded);

// Padded array to mesh; below npz the value of the last copied cell is repeated.
void cropCells(std::span<const double> padded, std::span<const float> weight, const MeshGeometry& mesh,
               std::span<double> model);

}  // namespace voxlith
