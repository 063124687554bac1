#include "forward/block_energy.h"

#define VOXLITH_KERNELS "forward/block_energy.inl"
#include "simd/compile_kernels.h"

namespace voxlith {

const BlockEnergyKernels& blockEnergyKernels() {
    return widestKernels();
}

}  // namespace voxlith
