#include "formats/mtx/mtx_checks.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <new>
#include <stdexcept>
#include <string>

#include "base/allocation_failure.h"
#include "sensitivity/rows/row_kernels.h"

namespace voxlith {

namespace {

constexpr std::int64_t largestInt32 = std::numeric_limits<std::int32_t>::max();

// The product of three counts of 1 or more, or one above 2147483647 when it does not fit 32 bits.
std::int64_t boundedProduct(std::int64_t a, std::int64_t b, std::int64_t c) {
    const std::int64_t plane = a * b;  // two 32-bit counts: fits
    return plane > largestInt32 ? largestInt32 + 1 : std::min(plane * c, largestInt32 + 1);
}

std::string timesText(AxisCounts counts) {
    return std::to_string(counts.y) + " x " + std::to_string(counts.x) + " x " + std::to_string(counts.z);
}

// A mesh padded to the next power of two along each axis, and doubled once more along each, stays below 64 times its
// cells. More is a damaged count, unless the array is small in any case.
bool isAbsurdPadding(std::int64_t nPadTotal, std::int64_t nCells) {
    constexpr std::int64_t largestFactor = 64;
    constexpr std::int64_t smallArray = std::int64_t{1} << 18;
    return nPadTotal > smallArray && nPadTotal / largestFactor > nCells;
}

// The transform works on many lines at once, each as long as the longest extent: one long extent alone asks for much
// memory.
std::int64_t largestExtent(std::int64_t cells) {
    constexpr std::int64_t largestFactor = 64;
    constexpr std::int64_t smallExtent = 1024;
    return std::max(smallExtent, largestFactor * cells);
}

template <typename T>
void readFiniteValues(BinaryInput& input, std::span<T> values, std::string_view what) {
    const std::int64_t start = input.position;
    readBytes(input, values.data(), values.size_bytes(), what);
    for (std::size_t i = 0; i < values.size(); ++i) {
        if (!std::isfinite(values[i])) {
            throwDamageAt(input, start + static_cast<std::int64_t>(i * sizeof(T)), std::string(what) + " to be finite",
                          std::isnan(values[i]) ? "not a number" : "an infinity");
        }
    }
}

}  // namespace

AxisCounts readAxisCounts(BinaryInput& input, std::string_view what) {
    std::array<std::int32_t, 3> counts{};
    readBytes(input, counts.data(), sizeof counts, what);
    return {counts[0], counts[1], counts[2]};
}

void requirePositive(const BinaryInput& input, std::int64_t byte, std::int64_t count, std::string_view what) {
    if (count < 1) {
        throwDamageAt(input, byte, std::string(what) + " of 1 or more", std::to_string(count));
    }
}

void acceptMeshCounts(const BinaryInput& input, std::int64_t byte, AxisCounts counts, MtxHeader& header,
                      MeshGeometry& mesh) {
    requirePositive(input, byte, counts.y, "ny");
    requirePositive(input, byte + 4, counts.x, "nx");
    requirePositive(input, byte + 8, counts.z, "nz");
    const std::int64_t nCells = boundedProduct(counts.y, counts.x, counts.z);
    if (nCells > largestInt32) {
        throwDamageAt(input, byte, "mesh counts of at most 2147483647 cells", timesText(counts));
    }
    mesh.ny = counts.y;
    mesh.nx = counts.x;
    mesh.nz = counts.z;
    header.nCells = static_cast<std::int32_t>(nCells);
}

void acceptPaddedCounts(const BinaryInput& input, std::int64_t byte, AxisCounts counts, MtxHeader& header,
                        MeshGeometry& mesh) {
    const std::array<std::int32_t, 3> extents{counts.y, counts.x, counts.z};
    const std::array<std::int32_t, 3> least{mesh.ny, mesh.nx, 1};
    const std::array<std::int32_t, 3> cells{mesh.ny, mesh.nx, mesh.nz};
    const std::array<std::string_view, 3> names{"npy", "npx", "npz"};
    for (std::size_t axis = 0; axis < extents.size(); ++axis) {
        const std::int64_t place = byte + 4 * static_cast<std::int64_t>(axis);
        const std::string name(names[axis]);
        if (extents[axis] < least[axis]) {
            throwDamageAt(input, place, name + " of " + std::to_string(least[axis]) + " or more",
                          std::to_string(extents[axis]));
        }
        if (extents[axis] > largestExtent(cells[axis])) {
            throwDamageAt(input, place, name + " of at most " + std::to_string(largestExtent(cells[axis])),
                          std::to_string(extents[axis]));
        }
    }
    const std::int64_t nPadTotal = boundedProduct(counts.y, counts.x, std::max(counts.z, mesh.nz));
    if (nPadTotal > largestInt32 || isAbsurdPadding(nPadTotal, header.nCells)) {
        throwDamageAt(input, byte, "a padded mesh that suits " + std::to_string(header.nCells) + " cells",
                      timesText(counts));
    }
    mesh.npy = counts.y;
    mesh.npx = counts.x;
    mesh.npz = counts.z;
    header.nPadded = boundedProduct(counts.y, counts.x, counts.z);
    header.nPadTotal = nPadTotal;
}

void allocateTaps(Sensitivity& sensitivity, std::int32_t nCoef, double& tally, Messages& messages) {
    const auto count = static_cast<std::size_t>(nCoef);
    try {
        sensitivity.filter.coefLow.assign(count, 0.0F);
        sensitivity.filter.coefHigh.assign(count, 0.0F);
    } catch (const std::bad_alloc& error) {
        fatalStop(messages, withAllocatorText("Error: Not enough memory for the wavelet coefficient arrays", error));
    }
    sensitivity.header.nCoef = nCoef;
    tally += 8.0 * nCoef;
}

void readFinite(BinaryInput& input, std::span<float> values, std::string_view what) {
    readFiniteValues(input, values, what);
}

void readFinite(BinaryInput& input, std::span<double> values, std::string_view what) {
    readFiniteValues(input, values, what);
}

void requireCoefIndices(const BinaryInput& input, std::int64_t firstByte, std::span<const std::int32_t> coefIndex,
                        std::int64_t nPadded) {
    const auto limit = static_cast<std::uint32_t>(nPadded);
    if (indicesInside(coefIndex.data(), coefIndex.size(), limit, widestInstructionSet())) {
        return;
    }
    const auto bad = std::find_if(coefIndex.begin(), coefIndex.end(),
                                  [nPadded](std::int32_t index) { return index < 1 || index > nPadded; });
    throwDamageAt(input, firstByte + 4 * (bad - coefIndex.begin()),
                  "a coefficient index within 1 to " + std::to_string(nPadded), std::to_string(*bad));
}

void markRowStart(const BinaryInput& input, MtxHeader& header, std::size_t file) {
    if (input.position > largestInt32) {
        throwDamage(input, "the rows to begin within the first 2147483647 bytes", "their beginning here");
    }
    header.rowStart[file] = static_cast<std::int32_t>(input.position);
}

}  // namespace voxlith
