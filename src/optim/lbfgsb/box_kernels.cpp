#include "optim/lbfgsb/box_kernels.h"

#include <cmath>

#define VOXLITH_KERNELS "optim/lbfgsb/box_kernels.inl"
#include "simd/compile_kernels.h"

namespace voxlith {

namespace {

constexpr std::array<double, blockLength> constantBlock(double value) {
    std::array<double, blockLength> block{};
    for (double& element : block) {
        element = value;
    }
    return block;
}

constexpr double infinity = std::numeric_limits<double>::infinity();
constexpr auto noLowerBounds = constantBlock(-infinity), noUpperBounds = constantBlock(infinity);

const double* uniformBounds(bool hasBounds, const double* bounds, const double* noBounds, std::size_t length) {
    if (!hasBounds) {
        return noBounds;
    }
    prefetchNextBlock(bounds, length);
    return bounds;
}

}  // namespace

const BoxKernels& boxKernels() {
    return widestKernels();
}

void formBox(const BoundsBlock& bounds, BoxBlock& box) {
    if (bounds.uniform) {
        const std::int32_t code = bounds.code[0];
        box.lower = uniformBounds(hasLowerBound(code), bounds.lower, noLowerBounds.data(), bounds.length);
        box.upper = uniformBounds(hasUpperBound(code), bounds.upper, noUpperBounds.data(), bounds.length);
        return;
    }
    box.lower = box.lowerBuffer.data();
    box.upper = box.upperBuffer.data();
    boxKernels().fillBox(bounds, box);
}

}  // namespace voxlith
