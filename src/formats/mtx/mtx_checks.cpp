#include "formats/mtx/mtx_checks.h"

#include <algorithm>
#include <array>
#include <cassert>
#include <cmath>
#include <limits>
#include <string>

namespace voxlith {

namespace {

constexpr std::int64_t largestInt32 = std::numeric_limits<std::int32_t>::max();

// The product of three counts of 1 or more, or one above 2147483647 when it does not fit 32 bits.
std::int64_t boundedProduct(AxisCounts counts) {
    const std::int64_t plane = std::int64_t{counts.y} * counts.x;  // two 32-bit counts: fits
    return plane > largestInt32 ? largestInt32 + 1 : std::min(plane * counts.z, largestInt32 + 1);
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

void requireExtent(const BinaryInput& input, std::int64_t byte, const std::string& name, std::int32_t extent,
                   std::int32_t smallest, std::int32_t cells) {
    if (extent < smallest) {
        throwDamageAt(input, byte, name + " of " + std::to_string(smallest) + " or more", std::to_string(extent));
    }
    if (extent > largestExtent(cells)) {
        throwDamageAt(input, byte, name + " of at most " + std::to_string(largestExtent(cells)),
                      std::to_string(extent));
    }
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

void requireMeshCounts(const BinaryInput& input, std::int64_t byte, AxisCounts cells) {
    requirePositive(input, byte, cells.y, "ny");
    requirePositive(input, byte + 4, cells.x, "nx");
    requirePositive(input, byte + 8, cells.z, "nz");
    if (boundedProduct(cells) > largestInt32) {
        throwDamageAt(input, byte, "mesh counts of at most 2147483647 cells", timesText(cells));
    }
}

void requirePaddedCounts(const BinaryInput& input, std::int64_t byte, AxisCounts cells, AxisCounts padded) {
    requireExtent(input, byte, "npy", padded.y, cells.y, cells.y);
    requireExtent(input, byte + 4, "npx", padded.x, cells.x, cells.x);
    requireExtent(input, byte + 8, "npz", padded.z, 1, cells.z);
    const std::int64_t nCells = boundedProduct(cells);
    const std::int64_t nPadTotal = boundedProduct({padded.y, padded.x, std::max(padded.z, cells.z)});
    if (nPadTotal > largestInt32 || isAbsurdPadding(nPadTotal, nCells)) {
        throwDamageAt(input, byte, "a padded mesh that suits " + std::to_string(nCells) + " cells", timesText(padded));
    }
}

void readFinite(BinaryInput& input, std::span<float> values, std::string_view what) {
    readFiniteValues(input, values, what);
}

void readFinite(BinaryInput& input, std::span<double> values, std::string_view what) {
    readFiniteValues(input, values, what);
}

// Without branches, so that compilers test several indices at once: both differences have their top bit clear for an
// index within the range, and one of them has it set for any other.
bool indicesInside(std::span<const std::int32_t> coefIndex, std::int64_t positions) {
    assert(positions >= 0 && positions <= largestInt32);
    const auto last = static_cast<std::uint32_t>(positions);
    std::uint32_t outside = 0;
    for (const std::int32_t index : coefIndex) {
        const auto position = static_cast<std::uint32_t>(index);
        outside |= (position - 1) | (last - position);
    }
    return (outside >> 31) == 0;
}

void requireCoefIndices(const BinaryInput& input, std::int64_t firstByte, std::span<const std::int32_t> coefIndex,
                        std::int64_t positions) {
    if (indicesInside(coefIndex, positions)) {
        return;
    }
    const auto bad = std::find_if(coefIndex.begin(), coefIndex.end(),
                                  [positions](std::int32_t index) { return index < 1 || index > positions; });
    throwDamageAt(input, firstByte + 4 * (bad - coefIndex.begin()),
                  "a coefficient index within 1 to " + std::to_string(positions), std::to_string(*bad));
}

}  // namespace voxlith
