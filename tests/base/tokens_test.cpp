#include "base/tokens.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <random>
#include <string>

#include "support/temporary_folder.h"

namespace voxlith {
namespace {

struct Step {
    std::string token;
    std::string rest;
};

Step step(std::string line) {
    Step result;
    nextToken(line, result.token);
    result.rest = line;
    return result;
}

void expectStep(const std::string& line, const std::string& token, const std::string& rest) {
    const Step result = step(line);
    EXPECT_EQ(result.token, token) << "[" << line << "]";
    EXPECT_EQ(result.rest, rest) << "[" << line << "]";
}

TEST(NextToken, takesOneWordAndOneDelimiter) {
    expectStep("0 2 3", "0", "2 3");
    expectStep("  0  2 3  ", "0", " 2 3");
    expectStep("a,b", "a", "b");
    expectStep("a\tb", "a", "b");
    expectStep("a,,b", "a", ",b");
    expectStep("a, b", "a", " b");
    expectStep("a ,b", "a", ",b");
}

TEST(NextToken, givesAnEmptyTokenForALeadingDelimiter) {
    expectStep(",b", "", "b");
    expectStep("\tb c", "", "b c");
    expectStep("  ,b", "", "b");
    expectStep("  \t\tb", "", "\tb");
    expectStep(",", "", "");
    expectStep("  ,  ", "", "");
}

TEST(NextToken, endsWithABlankLine) {
    expectStep("last", "last", "");
    expectStep("last   ", "last", "");
    expectStep("last,", "last", "");
    expectStep("last,  ", "last", "");
    expectStep("a b,", "a", "b,");
}

TEST(NextToken, leavesABlankLineUnchanged) {
    expectStep("", "", "");
    expectStep("    ", "", "    ");
}

TEST(NextToken, cutsATokenAt32Characters) {
    const std::string word(40, 'w');
    expectStep(word + " x", word.substr(0, 32), "x");
    expectStep(word.substr(0, 32), word.substr(0, 32), "");
    expectStep(word.substr(0, 33), word.substr(0, 32), "");
}

// On a line without tabs or doubled delimiters the tokens are the words.
TEST(NextToken, splitsALineCompletely) {
    for (std::uint64_t seed = 1; seed <= 500; ++seed) {
        std::mt19937_64 generator(seed);
        std::string line;
        std::string joined;
        for (std::uint64_t words = generator() % 8; words > 0; --words) {
            const std::string word(1 + generator() % 12, static_cast<char>('a' + generator() % 26));
            line += word + (generator() % 2 == 0 ? std::string(1 + generator() % 3, ' ') : ",");
            joined += word + ";";
        }
        std::string taken;
        std::string token;
        while (!isBlank(line)) {
            const std::size_t before = line.size();
            nextToken(line, token);
            ASSERT_LT(line.size(), before) << "seed " << seed;
            taken += token + ";";
        }
        EXPECT_EQ(taken, joined) << "seed " << seed;
    }
}

TEST(Tokens, removesComments) {
    std::string line = "1.0 0.02 1  ! trade-off ! more";
    removeComment(line);
    EXPECT_EQ(trimRight(line), "1.0 0.02 1");
    line = "! nothing";
    removeComment(line);
    EXPECT_TRUE(isBlank(line));
    line = "no comment";
    removeComment(line);
    EXPECT_EQ(line, "no comment");
}

TEST(Tokens, trimsSpacesOnly) {
    EXPECT_EQ(trimRight(" a b  "), " a b");
    EXPECT_EQ(trimRight("   "), "");
    EXPECT_EQ(trimRight("a\t "), "a\t");
    EXPECT_EQ(trim("  a b  "), "a b");
    EXPECT_EQ(trim("  "), "");
    EXPECT_FALSE(isBlank("\t"));
    EXPECT_TRUE(isBlank(""));
}

TEST(Tokens, knowsTwoSpellingsOfNull) {
    EXPECT_TRUE(isNullWord("null"));
    EXPECT_TRUE(isNullWord("NULL   "));
    EXPECT_FALSE(isNullWord("Null"));
    EXPECT_FALSE(isNullWord(" null"));
    EXPECT_FALSE(isNullWord("null.dat"));
    EXPECT_FALSE(isNullWord(""));
    EXPECT_TRUE(startsWithNull("null.dat"));
    EXPECT_TRUE(startsWithNull("NULL"));
    EXPECT_FALSE(startsWithNull("Null"));
    EXPECT_FALSE(startsWithNull(" null"));
    EXPECT_FALSE(startsWithNull("nul"));
}

TEST(Tokens, makesFileNames) {
    EXPECT_EQ(fileNameOf("  obs data.mag   "), "obs data.mag");
    EXPECT_EQ(fileNameOf(std::string(300, 'n')), std::string(256, 'n'));
    EXPECT_EQ(fileNameOf("    "), "");
}

TEST(Tokens, findsRegularFilesAlone) {
    testing_support::TemporaryFolder folder;
    EXPECT_TRUE(fileExists(folder.write("here.txt", "")));
    EXPECT_FALSE(fileExists(folder.file("gone.txt")));
    EXPECT_FALSE(fileExists(folder.path().string()));
    std::filesystem::create_symlink(folder.file("here.txt"), folder.file("link"));
    EXPECT_TRUE(fileExists(folder.file("link")));
    ASSERT_EQ(::mkfifo(folder.file("pipe").c_str(), 0600), 0);
    EXPECT_FALSE(fileExists(folder.file("pipe")));
    EXPECT_FALSE(fileExists("/dev/zero"));
    EXPECT_FALSE(fileExists(""));
    EXPECT_FALSE(fileExists(std::string(10000, 'n')));
}

}  // namespace
}  // namespace voxlith
