#include "inversion/barrier.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

#include "survey/dummy_value.h"

namespace voxlith {
namespace {

MeshGeometry mesh(std::int32_t nz, std::int32_t nx, std::int32_t ny, std::int32_t nzl) {
    MeshGeometry made;
    made.nz = nz;
    made.nx = nx;
    made.ny = ny;
    made.nzl = nzl;
    return made;
}

constexpr double beta = 0.2, limit = 2.0;

TEST(Barrier, LogarithmIsTheMeanOverTheLayersOfOneType) {
    const std::vector<double> model{0.5, 1.0, 1.5, 0.1, /* second type */ 0.7, 0.2, 0.3, 1.9};
    double sum = 0.0;
    for (const double x : model) {
        sum += -2.0 * beta * std::log(x / limit);
    }
    EXPECT_NEAR(calcBarrier(Positivity::strictlyPositive, {beta, limit}, mesh(2, 2, 1, 2), model), sum / 4.0, 1e-14);
}

TEST(Barrier, CellsAtOrOutsideTheEndsAddNothing) {
    const std::vector<double> inside{1.0, 1.0};
    const double one =
        calcBarrier(Positivity::strictlyPositive, {beta, limit}, mesh(1, 1, 1, 1), std::vector<double>{1.0});
    ASSERT_GT(one, 0.0);
    for (const double outside : {0.0, -0.0, limit, 3.0, -1.0, dummyValue, std::numeric_limits<double>::quiet_NaN()}) {
        EXPECT_EQ(calcBarrier(Positivity::strictlyPositive, {beta, limit}, mesh(2, 1, 1, 2),
                              std::vector<double>{1.0, outside}),
                  one / 2.0)
            << outside;
    }
}

TEST(Barrier, OnlyLayersInPlayCount) {
    const std::vector<double> model{1.0, 0.5, 1.0, 0.5};
    EXPECT_EQ(
        calcBarrier(Positivity::strictlyPositive, {beta, limit}, mesh(2, 2, 1, 1), model),
        calcBarrier(Positivity::strictlyPositive, {beta, limit}, mesh(1, 2, 1, 1), std::vector<double>{1.0, 1.0}));
}

TEST(Barrier, RationalFormSkipsDummies) {
    const std::vector<double> model{0.5, -2.0, dummyValue};
    EXPECT_NEAR(calcBarrier(Positivity::positive, {beta, limit}, mesh(3, 1, 1, 3), model),
                (0.25 / 0.45 + 4.0 / 4.2) / 3.0, 1e-15);
    EXPECT_EQ(calcBarrier(Positivity::positive, {0.0, limit}, mesh(3, 1, 1, 3), model), 0.0);
    EXPECT_EQ(calcBarrier(Positivity::strictlyPositive, {0.0, limit}, mesh(3, 1, 1, 3), model), 0.0);
}

TEST(Barrier, StartsFromTheLargestValueInPlay) {
    const std::vector<double> model{0.3, 50.0, 0.9, 60.0, /* second type */ 1.5, 70.0, 0.0, 80.0};
    const Barrier started = startBarrier(Positivity::strictlyPositive, mesh(2, 2, 1, 1), model);
    EXPECT_EQ(started.barrierWeight, 0.20000000298023224);
    EXPECT_EQ(started.barrierLimit, 0.5);
    EXPECT_EQ(
        startBarrier(Positivity::strictlyPositive, mesh(2, 1, 1, 2), std::vector<double>{-5.0, -1.0}).barrierLimit,
        static_cast<double>(0.001F));
    for (const std::int32_t flag : {-1, 0, 1, 3}) {
        EXPECT_EQ(startBarrier(Positivity{flag}, mesh(2, 2, 1, 1), model).barrierWeight, 0.0);
    }
}

TEST(Barrier, FallsByATenthWhileItIsSmall) {
    Barrier barrier{beta, limit};
    const std::vector<double> model{0.05, 0.1};
    const MeshGeometry cells = mesh(2, 1, 1, 2);
    const double norm = updateBarrier(Positivity::strictlyPositive, barrier, cells, model, 1e6);
    EXPECT_EQ(barrier.barrierWeight, static_cast<double>(0.9F) * beta);
    // 0.1 is not above the single-precision 0.1: the limit stays.
    EXPECT_EQ(barrier.barrierLimit, limit);
    EXPECT_EQ(norm, calcBarrier(Positivity::strictlyPositive, barrier, cells, model));
}

TEST(Barrier, IsSetAnewWhenItOutweighsTheMisfit) {
    Barrier barrier{beta, limit};
    const std::vector<double> model{0.5, 1.0};
    const MeshGeometry cells = mesh(2, 1, 1, 2);
    const double before = calcBarrier(Positivity::strictlyPositive, barrier, cells, model);
    const double misfit = 0.5 * beta * before;
    const double norm = updateBarrier(Positivity::strictlyPositive, barrier, cells, model, misfit);
    EXPECT_EQ(barrier.barrierWeight, 0.5 * misfit / before);
    EXPECT_EQ(barrier.barrierLimit, 10.0);
    EXPECT_EQ(norm, calcBarrier(Positivity::strictlyPositive, barrier, cells, model));
}

TEST(Barrier, EqualityWithTheMisfitCountsAsSmall) {
    Barrier barrier{beta, limit};
    const std::vector<double> model{0.5, 1.0};
    const MeshGeometry cells = mesh(2, 1, 1, 2);
    updateBarrier(Positivity::strictlyPositive, barrier, cells, model,
                  2.0 * beta * calcBarrier(Positivity::strictlyPositive, barrier, cells, model));
    EXPECT_EQ(barrier.barrierWeight, static_cast<double>(0.9F) * beta);
}

}  // namespace
}  // namespace voxlith
