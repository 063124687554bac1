#include "run/convergence/subspace_step.h"

#include <gtest/gtest.h>

#include <cmath>

#include "run/convergence/data_subspace.h"
#include "run/convergence/newton_step.h"
#include "support/small_problem.h"

namespace voxlith {
namespace {

using testing_support::randomVector;
using testing_support::SmallOptions;
using testing_support::SmallProblem;
using Vector = std::vector<double>;

void setBounds(SmallProblem& small, double lower, double upper) {
    std::fill(small.bounds.boundType.begin(), small.bounds.boundType.end(), boundBoth);
    std::fill(small.bounds.lowerBound.begin(), small.bounds.lowerBound.end(), lower);
    std::fill(small.bounds.upperBound.begin(), small.bounds.upperBound.end(), upper);
}

NewtonWork prepareWithDirections(SmallProblem& small, std::size_t capacity) {
    NewtonWork work = prepareNewton(small.problem());
    work.subspace = makeDataSubspace(work.data.validData.size(), small.problem().modelSize(), capacity);
    return work;
}

ScaledObjective minimise(SmallProblem& small, NewtonWork& work, double accuracy) {
    ScaledObjective current = evaluateObjective(small.problem(), work, small.arrays.model);
    for (int step = 0; step < 100; ++step) {
        const NewtonResult result = takeNewtonStep(small.problem(), work, current, {{}, {accuracy}});
        current = result.reached;
        if (!result.improved || result.remaining <= accuracy * current.objective) {
            break;
        }
    }
    return current;
}

TEST(DataSubspace, GivesTheTransposedProductOfWhatItKnows) {
    SmallProblem small(SmallOptions{});
    NewtonWork work = prepareWithDirections(small, 3);
    evaluateObjective(small.problem(), work, small.arrays.model);
    std::mt19937 random(5);
    const std::size_t size = small.problem().modelSize();
    Vector found(size), expected(size);
    for (int n = 0; n < 3; ++n) {
        const Vector residual = randomVector(work.dataVector.size(), random);
        const std::int64_t before = work.data.productCount;
        ASSERT_TRUE(applyTransposed(small.problem(), work.data, residual, work.subspace, found));
        EXPECT_EQ(work.data.productCount, before + 1);
        ASSERT_TRUE(applyTransposed(small.problem(), work.data, residual, work.subspace, found));
        EXPECT_EQ(work.data.productCount, before + 1);
        applyTransposedJacobian(small.problem(), work.data, residual, expected);
        for (std::size_t cell = 0; cell < size; ++cell) {
            EXPECT_NEAR(found[cell], expected[cell], 1e-11);
        }
    }
    const Vector fourth = randomVector(work.dataVector.size(), random);
    EXPECT_FALSE(applyTransposed(small.problem(), work.data, fourth, work.subspace, found));
    EXPECT_EQ(work.subspace.count, 3U);
}

TEST(DataSubspace, ComesBackFromItsDirections) {
    SmallProblem small(SmallOptions{});
    NewtonWork work = prepareWithDirections(small, 4);
    evaluateObjective(small.problem(), work, small.arrays.model);
    evaluateGradient(small.problem(), work, small.arrays.model);
    DataSubspace other = makeDataSubspace(work.dataVector.size(), small.problem().modelSize(), 4);
    other.directions = work.subspace.directions;
    restoreImages(small.problem(), work.data, work.subspace.count, other);
    EXPECT_EQ(other.images, work.subspace.images);
}

TEST(SubspaceStep, EndsAtTheMinimumWithinTheLimitThatItNames) {
    for (unsigned seed = 1; seed <= 5; ++seed) {
        SmallOptions options;
        options.seed = seed;
        options.nData = 30;
        SmallProblem reference(options);
        setBounds(reference, -0.2, 0.3);
        NewtonWork plain = prepareNewton(reference.problem());
        const double minimum = minimise(reference, plain, 1e-15).objective;
        for (const double accuracy : {1e-1, 1e-3, 1e-6, 1e-9}) {
            SmallProblem small(options);
            setBounds(small, -0.2, 0.3);
            NewtonWork work = prepareWithDirections(small, 30);
            ScaledObjective current = evaluateObjective(small.problem(), work, small.arrays.model);
            NewtonResult result;
            do {
                result = takeNewtonStep(small.problem(), work, current, {{}, {accuracy}});
                current = result.reached;
                EXPECT_GE(result.remaining, (current.objective - minimum) - 1e-13 * minimum);
            } while (result.improved && result.remaining > accuracy * current.objective);
            EXPECT_LE(current.objective - minimum, accuracy * minimum * (1.0 + 1e-6));
            for (const double value : small.arrays.model) {
                EXPECT_TRUE(value >= -0.2 && value <= 0.3);
            }
        }
    }
}

TEST(SubspaceStep, KeepsWhatItKnowsForAnotherTradeoff) {
    SmallOptions options;
    options.nData = 30;
    SmallProblem small(options);
    setBounds(small, -0.2, 0.3);
    NewtonWork work = prepareWithDirections(small, 30);
    minimise(small, work, 1e-8);
    const std::int64_t first = work.data.productCount;
    small.options.multiplier *= 1.1;
    minimise(small, work, 1e-8);
    EXPECT_LT(work.data.productCount - first, first);
}

TEST(SubspaceStep, GoesOnWithoutRoom) {
    SmallOptions options;
    options.nData = 30;
    SmallProblem reference(options), small(options);
    setBounds(reference, -0.2, 0.3);
    setBounds(small, -0.2, 0.3);
    NewtonWork plain = prepareNewton(reference.problem()), work = prepareWithDirections(small, 4);
    const double minimum = minimise(reference, plain, 1e-12).objective;
    EXPECT_NEAR(minimise(small, work, 1e-12).objective, minimum, 1e-9 * minimum);
    EXPECT_EQ(work.subspace.count, 4U);
}

}  // namespace
}  // namespace voxlith
