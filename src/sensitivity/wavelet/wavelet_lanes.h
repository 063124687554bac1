// The transform of many lines at once. A tile holds neighbouring lines side by side, so that each tap is applied to all
// of them with the same instruction; every line is summed in the order of waveletStep and gets the same bytes.
#pragma once

#include <cstddef>

#include "sensitivity/wavelet/wavelet.h"

namespace voxlith {

constexpr std::size_t tileLines = 16;        // lines of a tile; value j of line l is element j * tileLines + l
constexpr std::size_t wideTileLines = 32;    // where as many lines begin side by side: longer rows
constexpr std::size_t widestTileLines = 64;  // for lines of which so many fit into the second-level cache
constexpr std::size_t longestOfWidest = 512;
constexpr std::size_t tileCount = 3;       // tiles that transformLines works with
constexpr std::size_t tileAlignment = 64;  // bytes: no vector of a tile crosses a cache line

// Values that the tiles take for lines of this length.
constexpr std::size_t tileBufferSize(std::size_t length) {
    return tileCount * length * (length <= longestOfWidest ? widestTileLines : wideTileLines);
}

// Some of the lines along one axis of an array, `inner` values apart within a line: value j of line l is element
// l % inner + inner * (j + length * (l / inner)).
struct AxisLines {
    std::size_t inner = 1;
    std::size_t length = 0;
    std::size_t first = 0;
    std::size_t end = 0;
};

struct WaveletKernels {
    // All levels of the lines, in place. The length is 4 at least; `work` has tileBufferSize(length) values and begins
    // at a multiple of tileAlignment.
    void (*transformLines)(double* values, const AxisLines& lines, const WaveletFilter& filter,
                           WaveletDirection direction, double* work);
};

// For the widest instruction set.
const WaveletKernels& waveletKernels();

}  // namespace voxlith
