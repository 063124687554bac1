#include "spline/tension_spline.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <random>
#include <vector>

#include "recorded_numbers.h"
#include "spline/voxlith_spline.h"

namespace {

using voxlith::endSlopeCoefficients;
using voxlith::tensionTerms;
using voxlith::testing_support::readRows;

constexpr double notANumber = std::numeric_limits<double>::quiet_NaN();

struct Fit {
    std::vector<double> x, c;
    std::int32_t status = -99;

    std::int32_t n() const { return static_cast<std::int32_t>(x.size()); }
    double y(std::size_t i) const { return c[3 * i]; }
    double secondDerivative(std::size_t i) const { return c[3 * i + 1]; }
    double normalisedTension() const { return c[2]; }
    double value(double t) const {
        const std::int32_t count = n();
        return TCUBVAL(&count, x.data(), c.data(), &t);
    }
};

struct Ends {
    double startSlope, endSlope;
    std::int32_t slopeSwitch;
};

Fit fit(const std::vector<double>& x, const std::vector<double>& y, const Ends& ends, double tension) {
    // What the caller need not fill is a NaN, so that a fit that reads it shows.
    Fit result{x, std::vector<double>(3 * x.size(), notANumber)};
    for (std::size_t i = 0; i < x.size(); ++i) {
        result.c[3 * i] = y[i];
    }
    const std::int32_t count = result.n();
    TCUBSPL(&count, x.data(), result.c.data(), &ends.startSlope, &ends.endSlope, &ends.slopeSwitch, &tension,
            &result.status);
    return result;
}

struct RandomData {
    std::vector<double> x, y;
};

RandomData randomData(std::mt19937& generator, std::size_t n) {
    std::uniform_real_distribution<double> step(0.2, 2.0);
    std::uniform_real_distribution<double> value(-3.0, 3.0);
    RandomData result;
    double at = -2.0;
    for (std::size_t i = 0; i < n; ++i) {
        result.x.push_back(at);
        result.y.push_back(value(generator));
        at += step(generator);
    }
    return result;
}

// Solves a dense system by elimination with row exchange.
std::vector<long double> solveDense(std::vector<std::vector<long double>> matrix, std::vector<long double> right) {
    const std::size_t n = right.size();
    for (std::size_t column = 0; column < n; ++column) {
        std::size_t pivot = column;
        for (std::size_t row = column + 1; row < n; ++row) {
            pivot = std::fabs(matrix[row][column]) > std::fabs(matrix[pivot][column]) ? row : pivot;
        }
        std::swap(matrix[column], matrix[pivot]);
        std::swap(right[column], right[pivot]);
        for (std::size_t row = column + 1; row < n; ++row) {
            const long double factor = matrix[row][column] / matrix[column][column];
            for (std::size_t k = column; k < n; ++k) {
                matrix[row][k] -= factor * matrix[column][k];
            }
            right[row] -= factor * right[column];
        }
    }
    for (std::size_t row = n; row-- > 0;) {
        for (std::size_t k = row + 1; k < n; ++k) {
            right[row] -= matrix[row][k] * right[k];
        }
        right[row] /= matrix[row][row];
    }
    return right;
}

struct ExactTerms {
    long double diag, sdiag;
};

// With w = tension h: diag = (w coth w - 1) / (tension w), sdiag = (1 - w / sinh w) / (tension w).
ExactTerms exactTerms(long double tension, long double h) {
    if (tension == 0.0L) {
        return {h / 3.0L, h / 6.0L};
    }
    const long double w = tension * h;
    return {(w / std::tanh(w) - 1.0L) / (tension * w), (1.0L - w / std::sinh(w)) / (tension * w)};
}

// Second derivatives at the knots that make the first derivative of the fit continuous, for given end slopes.
std::vector<long double> exactSecondDerivatives(const RandomData& data, long double startSlope, long double endSlope,
                                                long double tension) {
    const std::size_t n = data.x.size();
    std::vector<std::vector<long double>> matrix(n, std::vector<long double>(n, 0.0L));
    std::vector<long double> right(n, 0.0L);
    right[0] -= startSlope;
    right[n - 1] += endSlope;
    for (std::size_t i = 0; i + 1 < n; ++i) {
        const long double h = static_cast<long double>(data.x[i + 1]) - static_cast<long double>(data.x[i]);
        const long double difference =
            (static_cast<long double>(data.y[i + 1]) - static_cast<long double>(data.y[i])) / h;
        const ExactTerms terms = exactTerms(tension, h);
        matrix[i][i] += terms.diag;
        matrix[i + 1][i + 1] += terms.diag;
        matrix[i][i + 1] += terms.sdiag;
        matrix[i + 1][i] += terms.sdiag;
        right[i] += difference;
        right[i + 1] -= difference;
    }
    return solveDense(matrix, right);
}

// The fit in closed form from its second derivatives, in the interval that contains t (the end intervals beyond the
// knots).
long double exactValue(const RandomData& data, const std::vector<long double>& second, long double tension, double t) {
    std::size_t i = 0;
    while (i + 2 < data.x.size() && t > data.x[i + 1]) {
        ++i;
    }
    const long double h = static_cast<long double>(data.x[i + 1]) - static_cast<long double>(data.x[i]);
    const long double right = static_cast<long double>(t) - static_cast<long double>(data.x[i]);
    const long double left = static_cast<long double>(data.x[i + 1]) - static_cast<long double>(t);
    const long double line =
        (static_cast<long double>(data.y[i + 1]) * right + static_cast<long double>(data.y[i]) * left) / h;
    const auto bend = [&](long double distance) {
        if (tension == 0.0L) {
            return distance * (distance * distance - h * h) / (6.0L * h);
        }
        return (std::sinh(tension * distance) / std::sinh(tension * h) - distance / h) / (tension * tension);
    };
    return line + second[i + 1] * bend(right) + second[i] * bend(left);
}

long double largest(const std::vector<long double>& numbers) {
    long double result = 0.0L;
    for (const long double number : numbers) {
        result = std::max(result, std::fabs(number));
    }
    return result;
}

TEST(NormalisedTension, countsIntervalsInSinglePrecision) {
    EXPECT_EQ(voxlith::normalisedTension(-3.0, 5, 2.0), 6.0);
    // 2^24 + 1 intervals: single precision holds 2^24.
    EXPECT_EQ(voxlith::normalisedTension(1.0, (1 << 24) + 2, 2.0), 8388608.0);
}

TEST(TensionTerms, recordedAnswers) {
    const auto rows = readRows("recorded_tension_terms.txt", 4);
    ASSERT_EQ(rows.size(), 42U);
    for (const std::vector<double>& row : rows) {
        double diag = 0.0;
        double sdiag = 0.0;
        tensionTerms(diag, sdiag, row[0], row[1]);
        EXPECT_NEAR(diag, row[2], 1e-12 * row[2]) << row[0] << " " << row[1];
        EXPECT_NEAR(sdiag, row[3], 1e-12 * row[3]) << row[0] << " " << row[1];
    }
}

TEST(TensionTerms, agreeWithTheClosedForm) {
    for (const double tension : {0.0, 0.2, 1.0, 3.0, 20.0}) {
        for (double h = 0.05; h < 6.0; h *= 1.3) {
            double diag = 0.0;
            double sdiag = 0.0;
            tensionTerms(diag, sdiag, tension, h);
            const ExactTerms exact = exactTerms(tension, h);
            EXPECT_NEAR(diag, static_cast<double>(exact.diag), 1e-8 * diag) << tension << " " << h;
            EXPECT_NEAR(sdiag, static_cast<double>(exact.sdiag), 1e-8 * sdiag) << tension << " " << h;
        }
    }
}

TEST(EndSlopeCoefficients, recordedAnswers) {
    constexpr double sentinel = -7.25;
    const auto rows = readRows("recorded_end_slopes.txt", 7);
    ASSERT_EQ(rows.size(), 90U);
    for (const std::vector<double>& row : rows) {
        double c[3] = {sentinel, sentinel, sentinel};
        endSlopeCoefficients(row[0], row[1], row[2], c[0], c[1], c[2], static_cast<std::int32_t>(row[3]));
        const double bound = 1e-12 * std::max(std::fabs(row[4]), std::fabs(row[5]));
        EXPECT_NEAR(c[0], row[4], bound);
        EXPECT_NEAR(c[1], row[5], bound);
        if (std::isnan(row[6])) {
            EXPECT_EQ(c[2], sentinel);
        } else {
            EXPECT_NEAR(c[2], row[6], bound);
        }
    }
}

// The coefficients give the slope at the end for every function that the formula is made for.
TEST(EndSlopeCoefficients, exactForLinesAndForParabolasOrCosh) {
    for (const double tension : {0.0, 0.1, 0.9, 2.5, 7.0}) {
        for (const double direction : {1.0, -1.0}) {
            const double del1 = 0.7 * direction;
            const double del2 = 1.9 * direction;
            double c1 = 0.0;
            double c2 = 0.0;
            double c3 = 0.0;
            endSlopeCoefficients(del1, del2, tension, c1, c2, c3, 3);
            const double scale = std::fabs(c1) + std::fabs(c2) + std::fabs(c3);
            EXPECT_NEAR(c1 + c2 + c3, 0.0, 1e-7 * scale) << tension;
            EXPECT_NEAR(c2 * del1 + c3 * del2, 1.0, 1e-7) << tension;
            const auto even = [tension](double d) { return tension == 0.0 ? d * d : std::cosh(tension * d) - 1.0; };
            EXPECT_NEAR(c2 * even(del1) + c3 * even(del2), 0.0, 1e-7 * std::fabs(c2) * even(del1)) << tension;
        }
    }
}

TEST(Tcubspl, agreesWithADenseSolveOfTheTensionEquations) {
    for (unsigned seed = 1; seed <= 60; ++seed) {
        std::mt19937 generator(seed);
        const RandomData data = randomData(generator, 2 + seed % 14);
        for (const double tension : {0.0, 0.05, 0.7, -2.0, 5.0, 12.0}) {
            const Fit found = fit(data.x, data.y, {0.8, -0.3, 0}, tension);
            ASSERT_EQ(found.status, 0);
            const double intervals = static_cast<double>(data.x.size() - 1);
            const double normalised = std::fabs(tension) * intervals / (data.x.back() - data.x.front());
            ASSERT_DOUBLE_EQ(found.normalisedTension(), normalised);
            const std::vector<long double> second = exactSecondDerivatives(data, 0.8L, -0.3L, normalised);
            const double scale = static_cast<double>(largest(second));
            for (std::size_t i = 0; i < data.x.size(); ++i) {
                ASSERT_NEAR(found.secondDerivative(i), static_cast<double>(second[i]), 5e-8 * scale)
                    << "seed " << seed << " tension " << tension << " knot " << i + 1;
            }
            // Beyond the ends, too: there the end intervals are extended.
            const double span = data.x.back() - data.x.front();
            for (int k = -5; k <= 105; ++k) {
                const double t = data.x.front() + span * k / 100.0;
                const auto exact = static_cast<double>(exactValue(data, second, normalised, t));
                ASSERT_NEAR(found.value(t), exact, 5e-8 * (1.0 + scale + std::fabs(exact)))
                    << "seed " << seed << " tension " << tension << " t " << t;
            }
        }
    }
}

TEST(Tcubspl, computedEndSlopesAreThoseOfTheCoefficients) {
    for (unsigned seed = 1; seed <= 30; ++seed) {
        std::mt19937 generator(seed);
        const RandomData data = randomData(generator, 2 + seed % 5);
        const std::size_t n = data.x.size();
        const std::size_t third = n > 2 ? 2 : 1;
        for (const double tension : {0.0, 1.5}) {
            const double normalised = tension * static_cast<double>(n - 1) / (data.x.back() - data.x.front());
            double c[3] = {0.0, 0.0, 0.0};
            const auto count = static_cast<std::int32_t>(n);
            endSlopeCoefficients(data.x[1] - data.x[0], data.x[third] - data.x[0], normalised, c[0], c[1], c[2], count);
            const double start = c[0] * data.y[0] + c[1] * data.y[1] + (n > 2 ? c[2] * data.y[2] : 0.0);
            endSlopeCoefficients(data.x[n - 2] - data.x[n - 1], data.x[n - 1 - third] - data.x[n - 1], normalised, c[0],
                                 c[1], c[2], count);
            const double end = c[0] * data.y[n - 1] + c[1] * data.y[n - 2] + (n > 2 ? c[2] * data.y[n - 3] : 0.0);
            for (std::int32_t slopeSwitch = -1; slopeSwitch <= 4; ++slopeSwitch) {
                const bool startComputed = slopeSwitch == 2 || slopeSwitch == 3;
                const bool endComputed = slopeSwitch == 1 || slopeSwitch == 3;
                const Ends given = {startComputed ? notANumber : 0.8, endComputed ? notANumber : -0.3, slopeSwitch};
                const Ends same = {startComputed ? start : 0.8, endComputed ? end : -0.3, 0};
                const Fit found = fit(data.x, data.y, given, tension);
                const Fit expected = fit(data.x, data.y, same, tension);
                ASSERT_EQ(found.status, 0);
                for (std::size_t i = 0; i < n; ++i) {
                    ASSERT_NEAR(found.secondDerivative(i), expected.secondDerivative(i),
                                1e-10 * (1.0 + std::fabs(expected.secondDerivative(i))))
                        << "seed " << seed << " slopeSwitch " << slopeSwitch;
                }
            }
        }
    }
}

TEST(Tcubspl, straightLineIsKeptWhateverTheTension) {
    for (const double tension : {0.0, 0.3, 2.0, 30.0}) {
        const Fit line = fit({0.0, 1.0, 1.5, 4.0}, {1.0, 3.0, 4.0, 9.0}, {0.0, 0.0, 3}, tension);
        ASSERT_EQ(line.status, 0);
        for (double t = 0.0; t <= 4.0; t += 0.125) {
            EXPECT_NEAR(line.value(t), 1.0 + 2.0 * t, 1e-7) << tension << " " << t;
        }
    }
}

TEST(Tcubspl, strongTensionApproachesThePolygon) {
    const std::vector<double> x = {0.0, 1.0, 2.0, 3.0, 4.0};
    const std::vector<double> y = {0.0, 2.0, -1.0, 1.0, 0.0};
    double previous = std::numeric_limits<double>::infinity();
    for (const double tension : {1.0, 5.0, 25.0, 125.0}) {
        const Fit found = fit(x, y, {0.0, 0.0, 0}, tension);
        double away = 0.0;
        for (int k = 0; k < 400; ++k) {
            const double t = k / 100.0;
            const auto i = static_cast<std::size_t>(t);
            const double polygon = y[i] + (y[i + 1] - y[i]) * (t - x[i]);
            away = std::max(away, std::fabs(found.value(t) - polygon));
        }
        EXPECT_LT(away, previous) << tension;
        previous = away;
    }
    EXPECT_LT(previous, 0.02);
}

TEST(Tcubspl, withoutTensionItIsTheCubicSplineOfTheGivenSlopes) {
    for (unsigned seed = 1; seed <= 40; ++seed) {
        std::mt19937 generator(seed);
        const RandomData data = randomData(generator, 2 + seed % 12);
        const Fit found = fit(data.x, data.y, {0.8, -0.3, 0}, 0.0);
        ASSERT_EQ(found.status, 0);
        EXPECT_EQ(found.normalisedTension(), 0.0);
        std::vector<double> c(4 * data.x.size(), 0.0);
        for (std::size_t i = 0; i < data.x.size(); ++i) {
            c[4 * i] = data.y[i];
        }
        c[1] = 0.8;
        c[4 * data.x.size() - 3] = -0.3;
        const auto n = static_cast<std::int32_t>(data.x.size());
        const std::int32_t slopes = 1;
        CUBSPL(&n, data.x.data(), c.data(), &slopes, &slopes);
        for (std::size_t i = 0; i + 1 < data.x.size(); ++i) {
            ASSERT_NEAR(found.secondDerivative(i), c[4 * i + 2], 1e-9) << "seed " << seed;
        }
        for (double t = data.x.front(); t < data.x.back(); t += 0.05) {
            ASSERT_NEAR(found.value(t), CUBVAL(&n, data.x.data(), c.data(), &t), 1e-11) << "seed " << seed;
        }
    }
}

TEST(Tcubspl, tooFewKnotsAreStatusOneAndNothingIsRead) {
    for (const std::int32_t n : {1, 0, -4}) {
        const double number = 1.0;
        const std::int32_t slopeSwitch = 3;
        std::int32_t status = -99;
        TCUBSPL(&n, nullptr, nullptr, &number, &number, &slopeSwitch, &number, &status);
        EXPECT_EQ(status, 1);
    }
}

bool isAsFilledIn(const Fit& found, const std::vector<double>& y) {
    for (std::size_t i = 0; i < y.size(); ++i) {
        if (found.c[3 * i] != y[i] || !std::isnan(found.c[3 * i + 1]) || !std::isnan(found.c[3 * i + 2])) {
            return false;
        }
    }
    return true;
}

TEST(Tcubspl, equalEndsAreStatusTwoWithNothingWritten) {
    const std::vector<double> y = {1.0, 2.0, 3.0};
    for (const std::vector<double>& x : {std::vector<double>{1.0, 2.0, 1.0}, {3.0, 2.0, 1.0}, {notANumber, 2.0, 3.0}}) {
        for (std::int32_t slopeSwitch = 0; slopeSwitch <= 3; ++slopeSwitch) {
            const Fit found = fit(x, y, {0.0, 0.0, slopeSwitch}, 1.0);
            EXPECT_EQ(found.status, 2);
            EXPECT_TRUE(isAsFilledIn(found, y));
        }
    }
}

TEST(Tcubspl, disorderNextToAComputedSlopeIsFoundBeforeWriting) {
    struct Case {
        std::vector<double> x;
        std::int32_t slopeSwitch;
    };
    const std::vector<Case> cases = {{{0.0, 0.0, 1.0, 2.0}, 2}, {{0.0, 0.0, 1.0, 2.0}, 3}, {{0.0, 1.0, 1.0, 2.0}, 2},
                                     {{0.0, 1.5, 1.0, 2.0}, 2}, {{0.0, 1.0, 2.0, 2.0}, 1}, {{0.0, 1.0, 2.0, 2.0}, 3},
                                     {{0.0, 1.0, 1.0, 2.0}, 1}, {{0.0, 1.5, 1.0, 2.0}, 1}, {{0.0, 1.0, 3.0, 2.0}, 3}};
    const std::vector<double> y = {1.0, 2.0, 3.0, 4.0};
    for (const Case& one : cases) {
        const Fit found = fit(one.x, y, {0.0, 0.0, one.slopeSwitch}, 1.0);
        EXPECT_EQ(found.status, 2);
        EXPECT_TRUE(isAsFilledIn(found, y)) << one.x[1] << " " << one.x[2] << " slopeSwitch " << one.slopeSwitch;
    }
}

TEST(Tcubspl, disorderInsideIsFoundWithAPartlyFilledTable) {
    const std::vector<double> y = {1.0, 2.0, 0.0, 4.0, 1.0, 2.0};
    for (const double wrong : {2.0, 1.5, notANumber}) {
        const Fit found = fit({0.0, 1.0, 2.0, wrong, 4.0, 5.0}, y, {0.0, 0.0, 0}, 1.0);
        EXPECT_EQ(found.status, 2);
        EXPECT_FALSE(std::isnan(found.c[1]));
        EXPECT_FALSE(std::isnan(found.c[4]));
        EXPECT_TRUE(std::isnan(found.c[7]));
        EXPECT_TRUE(std::isnan(found.c[16]));
    }
}

// The saved index of TCUBVAL must show in no result, not even in the last bit at a knot where two intervals meet.
TEST(Tcubval, valuesDoNotDependOnTheCallsBefore) {
    for (unsigned seed = 1; seed <= 60; ++seed) {
        std::mt19937 generator(seed);
        const RandomData data = randomData(generator, 2 + seed % 30);
        const Fit found = fit(data.x, data.y, {0.8, -0.3, 0}, seed % 2 == 0 ? 0.0 : 1.3);
        std::uniform_real_distribution<double> anywhere(data.x.front() - 1.0, data.x.back() + 1.0);
        std::vector<double> queries = data.x;
        for (int k = 0; k < 40; ++k) {
            queries.push_back(anywhere(generator));
        }
        std::vector<double> fromTheStart;
        for (const double t : queries) {
            found.value(data.x.front());
            fromTheStart.push_back(found.value(t));
        }
        std::vector<std::size_t> order(queries.size());
        for (std::size_t k = 0; k < order.size(); ++k) {
            order[k] = k;
        }
        for (int turn = 0; turn < 4; ++turn) {
            std::shuffle(order.begin(), order.end(), generator);
            for (const std::size_t k : order) {
                ASSERT_EQ(found.value(queries[k]), fromTheStart[k]) << "seed " << seed << " t " << queries[k];
            }
        }
    }
}

TEST(Tcubval, interpolatesTheData) {
    std::mt19937 generator(11);
    const RandomData data = randomData(generator, 20);
    for (const double tension : {0.0, 0.5, 4.0, 20.0}) {
        const Fit found = fit(data.x, data.y, {0.0, 0.0, 3}, tension);
        for (std::size_t i = 0; i < data.x.size(); ++i) {
            EXPECT_NEAR(found.value(data.x[i]), data.y[i], 1e-14) << tension;
        }
    }
}

TEST(Tcubval, meetsTheGivenSlopes) {
    std::mt19937 generator(12);
    const RandomData data = randomData(generator, 8);
    const double h = 1e-6;
    for (const double tension : {0.0, 0.5, 4.0}) {
        const Fit found = fit(data.x, data.y, {0.8, -0.3, 0}, tension);
        const double first = data.x.front();
        const double last = data.x.back();
        EXPECT_NEAR((found.value(first + h) - found.value(first - h)) / (2.0 * h), 0.8, 1e-6);
        EXPECT_NEAR((found.value(last + h) - found.value(last - h)) / (2.0 * h), -0.3, 1e-6);
    }
}

TEST(Tcubval, tablesOfDifferentLengthsInTurnKeepInsideTheirArrays) {
    std::mt19937 generator(13);
    const RandomData longData = randomData(generator, 300);
    const Fit longFit = fit(longData.x, longData.y, {0.0, 0.0, 3}, 1.0);
    const double far = longData.x[298] + 0.01;
    const double farValue = longFit.value(far);
    for (std::size_t n = 2; n <= 6; ++n) {
        const RandomData shortData = randomData(generator, n);
        const Fit shortFit = fit(shortData.x, shortData.y, {0.0, 0.0, 3}, 1.0);
        for (const double t : {shortData.x[0] - 1.0, shortData.x[0], shortData.x[1], shortData.x[n - 1], 100.0}) {
            shortFit.value(shortData.x[0]);
            const double value = shortFit.value(t);
            EXPECT_EQ(longFit.value(far), farValue);
            EXPECT_EQ(shortFit.value(t), value);
            EXPECT_EQ(longFit.value(far), farValue);
        }
    }
}

TEST(Tcubval, notANumberAndTooFewKnotsGiveNotANumber) {
    const double t = 1.0;
    for (const std::int32_t n : {1, 0, -1}) {
        EXPECT_TRUE(std::isnan(TCUBVAL(&n, nullptr, nullptr, &t)));
    }
    const Fit found = fit({0.0, 1.0, 2.0, 3.0}, {1.0, 0.0, 2.0, 1.0}, {0.0, 0.0, 3}, 1.0);
    const double value = found.value(2.5);
    EXPECT_TRUE(std::isnan(found.value(notANumber)));
    EXPECT_EQ(found.value(2.5), value);
}

// Results for knots out of order are undefined, but the search must end inside the arrays and change nothing else.
TEST(Tcubval, unsortedKnotsAreSurvivedAndLeaveNoTrace) {
    const Fit sound = fit({0.0, 1.0, 2.0, 3.0, 5.0}, {1.0, -1.0, 2.0, 0.5, 0.0}, {0.0, 0.0, 3}, 1.0);
    const double value = sound.value(2.75);
    for (unsigned seed = 1; seed <= 200; ++seed) {
        std::mt19937 generator(seed);
        const RandomData data = randomData(generator, 2 + seed % 12);
        Fit broken = fit(data.x, data.y, {0.0, 0.0, 3}, 1.0);
        std::shuffle(broken.x.begin(), broken.x.end(), generator);
        for (double& knot : broken.x) {
            knot = generator() % 4 == 0 ? notANumber : knot;
        }
        for (double t = -4.0; t < 20.0; t += 0.5) {
            broken.value(t);
            ASSERT_EQ(sound.value(2.75), value) << "seed " << seed;
        }
    }
}

// Above 709 the hyperbolic functions overflow; the table says so by NaNs instead of wrong numbers.
TEST(Tcubspl, overflowOfTheTensionGivesNotANumber) {
    const Fit found = fit({0.0, 1.0, 2.0}, {1.0, 3.0, 2.0}, {0.0, 0.0, 0}, 2000.0);
    EXPECT_EQ(found.status, 0);
    EXPECT_TRUE(std::isnan(found.value(0.5)));
}

}  // namespace
