#include "driver/calendar.h"

#include <gtest/gtest.h>

namespace voxlith {
namespace {

// Meeus, Astronomical Algorithms, examples of chapter 7.
TEST(JulianDay, AgreesWithKnownDays) {
    EXPECT_NEAR(julianDay({1957, 10, 4, 19, 26, 24}), 2436116.31, 1e-8);
    EXPECT_DOUBLE_EQ(julianDay({2000, 1, 1, 12, 0, 0}), 2451545.0);
    EXPECT_DOUBLE_EQ(julianDay({1987, 1, 27, 0, 0, 0}), 2446822.5);
    EXPECT_DOUBLE_EQ(julianDay({1988, 6, 19, 12, 0, 0}), 2447332.0);
}

TEST(JulianDay, GrowsByOneAcrossEveryMidnight) {
    EXPECT_DOUBLE_EQ(julianDay({2024, 3, 1, 0, 0, 0}) - julianDay({2024, 2, 29, 0, 0, 0}), 1.0);
    EXPECT_DOUBLE_EQ(julianDay({2023, 3, 1, 0, 0, 0}) - julianDay({2023, 2, 28, 0, 0, 0}), 1.0);
    EXPECT_DOUBLE_EQ(julianDay({2025, 1, 1, 0, 0, 0}) - julianDay({2024, 12, 31, 0, 0, 0}), 1.0);
}

TEST(JulianDay, CountsSecondsOfTheDay) {
    EXPECT_NEAR((julianDay({2026, 5, 4, 10, 0, 30}) - julianDay({2026, 5, 4, 9, 59, 0})) * 86400.0, 90.0, 1e-3);
}

TEST(DateLine, HasTheDayFirstInTheHeaderAndTheMonthFirstAtTheEnd) {
    const DateTime when{2013, 8, 5, 9, 3, 7};
    EXPECT_EQ(dateLine("on: ", when, DateOrder::dayFirst).view(), "on:  5/08/2013  09:03:07");
    EXPECT_EQ(dateLine("on: ", when, DateOrder::monthFirst).view(), "on:  8/05/2013  09:03:07");
    EXPECT_EQ(dateLine("", {2026, 11, 21, 23, 59, 58}, DateOrder::dayFirst).view(), "21/11/2026  23:59:58");
}

}  // namespace
}  // namespace voxlith
