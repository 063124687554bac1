#include "optim/plis/plis_kernels.h"

#include <algorithm>
#include <cassert>
#include <cstddef>

namespace voxlith::plis {

namespace {

// An inner product is summed in eight parts, element i in part i mod 8, which are added pairwise at the end. Unlike the
// products of L-BFGS-B the parts run through the whole vector, so the two engines cannot share a kernel.
constexpr std::size_t partCount = 8;
using Parts = double[partCount];

// Rows that are processed together: a block of a vector that stays in the cache while all columns are read.
constexpr std::size_t blockRows = 2048;
static_assert(blockRows % partCount == 0);

// Columns whose inner products with the same vector are summed together.
constexpr std::size_t columnGroup = 8;

void addProducts(const double* a, const double* b, std::size_t n, Parts& parts) {
    double sums[partCount];
    std::copy_n(parts, partCount, sums);
    std::size_t i = 0;
    for (; i + partCount <= n; i += partCount) {
        for (std::size_t k = 0; k < partCount; ++k) {
            sums[k] += a[i + k] * b[i + k];
        }
    }
    for (std::size_t k = 0; i < n; ++i, ++k) {
        sums[k] += a[i] * b[i];
    }
    std::copy_n(sums, partCount, parts);
}

double total(const Parts& parts) {
    return ((parts[0] + parts[1]) + (parts[2] + parts[3])) + ((parts[4] + parts[5]) + (parts[6] + parts[7]));
}

}  // namespace

double maskedDot(std::int32_t boundSwitch, std::span<const std::int32_t> nbd, std::span<const double> a,
                 std::span<const double> b) {
    if (boundSwitch == 0) {
        return dot(a, b);
    }
    Parts parts = {};
    for (std::size_t i = 0; i < a.size(); ++i) {
        parts[i % partCount] += isCounted(boundSwitch, nbd[i]) ? a[i] * b[i] : 0.0;
    }
    return total(parts);
}

void maskedNegatedCopy(std::int32_t boundSwitch, std::span<const std::int32_t> nbd, std::span<const double> a,
                       std::span<double> b) {
    for (std::size_t i = 0; i < a.size(); ++i) {
        b[i] = boundSwitch == 0 || isCounted(boundSwitch, nbd[i]) ? -a[i] : 0.0;
    }
}

void maskedZero(std::int32_t boundSwitch, std::span<const std::int32_t> nbd, std::span<double> a) {
    if (boundSwitch == 0) {
        return;
    }
    for (std::size_t i = 0; i < a.size(); ++i) {
        a[i] = isCounted(boundSwitch, nbd[i]) ? a[i] : 0.0;
    }
}

void maskedDifference(std::int32_t boundSwitch, std::span<const std::int32_t> nbd, std::span<const double> now,
                      std::span<double> old) {
    for (std::size_t i = 0; i < now.size(); ++i) {
        old[i] = boundSwitch == 0 || isCounted(boundSwitch, nbd[i]) ? now[i] - old[i] : 0.0;
    }
}

double dot(std::span<const double> a, std::span<const double> b) {
    assert(a.size() == b.size());
    Parts parts = {};
    addProducts(a.data(), b.data(), a.size(), parts);
    return total(parts);
}

void axpy(double alpha, std::span<const double> x, std::span<const double> z, std::span<double> y) {
    for (std::size_t i = 0; i < x.size(); ++i) {
        y[i] = alpha * x[i] + z[i];
    }
}

void scaledCopy(double alpha, std::span<const double> x, std::span<double> y) {
    for (std::size_t i = 0; i < x.size(); ++i) {
        y[i] = alpha * x[i];
    }
}

void combination(double alpha, std::span<const double> x, double beta, std::span<const double> z, std::span<double> y) {
    for (std::size_t i = 0; i < x.size(); ++i) {
        y[i] = alpha * x[i] + beta * z[i];
    }
}

void transposedProduct(std::span<const double> a, std::span<const double> x, std::span<double> y) {
    assert(a.size() == x.size() * y.size());
    const std::size_t n = x.size();
    for (std::size_t first = 0; first < y.size(); first += columnGroup) {
        const std::size_t count = std::min(columnGroup, y.size() - first);
        Parts parts[columnGroup] = {};
        for (std::size_t row = 0; row < n; row += blockRows) {
            const std::size_t rows = std::min(blockRows, n - row);
            for (std::size_t j = 0; j < count; ++j) {
                addProducts(a.data() + (first + j) * n + row, x.data() + row, rows, parts[j]);
            }
        }
        for (std::size_t j = 0; j < count; ++j) {
            y[first + j] = total(parts[j]);
        }
    }
}

void product(std::span<const double> a, std::span<const double> x, double alpha, std::span<const double> z,
             std::span<double> y) {
    assert(a.size() == x.size() * y.size() && z.size() == y.size());
    const std::size_t n = y.size();
    for (std::size_t row = 0; row < n; row += blockRows) {
        const std::size_t end = std::min(row + blockRows, n);
        for (std::size_t i = row; i < end; ++i) {
            y[i] = alpha * z[i];
        }
        for (std::size_t j = 0; j < x.size(); ++j) {
            const double* const column = a.data() + j * n;
            for (std::size_t i = row; i < end; ++i) {
                y[i] += x[j] * column[i];
            }
        }
    }
}

void rankOneUpdate(std::span<double> a, double alpha, std::span<const double> x, std::span<const double> y) {
    const std::size_t n = x.size();
    for (std::size_t row = 0; row < n; row += blockRows) {
        const std::size_t end = std::min(row + blockRows, n);
        for (std::size_t j = 0; j < y.size(); ++j) {
            double* const column = a.data() + j * n;
            const double factor = alpha * y[j];
            for (std::size_t i = row; i < end; ++i) {
                column[i] += factor * x[i];
            }
        }
    }
}

void rankTwoUpdate(std::span<double> a, double alpha, std::span<const double> x, std::span<const double> y, double beta,
                   std::span<const double> u, std::span<const double> v) {
    const std::size_t n = x.size();
    for (std::size_t row = 0; row < n; row += blockRows) {
        const std::size_t end = std::min(row + blockRows, n);
        for (std::size_t j = 0; j < y.size(); ++j) {
            double* const column = a.data() + j * n;
            const double first = alpha * y[j];
            const double second = beta * v[j];
            for (std::size_t i = row; i < end; ++i) {
                column[i] = (column[i] + first * x[i]) + second * u[i];
            }
        }
    }
}

void copy(std::span<const double> x, std::span<double> y) {
    std::copy(x.begin(), x.end(), y.begin());
}

void stepAlong(std::span<const double> xo, double r, std::span<const double> s, std::span<double> x) {
    for (std::size_t i = 0; i < x.size(); ++i) {
        x[i] = xo[i] + r * s[i];
    }
}

}  // namespace voxlith::plis
