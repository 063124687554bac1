// Control file and its checks, by running the program: screen, log, files and exit status.
#include "driver/control_file.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "support/program_run.h"

namespace voxlith::testing_support {
namespace {

// The log of a run stops after its echoes when the observed data file has no records; that is quick and reaches every
// echo.
struct ControlRun {
    TemporaryFolder folder;
    ProgramResult result;
    std::string log;
};

void runWith(ControlRun& run, const ControlLines& control, std::vector<std::string> arguments = {}) {
    writeSurvey(run.folder, control);
    arguments.insert(arguments.begin(), "voxlith.inp");
    run.result = runProgram(run.folder, arguments);
    run.log = run.folder.read("voxlith.log");
}

std::string padded(std::string text, std::size_t width) {
    text.resize(width, ' ');
    return text;
}

void expectLine(const std::string& text, const std::string& line) {
    const std::vector<std::string> lines = linesOf(text);
    EXPECT_NE(std::find(lines.begin(), lines.end(), line), lines.end()) << "wanted |" << line << "| in\n" << text;
}

TEST(ControlFile, WithoutArgumentsShowsUsageAndTouchesNoFile) {
    const TemporaryFolder folder;
    const ProgramResult result = runProgram(folder, {});
    EXPECT_EQ(result.exitStatus, 0);
    expectLine(result.screen,
               "Usage: voxlith voxlith.inp {Misfit=(pct,floor) Tradeoff=val Offset=shift ObsClip=(min,max)}");
    EXPECT_TRUE(std::filesystem::is_empty(folder.path()));
}

TEST(ControlFile, ThatCannotBeOpenedEndsWithItsTwoLines) {
    const TemporaryFolder folder;
    const ProgramResult result = runProgram(folder, {"nothere.inp"});
    EXPECT_EQ(result.exitStatus, 0);
    expectLine(result.screen, "The specified parameter file nothere.inp could not be opened");
    const std::vector<std::string> lines = linesOf(result.screen);
    EXPECT_EQ(lines.back(), " File voxlith.aux not found");
    EXPECT_TRUE(std::filesystem::is_empty(folder.path()));
}

TEST(ControlFile, EchoesEveryLineInItsColumns) {
    ControlRun run;
    ControlLines control;
    control.set(1, "0 1 1 1 ! counts").set(2, "5 2 0.25").set(3, "2.5 0 1 0 ! x").set(8, "-1,1 ! bounds");
    control.set(9, "0.25 1 2 3").set(11, "0 ! none").set(12, "2 7 1");
    runWith(run, control);
    EXPECT_EQ(run.result.exitStatus, 0) << run.result.errors;
    expectLine(run.log, " Input parameter file: voxlith.inp");
    expectLine(run.log, padded(" restart, num MTX, num data types, num model types: 1 1 1", 52 + 256));
    expectLine(run.log, " Mode: 2  (fixed multiplier)");
    expectLine(run.log, " Background value to be removed:      0.250");
    expectLine(run.log, " Multiplier:      2.500");
    expectLine(run.log, " Positivity flag:    1");
    expectLine(run.log, " Data file: obs.dat");
    expectLine(run.log, " Sensitivity file: g.mtx");
    expectLine(run.log, " Initial Model: 0.01");
    expectLine(run.log, " Reference Model: 0.0");
    expectLine(run.log, " Bounds file: -1,1");
    expectLine(run.log, " Alpha values (s, e, n, z):     0.250000     1.000     2.000     3.000");
    expectLine(run.log, " Weighting file: null");
    expectLine(run.log, " Data offset (added to model to match obs): 0");
    expectLine(run.log, " Maximum number of iterations:    2");
    expectLine(run.log, " Output model every    7 iterations");
    expectLine(run.log, " Inversion Method    1");
}

TEST(ControlFile, OfNineLinesRunsWithDefaults) {
    ControlRun run;
    runWith(run, ControlLines().cutBehind(9));
    EXPECT_EQ(run.result.exitStatus, 0);
    EXPECT_FALSE(contains(run.log, "Weighting"));
    EXPECT_FALSE(contains(run.log, "Maximum number"));
    EXPECT_TRUE(contains(run.log, "Iteration:  300")) << "300 iterations are the default";
    for (const auto& entry : std::filesystem::directory_iterator(run.folder.path())) {
        EXPECT_FALSE(contains(entry.path().filename().string(), "voxlith_iter_")) << entry.path();
    }
    EXPECT_FALSE(std::filesystem::exists(run.folder.file("voxlith_residual.obs")));
    ControlRun spelledOut;
    runWith(spelledOut, ControlLines().set(10, "null").set(11, "null").set(12, "300 0 0"));
    for (const char* name : {"voxlith.den", "voxlith.pre", "voxlith_error.dat"}) {
        EXPECT_EQ(run.folder.read(name), spelledOut.folder.read(name)) << name;
    }
}

TEST(ControlFile, OfJustZeroOnLine1HasOneOfEach) {
    ControlRun run;
    runWith(run, ControlLines().set(1, "0").set(12, "1"));
    EXPECT_EQ(run.result.exitStatus, 0);
    expectLine(run.log, " Data type 1: Gz");
    EXPECT_TRUE(std::filesystem::exists(run.folder.file("voxlith.den")));
}

TEST(ControlFile, TakesNegativeRestartAsNewRun) {
    ControlRun run;
    runWith(run, ControlLines().set(1, "-5 1 1 1").set(12, "1"));
    EXPECT_TRUE(contains(run.log, "VOXLITH version 2.01 started on: "));
    ControlRun zero;
    runWith(zero, ControlLines().set(1, "0 1 1 1").set(12, "1"));
    EXPECT_EQ(run.result.exitStatus, 0) << run.result.errors;
    EXPECT_EQ(withoutTimes(run.result.screen), withoutTimes(zero.result.screen));
    for (const char* name : {"voxlith.aux", "voxlith.den", "voxlith.pre"}) {
        EXPECT_EQ(withoutTimes(run.folder.read(name)), withoutTimes(zero.folder.read(name))) << name;
    }
}

TEST(ControlFile, SetsANegativeRestartToZero) {
    const TemporaryFolder folder;
    writeSurvey(folder, ControlLines().set(1, "-5 1 1 1"));
    const std::filesystem::path before = std::filesystem::current_path();
    std::filesystem::current_path(folder.path());
    ControlValues control;
    control.controlFileName = "voxlith.inp";
    Messages messages;
    readControlFile(messages, currentDateTime(), control);
    std::filesystem::current_path(before);
    EXPECT_EQ(control.iRestart, 0);
    EXPECT_EQ(control.nMtx, 1);
}

TEST(ControlFile, LineOfTextInPlaceOfACountKeepsTheRestAtItsDefaults) {
    ControlRun run;
    runWith(run, ControlLines().set(1, "0 one 2 3").set(12, "1"));
    EXPECT_EQ(run.result.exitStatus, 0) << run.result.errors;
    EXPECT_FALSE(contains(run.log, " Data type 2"));
}

TEST(ControlFile, WithoutReadableRestartGivesTheReadersErrorAndNoLog) {
    for (const char* line : {"", "x 1", "1.5", ",", "/", "! 0"}) {
        ControlRun run;
        runWith(run, ControlLines().set(1, line));
        EXPECT_EQ(run.result.exitStatus, 2) << line;
        EXPECT_TRUE(contains(run.result.errors, "voxlith.inp, line 1: expected the integer iRestart"))
            << run.result.errors;
        EXPECT_FALSE(std::filesystem::exists(run.folder.file("voxlith.log")));
    }
}

TEST(ControlFile, CommentInColumn1EmptiesARequiredLine) {
    ControlRun run;
    runWith(run, ControlLines().set(2, "! 2 0 0"));
    EXPECT_EQ(run.result.exitStatus, 2);
    EXPECT_TRUE(contains(run.result.errors, "voxlith.inp, line 2"));
    EXPECT_TRUE(contains(run.log, "voxlith.inp, line 2")) << "the reader's error stands in the log as well";

    ControlRun noData;
    runWith(noData, ControlLines().set(4, "!obs.dat"));
    EXPECT_EQ(linesOf(noData.log).back(), "Error: the observed data file has not been defined");

    ControlRun noBounds;
    runWith(noBounds, ControlLines().set(8, "!-1,1").set(12, "1"));
    EXPECT_EQ(noBounds.result.exitStatus, 0) << noBounds.result.errors;
    expectLine(noBounds.log, " Bounds file: ");
    EXPECT_TRUE(contains(noBounds.log, " Alpha values (s, e, n, z):     0.001000")) << "line 9 stays line 9";
}

TEST(ControlFile, EndsBeforeLine9WithTheReadersError) {
    for (std::size_t lines = 1; lines < 9; ++lines) {
        ControlRun run;
        runWith(run, ControlLines().cutBehind(lines));
        EXPECT_EQ(run.result.exitStatus, 2) << lines;
        EXPECT_TRUE(contains(run.result.errors, "line " + std::to_string(lines + 1) + ":")) << run.result.errors;
        EXPECT_TRUE(contains(run.result.errors, "end of the file")) << run.result.errors;
    }
}

TEST(ControlFile, BadOptionalFieldsLeaveDefaults) {
    ControlRun run;
    runWith(run, ControlLines().set(2, "2 x 5").set(3, "1.0 0.02 yes 3.0").set(12, "1 two 3"));
    EXPECT_EQ(run.result.exitStatus, 0) << run.result.errors;
    expectLine(run.log, " Background removal: Off");
    expectLine(run.log, " Positivity flag: -999");
    EXPECT_FALSE(contains(run.log, "Integration interval"));
    EXPECT_FALSE(contains(run.log, "Output model every"));
}

TEST(ControlFile, ZeroIterationsAreEchoedAndRunAsThreeHundred) {
    ControlRun run;
    runWith(run, ControlLines().set(12, "0"));
    expectLine(run.log, " Maximum number of iterations:    0");
    EXPECT_TRUE(contains(run.log, "Iteration:  300"));
}

TEST(ControlFile, CutsLinesAt256Characters) {
    ControlRun run;
    runWith(run, ControlLines().set(7, std::string("0.0") + std::string(400, ' ') + "tail").set(12, "1"));
    EXPECT_EQ(run.result.exitStatus, 0) << run.result.errors;
    expectLine(run.log, " Reference Model: 0.0");
}

struct CountCase {
    const char* line;
    const char* message;
    const char* number;
};

TEST(ControlFile, ChecksTheThreeCounts) {
    const CountCase cases[] = {
        {"0 7 1 1", "Error: the number of MTX files must be between 1 and 6. Number specified was:", "   7"},
        {"0 0", "Error: the number of MTX files must be between 1 and 6. Number specified was:", "   0"},
        {"0 1 9", "Error: the number of number of data types must be between 1 and 6. Number specified was:", "   9"},
        {"0 7 1 2 a/b", "Error: the number of MTX files must be between 1 and 6. Number specified was:", "   7"},
        {"0 1 1 7",
         "Error: the number of number of model types must be between 1 and 6. Number specified was:", "   1"}};
    for (const CountCase& one : cases) {
        ControlRun run;
        runWith(run, ControlLines().set(1, one.line));
        EXPECT_EQ(run.result.exitStatus, 0);
        expectLine(run.result.screen, one.message);
        EXPECT_EQ(linesOf(run.log).back(), std::string(one.message) + one.number);
    }
}

TEST(ControlFile, ChecksTheNamesOfFiles) {
    ControlRun blank;
    runWith(blank, ControlLines().set(4, " ! nothing"));
    EXPECT_EQ(blank.result.exitStatus, 0);
    EXPECT_EQ(linesOf(blank.log).back(), "Error: the observed data file has not been defined");
    expectLine(blank.result.screen, "Error: the observed data file has not been defined");

    ControlRun missing;
    runWith(missing, ControlLines().set(4, "null"));
    EXPECT_EQ(linesOf(missing.log).back(), padded("Error: the observed data file does not exist:null", 45 + 256));

    ControlRun noMtx;
    runWith(noMtx, ControlLines().set(1, "0 3 1 1").set(5, "g.mtx|g.mtx"));
    EXPECT_EQ(linesOf(noMtx.log).back(),
              "Error:   3 MTX files have been specified, but only   3 mtx file names are defined");

    ControlRun notThere;
    runWith(notThere, ControlLines().set(5, "other.mtx"));
    EXPECT_EQ(linesOf(notThere.log).back(), "Error: the mtx file does not exist:other.mtx");
}

TEST(ControlFile, CutsSeveralMtxNamesAtBarCommaOrBlank) {
    for (const char* line : {"g.mtx|h.mtx", "g.mtx | h.mtx", "g.mtx,h.mtx", "g.mtx h.mtx"}) {
        ControlRun run;
        writeMtx(run.folder.file("h.mtx"), smallSurveyMtx(2), MtxLayout::tagged);
        run.folder.write("two.dat", smallSurveyObs(2));
        runWith(run, ControlLines().set(1, "0 2").set(4, "two.dat").set(5, line).set(12, "1"));
        EXPECT_EQ(run.result.exitStatus, 0) << line << run.result.errors;
        expectLine(run.log, " Data type 2: Gzz");
        EXPECT_TRUE(contains(run.log, " Sensitivity file    1 : g.mtx")) << run.log;
    }
}

TEST(ControlFile, CutsOneMtxNameAtEachBlank) {
    ControlRun run;
    runWith(run, ControlLines().set(1, "0 3 1 1").set(5, "g.mtx  g.mtx g.mtx"));
    EXPECT_EQ(run.result.exitStatus, 0);
    expectLine(run.log, " Sensitivity file    2 : ");
    expectLine(run.log, " Sensitivity file    3 : g.mtx g.mtx");
    EXPECT_EQ(linesOf(run.log).back(),
              "Error:   3 MTX files have been specified, but only   2 mtx file names are defined");
}

TEST(ControlFile, CutsFourWeightingNamesAtTheFirstThreeBars) {
    ControlRun run;
    runWith(run, ControlLines().set(10, "null|NULL | null|null ! none").set(12, "1"));
    EXPECT_EQ(run.result.exitStatus, 0) << run.result.errors;
    expectLine(run.log, " Weighting file    1 : null");
    expectLine(run.log, " Weighting file    2 : NULL");
    expectLine(run.log, " Weighting file    3 :  null");
    expectLine(run.log, " Weighting file    4 : null");

    ControlRun rest;
    runWith(rest, ControlLines().set(10, "null|null|null|a|b"));
    expectLine(rest.log, " Weighting file    4 : a|b");
    EXPECT_EQ(linesOf(rest.result.screen).back(), " File a|b not found");
}

TEST(ControlFile, NullValuesAndSlashesLeaveOptionalFieldsAsTheyAre) {
    ControlRun run;
    runWith(run, ControlLines().set(2, "2,,1.5").set(3, "1.0 0.02,,0 /").set(12, "1 /"));
    EXPECT_EQ(run.result.exitStatus, 0) << run.result.errors;
    expectLine(run.log, " Background removal: Off");
    expectLine(run.log, " Positivity flag: -999");
    expectLine(run.log, " Output model every    0 iterations");
    expectLine(run.log, " Inversion Method    0");
}

TEST(ControlFile, ReadsLineEndsOfBothKinds) {
    ControlRun run;
    writeSurvey(run.folder, ControlLines().set(12, "1"));
    std::string text;
    for (const char character : run.folder.read("voxlith.inp")) {
        text += character == '\n' ? std::string("\r\n") : std::string(1, character);
    }
    run.folder.write("voxlith.inp", text);
    run.result = runProgram(run.folder, {"voxlith.inp"});
    EXPECT_EQ(run.result.exitStatus, 0) << run.result.errors;
    run.log = run.folder.read("voxlith.log");
    expectLine(run.log, " Data file: obs.dat");
    expectLine(run.log, " Bounds file: null");
    EXPECT_EQ(run.log.find('\r'), std::string::npos);
}

TEST(ControlFile, ChecksTheAlphas) {
    ControlRun negative;
    runWith(negative, ControlLines().set(9, "1 -2 3 4 ! a"));
    EXPECT_EQ(linesOf(negative.log).back(), "Error: the alpha values cannot be negative. Values specified: 1 -2 3 4");
    ControlRun zero;
    runWith(zero, ControlLines().set(9, "0,0 0 0.0"));
    EXPECT_EQ(linesOf(zero.log).back(), "Error: the alpha values cannot all be zero. Values specified: 0,0 0 0.0");
    for (const char* word : {"null", "NULL"}) {
        ControlRun run;
        runWith(run, ControlLines().set(9, word).set(12, "1"));
        expectLine(run.log, " Alpha values (s, e, n, z):     0.000100     1.000     1.000     1.000");
    }
    ControlRun other;
    runWith(other, ControlLines().set(9, "Null"));
    EXPECT_EQ(other.result.exitStatus, 2) << "only null and NULL are the word";
}

TEST(ControlFile, ChecksTheNumberOfDefinitions) {
    const std::string oneModel =
        "Error: the number of mtx product definitions is different to the number of observed data types";
    const std::string manyModels =
        "Error: the number of mtx/model product definitions is different to the number of observed data types";
    ControlRun missing;
    runWith(missing, ControlLines().set(1, "0 2 3 1").set(5, "g.mtx|g.mtx"));
    EXPECT_EQ(linesOf(missing.log).back(), oneModel);
    ControlRun few;
    runWith(few, ControlLines().set(1, "0 2 2 1").set(5, "g.mtx|g.mtx").set(13, "1 1 1 1.0"));
    EXPECT_EQ(linesOf(few.log).back(), oneModel);
    ControlRun models;
    runWith(models, ControlLines().set(1, "0 2 2 2").set(5, "g.mtx|g.mtx").set(13, "1 1 1 1.0"));
    EXPECT_EQ(linesOf(models.log).back(), manyModels);
    expectLine(models.result.screen, manyModels);
}

TEST(ControlFile, EchoesTheCommandLineAfterLine4) {
    ControlRun run;
    runWith(run, ControlLines().set(12, "1"), {"Misfit=(5,0.1)", "Offset=2", "ObsClip=(-1,100)"});
    expectLine(run.log, " Target misfit in obs file will be recalculated - Percent:      5.000 Floor:     0.1000");
    expectLine(run.log, " Data shift to be added to observed data:      2.000");
    expectLine(run.log, " Data limits to be applied to observed data: ");
    expectLine(run.log, "   1    -1.000   100.000");
}

TEST(ControlFile, SwitchesLimitsOffWhereTheMaximumIsNotAbove) {
    ControlRun run;
    runWith(run, ControlLines().set(12, "1"), {"ObsClip=(0,0)"});
    EXPECT_EQ(run.result.exitStatus, 0);
    EXPECT_FALSE(std::filesystem::exists(run.folder.file("voxlith_obs_masked.obs")));
    ControlRun masked;
    runWith(masked, ControlLines().set(12, "1"), {"ObsClip=(0,1.5)"});
    EXPECT_TRUE(std::filesystem::exists(masked.folder.file("voxlith_obs_masked.obs")));
}

TEST(ControlFile, SwitchesLimitsOffForThatDataTypeAlone) {
    ControlRun run;
    writeSurvey(run.folder, ControlLines().set(1, "0 2").set(5, "g.mtx|g.mtx").set(12, "1"));
    std::string obs = "10\n";
    for (int i = 1; i <= 10; ++i) {
        obs += "0 0 0 " + std::to_string(i) + " 1.0 " + std::to_string(i) + " 1.0\n";
    }
    run.folder.write("obs.dat", obs);
    run.result = runProgram(run.folder, {"voxlith.inp", "ObsClip=(0,0,0,4.5)"});
    EXPECT_EQ(run.result.exitStatus, 0) << run.result.errors;
    EXPECT_TRUE(contains(run.result.screen, "                      10          1.00         10.00"));
    EXPECT_TRUE(contains(run.result.screen, "                       4          1.00          4.00"));
}

TEST(ControlFile, TakesAMisfitFloorOfZeroAndEndsWhereItIsMissing) {
    ControlRun run;
    runWith(run, ControlLines().set(12, "1"), {"Misfit=(5,0)"});
    EXPECT_EQ(run.result.exitStatus, 0) << run.result.errors;
    expectLine(run.log, " Target misfit in obs file will be recalculated - Percent:      5.000 Floor:     0.0000");
    ControlRun plain;
    runWith(plain, ControlLines().set(12, "1"));
    EXPECT_NE(run.folder.read("voxlith.den"), plain.folder.read("voxlith.den"));

    ControlRun one;
    runWith(one, ControlLines().set(12, "1"), {"Misfit=(5)"});
    EXPECT_EQ(one.result.exitStatus, 2);
    EXPECT_TRUE(contains(one.result.errors, "Misfit")) << one.result.errors;
    EXPECT_FALSE(std::filesystem::exists(one.folder.file("voxlith.den")));
}

TEST(ControlFile, PassesOverUnknownWordsSilently) {
    ControlRun plain;
    runWith(plain, ControlLines().set(12, "1"));
    ControlRun run;
    runWith(run, ControlLines().set(12, "1"), {"nofast"});
    EXPECT_EQ(run.result.exitStatus, 0);
    EXPECT_EQ(run.result.errors, "");
    EXPECT_EQ(withoutTimes(run.result.screen), withoutTimes(plain.result.screen));
    EXPECT_EQ(withoutTimes(run.log), withoutTimes(plain.log));
}

TEST(ControlFile, EndsWithTheReadersErrorForLimitsThatAreTooFew) {
    ControlRun run;
    runWith(run, ControlLines(), {"ObsClip=(1)"});
    EXPECT_EQ(run.result.exitStatus, 2);
    EXPECT_TRUE(contains(run.result.errors, "ObsClip"));
}

TEST(ControlFile, ModeMinus1AddsTheLineSearchLog) {
    ControlRun run;
    runWith(run, ControlLines().set(2, "-1 0 0").set(12, "1"));
    EXPECT_EQ(run.folder.read("voxlith.lsv"), " VoxLith Line Search Values\n\n");
    EXPECT_TRUE(contains(run.log, " Mode: 2  (fixed multiplier)"));
    ControlRun usual;
    runWith(usual, ControlLines().set(2, "2 0 0").set(12, "1"));
    EXPECT_FALSE(std::filesystem::exists(usual.folder.file("voxlith.lsv")));
    EXPECT_EQ(withoutTimes(run.log), withoutTimes(usual.log)) << "nothing else changes";
    EXPECT_EQ(run.folder.read("voxlith.den"), usual.folder.read("voxlith.den"));
}

TEST(ControlFile, InversionMethod2StandsInTheLogAndChangesNothing) {
    ControlRun plain;
    runWith(plain, ControlLines().set(12, "3 0 0"));
    ControlRun other;
    runWith(other, ControlLines().set(12, "3 0 2"));
    expectLine(other.log, " Inversion Method    2");
    EXPECT_EQ(plain.folder.read("voxlith.den"), other.folder.read("voxlith.den"));
}

TEST(ControlFile, TradeoffOfZeroLeavesTheMultiplier) {
    ControlRun run;
    runWith(run, ControlLines().set(3, "3.5 0 0").set(12, "1"), {"Tradeoff=0"});
    expectLine(run.log, "tradeoff par   :         3.5000");
    ControlRun replaced;
    runWith(replaced, ControlLines().set(3, "3.5 0 0").set(12, "1"), {"Tradeoff=5"});
    expectLine(replaced.log, "tradeoff par   :         5.0000");
}

}  // namespace
}  // namespace voxlith::testing_support
