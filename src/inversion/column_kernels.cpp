#include "inversion/column_kernels.h"

#include "survey/dummy_value.h"

#define VOXLITH_KERNELS "inversion/column_kernels.inl"
#include "simd/compile_kernels.h"

namespace voxlith {

const ColumnKernels& columnKernels() {
    return widestKernels();
}

}  // namespace voxlith
