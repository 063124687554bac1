// The tests that keep a damaged sensitivity file from reading or asking for what is not there, common to all forms.
// Every test that fails throws RunError with the byte.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include "formats/mtx/binary_input.h"
#include "formats/mtx/mtx_layout.h"

namespace voxlith {

AxisCounts readAxisCounts(BinaryInput& input, std::string_view what);

// A count of 1 or more; `byte` is where it stands.
void requirePositive(const BinaryInput& input, std::int64_t byte, std::int64_t count, std::string_view what);

// All counts above 0, cells within 32 bits. `byte` is where the counts stand.
void requireMeshCounts(const BinaryInput& input, std::int64_t byte, AxisCounts cells);

// Along x and y the padded mesh holds the mesh, positions fit 32 bits, and the whole is no absurd multiple of the mesh.
// Compatibility: extents above 4 that are no powers of two are accepted; the transform follows its index rule.
void requirePaddedCounts(const BinaryInput& input, std::int64_t byte, AxisCounts cells, AxisCounts padded);

// Fill `values` and require every one of them to be finite.
void readFinite(BinaryInput& input, std::span<float> values, std::string_view what);
void readFinite(BinaryInput& input, std::span<double> values, std::string_view what);

// Whether all indices are from 1 to `positions`, which fits 31 bits.
bool indicesInside(std::span<const std::int32_t> coefIndex, std::int64_t positions);

// The same for indices that were read from byte `firstByte` on.
void requireCoefIndices(const BinaryInput& input, std::int64_t firstByte, std::span<const std::int32_t> coefIndex,
                        std::int64_t positions);

}  // namespace voxlith
