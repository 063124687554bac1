#include "sensitivity/rows/row_kernels.h"

#include <bit>

#define VOXLITH_KERNELS "sensitivity/rows/row_kernels.inl"
#include "simd/compile_kernels.h"

namespace voxlith {

const RowKernels& rowKernels() {
    return widestKernels();
}

}  // namespace voxlith
