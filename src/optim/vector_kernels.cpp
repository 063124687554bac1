#include "optim/vector_kernels.h"

#include <cmath>

namespace voxlith {

void addProducts(const double* a, const double* b, std::size_t n, double (&sums)[partialSumCount]) {
    // Local sums: the compiler may keep them in registers, since nothing else can point to them.
    double s[partialSumCount];
    for (std::size_t k = 0; k < partialSumCount; ++k)
        s[k] = sums[k];
    std::size_t i = 0;
    for (; i + partialSumCount <= n; i += partialSumCount) {
        for (std::size_t k = 0; k < partialSumCount; ++k)
            s[k] += a[i + k] * b[i + k];
    }
    for (std::size_t k = 0; i < n; ++i, ++k)
        s[k] += a[i] * b[i];
    for (std::size_t k = 0; k < partialSumCount; ++k)
        sums[k] = s[k];
}

double sumOfPartials(const double (&sums)[partialSumCount]) {
    return ((sums[0] + sums[1]) + (sums[2] + sums[3])) + ((sums[4] + sums[5]) + (sums[6] + sums[7]));
}

double innerProduct(std::span<const double> a, std::span<const double> b) {
    double sums[partialSumCount] = {};
    addProducts(a.data(), b.data(), a.size(), sums);
    return sumOfPartials(sums);
}

bool choleskyFactor(SmallMatrix a, std::size_t n) {
    for (std::size_t i = 0; i < n; ++i) {
        for (std::size_t j = 0; j < i; ++j) {
            double sum = a(i, j);
            for (std::size_t k = 0; k < j; ++k)
                sum -= a(i, k) * a(j, k);
            a(i, j) = sum / a(j, j);
        }
        double pivot = a(i, i);
        for (std::size_t k = 0; k < i; ++k)
            pivot -= a(i, k) * a(i, k);
        if (!(pivot > 0.0))
            return false;
        a(i, i) = std::sqrt(pivot);
    }
    return true;
}

void solveLower(SmallMatrix factor, std::size_t n, double* b) {
    for (std::size_t i = 0; i < n; ++i) {
        for (std::size_t k = 0; k < i; ++k)
            b[i] -= factor(i, k) * b[k];
        b[i] /= factor(i, i);
    }
}

void solveLowerTransposed(SmallMatrix factor, std::size_t n, double* b) {
    for (std::size_t i = n; i-- > 0;) {
        for (std::size_t k = i + 1; k < n; ++k)
            b[i] -= factor(k, i) * b[k];
        b[i] /= factor(i, i);
    }
}

}  // namespace voxlith
