#include "run/convergence/component_search.h"

#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <functional>
#include <sstream>
#include <vector>

#include "support/work_folder.h"

namespace voxlith {
namespace {

using Misfits = std::vector<double>;

// Runs a search over misfits that are known as a function of the factors.
ComponentSearch searchOver(const std::function<Misfits(const ComponentSearch&)>& misfits) {
    ComponentSearch search = makeComponentSearch();
    while (search.end == ComponentEnd::searching) {
        chooseFactors(search, {}, misfits(search));
    }
    return search;
}

TEST(ComponentSearch, ReachesTheTargetOfEach) {
    // Curves like those of an inversion, far from the target on either side, with some effect on each other.
    const auto misfits = [](const ComponentSearch& search) {
        const double a = search.factor[0], b = search.factor[1];
        return Misfits{0.01 + 300.0 / (1.0 + 3.0 * a / (1.0 + 1.0e-4 * b)), 0.02 + 50.0 / (1.0 + 4000.0 * b)};
    };
    const ComponentSearch search = searchOver(misfits);
    EXPECT_EQ(search.end, ComponentEnd::reached);
    for (const double misfit : misfits(search)) {
        EXPECT_NEAR(std::sqrt(misfit), 1.0, 0.0101);
    }
    EXPECT_LE(search.trialCount, 12);
}

TEST(ComponentSearch, EndsWhereAComponentComesNoNearer) {
    const ComponentSearch search = searchOver([](const ComponentSearch& s) {
        return Misfits{4.0 + 1.0 / s.factor[0], 1.0 / s.factor[1]};
    });
    EXPECT_EQ(search.end, ComponentEnd::noBetter);
    EXPECT_LE(search.trialCount, 12);
}

TEST(ComponentSearch, LeavesDataThatNeedNoModelAndComponentsWithoutData) {
    const ComponentSearch search = searchOver([](const ComponentSearch& s) {
        return Misfits{0.5, 0.0, 9.0 / s.factor[2]};
    });
    EXPECT_EQ(search.end, ComponentEnd::reached);
    EXPECT_LT(search.factor[0], 1.0e-5);
    EXPECT_DOUBLE_EQ(search.factor[1], 1.0);
}

TEST(ComponentSearch, FollowsMisfitsThatMoveALittle) {
    ComponentSearch search = makeComponentSearch();
    Misfits misfits{1.3, 0.6};
    std::int32_t rounds = 0;
    while (adjustFactors(search, misfits, 0.01)) {
        misfits = {1.3 * std::pow(search.factor[0], -0.5), 0.6 * std::pow(search.factor[1], -0.8)};
        ASSERT_LT(++rounds, 7);
    }
    EXPECT_NEAR(std::sqrt(misfits[0]), 1.0, 0.0101);
    EXPECT_NEAR(std::sqrt(misfits[1]), 1.0, 0.0101);
}

TEST(ComponentSearch, NeedsMoreAccuracyNearTheTarget) {
    const ComponentSearch search = makeComponentSearch();
    EXPECT_DOUBLE_EQ(neededAccuracy(search, Misfits{9.0, 1.0}, 1.0e-4), 1.0e-2);
    EXPECT_DOUBLE_EQ(neededAccuracy(search, Misfits{1.1, 1.0}, 1.0e-4), 1.0e-3);
    EXPECT_DOUBLE_EQ(neededAccuracy(search, Misfits{1.01, 0.99}, 1.0e-4), 1.0e-4);
    EXPECT_DOUBLE_EQ(neededAccuracy(search, Misfits{9.0, 1.0}, 0.1), 0.1);
}

using ComponentTable = testing_support::WorkFolderTest;

TEST_F(ComponentTable, HasARowForEachSet) {
    ComponentSearch search = makeComponentSearch();
    ComponentTrial trial;
    trial.rms = {2.0, 0.5};
    trial.multiplier = 10.0;
    trial.products = 120;
    trial.iteration = 7;
    chooseFactors(search, trial, Misfits{4.0, 0.25});
    writeComponentTable("table.csv", search, 2);
    std::ifstream file("table.csv");
    std::stringstream text;
    text << file.rdbuf();
    EXPECT_EQ(text.str(),
              "tradeoff,factor_1,rms_misfit_1,factor_2,rms_misfit_2,iteration,products\n10,1,2,1,0.5,7,120\n");
}

}  // namespace
}  // namespace voxlith
