// The transform of many lines at once. A tile holds neighbouring lines side by side, so that each tap is applied to all
// of them with the same instruction; every line is summed in the order of waveletStep and gets the same bytes.
#pragma once

#include <cstddef>

#include "sensitivity/wavelet.h"

namespace voxlith {

constexpr std::size_t laneCount = 16;  // lines of a tile; value j of line l stands at j * laneCount + l

// All levels of the lines of `tile` (length * laneCount values), in place. `work` has the size of the tile.
void transformLanes(double* tile, double* work, std::size_t length, const WaveletFilter& filter,
                    WaveletDirection direction);

// All levels of all lines along one axis of an array of `inner` * `length` * `outer` values: value j of line (p, q)
// stands at p + inner * (j + length * q). `work` has room for two tiles.
void transformAxis(double* values, std::size_t inner, std::size_t length, std::size_t outer,
                   const WaveletFilter& filter, WaveletDirection direction, double* work);

}  // namespace voxlith
