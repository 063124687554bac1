#include "survey/positivity.h"

#include <gtest/gtest.h>

namespace voxlith {
namespace {

TEST(Positivity, TakesTheSideOfItsSign) {
    for (std::int32_t code = -3; code < 5; ++code) {
        EXPECT_EQ(codeOf(Positivity{code}), code);
        EXPECT_EQ(requiresNegative(Positivity{code}), code < 0) << code;
        EXPECT_EQ(requiresPositive(Positivity{code}), code > 0) << code;
        EXPECT_EQ(isStrict(Positivity{code}), code == 2) << code;
        EXPECT_EQ(smallestPositive(Positivity{code}), code == 2 ? 1.0e-5F : 0.0F) << code;
    }
}

}  // namespace
}  // namespace voxlith
