// Numbers in option values and files.
#include "forward/number_text.h"

#include <gtest/gtest.h>

#include "base/messages.h"

namespace voxlith {
namespace {

TEST(NumberText, numbers) {
    EXPECT_EQ(parseNumber("1.5"), 1.5);
    EXPECT_EQ(parseNumber("+1.5"), 1.5);
    EXPECT_EQ(parseNumber("-1.5d3"), -1500.0);
    EXPECT_EQ(parseNumber("2E+2"), 200.0);
    for (const char* text : {"", "+", "+-1", "1.5x", "x", "nan", "inf", "1e999", " 1", "0x10"}) {
        EXPECT_FALSE(parseNumber(text).has_value()) << text;
    }
}

TEST(NumberText, integers) {
    EXPECT_EQ(parseInteger("+12"), 12);
    for (const char* text : {"", "1.0", "2147483648", "1e3"}) {
        EXPECT_FALSE(parseInteger(text).has_value()) << text;
    }
}

TEST(NumberText, lists) {
    EXPECT_EQ(parseNumberList("--field", "a,b", "-65,20.5", 2), (std::vector<double>{-65, 20.5}));
    try {
        parseNumberList("--field", "incl,decl,nT", "1,2", 3);
        ADD_FAILURE();
    } catch (const RunError& error) {
        EXPECT_STREQ(error.what(), "--field 1,2: expected incl,decl,nT");
    }
}

TEST(NumberText, shortestForm) {
    EXPECT_EQ(numberText(0.1), "0.1");
    EXPECT_EQ(numberText(0.1F), "0.1");
    EXPECT_EQ(numberText(100000.0), "100000");
    EXPECT_EQ(numberText(-7445400.25), "-7445400.25");
    EXPECT_EQ(numberText(0.00002), "0.00002");
    EXPECT_EQ(numberText(1.5e-7), "1.5e-07");
    EXPECT_EQ(numberText(0.0), "0");
}

}  // namespace
}  // namespace voxlith
