#include "optim/lbfgsb/search_direction.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

namespace voxlith {
namespace {

using Vector = std::vector<double>;

// A problem of several waves with one pair of corrections, and what the search direction gives for it.
struct Example {
    static constexpr std::size_t n = 9000;

    Vector l = Vector(n, -10.0), u = Vector(n, 10.0), maxStep = Vector(n, 0.0);
    std::vector<std::int32_t> nbd = std::vector<std::int32_t>(n, 3), fixed = std::vector<std::int32_t>(n, 0);
    std::vector<std::int32_t> status = std::vector<std::int32_t>(n, freeBetweenBounds);
    Vector x, g, s, y, factors{0.3, -0.2};
    Vector direction = Vector(n), point = Vector(n), lastX = Vector(n), lastG = Vector(n);
    SearchDirection search;

    Example() {
        std::mt19937 random(3);
        std::normal_distribution<double> value(0.0, 0.5);
        for (Vector* const vector : {&x, &g, &s, &y}) {
            vector->resize(n);
            for (double& element : *vector) {
                element = value(random);
            }
        }
    }

    void compute(bool leavesX, bool expectWholeStep, bool moveX) {
        const BoxProblem problem{static_cast<std::int32_t>(n), 1, l, u, nbd, fixed, maxStep};
        CorrectionMemory memory;
        memory.s = s;
        memory.y = y;
        memory.n = n;
        memory.m = memory.count = 1;
        memory.theta = 2.0;
        search = computeSearchDirection(problem, memory, {true, leavesX, 0.1, true, expectWholeStep}, 1.0e10,
                                        {x, g, status, direction, moveX ? x : point, lastX, lastG, factors});
    }
};

void expectSame(const Example& expected, const Example& found, const char* what) {
    EXPECT_EQ(expected.x, found.x) << what;
    EXPECT_EQ(expected.direction, found.direction) << what;
    EXPECT_EQ(expected.lastX, found.lastX) << what;
    EXPECT_EQ(expected.lastG, found.lastG) << what;
    EXPECT_EQ(expected.search.stepReachedBound, found.search.stepReachedBound) << what;
    EXPECT_EQ(expected.search.directionSquared, found.search.directionSquared) << what;
    EXPECT_EQ(expected.search.slope, found.search.slope) << what;
    EXPECT_EQ(expected.search.largestStep, found.search.largestStep) << what;
}

TEST(SearchDirection, DoesNotDependOnWhatIsExpectedOfTheStep) {
    for (const bool leavesX : {false, true}) {
        // A bound cuts the step nowhere, in the first wave, in the last block, and in both.
        for (const std::vector<std::size_t>& cut :
             {std::vector<std::size_t>{}, {7}, {Example::n - 1}, {100, Example::n - 2}}) {
            Example expected;
            for (const std::size_t variable : cut) {
                expected.u[variable] = expected.x[variable] + 1.0e-3;
                expected.l[variable] = expected.x[variable] - 1.0e-3;
            }
            Example found = expected;
            expected.compute(leavesX, false, true);
            found.compute(leavesX, true, true);
            EXPECT_EQ(expected.search.stepReachedBound, !cut.empty());
            expectSame(expected, found, leavesX ? "from a Cauchy point" : "from x");
        }
    }
}

TEST(SearchDirection, PutsThePointIntoXOrLeavesX) {
    Example moved, kept;
    const Vector x = moved.x, g = moved.g;
    moved.compute(true, true, true);
    kept.compute(true, true, false);
    EXPECT_EQ(kept.x, x);
    EXPECT_EQ(kept.point, moved.x);
    EXPECT_EQ(kept.direction, moved.direction);
    EXPECT_EQ(kept.lastX, x);
    EXPECT_EQ(kept.lastG, g);
}

}  // namespace
}  // namespace voxlith
