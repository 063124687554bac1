// Behaviour of L-BFGS-B through the optimiser call: words, codes, flags, limits, failures, saved state.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <limits>
#include <new>
#include <random>

#include "optim/lbfgsb/lbfgsb_state.h"
#include "support/optimiser_problem.h"

namespace {
std::size_t allocationCount = 0;
}

// Counts all allocations of this test program. Not inlined: the compiler would see a malloc on one side of a
// pair and a delete on the other, and warn.
[[gnu::noinline]] void* operator new(std::size_t size) {
    ++allocationCount;
    if (void* memory = std::malloc(size > 0 ? size : 1)) {
        return memory;
    }
    throw std::bad_alloc();
}
[[gnu::noinline]] void operator delete(void* memory) noexcept {
    std::free(memory);
}
[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}

namespace voxlith {
namespace {

using testing_support::OptimiserRun;
using Function = std::function<double(const std::vector<double>&, std::vector<double>&)>;

constexpr double infinity = std::numeric_limits<double>::infinity();
constexpr double notANumber = std::numeric_limits<double>::quiet_NaN();
const std::string normConverged = "CONVERGENCE: NORM OF PROJECTED GRADIENT <= PGTOL";
const std::string valueConverged = "CONVERGENCE: REL_REDUCTION_OF_F <= FACTR*EPSMCH";
const std::string abnormal = "ABNORMAL_TERMINATION_IN_LNSRCH";

double rosenbrock(const std::vector<double>& x, std::vector<double>& g) {
    static const nlohmann::json description{{"kind", "rosenbrock"}};
    return testing_support::evaluateTestFunction(description, x, g);
}

// Sum of weight[i] (x[i] - centre[i])^2 / 2.
Function separable(std::vector<double> weight, std::vector<double> centre) {
    return [=](const std::vector<double>& x, std::vector<double>& g) {
        double f = 0.0;
        for (std::size_t i = 0; i < x.size(); ++i) {
            g[i] = weight[i] * (x[i] - centre[i]);
            f += 0.5 * g[i] * (x[i] - centre[i]);
        }
        return f;
    };
}

Function bowl(double centre) {
    return [=](const std::vector<double>& x, std::vector<double>& g) {
        return separable(std::vector<double>(x.size(), 1.0), std::vector<double>(x.size(), centre))(x, g);
    };
}

// The bounds by code; fixed variables have none.
void expectInsideBounds(const OptimiserRun& run) {
    for (std::size_t i = 0; i < run.x.size(); ++i) {
        if (run.fixedFlag[i] != 0) {
            continue;
        }
        if (hasLowerBound(run.nbd[i])) {
            EXPECT_GE(run.x[i], run.l[i]) << "variable " << i + 1;
        }
        if (hasUpperBound(run.nbd[i])) {
            EXPECT_LE(run.x[i], run.u[i]) << "variable " << i + 1;
        }
    }
}

// Runs from "START" to the stop word; returns the number of calls.
int minimise(OptimiserRun& run, const Function& function, int callLimit = 2000) {
    run.callWith("START");
    for (int calls = 1; calls < callLimit; ++calls) {
        expectInsideBounds(run);
        if (run.wantsEvaluation()) {
            run.f = function(run.x, run.g);
        } else if (run.word() != "NEW_X") {
            return calls;
        }
        run.call();
    }
    return callLimit;
}

void setBounds(OptimiserRun& run, std::int32_t code, double lower, double upper) {
    std::fill(run.nbd.begin(), run.nbd.end(), code);
    std::fill(run.l.begin(), run.l.end(), lower);
    std::fill(run.u.begin(), run.u.end(), upper);
}

// A bounded Rosenbrock chain on which variables meet and leave bounds all the time.
OptimiserRun busyRun(std::int32_t corrections) {
    OptimiserRun run(12, corrections, -1.0);
    for (std::size_t i = 0; i < 12; ++i) {
        run.nbd[i] = static_cast<std::int32_t>(i % 4);
        run.l[i] = -1.2;
        run.u[i] = i % 3 == 0 ? 0.6 : 1.1;
    }
    run.fixedFlag[5] = 1;
    return run;
}

TEST(TaskWords, ArePaddedWithSpacesAndComparedWithoutTrailingSpaces) {
    TaskWord task;
    setTask(task, "FG_LN");
    EXPECT_EQ(std::string(task.text, sizeof task.text), "FG_LN" + std::string(55, ' '));
    EXPECT_TRUE(taskIs(task, "FG_LN   "));
    EXPECT_FALSE(taskIs(task, "FG_L"));
    EXPECT_TRUE(taskBegins(task, "FG"));
    EXPECT_FALSE(taskBegins(task, "FG_LNSRCH"));
    setTask(task, std::string(70, 'A'));
    EXPECT_EQ(taskText(task), std::string(60, 'A'));
    setTask(task, "");
    EXPECT_TRUE(taskIs(task, ""));
}

TEST(Lbfgsb, IsRunByEveryMethodButOneAndTwo) {
    for (const int method : {0, 3, -1, 99}) {
        OptimiserRun run(4, 5, -1.0);
        run.method = method;
        run.callWith("START");
        EXPECT_EQ(run.word(), "FG_START");
        run.f = rosenbrock(run.x, run.g);
        run.call();
        EXPECT_EQ(run.word(), "FG_LNSRCH") << "method " << method;
    }
}

TEST(Lbfgsb, MinimisesWithShortAndLongMemory) {
    for (const std::int32_t m : {1, 2, 5, 40}) {
        OptimiserRun run(10, m, -1.2);
        run.factr = 1.0;
        minimise(run, rosenbrock);
        EXPECT_LT(run.f, 1.0e-10) << "m " << m;
        EXPECT_GT(loadState({run.state.csave, run.state.lsave, run.state.isave, run.state.dsave}).iteration, 20);
        EXPECT_EQ(run.word(), valueConverged);
    }
}

TEST(Lbfgsb, StopsAtZeroToleranceOnlyWhenTheProjectedGradientIsZero) {
    OptimiserRun run(2, 3, 0.0);
    run.callWith("START");
    run.f = 1.0;
    run.g = {0.0, std::numeric_limits<double>::denorm_min()};
    run.call();
    EXPECT_NE(run.word(), normConverged);
    run.callWith("START");
    run.f = 1.0;
    run.g = {0.0, -0.0};
    run.call();
    EXPECT_EQ(run.word(), normConverged);
}

TEST(Lbfgsb, TestsTheIterateInTheCallAfterNewX) {
    OptimiserRun run(3, 3, 0.0);
    run.callWith("START");
    while (run.wantsEvaluation()) {
        run.f = bowl(0.25)(run.x, run.g);
        run.call();
    }
    ASSERT_EQ(run.word(), "NEW_X");
    minimise(run, bowl(0.25));
    EXPECT_EQ(run.word(), normConverged);
}

TEST(Lbfgsb, ReadsTheBoundCodesOfModels) {
    // Centres far out on both sides: each variable ends on its bound, or at the centre if there is none.
    const std::vector<double> centre{5, -5, 5, -5, 5, -5, 5, -5, 5, -5, 5, -5};
    OptimiserRun run(12, 4, 0.0);
    for (std::size_t i = 0; i < 12; ++i) {
        run.nbd[i] = static_cast<std::int32_t>(i / 2);
        run.l[i] = -1.0;
        run.u[i] = 2.0;
    }
    minimise(run, separable(std::vector<double>(12, 2.0), centre));
    const std::vector<double> expected{5, -5, 5, -1, 2, -5, 2, -1, 5, -5, 5, -5};
    for (std::size_t i = 0; i < 12; ++i) {
        EXPECT_NEAR(run.x[i], expected[i], 1.0e-12) << "variable " << i + 1;
    }
}

TEST(Lbfgsb, NeverReadsTheBoundOfAnUnusedSide) {
    OptimiserRun run(4, 4, 0.0);
    run.nbd = {0, 1, 2, 5};
    run.l = {notANumber, -1.0, notANumber, notANumber};
    run.u = {notANumber, notANumber, 1.0, notANumber};
    minimise(run, separable({1, 2, 3, 4}, {3, 3, -3, 3}));
    const std::vector<double> expected{3, 3, -3, 3};
    for (std::size_t i = 0; i < 4; ++i) {
        EXPECT_NEAR(run.x[i], expected[i], 1.0e-9);
    }
}

TEST(Lbfgsb, ReversedBoundsAreRefusedOnlyForFreeVariablesWithBoth) {
    for (std::int32_t code = 0; code <= 5; ++code) {
        for (const std::int32_t flag : {0, 1, 2}) {
            OptimiserRun run(2, 2, 0.5);
            setBounds(run, code, 1.0, 0.0);
            run.fixedFlag = {flag, flag};
            run.callWith("START");
            EXPECT_EQ(run.word(), code == 3 && flag == 0 ? "ERROR: NO FEASIBLE SOLUTION" : "FG_START");
        }
    }
}

TEST(Lbfgsb, RepeatsItsRefusalUntilAValidStart) {
    OptimiserRun run(2, 2, 0.5);
    run.nbd = {6, 0};
    run.callWith("START");
    EXPECT_EQ(run.word(), "ERROR: INVALID NBD");
    run.call();
    EXPECT_EQ(run.word(), "ERROR: INVALID NBD");
    run.callWith("NEW_X");
    EXPECT_EQ(run.word(), "ERROR: INVALID NBD");
    run.nbd = {0, 0};
    run.callWith("START");
    EXPECT_EQ(run.word(), "FG_START");
}

TEST(Lbfgsb, FixesFlaggedVariablesEvenOutsideTheirBounds) {
    for (const std::int32_t flag : {1, 2, -7}) {
        OptimiserRun run(6, 4, 0.0);
        setBounds(run, 3, -1.0, 1.0);
        run.x[2] = 4.0;
        run.fixedFlag[2] = flag;
        minimise(run, bowl(0.5));
        EXPECT_EQ(run.x[2], 4.0);
        EXPECT_NEAR(run.x[3], 0.5, 1.0e-12);
        EXPECT_EQ(run.word(), flag == 1 ? normConverged : abnormal);
    }
}

TEST(Lbfgsb, FixesFlaggedVariablesWithoutAnyBound) {
    OptimiserRun run(8, 5, -0.5);
    run.fixedFlag[3] = 1;
    run.factr = 10.0;
    minimise(run, rosenbrock);
    EXPECT_EQ(run.x[3], -0.5);
    EXPECT_NE(run.x[2], -0.5);
}

TEST(Lbfgsb, EndsAtOnceWhenAllVariablesAreFixed) {
    OptimiserRun run(3, 3, 0.7);
    run.fixedFlag = {1, 1, 1};
    EXPECT_EQ(minimise(run, bowl(0.0)), 2);
    EXPECT_EQ(run.word(), normConverged);
    run.fixedFlag = {2, 1, 2};
    EXPECT_EQ(minimise(run, bowl(0.0)), 2);
    EXPECT_EQ(run.word(), abnormal);
    EXPECT_EQ(run.x, std::vector<double>(3, 0.7));
}

TEST(Lbfgsb, EqualBoundsFixAVariable) {
    OptimiserRun run(4, 3, 0.0);
    setBounds(run, 3, -2.0, 2.0);
    run.l[1] = run.u[1] = 0.75;
    minimise(run, bowl(1.0));
    EXPECT_EQ(run.x[1], 0.75);
    EXPECT_NEAR(run.x[0], 1.0, 1.0e-12);
    setBounds(run, 3, 0.5, 0.5);
    minimise(run, bowl(1.0));
    EXPECT_EQ(run.x, std::vector<double>(4, 0.5));
    EXPECT_EQ(run.word(), normConverged);
}

TEST(Lbfgsb, LimitsTheFirstStepOfAConstrainedProblem) {
    for (const std::int32_t code : {0, 1, 3}) {
        OptimiserRun run(3, 3, 0.0);
        setBounds(run, code, -50.0, 50.0);
        run.maxStep = {0.0, 0.01, -1.0};
        run.callWith("START");
        run.f = separable({1, 1, 1}, {4, 3, 2})(run.x, run.g);
        run.call();
        if (code == 0) {
            EXPECT_GT(std::abs(run.x[1]), 0.1);
        } else {
            EXPECT_NEAR(run.x[1], 0.01, 1.0e-15);
        }
        EXPECT_NEAR(run.x[0], run.x[1] / 3.0 * 4.0, 1.0e-14);
        // The limit holds throughout the first search: the second step is free of it.
        while (run.wantsEvaluation()) {
            run.f = separable({1, 1, 1}, {4, 3, 2})(run.x, run.g);
            run.call();
        }
        if (code != 0) {
            EXPECT_NEAR(run.x[1], 0.01, 1.0e-15);
        }
        minimise(run, separable({1, 1, 1}, {4, 3, 2}));
        EXPECT_NEAR(run.x[1], 3.0, 1.0e-9);
    }
}

TEST(Lbfgsb, FirstStepOfABoxedProblemIsTheWholeOne) {
    OptimiserRun run(2, 3, 0.0);
    setBounds(run, 3, -50.0, 50.0);
    run.callWith("START");
    run.f = bowl(30.0)(run.x, run.g);
    run.call();
    EXPECT_EQ(run.x, std::vector<double>(2, 30.0));
    setBounds(run, 1, -50.0, 0.0);
    run.x = {0.0, 0.0};
    run.callWith("START");
    run.f = bowl(30.0)(run.x, run.g);
    run.call();
    EXPECT_NEAR(std::hypot(run.x[0], run.x[1]), 1.0, 1.0e-14);
}

TEST(Lbfgsb, AFailedSearchRefreshesTheMemoryAndThenEndsTheRun) {
    OptimiserRun run(4, 4, -1.0);
    run.callWith("START");
    int iterations = 0;
    while (iterations < 3) {
        if (run.wantsEvaluation()) {
            run.f = rosenbrock(run.x, run.g);
        } else {
            ++iterations;
        }
        run.call();
    }
    const auto corrections = [&] {
        return loadState({run.state.csave, run.state.lsave, run.state.isave, run.state.dsave}).corrections;
    };
    ASSERT_EQ(run.word(), "FG_LNSRCH");
    ASSERT_GT(corrections(), 0);
    std::vector<double> gradient(4);
    // From here the values neither fall nor rise, so that each search halves its interval until it fails.
    const double plateau = run.f;
    int trials = 0;
    for (; corrections() > 0; ++trials) {
        run.f = plateau;
        run.g = {0.0, 0.0, 0.0, 0.0};
        run.call();
        ASSERT_EQ(run.word(), "FG_LNSRCH");
    }
    EXPECT_EQ(trials, 20);
    for (trials = 0; run.wantsEvaluation(); ++trials) {
        run.f = plateau;
        run.g = {0.0, 0.0, 0.0, 0.0};
        run.call();
    }
    EXPECT_EQ(trials, 20);
    EXPECT_EQ(run.word(), abnormal);
    EXPECT_DOUBLE_EQ(run.f, rosenbrock(run.x, gradient));
    EXPECT_EQ(run.g, gradient);
    run.call();
    EXPECT_EQ(run.word(), "FG_START");
}

TEST(Lbfgsb, AStoppedRunContinuesWithItsMemory) {
    OptimiserRun run = busyRun(3);
    run.factr = 1.0e9;
    minimise(run, rosenbrock);
    ASSERT_EQ(run.word(), valueConverged);
    const LbfgsbState before = loadState({run.state.csave, run.state.lsave, run.state.isave, run.state.dsave});
    ASSERT_GT(before.corrections, 0);
    run.call();
    EXPECT_EQ(run.word(), "FG_START");
    const LbfgsbState after = loadState({run.state.csave, run.state.lsave, run.state.isave, run.state.dsave});
    EXPECT_EQ(after.corrections, before.corrections);
    EXPECT_EQ(after.theta, before.theta);
    EXPECT_EQ(after.iteration, before.iteration);
    const double reached = run.f;
    for (int iterations = 0; iterations < 3;) {
        if (run.wantsEvaluation()) {
            run.f = rosenbrock(run.x, run.g);
        } else {
            ++iterations;
        }
        run.call();
    }
    EXPECT_LE(run.f, reached);
}

TEST(Lbfgsb, StartForgetsEverything) {
    OptimiserRun run = busyRun(3);
    OptimiserRun fresh = busyRun(3);
    run.callWith("START");
    for (int calls = 0; calls < 31; ++calls) {
        if (run.wantsEvaluation()) {
            run.f = rosenbrock(run.x, run.g);
        }
        run.call();
    }
    run.x = fresh.x;
    run.callWith("START");
    fresh.callWith("START");
    for (int calls = 0; calls < 60; ++calls) {
        ASSERT_EQ(run.word(), fresh.word());
        ASSERT_EQ(run.x, fresh.x) << "call " << calls;
        if (run.wantsEvaluation()) {
            run.f = rosenbrock(run.x, run.g);
            fresh.f = rosenbrock(fresh.x, fresh.g);
        }
        run.call();
        fresh.call();
    }
}

// Plain data moved to other addresses between any two calls.
TEST(Lbfgsb, SavedAndReloadedStateChangesNoBit) {
    for (const std::int32_t m : {1, 2, 5}) {
        OptimiserRun whole = busyRun(m);
        OptimiserRun moved = busyRun(m);
        whole.callWith("START");
        moved.callWith("START");
        for (int calls = 0; calls < 120; ++calls) {
            const OptimiserRun saved = moved;
            std::fill(moved.wa.begin(), moved.wa.end(), notANumber);
            std::fill(moved.iwa.begin(), moved.iwa.end(), -1);
            moved.state = {};
            OptimiserRun reloaded = saved;
            moved = std::move(reloaded);
            if (whole.wantsEvaluation()) {
                whole.f = rosenbrock(whole.x, whole.g);
                moved.f = rosenbrock(moved.x, moved.g);
            }
            whole.call();
            moved.call();
            ASSERT_EQ(whole.word(), moved.word());
            ASSERT_EQ(whole.x, moved.x) << "m " << m << " call " << calls;
            ASSERT_EQ(whole.f, moved.f);
        }
    }
}

TEST(Lbfgsb, DoesNotUseTheThirtiethReal) {
    OptimiserRun run = busyRun(2);
    run.state.dsave[29] = 10000.0;
    minimise(run, rosenbrock, 50);
    EXPECT_EQ(run.state.dsave[29], 10000.0);
}

TEST(Lbfgsb, StoresItsLayout) {
    OptimiserRun run(7, 3, 0.0);
    run.callWith("START");
    const std::vector<std::int32_t> expected{21,  9,   36,  1,   22,  43,  52,  61,  70,  79,
                                             115, 151, 158, 165, 172, 179, 203, 206, 209, 212};
    EXPECT_EQ(std::vector<std::int32_t>(run.state.isave, run.state.isave + 20), expected);
    EXPECT_EQ(static_cast<std::size_t>(212 + 3 - 1), run.wa.size());
}

TEST(Lbfgsb, RefusesArraysThatAreTooShort) {
    OptimiserRun run(5, 3, 0.0);
    run.wa.pop_back();
    EXPECT_THROW(run.callWith("START"), std::invalid_argument);
    run.wa.push_back(0.0);
    run.iwa.pop_back();
    EXPECT_THROW(run.callWith("START"), std::invalid_argument);
    run.iwa.push_back(0);
    run.m = std::numeric_limits<std::int32_t>::max();
    EXPECT_THROW(run.callWith("START"), std::invalid_argument);
    run.m = 3;
    EXPECT_THROW(run.callWith("NEW_X"), std::invalid_argument) << "never started";
}

// x must stay finite, and every run must end or continue with its task words.
TEST(Lbfgsb, SurvivesNaNAndInfinityAtEachCall) {
    for (const double poison : {notANumber, infinity, -infinity}) {
        for (int position = 0; position <= 13; ++position) {
            for (int badCall = 0; badCall < 45; ++badCall) {
                OptimiserRun run = busyRun(3);
                run.callWith("START");
                for (int calls = 0; calls < 150; ++calls) {
                    if (run.wantsEvaluation()) {
                        run.f = rosenbrock(run.x, run.g);
                    }
                    if (calls == badCall && position == 13) {
                        run.f = poison;
                    } else if (calls == badCall && position == 12) {
                        std::fill(run.g.begin(), run.g.end(), poison);
                    } else if (calls == badCall) {
                        run.g[static_cast<std::size_t>(position)] = poison;
                    }
                    run.call();
                    ASSERT_TRUE(std::all_of(run.x.begin(), run.x.end(), [](double v) { return std::isfinite(v); }))
                        << "bad call " << badCall << " position " << position;
                    expectInsideBounds(run);
                }
                EXPECT_TRUE(run.wantsEvaluation() || run.word() == "NEW_X" || taskBegins(run.task, "CONV") ||
                            run.word() == abnormal);
            }
        }
    }
}

TEST(Lbfgsb, VariablesEnterAndLeaveBoundsInOneStepAndTheMinimumIsThatOfTheBox) {
    std::mt19937 random(20);
    const auto uniform = [&](double low, double high) {
        return low + (high - low) * (static_cast<double>(random()) / 4294967296.0);
    };
    for (int trial = 0; trial < 60; ++trial) {
        const std::size_t n = 1 + random() % 40;
        OptimiserRun run(static_cast<std::int32_t>(n), 1 + static_cast<std::int32_t>(random() % 6), 0.0);
        nlohmann::json description{{"kind", "tridiagonal_quadratic"}};
        std::vector<double> diag(n), off(n, 0.0), b(n);
        for (std::size_t i = 0; i < n; ++i) {
            diag[i] = uniform(2.5, 30.0);
            off[i] = uniform(-1.2, 1.2);
            b[i] = uniform(-20.0, 20.0);
            run.nbd[i] = static_cast<std::int32_t>(random() % 4);
            run.l[i] = uniform(-1.0, 0.0);
            run.u[i] = uniform(0.0, 1.0);
            run.x[i] = uniform(-2.0, 2.0);
        }
        description["diag"] = diag;
        description["off"] = off;
        description["b"] = b;
        run.factr = 0.0;
        minimise(run, [&](const auto& x, auto& g) { return testing_support::evaluateTestFunction(description, x, g); });
        const BoxProblem problem{run.n, run.m, run.l, run.u, run.nbd, run.fixedFlag, run.maxStep};
        EXPECT_LT(projectedGradientNorm(problem, run.x, run.g), 1.0e-6) << "trial " << trial << " seed 20";
    }
}

TEST(Lbfgsb, AllocatesNothingInACall) {
    OptimiserRun run = busyRun(3);
    std::size_t allocated = 0;
    setTask(run.task, "START");
    for (int calls = 0; calls < 100; ++calls) {
        const std::size_t before = allocationCount;
        run.call();
        allocated += allocationCount - before;
        if (run.wantsEvaluation()) {
            run.f = rosenbrock(run.x, run.g);
        }
    }
    EXPECT_EQ(allocated, 0U);
}

LbfgsbState stateOf(OptimiserRun& run) {
    return loadState({run.state.csave, run.state.lsave, run.state.isave, run.state.dsave});
}

TEST(LbfgsbState, IsRestoredAsStored) {
    OptimiserRun run(1, 1, 0.0);
    for (const bool on : {false, true}) {
        LbfgsbState state;
        state.theta = 1.5;
        state.corrections = 100001;
        state.oldest = 100002;
        state.updateCount = 100003;
        state.box = {on, !on, on};
        state.previousValue = 2.5;
        state.tolerance = 3.5;
        state.gradientNorm = 4.5;
        state.iteration = 100005;
        state.freeCount = 100006;
        state.refusal = 100007;
        state.step = 5.5;
        state.largestStep = 6.5;
        state.directionSquared = 7.5;
        state.slope = 8.5;
        state.slopeAtStart = 9.5;
        state.searchEvaluations = 100008;
        setTask(state.search.request, "FG");
        state.search.bracketed = !on;
        state.search.stage = 2;
        state.search.start = {0.0, 10.5, 11.5};
        state.search.best = {12.5, 13.5, 14.5};
        state.search.other = {15.5, 16.5, 17.5};
        state.search.lowest = 18.5;
        state.search.highest = 19.5;
        state.search.width = 20.5;
        state.search.previousWidth = 21.5;
        storeState(state, {run.state.csave, run.state.lsave, run.state.isave, run.state.dsave});
        const LbfgsbState back = stateOf(run);
        const auto integers = [](const LbfgsbState& s) {
            return std::vector<std::int32_t>{s.corrections,       s.oldest,           s.updateCount,
                                             s.iteration,         s.freeCount,        s.refusal,
                                             s.searchEvaluations, s.search.bracketed, s.search.stage};
        };
        const auto reals = [](const LbfgsbState& s) {
            return std::vector<double>{s.theta,
                                       s.previousValue,
                                       s.tolerance,
                                       s.gradientNorm,
                                       s.step,
                                       s.largestStep,
                                       s.directionSquared,
                                       s.slope,
                                       s.slopeAtStart,
                                       s.search.start.value,
                                       s.search.start.slope,
                                       s.search.best.step,
                                       s.search.best.value,
                                       s.search.best.slope,
                                       s.search.other.step,
                                       s.search.other.value,
                                       s.search.other.slope,
                                       s.search.lowest,
                                       s.search.highest,
                                       s.search.width,
                                       s.search.previousWidth};
        };
        EXPECT_EQ(integers(back), integers(state));
        EXPECT_EQ(reals(back), reals(state));
        EXPECT_EQ(back.box.startProjected, state.box.startProjected);
        EXPECT_EQ(back.box.constrained, state.box.constrained);
        EXPECT_EQ(back.box.boxed, state.box.boxed);
        EXPECT_TRUE(taskIs(back.search.request, "FG"));
    }
}

// From the second search on: the first trial of the third iteration is requested.
OptimiserRun runInItsThirdSearch() {
    OptimiserRun run(4, 4, -1.0);
    setBounds(run, 3, -50.0, 50.0);
    run.callWith("START");
    for (int iterations = 0; iterations < 2;) {
        if (run.wantsEvaluation()) {
            run.f = rosenbrock(run.x, run.g);
        } else {
            ++iterations;
        }
        run.call();
    }
    return run;
}

TEST(Lbfgsb, AStopKeepsEverythingAndAStopByTheClockRestoresTheLastIterate) {
    OptimiserRun run = runInItsThirdSearch();
    const std::vector<double> trial = run.x;
    std::vector<double> gradient(4);
    const LbfgsbState state = stateOf(run);
    run.f = rosenbrock(run.x, run.g);
    const double f = run.f;
    const std::vector<double> g = run.g;
    run.callWith("STOP: enough");
    EXPECT_EQ(run.word(), "STOP: enough");
    EXPECT_EQ(run.x, trial);
    EXPECT_EQ(run.f, f);
    EXPECT_EQ(run.g, g);
    run.callWith("STOP: CPU EXCEEDS");
    EXPECT_EQ(run.word(), "STOP: CPU EXCEEDS");
    EXPECT_NE(run.x, trial);
    EXPECT_EQ(run.f, state.previousValue);
    EXPECT_EQ(run.f, rosenbrock(run.x, gradient));
    EXPECT_EQ(run.g, gradient);
}

TEST(Lbfgsb, AFailedSearchRestoresTheValueOfTheLastIterate) {
    OptimiserRun run = runInItsThirdSearch();
    const double last = stateOf(run).previousValue;
    for (int search = 0; search < 2; ++search) {
        run.f = notANumber;
        run.call();
        EXPECT_EQ(run.f, last) << "search " << search;
    }
    EXPECT_EQ(run.word(), abnormal);
}

// A search to a bound along a constant slope has no curvature: no pair is stored and none is dropped.
TEST(Lbfgsb, AStepWithoutCurvatureKeepsTheMemory) {
    OptimiserRun run = runInItsThirdSearch();
    const LbfgsbState before = stateOf(run);
    const std::vector<double> x(run.wa.begin() + run.state.isave[14] - 1, run.wa.begin() + run.state.isave[14] + 3);
    const std::vector<double> g(run.wa.begin() + run.state.isave[12] - 1, run.wa.begin() + run.state.isave[12] + 3);
    while (run.wantsEvaluation()) {
        run.f = before.previousValue;
        for (std::size_t i = 0; i < 4; ++i) {
            run.f += g[i] * (run.x[i] - x[i]);
        }
        run.g = g;
        run.call();
    }
    ASSERT_EQ(run.word(), "NEW_X");
    run.call();
    ASSERT_EQ(run.word(), "FG_LNSRCH");
    const LbfgsbState after = stateOf(run);
    EXPECT_EQ(after.iteration, before.iteration + 1);
    EXPECT_EQ(after.corrections, before.corrections);
    EXPECT_EQ(after.updateCount, before.updateCount);
    EXPECT_EQ(after.theta, before.theta);
    EXPECT_EQ(after.skippedUpdates, before.skippedUpdates + 1);
}

// The gradient of a fixed variable changes so much that the square overflows: no pair is stored, and none is dropped
// for it although the memory is full.
TEST(Lbfgsb, AChangeThatOverflowsKeepsTheMemory) {
    OptimiserRun run(4, 2, -1.0);
    run.fixedFlag[3] = 1;
    run.callWith("START");
    for (int iterations = 0; iterations < 5;) {
        if (run.wantsEvaluation()) {
            run.f = rosenbrock(run.x, run.g);
            if (iterations == 4) {
                run.g[3] = 1.0e200;
            }
        }
        run.call();
        iterations += run.word() == "NEW_X";
    }
    const LbfgsbState before = stateOf(run);
    ASSERT_EQ(before.corrections, 2);
    const auto pairsAndProducts = [&] { return std::vector<double>(run.wa.begin(), run.wa.begin() + 16 + 4); };
    const std::vector<double> remembered = pairsAndProducts();
    run.call();
    ASSERT_EQ(run.word(), "FG_LNSRCH");
    const LbfgsbState after = stateOf(run);
    EXPECT_EQ(after.corrections, before.corrections);
    EXPECT_EQ(after.oldest, before.oldest);
    EXPECT_EQ(after.updateCount, before.updateCount);
    EXPECT_EQ(after.theta, before.theta);
    EXPECT_EQ(after.skippedUpdates, before.skippedUpdates + 1);
    const std::vector<double> now = pairsAndProducts();
    EXPECT_EQ(std::memcmp(now.data(), remembered.data(), now.size() * sizeof(double)), 0);
}

// Only rounding makes a matrix singular: here it is overwritten in the workspace, at its position in the layout.
TEST(Lbfgsb, AMatrixThatCannotBeFactoredDropsTheMemory) {
    OptimiserRun run = runInItsThirdSearch();
    while (run.wantsEvaluation()) {
        run.f = rosenbrock(run.x, run.g);
        run.call();
    }
    ASSERT_EQ(run.word(), "NEW_X");
    ASSERT_GT(stateOf(run).corrections, 0);
    run.wa[static_cast<std::size_t>(run.state.isave[5] - 1)] = -1.0e-30;
    run.call();
    ASSERT_EQ(run.word(), "FG_LNSRCH");
    EXPECT_EQ(stateOf(run).corrections, 0);
    EXPECT_EQ(stateOf(run).theta, 1.0);
}

// The first step has strong curvature; from there the slope is constant, and the search continues to the nearest bound,
// which step times direction meets only up to rounding.
TEST(Lbfgsb, ASearchToABoundEndsExactlyOnIt) {
    std::mt19937 random(31);
    const auto uniform = [&](double low, double high) {
        return low + (high - low) * (static_cast<double>(random()) / 4294967296.0);
    };
    int uponBound = 0;
    for (int trial = 0; trial < 300; ++trial) {
        OptimiserRun run(3, 3, 0.0);
        std::vector<double> slope(3), start(3);
        for (std::size_t i = 0; i < 3; ++i) {
            run.nbd[i] = static_cast<std::int32_t>(1 + random() % 3);
            run.l[i] = uniform(-9.0, -1.0);
            run.u[i] = uniform(1.0, 9.0);
            start[i] = run.x[i] = uniform(-0.5, 0.5);
            slope[i] = uniform(-1.0, 1.0);
        }
        run.nbd[0] = slope[0] < 0.0 ? 2 : 1;
        run.callWith("START");
        double firstValue = 0.0;
        for (int calls = 0; calls < 40 && (run.wantsEvaluation() || run.word() == "NEW_X"); ++calls) {
            expectInsideBounds(run);
            uponBound += run.x[0] == run.l[0] || run.x[0] == run.u[0];
            if (run.wantsEvaluation()) {
                run.f = firstValue;
                for (std::size_t i = 0; i < 3; ++i) {
                    run.f += 0.5 * slope[i] * (run.x[i] - start[i]);
                    run.g[i] = run.x == start ? slope[i] : 0.5 * slope[i];
                }
            }
            run.call();
        }
    }
    EXPECT_GT(uponBound, 100);
}

TEST(StepLimits, AreSetByTheNearestBoundAndTheLargestStep) {
    const std::vector<double> x{0.0, 0.0, 0.0, 0.0, 1.0}, l{-1.0, -9.0, -6.0, -1.0, 1.0}, u{9.0, 4.0, 6.0, 1.0, 9.0};
    const std::vector<std::int32_t> nbd{1, 2, 3, 0, 3}, flag(5, 0);
    const std::vector<double> maxStep{0.5, 0.0, 3.0, -1.0, 0.0};
    const BoxProblem problem{5, 2, l, u, nbd, flag, maxStep};
    BoxBlock box;
    boxOfBlock(problem, 0, 5, box);
    const auto feasible = [&](std::vector<double> d) {
        StepToBound step{100.0, 0, false};
        shortenStep(box, 0, 5, x.data(), d.data(), step);
        return step.length;
    };
    EXPECT_EQ(feasible({1.0, -1.0, 0.0, 9.0, 0.0}), 100.0);
    EXPECT_EQ(feasible({-0.5, 1.0, 1.0, 9.0, 1.0}), 2.0);
    EXPECT_EQ(feasible({-0.1, 2.0, 2.0, 9.0, 0.0}), 2.0);
    EXPECT_EQ(feasible({0.0, 0.1, -2.0, 0.0, 0.0}), 3.0);
    EXPECT_EQ(feasible({0.0, 0.1, 2.0, 0.0, 0.0}), 3.0);
    EXPECT_EQ(feasible({1.0, 0.0, 0.0, 0.0, -1.0}), 0.0);
    const auto allowed = [&](std::vector<double> d) { return largestAllowedStep(problem, d, 1.0); };
    EXPECT_EQ(allowed({0.5, 9.0, 3.0, 9.0, 9.0}), 1.0);
    for (const double side : {-1.0, 1.0}) {
        EXPECT_EQ(allowed({2.0 * side, 0.0, 4.0, 0.0, 0.0}), 0.25);
        EXPECT_EQ(allowed({0.0, 9.0, 6.0 * side, 9.0, 9.0}), 0.5);
    }
}

// 25 times the quotient 7/25 is rounded to more than 7: the second variable seems to leave its box even then.
TEST(StepLimits, TheFirstOfTwoVariablesThatMeetTheirBoundsTogetherCounts) {
    const std::vector<double> lower(2, -infinity), upper(2, 7.0);
    BoxBlock box;
    box.lower = lower.data();
    box.upper = upper.data();
    const std::vector<double> x(2, 0.0), d(2, 25.0);
    StepToBound step;
    shortenStep(box, 0, 2, x.data(), d.data(), step);
    EXPECT_EQ(step.length, 7.0 / 25.0);
    EXPECT_GT(step.length * 25.0, 7.0);
    EXPECT_TRUE(step.shortened);
    EXPECT_EQ(step.variable, 0U);
}

TEST(ProjectedGradient, TakesFlagOneAsZeroAndOtherFlagsAsTheyAre) {
    const std::vector<double> x{0.0, 1.0, 0.5, 0.0, 0.0}, l(5, 0.0), u(5, 1.0), maxStep(5, 0.0);
    const std::vector<std::int32_t> nbd{3, 3, 3, 3, 0};
    std::vector<std::int32_t> flag{0, 0, 0, 0, 0};
    std::vector<double> g{7.0, -9.0, 0.2, -0.3, 0.1};
    const BoxProblem problem{5, 2, l, u, nbd, flag, maxStep};
    EXPECT_EQ(projectedGradientNorm(problem, x, g), 0.3);
    flag = {2, 0, 0, 0, 0};
    EXPECT_EQ(projectedGradientNorm(problem, x, g), 7.0);
    flag = {1, 1, 1, 1, 1};
    EXPECT_EQ(projectedGradientNorm(problem, x, g), 0.0);
    flag = {0, 0, 0, 0, 0};
    g[4] = notANumber;
    EXPECT_TRUE(std::isnan(projectedGradientNorm(problem, x, g)));
}

}  // namespace
}  // namespace voxlith
