// The orthonormal wavelets with compact support (Daubechies 1988, Communications on Pure and Applied Mathematics 41,
// 909-996).
#pragma once

#include <cstddef>
#include <span>

#include "sensitivity/wavelet/wavelet.h"

namespace voxlith {

// The low-pass filter of 4, 6 or 8 taps in extremal-phase order, to full real64 precision. Throws RunError for another
// length.
std::span<const double> daubechiesTaps(std::size_t length);

// The same as the transform uses it: in single precision, with its high-pass filter.
WaveletFilter daubechiesFilter(std::size_t length);

}  // namespace voxlith
