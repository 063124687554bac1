#include "base/printable_text.h"

#include <gtest/gtest.h>

#include <array>
#include <string>

namespace voxlith {
namespace {

std::string printable(std::string_view text) {
    std::array<char, 256> space{};
    return std::string(printableText(text, space));
}

TEST(PrintableText, leavesTextAsItIs) {
    for (const char* text : {"", "a b", "C:\\x", "\xC3\xA4 \xE2\x82\xAC \xF0\x9F\x98\x80"}) {
        EXPECT_EQ(printable(text), text);
    }
}

TEST(PrintableText, showsControls) {
    EXPECT_EQ(printable("two\nlines\r\t"), "two\\nlines\\r\\t");
    EXPECT_EQ(printable("\x1b]0;title\x07"), "\\x1b]0;title\\x07");
    EXPECT_EQ(printable(std::string_view("\0\x7f", 2)), "\\x00\\x7f");
    EXPECT_EQ(printable("\xC2\x9B"
                        "31m"),
              "\\xc2\\x9b31m");  // CSI as one character
}

TEST(PrintableText, showsBytesThatAreNoUtf8) {
    EXPECT_EQ(printable("\x9B"
                        "31m"),
              "\\x9b31m");
    EXPECT_EQ(printable("\xC3"), "\\xc3");
    EXPECT_EQ(printable("\xE2\x82"
                        "a"),
              "\\xe2\\x82"
              "a");
    EXPECT_EQ(printable("\xF5\x80\x80\x80"), "\\xf5\\x80\\x80\\x80");
}

TEST(PrintableText, isCutAtTheEndOfItsSpace) {
    std::array<char, 5> space{};
    EXPECT_EQ(printableText("abcdefgh", space), "abcde");
    EXPECT_EQ(printableText("abc\n\n", space), "abc\\n");
    EXPECT_EQ(printableText("abcd\ne", space), "abcd");
}

}  // namespace
}  // namespace voxlith
