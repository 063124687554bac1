// PLIS reaches the minimisers that L-BFGS-B reaches, through the same call.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <iostream>
#include <limits>

#include "optim/optimiser_step.h"
#include "support/plis_run.h"

namespace voxlith {
namespace {

using testing_support::Function;
using testing_support::rosenbrockChain;
using testing_support::RotatedQuadratic;
using testing_support::Vector;

struct Problem {
    std::int32_t n = 0;
    Vector x, l, u;
    std::vector<std::int32_t> nbd;
    Function function;
};

struct Outcome {
    double f = 0.0;
    int evaluations = 0;
    int starts = 1;
    std::string word;
};

// Runs the engine to its end. PLIS stops after 9000 evaluations, or where two steps in a row reduce the value hardly at
// all, which on badly conditioned problems happens before the minimum; it is restarted until a whole run reduces the
// value hardly at all.
Outcome minimise(int method, Problem problem) {
    const std::int32_t m = 10;
    const std::size_t size = problem.x.size();
    Vector g(size), maxStep(size, 0.0);
    Vector wa(static_cast<std::size_t>(optimiserRealWorkspace(problem.n, m)));
    std::vector<std::int32_t> iwa(static_cast<std::size_t>(optimiserIntegerWorkspace(problem.n))), fixedFlag(size, 0);
    const bool bounded =
        std::any_of(problem.nbd.begin(), problem.nbd.end(), [](std::int32_t code) { return code > 0; });
    OptimiserState state;
    TaskWord task{};
    Outcome outcome;
    double lastStop = std::numeric_limits<double>::infinity();
    setTask(task, "START");
    while (true) {
        optimiserStep(method, outcome.evaluations, problem.n, m, problem.x, problem.l, problem.u, bounded ? 1 : 0,
                      problem.nbd, fixedFlag, maxStep, outcome.f, g, 0.1, 0.0, wa, iwa, task, -1, state);
        if (taskBegins(task, "FG")) {
            outcome.f = problem.function(problem.x, g);
            if (++outcome.evaluations > 100000) {
                break;
            }
        } else if (taskIs(task, "NEW_X")) {
            continue;
        } else if (method != 0 && lastStop - outcome.f > 1.0e-11 * std::max(1.0, std::abs(outcome.f)) &&
                   outcome.starts < 20) {
            lastStop = outcome.f;
            setTask(task, "START");
            ++outcome.starts;
        } else {
            break;
        }
    }
    outcome.word = taskText(task);
    return outcome;
}

// Returns the value that L-BFGS-B reaches.
double expectSameMinimum(const Problem& problem, const std::string& what) {
    const Outcome lbfgsb = minimise(0, problem);
    const Outcome plis[] = {minimise(1, problem), minimise(2, problem)};
    for (const Outcome& outcome : plis) {
        EXPECT_LE(std::abs(outcome.f - lbfgsb.f), 1.0e-8 * std::max(1.0, std::abs(lbfgsb.f)))
            << what << ": " << outcome.word << " after " << outcome.evaluations;
    }
    std::cout << what << ": evaluations " << lbfgsb.evaluations << " (L-BFGS-B), " << plis[0].evaluations << " in "
              << plis[0].starts << " starts (rank 1), " << plis[1].evaluations << " in " << plis[1].starts
              << " starts (rank 2)\n";
    return lbfgsb.f;
}

void bound(Problem& problem, double lower, double upper) {
    for (std::size_t i = 0; i < problem.x.size(); ++i) {
        problem.nbd[i] = static_cast<std::int32_t>(i % 4);
        problem.l[i] = lower;
        problem.u[i] = upper;
    }
}

Problem problemOf(std::int32_t n, double start, Function function) {
    const std::size_t size = static_cast<std::size_t>(n);
    return {n,
            Vector(size, start),
            Vector(size, 0.0),
            Vector(size, 0.0),
            std::vector<std::int32_t>(size, 0),
            std::move(function)};
}

class PlisMinimises : public testing::TestWithParam<std::tuple<std::int32_t, double>> {};

TEST_P(PlisMinimises, Quadratics) {
    const auto [n, condition] = GetParam();
    const std::size_t size = static_cast<std::size_t>(n);
    // The largest and worst problem has few distinct eigenvalues: with a thousand it takes minutes without
    // optimisation.
    const std::size_t distinct = n == 1000 && condition == 1.0e6 ? 7 : size;
    const RotatedQuadratic quadratic(size, condition, distinct, static_cast<unsigned>(n) + 5);
    Problem problem = problemOf(n, 0.0, quadratic);
    const std::string what = "n " + std::to_string(n) + " condition " + std::to_string(condition);
    Vector g(problem.x.size());
    const double minimum = quadratic(quadratic.minimiser(), g);
    EXPECT_NEAR(expectSameMinimum(problem, "quadratic " + what), minimum, 1.0e-8 * std::abs(minimum));
    bound(problem, -0.3, 0.4);
    expectSameMinimum(problem, "bounded quadratic " + what);
}

INSTANTIATE_TEST_SUITE_P(Conditions, PlisMinimises,
                         testing::Combine(testing::Values(10, 100, 1000), testing::Values(1.0, 1.0e2, 1.0e4, 1.0e6)));

TEST(PlisMinimises, RosenbrockChains) {
    for (const std::int32_t n : {2, 10, 50}) {
        Problem problem = problemOf(n, 1.0, rosenbrockChain);
        for (std::size_t i = 0; i < problem.x.size(); i += 2) {
            problem.x[i] = -1.2;
        }
        expectSameMinimum(problem, "chain n " + std::to_string(n));
        problem.x.assign(problem.x.size(), 0.1);
        bound(problem, -0.5, 0.7);
        expectSameMinimum(problem, "bounded chain n " + std::to_string(n));
    }
}

}  // namespace
}  // namespace voxlith
