#include "optim/vector_kernels.h"

#include <cassert>
#include <cmath>

namespace voxlith {

double innerProduct(std::span<const double> a, std::span<const double> b) {
    assert(a.size() == b.size());
    double sum = 0.0;
    for (std::size_t i = 0; i < a.size(); ++i) {
        sum += a[i] * b[i];
    }
    return sum;
}

bool choleskyFactor(SmallMatrix a, std::size_t n) {
    for (std::size_t i = 0; i < n; ++i) {
        for (std::size_t j = 0; j < i; ++j) {
            double sum = a(i, j);
            for (std::size_t k = 0; k < j; ++k) {
                sum -= a(i, k) * a(j, k);
            }
            a(i, j) = sum / a(j, j);
        }
        double pivot = a(i, i);
        for (std::size_t k = 0; k < i; ++k) {
            pivot -= a(i, k) * a(i, k);
        }
        if (!(pivot > 0.0)) {
            return false;
        }
        a(i, i) = std::sqrt(pivot);
    }
    return true;
}

void solveLower(SmallMatrix factor, std::size_t n, double* b) {
    for (std::size_t i = 0; i < n; ++i) {
        for (std::size_t k = 0; k < i; ++k) {
            b[i] -= factor(i, k) * b[k];
        }
        b[i] /= factor(i, i);
    }
}

void solveLowerTransposed(SmallMatrix factor, std::size_t n, double* b) {
    for (std::size_t i = n; i-- > 0;) {
        for (std::size_t k = i + 1; k < n; ++k) {
            b[i] -= factor(k, i) * b[k];
        }
        b[i] /= factor(i, i);
    }
}

}  // namespace voxlith
