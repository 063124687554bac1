#include "optim/plis/plis_update.h"

#include <algorithm>
#include <cassert>
#include <cmath>
#include <cstddef>

#include "optim/plis/plis_kernels.h"

namespace voxlith::plis {

namespace {

// From the increments and their projection: the new shift, and the curvature that remains after it.
struct Curvature {
    double shift = 0.0;
    double bShifted = 0.0;   // go'(xo - shift go)
    double gradShare = 0.0;  // part of go'H go that is not of lowRank, 0 to 1
    double gradNorm = 0.0;   // go'go
};

// False if the curvature b = xo'go is not positive, or a quotient is not finite.
bool measureCurvature(double shift, std::span<const double> xo, std::span<const double> go,
                      std::span<const double> gradProjection, Curvature& curvature) {
    const double b = dot(xo, go);
    const double a = dot(go, go);
    const double ratio = b / a;
    if (!(b > 0.0) || !(ratio > 0.0) || !std::isfinite(ratio)) {
        return false;
    }
    const double gg = dot(gradProjection, gradProjection);
    const double d = shift * a + gg;
    curvature.gradNorm = a;
    curvature.gradShare = d > 0.0 ? std::max(0.0, 1.0 - gg / d) : 1.0;
    if (d > 0.0) {
        const double sine = std::sqrt(std::max(0.0, 1.0 - b * b / (dot(xo, xo) * a)));
        curvature.shift = std::sqrt(curvature.gradShare) / (1.0 + sine) * ratio;
        curvature.shift = std::clamp(curvature.shift, 0.2 * ratio, 0.8 * ratio);
    } else {
        curvature.shift = 0.25 * ratio;
    }
    curvature.bShifted = b - curvature.shift * a;
    return curvature.bShifted > 0.0 && std::isfinite(1.0 / curvature.bShifted) && std::isfinite(gg);
}

bool addColumn(const UpdateVectors& vectors, std::span<double> lowRank, std::int32_t& columnsInUse, double& shift) {
    const std::size_t n = vectors.xo.size();
    const std::size_t columns = static_cast<std::size_t>(columnsInUse);
    const std::span<double> used = lowRank.first(n * columns);
    const std::span<double> gradProjection = vectors.gradProjection.first(columns);
    transposedProduct(used, vectors.go, gradProjection);
    Curvature curvature;
    if (!measureCurvature(shift, vectors.xo, vectors.go, gradProjection, curvature)) {
        return false;
    }
    shift = curvature.shift;
    axpy(-shift, vectors.go, vectors.xo, vectors.xo);
    const double inverse = 1.0 / curvature.bShifted;
    rankOneUpdate(used, -inverse, vectors.xo, gradProjection);
    scaledCopy(std::sqrt(inverse), vectors.xo, lowRank.subspan(n * columns, n));
    ++columnsInUse;
    return true;
}

bool changeColumns(std::int32_t method, double r, const UpdateVectors& vectors, std::span<double> lowRank,
                   double& shift) {
    const auto& [s, xo, go, shiftedStep, gradProjection, stepProjection] = vectors;
    transposedProduct(lowRank, go, gradProjection);
    scaledCopy(r, s, s);
    transposedProduct(lowRank, s, stepProjection);
    Curvature curvature;
    if (!measureCurvature(shift, xo, go, gradProjection, curvature)) {
        return false;
    }
    const double gx = dot(gradProjection, stepProjection);
    const double xx = dot(stepProjection, stepProjection);
    const double bShifted = curvature.bShifted;
    const double v = std::sqrt(std::sqrt(curvature.gradShare) * curvature.shift * curvature.gradNorm / bShifted);
    const double w0 = std::copysign(std::sqrt(bShifted * v / xx), gx < 0.0 ? -1.0 : 1.0);
    // A projection that is 0 or not finite gives no update.
    if (!(xx > 0.0) || !std::isfinite(xx) || !std::isfinite(gx) || !std::isfinite(v / w0)) {
        return false;
    }
    axpy(-shift, s, xo, shiftedStep);
    shift = curvature.shift;
    axpy(-shift, go, xo, xo);
    if (method == 1) {
        combination(w0, stepProjection, 1.0, gradProjection, stepProjection);
        combination(v, xo, w0, shiftedStep, s);
        rankOneUpdate(lowRank, -1.0 / (w0 * gx + v * bShifted), s, stepProjection);
    } else {
        axpy(v / w0 - gx / bShifted, xo, shiftedStep, s);
        rankTwoUpdate(lowRank, -1.0 / bShifted, xo, gradProjection, -1.0 / xx, s, stepProjection);
    }
    return true;
}

}  // namespace

bool updateMatrix(std::int32_t method, double r, const UpdateVectors& vectors, std::span<double> lowRank,
                  std::int32_t& columnsInUse, double& shift) {
    assert(lowRank.size() == vectors.xo.size() * vectors.gradProjection.size() && columnsInUse >= 0);
    if (static_cast<std::size_t>(columnsInUse) < vectors.gradProjection.size()) {
        return addColumn(vectors, lowRank, columnsInUse, shift);
    }
    return changeColumns(method, r, vectors, lowRank, shift);
}

}  // namespace voxlith::plis
