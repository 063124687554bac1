#include "inversion/focus_term.h"

#include <gtest/gtest.h>

#include <vector>

namespace voxlith {
namespace {

TEST(FocusTerm, IsInertAsItStarts) {
    FocusSettings focus;
    initFocus(focus);
    EXPECT_EQ(focus.focusScale, 1.0);
    EXPECT_EQ(focusTerm(focus, std::vector<double>{1e9, -1e9}, {}), 0.0F);
    focus.focusThreshold = 10000.0;
    EXPECT_EQ(focusTerm(focus, std::vector<double>{1e9, -1e9}, {}), 0.0F);
}

TEST(FocusTerm, CountsLargeValuesAndWeighsSmallOnes) {
    FocusSettings focus{20000.0, 3.0};
    EXPECT_EQ(focusTerm(focus, std::vector<double>{20001.0, -30000.0, 0.0}, {}), 6.0F);
    EXPECT_EQ(focusTerm(focus, std::vector<double>{20000.0}, {}), 3.0F);
    EXPECT_FLOAT_EQ(focusTerm(focus, std::vector<double>{10000.0}, {}), 3.0F * (0.5F - 0.0625F));
    EXPECT_FLOAT_EQ(focusTerm(focus, std::vector<double>{10000.0}, std::vector<float>{0.25F}), 3.0F);
}

}  // namespace
}  // namespace voxlith
