// The line search alone: every branch of the safeguarded step, every ending, and the two conditions on hard functions.
#include "optim/lbfgsb/line_search.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>

namespace voxlith {
namespace {

// phi and its slope as functions of the step.
struct Curve {
    std::function<double(double)> value;
    std::function<double(double)> slope;
};

// The first three test functions of More and Thuente, section 5.
const Curve rational{[](double a) { return -a / (a * a + 2.0); },
                     [](double a) { return (a * a - 2.0) / ((a * a + 2.0) * (a * a + 2.0)); }};
const Curve quintic{[](double a) { return std::pow(a + 0.004, 5) - 2.0 * std::pow(a + 0.004, 4); },
                    [](double a) { return 5.0 * std::pow(a + 0.004, 4) - 8.0 * std::pow(a + 0.004, 3); }};

TrialPoint pointOf(const Curve& curve, double step) {
    return {step, curve.value(step), curve.slope(step)};
}

struct SearchResult {
    TrialPoint point;
    int evaluations = 0;
    TaskWord ending{};
};

SearchResult runSearch(const Curve& curve, double firstStep, const LineSearchLimits& limits, int limit = 50) {
    LineSearchState state;
    beginSearch(curve.value(0.0), curve.slope(0.0), firstStep, limits, state);
    SearchResult result;
    TrialPoint trial{firstStep, 0.0, 0.0};
    while (taskIs(state.request, "FG") && result.evaluations < limit) {
        trial = pointOf(curve, trial.step);
        ++result.evaluations;
        searchStep(limits, trial, state);
    }
    result.point = pointOf(curve, trial.step);
    result.ending = state.request;
    return result;
}

LineSearchLimits upTo(double largestStep) {
    LineSearchLimits limits;
    limits.largestStep = largestStep;
    return limits;
}

TEST(LineSearch, SatisfiesBothConditionsFromFirstStepsOverManyDecades) {
    for (const Curve* curve : {&rational, &quintic}) {
        for (const double first : {1.0e-3, 1.0e-1, 1.0e1, 1.0e3}) {
            LineSearchLimits limits = upTo(1.0e10);
            limits.curvature = 0.1;
            limits.intervalWidth = 1.0e-10;
            const SearchResult result = runSearch(*curve, first, limits);
            EXPECT_TRUE(taskIs(result.ending, "CONVERGENCE")) << first << ": " << taskText(result.ending);
            EXPECT_LE(result.point.value,
                      curve->value(0.0) + limits.sufficientDecrease * result.point.step * curve->slope(0.0));
            EXPECT_LE(std::abs(result.point.slope), 0.1 * std::abs(curve->slope(0.0)));
            EXPECT_LE(result.evaluations, 20);
        }
    }
}

TEST(LineSearch, RefusesInvalidStepsAndSlopes) {
    LineSearchState state;
    LineSearchLimits limits = upTo(1.0);
    limits.smallestStep = 0.5;
    beginSearch(1.0, -1.0, 0.25, limits, state);
    EXPECT_TRUE(taskIs(state.request, "ERROR: STP .LT. STPMIN"));
    beginSearch(1.0, -1.0, 1.5, limits, state);
    EXPECT_TRUE(taskIs(state.request, "ERROR: STP .GT. STPMAX"));
    beginSearch(1.0, 0.0, 1.0, limits, state);
    EXPECT_TRUE(taskIs(state.request, "ERROR: INITIAL G .GE. ZERO"));
    beginSearch(1.0, std::nan(""), 1.0, limits, state);
    EXPECT_TRUE(taskIs(state.request, "ERROR: INITIAL G .GE. ZERO"));
}

TEST(LineSearch, EndsAtTheLargestStepWhereTheFunctionKeepsFalling) {
    const Curve falling{[](double a) { return -a; }, [](double) { return -1.0; }};
    const SearchResult result = runSearch(falling, 1.0, upTo(3.0));
    EXPECT_TRUE(taskIs(result.ending, "WARNING: STP = STPMAX"));
    EXPECT_EQ(result.point.step, 3.0);
}

TEST(LineSearch, EndsAtTheSmallestStepWhereTheFunctionRises) {
    const Curve rising{[](double a) { return a; }, [](double a) { return a == 0.0 ? -1.0 : 1.0; }};
    LineSearchLimits limits = upTo(3.0);
    limits.smallestStep = 1.0;
    const SearchResult result = runSearch(rising, 1.0, limits);
    EXPECT_TRUE(taskIs(result.ending, "WARNING: STP = STPMIN"));
}

TEST(LineSearch, StopsAtANarrowInterval) {
    // A discontinuity at 1 with a slope that descends on both sides: no point satisfies the curvature condition.
    const Curve cliff{[](double a) { return a < 1.0 ? -0.5 * a : 5.0 - 0.5 * a; }, [](double) { return -0.5; }};
    LineSearchLimits limits = upTo(10.0);
    limits.curvature = 0.1;
    const SearchResult result = runSearch(cliff, 4.0, limits);
    EXPECT_TRUE(taskBegins(result.ending, "WARNING: XTOL")) << taskText(result.ending);
    EXPECT_LT(result.point.step, 1.0);
    EXPECT_GT(result.point.step, 0.8);
}

// Each case is checked with the parabola or cubic that its points are on: the minimiser is known.
const Curve parabola{[](double a) { return (a - 1.0) * (a - 1.0); }, [](double a) { return 2.0 * (a - 1.0); }};

TEST(SafeguardedStep, HigherValueBracketsAndInterpolates) {
    TrialPoint best = pointOf(parabola, 0.0);
    TrialPoint other = best;
    TrialPoint trial = pointOf(parabola, 3.0);
    bool bracketed = false;
    safeguardedStep(best, other, trial, bracketed, 0.0, 15.0);
    EXPECT_TRUE(bracketed);
    EXPECT_NEAR(trial.step, 1.0, 1.0e-14);
    EXPECT_EQ(best.step, 0.0);
    EXPECT_EQ(other.step, 3.0);
}

TEST(SafeguardedStep, HigherValueTakesTheMeanWhenTheCubicIsFarther) {
    // Values 0 and 1, slopes -1 and 0: cubic minimiser 1/3 (of a + b t + ...), parabola minimiser 1/4.
    TrialPoint best{0.0, 0.0, -1.0};
    TrialPoint other = best;
    TrialPoint trial{1.0, 1.0, 0.0};
    bool bracketed = false;
    // phi = -t + 5 t^2 - 3 t^3: slope -1 + 10 t - 9 t^2 is 0 at t = 1/9 and at t = 1.
    safeguardedStep(best, other, trial, bracketed, 0.0, 5.0);
    EXPECT_NEAR(trial.step, 1.0 / 9.0, 1.0e-14);
    // phi = -t + t^2/2 + 2.5 t^3: slope at 1 is 7.5; minimiser of the cubic above that of the parabola (1/6 over 3 t^2
    // - t).
    best = {0.0, 0.0, -1.0};
    trial = {1.0, 2.0, 7.5};
    safeguardedStep(best, other, trial, bracketed, 0.0, 5.0);
    const double cubic = (-1.0 + std::sqrt(1.0 + 30.0)) / 15.0;
    const double quadratic = 1.0 / 6.0;
    EXPECT_GT(cubic, quadratic);
    EXPECT_NEAR(trial.step, 0.5 * (cubic + quadratic), 1.0e-14);
}

TEST(SafeguardedStep, OppositeSlopesBracketAndTheTrialBecomesTheBest) {
    TrialPoint best = pointOf(parabola, 0.0);
    TrialPoint other = best;
    TrialPoint trial = pointOf(parabola, 1.5);
    bool bracketed = false;
    safeguardedStep(best, other, trial, bracketed, 0.0, 7.5);
    EXPECT_TRUE(bracketed);
    EXPECT_NEAR(trial.step, 1.0, 1.0e-14);
    EXPECT_EQ(best.step, 1.5);
    EXPECT_EQ(other.step, 0.0);
}

TEST(SafeguardedStep, OppositeSlopesTakeTheStepFartherFromTheTrial) {
    // phi' = t^2 + t - 2 on [0, 1.5]: the cubic gives 1, the secant 1.5 - 1.75 * 1.5 / 3.75 = 0.8, farther from 1.5.
    TrialPoint best{0.0, 0.0, -2.0};
    TrialPoint other = best;
    TrialPoint trial{1.5, 1.125 + 1.125 - 3.0, 1.75};
    bool bracketed = false;
    safeguardedStep(best, other, trial, bracketed, 0.0, 7.5);
    EXPECT_NEAR(trial.step, 0.8, 1.0e-14);
    // phi' = -t^2 + 4 t - 3 on [0, 2]: the cubic gives 1, the secant 2 - 1 * 2 / 4 = 1.5, closer to 2.
    best = {0.0, 0.0, -3.0};
    trial = {2.0, -8.0 / 3.0 + 8.0 - 6.0, 1.0};
    bracketed = false;
    safeguardedStep(best, other, trial, bracketed, 0.0, 10.0);
    EXPECT_NEAR(trial.step, 1.0, 1.0e-14);
}

TEST(SafeguardedStep, FlatterSlopeExtrapolatesWithinTheLimits) {
    TrialPoint best = pointOf(parabola, 0.0);
    TrialPoint other = best;
    TrialPoint trial = pointOf(parabola, 0.5);
    bool bracketed = false;
    safeguardedStep(best, other, trial, bracketed, 0.0, 2.5);
    EXPECT_FALSE(bracketed);
    EXPECT_NEAR(trial.step, 1.0, 1.0e-13);
    best = pointOf(parabola, 0.0);
    trial = pointOf(parabola, 0.5);
    safeguardedStep(best, other, trial, bracketed, 0.0, 0.75);
    EXPECT_EQ(trial.step, 0.75);
}

TEST(SafeguardedStep, FlatterSlopeWithoutMinimiserGoesToTheLimit) {
    // phi' = -1 + 0.4 t - 0.3 t^2 is never 0, so the cubic has no minimiser; its step is the limit 5, and the secant
    // step 1 + 0.9 / 0.1 = 10 is farther away and is cut to the limit. A limit of 20 lets the cubic's win.
    for (const double limit : {5.0, 20.0}) {
        TrialPoint best{0.0, 0.0, -1.0};
        TrialPoint other = best;
        TrialPoint trial{1.0, -0.9, -0.9};
        bool bracketed = false;
        safeguardedStep(best, other, trial, bracketed, 0.0, limit);
        EXPECT_EQ(trial.step, limit);
    }
}

TEST(SafeguardedStep, FlatterSlopeInABracketCoversAtMostTwoThirdsOfTheInterval) {
    TrialPoint best = pointOf(parabola, 0.0);
    TrialPoint other = pointOf(parabola, 0.6);
    other.value = 3.0;
    TrialPoint trial = pointOf(parabola, 0.5);
    bool bracketed = true;
    safeguardedStep(best, other, trial, bracketed, 0.0, 0.6);
    EXPECT_NEAR(trial.step, 0.5 + 0.66 * 0.1, 1.0e-15);
    // The same mirrored: the trial is below the best step.
    const Curve mirrored{[](double a) { return (a + 1.0) * (a + 1.0); }, [](double a) { return 2.0 * (a + 1.0); }};
    best = pointOf(mirrored, 0.0);
    other = pointOf(mirrored, -0.6);
    other.value = 3.0;
    trial = pointOf(mirrored, -0.5);
    safeguardedStep(best, other, trial, bracketed, -0.6, 0.0);
    EXPECT_NEAR(trial.step, -0.5 - 0.66 * 0.1, 1.0e-15);
}

TEST(SafeguardedStep, SteeperSlopeGoesToTheLimitUnlessBracketed) {
    TrialPoint best{0.0, 0.0, -1.0};
    TrialPoint other = best;
    TrialPoint trial{1.0, -2.0, -3.0};
    bool bracketed = false;
    safeguardedStep(best, other, trial, bracketed, 0.5, 5.0);
    EXPECT_EQ(trial.step, 5.0);
    EXPECT_EQ(best.step, 1.0);
    best = {2.0, 0.0, 1.0};
    trial = {1.0, -2.0, 3.0};
    safeguardedStep(best, other, trial, bracketed, 0.5, 5.0);
    EXPECT_EQ(trial.step, 0.5);
}

TEST(SafeguardedStep, SteeperSlopeInABracketInterpolatesTowardsTheOtherEnd) {
    for (const double side : {1.0, -1.0}) {
        const Curve valley{[&](double a) { return (a - 2.0 * side) * (a - 2.0 * side); },
                           [&](double a) { return 2.0 * (a - 2.0 * side); }};
        TrialPoint best{0.0, 50.0, -0.5 * side};
        TrialPoint other = pointOf(valley, 3.0 * side);
        TrialPoint trial = pointOf(valley, side);
        bool bracketed = true;
        safeguardedStep(best, other, trial, bracketed, std::min(0.0, 3.0 * side), std::max(0.0, 3.0 * side));
        EXPECT_NEAR(trial.step, 2.0 * side, 1.0e-13);
    }
}

}  // namespace
}  // namespace voxlith
