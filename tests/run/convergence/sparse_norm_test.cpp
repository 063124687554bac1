#include "run/convergence/sparse_norm.h"

#include <gtest/gtest.h>

#include <cmath>

#include "run/convergence/newton_step.h"
#include "support/small_problem.h"
#include "survey/dummy_value.h"

namespace voxlith {
namespace {

using testing_support::SmallOptions;
using testing_support::SmallProblem;

constexpr SparsePowers quadratic{2.0, 2.0};

TEST(SparseNorm, PowersOfTwoChangeNothing) {
    SmallProblem small{SmallOptions{}};
    SparseState state;
    ASSERT_TRUE(beginSparseNorm(small.problem(), 1.0, state));
    SmoothnessWeights weights = small.weights;
    reweight(small.problem(), quadratic, state, small.weights, small.arrays.model, weights);
    EXPECT_EQ(weights.wtS, small.weights.wtS);
    EXPECT_EQ(weights.wtE, small.weights.wtE);
    EXPECT_EQ(weights.wtN, small.weights.wtN);
    EXPECT_EQ(weights.wtZ, small.weights.wtZ);
}

// With the weights of a model, the norm of that model is the sum that the power stands for.
TEST(SparseNorm, NormOfTheModelHasThePower) {
    for (const bool fold : {true, false}) {
        SmallOptions options;
        options.fold = fold;
        SmallProblem small(options);
        small.arrays.refModel[3] = dummyValue;
        const InversionProblem problem = small.problem();
        SparseState state;
        ASSERT_TRUE(beginSparseNorm(problem, 1.0, state));
        state.threshold[0] *= 0.1;
        const SparsePowers powers{0.0, 1.0};
        SmoothnessWeights weights = small.weights;
        reweight(problem, powers, state, small.weights, small.arrays.model, weights);
        const double e2 = state.threshold[0] * state.threshold[0];
        const auto folded = problem.foldedWeight(0);
        const auto valueAt = [&](std::size_t n) { return small.arrays.model[n] / (fold ? folded[n] : 1.0F); };
        for (std::size_t k = 0; k + 1 < 4; ++k) {
            const std::size_t n = small.at(k, 1, 2), below = small.at(k + 1, 1, 2);
            const double v = valueAt(n) - small.arrays.refModel[n] / (fold ? folded[n] : 1.0F);
            EXPECT_NEAR(weights.wtS[n] * v * v, small.weights.wtS[n] * v * v * e2 / (v * v + e2), 1e-6 * v * v);
            const double d = valueAt(n) - valueAt(below);
            EXPECT_NEAR(weights.wtZ[n], small.weights.wtZ[n] / std::sqrt(d * d / e2 + 1.0), 1e-6);
        }
        EXPECT_EQ(weights.wtS[3], small.weights.wtS[3]);  // no reference: no value to count
    }
}

TEST(SparseNorm, ModelTypesShareTheWeights) {
    SmallOptions options;
    options.nDataTypes = options.nMtx = options.nModelTypes = 2;
    SmallProblem small(options);
    std::fill(small.arrays.refModel.begin(), small.arrays.refModel.end(), 0.0);
    SparseState state;
    ASSERT_TRUE(beginSparseNorm(small.problem(), 1.0, state));
    SmoothnessWeights both = small.weights, one = small.weights;
    reweight(small.problem(), {0.0, 2.0}, state, small.weights, small.arrays.model, both);
    std::fill_n(small.arrays.model.begin() + static_cast<std::ptrdiff_t>(small.cells()), small.cells(), 0.0);
    reweight(small.problem(), {0.0, 2.0}, state, small.weights, small.arrays.model, one);
    for (std::size_t n = 0; n < small.cells(); ++n) {
        EXPECT_LE(both.wtS[n], one.wtS[n]);
    }
    EXPECT_NE(both.wtS, one.wtS);
}

TEST(SparseNorm, KeepsTheMisfit) {
    SparseState state;
    state.target = 1.0;
    state.threshold.fill(1.0);
    state.lastThreshold.fill(1.0);
    double multiplier = 1.0, misfit = 5.0;
    std::int32_t rounds = 0;
    while (adjustTradeoff(state, misfit, multiplier)) {
        misfit = 0.1 + 4.9 * std::pow(multiplier, 0.8);
        ASSERT_LT(++rounds, 7);
    }
    EXPECT_NEAR(misfit, 1.0, 0.0203);
}

TEST(SparseNorm, EndsWhenTheModelStays) {
    SmallProblem small{SmallOptions{}};
    SparseState state;
    ASSERT_TRUE(beginSparseNorm(small.problem(), 1.0, state));
    const double largest = state.threshold[0];
    std::int32_t rounds = 1;
    while (finishRound(small.problem(), small.arrays.model, state)) {
        ++rounds;
    }
    EXPECT_TRUE(state.settled);
    EXPECT_EQ(state.round, rounds);
    EXPECT_DOUBLE_EQ(state.threshold[0], 0.05 * largest);
}

TEST(SparseNorm, HasNothingToDoWithoutModelOrMisfit) {
    SmallProblem small{SmallOptions{}};
    SparseState state;
    EXPECT_FALSE(beginSparseNorm(small.problem(), 0.0, state));
    small.arrays.refModel = small.arrays.model;
    EXPECT_FALSE(beginSparseNorm(small.problem(), 1.0, state));
}

}  // namespace
}  // namespace voxlith
