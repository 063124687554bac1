// The kernels of PLIS against sums in a wider type, at lengths on either side of their blocks.
#include "optim/plis/plis_kernels.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <vector>

namespace voxlith::plis {
namespace {

using Vector = std::vector<double>;

const double notANumber = std::numeric_limits<double>::quiet_NaN();

class PlisKernels : public testing::TestWithParam<std::size_t> {
protected:
    std::size_t n = GetParam();
    std::mt19937 random{static_cast<unsigned>(n) + 17};

    Vector randomVector(std::size_t size) {
        std::uniform_real_distribution<double> component(-1.0, 1.0);
        Vector v(size);
        for (double& value : v) {
            value = component(random);
        }
        return v;
    }

    std::vector<std::int32_t> mixedCodes() const {
        std::vector<std::int32_t> nbd(n);
        for (std::size_t i = 0; i < n; ++i) {
            nbd[i] = static_cast<std::int32_t>(i % 9) - 5;
        }
        return nbd;
    }
};

double wideDot(const Vector& a, const Vector& b) {
    long double sum = 0.0L;
    for (std::size_t i = 0; i < a.size(); ++i) {
        sum += static_cast<long double>(a[i]) * b[i];
    }
    return static_cast<double>(sum);
}

double tolerance(std::size_t n) {
    return 1.0e-15 * (static_cast<double>(n) + 1.0);
}

TEST_P(PlisKernels, DotIsTheInnerProduct) {
    const Vector a = randomVector(n);
    const Vector b = randomVector(n);
    EXPECT_NEAR(dot(a, b), wideDot(a, b), tolerance(n));
}

TEST_P(PlisKernels, MasksCountByTheSwitch) {
    const std::vector<std::int32_t> nbd = mixedCodes();
    for (const std::int32_t boundSwitch : {-1, 0, 2}) {
        Vector a = randomVector(n);
        const Vector b = randomVector(n);
        Vector counted(a);
        for (std::size_t i = 0; i < n; ++i) {
            const bool absent = (boundSwitch > 0 && nbd[i] < 0) || (boundSwitch < 0 && nbd[i] == -5);
            if (absent) {
                counted[i] = 0.0;
                a[i] = notANumber;
            }
        }
        EXPECT_NEAR(maskedDot(boundSwitch, nbd, a, b), wideDot(counted, b), tolerance(n)) << boundSwitch;
        Vector negated(n, 9.0);
        maskedNegatedCopy(boundSwitch, nbd, a, negated);
        Vector difference(b);
        maskedDifference(boundSwitch, nbd, a, difference);
        Vector zeroed(a);
        maskedZero(boundSwitch, nbd, zeroed);
        for (std::size_t i = 0; i < n; ++i) {
            EXPECT_EQ(negated[i], -counted[i]) << boundSwitch << " " << i;
            EXPECT_EQ(zeroed[i], counted[i]) << boundSwitch << " " << i;
            EXPECT_EQ(difference[i], std::isnan(a[i]) ? 0.0 : a[i] - b[i]) << boundSwitch << " " << i;
        }
    }
}

TEST_P(PlisKernels, AMaskThatCountsAllElementsGivesTheBitsOfThePlainSum) {
    const std::vector<std::int32_t> nbd(n, 3);
    const Vector a = randomVector(n);
    const Vector b = randomVector(n);
    EXPECT_EQ(maskedDot(2, nbd, a, b), dot(a, b));
}

TEST_P(PlisKernels, CombinationsMayOverwriteTheirOperands) {
    const Vector x = randomVector(n);
    const Vector z = randomVector(n);
    Vector sum(z), scaled(x), both(x), copied(n), stepped(n);
    axpy(-0.7, x, sum, sum);
    scaledCopy(1.5, scaled, scaled);
    combination(0.3, both, -2.0, z, both);
    copy(x, copied);
    stepAlong(x, 0.25, z, stepped);
    EXPECT_EQ(copied, x);
    for (std::size_t i = 0; i < n; ++i) {
        EXPECT_EQ(sum[i], -0.7 * x[i] + z[i]);
        EXPECT_EQ(scaled[i], 1.5 * x[i]);
        EXPECT_EQ(both[i], 0.3 * x[i] + -2.0 * z[i]);
        EXPECT_EQ(stepped[i], x[i] + 0.25 * z[i]);
    }
}

TEST_P(PlisKernels, ProductsAreThoseOfTheMatrix) {
    for (const std::size_t columns : {0u, 1u, 7u, 8u, 9u, 17u}) {
        const Vector a = randomVector(n * columns);
        const Vector x = randomVector(n);
        const Vector y = randomVector(columns);
        Vector projected(columns);
        transposedProduct(a, x, projected);
        for (std::size_t j = 0; j < columns; ++j) {
            const std::span<const double> column(a.data() + j * n, n);
            EXPECT_EQ(projected[j], dot(column, x)) << "column " << j << " of " << columns;
        }
        Vector result(x);
        product(a, y, 0.5, result, result);
        for (std::size_t i = 0; i < n; ++i) {
            long double expected = 0.5L * x[i];
            for (std::size_t j = 0; j < columns; ++j) {
                expected += static_cast<long double>(a[j * n + i]) * y[j];
            }
            EXPECT_NEAR(result[i], static_cast<double>(expected), tolerance(columns)) << "row " << i;
        }
    }
}

TEST_P(PlisKernels, UpdatesAddOuterProducts) {
    for (const std::size_t columns : {0u, 1u, 5u}) {
        const Vector a = randomVector(n * columns);
        const Vector x = randomVector(n);
        const Vector u = randomVector(n);
        const Vector y = randomVector(columns);
        const Vector v = randomVector(columns);
        Vector one(a), two(a);
        rankOneUpdate(one, -0.5, x, y);
        rankTwoUpdate(two, -0.5, x, y, 2.0, u, v);
        for (std::size_t j = 0; j < columns; ++j) {
            for (std::size_t i = 0; i < n; ++i) {
                const double first = a[j * n + i] - 0.5 * x[i] * y[j];
                EXPECT_NEAR(one[j * n + i], first, 1.0e-15);
                EXPECT_NEAR(two[j * n + i], first + 2.0 * u[i] * v[j], 2.0e-15);
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Lengths, PlisKernels, testing::Values(0, 1, 7, 8, 9, 40, 2047, 2048, 2049, 4101));

}  // namespace
}  // namespace voxlith::plis
