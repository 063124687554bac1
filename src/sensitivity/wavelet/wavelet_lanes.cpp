#include "sensitivity/wavelet/wavelet_lanes.h"

#include <utility>

#define VOXLITH_KERNELS "sensitivity/wavelet/wavelet_lanes.inl"
#include "simd/compile_kernels.h"

namespace voxlith {

const WaveletKernels& waveletKernels() {
    return widestKernels();
}

}  // namespace voxlith
