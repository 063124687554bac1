// What both families of sensitivity files have in common: the counts of the mesh and of the padded mesh, the taps, and
// the tests that keep a damaged file from reading or asking for what is not there. Every test that fails throws
// RunError with the byte.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include "base/messages.h"
#include "formats/mtx/binary_input.h"
#include "sensitivity/sensitivity.h"
#include "survey/mesh_geometry.h"

namespace voxlith {

// In the order of the files, which give the slowest axis first.
struct AxisCounts {
    std::int32_t y = 0, x = 0, z = 0;
    bool operator==(const AxisCounts&) const = default;
};

AxisCounts readAxisCounts(BinaryInput& input, std::string_view what);

// A count of 1 or more; `byte` is where it stands.
void requirePositive(const BinaryInput& input, std::int64_t byte, std::int64_t count, std::string_view what);

// The mesh of the first file: sets counts of `mesh` and header.nCells. All counts above 0, cells within 32 bits.
void acceptMeshCounts(const BinaryInput& input, std::int64_t byte, AxisCounts counts, MtxHeader& header,
                      MeshGeometry& mesh);

// The padded mesh of the first file: sets counts of `mesh`, header.nPadded and header.nPadTotal. Along x and y it holds
// the mesh, positions fit 32 bits, and the whole is no absurd multiple of the mesh. Extents above 4 that are no powers
// of two are accepted, as they always were: the transform follows its index rule and stays inside its arrays.
void acceptPaddedCounts(const BinaryInput& input, std::int64_t byte, AxisCounts counts, MtxHeader& header,
                        MeshGeometry& mesh);

// Room for the taps of the first file; `tally` gets their bytes. A failed allocation goes through fatalStop.
void allocateTaps(Sensitivity& sensitivity, std::int32_t nCoef, double& tally, Messages& messages);

// Fill `values` and require every one of them to be finite.
void readFinite(BinaryInput& input, std::span<float> values, std::string_view what);
void readFinite(BinaryInput& input, std::span<double> values, std::string_view what);

// Indices that were read from byte `firstByte` on: each within 1 .. nPadded.
void requireCoefIndices(const BinaryInput& input, std::int64_t firstByte, std::span<const std::int32_t> coefIndex,
                        std::int64_t nPadded);

// The byte at which the rows of file `file` begin is the present position; it lies within the first 2147483647 bytes.
void markRowStart(const BinaryInput& input, MtxHeader& header, std::size_t file);

}  // namespace voxlith
