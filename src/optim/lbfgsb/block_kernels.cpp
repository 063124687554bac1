#include "optim/lbfgsb/block_kernels.h"

#include <algorithm>
#include <cassert>

#include "optim/lbfgsb/block_waves.h"

#define VOXLITH_KERNELS "optim/lbfgsb/block_kernels.inl"
#include "simd/compile_kernels.h"

namespace voxlith {

const BlockKernels& blockKernels() {
    return widestKernels();
}

double longProduct(std::span<const double> a, std::span<const double> b) {
    assert(a.size() == b.size());
    double sum = 0.0;
    std::array<double, mostSlots> products;
    forEachBlock(
        0, a.size(), mostSlots, 2,
        [&](std::size_t slot, std::size_t first, std::size_t length) {
            products[slot] = blockProduct(a.data() + first, b.data() + first, length);
        },
        [&](std::size_t slot, std::size_t, std::size_t) { sum += products[slot]; });
    return sum;
}

double blockProduct(const double* a, const double* b, std::size_t length) {
    double products[vectorsAtOnce] = {};
    blockKernels().addProducts({a, 0, 1}, {{b}, 1, length}, products);
    return products[0];
}

}  // namespace voxlith
