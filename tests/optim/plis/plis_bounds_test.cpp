// The bounds of PLIS: projection, active set, step to the bounds.
#include "optim/plis/plis_bounds.h"

#include <gtest/gtest.h>

#include <limits>
#include <vector>

namespace voxlith::plis {
namespace {

using Vector = std::vector<double>;

const double notANumber = std::numeric_limits<double>::quiet_NaN();

struct BoxCase {
    Vector x, l, u;
    std::vector<std::int32_t> nbd;

    Box box() { return {l, u, nbd}; }
};

TEST(PlisBounds, TheStepIsTheMeanOfTheFirstBoundAndAllBoundsAhead) {
    BoxCase test{{0, 0, 0, 0, 0}, {-2, notANumber, -9, -9, -9}, {notANumber, 6, 9, 4, 9}, {1, 2, -3, 3, 0}};
    const Vector s{-1, 1, 1, 1, 1};  // bounds ahead at 2, 6 and 4; one variable is active, one has none
    EXPECT_EQ(stepToBounds(test.box(), test.x, s, 100.0), 0.5 * (2.0 + 4.0));
    EXPECT_EQ(stepToBounds(test.box(), test.x, s, 1.0), 0.5 * (1.0 + 4.0));
    const Vector away{1, -1, 1, 1.0e-121, 1};
    EXPECT_EQ(stepToBounds(test.box(), test.x, away, 7.0), 7.0);
}

TEST(PlisBounds, ProjectionMovesNearbyValuesToTheBound) {
    BoxCase test{{1.000000009, 100.0000009, -5.0, 5.0, 0.0, 1.0e-7},
                 {1, 100, 0, 0, 0, 0},
                 {2, 200, 1, 1, 1, 1},
                 {1, -1, 2, 2, 0, 3}};
    projectIntoBounds(test.box(), test.x);
    EXPECT_EQ(test.x, (Vector{1, 100, -5, 1, 0, 1.0e-7}));
}

TEST(PlisBounds, OnlyNewlyActiveVariablesAreCounted) {
    BoxCase test{{0, 1, 0, 1, 0.5, 0, 0.5}, {0, 0, 0, 0, 0, 0, 0}, {1, 1, 1, 1, 1, 1, 1}, {1, 2, -3, 4, 3, 0, 5}};
    EXPECT_EQ(updateActiveSet(test.box(), test.x), 4);
    EXPECT_EQ(test.nbd, (std::vector<std::int32_t>{-1, -2, -3, -4, 3, 0, -5}));
    EXPECT_EQ(updateActiveSet(test.box(), test.x), 0);
}

TEST(PlisBounds, NormsSeparateFreeFromActiveVariables) {
    BoxCase test{{0, 0, 1, 1, 0, 0.5}, Vector(6, 0.0), Vector(6, 1.0), {-1, -3, -2, -3, -5, 3}};
    Vector g{-1, 2, 3, -4, -50, 0.5};
    GradientNorms norms = gradientNorms(2, test.box(), test.x, g);
    EXPECT_EQ(norms.freeGradMax, 0.5);
    EXPECT_EQ(norms.activeGradMax, 3.0);
    EXPECT_TRUE(norms.anyFree);
    norms = gradientNorms(0, test.box(), test.x, g);
    EXPECT_EQ(norms.freeGradMax, 50.0);
    EXPECT_EQ(norms.activeGradMax, 0.0);
    EXPECT_EQ(releaseBounds(test.box(), test.x, g), 2);
    EXPECT_EQ(test.nbd, (std::vector<std::int32_t>{1, -3, 2, -3, -5, 3}));
    test.nbd.assign(6, -5);
    EXPECT_FALSE(gradientNorms(2, test.box(), test.x, g).anyFree);
}

}  // namespace
}  // namespace voxlith::plis
