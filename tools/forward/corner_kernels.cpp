#include "forward/corner_kernels.h"

#define VOXLITH_KERNELS "forward/corner_kernels.inl"
#include "simd/compile_kernels.h"

namespace voxlith {

const CornerKernels& cornerKernels() {
    return widestKernels();
}

}  // namespace voxlith
