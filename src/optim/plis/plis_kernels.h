// Vector and matrix kernels of the PLIS engine. Vectors of one call have the same length; a matrix A of n x nn is
// stored column by column in an array of n*nn. Every sum has one fixed order, written out, so that all compilers,
// optimisation levels and instruction sets give the same bytes. Nothing is allocated here.
//
// Masked kernels take a bound switch and the bound codes: switch 0 counts every element and reads no code, above 0
// elements with a negative code do not count, below 0 only those with code -5 do not.
#pragma once

#include <cstdint>
#include <span>

namespace voxlith::plis {

// True if an element with this bound code counts.
inline bool isCounted(std::int32_t boundSwitch, std::int32_t code) {
    if (boundSwitch == 0) {
        return true;
    }
    return boundSwitch > 0 ? code >= 0 : code != -5;
}

// Sum of a(i) b(i) over the counted elements; other elements, even if NaN, have no influence.
double maskedDot(std::int32_t boundSwitch, std::span<const std::int32_t> nbd, std::span<const double> a,
                 std::span<const double> b);

// b(i) = -a(i) where counted, 0 elsewhere.
void maskedNegatedCopy(std::int32_t boundSwitch, std::span<const std::int32_t> nbd, std::span<const double> a,
                       std::span<double> b);

// a(i) = 0 where not counted.
void maskedZero(std::int32_t boundSwitch, std::span<const std::int32_t> nbd, std::span<double> a);

// old(i) = now(i) - old(i) where counted, 0 elsewhere.
void maskedDifference(std::int32_t boundSwitch, std::span<const std::int32_t> nbd, std::span<const double> now,
                      std::span<double> old);

// a'b.
double dot(std::span<const double> a, std::span<const double> b);

// y = alpha x + z; y may be z.
void axpy(double alpha, std::span<const double> x, std::span<const double> z, std::span<double> y);

// y = alpha x; y may be x.
void scaledCopy(double alpha, std::span<const double> x, std::span<double> y);

// y = alpha x + beta z; y may be x or z.
void combination(double alpha, std::span<const double> x, double beta, std::span<const double> z, std::span<double> y);

// y = A'x.
void transposedProduct(std::span<const double> a, std::span<const double> x, std::span<double> y);

// y = A x + alpha z; y may be z.
void product(std::span<const double> a, std::span<const double> x, double alpha, std::span<const double> z,
             std::span<double> y);

// A = A + alpha x y'.
void rankOneUpdate(std::span<double> a, double alpha, std::span<const double> x, std::span<const double> y);

// A = A + alpha x y' + beta u v'.
void rankTwoUpdate(std::span<double> a, double alpha, std::span<const double> x, std::span<const double> y, double beta,
                   std::span<const double> u, std::span<const double> v);

// y = x.
void copy(std::span<const double> x, std::span<double> y);

// x = xo + r s.
void stepAlong(std::span<const double> xo, double r, std::span<const double> s, std::span<double> x);

}  // namespace voxlith::plis
