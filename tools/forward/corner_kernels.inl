// The kernels of corner_kernels.h, compiled for each instruction set by simd/compile_kernels.h.
#include "forward/real_registers.inl"

namespace voxlith::VOXLITH_SET {

namespace {

// ln(t) = e ln 2 + 2 artanh(s), t = 2^e m, sqrt(1/2) <= m < sqrt(2), s = (m - 1) / (m + 1).
inline Register naturalLogarithm(const Register& t) {
    constexpr std::uint64_t one = 0x3ff0000000000000U;
    constexpr std::uint64_t leastMantissa = 0x3fe6a09e00000000U;  // of m
    constexpr std::uint64_t fraction = 0x000fffffffffffffU;
    constexpr std::uint64_t shiftedInteger = 0x4330000000000000U;  // 2^52 by its bits: adds an integer to it
    constexpr double bias = 4503599627370496.0 + 1023.0;
    constexpr double ln2High = 0x1.62e42feep-1;  // e ln2High is exact
    constexpr double ln2Low = 0x1.a39ef35793c76p-33;
    const Bits shifted = bitsOf(t) + (one - leastMantissa);
    const Register e = realOf((shifted >> 52U) | shiftedInteger) - bias;
    const Register m = realOf((shifted & fraction) + leastMantissa);
    const Register s = (m - 1.0) / (m + 1.0);
    const Register z = s * s;
    const Register w = z * z;
    const Register even =
        0.666666666666667 + w * (0.28571428626253836 + w * (0.1818289243253687 + w * 0.14617807153417325));
    const Register odd = 0.3999999999989889 + w * (0.22222211089379496 + w * 0.15331611722055008);
    const Register rest = s * (z * (even + z * odd)) + e * ln2Low;
    return e * ln2High + (2.0 * s + rest);
}

// atan(a / b) for a and b not below 0. Of the quotient and its inverse the one below 1 is taken, q; above
// tan(pi / 8) its angle is pi / 4 + atan((q - 1) / (q + 1)). Two zeros give 0.
inline Register positiveAngle(const Register& a, const Register& b) {
    constexpr double tanEighth = 0x1.a827999fcef32p-2;
    constexpr double quarter = 0x1.921fb54442d18p-1;  // pi / 4
    constexpr double least = 1.0e-300;
    const Mask swapped = a > b;
    const Register smaller = swapped ? b : a;
    Register larger = swapped ? a : b;
    larger = larger < least ? repeat(least) : larger;
    const Mask above = smaller > larger * tanEighth;
    const Register numerator = above ? smaller - larger : smaller;
    const Register denominator = above ? smaller + larger : larger;
    const Register q = numerator / denominator;
    const Register z = q * q;
    const Register w = z * z;
    const Register odd =
        0.1999999999999548 +
        w * (0.11111111014561013 + w * (0.07692182535116648 + w * (0.058580687568615106 + w * 0.03921955253255129)));
    const Register even =
        -0.3333333333333333 +
        w * (-0.14285714284657894 +
             w * (-0.09090904549884611 +
                  w * (-0.06664502215671447 + w * (-0.05085030492810941 + w * -0.019162068915902573))));
    const Register small = q + q * (z * (even + z * odd));
    const Register angle = above ? quarter + small : small;
    return swapped ? 2.0 * quarter - angle : angle;
}

void distances(const double* squares, double square, double* r, std::size_t count) {
    for (std::size_t n = 0; n < count; n += registerWidth) {
        storeRegister(squareRoot(loadRegister(squares + n) + square), r + n);
    }
}

template <bool scaled>
void addAnglesScaled(const double* a, const double* b, const double* c, const double* r, const double* scale,
                     double factor, double* sum, std::size_t count) {
    for (std::size_t n = 0; n < count; n += registerWidth) {
        const Register across = loadRegister(c + n);
        const Register product = loadRegister(a + n) * loadRegister(b + n);
        const Register angle = positiveAngle(absolute(product), absolute(across) * loadRegister(r + n));
        const Register value = changeSign(angle, bitsOf(product) ^ bitsOf(across));
        const Register term = scaled ? factor * (loadRegister(scale + n) * value) : factor * value;
        storeRegister(loadRegister(sum + n) + (across == 0.0 ? Register{} : term), sum + n);
    }
}

void addAngles(const double* a, const double* b, const double* c, const double* r, const double* scale, double factor,
               double* sum, std::size_t count) {
    (scale == nullptr ? addAnglesScaled<false> : addAnglesScaled<true>)(a, b, c, r, scale, factor, sum, count);
}

template <bool scaled>
void addLogarithmsScaled(const double* along, const double* r, const double* inverseAcross, const double* scale,
                         double factor, double* sum, std::size_t count) {
    for (std::size_t n = 0; n < count; n += registerWidth) {
        const Register length = loadRegister(along + n);
        const Register argument = (absolute(length) + loadRegister(r + n)) * loadRegister(inverseAcross + n);
        const Register value = changeSign(naturalLogarithm(argument), bitsOf(length));
        const Register term = scaled ? factor * (loadRegister(scale + n) * value) : factor * value;
        storeRegister(loadRegister(sum + n) + term, sum + n);
    }
}

void addLogarithms(const double* along, const double* r, const double* inverseAcross, const double* scale,
                   double factor, double* sum, std::size_t count) {
    (scale == nullptr ? addLogarithmsScaled<false> : addLogarithmsScaled<true>)(along, r, inverseAcross, scale, factor,
                                                                                sum, count);
}

void subtract(const double* north, const double* south, double* to, std::size_t count) {
    for (std::size_t n = 0; n < count; n += registerWidth) {
        storeRegister(loadRegister(north + n) - loadRegister(south + n), to + n);
    }
}

constexpr CornerKernels kernels{distances, addAngles, addLogarithms, subtract};

}  // namespace

}  // namespace voxlith::VOXLITH_SET
