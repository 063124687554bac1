// Runs in folders that other runs have left, or are at work in.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <vector>

#include "support/program_run.h"

namespace voxlith {
namespace {

using namespace testing_support;

std::vector<std::string> filesIn(const TemporaryFolder& folder) {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder.path())) {
        names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

const std::vector<std::string> filesOfARun{
    "g.mtx",       "obs.dat",     "voxlith.aux", "voxlith.den",       "voxlith.inp",
    "voxlith.log", "voxlith.pre", "voxlith.rho", "voxlith_error.dat", "voxlith_grad.mod"};

// A run of 3 iterations, and the control file for its continuation.
void runAndPrepareContinuation(const TemporaryFolder& folder) {
    writeSurvey(folder);
    ASSERT_EQ(runProgram(folder, {"voxlith.inp"}).exitStatus, 0);
    folder.write("voxlith.inp", ControlLines().set(1, "1").text());
}

TEST(InterruptedRun, aDamagedModelIsReported) {
    for (const auto& [text, found] : std::vector<std::pair<std::string, std::string>>{
             {"", "0"}, {"0.5\n", "1"}, {"35*0.5\n", "35"}, {"0.5\n0.", "2"}}) {
        TemporaryFolder folder;
        runAndPrepareContinuation(folder);
        folder.write("voxlith.rho", text);
        const ProgramResult result = runProgram(folder, {"voxlith.inp"});
        EXPECT_EQ(result.exitStatus, 0);
        EXPECT_EQ(result.errors, "warning: voxlith.rho: expected 36 values, found " + found + "; the others are 0\n");
    }
}

TEST(InterruptedRun, theVersionBeforeOfADamagedModelIsNamed) {
    TemporaryFolder folder;
    runAndPrepareContinuation(folder);
    std::filesystem::rename(folder.path() / "voxlith.rho", folder.path() / ".voxlith.rho.previous");
    folder.write("voxlith.rho", "");
    EXPECT_EQ(runProgram(folder, {"voxlith.inp"}).errors,
              "warning: voxlith.rho: expected 36 values, found 0; the others are 0; the version before is in "
              ".voxlith.rho.previous\n");
    EXPECT_EQ(filesIn(folder), filesOfARun);
}

TEST(InterruptedRun, aWholeModelIsNotReported) {
    TemporaryFolder folder;
    runAndPrepareContinuation(folder);
    EXPECT_EQ(runProgram(folder, {"voxlith.inp"}).errors, "");
    // A slash says that the rest is meant to stay.
    folder.write("voxlith.rho", "4*0.5 /\n");
    EXPECT_EQ(runProgram(folder, {"voxlith.inp"}).errors, "");
}

TEST(InterruptedRun, leftoversOfKilledRunsAreRemoved) {
    TemporaryFolder folder;
    writeSurvey(folder);
    for (const char* name : {"voxlith.rho.123-1.part", "voxlith_iter_002.den.99-2.part", ".voxlith_old.rho.previous"}) {
        folder.write(name, "half");
    }
    EXPECT_EQ(runProgram(folder, {"voxlith.inp"}).exitStatus, 0);
    EXPECT_EQ(filesIn(folder), filesOfARun);
}

TEST(InterruptedRun, aFailureKeepsWhatTheRunBeforeLeft) {
    TemporaryFolder folder;
    writeSurvey(folder, ControlLines().set(9, "no numbers"));
    folder.write(".voxlith.rho.previous", "1\n");
    EXPECT_EQ(runProgram(folder, {"voxlith.inp"}).exitStatus, 2);
    EXPECT_EQ(folder.read(".voxlith.rho.previous"), "1\n");
}

TEST(TwoRuns, inOneFolderAreRefused) {
    TemporaryFolder folder;
    runAndPrepareContinuation(folder);
    const std::string log = folder.read("voxlith.log"), table = folder.read("voxlith.aux");
    const int other = ::open(folder.file("voxlith.log").c_str(), O_RDWR | O_CLOEXEC);
    ASSERT_EQ(::flock(other, LOCK_EX), 0);
    for (const char* restart : {"0", "1"}) {
        folder.write("voxlith.inp", ControlLines().set(1, restart).text());
        const ProgramResult result = runProgram(folder, {"voxlith.inp"});
        EXPECT_EQ(result.exitStatus, 2);
        EXPECT_EQ(result.errors, "voxlith.log: another run is writing to this folder\n");
        EXPECT_EQ(folder.read("voxlith.log"), log);
        EXPECT_EQ(folder.read("voxlith.aux"), table);
    }
    ::close(other);
    EXPECT_EQ(runProgram(folder, {"voxlith.inp"}).exitStatus, 0);
}

TEST(SymbolicLinks, underTheNamesOfLogAndTableAreNotWrittenThrough) {
    TemporaryFolder folder;
    writeSurvey(folder);
    folder.write("diary", "mine\n");
    for (const char* name : {"voxlith.log", "voxlith.aux"}) {
        ASSERT_EQ(::symlink("diary", folder.file(name).c_str()), 0);
    }
    EXPECT_EQ(runProgram(folder, {"voxlith.inp"}).exitStatus, 0);
    EXPECT_EQ(folder.read("diary"), "mine\n");
    EXPECT_FALSE(std::filesystem::is_symlink(folder.file("voxlith.log")));
    EXPECT_FALSE(std::filesystem::is_symlink(folder.file("voxlith.aux")));
}

TEST(SymbolicLinks, areNoLogToContinue) {
    TemporaryFolder folder;
    runAndPrepareContinuation(folder);
    std::filesystem::rename(folder.path() / "voxlith.log", folder.path() / "other.log");
    ASSERT_EQ(::symlink("other.log", folder.file("voxlith.log").c_str()), 0);
    const std::string log = folder.read("other.log");
    const ProgramResult result = runProgram(folder, {"voxlith.inp"});
    EXPECT_EQ(result.exitStatus, 2);
    EXPECT_EQ(result.errors, "voxlith.log: cannot be opened for writing: Too many levels of symbolic links\n");
    EXPECT_EQ(folder.read("other.log"), log);
}

TEST(Messages, showControlCharacters) {
    TemporaryFolder folder;
    writeSurvey(folder, ControlLines().set(9, "\x1b]0;title\x07 1"));
    const std::string line =
        "voxlith.inp, line 9: expected four numbers, alphaS alphaE alphaN alphaZ, found \"\\x1b]0;title\\x07 1\"\n";
    const ProgramResult result = runProgram(folder, {"voxlith.inp"});
    EXPECT_EQ(result.errors, line);
    EXPECT_TRUE(contains(folder.read("voxlith.log"), line));
    EXPECT_EQ(runProgram(folder, {"voxlith.inp", "Tradeoff=a\nb"}).errors,
              "command line, \"Tradeoff=a\\nb\": expected a number, found \"a\\nb\"\n");
}

}  // namespace
}  // namespace voxlith
