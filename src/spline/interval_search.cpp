#include "spline/interval_search.h"

#include <algorithm>
#include <cmath>

#include "spline/voxlith_spline.h"

namespace voxlith {
namespace {

// They change speed only. One per thread, so that the routines can be called from several threads.
thread_local std::int32_t savedForwardIndex = 1;
thread_local std::int32_t savedReverseIndex = 1;

// Bisects from grid(lower) <= x < grid(upper) until lower and upper are neighbours.
template <typename GridAt>
std::int32_t bisect(const GridAt& gridAt, std::int32_t lower, std::int32_t upper, double x) {
    while (upper - lower > 1) {
        const std::int32_t middle = lower + (upper - lower) / 2;
        if (gridAt(middle) > x) {
            upper = middle;
        } else {
            lower = middle;
        }
    }
    return lower;
}

std::int32_t doubled(std::int32_t step, std::int32_t gridSize) {
    return step <= gridSize / 2 ? 2 * step : gridSize;
}

// Search for an x at or above grid(lower + 1).
template <typename GridAt>
GridPosition searchUpward(const GridAt& gridAt, std::int32_t gridSize, double x, std::int32_t lower) {
    std::int32_t upper = lower + 1;
    std::int32_t step = 1;
    while (x >= gridAt(upper)) {
        if (upper == gridSize) {
            return {gridSize, 1};
        }
        lower = upper;
        upper = step < gridSize - lower ? lower + step : gridSize;
        step = doubled(step, gridSize);
    }
    return {bisect(gridAt, lower, upper, x), 0};
}

// Search for an x below grid(lower).
template <typename GridAt>
GridPosition searchDownward(const GridAt& gridAt, std::int32_t gridSize, double x, std::int32_t lower) {
    std::int32_t upper = lower;
    std::int32_t step = 1;
    while (x < gridAt(lower)) {
        if (lower == 1) {
            return {1, -1};
        }
        upper = lower;
        lower = step < upper ? upper - step : 1;
        step = doubled(step, gridSize);
    }
    return {bisect(gridAt, lower, upper, x), 0};
}

// gridAt(1) to gridAt(gridSize) increase.
template <typename GridAt>
GridPosition search(const GridAt& gridAt, std::int32_t gridSize, double x, std::int32_t& savedIndex) {
    if (gridSize < 1) {
        return {1, -1};
    }
    if (gridSize == 1) {
        return {1, x >= gridAt(1) ? 1 : -1};
    }
    if (std::isnan(x)) {
        return {1, 0};
    }
    const std::int32_t start = std::clamp(savedIndex, 1, gridSize - 1);
    GridPosition found{start, 0};
    if (x >= gridAt(start + 1)) {
        found = searchUpward(gridAt, gridSize, x, start);
    } else if (x < gridAt(start)) {
        found = searchDownward(gridAt, gridSize, x, start);
    }
    savedIndex = std::min(found.left, gridSize - 1);
    return found;
}

}  // namespace

GridPosition searchIncreasing(std::span<const double> grid, double x, std::int32_t& savedIndex) {
    const auto gridAt = [grid](std::int32_t i) { return grid[static_cast<std::size_t>(i) - 1]; };
    return search(gridAt, static_cast<std::int32_t>(grid.size()), x, savedIndex);
}

GridPosition searchDecreasing(std::span<const double> grid, double x, std::int32_t& savedIndex) {
    const auto reversedAt = [grid](std::int32_t m) { return grid[grid.size() - static_cast<std::size_t>(m)]; };
    const auto gridSize = static_cast<std::int32_t>(grid.size());
    const GridPosition found = search(reversedAt, gridSize, x, savedIndex);
    if (gridSize < 1) {
        return found;
    }
    if (found.rangeFlag == 0) {
        return {gridSize - found.left, 0};
    }
    return found.rangeFlag > 0 ? GridPosition{1, -1} : GridPosition{gridSize, 1};
}

GridPosition locate(std::span<const double> grid, double x) {
    return searchIncreasing(grid, x, savedForwardIndex);
}

}  // namespace voxlith

extern "C" void INTERV(const double* grid, const std::int32_t* gridSize, const double* x, std::int32_t* left,
                       std::int32_t* rangeFlag) {
    const voxlith::GridPosition found = voxlith::locate(voxlith::countedSpan(grid, *gridSize), *x);
    *left = found.left;
    *rangeFlag = found.rangeFlag;
}

extern "C" void RINTERV(const double* grid, const std::int32_t* gridSize, const double* x, std::int32_t* left,
                        std::int32_t* rangeFlag) {
    const auto counted = voxlith::countedSpan(grid, *gridSize);
    const voxlith::GridPosition found = voxlith::searchDecreasing(counted, *x, voxlith::savedReverseIndex);
    *left = found.left;
    *rangeFlag = found.rangeFlag;
}
