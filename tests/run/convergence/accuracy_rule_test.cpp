#include "run/convergence/accuracy_rule.h"

#include <gtest/gtest.h>

namespace voxlith {
namespace {

TEST(AccuracyRule, GrowsStricterTowardsTheTarget) {
    const AccuracyRule rule{1.0e-4, 2.0, 0.01};
    double last = 1.0;
    for (const double misfit : {100.0, 4.0, 2.3, 2.01}) {
        const double accuracy = accuracyAt(rule, misfit);
        EXPECT_LT(accuracy, last);
        EXPECT_DOUBLE_EQ(accuracyAt(rule, 4.0 / misfit), accuracy);
        last = accuracy;
    }
    EXPECT_DOUBLE_EQ(last, 1.0e-4);
}

TEST(AccuracyRule, IsTheFinalOneWithoutATarget) {
    EXPECT_DOUBLE_EQ(accuracyAt({1.0e-9}, 50.0), 1.0e-9);
    EXPECT_DOUBLE_EQ(accuracyAt({1.0e-3, 1.0}, 1.1), 1.0e-3);  // never stricter than the final one
}

}  // namespace
}  // namespace voxlith
