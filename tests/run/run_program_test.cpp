// voxlith-run as a user starts it: arguments, exit status, and what it leaves.

#include <gtest/gtest.h>

#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "support/program_run.h"

namespace voxlith {
namespace {

using testing_support::contains;
using testing_support::ControlLines;
using testing_support::linesOf;
using testing_support::ProgramResult;
using testing_support::TemporaryFolder;
using testing_support::withoutTimes;
using testing_support::writeSurvey;

ProgramResult runOf(const TemporaryFolder& folder, const std::vector<std::string>& arguments) {
    return testing_support::runProgram(folder, arguments, 0, VOXLITH_RUN_PROGRAM);
}

std::set<std::string> namesIn(const TemporaryFolder& folder) {
    std::set<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder.path())) {
        names.insert(entry.path().filename().string());
    }
    return names;
}

TEST(RunProgram, leavesTheResultsOfVoxlith) {
    const TemporaryFolder plain;
    const TemporaryFolder run;
    writeSurvey(plain);
    writeSurvey(run);
    ASSERT_EQ(testing_support::runProgram(plain, {"voxlith.inp"}).exitStatus, 0);
    const ProgramResult result = runOf(run, {"voxlith.inp"});
    ASSERT_EQ(result.exitStatus, 0) << result.errors;
    EXPECT_EQ(result.errors, "");
    ASSERT_EQ(namesIn(run), namesIn(plain));
    for (const std::string& name : namesIn(plain)) {
        EXPECT_EQ(withoutTimes(run.read(name)), withoutTimes(plain.read(name))) << name;
    }
}

TEST(RunProgram, showsHelpAndVersion) {
    const TemporaryFolder folder;
    const ProgramResult help = runOf(folder, {"--help"});
    EXPECT_EQ(help.exitStatus, 0);
    EXPECT_TRUE(contains(help.screen, "Misfit=(pct,floor)")) << help.screen;
    const ProgramResult version = runOf(folder, {"--version"});
    EXPECT_EQ(version.exitStatus, 0);
    EXPECT_EQ(version.screen, "voxlith-run 2.01\n");
}

TEST(RunProgram, refusesWrongUseWithOneLineAndStatus2) {
    for (const std::vector<std::string>& arguments :
         std::vector<std::vector<std::string>>{{}, {"--nonsense"}, {"voxlith.inp", "Tradof=1"}}) {
        const TemporaryFolder folder;
        writeSurvey(folder);
        const std::set<std::string> before = namesIn(folder);
        const ProgramResult result = runOf(folder, arguments);
        EXPECT_EQ(result.exitStatus, 2);
        EXPECT_EQ(linesOf(result.errors).size(), 1U) << result.errors;
        EXPECT_EQ(namesIn(folder), before);
    }
}

TEST(RunProgram, endsAStopByAMessageWithStatus1) {
    const TemporaryFolder folder;
    writeSurvey(folder, ControlLines().set(6, "missing.mod"));
    const ProgramResult result = runOf(folder, {"voxlith.inp"});
    EXPECT_EQ(result.exitStatus, 1);
    EXPECT_TRUE(contains(result.screen, " Model File missing.mod not found")) << result.screen;
}

TEST(RunProgram, endsAnUnusableFileWithStatus2) {
    const TemporaryFolder folder;
    writeSurvey(folder);
    folder.write("g.mtx", "no sensitivities");
    const ProgramResult result = runOf(folder, {"voxlith.inp"});
    EXPECT_EQ(result.exitStatus, 2);
    EXPECT_TRUE(contains(result.errors, "g.mtx")) << result.errors;
}

}  // namespace
}  // namespace voxlith
