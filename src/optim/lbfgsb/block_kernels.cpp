#include "optim/lbfgsb/block_kernels.h"

#include <algorithm>
#include <cassert>

#define VOXLITH_KERNELS "optim/lbfgsb/block_kernels.inl"
#include "simd/compile_kernels.h"

namespace voxlith {

const BlockKernels& blockKernels() {
    return widestKernels();
}

double longProduct(std::span<const double> a, std::span<const double> b) {
    assert(a.size() == b.size());
    const BlockKernels& kernels = blockKernels();
    double products[vectorsAtOnce] = {};
    for (std::size_t first = 0; first < a.size(); first += blockLength) {
        const std::size_t length = std::min(blockLength, a.size() - first);
        kernels.addProducts({a.data() + first, 0, 1}, {{b.data() + first}, 1, length}, products);
    }
    return products[0];
}

}  // namespace voxlith
