// Logs, progress tables and continued runs, by running the program.
#include "driver/continuation.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "support/program_run.h"

namespace voxlith::testing_support {
namespace {

const std::string headings =
    " VoxLith Inversion progress\n\n   Iterations    RMS_Misfit    Model_Norm    Total_Norm      Time\n"
    "           0        1.0000        0.0000        1.0000\n";

// Values of a column of numbers in a text file, 36 cells.
std::string constantModel(const std::string& value) {
    std::string text;
    for (int i = 0; i < 36; ++i) {
        text += value + "\n";
    }
    return text;
}

ProgramResult runNow(const TemporaryFolder& folder) {
    return runProgram(folder, {"voxlith.inp"});
}

TEST(NewRun, WritesFourHeadingLinesAndARowForEachIteration) {
    const TemporaryFolder folder;
    writeSurvey(folder);
    ASSERT_EQ(runNow(folder).exitStatus, 0);
    const std::vector<std::string> lines = linesOf(folder.read("voxlith.aux"));
    ASSERT_EQ(lines.size(), 7U);
    EXPECT_EQ(lines[0], " VoxLith Inversion progress");
    EXPECT_EQ(lines[1], "");
    EXPECT_EQ(lines[2], "   Iterations    RMS_Misfit    Model_Norm    Total_Norm      Time");
    EXPECT_EQ(lines[3].substr(0, 12), "           0");
    EXPECT_EQ(lines[6].substr(0, 12), "           3");
}

TEST(ContinuedRun, WithoutProgressTableStopsAfterTheInputs) {
    const TemporaryFolder folder;
    writeSurvey(folder, ControlLines().set(1, "1"));
    folder.write("voxlith.rho", constantModel("0.02"));
    const ProgramResult result = runNow(folder);
    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_EQ(linesOf(result.screen).back(), " File voxlith.aux not found");
    EXPECT_EQ(linesOf(folder.read("voxlith.log")).back(), " File voxlith.aux not found");
    EXPECT_TRUE(contains(folder.read("voxlith.log"), "Observed data: NumValid"));
    EXPECT_FALSE(std::filesystem::exists(folder.file("voxlith.aux")));
    // Bounds and models are read before the progress table is looked for, so theirs is the message that comes.
    std::filesystem::remove(folder.file("voxlith.rho"));
    EXPECT_EQ(linesOf(runNow(folder).screen).back(), " Model File voxlith.rho not found");
}

TEST(ContinuedRun, NamesItsKindOnTheScreenFor1And2Only) {
    const std::pair<const char*, const char*> kinds[] = {
        {"1", "Continuing the inversion"}, {"2", "Continuing the inversion with depth layer stripping"}, {"3", ""}};
    for (const auto& [restart, words] : kinds) {
        const TemporaryFolder folder;
        writeSurvey(folder, ControlLines().set(1, restart).set(12, "1"));
        folder.write("voxlith.rho", constantModel("0.02"));
        folder.write("voxlith.aux", headings);
        const ProgramResult result = runNow(folder);
        EXPECT_EQ(result.exitStatus, 0) << result.errors;
        const std::vector<std::string> lines = linesOf(result.screen);
        const auto found = std::find_if(lines.begin(), lines.end(),
                                        [](const std::string& line) { return contains(line, "Continuing"); });
        EXPECT_EQ(found == lines.end() ? "" : *found, words);
        EXPECT_TRUE(contains(folder.read("voxlith.log"), "VOXLITH version 2.01 inversion continued on: "));
    }
}

TEST(ContinuedRun, CountsOnFromTheLastRow) {
    const TemporaryFolder folder;
    writeSurvey(folder, ControlLines().set(1, "1").set(12, "50"));
    folder.write("voxlith.rho", constantModel("0.02"));
    folder.write("voxlith.log", "an earlier log\n");
    folder.write("voxlith.aux", headings + "         120        0.9000        0.1000        0.9500       0.1\n");
    ASSERT_EQ(runNow(folder).exitStatus, 0);
    const std::vector<std::string> lines = linesOf(folder.read("voxlith.aux"));
    ASSERT_EQ(lines.size(), 55U) << "fifty rows after the old ones, no second row of a starting state";
    EXPECT_EQ(lines[5].substr(0, 12), "         121");
    EXPECT_EQ(lines.back().substr(1, 11), "        170");
    EXPECT_EQ(linesOf(folder.read("voxlith.log")).front(), "an earlier log");
}

// What ext4 leaves of rows that were appended and had not reached the disk.
TEST(ContinuedRun, GoesOnBeforeTheZerosOfAPowerFailure) {
    const std::string row = "           7        0.9000        0.1000        0.9500       0.1\n";
    const std::string later = "           9        0.8000        0.1000        0.9500       0.1\n";
    for (const std::string& end : {std::string(200, '\0'), "          " + std::string(60, '\0') + "\n" + later}) {
        const TemporaryFolder folder;
        writeSurvey(folder, ControlLines().set(1, "1").set(2, "-1 0 0").set(12, "1"));
        folder.write("voxlith.rho", constantModel("0.02"));
        folder.write("voxlith.log", "an earlier log\n" + std::string(300, '\0'));
        folder.write("voxlith.lsv", " VoxLith Line Search Values\n\n" + std::string(300, '\0'));
        folder.write("voxlith.aux", headings + row + end);
        const ProgramResult result = runNow(folder);
        EXPECT_EQ(result.exitStatus, 0) << result.errors;
        const std::vector<std::string> lines = linesOf(folder.read("voxlith.aux"));
        ASSERT_EQ(lines.size(), 6U);
        EXPECT_EQ(lines[4] + "\n", row);
        EXPECT_EQ(lines[5].substr(0, 12), "           8");
        for (const char* name : {"voxlith.aux", "voxlith.log", "voxlith.lsv"}) {
            EXPECT_EQ(folder.read(name).find('\0'), std::string::npos) << name;
        }
    }
}

TEST(ContinuedRun, DoesNotCutATableThroughALink) {
    const TemporaryFolder folder;
    writeSurvey(folder, ControlLines().set(1, "1").set(12, "1"));
    folder.write("voxlith.rho", constantModel("0.02"));
    for (const std::string& content : {headings + "      1", headings + std::string(40, '\0')}) {
        std::filesystem::remove(folder.file("voxlith.aux"));
        folder.write("elsewhere.txt", content);
        std::filesystem::create_symlink("elsewhere.txt", folder.file("voxlith.aux"));
        EXPECT_EQ(runNow(folder).exitStatus, 2);
        EXPECT_EQ(folder.read("elsewhere.txt"), content);
    }
}

TEST(ContinuedRun, BlankLastLineLeavesTheCount) {
    const TemporaryFolder folder;
    writeSurvey(folder, ControlLines().set(1, "1").set(12, "1"));
    folder.write("voxlith.rho", constantModel("0.02"));
    folder.write("voxlith.aux", headings + "           7        0.9000        0.1000        0.9500       0.1\n\n");
    ASSERT_EQ(runNow(folder).exitStatus, 0);
    EXPECT_EQ(linesOf(folder.read("voxlith.aux")).back().substr(0, 12), "           8");
}

TEST(ContinuedRun, HeadingsAloneStartAtZero) {
    const TemporaryFolder folder;
    writeSurvey(folder, ControlLines().set(1, "1").set(12, "1"));
    folder.write("voxlith.rho", constantModel("0.02"));
    folder.write("voxlith.aux", headings);
    ASSERT_EQ(runNow(folder).exitStatus, 0);
    EXPECT_EQ(linesOf(folder.read("voxlith.aux")).back().substr(0, 12), "           1");
}

TEST(ContinuedRun, CountsARowThatIsCutOffOnceItsNumberIsWhole) {
    const std::string whole = "          11        0.9000        0.1000        0.9500       0.1\n";
    const std::string cut = "          12        0.8999     ";
    for (std::size_t length = 1; length <= cut.size(); ++length) {
        const TemporaryFolder folder;
        writeSurvey(folder, ControlLines().set(1, "1").set(12, "1"));
        folder.write("voxlith.rho", constantModel("0.02"));
        folder.write("voxlith.aux", headings + whole + cut.substr(0, length));
        ASSERT_EQ(runNow(folder).exitStatus, 0) << length;
        const std::vector<std::string> lines = linesOf(folder.read("voxlith.aux"));
        const bool counts = length >= 12;
        ASSERT_EQ(lines.size(), counts ? 7U : 6U) << length;
        EXPECT_EQ(lines.back().substr(0, 12), counts ? "          13" : "          12") << length;
    }
}

TEST(ContinuedRun, TakesALastRowWithoutLineEndThatARunCannotHaveCut) {
    for (const char* row : {"  120", "x 120", " 120 0.9", "   120 0.9000 0.1000 0.9500 0.1"}) {
        const TemporaryFolder folder;
        writeSurvey(folder, ControlLines().set(1, "1").set(12, "1"));
        folder.write("voxlith.rho", constantModel("0.02"));
        folder.write("voxlith.aux", headings + row);
        ASSERT_EQ(runNow(folder).exitStatus, 0) << row;
        const std::vector<std::string> lines = linesOf(folder.read("voxlith.aux"));
        ASSERT_EQ(lines.size(), 6U) << row;
        EXPECT_EQ(lines[4], row);
        EXPECT_EQ(lines.back().substr(0, 12), "         121") << row;
    }
}

TEST(ContinuedRun, GoesOnFromAnyStateInWhichAKillCanLeaveTheHeadings) {
    for (std::size_t length = 0; length <= headings.size(); length += 11) {
        const TemporaryFolder folder;
        writeSurvey(folder, ControlLines().set(1, "1").set(12, "1"));
        folder.write("voxlith.rho", constantModel("0.02"));
        folder.write("voxlith.aux", headings.substr(0, length));
        ASSERT_EQ(runNow(folder).exitStatus, 0) << length;
        const ProgramResult again = runNow(folder);
        ASSERT_EQ(again.exitStatus, 0) << length << again.errors;
        if (length == 0 || length >= 29) {
            EXPECT_EQ(linesOf(folder.read("voxlith.aux")).back().substr(0, 12), "           2") << length;
        }
    }
}

TEST(ContinuedRun, ReportsARowThatIsNoRow) {
    const TemporaryFolder folder;
    writeSurvey(folder, ControlLines().set(1, "1").set(12, "1"));
    folder.write("voxlith.rho", constantModel("0.02"));
    folder.write("voxlith.aux", headings + " not a row\n");
    const ProgramResult result = runNow(folder);
    EXPECT_EQ(result.exitStatus, 2);
    EXPECT_TRUE(contains(result.errors, "voxlith.aux, line 5: expected an iteration number")) << result.errors;
}

TEST(ContinuedRun, OfLineSearchModeNeedsItsLog) {
    const TemporaryFolder folder;
    writeSurvey(folder, ControlLines().set(1, "1").set(2, "-1 0 0").set(12, "1"));
    folder.write("voxlith.rho", constantModel("0.02"));
    folder.write("voxlith.aux", headings);
    EXPECT_EQ(linesOf(runNow(folder).screen).back(), " File voxlith.lsv not found");

    std::string rows = " VoxLith Line Search Values\n\n";
    for (int row = 1; row <= 40; ++row) {
        rows += std::to_string(row) + " 1.0 2.0 3.0 4.0\n\n";
    }
    folder.write("voxlith.lsv", rows);
    EXPECT_EQ(runNow(folder).exitStatus, 0) << "more than 32 rows are let through";
    EXPECT_EQ(folder.read("voxlith.lsv"), rows) << "appended to, by no one";

    folder.write("voxlith.lsv", " VoxLith Line Search Values\n\n1 2.0 3.0\n");
    const ProgramResult result = runNow(folder);
    EXPECT_EQ(result.exitStatus, 2);
    EXPECT_TRUE(contains(result.errors, "voxlith.lsv, line 3")) << result.errors;
}

TEST(ContinuedRun, StartsFromTheRunningModelAndEqualsARunFromIt) {
    const TemporaryFolder first;
    writeSurvey(first, ControlLines().set(12, "4"));
    ASSERT_EQ(runNow(first).exitStatus, 0);

    const TemporaryFolder fresh;
    writeSurvey(fresh, ControlLines().set(6, "start.den").set(12, "3"));
    fresh.write("start.den", first.read("voxlith.rho"));
    ASSERT_EQ(runNow(fresh).exitStatus, 0);

    first.write("voxlith.inp", ControlLines().set(1, "1").set(6, "ignored.den").set(12, "3").text());
    ASSERT_EQ(runNow(first).exitStatus, 0);
    EXPECT_EQ(first.read("voxlith.den"), fresh.read("voxlith.den"));
    EXPECT_EQ(first.read("voxlith.pre"), fresh.read("voxlith.pre"));
    EXPECT_EQ(linesOf(first.read("voxlith.aux")).size(), 4U + 4U + 3U);
    EXPECT_EQ(linesOf(first.read("voxlith.aux")).back().substr(0, 12), "           7");
}

TEST(ContinuedRun, OfMagneticDataTakesTheSusceptibilities) {
    const TemporaryFolder folder;
    writeSurvey(folder, ControlLines().set(12, "1"));
    writeMtx(folder.file("g.mtx"), smallSurveyMtx(1), MtxLayout::tagged);
    folder.write("obs.dat", smallSurveyMagneticObs());
    ASSERT_EQ(runNow(folder).exitStatus, 0);
    ASSERT_TRUE(std::filesystem::exists(folder.file("voxlith.kap")));
    std::filesystem::remove(folder.file("voxlith.kap"));
    folder.write("voxlith.inp", ControlLines().set(1, "1").text());
    const ProgramResult result = runNow(folder);
    EXPECT_EQ(linesOf(result.screen).back(), " Model File voxlith.kap not found");
}

}  // namespace
}  // namespace voxlith::testing_support
