// The transform of many lines at once. A tile holds neighbouring lines side by side, so that each tap is applied to all
// of them with the same instruction; every line is summed in the order of waveletStep and gets the same bytes.
#pragma once

#include <cstddef>

#include "sensitivity/wavelet/wavelet.h"
#include "simd/instruction_set.h"

namespace voxlith {

constexpr std::size_t laneCount = 16;        // lines of a tile; value j of line l stands at j * laneCount + l
constexpr std::size_t wideLaneCount = 32;    // the same where as many lines begin side by side: longer rows
constexpr std::size_t widestLaneCount = 64;  // the same for lines of which so many fit the second-level cache
constexpr std::size_t longestOfWidest = 512;
constexpr std::size_t tileCount = 3;       // tiles that transformAxis works with
constexpr std::size_t tileAlignment = 64;  // bytes: no vector of a tile lies across two cache lines

// Values that the tiles take for lines of this length.
constexpr std::size_t tileBufferSize(std::size_t length) {
    return tileCount * length * (length <= longestOfWidest ? widestLaneCount : wideLaneCount);
}

// All levels of all lines along one axis of an array of `inner` * `length` * `outer` values, in place: value j of line
// (p, q) stands at p + inner * (j + length * q). `length` is 4 at least; `work` has room for tileBufferSize(length)
// values and begins at a multiple of tileAlignment.
void transformAxis(double* values, std::size_t inner, std::size_t length, std::size_t outer,
                   const WaveletFilter& filter, WaveletDirection direction, InstructionSet instructions, double* work);

}  // namespace voxlith
