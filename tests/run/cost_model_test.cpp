#include "run/cost_model.h"

#include <gtest/gtest.h>

namespace voxlith {
namespace {

RunSize sizeWith(double cells, double data, double coefficientsOfDatum) {
    return {cells, 1, cells, data * coefficientsOfDatum, cells, data};
}

const RunSize sizeS = sizeWith(1e6, 1e4, 6000);
const RunSize sizeM = sizeWith(1e7, 1e5, 9000);

// The table of sizes in docs/scaling.md.
TEST(CostModel, givesTheTableOfSizes) {
    EXPECT_NEAR(secondsOfIteration(sizeS, {1, 1}), 0.15, 0.005);
    EXPECT_NEAR(secondsOfIteration(sizeS, {1, 2}), 0.10, 0.005);
    EXPECT_NEAR(secondsOfIteration(sizeS, {1, 16}), 0.053, 0.002);
    EXPECT_NEAR(secondsOfIteration(sizeM, {1, 1}), 1.8, 0.05);
    EXPECT_NEAR(secondsOfIteration(sizeM, {1, 2}), 1.2, 0.05);
    EXPECT_NEAR(secondsOfIteration(sizeM, {1, 16}), 0.58, 0.01);
    EXPECT_NEAR(bytesOfProcess(sizeS, 1) / 1e9, 0.85, 0.05);
    EXPECT_NEAR(bytesOfProcess(sizeM, 1) / 1e9, 11, 0.2);
}

TEST(CostModel, processesShareCoefficientsAndNotTheModel) {
    EXPECT_DOUBLE_EQ(bytesOfProcess(sizeM, 1) - bytesOfProcess(sizeM, 4), 8 * sizeM.coefficients * 0.75);
    const RunSize moreRows = sizeWith(1e7, 1e6, 9000);
    EXPECT_LT(secondsOfIteration(moreRows, {4, 16}), secondsOfIteration(moreRows, {1, 16}));
    RunSize withoutRows = sizeM;
    withoutRows.coefficients = 0;
    EXPECT_GT(secondsOfIteration(withoutRows, {4, 16}), secondsOfIteration(withoutRows, {1, 16}));
}

TEST(CostModel, moreThreadsNeverTakeLonger) {
    for (double threads = 1; threads < 300; ++threads) {
        EXPECT_LE(secondsOfIteration(sizeM, {1, threads + 1}), secondsOfIteration(sizeM, {1, threads}));
    }
}

}  // namespace
}  // namespace voxlith
