// The separable 3-D wavelet transform T of padded cell arrays, and the copies between mesh and padded array.
//
// T applies the pyramid algorithm with periodic ends along z, x and y, one axis after the other:
//
//     low(i) = sum over k of coefLow(k) a(2i + k + c),   high(i) = sum over k of coefHigh(k) a(2i + k + c),
//
// c centring the filter; then the same to the low half, down to two values. With the compactly supported orthonormal
// filters of I. Daubechies, Orthonormal bases of compactly supported wavelets, Comm. Pure Appl. Math. 41, 1988, T is
// orthonormal, so T^-1 = T'.
//
// The padded array has npz * npx * npy values, z fastest, then x, then y; the mesh is at its low corner. Extents are
// powers of two. The inverse is the exact transpose of the forward transform, whatever the taps are. Extents above 4
// that are not powers of two are transformed by the same index rule, without that property.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

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

// Values of the work array of the transform, for each worker that is to share it.
std::size_t waveletWorkSize(const PaddedExtents& extents);

// One level on the first n values of `a`; `work` has n values at least. Nothing happens below n = 4. This is the
// definition of the transform, one line at a time.
void waveletStep(std::span<double> a, std::size_t n, const WaveletFilter& filter, WaveletDirection direction,
                 std::span<double> work);

// All levels along z, x, y in this order; axes of extent 4 or less are not transformed. In place; `work` has
// waveletWorkSize values, or a multiple of it: as many workers share the transform. Allocates nothing. The same bytes
// as line by line with waveletStep, with every instruction set and any number of workers.
void waveletTransform3D(std::span<double> padded, const PaddedExtents& extents, const WaveletFilter& filter,
                        WaveletDirection direction, std::span<double> work);

// Mesh to padded array, the rest of it 0; `weight` (cells of the mesh) may be empty for none. Cells below npz are
// dropped.
void padCells(std::span<const double> model, std::span<const float> weight, const MeshGeometry& mesh,
              std::span<double> padded);

// Padded array to mesh; below npz the value of the last copied cell is repeated.
void cropCells(std::span<const double> padded, std::span<const float> weight, const MeshGeometry& mesh,
               std::span<double> model);

}  // namespace voxlith
