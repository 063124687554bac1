#include "survey/model_bounds.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

#include "support/work_folder.h"
#include "survey/dummy_value.h"

namespace voxlith {
namespace {

using testing_support::single;

double projected(std::int32_t positivityFlag, std::int32_t boundType, double lower, double upper, double value,
                 std::int32_t fixedCell = 0) {
    const ModelBounds bounds{{boundType}, {fixedCell}, {lower}, {upper}, 0};
    std::vector<double> model{value};
    projectModel(Positivity{positivityFlag}, bounds, model);
    return model[0];
}

TEST(ProjectModel, EveryFreeCellPassesThroughSinglePrecision) {
    const double value = 0.123456789012345;
    for (const std::int32_t boundType : {0, 1, 2, 3, 5}) {
        EXPECT_EQ(projected(0, boundType, -1.0, 1.0, value), single(value)) << "type " << boundType;
    }
}

TEST(ProjectModel, EachTypeUsesItsOwnBounds) {
    EXPECT_EQ(projected(0, boundNone, 5.0, 6.0, 1.0), 1.0);
    EXPECT_EQ(projected(0, boundLower, 2.0, 0.0, 1.0), 2.0);
    EXPECT_EQ(projected(0, boundLower, 2.0, 0.0, 3.0), 3.0);
    EXPECT_EQ(projected(0, boundUpper, 0.0, -2.0, 1.0), -2.0);
    EXPECT_EQ(projected(0, boundUpper, 0.0, 2.0, 1.0), 1.0);
    EXPECT_EQ(projected(0, boundBoth, 2.0, 4.0, 1.0), 2.0);
    EXPECT_EQ(projected(0, boundBoth, 2.0, 4.0, 5.0), 4.0);
    EXPECT_EQ(projected(0, 17, 2.0, 4.0, 5.0), 4.0);
}

TEST(ProjectModel, TheUpperBoundWinsWhenBoundsAreReversed) {
    EXPECT_EQ(projected(0, boundBoth, 0.5, 0.1, 0.3), 0.1);
}

TEST(ProjectModel, BoundsThemselvesAreNotRounded) {
    EXPECT_EQ(projected(0, boundLower, 0.1, 0.0, 0.0), 0.1);
}

TEST(ProjectModel, StrictPositivityActsOnlyWhereThereIsNoBound) {
    const double smallest = 9.999999747378752e-06;
    EXPECT_EQ(projected(2, boundNone, 0.0, 0.0, 0.0), smallest);
    EXPECT_EQ(projected(2, boundNone, 0.0, 0.0, -3.0), smallest);
    EXPECT_EQ(projected(2, boundNone, 0.0, 0.0, 1.0e-5), smallest);
    EXPECT_EQ(projected(2, boundNone, 0.0, 0.0, 2.0e-5), single(2.0e-5));
    EXPECT_EQ(projected(2, boundUpper, 0.0, 1.0, -3.0), -3.0);
    EXPECT_EQ(projected(1, boundNone, 0.0, 0.0, -3.0), -3.0);
    EXPECT_EQ(projected(3, boundNone, 0.0, 0.0, -3.0), -3.0);
}

TEST(ProjectModel, HeldCellsAndDummiesStay) {
    const double fine = 0.123456789012345;
    EXPECT_EQ(projected(2, boundBoth, 2.0, 4.0, fine, 1), fine);
    EXPECT_EQ(projected(2, boundBoth, 2.0, 4.0, fine, -7), fine);
    EXPECT_EQ(projected(2, boundLower, 2.0, 4.0, dummyValue), dummyValue);
    EXPECT_EQ(projected(2, boundLower, 2.0, 4.0, dummyLimit), dummyLimit);
    EXPECT_TRUE(std::isnan(projected(2, boundLower, 2.0, 4.0, std::numeric_limits<double>::quiet_NaN())));
    // The next value above the limit counts as a number.
    EXPECT_EQ(projected(0, boundLower, 2.0, 4.0, std::nextafter(dummyLimit, 0.0)), 2.0);
}

}  // namespace
}  // namespace voxlith
