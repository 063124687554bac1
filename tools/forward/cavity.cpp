#include "forward/cavity.h"

#include <array>

namespace voxlith {

CavityShares boreholeCavity(const FieldDirection& axis) {
    const std::array<double, 3> a = unitVector(axis);
    CavityShares shares;
    shares.xx = 0.5 * (1.0 - a[0] * a[0]);
    shares.yy = 0.5 * (1.0 - a[1] * a[1]);
    shares.zz = 0.5 * (1.0 - a[2] * a[2]);
    shares.xy = -0.5 * a[0] * a[1];
    shares.xz = -0.5 * a[0] * a[2];
    shares.yz = -0.5 * a[1] * a[2];
    return shares;
}

double cavityWeight(const ResponseWeights& weights, const CavityShares& shares) {
    return weights.xx * shares.xx + weights.yy * shares.yy + weights.zz * shares.zz + weights.xy * shares.xy +
           weights.xz * shares.xz + weights.yz * shares.yz;
}

}  // namespace voxlith
