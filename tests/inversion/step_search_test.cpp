#include "inversion/step_search.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "support/small_problem.h"
#include "survey/dummy_value.h"

namespace voxlith {
namespace {

using testing_support::makeSmallProblem;
using testing_support::SmallOptions;
using testing_support::SmallProblem;
using Vector = std::vector<double>;

// A problem whose data are met at `length` times the step, and its step.
struct March {
    std::unique_ptr<SmallProblem> small;
    Vector delm;
    float stepStart = 0.1F;

    explicit March(double length, SmallOptions options = {}) {
        options.multiplier = 0.0;
        small = makeSmallProblem(options);
        std::mt19937 random(17);
        delm = testing_support::randomVector(small->modelSize(), random);
        Vector truth = small->arrays.model;
        for (std::size_t n = 0; n < truth.size(); ++n) {
            truth[n] += length * delm[n];
        }
        small->explainDataBy(truth);
    }

    StepSearchResult run(const Barrier& barrier = {}) {
        const ObjectiveTerms terms = calcObjective(small->problem(), barrier, small->arrays.model);
        return stepSearch(small->problem(), barrier, terms, delm, stepStart, small->arrays.model);
    }
};

TEST(StepSearch, StepsDoubleAtEveryEighthAcceptedTrialAndEndAtTwenty) {
    March march(1000.0);
    const StepSearchResult result = march.run();
    EXPECT_EQ(result.stepCount, 20);
    float step = 0.0F, length = 0.1F;
    EXPECT_EQ(result.stepHistory[0], 0.0F);
    for (std::size_t n = 1; n <= 20; ++n) {
        step += length;
        EXPECT_EQ(result.stepHistory[n], step) << n;
        EXPECT_LT(result.objectiveHistory[n], result.objectiveHistory[n - 1]);
        if (n % 8 == 0) {
            length *= 2.0F;
        }
    }
    EXPECT_FLOAT_EQ(result.stepHistory[8], 0.8F);
    EXPECT_FLOAT_EQ(result.stepHistory[9], 1.0F);
    EXPECT_FLOAT_EQ(result.stepHistory[16], 2.4F);
    EXPECT_FLOAT_EQ(result.stepHistory[17], 2.8F);
    EXPECT_EQ(march.stepStart, 0.1F * 4.0F);
}

TEST(StepSearch, ModelMovesByTheLastAcceptedStepThroughSinglePrecision) {
    March march(0.57);
    const Vector start = march.small->arrays.model;
    const StepSearchResult result = march.run();
    EXPECT_EQ(result.stepCount, 6);
    const double step = static_cast<double>(result.stepHistory[static_cast<std::size_t>(result.stepCount)]);
    for (std::size_t n = 0; n < start.size(); ++n) {
        EXPECT_EQ(march.small->arrays.model[n],
                  static_cast<double>(static_cast<float>(start[n] + step * march.delm[n])));
    }
    EXPECT_EQ(march.stepStart, 0.1F);
}

TEST(StepSearch, WithoutImprovementNothingMoves) {
    March march(-1.0);
    const Vector start = march.small->arrays.model, step = march.delm;
    const StepSearchResult result = march.run();
    EXPECT_EQ(result.stepCount, 0);
    EXPECT_EQ(march.small->arrays.model, start);
    EXPECT_EQ(march.delm, step);
    EXPECT_EQ(march.stepStart, 0.1F);
}

TEST(StepSearch, EqualObjectiveIsNoImprovement) {
    March march(1.0);
    for (std::size_t station = 0; station < 12; ++station) {
        march.small->maskDatum(0, station);
    }
    EXPECT_EQ(march.run().stepCount, 0);
}

TEST(StepSearch, TrialThatIsNoNumberIsNoImprovement) {
    March march(1.0);
    const Vector start = march.small->arrays.model;
    march.delm[3] = std::numeric_limits<double>::quiet_NaN();
    EXPECT_EQ(march.run().stepCount, 0);
    EXPECT_EQ(march.small->arrays.model, start);
}

TEST(StepSearch, FixedCellsAndDummiesStayAndBoundsApply) {
    March march(1000.0);
    SmallProblem& small = *march.small;
    small.bounds.fixedCell[2] = 2;
    small.bounds.boundType[4] = boundLower;
    small.bounds.lowerBound[4] = small.arrays.model[4];
    march.delm[4] = -std::abs(march.delm[4]);
    small.bounds.boundType[6] = boundUpper;
    small.bounds.upperBound[6] = 0.25;
    march.delm[6] = std::abs(march.delm[6]);
    const Vector start = small.arrays.model;
    ASSERT_GT(march.run().stepCount, 0);
    EXPECT_EQ(small.arrays.model[2], start[2]);
    EXPECT_EQ(small.arrays.model[4], start[4]);
    EXPECT_LE(small.arrays.model[6], 0.25);
}

TEST(StepSearch, StrictPositivityHoldsWithoutBounds) {
    SmallOptions options;
    options.positivity = Positivity::strictlyPositive;
    March march(1000.0, options);
    for (std::size_t n = 0; n < march.delm.size(); ++n) {
        march.small->arrays.model[n] = std::abs(march.small->arrays.model[n]);
    }
    ASSERT_GT(march.run().stepCount, 0);
    for (const double value : march.small->arrays.model) {
        EXPECT_GE(value, static_cast<double>(1.0e-5F));
    }
}

TEST(StepSearch, WithABarrierItComparesTheSumWithThePlainBarrier) {
    SmallOptions options;
    options.positivity = Positivity::strictlyPositive;
    March march(1000.0, options);
    for (double& value : march.small->arrays.model) {
        value = std::abs(value) + 0.1;
    }
    const Barrier barrier{0.2, 50.0};
    const ObjectiveTerms terms = calcObjective(march.small->problem(), barrier, march.small->arrays.model);
    ASSERT_GT(terms.barrierNorm, 0.0);
    EXPECT_EQ(march.run(barrier).objectiveHistory[0], terms.misfit + terms.barrierNorm);
}

}  // namespace
}  // namespace voxlith
