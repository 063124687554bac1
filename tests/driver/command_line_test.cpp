#include "driver/command_line.h"

#include <gtest/gtest.h>

#include "base/messages.h"

namespace voxlith {
namespace {

ControlValues valuesOf(std::vector<std::string> keywords) {
    keywords.insert(keywords.begin(), "voxlith.inp");
    ControlValues control;
    readCommandLine(keywords, control);
    return control;
}

TEST(CommandLine, KnowsEachKeywordInItsThreeSpellings) {
    for (const char* word : {"Misfit", "misfit", "MISFIT"}) {
        const ControlValues control = valuesOf({std::string(word) + "=(5,0.25)"});
        EXPECT_FLOAT_EQ(control.cleaning.misfitPercent, 5.0F) << word;
        EXPECT_FLOAT_EQ(control.cleaning.misfitFloor, 0.25F) << word;
    }
    for (const char* word : {"Tradeoff", "tradeoff", "TRADEOFF"}) {
        EXPECT_EQ(valuesOf({std::string(word) + "=2.5"}).tradeoffOverride, 2.5) << word;
    }
    for (const char* word : {"Offset", "offset", "OFFSET"}) {
        EXPECT_EQ(valuesOf({std::string(word) + "=-7"}).cleaning.dataShift, -7.0F) << word;
    }
    for (const char* word : {"Clip", "clip", "CLIP"}) {
        EXPECT_EQ(valuesOf({std::string(word) + "=4"}).clipLayer, 4) << word;
    }
    for (const char* word : {"ObsClip", "obsclip", "OBSCLIP"}) {
        EXPECT_EQ(valuesOf({std::string(word) + "=(1,2)"}).obsClipText, "1,2") << word;
    }
}

TEST(CommandLine, IgnoresOtherSpellingsAndWords) {
    const ControlValues control =
        valuesOf({"NOFAST", "nofast", "NOFASTER", "MisFit=(5,0)", "tradeOff=3", "oBsclip=(1,2)", "xClip=3", ""});
    EXPECT_LT(control.cleaning.misfitPercent, 0.0F);
    EXPECT_LT(control.tradeoffOverride, 0.0);
    EXPECT_EQ(control.clipLayer, 0);
    EXPECT_EQ(control.obsClipText, "");
}

TEST(CommandLine, MatchesLongerWordsByTheirFirstCharacters) {
    EXPECT_FLOAT_EQ(valuesOf({"Misfits=(1,2)"}).cleaning.misfitFloor, 2.0F);
    EXPECT_EQ(valuesOf({"Tradeoffs=9"}).tradeoffOverride, 9.0);
}

TEST(CommandLine, DropsKeywordsWithoutBracketOrEqualsSign) {
    const ControlValues control =
        valuesOf({"Misfit=5,0", "Misfit=(5,0", "Misfit)5,0(", "Tradeoff5", "Clip", "ObsClip=1,2"});
    EXPECT_LT(control.cleaning.misfitPercent, 0.0F);
    EXPECT_LT(control.tradeoffOverride, 0.0);
    EXPECT_EQ(control.clipLayer, 0);
    EXPECT_EQ(control.obsClipText, "");
}

TEST(CommandLine, TakesTheLastOfTwo) {
    EXPECT_EQ(valuesOf({"Clip=3", "NOFAST", "clip=5"}).clipLayer, 5);
}

TEST(CommandLine, AcceptsZeroAsFloorAndBlanksBetweenNumbers) {
    EXPECT_EQ(valuesOf({"Misfit=(5,0)"}).cleaning.misfitFloor, 0.0F);
    EXPECT_EQ(valuesOf({"Misfit=( 5   2 )"}).cleaning.misfitFloor, 2.0F);
}

TEST(CommandLine, LeavesDefaultsForNullValues) {
    const ControlValues control = valuesOf({"Misfit=(,,)", "Tradeoff=/"});
    EXPECT_EQ(control.cleaning.misfitPercent, -1.0F);
    EXPECT_EQ(control.cleaning.misfitFloor, -1.0F);
    EXPECT_EQ(control.tradeoffOverride, -1.0);
}

TEST(CommandLine, EndsWithTheDecodersErrorWhereANumberCannotBeRead) {
    for (const char* word : {"Misfit=(5)", "Misfit=()", "Misfit=(a,b)", "Tradeoff=", "Tradeoff=x", "Offset=1.0.0",
                             "Clip=2.5", "Clip=", "Clip=99999999999"}) {
        EXPECT_THROW(valuesOf({word}), RunError) << word;
    }
}

}  // namespace
}  // namespace voxlith
