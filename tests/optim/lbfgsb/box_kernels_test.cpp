// Bounds of a block of the variables: the result of each variable by itself, with every instruction set.
#include "optim/lbfgsb/box_kernels.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <random>
#include <vector>

#include "optim/lbfgsb/bounds.h"
#include "support/instruction_sets.h"

namespace voxlith {
namespace {

using testing_support::InstructionSetLimit;
using testing_support::setsOfThisMachine;

constexpr double infinity = std::numeric_limits<double>::infinity();
constexpr double notANumber = std::numeric_limits<double>::quiet_NaN();

// Variables of all codes, on, between and outside of their bounds, with gradients of all signs, 0, infinity and NaN.
struct RandomBlock {
    std::vector<std::int32_t> code, fixed, status;
    std::vector<double> lower, upper, x, g;

    RandomBlock(std::size_t length, std::int32_t codes, unsigned seed) {
        std::mt19937 random(seed);
        const std::vector<double> values{-1.5, -1.0, -0.25, 0.0, -0.0, 0.5, 1.0, 1.5};
        const std::vector<double> slopes{-3.0, -0.5, -0.0, 0.0, 0.25, 2.0, infinity, -infinity, notANumber};
        const std::vector<std::int32_t> states{-3, -1, 0, 1, 2, 3};
        for (std::size_t i = 0; i < length; ++i) {
            code.push_back(static_cast<std::int32_t>(random() % static_cast<unsigned>(codes)));
            fixed.push_back(random() % 5 == 0 ? static_cast<std::int32_t>(1 + random() % 2) : 0);
            status.push_back(states[random() % states.size()]);
            const bool hasLower = hasLowerBound(code.back()), hasUpper = hasUpperBound(code.back());
            lower.push_back(hasLower ? -1.0 : notANumber);
            upper.push_back(hasUpper ? 1.0 : notANumber);
            x.push_back(values[random() % values.size()]);
            g.push_back(slopes[random() % slopes.size()]);
        }
    }
    BoundsBlock bounds() const { return {code.data(), fixed.data(), lower.data(), upper.data(), code.size()}; }
};

bool sameBytes(const std::vector<double>& a, const std::vector<double>& b) {
    return std::memcmp(a.data(), b.data(), a.size() * sizeof(double)) == 0;
}

struct Results {
    std::vector<double> lower, upper, projected, direction;
    std::vector<std::int32_t> status;
    PathStart path;
    std::vector<bool> leaves;
};

Results resultsOf(const RandomBlock& block, InstructionSet set) {
    const InstructionSetLimit limit(set);
    const BoxKernels& kernels = boxKernels();
    const std::size_t n = block.x.size();
    Results results;
    results.projected.resize(n);
    results.direction.resize(n);
    results.status = block.status;
    BoxBlock box;
    formBox(block.bounds(), box);
    results.lower.assign(box.lower, box.lower + n);
    results.upper.assign(box.upper, box.upper + n);
    kernels.projectGradient(block.bounds(), box, block.x.data(), block.g.data(), results.projected.data());
    kernels.startPath(box, n, block.x.data(), block.g.data(), results.status.data(), results.direction.data(),
                      results.path);
    for (const double step : {0.0, 1.0e-3, 0.5, 1.0, 100.0}) {
        results.leaves.push_back(kernels.leavesBox(box, n, block.x.data(), results.direction.data(), step));
    }
    return results;
}

TEST(BoxKernels, GiveTheSameBytesWithAllInstructionSets) {
    for (unsigned seed = 0; seed < 60; ++seed) {
        const std::size_t length = seed % 3 == 0 ? blockLength : 1 + 7 * seed;
        const RandomBlock block(length, 1 + static_cast<std::int32_t>(seed % 6), seed);
        const Results plain = resultsOf(block, InstructionSet::plain);
        for (const InstructionSet set : setsOfThisMachine()) {
            SCOPED_TRACE("set " + std::to_string(static_cast<int>(set)) + " seed " + std::to_string(seed));
            const Results wide = resultsOf(block, set);
            EXPECT_EQ(wide.lower, plain.lower);
            EXPECT_EQ(wide.upper, plain.upper);
            EXPECT_TRUE(sameBytes(wide.projected, plain.projected));
            EXPECT_TRUE(sameBytes(wide.direction, plain.direction));
            EXPECT_EQ(wide.status, plain.status);
            EXPECT_EQ(wide.leaves, plain.leaves);
            EXPECT_EQ(wide.path.breakpointCount, plain.path.breakpointCount);
            EXPECT_EQ(wide.path.freeCount, plain.path.freeCount);
            EXPECT_EQ(wide.path.leastTime, plain.path.leastTime);
            EXPECT_EQ(wide.path.bounded, plain.path.bounded);
            EXPECT_EQ(wide.path.moves, plain.path.moves);
        }
    }
}

TEST(BoxKernels, BoxIsInfiniteWhereAVariableHasNoBoundOrIsFixed) {
    for (unsigned seed = 100; seed < 120; ++seed) {
        const RandomBlock block(200, 6, seed);
        BoxBlock box;
        formBox(block.bounds(), box);
        for (std::size_t i = 0; i < 200; ++i) {
            const bool free = block.fixed[i] == 0;
            EXPECT_EQ(box.lower[i], free && hasLowerBound(block.code[i]) ? -1.0 : -infinity) << "seed " << seed;
            EXPECT_EQ(box.upper[i], free && hasUpperBound(block.code[i]) ? 1.0 : infinity) << "seed " << seed;
        }
    }
}

// Uniform blocks, and blocks in which a single variable differs.
TEST(BoxKernels, UniformBlocksHaveTheBoxOfTheirArrays) {
    constexpr std::size_t blocks = 5, n = blocks * blockLength - 100;
    for (const std::int32_t code : {0, 1, 2, 3, 4, 5}) {
        std::vector<double> lower(n), upper(n), maxStep(n, 0.0), x(n), g(n);
        std::vector<std::int32_t> codes(n, code), fixed(n, 0), uniform(n, -1);
        std::mt19937 random(static_cast<unsigned>(code));
        for (std::size_t i = 0; i < n; ++i) {
            lower[i] = -static_cast<double>(random() % 4);
            upper[i] = static_cast<double>(random() % 4);
            x[i] = static_cast<double>(random() % 9) - 4.0;
            g[i] = static_cast<double>(random() % 5) - 2.0;
        }
        fixed[blockLength + 7] = 2;
        codes[3 * blockLength + 511] = (code + 1) % 6;
        const BoxProblem problem{static_cast<std::int32_t>(n), 1, lower, upper, codes, fixed, maxStep};
        findUniformBlocks(problem, uniform);
        EXPECT_EQ(std::vector<std::int32_t>(uniform.begin(), uniform.begin() + blocks),
                  (std::vector<std::int32_t>{1, 0, 1, 0, 1}));
        BoxProblem known = problem;
        known.uniform = uniform;
        for (std::size_t first = 0; first < n; first += blockLength) {
            const std::size_t bytes = std::min(blockLength, n - first) * sizeof(double);
            BoxBlock fromArrays, fromKind;
            boxOfBlock(problem, first, bytes / sizeof(double), fromArrays);
            boxOfBlock(known, first, bytes / sizeof(double), fromKind);
            EXPECT_EQ(std::memcmp(fromArrays.lower, fromKind.lower, bytes), 0) << "code " << code;
            EXPECT_EQ(std::memcmp(fromArrays.upper, fromKind.upper, bytes), 0) << "code " << code;
        }
        EXPECT_EQ(projectedGradientNorm(known, x, g), projectedGradientNorm(problem, x, g)) << "code " << code;
    }
}

// One variable between 0 and 1: its value, its gradient, and the expected status, direction and time.
TEST(BoxKernels, PathStopsVariablesThatWouldLeaveAndTimesTheOthers) {
    struct Case {
        double x, g;
        std::int32_t status;
        double direction, time;
    };
    const std::vector<Case> cases{
        {0.0, 2.0, atLowerBound, 0.0, infinity},        {0.0, -2.0, freeBetweenBounds, 2.0, 0.5},
        {1.0, -2.0, atUpperBound, 0.0, infinity},       {1.0, 4.0, freeBetweenBounds, -4.0, 0.25},
        {0.5, 0.0, freeWithoutGradient, 0.0, infinity}, {0.5, 0.25, freeBetweenBounds, -0.25, 2.0}};
    const double lower = 0.0, upper = 1.0;
    BoxBlock box;
    box.lower = &lower;
    box.upper = &upper;
    for (const Case& expected : cases) {
        std::int32_t status = freeBetweenBounds;
        double direction = 7.0;
        PathStart path;
        boxKernels().startPath(box, 1, &expected.x, &expected.g, &status, &direction, path);
        EXPECT_EQ(status, expected.status) << "x " << expected.x << " g " << expected.g;
        EXPECT_EQ(direction, expected.direction);
        EXPECT_EQ(path.leastTime, expected.time);
        EXPECT_EQ(path.breakpointCount, expected.time < infinity ? 1U : 0U);
        EXPECT_EQ(path.freeCount, isFree(status) ? 1U : 0U);
        EXPECT_EQ(path.moves, std::abs(expected.direction) > 0.0);
    }
}

TEST(BoxKernels, FixedAndUnboundedVariablesKeepTheirStatus) {
    const std::vector<double> below(2, -infinity), above(2, infinity);
    BoxBlock box;
    box.lower = below.data();
    box.upper = above.data();
    const std::vector<double> x{0.0, 0.0}, g{3.0, 3.0};
    std::vector<std::int32_t> status{alwaysFixed, unbounded};
    std::vector<double> direction(2);
    PathStart path;
    boxKernels().startPath(box, 2, x.data(), g.data(), status.data(), direction.data(), path);
    EXPECT_EQ(status, (std::vector<std::int32_t>{alwaysFixed, unbounded}));
    EXPECT_EQ(direction, (std::vector<double>{0.0, -3.0}));
    EXPECT_FALSE(path.bounded);
}

}  // namespace
}  // namespace voxlith
