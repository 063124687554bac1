#include "base/text_line.h"

#include <gtest/gtest.h>

#include <string>

namespace voxlith {
namespace {

TEST(TextLine, joinsItsParts) {
    TextLine line(" Mode:");
    line.spaces(1).integer(2, 1).spaces(2).text("(fixed multiplier)");
    EXPECT_EQ(line.view(), " Mode: 2  (fixed multiplier)");
    line.clear().fixed(1.5, 10, 3).exponent(-2.5, 14, 6).integer(77, 1).integerZeros(7, 4, 2);
    EXPECT_EQ(line.view(), "     1.500 -0.250000E+01*  07");
}

TEST(TextLine, padsToAColumn) {
    TextLine line("ab");
    EXPECT_EQ(line.padTo(5).view(), "ab   ");
    EXPECT_EQ(line.padTo(3).view(), "ab   ");
    EXPECT_EQ(line.spaces(-4).view(), "ab   ");
}

TEST(TextLine, cutsAt1024Characters) {
    TextLine line(std::string(1020, 'x'));
    line.fixed(1.25, 8, 2).text("more").spaces(3).integer(1, 2);
    EXPECT_EQ(line.view(), std::string(1020, 'x') + "    ");
    line.clear().spaces(2000000000);
    EXPECT_EQ(line.view().size(), 1024u);
    line.clear().fixed(1.0, 5000, 2).exponent(1.0, 3, 2);
    EXPECT_EQ(line.view().size(), 1024u);
    line.clear().integer(1, -5);
    EXPECT_EQ(line.view(), "");
}

}  // namespace
}  // namespace voxlith
