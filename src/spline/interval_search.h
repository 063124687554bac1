// Interval search in sorted grids that starts where the last search ended.
//
// The search of C. de Boor, A Practical Guide to Splines, Springer 1978, chapter VI (routine INTERV).
#pragma once

#include <cstdint>
#include <span>

namespace voxlith {

// left counts from 1. rangeFlag: -1 x lies before the grid, 0 inside, 1 after it.
struct GridPosition {
    std::int32_t left;
    std::int32_t rangeFlag;
};

// Position of x in an increasing grid, as for INTERV in voxlith_spline.h. The search starts at savedIndex; any value is
// good, and the result does not depend on it. On return it holds the interval next to x.
GridPosition searchIncreasing(std::span<const double> grid, double x, std::int32_t& savedIndex);

// The same for a decreasing grid, as for RINTERV.
GridPosition searchDecreasing(std::span<const double> grid, double x, std::int32_t& savedIndex);

// searchIncreasing with the saved index that INTERV, CUBVAL and CUBINT share.
GridPosition locate(std::span<const double> grid, double x);

// The span of a counted array of a C caller. A count below 0 gives an empty one.
inline std::span<const double> countedSpan(const double* first, std::int32_t count) {
    return {first, count > 0 ? static_cast<std::size_t>(count) : 0U};
}

}  // namespace voxlith
