// Low-pass taps of the orthonormal wavelets of Daubechies (1988, Communications on Pure and Applied Mathematics 41,
// 909-996).
#pragma once

#include <cstddef>
#include <span>

namespace voxlith {

// 4, 6 or 8 taps in the extremal-phase order, to full real64 precision. Throws RunError for another count.
std::span<const double> daubechiesTaps(std::size_t count);

}  // namespace voxlith
