#include "spline/hyperbolic_terms.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <vector>

#include "recorded_numbers.h"

namespace {

using voxlith::hyperbolicTerms;

// Sum of u^k / (offset + 2k)! terms: the tail of the sinh or cosh series, for small a, where the direct formulas lose
// digits. first is the term of k = 0, next the factorial number that follows.
long double seriesTail(long double u, long double first, int next) {
    long double term = first;
    long double sum = 0.0L;
    for (int k = next; std::fabs(term) > 1e-30L * std::fabs(sum); k += 2) {
        sum += term;
        term *= u / (static_cast<long double>(k) * static_cast<long double>(k + 1));
    }
    return sum;
}

long double exactS(long double a) {
    return a < 1.0L ? seriesTail(a * a, a * a / 6.0L, 4) : std::sinh(a) / a - 1.0L;
}

long double exactC(long double a) {
    const long double half = std::sinh(a / 2.0L);
    return 2.0L * half * half;
}

long double exactQ(long double a) {
    return a < 1.0L ? seriesTail(a * a, a * a / 24.0L, 5) : (std::cosh(a) - 1.0L - a * a / 2.0L) / (a * a);
}

double relativeError(double found, long double exact) {
    return static_cast<double>(std::fabs((static_cast<long double>(found) - exact) / exact));
}

struct Errors {
    double sAlone = 0.0, s = 0.0, c = 0.0, q = 0.0;
};

// Largest relative errors over a fine sweep of (from, to].
Errors largestErrors(double from, double to) {
    constexpr int steps = 20000;
    Errors largest;
    for (int i = 1; i <= steps; ++i) {
        const double a = i == steps ? to : from + (to - from) * i / steps;
        double sAlone = 0.0;
        double s = 0.0;
        double c = 0.0;
        double q = 0.0;
        double untouched = 0.0;
        hyperbolicTerms(sAlone, untouched, a, -1);
        hyperbolicTerms(s, c, a, 0);
        hyperbolicTerms(untouched, q, a, 2);
        largest.sAlone = std::fmax(largest.sAlone, relativeError(sAlone, exactS(a)));
        largest.s = std::fmax(largest.s, relativeError(s, exactS(a)));
        largest.c = std::fmax(largest.c, relativeError(c, exactC(a)));
        largest.q = std::fmax(largest.q, relativeError(q, exactQ(a)));
    }
    return largest;
}

// The table of errors in hyperbolic_terms.h. The rational forms must also have at least a tenth of the stated error,
// so that the table does not boast of the wrong digits.
TEST(HyperbolicTerms, errorsOfEachRangeAreThoseOfTheHeader) {
    static_assert(std::numeric_limits<long double>::digits >= 64, "the exact values need a wider type than double");
    struct Range {
        double from, to;
        Errors stated;
    };
    const std::vector<Range> ranges = {
        {0.0, 2.2F, {1.9e-9, 1.9e-9, 8.7e-10, 6.6e-10}}, {2.2F, 3.9F, {2.8e-9, 1e-15, 1e-15, 2e-15}},
        {3.9F, 5.1F, {2.5e-8, 1e-15, 1e-15, 1e-15}},     {5.1F, 6.1F, {2.2e-8, 1e-15, 1e-15, 1e-15}},
        {6.1F, 20.0, {1e-15, 1e-15, 1e-15, 1e-15}},      {20.0, 709.0, {1e-15, 1e-15, 1e-15, 1e-15}}};
    for (const Range& range : ranges) {
        const Errors found = largestErrors(range.from, range.to);
        const std::vector<std::pair<double, double>> pairs = {{found.sAlone, range.stated.sAlone},
                                                              {found.s, range.stated.s},
                                                              {found.c, range.stated.c},
                                                              {found.q, range.stated.q}};
        for (std::size_t term = 0; term < pairs.size(); ++term) {
            const auto& [measured, stated] = pairs[term];
            EXPECT_LE(measured, stated) << "term " << term << " from " << range.from << " to " << range.to;
            EXPECT_GE(measured, stated < 1e-12 ? 0.0 : 0.9 * stated)
                << "term " << term << " from " << range.from << " to " << range.to;
        }
    }
}

TEST(HyperbolicTerms, smallArgumentsKeepTheirDigits) {
    for (const double a : {1e-100, 1e-12, 1e-8, 1e-6, 1e-4}) {
        double s = 0.0;
        double c = 0.0;
        double q = 0.0;
        double untouched = 0.0;
        hyperbolicTerms(s, c, a, 0);
        hyperbolicTerms(untouched, q, a, 2);
        EXPECT_LT(relativeError(s, exactS(a)), 1e-14) << a;
        EXPECT_LT(relativeError(c, exactC(a)), 1e-14) << a;
        EXPECT_LT(relativeError(q, exactQ(a)), 1e-14) << a;
    }
}

TEST(HyperbolicTerms, recordedAnswers) {
    constexpr double sentinel = -7.25;
    const auto rows = voxlith::testing_support::readRows("recorded_hyperbolic_terms.txt", 4);
    ASSERT_EQ(rows.size(), 330U);
    for (const std::vector<double>& row : rows) {
        double outputs[2] = {sentinel, sentinel};
        hyperbolicTerms(outputs[0], outputs[1], row[0], static_cast<std::int32_t>(row[1]));
        for (std::size_t i = 0; i < 2; ++i) {
            if (std::isnan(row[2 + i])) {
                EXPECT_EQ(outputs[i], sentinel) << "x " << row[0] << " termSwitch " << row[1];
            } else {
                EXPECT_NEAR(outputs[i], row[2 + i], 1e-13 * std::fabs(row[2 + i]))
                    << "x " << row[0] << " termSwitch " << row[1];
            }
        }
    }
}

TEST(HyperbolicTerms, termSwitchAboveThreeTouchesNothing) {
    double s = -7.25;
    double c = -7.25;
    hyperbolicTerms(s, c, 1.0, 4);
    EXPECT_EQ(s, -7.25);
    EXPECT_EQ(c, -7.25);
}

TEST(HyperbolicTerms, evenInTheArgument) {
    for (const std::int32_t termSwitch : {-1, 0, 1, 2, 3}) {
        for (const double a : {0.0, 0.3, 2.2, 3.0, 4.5, 5.5, 8.0, 300.0}) {
            double plus[2] = {0.0, 0.0};
            double minus[2] = {0.0, 0.0};
            hyperbolicTerms(plus[0], plus[1], a, termSwitch);
            hyperbolicTerms(minus[0], minus[1], -a, termSwitch);
            EXPECT_EQ(plus[0], minus[0]) << a << " " << termSwitch;
            EXPECT_EQ(plus[1], minus[1]) << a << " " << termSwitch;
        }
    }
}

// The limits belong to the lower range: "greater than" decides.
TEST(HyperbolicTerms, limitsAreTheSinglePrecisionNumbers) {
    double below = 0.0;
    double above = 0.0;
    double untouched = 0.0;
    const double limit = 2.2F;
    hyperbolicTerms(below, untouched, limit, 0);
    hyperbolicTerms(above, untouched, std::nextafter(limit, 3.0), 0);
    // The rational form is off by about 1.9e-9 there, the form with e^a by rounding alone.
    EXPECT_GT(relativeError(below, exactS(limit)), 1e-9);
    EXPECT_LT(relativeError(above, exactS(std::nextafter(limit, 3.0))), 1e-15);
    const double lastLimit = 6.1F;
    hyperbolicTerms(below, untouched, lastLimit, -1);
    hyperbolicTerms(above, untouched, std::nextafter(lastLimit, 7.0), -1);
    EXPECT_GT(relativeError(below, exactS(lastLimit)), 1e-9);
    EXPECT_LT(relativeError(above, exactS(std::nextafter(lastLimit, 7.0))), 1e-15);
}

TEST(HyperbolicTerms, notANumberAndOverflow) {
    double s = 0.0;
    double c = 0.0;
    hyperbolicTerms(s, c, std::numeric_limits<double>::quiet_NaN(), 0);
    EXPECT_TRUE(std::isnan(s));
    EXPECT_TRUE(std::isnan(c));
    hyperbolicTerms(s, c, 800.0, 0);
    EXPECT_TRUE(std::isinf(s));
    EXPECT_TRUE(std::isinf(c));
}

}  // namespace
