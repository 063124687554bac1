// Every branch of the line search of PLIS, one step at a time, from given brackets.
#include "optim/plis/plis_line_search.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace voxlith::plis {
namespace {

// A search from value 0 with slope -1, in the second iteration after a restart.
PlisState searchFromZero() {
    PlisState search;
    search.fo = 0.0;
    search.po = -1.0;
    search.stepMin = 1.0e-10;
    search.stepMax = 1.0e3;
    search.iterationCount = 3;
    search.lastRestartIteration = 1;
    beginSearch(search);
    return search;
}

SearchEnd judge(PlisState& search, double f, double p) {
    search.p = p;
    return evaluateStep(f, search);
}

TEST(PlisLineSearch, TheFirstStepIsShortAndWithinItsLimits) {
    PlisState search = searchFromZero();
    EXPECT_EQ(search.r, 1.0e-4);
    search.stepMin = 0.5;
    beginSearch(search);
    EXPECT_EQ(search.r, 0.5);
    search.stepMax = 0.25;  // the upper limit counts more
    beginSearch(search);
    EXPECT_EQ(search.r, 0.25);
    search.stepMin = 0.0;
    search.stepMax = 1.0e-7;
    beginSearch(search);
    EXPECT_EQ(search.r, 1.0e-7);
}

TEST(PlisLineSearch, AcceptsALowValueWithAFlatSlope) {
    PlisState search = searchFromZero();
    EXPECT_EQ(judge(search, -1.0e-4, -0.9), endAccepted);
}

TEST(PlisLineSearch, AcceptsAValueAtTheRoundingErrorIfTheSlopeHasFlattened) {
    PlisState search = searchFromZero();
    search.fo = 1.0e6;
    search.reducing = 1;
    EXPECT_EQ(judge(search, 1.0e6, -0.5), endAccepted);
    EXPECT_EQ(judge(search, 1.0e6, -0.51), searchContinues);
    search = searchFromZero();
    search.fo = 1.0;
    search.r = 1.0;
    search.reducing = 1;
    EXPECT_EQ(judge(search, 1.0 - 2.0e-11, 0.01), endAccepted);
    EXPECT_EQ(judge(search, 1.0 - 2.0e-11, 0.02), searchContinues);
}

TEST(PlisLineSearch, AcceptsTheLargestStepWhereTheSlopeStaysSteep) {
    PlisState search = searchFromZero();
    search.r = search.stepMax;
    EXPECT_EQ(judge(search, -900.0, -0.95), endLargestStep);
}

TEST(PlisLineSearch, AnUnboundedValueEndsTheSearch) {
    for (const double f : {-1.0e60, -std::numeric_limits<double>::infinity()}) {
        PlisState search = searchFromZero();
        EXPECT_EQ(judge(search, f, -5.0), endLargestStep);
    }
}

TEST(PlisLineSearch, FailsAtTheSmallestStepExceptAfterARestart) {
    PlisState search = searchFromZero();
    search.r = search.stepMin;
    EXPECT_EQ(judge(search, 1.0, -1.0), endSmallestStep);
    search = searchFromZero();
    search.r = search.stepMin;
    search.lastRestartIteration = search.iterationCount;
    EXPECT_EQ(judge(search, 1.0, -1.0), searchContinues);
}

TEST(PlisLineSearch, ExtendsByFourWithoutACandidate) {
    PlisState search = searchFromZero();
    EXPECT_EQ(judge(search, -1.0e-4, -1.0), searchContinues);  // a straight line has no minimiser
    EXPECT_EQ(search.r, 4.0e-4);
    EXPECT_EQ(search.reductionCount, -1);
    EXPECT_EQ(search.reducing, 0);
    search = searchFromZero();
    search.stepMax = 2.0e-4;
    EXPECT_EQ(judge(search, -1.0e-4, -1.0), searchContinues);
    EXPECT_EQ(search.r, 2.0e-4);
}

// On a parabola every rule gives its minimiser.
TEST(PlisLineSearch, ExtendsToTheMinimiserOfAParabolaWithinLimits) {
    PlisState search = searchFromZero();
    search.r = 0.01;
    EXPECT_EQ(judge(search, -0.01 + 0.5e-4, -0.99), searchContinues);  // -r + r^2/2
    EXPECT_NEAR(search.r, 1.0, 1.0e-9);
    search = searchFromZero();
    search.r = 1.0e-4;
    EXPECT_EQ(judge(search, -1.0e-4 + 0.5e-8, -0.9999), searchContinues);
    EXPECT_NEAR(search.r, 0.1, 1.0e-15);  // not beyond 1000 times
}

TEST(PlisLineSearch, ReducesToTheMinimiserOfAParabolaWithinLimits) {
    PlisState search = searchFromZero();
    search.r = 4.0;
    EXPECT_EQ(judge(search, -4.0 + 8.0, 3.0), searchContinues);
    EXPECT_NEAR(search.r, 1.0, 1.0e-12);
    EXPECT_EQ(search.reducing, 1);
    EXPECT_EQ(search.reductionCount, 1);
    EXPECT_EQ(judge(search, -0.1, 0.5), endAccepted);  // while reducing, the slope is not tested
    search = searchFromZero();
    search.r = 1000.0;
    EXPECT_EQ(judge(search, -1000.0 + 500000.0, 999.0), searchContinues);
    EXPECT_NEAR(search.r, 10.0, 1.0e-9);  // not below a hundredth from step 0
    search = searchFromZero();
    search.r = 1.0;
    search.rUpper = 0.5;
    search.fUpper = -0.4;
    search.pUpper = -1.0e-3;
    EXPECT_EQ(judge(search, 1.0e3, 5.0e3), searchContinues);
    EXPECT_NEAR(search.r, 0.55, 1.0e-12);  // not below a tenth elsewhere
}

TEST(PlisLineSearch, ReducesToNineTenthsAtMost) {
    PlisState search = searchFromZero();
    search.r = 1.0;
    EXPECT_EQ(judge(search, -0.5e-4, -0.5), searchContinues);
    EXPECT_LE(search.r, 0.9);
    EXPECT_GE(search.r, 0.01);
}

TEST(PlisLineSearch, BisectsWhereValuesCannotBeInterpolated) {
    for (const double f : {1.0e20, std::numeric_limits<double>::infinity(), std::numeric_limits<double>::quiet_NaN()}) {
        PlisState search = searchFromZero();
        search.r = 1.0;
        EXPECT_EQ(judge(search, f, std::numeric_limits<double>::quiet_NaN()), searchContinues);
        EXPECT_EQ(search.r, 0.5) << f;
    }
}

TEST(PlisLineSearch, FallsBackToTheSecantWhereTheCubicHasNoMinimiser) {
    // With q = 0.95 and e = 0.96 (in units of the first slope) the cubic has no minimiser: the discriminant is
    // below 0.
    PlisState search = searchFromZero();
    search.r = 1.0;
    EXPECT_EQ(judge(search, -0.96, -0.95), searchContinues);
    EXPECT_NEAR(search.r, 20.0, 1.0e-9);
    // Where the slope has grown the secant has none either, and the quadratic is used.
    search = searchFromZero();
    search.r = 1.0;
    EXPECT_EQ(judge(search, -0.8, -1.05), searchContinues);
    EXPECT_NEAR(search.r, 2.5, 1.0e-9);
}

TEST(PlisLineSearch, FailsAfterTenReductionsOrExtensions) {
    PlisState reduced = searchFromZero();
    reduced.stepMin = 0.0;
    int steps = 0;
    SearchEnd end = searchContinues;
    while (end == searchContinues && steps < 100) {
        end = judge(reduced, 1.0, 1.0);
        ++steps;
    }
    EXPECT_EQ(end, endTooManySteps);
    EXPECT_EQ(steps, 11);
    PlisState extended = searchFromZero();
    extended.stepMax = 1.0e100;
    steps = 0;
    end = searchContinues;
    while (end == searchContinues && steps < 100) {
        end = judge(extended, -extended.r, -1.0);
        ++steps;
    }
    EXPECT_EQ(end, endTooManySteps);
    EXPECT_EQ(steps, 11);
}

TEST(PlisLineSearch, ExtendsByATenthAtLeast) {
    PlisState search = searchFromZero();
    search.rUpper = 1.0;
    search.fUpper = -1.0;
    search.pUpper = -0.99;
    search.r = 2.0;
    search.po = -0.1;  // the slope of -0.095 is still too steep
    EXPECT_EQ(judge(search, -1.045, -0.095), searchContinues);
    EXPECT_NEAR(search.r, 2.2, 1.0e-12);
}

TEST(PlisLineSearch, ReductionsAreCountedFromZeroAfterExtensions) {
    PlisState search = searchFromZero();
    EXPECT_EQ(judge(search, -1.0e-4, -1.0), searchContinues);
    EXPECT_EQ(judge(search, -4.0e-4, -1.0), searchContinues);
    EXPECT_EQ(search.reductionCount, -2);
    EXPECT_EQ(judge(search, 1.0, 1.0), searchContinues);
    EXPECT_EQ(search.reductionCount, 1);
}

TEST(PlisLineSearch, FailsWithoutDescentAtTheLowerEnd) {
    for (const double slope : {0.0, 1.0, std::numeric_limits<double>::quiet_NaN()}) {
        PlisState search = searchFromZero();
        search.po = search.pLower = search.pUpper = slope;
        EXPECT_EQ(judge(search, 1.0, -1.0), endNoDescent) << slope;
    }
}

TEST(PlisLineSearch, FailsWhereTheBracketIsVoid) {
    PlisState search = searchFromZero();
    search.rUpper = search.r;
    EXPECT_EQ(judge(search, 1.0, 1.0), endVoidBracket);
}

// Values and slopes of all kinds: a search ends, and its steps stay numbers within the limit.
TEST(PlisLineSearch, EndsForAllValuesAndSlopes) {
    const double odd[] = {0.0,
                          -1.0,
                          1.0,
                          1.0e300,
                          -1.0e59,
                          5.0e-324,
                          std::numeric_limits<double>::infinity(),
                          -0.95,
                          -1.0e-9,
                          std::numeric_limits<double>::quiet_NaN()};
    unsigned random = 12345;
    for (int sequence = 0; sequence < 20000; ++sequence) {
        PlisState search = searchFromZero();
        SearchEnd end = searchContinues;
        int steps = 0;
        while (end == searchContinues && steps < 100) {
            ASSERT_TRUE(search.r > 0.0 && search.r <= search.stepMax) << "sequence " << sequence << " step " << steps;
            random = random * 1664525u + 1013904223u;
            const double f = odd[(random >> 16) % 10] * search.r;
            random = random * 1664525u + 1013904223u;
            end = judge(search, f, odd[(random >> 16) % 10]);
            ++steps;
        }
        ASSERT_LE(steps, 22) << "sequence " << sequence;
    }
}

}  // namespace
}  // namespace voxlith::plis
