#include "run/keyword_check.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "base/messages.h"

namespace voxlith {
namespace {

// The refusal of one keyword; empty when it is accepted.
std::string refusalOf(const std::string& keyword) {
    try {
        checkKeywords(std::vector<std::string>{keyword});
    } catch (const RunError& refusal) {
        return refusal.what();
    }
    return "";
}

TEST(KeywordCheck, acceptsWhatTheUsageTextShows) {
    for (const char* keyword :
         {"Misfit=(5,0.1)", "misfit=(0,1)", "MISFIT=( 2 , 3 )", "Tradeoff=0.5", "tradeoff=1e-3", "Offset=-3", "Clip=4",
          "ObsClip=(-100,100)", "OBSCLIP=(-1,1,-2,2)", "Misfit(5,0.1)", "ObsClip(-10,0.6)", "NOFAST"}) {
        EXPECT_EQ(refusalOf(keyword), "") << keyword;
    }
}

TEST(KeywordCheck, namesTheNearestKnownKeyword) {
    EXPECT_EQ(refusalOf("Tradeof=3"), "unknown keyword \"Tradeof=3\"; the nearest known one is Tradeoff=value");
    EXPECT_EQ(refusalOf("misfitt=(1,2)"),
              "unknown keyword \"misfitt=(1,2)\"; the nearest known one is Misfit=(percent,floor)");
    EXPECT_EQ(refusalOf("obs_clip=(1,2)"),
              "unknown keyword \"obs_clip=(1,2)\"; the nearest known one is ObsClip=(min,max)");
    EXPECT_EQ(refusalOf("nofast"), "unknown keyword \"nofast\"; the nearest known one is NOFAST");
}

TEST(KeywordCheck, refusesValuesThatAreNotWholeNumbersOrLists) {
    for (const char* keyword : {"Tradeoff", "Tradeoff=", "Tradeoff=abc", "Tradeoff=1 2", "Tradeoff=1x", "Misfit=5,1",
                                "Misfit=(5)", "Misfit=(5,1,2)", "Misfit(5,1", "Misfit=(5,1", "Tradeoff(2)", "Misfit=()",
                                "Clip=2.5", "ObsClip=(1)", "ObsClip=(1,2,3)", "NOFAST=1", "Offset=,", "Offset=/"}) {
        EXPECT_NE(refusalOf(keyword), "") << keyword;
    }
}

}  // namespace
}  // namespace voxlith
