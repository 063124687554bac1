#include "run/convergence/tradeoff_search.h"

#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <functional>
#include <sstream>

#include "support/work_folder.h"

namespace voxlith {
namespace {

// Runs a search over a misfit that is known as a function of the trade-off.
TradeoffSearch searchOver(const std::function<double(double)>& misfit, double start, double target) {
    TradeoffSearch search;
    search.target = target;
    double multiplier = start;
    while (search.end == SearchEnd::searching) {
        TradeoffTrial trial;
        trial.multiplier = multiplier;
        trial.misfit = misfit(multiplier);
        multiplier = chooseTradeoff(search, trial);
    }
    return search;
}

double lastMisfit(const TradeoffSearch& search) {
    return search.trials[static_cast<std::size_t>(search.trialCount) - 1].misfit;
}

TEST(TradeoffSearch, ReachesTheTargetFromBothSides) {
    // A curve like that of an inversion: flat at both ends.
    const auto misfit = [](double mu) { return 0.01 + 300.0 * mu / (mu + 1000.0); };
    for (const double start : {1e5, 1e2, 1e-2}) {
        const TradeoffSearch search = searchOver(misfit, start, 1.0);
        EXPECT_EQ(search.end, SearchEnd::reached);
        EXPECT_NEAR(std::sqrt(lastMisfit(search)), 1.0, 0.0101);
        EXPECT_LE(search.trialCount, 9);
    }
}

TEST(TradeoffSearch, SurvivesAStep) {
    const auto misfit = [](double mu) { return mu > 1.0 ? 4.0 + mu : 0.99 + 0.02 * mu; };
    const TradeoffSearch search = searchOver(misfit, 1e4, 1.0);
    EXPECT_EQ(search.end, SearchEnd::reached);
}

TEST(TradeoffSearch, EndsWhereTheMisfitStays) {
    const TradeoffSearch search = searchOver([](double mu) { return 4.0 + mu; }, 1e3, 1.0);
    EXPECT_EQ(search.end, SearchEnd::misfitStays);
    EXPECT_LE(search.trialCount, 15);
}

TEST(TradeoffSearch, GoesOnWhileTheModelIsNextToNothing) {
    // A few data with tiny standard deviations: eight decades of trade-offs hardly change the misfit.
    const auto misfit = [](double mu) { return 1e4 * mu / (mu + 1e3); };
    const TradeoffSearch search = searchOver(misfit, 1e11, 1.0);
    EXPECT_EQ(search.end, SearchEnd::reached);
    const TradeoffSearch never = searchOver([](double) { return 1e4; }, 1e11, 1.0);
    EXPECT_EQ(never.end, SearchEnd::misfitStays);
}

TEST(TradeoffSearch, EndsWhereNoModelIsNeeded) {
    const TradeoffSearch search = searchOver([](double) { return 0.5; }, 1e3, 1.0);
    EXPECT_EQ(search.end, SearchEnd::noModelNeeded);
}

using TradeoffTable = testing_support::WorkFolderTest;

TEST_F(TradeoffTable, HasARowForEachTrial) {
    TradeoffSearch search;
    search.trialCount = 1;
    search.trials[0] = {10.0, 4.0, 0.5, 1e-3, 120, 7, 2.0};
    writeTradeoffTable("table.csv", search);
    std::ifstream file("table.csv");
    std::stringstream text;
    text << file.rdbuf();
    EXPECT_EQ(text.str(),
              "tradeoff,rms_misfit,phi_d,phi_m,phi,accuracy,iteration,products\n10,2,4,0.5,9,0.001,7,120\n");
}

}  // namespace
}  // namespace voxlith
