// The PLIS engine as a whole: states, termination codes, restarts, bounds, and its behaviour with values that are not
// numbers.
#include "optim/plis/plis.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <stdexcept>
#include <utility>

#include "support/plis_run.h"

namespace voxlith {
namespace {

using testing_support::Function;
using testing_support::PlisRun;
using testing_support::rosenbrockChain;
using testing_support::Vector;

const double infinity = std::numeric_limits<double>::infinity();
const double notANumber = std::numeric_limits<double>::quiet_NaN();

PlisRun rosenbrockRun(int method, std::int32_t n, std::int32_t m) {
    PlisRun run(method, n, m, 1.0);
    for (std::size_t i = 0; i < run.x.size(); i += 2) {
        run.x[i] = -1.2;
    }
    return run;
}

// All codes from 0 to 6, bounds that are active at the minimiser, a start partly outside them.
PlisRun boundedRun(int method, std::int32_t n, std::int32_t m) {
    PlisRun run = rosenbrockRun(method, n, m);
    run.nb = n;
    for (std::size_t i = 0; i < run.x.size(); ++i) {
        run.nbd[i] = static_cast<std::int32_t>(i % 7);
        run.l[i] = -1.0;
        run.u[i] = 0.7;
    }
    return run;
}

// The gradient points uphill as soon as `evaluations` evaluations are done.
Function turnsAround(int evaluations) {
    return [evaluations, count = 0](const Vector& x, Vector& g) mutable {
        const double f = rosenbrockChain(x, g);
        if (++count > evaluations) {
            for (double& value : g) {
                value = -value;
            }
        }
        return f;
    };
}

TEST(Plis, StartRequestsTheStartPoint) {
    PlisRun run = rosenbrockRun(1, 4, 3);
    run.stopCode = 99;
    run.f = 5.0;
    run.call();
    EXPECT_EQ(run.state, -1);
    EXPECT_EQ(run.stopCode, 0);
    EXPECT_EQ(run.f, -1.0e60);
    EXPECT_EQ(run.saved.searchStatus, 2);
    EXPECT_EQ(run.saved.boundSwitch, 0);
    EXPECT_EQ(run.saved.lastRestartIteration, -999 * 4);
}

TEST(Plis, AMethodOfZeroOrLessIsTheSecond) {
    for (const int method : {0, -3}) {
        PlisRun run = rosenbrockRun(method, 4, 3);
        run.call();
        EXPECT_EQ(run.saved.method, 2);
    }
}

TEST(Plis, ShortArraysAndForeignStatesAreRefused) {
    PlisRun run = rosenbrockRun(1, 4, 3);
    run.wa.pop_back();
    EXPECT_THROW(run.call(), std::invalid_argument);
    run = rosenbrockRun(1, 4, 3);
    run.g.pop_back();
    EXPECT_THROW(run.call(), std::invalid_argument);
    run = rosenbrockRun(1, 4, 3);
    run.n = -1;
    EXPECT_THROW(run.call(), std::invalid_argument);
    run = rosenbrockRun(1, 4, 3);
    run.state = 0;
    run.saved.columnsInUse = 4;
    EXPECT_THROW(run.call(), std::invalid_argument);
}

TEST(Plis, WithoutFixedVariablesNoCodeIsRead) {
    PlisRun plain = rosenbrockRun(2, 6, 3);
    PlisRun coded = plain;
    coded.nbd = {-5, 3, 77, std::numeric_limits<std::int32_t>::min(), 6, -1};
    const std::vector<std::int32_t> codes = coded.nbd;
    coded.l.assign(6, notANumber);
    coded.u.assign(6, -4.0);
    for (PlisRun* run : {&plain, &coded}) {
        run->minimise(rosenbrockChain);
    }
    EXPECT_EQ(coded.nbd, codes);
    EXPECT_EQ(coded.x, plain.x);
    EXPECT_EQ(coded.evaluations, plain.evaluations);
}

// x = xo - r g, with r = 0.0001 unless a limit is smaller.
TEST(Plis, TheFirstStepIsATenThousandthOfTheDirection) {
    PlisRun run = rosenbrockRun(1, 10, 5);
    const Vector start = run.x;
    run.call();
    run.f = rosenbrockChain(run.x, run.g);
    run.state = 0;
    run.call();
    ASSERT_EQ(run.state, 3);
    for (std::size_t i = 0; i < start.size(); ++i) {
        EXPECT_EQ(run.x[i], start[i] - 1.0e-4 * run.g[i]);
    }
}

TEST(Plis, TheFirstStepIsNoLongerThanOne) {
    PlisRun run(1, 2, 2, 0.0);
    run.call();
    run.f = 1.0;
    run.g = {3.0e6, -4.0e6};
    run.state = 0;
    run.call();
    EXPECT_EQ(run.saved.r, run.saved.stepMax);
    EXPECT_NEAR(run.x[0], -0.6, 1.0e-15);
    EXPECT_NEAR(run.x[1], 0.8, 1.0e-15);
}

// With curvature 1e8 the matrix is small, and a ten thousandth of the direction is below the smallest step.
TEST(Plis, TheFirstStepIsNoShorterThanTheSmallest) {
    const Function steep = [](const Vector& x, Vector& g) {
        double f = 0.0;
        for (std::size_t i = 0; i < x.size(); ++i) {
            const double curvature = 1.0e8 * static_cast<double>(i + 1);
            f += 0.5 * curvature * (x[i] - 1.0) * (x[i] - 1.0);
            g[i] = curvature * (x[i] - 1.0);
        }
        return f;
    };
    PlisRun run(1, 3, 2, 1.1);
    run.call();
    do {
        run.finishIteration(steep);
        ASSERT_EQ(run.stopCode, 0);
    } while (run.saved.stepMin <= 1.0e-4);
    run.advance(steep);
    ASSERT_EQ(run.state, 3);
    EXPECT_EQ(run.saved.r, run.saved.stepMin);
    EXPECT_GT(run.saved.r, 1.0e-4);
}

TEST(Plis, TwoFailedSearchesInARowEndTheRun) {
    for (const int evaluations : {0, 1, 20}) {
        PlisRun run = rosenbrockRun(1, 6, 3);
        const int calls = run.minimise(turnsAround(evaluations));
        EXPECT_LT(run.stopCode, 0) << evaluations;
        EXPECT_LE(calls, 200) << evaluations;
        // The run ends where the failed searches began.
        Vector g(run.x.size());
        EXPECT_EQ(run.f, rosenbrockChain(run.x, g)) << evaluations;
        EXPECT_EQ(run.saved.columnsInUse, 0);
    }
}

TEST(Plis, OneFailedSearchRestartsTheMatrix) {
    PlisRun run = rosenbrockRun(1, 6, 3);
    run.call();
    for (int iteration = 0; iteration < 6; ++iteration) {
        run.finishIteration(rosenbrockChain);
    }
    ASSERT_EQ(run.saved.columnsInUse, 3);
    const Vector x = run.x;
    const Vector g = run.g;
    const double f = run.f;
    int trials = 0;
    while (run.saved.restartCount == 1 && trials < 50) {
        run.advance([](const Vector& at, Vector& gradient) {
            rosenbrockChain(at, gradient);
            return 1.0e20;
        });
        ++trials;
    }
    EXPECT_EQ(run.saved.restartCount, 2);
    EXPECT_EQ(run.saved.columnsInUse, 0);
    EXPECT_EQ(run.saved.shift, 1.0);
    EXPECT_EQ(run.saved.searchStatus, -1);
    EXPECT_EQ(run.f, f);
    EXPECT_EQ(run.g, g);
    ASSERT_EQ(run.state, 3);  // the same call continues with steepest descent
    for (std::size_t i = 0; i < x.size(); ++i) {
        EXPECT_EQ(run.x[i], x[i] - run.saved.r * g[i]);
    }
    const int calls = run.minimise(rosenbrockChain);
    EXPECT_GT(run.stopCode, 0) << calls;
}

TEST(Plis, TheMethodHasNoInfluenceUntilTheMatrixIsFull) {
    for (const bool bounded : {false, true}) {
        for (const std::int32_t m : {1, 2, 5}) {
            PlisRun one = bounded ? boundedRun(1, 12, m) : rosenbrockRun(1, 12, m);
            PlisRun two = bounded ? boundedRun(2, 12, m) : rosenbrockRun(2, 12, m);
            one.call();
            two.call();
            int full = 0;
            int same = 0;
            while (one.x == two.x && same < 400) {
                ASSERT_EQ(one.saved.columnsInUse, two.saved.columnsInUse);
                if (one.state == 0 && one.saved.columnsInUse == m) {
                    ++full;
                }
                if (full < 2) {
                    ASSERT_EQ(one.saved.shift, two.saved.shift);
                }
                if (!one.advance(rosenbrockChain) || !two.advance(rosenbrockChain)) {
                    break;
                }
                ++same;
            }
            EXPECT_GE(full, 2) << "m " << m << " bounded " << bounded;  // full, and updated when full
            EXPECT_LT(same, 400) << "m " << m << " bounded " << bounded;
        }
    }
}

TEST(Plis, StopsAtTheFloor) {
    PlisRun run = rosenbrockRun(1, 4, 3);
    run.minimise([](const Vector&, Vector& g) {
        g.assign(g.size(), 1.0);
        return -1.0e60;
    });
    EXPECT_EQ(run.stopCode, 3);
    EXPECT_EQ(run.evaluations, 1);
}

TEST(Plis, AnUnboundedValueEndsSearchAndRun) {
    PlisRun run = rosenbrockRun(1, 4, 3);
    run.minimise([count = 0](const Vector& x, Vector& g) mutable {
        const double f = rosenbrockChain(x, g);
        return ++count < 8 ? f : -infinity;
    });
    EXPECT_EQ(run.stopCode, 3);
    EXPECT_EQ(run.evaluations, 8);
    EXPECT_EQ(run.saved.searchStatus, 7);
}

TEST(Plis, StopsAtOnceWithoutGradient) {
    PlisRun run(1, 4, 3, 1.0);
    run.minimise(rosenbrockChain);
    EXPECT_EQ(run.stopCode, 4);
    EXPECT_EQ(run.evaluations, 1);
}

TEST(Plis, StopsWhenTheValueStallsTwice) {
    PlisRun run = rosenbrockRun(1, 4, 3);
    run.call();
    for (int iteration = 0; iteration < 3; ++iteration) {
        run.finishIteration(rosenbrockChain);
    }
    run.saved.fo = run.f;
    run.finishIteration(rosenbrockChain);
    EXPECT_EQ(run.stopCode, 0);
    EXPECT_EQ(run.saved.valuePasses, 1);
    run.saved.fo = run.f + 0.5e-14 * run.f;
    run.finishIteration(rosenbrockChain);
    EXPECT_EQ(run.stopCode, 2);
    run = rosenbrockRun(1, 4, 3);
    run.call();
    for (int iteration = 0; iteration < 3; ++iteration) {
        run.finishIteration(rosenbrockChain);
    }
    run.saved.valuePasses = 1;
    run.finishIteration(rosenbrockChain);
    EXPECT_EQ(run.stopCode, 0);
    EXPECT_EQ(run.saved.valuePasses, 0);  // a failed test clears the count
}

TEST(Plis, StopsWhenXStallsTwice) {
    PlisRun run = rosenbrockRun(1, 4, 3);
    run.call();
    for (int iteration = 0; iteration < 3; ++iteration) {
        run.finishIteration(rosenbrockChain);
    }
    run.saved.largestStep = 1.0e-16;
    run.finishIteration(rosenbrockChain);
    EXPECT_EQ(run.stopCode, 0);
    EXPECT_EQ(run.saved.stepPasses, 1);
    run.saved.largestStep = 0.0;
    run.finishIteration(rosenbrockChain);
    EXPECT_EQ(run.stopCode, 1);
}

TEST(Plis, AfterASearchThatEndedAtItsSmallestStepOnlyTheLimitsAreTested) {
    PlisRun run = rosenbrockRun(1, 4, 3);
    run.call();
    for (int iteration = 0; iteration < 3; ++iteration) {
        run.finishIteration(rosenbrockChain);
    }
    run.saved.searchStatus = 0;
    run.saved.stepPasses = run.saved.valuePasses = 1;
    run.saved.largestStep = 0.0;
    run.saved.fo = run.f;
    const PlisRun before = run;
    run.call();
    EXPECT_EQ(run.state, 3);
    EXPECT_EQ(run.saved.stepPasses, 1);
    run = before;
    run.saved.searchStatus = -1;  // only a search that ended at its smallest step suppresses the tests
    run.call();
    EXPECT_EQ(run.stopCode, 1);
    run = before;
    run.saved.iterationCount = 9000;
    run.call();
    EXPECT_EQ(run.stopCode, 11);
}

TEST(Plis, StopsAtTheLimitsOfItsCounters) {
    for (const int code : {11, 12, 13}) {
        PlisRun run = rosenbrockRun(1, 4, 3);
        run.call();
        for (int iteration = 0; iteration < 3; ++iteration) {
            run.finishIteration(rosenbrockChain);
        }
        std::int32_t& counter = code == 11   ? run.saved.iterationCount
                                : code == 12 ? run.saved.valueCount
                                             : run.saved.gradientCount;
        const PlisRun before = run;
        counter = 8999;
        run.call();
        EXPECT_EQ(run.stopCode, 0);
        run = before;
        counter = 9000;
        run.call();
        EXPECT_EQ(run.state, 0);
        EXPECT_EQ(run.stopCode, code);
    }
}

TEST(Plis, EvaluationsAreCounted) {
    PlisRun run = rosenbrockRun(1, 6, 3);
    run.minimise(rosenbrockChain);
    EXPECT_EQ(run.saved.valueCount, run.evaluations);
    EXPECT_EQ(run.saved.gradientCount, run.evaluations);
}

TEST(Plis, RestartsPeriodically) {
    for (const int missing : {0, 1}) {
        PlisRun run = rosenbrockRun(1, 4, 3);
        run.call();
        for (int iteration = 0; iteration < 5; ++iteration) {
            run.finishIteration(rosenbrockChain);
        }
        ASSERT_EQ(run.saved.restartCount, 1);
        run.saved.lastRestartIteration = run.saved.iterationCount - 999 * 4 + missing;
        run.call();
        EXPECT_EQ(run.saved.restartCount, 2 - missing);
        EXPECT_EQ(run.saved.columnsInUse, missing == 0 ? 0 : 3);
    }
}

TEST(Plis, StartsAfreshBetweenAnyTwoCalls) {
    PlisRun fresh = boundedRun(2, 9, 4);
    PlisRun used = fresh;
    const Vector x = used.x;
    const std::vector<std::int32_t> codes = used.nbd;
    used.minimise(rosenbrockChain, 30);
    used.x = x;
    used.nbd = codes;
    used.l = fresh.l;
    used.u = fresh.u;
    used.evaluations = 0;
    fresh.minimise(rosenbrockChain);
    used.minimise(rosenbrockChain);
    EXPECT_EQ(used.x, fresh.x);
    EXPECT_EQ(used.evaluations, fresh.evaluations);
    EXPECT_EQ(std::memcmp(&used.saved.shift, &fresh.saved.shift, sizeof(double)), 0);
}

TEST(Plis, StartMakesActiveCodesPositive) {
    PlisRun run(1, 6, 2, 0.5);
    run.nb = 1;
    run.nbd = {-1, -2, -3, -4, -5, -6};
    run.l.assign(6, 0.0);
    run.u.assign(6, 1.0);
    run.call();
    EXPECT_EQ(run.nbd, (std::vector<std::int32_t>{1, 2, 3, 4, -5, -5}));
    EXPECT_EQ(run.x, Vector(6, 0.5));
    EXPECT_EQ(run.l[4], 0.5);
    EXPECT_EQ(run.u[5], 0.5);
}

TEST(Plis, StartProjectsXIntoItsBounds) {
    PlisRun run(1, 7, 2, 0.0);
    run.nb = 1;
    run.nbd = {1, 2, 3, 4, 3, 3, 0};
    run.l = {1.0, notANumber, -1.0, -1.0, 2.0, 2.0, 5.0};
    run.u = {notANumber, -1.0, 0.5e-8, 1.0, 2.0, -2.0, -5.0};
    run.call();
    EXPECT_EQ(run.x[0], 1.0);
    EXPECT_EQ(run.x[1], -1.0);
    EXPECT_EQ(run.x[2], 0.5e-8);  // near enough to become equal to it
    EXPECT_EQ(run.x[3], 0.0);
    for (const std::size_t i : {4u, 5u}) {  // equal and reversed bounds fix the variable at its value
        EXPECT_EQ(run.x[i], 0.0);
        EXPECT_EQ(run.l[i], 0.0);
        EXPECT_EQ(run.u[i], 0.0);
    }
    EXPECT_EQ(run.x[6], 0.0);
    EXPECT_EQ(run.nbd, (std::vector<std::int32_t>{-1, -2, -3, 4, -5, -5, 0}));
}

TEST(Plis, CodeFourIsReadAsThree) {
    PlisRun three = boundedRun(2, 8, 3);
    three.nbd.assign(8, 3);
    PlisRun four = three;
    four.nbd.assign(8, 4);
    three.minimise(rosenbrockChain);
    four.minimise(rosenbrockChain);
    EXPECT_EQ(three.x, four.x);
    EXPECT_EQ(three.evaluations, four.evaluations);
}

TEST(Plis, XIsInsideItsBoundsAtEveryReturn) {
    int entered = 0;
    int left = 0;
    for (const int method : {1, 2}) {
        for (const std::int32_t m : {0, 1, 2, 10}) {
            PlisRun run = boundedRun(method, 21, m);
            const Vector start = run.x;
            run.call();
            std::vector<std::int32_t> before = run.nbd;
            do {
                ASSERT_TRUE(run.isInside()) << "method " << method << " m " << m << " call " << run.evaluations;
                for (std::size_t i = 0; i < run.nbd.size(); ++i) {
                    entered += before[i] > 0 && run.nbd[i] < 0;
                    left += before[i] < 0 && run.nbd[i] > 0;
                    if (run.nbd[i] == -5) {
                        ASSERT_EQ(run.x[i], start[i]);
                    }
                }
                before = run.nbd;
            } while (run.advance(rosenbrockChain) && run.evaluations < 10000);
            EXPECT_NE(run.stopCode, 0) << "method " << method << " m " << m;
        }
    }
    EXPECT_GT(entered, 5);
    EXPECT_GT(left, 10);
}

TEST(Plis, AllFixedStopsAtTheStart) {
    PlisRun run = rosenbrockRun(2, 6, 3);
    run.nb = 6;
    run.nbd.assign(6, 5);
    const Vector start = run.x;
    run.minimise(rosenbrockChain);
    EXPECT_EQ(run.stopCode, 4);
    EXPECT_EQ(run.x, start);
    EXPECT_EQ(run.evaluations, 1);
}

TEST(Plis, AllAtBoundsThatPointInwardAreReleased) {
    PlisRun run(2, 6, 3, 0.0);
    run.nb = 6;
    run.nbd.assign(6, 3);
    run.l.assign(6, 0.0);
    run.u.assign(6, 2.0);
    run.call();
    EXPECT_EQ(run.nbd, std::vector<std::int32_t>(6, -3));
    run.minimise(rosenbrockChain);
    Vector g(6);
    EXPECT_NEAR(rosenbrockChain(run.x, g), 0.0, 1.0e-10);
}

// The bound at which x is decides whether it is released.
TEST(Plis, AnActiveVariableIsFixedOnlyWhileItsGradientPointsOutward) {
    for (const double side : {-1.0, 1.0}) {
        for (const double gradient : {-1.0, 1.0}) {
            PlisRun run(1, 2, 2, side);
            run.nb = 2;
            run.nbd = {3, 0};
            run.l.assign(2, -1.0);
            run.u.assign(2, 1.0);
            run.call();
            ASSERT_EQ(run.nbd[0], -3);
            run.f = 1.0;
            run.g = {gradient, 0.1};
            run.state = 0;
            run.call();
            ASSERT_EQ(run.state, 3);
            EXPECT_EQ(run.nbd[0], side * gradient > 0.0 ? 3 : -3) << side << " " << gradient;
        }
    }
}

// The start of a second iteration, with the first `active` of four variables at a lower bound off which they
// would descend.
PlisRun readyToRelease(int active) {
    PlisRun run(1, 4, 2, 0.5);
    run.nb = 1;
    run.nbd.assign(4, 1);
    for (int i = 0; i < active; ++i) {
        run.x[static_cast<std::size_t>(i)] = 0.0;
    }
    run.call();
    run.saved.iterationCount = 5;
    run.saved.lastRestartIteration = 1;
    run.saved.restartCount = 1;
    run.f = 1.0;
    run.g.assign(4, 0.1);
    for (int i = 0; i < active; ++i) {
        run.g[static_cast<std::size_t>(i)] = -1.0;
    }
    run.saved.newlyFixed = 0;
    run.state = 0;
    return run;
}

TEST(Plis, TwoReleasedBoundsRestartTheMatrixOneDoesNot) {
    for (const int active : {1, 2, 4}) {
        PlisRun run = readyToRelease(active);
        run.call();
        EXPECT_EQ(run.state, 3);
        EXPECT_EQ(run.nbd, std::vector<std::int32_t>(4, 1));
        EXPECT_EQ(run.saved.restartCount, active >= 2 ? 2 : 1) << active;
    }
}

TEST(Plis, AfterANewlyFixedBoundNoneIsReleasedUnlessNothingElseIsFree) {
    for (const int active : {1, 2, 4}) {
        PlisRun run = readyToRelease(active);
        run.saved.newlyFixed = 1;
        run.call();
        EXPECT_EQ(run.state, 3);
        EXPECT_EQ(run.nbd[0], active == 4 ? 1 : -1) << active;
    }
}

TEST(Plis, BoundsAreReleasedOnlyIfTheirGradientIsTheLargest) {
    PlisRun run = readyToRelease(2);
    run.g[3] = 1.0;
    run.call();
    EXPECT_EQ(run.nbd[0], -1);
}

TEST(Plis, AVariableWithoutGradientStaysAtItsBound) {
    PlisRun run = readyToRelease(2);
    run.g[1] = 0.0;
    run.call();
    EXPECT_EQ(run.nbd, (std::vector<std::int32_t>{1, -1, 1, 1}));
    EXPECT_EQ(run.saved.restartCount, 1);
}

TEST(Plis, EqualBoundsFixAVariable) {
    for (const int method : {1, 2}) {
        PlisRun one = rosenbrockRun(method, 6, 3);
        one.nb = 1;
        one.nbd[2] = 3;
        one.l[2] = one.u[2] = 0.5;
        one.x[2] = 0.75;
        PlisRun all = one;
        one.minimise(rosenbrockChain);
        EXPECT_EQ(one.x[2], 0.75);
        EXPECT_EQ(one.nbd[2], -5);
        Vector g(6);
        rosenbrockChain(one.x, g);
        for (std::size_t i = 0; i < 6; ++i) {
            EXPECT_TRUE(i == 2 || std::abs(g[i]) < 1.0e-4) << "variable " << i + 1 << " method " << method;
        }
        all.nbd.assign(6, 3);
        all.l = all.u = Vector{0.5, -0.5, 1.5, 0.0, 2.0, 1.0};
        const Vector start = all.x;
        all.minimise(rosenbrockChain);
        EXPECT_EQ(all.stopCode, 4);
        EXPECT_EQ(all.x, start);
        EXPECT_EQ(all.l, start);
        EXPECT_EQ(all.u, start);
    }
}

TEST(Plis, TheLargestStepIsRelativeToXAboveOne) {
    PlisRun run(1, 4, 3, 0.0);
    run.x = {-30.0, 0.2, 1.5, -0.5};
    run.call();
    for (int iteration = 0; iteration < 12; ++iteration) {
        const Vector before = run.x;
        run.finishIteration(rosenbrockChain);
        ASSERT_EQ(run.stopCode, 0);
        double largest = 0.0;
        for (std::size_t i = 0; i < 4; ++i) {
            largest = std::max(largest, std::abs(run.x[i] - before[i]) / std::max(std::abs(run.x[i]), 1.0));
        }
        EXPECT_EQ(run.saved.largestStep, largest) << "iteration " << iteration;
    }
}

// The old value of the first iteration differs from f by sqrt|f| or |f|/10, whichever is less.
TEST(Plis, TheFirstValueTestHasItsOwnOldValue) {
    const std::pair<double, std::int32_t> cases[] = {
        {5.0e-14, 1}, {2.0e-13, 0}, {1.0e26, 0}, {1.0e30, 1}, {-1.0e30, 1}};
    for (const auto& [f, passes] : cases) {
        PlisRun run(1, 4, 2, 0.5);
        run.call();
        run.f = f;
        run.g.assign(4, 1.0);
        run.state = 0;
        run.call();
        EXPECT_EQ(run.saved.valuePasses, passes) << f;
    }
}

TEST(Plis, TheCodeOfAFailedRunSaysHowTheSearchFailed) {
    PlisRun endless(1, 4, 2, 0.5);
    endless.minimise([](const Vector&, Vector& g) {
        g.assign(4, 1.0);
        return 1.0e20;
    });
    EXPECT_EQ(endless.saved.searchStatus, -1);
    EXPECT_EQ(endless.stopCode, -6);
    for (const std::int32_t status : {-3, -2, -1, 0, 4}) {
        PlisRun run(1, 4, 2, 0.5);
        run.call();
        run.saved.searchStatus = status;
        run.f = 1.0;
        run.g.assign(4, notANumber);
        run.state = 0;
        run.call();
        EXPECT_EQ(run.stopCode, status < 0 ? status - 5 : -10);
    }
}

TEST(Plis, NoVariablesConverge) {
    PlisRun run(1, 0, 3, 0.0);
    run.minimise([](const Vector&, Vector&) { return 1.0; });
    EXPECT_EQ(run.stopCode, 4);
}

TEST(Plis, WithoutColumnsItIsSteepestDescent) {
    PlisRun run(1, 5, 0, 2.0);
    run.minimise([](const Vector& x, Vector& g) {
        double f = 0.0;
        for (std::size_t i = 0; i < x.size(); ++i) {
            f += 0.5 * x[i] * x[i];
            g[i] = x[i];
        }
        return f;
    });
    EXPECT_GT(run.stopCode, 0);
    for (const double value : run.x) {
        EXPECT_NEAR(value, 0.0, 1.0e-7);
    }
}

// Restoring a copy of all plain data between any two calls changes no bit.
TEST(Plis, SavedAndReloadedStateChangesNoBit) {
    for (const int method : {1, 2}) {
        PlisRun whole = boundedRun(method, 15, 4);
        PlisRun stored = whole;
        PlisState bytes;
        whole.call();
        stored.call();
        int calls = 0;
        do {
            std::memcpy(&bytes, &stored.saved, sizeof bytes);
            PlisRun reloaded(method, 15, 4, -3.0);
            reloaded.x = stored.x;
            reloaded.l = stored.l;
            reloaded.u = stored.u;
            reloaded.nbd = stored.nbd;
            reloaded.f = stored.f;
            reloaded.g = stored.g;
            reloaded.wa = stored.wa;
            reloaded.state = stored.state;
            reloaded.stopCode = stored.stopCode;
            std::memcpy(&reloaded.saved, &bytes, sizeof bytes);
            stored = reloaded;
            stored.advance(rosenbrockChain);
            ++calls;
            const bool continues = whole.advance(rosenbrockChain);
            ASSERT_EQ(whole.x, stored.x) << "call " << calls;
            ASSERT_EQ(whole.state, stored.state) << "call " << calls;
            if (!continues) {
                break;
            }
        } while (calls < 5000);
        EXPECT_NE(whole.stopCode, 0);
    }
}

// One evaluation, or all from there on, gives infinity or NaN.
TEST(Plis, NonFiniteValuesAtAnyCallEndTheRun) {
    const double odd[] = {notANumber, infinity, -infinity, 1.0e300, -1.0e300};
    for (const double value : odd) {
        for (int first = 1; first <= 60; ++first) {
            for (int kind = 0; kind < 6; ++kind) {
                const bool once = kind % 2 == 0;
                const int position = kind / 2;  // f, one component, all components
                const Function function = [&, count = 0](const Vector& x, Vector& g) mutable {
                    double f = rosenbrockChain(x, g);
                    ++count;
                    if (count == first || (count > first && !once)) {
                        if (position == 0) {
                            f = value;
                        } else if (position == 1) {
                            g[static_cast<std::size_t>(count) % g.size()] = value;
                        } else {
                            g.assign(g.size(), value);
                        }
                    }
                    return f;
                };
                PlisRun run = first % 2 == 0 ? rosenbrockRun(first % 3, 9, 3) : boundedRun(first % 3, 9, 3);
                const int calls = run.minimise(function, 30000);
                ASSERT_LT(calls, 30000) << value << " at " << first << " kind " << kind;
                ASSERT_NE(run.stopCode, 0);
                for (const double component : run.x) {
                    ASSERT_TRUE(std::isfinite(component)) << value << " at " << first << " kind " << kind;
                }
                ASSERT_TRUE(run.nb == 0 || run.isInside()) << value << " at " << first << " kind " << kind;
            }
        }
    }
}

TEST(Plis, ANaNGradientIsNotMistakenForConvergence) {
    for (const std::int32_t nb : {0, 4}) {
        PlisRun run(1, 4, 2, 0.5);
        run.nb = nb;
        run.nbd.assign(4, 3);
        run.l.assign(4, 0.5);
        run.u.assign(4, 1.0);
        run.minimise([](const Vector&, Vector& g) {
            g.assign(g.size(), notANumber);
            return 1.0;
        });
        EXPECT_EQ(run.stopCode, -10) << nb;
    }
}

}  // namespace
}  // namespace voxlith
