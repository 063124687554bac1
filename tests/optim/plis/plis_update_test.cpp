// The shifted update of PLIS: the quasi-Newton condition, the limits of the shift, and when the matrix is unchanged.
#include "optim/plis/plis_update.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <vector>

#include "optim/plis/plis_kernels.h"

namespace voxlith::plis {
namespace {

using Vector = std::vector<double>;

// A matrix with m columns, and consistent increments: xo = (lowRank lowRank' + shift I) s, curvature above 0.
struct UpdateCase {
    std::size_t n, m;
    Vector lowRank, s, xo, go, shiftedStep, gradProjection, stepProjection;
    double shift = 0.3;
    std::int32_t columnsInUse = 0;

    UpdateCase(std::size_t rows, std::size_t columns, unsigned seed)
        : n(rows),
          m(columns),
          lowRank(n * m),
          s(n),
          xo(n),
          go(n),
          shiftedStep(n),
          gradProjection(m),
          stepProjection(m) {
        std::mt19937 random(seed);
        std::uniform_real_distribution<double> component(-1.0, 1.0);
        for (double& value : lowRank) {
            value = component(random);
        }
        for (std::size_t i = 0; i < n; ++i) {
            s[i] = component(random);
            go[i] = component(random);
        }
        columnsInUse = static_cast<std::int32_t>(m);
        transposedProduct(lowRank, s, stepProjection);
        product(lowRank, stepProjection, shift, s, xo);
        if (dot(xo, go) < 0.0) {
            scaledCopy(-1.0, go, go);
        }
    }

    bool update(int method) {
        const UpdateVectors vectors{s, xo, go, shiftedStep, gradProjection, stepProjection};
        return updateMatrix(method, 1.0, vectors, lowRank, columnsInUse, shift);
    }

