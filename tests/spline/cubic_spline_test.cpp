#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "recorded_numbers.h"
#include "spline/voxlith_spline.h"

namespace {

using voxlith::testing_support::CubicCase;
using voxlith::testing_support::readCubicCases;

constexpr double notANumber = std::numeric_limits<double>::quiet_NaN();

struct Spline {
    std::vector<double> knot, c;

    std::int32_t n() const { return static_cast<std::int32_t>(knot.size()); }
    double entry(std::size_t i, std::size_t which) const { return c[4 * i + which - 1]; }
    double value(double x) const {
        const std::int32_t count = n();
        return CUBVAL(&count, knot.data(), c.data(), &x);
    }
    double integral(double a, double b) const {
        const std::int32_t count = n();
        return CUBINT(&count, knot.data(), c.data(), &a, &b);
    }
};

Spline fit(const std::vector<double>& knot, const std::vector<double>& data, std::int32_t startCondition,
           std::int32_t endCondition, double startData = 0.0, double endData = 0.0) {
    // What the caller need not fill is a NaN, so that a fit that reads it shows.
    Spline spline{knot, std::vector<double>(4 * knot.size(), notANumber)};
    for (std::size_t i = 0; i < knot.size(); ++i) {
        spline.c[4 * i] = data[i];
    }
    if (startCondition > 0) {
        spline.c[1] = startData;
    }
    if (endCondition > 0) {
        spline.c[4 * knot.size() - 3] = endData;
    }
    const std::int32_t count = spline.n();
    CUBSPL(&count, knot.data(), spline.c.data(), &startCondition, &endCondition);
    return spline;
}

Spline fit(const CubicCase& one) {
    return fit(one.knot, one.value, one.startCondition, one.endCondition, one.startData, one.endData);
}

double largest(const std::vector<double>& numbers) {
    double result = 0.0;
    for (const double number : numbers) {
        result = std::max(result, std::fabs(number));
    }
    return result;
}

double largestOfColumn(const std::vector<std::vector<double>>& rows, std::size_t column) {
    double result = 0.0;
    for (const std::vector<double>& row : rows) {
        result = std::max(result, std::fabs(row[column]));
    }
    return result;
}

// Each kind of answer is compared relative to its largest value in the case.
void expectCase(const CubicCase& one, double tolerance) {
    SCOPED_TRACE(one.name);
    const Spline spline = fit(one);
    const std::vector<const std::vector<double>*> derivatives = {&one.value, &one.first, &one.second, &one.third};
    const double lowest = tolerance * largest(one.value);
    for (std::size_t which = 1; which <= 4; ++which) {
        const std::vector<double>& expected = *derivatives[which - 1];
        // A straight line has derivatives of 0 that rounding alone fills.
        const double bound = std::max(tolerance * largest(expected), lowest);
        for (std::size_t i = 0; i < expected.size(); ++i) {
            EXPECT_NEAR(spline.entry(i, which), expected[i], bound) << "c" << which << " of knot " << i + 1;
        }
    }
    for (const std::vector<double>& point : one.points) {
        EXPECT_NEAR(spline.value(point[0]), point[1], tolerance * largestOfColumn(one.points, 1)) << "x " << point[0];
    }
    for (const std::vector<double>& row : one.integrals) {
        EXPECT_NEAR(spline.integral(row[0], row[1]), row[2], tolerance * largestOfColumn(one.integrals, 2))
            << row[0] << " to " << row[1];
    }
}

TEST(Cubspl, recordedAnswers) {
    const std::vector<CubicCase> cases = readCubicCases("recorded_cubic.txt");
    ASSERT_GE(cases.size(), 40U);
    for (const CubicCase& one : cases) {
        expectCase(one, 1e-12);
    }
}

TEST(Cubspl, agreesWithScipyForAllPairsOfEndConditions) {
    const std::vector<CubicCase> cases = readCubicCases("scipy_cubic.txt");
    ASSERT_GE(cases.size(), 37U);
    for (const CubicCase& one : cases) {
        expectCase(one, 2e-12);
    }
}

struct RandomData {
    std::vector<double> knot, data;
};

RandomData randomData(std::mt19937& generator, std::size_t n) {
    std::uniform_real_distribution<double> step(0.2, 2.0);
    std::uniform_real_distribution<double> value(-3.0, 3.0);
    RandomData result;
    double at = -2.0;
    for (std::size_t i = 0; i < n; ++i) {
        result.knot.push_back(at);
        result.data.push_back(value(generator));
        at += step(generator);
    }
    return result;
}

TEST(Cubspl, twoKnotsWithoutBoundaryDataGiveTheStraightLine) {
    const Spline spline = fit({1.0, 3.0}, {2.0, 8.0}, 0, 0);
    EXPECT_EQ(spline.entry(0, 2), 3.0);
    EXPECT_EQ(spline.entry(1, 2), 3.0);
    EXPECT_EQ(spline.entry(0, 3), 0.0);
    EXPECT_EQ(spline.entry(0, 4), 0.0);
    EXPECT_EQ(spline.value(1.5), 3.5);
    EXPECT_EQ(spline.integral(1.0, 3.0), 10.0);
}

TEST(Cubspl, threeKnotsWithoutBoundaryDataGiveTheParabola) {
    for (unsigned seed = 1; seed <= 50; ++seed) {
        std::mt19937 generator(seed);
        const RandomData random = randomData(generator, 3);
        const Spline spline = fit(random.knot, random.data, 0, 0);
        const std::vector<double>& x = random.knot;
        const std::vector<double>& y = random.data;
        const double first = (y[1] - y[0]) / (x[1] - x[0]);
        const double second = ((y[2] - y[1]) / (x[2] - x[1]) - first) / (x[2] - x[0]);
        for (double t = x[0]; t < x[2]; t += 0.05) {
            const double parabola = y[0] + (t - x[0]) * (first + second * (t - x[1]));
            ASSERT_NEAR(spline.value(t), parabola, 1e-12) << "seed " << seed << " t " << t;
        }
    }
}

// What a fit must have whatever the ends: the data at the knots, and two continuous derivatives.
TEST(Cubspl, interpolatesWithTwoContinuousDerivatives) {
    for (unsigned seed = 1; seed <= 60; ++seed) {
        std::mt19937 generator(seed);
        const RandomData random = randomData(generator, 2 + seed % 20);
        for (std::int32_t start = 0; start <= 2; ++start) {
            for (std::int32_t end = 0; end <= 2; ++end) {
                const Spline spline = fit(random.knot, random.data, start, end, 0.4, -0.7);
                for (std::size_t i = 0; i + 1 < random.knot.size(); ++i) {
                    const double h = random.knot[i + 1] - random.knot[i];
                    const double c2 = spline.entry(i, 2);
                    const double c3 = spline.entry(i, 3);
                    const double c4 = spline.entry(i, 4);
                    ASSERT_EQ(spline.entry(i, 1), random.data[i]);
                    const double value = random.data[i] + h * (c2 + h * (c3 / 2.0 + h * c4 / 6.0));
                    ASSERT_NEAR(value, random.data[i + 1], 1e-10) << "seed " << seed;
                    ASSERT_NEAR(c2 + h * (c3 + h * c4 / 2.0), spline.entry(i + 1, 2), 1e-9) << "seed " << seed;
                    if (i + 2 < random.knot.size()) {
                        ASSERT_NEAR(c3 + h * c4, spline.entry(i + 1, 3), 1e-8) << "seed " << seed;
                    }
                }
            }
        }
    }
}

TEST(Cubspl, endDataAreMet) {
    std::mt19937 generator(7);
    const RandomData random = randomData(generator, 9);
    const std::size_t last = random.knot.size() - 1;
    const double h = random.knot[last] - random.knot[last - 1];
    const Spline slopes = fit(random.knot, random.data, 1, 1, 0.4, -0.7);
    EXPECT_EQ(slopes.entry(0, 2), 0.4);
    EXPECT_EQ(slopes.entry(last, 2), -0.7);
    for (const std::int32_t condition : {2, 3, 99}) {
        const Spline curvatures = fit(random.knot, random.data, condition, condition, 0.4, -0.7);
        EXPECT_NEAR(curvatures.entry(0, 3), 0.4, 1e-12);
        EXPECT_NEAR(curvatures.entry(last - 1, 3) + h * curvatures.entry(last - 1, 4), -0.7, 1e-12);
    }
    const Spline free = fit(random.knot, random.data, 0, 0);
    EXPECT_NEAR(free.entry(0, 4), free.entry(1, 4), 1e-10);
    EXPECT_NEAR(free.entry(last - 1, 4), free.entry(last - 2, 4), 1e-10);
}

TEST(Cubspl, negativeConditionsActLikeZero) {
    std::mt19937 generator(8);
    for (std::size_t n = 2; n <= 5; ++n) {
        const RandomData random = randomData(generator, n);
        const Spline zero = fit(random.knot, random.data, 0, 0);
        const Spline negative = fit(random.knot, random.data, -1, -5);
        for (std::size_t i = 0; i < 4 * n - 2; ++i) {
            EXPECT_EQ(zero.c[i], negative.c[i]) << i;
        }
    }
}

TEST(Cubspl, fewerThanTwoKnotsLeaveTheTableAlone) {
    for (const std::int32_t n : {1, 0, -3}) {
        const double knot = 1.0;
        double c[4] = {1.0, 2.0, 3.0, 4.0};
        const std::int32_t condition = 0;
        CUBSPL(&n, &knot, c, &condition, &condition);
        EXPECT_EQ(c[0], 1.0);
        EXPECT_EQ(c[1], 2.0);
        EXPECT_EQ(c[2], 3.0);
        EXPECT_EQ(c[3], 4.0);
    }
}

TEST(Cubval, beyondTheKnotsTheEndValueIsReturned) {
    std::mt19937 generator(3);
    const RandomData random = randomData(generator, 6);
    const Spline spline = fit(random.knot, random.data, 0, 0);
    EXPECT_EQ(spline.value(random.knot.front()), random.data.front());
    EXPECT_EQ(spline.value(random.knot.front() - 100.0), random.data.front());
    EXPECT_EQ(spline.value(random.knot.back()), random.data.back());
    EXPECT_EQ(spline.value(random.knot.back() + 100.0), random.data.back());
}

TEST(Cubint, beyondTheKnotsTheCubicIsExtrapolated) {
    // x^3 is its own spline, so its antiderivative holds everywhere.
    const Spline spline = fit({-1.0, 0.0, 1.0, 2.0, 4.0}, {-1.0, 0.0, 1.0, 8.0, 64.0}, 0, 0);
    const auto antiderivative = [](double x) { return x * x * x * x / 4.0; };
    for (const double a : {-5.0, -1.0, 0.3, 3.0, 4.0}) {
        for (const double b : {-3.0, 0.5, 1.0, 4.0, 9.0}) {
            if (a <= b) {
                EXPECT_NEAR(spline.integral(a, b), antiderivative(b) - antiderivative(a), 1e-10) << a << " " << b;
            }
        }
    }
}

TEST(Cubint, emptyIntervalGivesZero) {
    std::mt19937 generator(4);
    const RandomData random = randomData(generator, 8);
    const Spline spline = fit(random.knot, random.data, 0, 0);
    for (double a = random.knot.front() - 1.0; a < random.knot.back() + 1.0; a += 0.1) {
        EXPECT_EQ(spline.integral(a, a), 0.0) << a;
    }
}

TEST(Cubint, adjacentIntervalsAddUp) {
    std::mt19937 generator(5);
    const RandomData random = randomData(generator, 12);
    const Spline spline = fit(random.knot, random.data, 2, 1, 0.1, 0.2);
    std::uniform_real_distribution<double> anywhere(random.knot.front() - 1.0, random.knot.back() + 1.0);
    for (int i = 0; i < 200; ++i) {
        std::vector<double> limits = {anywhere(generator), anywhere(generator), anywhere(generator)};
        std::sort(limits.begin(), limits.end());
        EXPECT_NEAR(spline.integral(limits[0], limits[1]) + spline.integral(limits[1], limits[2]),
                    spline.integral(limits[0], limits[2]), 1e-10);
    }
}

// Reversed limits: right within one interval; of different intervals those between are left out. Callers rely on the
// first only; the second keeps results comparable with earlier versions.
TEST(Cubint, reversedLimitsLeaveOutTheWholePieces) {
    const Spline spline = fit({0.0, 1.0, 2.0, 3.0}, {1.0, 1.0, 1.0, 1.0}, 0, 0);
    EXPECT_NEAR(spline.integral(0.75, 0.25), -0.5, 1e-15);
    // Both limits count from their own knots: 0.25 of interval 1 less 0.5 of interval 3.
    EXPECT_NEAR(spline.integral(2.5, 0.25), 0.25 - 0.5, 1e-15);
}

TEST(Cubval, tablesOfDifferentLengthsInTurnGiveTheAnswersOfEachAlone) {
    std::mt19937 generator(6);
    const RandomData longData = randomData(generator, 200);
    const Spline longSpline = fit(longData.knot, longData.data, 0, 0);
    for (std::size_t n = 2; n <= 5; ++n) {
        const RandomData shortData = randomData(generator, n);
        const Spline shortSpline = fit(shortData.knot, shortData.data, 0, 0);
        const double inside = 0.5 * (shortData.knot.front() + shortData.knot.back());
        const double value = shortSpline.value(inside);
        const double integral = shortSpline.integral(inside, shortData.knot.back() + 1.0);
        const double far = longData.knot[198] + 0.01;
        const double farValue = longSpline.value(far);
        for (int turn = 0; turn < 3; ++turn) {
            EXPECT_EQ(longSpline.value(far), farValue);
            EXPECT_EQ(shortSpline.value(inside), value);
            EXPECT_EQ(longSpline.value(far), farValue);
            EXPECT_EQ(shortSpline.integral(inside, shortData.knot.back() + 1.0), integral);
        }
    }
}

TEST(Cubval, notANumberGivesNotANumber) {
    std::mt19937 generator(9);
    for (std::size_t n = 2; n <= 4; ++n) {
        const RandomData random = randomData(generator, n);
        const Spline spline = fit(random.knot, random.data, 0, 0);
        EXPECT_TRUE(std::isnan(spline.value(notANumber)));
        EXPECT_TRUE(std::isnan(spline.integral(notANumber, 1.0)));
        EXPECT_TRUE(std::isnan(spline.integral(0.0, notANumber)));
    }
}

TEST(Cubval, oneKnotIsAConstantAndHasNoIntegral) {
    const Spline spline{{2.0}, {7.0, notANumber, notANumber, notANumber}};
    EXPECT_EQ(spline.value(1.0), 7.0);
    EXPECT_EQ(spline.value(2.0), 7.0);
    EXPECT_EQ(spline.value(3.0), 7.0);
    EXPECT_TRUE(std::isnan(spline.value(notANumber)));
    EXPECT_TRUE(std::isnan(spline.integral(1.0, 3.0)));
}

TEST(Cubval, withoutKnotsNothingIsRead) {
    const std::int32_t n = 0;
    const double x = 1.0;
    EXPECT_TRUE(std::isnan(CUBVAL(&n, nullptr, nullptr, &x)));
    EXPECT_TRUE(std::isnan(CUBINT(&n, nullptr, nullptr, &x, &x)));
}

// Knots out of order mean nothing, but must not lead outside the arrays (which the address sanitizer would see), nor
// spoil what comes after.
TEST(Cubval, unsortedKnotsAreSurvivedAndLeaveNoTrace) {
    const Spline sound = fit({0.0, 1.0, 2.0, 3.0, 5.0}, {1.0, -1.0, 2.0, 0.5, 0.0}, 0, 0);
    const double value = sound.value(2.75);
    const double integral = sound.integral(0.5, 4.5);
    for (unsigned seed = 1; seed <= 100; ++seed) {
        std::mt19937 generator(seed);
        RandomData random = randomData(generator, 2 + seed % 9);
        std::shuffle(random.knot.begin(), random.knot.end(), generator);
        random.knot[generator() % random.knot.size()] = seed % 2 == 0 ? notANumber : random.knot[0];
        const Spline spline = fit(random.knot, random.data, 0, 0);
        for (double x = -4.0; x < 20.0; x += 0.5) {
            spline.value(x);
            spline.integral(x, x + 3.0);
            ASSERT_EQ(sound.value(2.75), value) << "seed " << seed;
            ASSERT_EQ(sound.integral(0.5, 4.5), integral) << "seed " << seed;
        }
    }
}

}  // namespace
