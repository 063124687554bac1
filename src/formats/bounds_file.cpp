#include "formats/bounds_file.h"

#include <algorithm>
#include <array>
#include <cassert>
#include <cmath>
#include <cstddef>
#include <span>

#include "base/free_format.h"
#include "base/text_input.h"
#include "base/tokens.h"
#include "formats/short_name.h"

namespace voxlith {

namespace {

constexpr float noBoundMagnitude = 98.9F;     // a side of this magnitude (99 by convention) has no bound
constexpr float noLowerMagnitude = 99990.0F;  // next to a true upper bound, in a file of pairs
constexpr float openSide = -99.0F;            // a value down to here is no bound that positivity has to raise

struct CellBounds {
    std::int32_t boundType = boundNone;
    float lower = 0.0F;
    float upper = 0.0F;
};

void limitNegative(float& lower, float& upper) {
    lower = std::min(0.0F, lower);
    upper = std::min(0.0F, upper);
}

// Stores the same bounds for all cells of all model types and counts the cells that have any.
void storeEverywhere(const CellBounds& cell, ModelBounds& bounds) {
    std::fill(bounds.fixedCell.begin(), bounds.fixedCell.end(), 0);
    std::fill(bounds.boundType.begin(), bounds.boundType.end(), cell.boundType);
    std::fill(bounds.lowerBound.begin(), bounds.lowerBound.end(), static_cast<double>(cell.lower));
    std::fill(bounds.upperBound.begin(), bounds.upperBound.end(), static_cast<double>(cell.upper));
    if (cell.boundType != boundNone) {
        bounds.nFixedCells = static_cast<std::int32_t>(bounds.boundType.size());
    }
}

CellBounds boundsWithoutFile(Positivity positivity) {
    if (requiresNegative(positivity)) {
        return {boundUpper, 0.0F, 0.0F};
    }
    // Compatibility: flags above 2 bound nothing here, unlike in the two other forms of the line.
    if (positivity == Positivity::positive || isStrict(positivity)) {
        const float smallest = smallestPositive(positivity);
        return {boundLower, smallest, smallest};
    }
    return {};
}

// Compatibility: the second condition is never true, so reversed bounds are accepted.
bool areReversed(float lower, float upper) {
    return std::fabs(lower) < 99.0F && std::fabs(upper) < -99.0F && lower >= upper;
}

CellBounds boundsFromControlLine(Positivity positivity, float lower, float upper) {
    if (requiresPositive(positivity)) {
        const float smallest = smallestPositive(positivity);
        if (lower < smallest && lower > openSide) {
            lower = smallest;
        }
        if (upper < smallest && upper > openSide) {
            upper = std::max(smallest, lower);
        }
    } else if (requiresNegative(positivity)) {
        limitNegative(lower, upper);
    }
    const bool noLower = std::fabs(lower) >= noBoundMagnitude;
    const bool noUpper = std::fabs(upper) >= noBoundMagnitude;
    if (noLower && noUpper) {
        return {};
    }
    if (noUpper) {
        return {boundLower, lower, 0.0F};
    }
    if (noLower) {
        return {boundUpper, 0.0F, upper};
    }
    return {boundBoth, lower, upper};
}

// The same for a pair of a file. A side is free above a magnitude of 98.9, not from it on.
// Compatibility: next to a true upper bound, a lower one counts down to -99990.
CellBounds boundsFromFilePair(Positivity positivity, float lower, float upper) {
    if (requiresPositive(positivity)) {
        const float smallest = smallestPositive(positivity);
        if (lower < smallest && std::fabs(lower) < noBoundMagnitude) {
            lower = smallest;
        }
        if (upper < smallest && std::fabs(upper) < noBoundMagnitude) {
            upper = std::max(smallest, lower);
        }
    } else if (requiresNegative(positivity)) {
        limitNegative(lower, upper);
    }
    const bool noUpper = std::fabs(upper) > noBoundMagnitude;
    if (noUpper && std::fabs(lower) > noBoundMagnitude) {
        return {};
    }
    if (noUpper) {
        return {boundLower, lower, 0.0F};
    }
    if (std::fabs(lower) > noLowerMagnitude) {
        return {boundUpper, 0.0F, upper};
    }
    return {boundBoth, lower, upper};
}

// Pairs are interleaved in the file. Blocks are filled from the arrays first, since null values and a short file leave
// bounds unchanged.
ReadStatus readPairs(TextInput& input, std::span<double> lower, std::span<double> upper) {
    constexpr std::size_t blockPairs = 512;
    std::array<double, 2 * blockPairs> block{};
    FreeFormatRead read = beginFreeFormatRead(input);
    for (std::size_t first = 0; first < lower.size() && read.status == ReadStatus::good; first += blockPairs) {
        const std::size_t pairs = std::min(blockPairs, lower.size() - first);
        for (std::size_t pair = 0; pair < pairs; ++pair) {
            block[2 * pair] = lower[first + pair];
            block[2 * pair + 1] = upper[first + pair];
        }
        readValues(read, std::span(block).first(2 * pairs));
        for (std::size_t pair = 0; pair < pairs; ++pair) {
            lower[first + pair] = block[2 * pair];
            upper[first + pair] = block[2 * pair + 1];
        }
    }
    return read.status;
}

// From the pair that was read for a cell of model type 1 to its bound type and bounds.
void classifyCell(Positivity positivity, std::size_t cell, ModelBounds& bounds) {
    const float lower = static_cast<float>(bounds.lowerBound[cell]);
    const float upper = static_cast<float>(bounds.upperBound[cell]);
    if (std::fabs(lower) <= noBoundMagnitude && std::fabs(upper) <= noBoundMagnitude && lower >= upper) {
        bounds.fixedCell[cell] = 1;
        bounds.boundType[cell] = boundFixed;
        ++bounds.nFixedCells;
        return;
    }
    const CellBounds found = boundsFromFilePair(positivity, lower, upper);
    bounds.fixedCell[cell] = 0;
    bounds.boundType[cell] = found.boundType;
    bounds.lowerBound[cell] = static_cast<double>(found.lower);
    bounds.upperBound[cell] = static_cast<double>(found.upper);
    bounds.nFixedCells += found.boundType == boundNone ? 0 : 1;
}

template <class Value>
void repeatFirstSlab(std::vector<Value>& values, std::size_t slab, std::int32_t nModelTypes) {
    for (std::size_t type = 1; type < static_cast<std::size_t>(nModelTypes); ++type) {
        std::copy_n(values.begin(), slab, values.begin() + static_cast<std::ptrdiff_t>(type * slab));
    }
}

void readPairsFile(Messages& messages, Positivity positivity, const std::string& name, std::size_t cells,
                   std::int32_t nModelTypes, ModelBounds& bounds) {
    TextInput input;
    if (!openTextInput(input, shortFileName(name))) {
        fatalStop(messages, " Bounds File " + shownName(name) + " not found");
    }
    const ReadStatus status =
        readPairs(input, std::span(bounds.lowerBound).first(cells), std::span(bounds.upperBound).first(cells));
    closeTextInput(input);
    if (status == ReadStatus::badText) {
        screenAndLogLine(messages, " Error occurred while reading the model " + shownName(name));
        plainStop();
    }
    for (std::size_t cell = 0; cell < cells; ++cell) {
        classifyCell(positivity, cell, bounds);
    }
    // Compatibility: the copies are not counted in nFixedCells.
    repeatFirstSlab(bounds.fixedCell, cells, nModelTypes);
    repeatFirstSlab(bounds.boundType, cells, nModelTypes);
    repeatFirstSlab(bounds.lowerBound, cells, nModelTypes);
    repeatFirstSlab(bounds.upperBound, cells, nModelTypes);
}

}  // namespace

void readBoundsFile(Messages& messages, Positivity positivity, const std::string& name, const MeshGeometry& mesh,
                    std::int32_t nModelTypes, ModelBounds& bounds) {
    [[maybe_unused]] const std::size_t values = mesh.cellCount() * static_cast<std::size_t>(nModelTypes);
    assert(bounds.boundType.size() == values && bounds.fixedCell.size() == values);
    assert(bounds.lowerBound.size() == values && bounds.upperBound.size() == values);
    bounds.nFixedCells = 0;
    const std::string_view text = shortText(name);
    if (isNullWord(text)) {
        storeEverywhere(boundsWithoutFile(positivity), bounds);
        return;
    }
    std::array<float, 2> pair{};
    std::int64_t valuesRead = 0;
    const ReadStatus status = freeFormatRead(text, std::span<float>(pair), &valuesRead);
    if (status != ReadStatus::good || valuesRead != 2) {
        readPairsFile(messages, positivity, name, mesh.cellCount(), nModelTypes, bounds);
        return;
    }
    if (areReversed(pair[0], pair[1])) {
        screenAndLogLine(messages, "Error: the lower bound value is greater than the upper bound");
        plainStop();
    }
    storeEverywhere(boundsFromControlLine(positivity, pair[0], pair[1]), bounds);
}

}  // namespace voxlith