    // lowRank lowRank' go.
    Vector imageOfGo() const {
        const std::size_t columns = static_cast<std::size_t>(columnsInUse);
        const std::span<const double> used(lowRank.data(), n * columns);
        Vector projection(columns);
        Vector image(n, 0.0);
        transposedProduct(used, go, projection);
        product(used, projection, 0.0, image, image);
        return image;
    }
};

double largestAbsolute(const Vector& v) {
    double largest = 0.0;
    for (const double value : v) {
        largest = std::max(largest, std::abs(value));
    }
    return largest;
}

TEST(PlisUpdate, AnAddedColumnSatisfiesTheQuasiNewtonCondition) {
    for (unsigned seed = 1; seed <= 40; ++seed) {
        UpdateCase test(23, 6, seed);
        test.columnsInUse = static_cast<std::int32_t>(seed % 6);
        const double b = dot(test.xo, test.go);
        const double a = dot(test.go, test.go);
        const Vector xo = test.xo;
        const std::int32_t before = test.columnsInUse;
        ASSERT_TRUE(test.update(1)) << "seed " << seed;
        EXPECT_EQ(test.columnsInUse, before + 1);
        EXPECT_GE(test.shift, 0.2 * b / a * (1.0 - 1.0e-14));
        EXPECT_LE(test.shift, 0.8 * b / a * (1.0 + 1.0e-14));
        const Vector image = test.imageOfGo();
        for (std::size_t i = 0; i < test.n; ++i) {
            EXPECT_NEAR(image[i] + test.shift * test.go[i], xo[i], 1.0e-12 * largestAbsolute(xo)) << "seed " << seed;
        }
    }
}

// lowRank lowRank' go = v (xo - shift go), with v from its definition.
TEST(PlisUpdate, AFullMatrixSatisfiesTheScaledQuasiNewtonCondition) {
    int negativeProjections = 0;
    for (unsigned seed = 1; seed <= 60; ++seed) {
        for (const int method : {1, 2}) {
            UpdateCase test(31, 5, seed);
            const Vector xo = test.xo;
            const double b = dot(xo, test.go);
            const double a = dot(test.go, test.go);
            Vector projection(test.m);
            transposedProduct(test.lowRank, test.go, projection);
            const double gg = dot(projection, projection);
            const double share = 1.0 - gg / (test.shift * a + gg);
            if (dot(projection, test.stepProjection) < 0.0) {
                ++negativeProjections;
            }
            ASSERT_TRUE(test.update(method)) << "seed " << seed;
            EXPECT_GE(test.shift, 0.2 * b / a * (1.0 - 1.0e-14));
            EXPECT_LE(test.shift, 0.8 * b / a * (1.0 + 1.0e-14));
            const double v = std::sqrt(std::sqrt(share) * test.shift * a / (b - test.shift * a));
            const Vector image = test.imageOfGo();
            const double largest = largestAbsolute(test.lowRank);
            const double rounding = 1.0e-13 * largest * largest * static_cast<double>(test.m);
            for (std::size_t i = 0; i < test.n; ++i) {
                EXPECT_NEAR(image[i], v * (xo[i] - test.shift * test.go[i]), rounding + 1.0e-12 * largestAbsolute(xo))
                    << "seed " << seed << " method " << method;
            }
        }
    }
    EXPECT_GT(negativeProjections, 2);
}

// lowRank' go becomes the projection of the step, with the opposite sign: a matrix that is
// already exact only changes sign.
TEST(PlisUpdate, TheProjectionOfTheGradientFollowsTheSignOfTheOldOne) {
    int signs[2] = {0, 0};
    for (unsigned seed = 1; seed <= 60; ++seed) {
        for (const int method : {1, 2}) {
            UpdateCase test(31, 5, seed);
            const Vector step = test.stepProjection;
            Vector projection(test.m);
            transposedProduct(test.lowRank, test.go, projection);
            const double gx = dot(projection, step);
            ASSERT_TRUE(test.update(method)) << "seed " << seed;
            transposedProduct(test.lowRank, test.go, projection);
            EXPECT_LT(dot(projection, step) * gx, 0.0) << "seed " << seed << " method " << method;
            ++signs[gx < 0.0];
        }
    }
    EXPECT_GT(signs[0], 0);
    EXPECT_GT(signs[1], 0);
}

TEST(PlisUpdate, TheTwoMethodsDifferOnceTheMatrixIsFull) {
    UpdateCase one(12, 4, 3), two(12, 4, 3);
    ASSERT_TRUE(one.update(1));
    ASSERT_TRUE(two.update(2));
    EXPECT_NE(one.lowRank, two.lowRank);
    UpdateCase first(12, 4, 3), second(12, 4, 3);
    first.columnsInUse = second.columnsInUse = 3;
    ASSERT_TRUE(first.update(1));
    ASSERT_TRUE(second.update(2));
    EXPECT_EQ(first.lowRank, second.lowRank);
}

// The length of the step scales s: s/r with step r is the same update.
TEST(PlisUpdate, TheStepScalesTheGradient) {
    for (const int method : {1, 2}) {
        UpdateCase whole(12, 4, 5), halved(12, 4, 5);
        scaledCopy(4.0, halved.s, halved.s);
        ASSERT_TRUE(whole.update(method));
        const UpdateVectors vectors{
            halved.s, halved.xo, halved.go, halved.shiftedStep, halved.gradProjection, halved.stepProjection};
        ASSERT_TRUE(updateMatrix(method, 0.25, vectors, halved.lowRank, halved.columnsInUse, halved.shift));
        EXPECT_EQ(whole.lowRank, halved.lowRank);
        EXPECT_EQ(whole.shift, halved.shift);
    }
}

void expectLeftAlone(UpdateCase test, int method, const char* what) {
    const UpdateCase before = test;
    EXPECT_FALSE(test.update(method)) << what;
    EXPECT_EQ(test.lowRank, before.lowRank) << what;
    EXPECT_EQ(test.shift, before.shift) << what;
    EXPECT_EQ(test.columnsInUse, before.columnsInUse) << what;
}

TEST(PlisUpdate, KeepsTheMatrixWithoutCurvature) {
    for (const int method : {1, 2}) {
        for (const std::int32_t columns : {2, 4}) {
            UpdateCase base(12, 4, 9);
            base.columnsInUse = columns;
            UpdateCase bent = base;
            scaledCopy(-1.0, bent.go, bent.go);
            expectLeftAlone(bent, method, "negative curvature");
            UpdateCase still = base;
            std::fill(still.xo.begin(), still.xo.end(), 0.0);
            expectLeftAlone(still, method, "no step");
            UpdateCase flat = base;
            std::fill(flat.go.begin(), flat.go.end(), 0.0);
            expectLeftAlone(flat, method, "no change of the gradient");
            for (const double odd : {std::numeric_limits<double>::quiet_NaN(), std::numeric_limits<double>::infinity(),
                                     -std::numeric_limits<double>::infinity()}) {
                UpdateCase broken = base;
                broken.go[5] = odd;
                expectLeftAlone(broken, method, "a gradient that is no finite number");
            }
        }
        UpdateCase orthogonal(12, 4, 9);
        std::fill(orthogonal.s.begin(), orthogonal.s.end(), 0.0);
        expectLeftAlone(orthogonal, method, "a gradient outside of the columns");
        UpdateCase empty(12, 0, 9);
        empty.xo = empty.go;
        expectLeftAlone(empty, method, "no columns at all");
    }
}

}  // namespace
}  // namespace voxlith::plis
