#include "forward/far_cells.h"

#include <cmath>

#define VOXLITH_KERNELS "forward/far_cells.inl"
#include "simd/compile_kernels.h"

namespace voxlith {

namespace {

constexpr std::size_t squaredWidthPowers = 3;

// The factors of c^0, c^2 and c^4.
using WidthPolynomial = std::array<double, squaredWidthPowers>;

// A derivative of the response, l times to x and m times to y, in the mean over a cell.
struct MeanTerm {
    std::size_t l = 0, m = 0;
    WidthPolynomial factor{};
};

// With a for the width along x, b along y, c along z and f_zz = -f_xx - f_yy.
std::array<MeanTerm, 6> meanTerms(double a, double b) {
    constexpr double second = 1.0 / 24.0, fourth = 1.0 / 1920.0, mixed = 1.0 / 576.0;
    const double a2 = a * a, b2 = b * b;
    return {{{0, 0, {1.0, 0.0, 0.0}},
             {2, 0, {a2 * second, -second, 0.0}},
             {0, 2, {b2 * second, -second, 0.0}},
             {4, 0, {a2 * a2 * fourth, -a2 * mixed, fourth}},
             {2, 2, {a2 * b2 * mixed, -(a2 + b2) * mixed, 2.0 * fourth}},
             {0, 4, {b2 * b2 * fourth, -b2 * mixed, fourth}}}};
}

// n! / (i! (n - 2 i)! 2^i): the coefficients of Hermite's polynomials without their signs.
double hermiteCoefficient(std::size_t n, std::size_t i) {
    double value = 1;
    for (std::size_t factor = n - 2 * i + 1; factor <= n; ++factor) {
        value *= static_cast<double>(factor);
    }
    for (std::size_t factor = 1; factor <= i; ++factor) {
        value /= 2.0 * static_cast<double>(factor);
    }
    return value;
}

double power(double base, std::size_t exponent) {
    double value = 1;
    for (std::size_t n = 0; n < exponent; ++n) {
        value *= base;
    }
    return value;
}

// 1 * 3 * ... * (2 k - 1)
double oddFactorial(std::size_t k) {
    double value = 1;
    for (std::size_t n = 2; n <= k; ++n) {
        value *= static_cast<double>(2 * n - 1);
    }
    return value;
}

// Adds factor times the derivative of 1/R, l times to x, m times to y and, if odd, once to z:
// the sum of (-1)^k H(l, i) H(m, j) x^(l - 2 i) y^(m - 2 j) (2 k - 1)!! / R^(2 k + 1), k = l + m - i - j, where the
// derivative to z makes k one larger and multiplies by z.
void addDerivative(std::size_t l, std::size_t m, bool odd, double y, const WidthPolynomial& factor, FarSeries& series) {
    for (std::size_t i = 0; 2 * i <= l; ++i) {
        for (std::size_t j = 0; 2 * j <= m; ++j) {
            const std::size_t k = l + m - i - j + (odd ? 1 : 0);
            const double sign = k % 2 == 1 ? -1.0 : 1.0;
            const double value =
                sign * hermiteCoefficient(l, i) * hermiteCoefficient(m, j) * power(y, m - 2 * j) * oddFactorial(k);
            const std::size_t first = (odd ? farCoefficients / 2 : 0) + squaredWidthPowers * (k - 1);
            for (std::size_t p = 0; p < squaredWidthPowers; ++p) {
                series.byPower[l - 2 * i][first + p] += value * factor[p];
            }
        }
    }
}

}  // namespace

FarSeries farSeries(const ResponseWeights& weights, double y, double a, double b) {
    FarSeries series;
    const auto add = [&](std::size_t l, std::size_t m, bool odd, double weight) {
        if (weight == 0) {
            return;
        }
        (odd ? series.odd : series.even) = true;
        for (const MeanTerm& term : meanTerms(a, b)) {
            const WidthPolynomial factor{weight * term.factor[0], weight * term.factor[1], weight * term.factor[2]};
            addDerivative(l + term.l, m + term.m, odd, y, factor, series);
        }
    };
    // U_z is a derivative at the station, those here are at the cell: of odd order, it changes its sign.
    add(0, 0, true, -weights.z);
    add(2, 0, false, weights.xx - weights.zz);
    add(0, 2, false, weights.yy - weights.zz);
    add(1, 1, false, weights.xy);
    add(1, 0, true, weights.xz);
    add(0, 1, true, weights.yz);
    return series;
}

const FarKernels& farKernels() {
    return widestKernels();
}

}  // namespace voxlith
