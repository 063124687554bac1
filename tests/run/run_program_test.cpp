// voxlith-run as a user starts it: arguments, exit status, and what it leaves.

#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "support/program_run.h"

namespace voxlith {
namespace {

using testing_support::contains;
using testing_support::ControlLines;
using testing_support::linesOf;
using testing_support::ProgramResult;
using testing_support::smallSurveyMtx;
using testing_support::TemporaryFolder;
using testing_support::withoutTimes;
using testing_support::writeSurvey;

ProgramResult runOf(const TemporaryFolder& folder, const std::vector<std::string>& arguments) {
    return testing_support::runProgram(folder, arguments, 0, VOXLITH_RUN_PROGRAM);
}

// The small survey with the same stations in the data and in the sensitivity file.
void writeRunSurvey(const TemporaryFolder& folder, const ControlLines& control = {}) {
    writeSurvey(folder, control);
    MtxContents contents = smallSurveyMtx();
    for (std::size_t record = 0; record < contents.stations.size(); ++record) {
        const auto number = static_cast<double>(record);
        contents.stations[record] = {0.5 * number, 0.25 * number, 1.0, 0.0F};
    }
    writeMtx(folder.file("g.mtx"), contents, MtxLayout::tagged);
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
    writeRunSurvey(plain);
    writeRunSurvey(run);
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
         std::vector<std::vector<std::string>>{{},
                                               {"--nonsense"},
                                               {"voxlith.inp", "Tradof=1"},
                                               {"voxlith.inp", "--per-component"},
                                               {"voxlith.inp", "--model-norm", "compact"},
                                               {"voxlith.inp", "--target-rms", "--model-norm", "sharp"},
                                               {"voxlith.inp", "--target-rms", "0"},
                                               {"voxlith.inp", "--target-rms", "Tradeoff=1"}}) {
        const TemporaryFolder folder;
        writeRunSurvey(folder);
        const std::set<std::string> before = namesIn(folder);
        const ProgramResult result = runOf(folder, arguments);
        EXPECT_EQ(result.exitStatus, 2);
        EXPECT_EQ(linesOf(result.errors).size(), 1U) << result.errors;
        EXPECT_EQ(namesIn(folder), before);
    }
}

TEST(RunProgram, namesAWrongOptionBeforeAMissingOne) {
    const TemporaryFolder folder;
    const ProgramResult result = runOf(folder, {"--contineu"});
    EXPECT_EQ(result.exitStatus, 2);
    EXPECT_EQ(result.errors, "voxlith-run: --contineu: no such option\n");
}

TEST(RunProgram, namesTheControlFilesBesideOneThatIsMissing) {
    const TemporaryFolder folder;
    EXPECT_EQ(runOf(folder, {"absent.inp"}).errors,
              "voxlith-run: absent.inp: expected a control file, found none that can be opened\n");
    folder.write("b.inp", "");
    folder.write("a.inp", "");
    const ProgramResult result = runOf(folder, {"absent.inp", "--check"});
    EXPECT_EQ(result.exitStatus, 2);
    EXPECT_EQ(result.errors,
              "voxlith-run: absent.inp: expected a control file, found none that can be opened; in this folder: a.inp, "
              "b.inp\n");
}

TEST(RunProgram, endsAStopByAMessageWithStatus1) {
    const TemporaryFolder folder;
    writeRunSurvey(folder, ControlLines().set(6, "missing.mod"));
    const ProgramResult result = runOf(folder, {"voxlith.inp"});
    EXPECT_EQ(result.exitStatus, 1);
    EXPECT_EQ(result.errors, "voxlith-run: Model File missing.mod not found\n");
    EXPECT_EQ(result.screen, "");
}

TEST(RunProgram, endsAnUnusableFileWithStatus2) {
    const TemporaryFolder folder;
    writeRunSurvey(folder);
    folder.write("g.mtx", "no sensitivities");
    const ProgramResult result = runOf(folder, {"voxlith.inp"});
    EXPECT_EQ(result.exitStatus, 2);
    EXPECT_TRUE(contains(result.errors, "g.mtx")) << result.errors;
}

// The line of a text that begins with `start`, with `replacement` in its place.
std::string withLine(const std::string& text, std::size_t number, const std::string& replacement) {
    std::string all;
    std::size_t at = 0;
    for (const std::string& line : linesOf(text)) {
        ++at;
        all += (at == number ? replacement : line) + "\n";
    }
    return all;
}

struct ControlRefusal {
    std::size_t line;
    std::string text, message;
};

// What voxlith takes in silence: no file of the folder is touched.
TEST(RunProgram, refusesControlLinesThatDoNotSayWhatTheyMean) {
    const std::string longName(90, 'n');
    const std::vector<ControlRefusal> refusals{
        {1, "0 one", "line 1: expected the integer #MTX, found \"one\""},
        {1, "0 1 1 2 dens dens", "line 1: expected labels of model types that differ in their first 8 characters"},
        {1, "0 1 1 2 densities1 densities2", "line 1: expected labels of model types that differ"},
        {2, "2 no", "line 2: expected the integer iBackground, found \"no\""},
        {2, "2 0.5", "line 2: expected the integer iBackground, found \"0.5\""},
        {3, "1.0 0.02 positive", "line 3: expected the integer positivity flag, found \"positive\""},
        {4, longName, "line 4: expected a name that ends within the first 80 characters"},
        {6, longName, "line 6: expected a name that ends within the first 80 characters"},
        {8, longName, "line 8: expected a name that ends within the first 80 characters"},
        {11, "nowhere.obs", "line 11: expected a data offset, null, or the name of a file that exists"},
        {12, "many", "line 12: expected the integer max iterations, found \"many\""},
        {12, "0", "line 12: expected a number of iterations above 0"},
        {12, "3 x", "line 12: expected the integer output iteration step, found \"x\""},
    };
    for (const ControlRefusal& refusal : refusals) {
        const TemporaryFolder folder;
        writeRunSurvey(folder, ControlLines().set(refusal.line, refusal.text));
        folder.write(longName, "");
        folder.write("voxlith.log", "the log of an earlier run\n");
        const std::set<std::string> before = namesIn(folder);
        const ProgramResult result = runOf(folder, {"voxlith.inp"});
        const bool refused = result.exitStatus == 2 || (refusal.line == 4 && result.exitStatus == 1);
        EXPECT_TRUE(refused) << refusal.text;
        EXPECT_TRUE(contains(result.errors, refusal.message) || refusal.line == 4) << result.errors;
        EXPECT_EQ(namesIn(folder), before);
        EXPECT_EQ(folder.read("voxlith.log"), "the log of an earlier run\n");
    }
}

TEST(RunProgram, showsALineForEachFindingInTheControlFile) {
    const TemporaryFolder folder;
    writeRunSurvey(folder, ControlLines().set(2, "2 no").set(12, "3 x"));
    const std::vector<std::string> lines = linesOf(runOf(folder, {"voxlith.inp"}).errors);
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_EQ(lines[0], "voxlith-run: voxlith.inp, line 2: expected the integer iBackground, found \"no\"");
    EXPECT_EQ(lines[1], "voxlith-run: voxlith.inp, line 12: expected the integer output iteration step, found \"x\"");
}

TEST(RunProgram, refusesDataThatDoNotFitTheSensitivities) {
    const std::string data = testing_support::smallSurveyObs();
    const std::vector<std::pair<std::string, std::string>> refusals{
        {withLine(data, 1, "11"), "obs.dat: expected 10 data, the stations of g.mtx, found the count 11"},
        {withLine(data, 4, "1.1 0.5 1.0 1 0.1"),
         "obs.dat, station 3: expected the position 1 0.5 1 of g.mtx, found 1.1 0.5 1"},
        {withLine(data, 5, "1.5 0.75 1.0 1 -0.1"),
         "obs.dat, line 5: expected a standard deviation of 0 or above, found -0.1"},
        {testing_support::smallSurveyMagneticObs(), "obs.dat"},
    };
    for (const auto& [text, message] : refusals) {
        const TemporaryFolder folder;
        writeRunSurvey(folder);
        folder.write("obs.dat", text);
        const ProgramResult result = runOf(folder, {"voxlith.inp"});
        EXPECT_EQ(result.exitStatus, 2) << message;
        EXPECT_TRUE(contains(result.errors, message)) << result.errors;
    }
}

TEST(RunProgram, refusesReversedBounds) {
    const TemporaryFolder folder;
    writeRunSurvey(folder, ControlLines().set(8, "0.5,0.1"));
    const ProgramResult line = runOf(folder, {"voxlith.inp"});
    EXPECT_EQ(line.exitStatus, 2);
    EXPECT_TRUE(contains(line.errors, "0.5,0.1, cell 1: expected a lower bound of at most the upper one"))
        << line.errors;

    std::string pairs;
    for (int cell = 0; cell < 36; ++cell) {
        pairs += cell == 16 ? "0.3 -0.3\n" : "-1 1\n";
    }
    folder.write("bounds.txt", pairs);
    folder.write("voxlith.inp", ControlLines().set(8, "bounds.txt").text());
    const ProgramResult file = runOf(folder, {"voxlith.inp"});
    EXPECT_EQ(file.exitStatus, 2);
    EXPECT_TRUE(contains(file.errors, "bounds.txt, cell 17: expected a lower bound of at most the upper one"))
        << file.errors;
}

std::string valuesText(int count) {
    std::string text;
    for (int value = 0; value < count; ++value) {
        text += "0.01\n";
    }
    return text;
}

TEST(RunProgram, refusesModelsAndBoundsWithoutAValueForEachCell) {
    for (const std::size_t line : {std::size_t{6}, std::size_t{7}, std::size_t{8}}) {
        const int complete = line == 8 ? 72 : 36;
        const TemporaryFolder folder;
        writeRunSurvey(folder, ControlLines().set(line, "cells.txt"));
        folder.write("cells.txt", valuesText(complete - 1));
        const ProgramResult result = runOf(folder, {"voxlith.inp"});
        EXPECT_EQ(result.exitStatus, 2) << line;
        EXPECT_EQ(result.errors, "voxlith-run: cells.txt: expected " + std::to_string(complete) + " values, found " +
                                     std::to_string(complete - 1) + "\n");
        folder.write("cells.txt", valuesText(complete - 2) + "NaN\n0.01\n");
        EXPECT_EQ(runOf(folder, {"voxlith.inp"}).errors,
                  "voxlith-run: cells.txt: value " + std::to_string(complete - 1) + ": expected a number, found nan\n");
        folder.write("cells.txt", valuesText(complete));
        EXPECT_EQ(runOf(folder, {"voxlith.inp"}).exitStatus, 0) << line;
    }
}

// A power failure may leave a running model empty; the version before is a hidden file.
TEST(RunProgram, continuesFromTheVersionBeforeACutModel) {
    const TemporaryFolder whole;
    const TemporaryFolder damaged;
    for (const TemporaryFolder* folder : {&whole, &damaged}) {
        writeRunSurvey(*folder);
        ASSERT_EQ(runOf(*folder, {"voxlith.inp"}).exitStatus, 0);
        folder->write("voxlith.inp", ControlLines().set(1, "1").text());
    }
    const std::string model = damaged.read("voxlith.rho");
    damaged.write("voxlith.rho", model.substr(0, model.size() / 2));
    const ProgramResult stopped = runOf(damaged, {"voxlith.inp"});
    EXPECT_EQ(stopped.exitStatus, 2);
    EXPECT_EQ(stopped.errors,
              "voxlith-run: voxlith.rho: expected 36 values, found 18; there is no complete version before it\n");

    damaged.write(".voxlith.rho.previous", model);
    const ProgramResult continued = runOf(damaged, {"voxlith.inp"});
    EXPECT_EQ(continued.exitStatus, 0) << continued.errors;
    EXPECT_EQ(continued.errors,
              "voxlith-run: voxlith.rho: expected 36 values, found 18; the run continues from the previous version, "
              ".voxlith.rho.previous\n");
    ASSERT_EQ(runOf(whole, {"voxlith.inp"}).exitStatus, 0);
    EXPECT_EQ(damaged.read("voxlith.den"), whole.read("voxlith.den"));
}

TEST(RunProgram, showsSizesIterationsAndTheEnd) {
    const TemporaryFolder folder;
    writeRunSurvey(folder);
    const ProgramResult result = runOf(folder, {"voxlith.inp"});
    EXPECT_EQ(result.exitStatus, 0) << result.errors;
    EXPECT_EQ(result.screen.find("voxlith.inp\n  data:"), 0U) << result.screen;
    EXPECT_TRUE(contains(result.screen, "\n  Iterations    RMS Misfit")) << result.screen;
    EXPECT_TRUE(contains(result.screen, "\n\nInversion completed after ")) << result.screen;
    EXPECT_FALSE(contains(result.screen, " OH ")) << result.screen;
    EXPECT_TRUE(contains(folder.read("voxlith.log"), " OH calc_grad"));
}

TEST(RunProgram, writesNothingToTheScreenWhenQuiet) {
    const TemporaryFolder folder;
    writeRunSurvey(folder);
    const ProgramResult result = runOf(folder, {"voxlith.inp", "--quiet"});
    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_EQ(result.screen + result.errors, "");
    EXPECT_TRUE(std::filesystem::exists(folder.file("voxlith.den")));

    folder.write("voxlith.inp", ControlLines().set(7, "missing.mod").text());
    const ProgramResult stopped = runOf(folder, {"voxlith.inp", "--quiet"});
    EXPECT_EQ(stopped.exitStatus, 1);
    EXPECT_EQ(stopped.screen, "");
    EXPECT_EQ(stopped.errors, "voxlith-run: Model File missing.mod not found\n");
}

TEST(RunProgram, keepsInputsFromTheJsonLog) {
    const TemporaryFolder folder;
    writeRunSurvey(folder);
    const std::string data = folder.read("obs.dat");
    const ProgramResult result = runOf(folder, {"voxlith.inp", "--json-log", "obs.dat"});
    EXPECT_EQ(result.exitStatus, 2);
    EXPECT_TRUE(contains(result.errors, "obs.dat")) << result.errors;
    EXPECT_EQ(folder.read("obs.dat"), data);
}

TEST(RunProgram, startsFromItsArrangedRowsWithTheSameResults) {
    const TemporaryFolder plain;
    const TemporaryFolder kept;
    writeRunSurvey(plain);
    writeRunSurvey(kept);
    ASSERT_EQ(runOf(plain, {"voxlith.inp"}).exitStatus, 0);
    const ProgramResult first = runOf(kept, {"voxlith.inp", "--keep-arranged"});
    ASSERT_EQ(first.exitStatus, 0) << first.errors;
    EXPECT_EQ(linesOf(first.errors).size(), 1U) << first.errors;
    EXPECT_TRUE(contains(first.errors, "voxlith.arranged: not found")) << first.errors;
    for (const bool fromFile : {false, true}) {
        for (const std::string& name : namesIn(plain)) {
            EXPECT_EQ(withoutTimes(kept.read(name)), withoutTimes(plain.read(name))) << name << fromFile;
        }
        const ProgramResult again = runOf(kept, {"voxlith.inp", "--keep-arranged"});
        EXPECT_EQ(again.exitStatus, 0);
        EXPECT_EQ(again.errors, "") << "taken from the file";
    }
}

TEST(RunProgram, arrangesAnewWhatDoesNotBelongToTheRun) {
    const TemporaryFolder folder;
    writeRunSurvey(folder);
    ASSERT_EQ(runOf(folder, {"voxlith.inp", "--keep-arranged"}).exitStatus, 0);
    const std::string result = folder.read("voxlith.den");
    const std::string whole = folder.read("voxlith.arranged");
    const auto isRefused = [&](const std::string& content, const std::string& reason) {
        folder.write("voxlith.arranged", content);
        const ProgramResult again = runOf(folder, {"voxlith.inp", "--keep-arranged"});
        EXPECT_EQ(again.exitStatus, 0) << again.errors;
        EXPECT_TRUE(contains(again.errors, reason)) << again.errors;
        EXPECT_EQ(folder.read("voxlith.den"), result);
        EXPECT_EQ(folder.read("voxlith.arranged"), whole) << "renewed";
    };
    for (std::size_t length = 0; length < whole.size(); length += 97) {
        isRefused(whole.substr(0, length), "voxlith.arranged: ");
    }
    for (std::size_t at = 0; at < whole.size(); at += 61) {
        std::string damaged = whole;
        damaged[at] = static_cast<char>(damaged[at] ^ 0x10);
        isRefused(damaged, "voxlith.arranged: ");
    }
    isRefused(whole + "x", "damaged");
    // The same counts and lengths of rows, computed anew.
    std::string rows = folder.read("g.mtx");
    folder.write("g.mtx", rows);
    const ProgramResult other = runOf(folder, {"voxlith.inp", "--keep-arranged"});
    EXPECT_TRUE(contains(other.errors, "made from other sensitivity files")) << other.errors;
    EXPECT_EQ(runOf(folder, {"voxlith.inp", "--keep-arranged", "Misfit=(7,0.1)"}).exitStatus, 0);
}

TEST(RunProgram, refusesABackgroundThatCannotBeFitted) {
    for (const bool varies : {true, false}) {
        const TemporaryFolder folder;
        writeRunSurvey(folder, ControlLines().set(2, "0 1 0"));
        MtxContents contents = smallSurveyMtx();
        for (std::size_t n = 0; n < contents.layerResponse.size(); ++n) {
            contents.layerResponse[n] = varies ? 0.5 + 0.01 * static_cast<double>(n) : 0.0;
        }
        for (std::size_t record = 0; record < contents.stations.size(); ++record) {
            const auto number = static_cast<double>(record);
            contents.stations[record] = {0.5 * number, 0.25 * number, 1.0, 0.0F};
        }
        writeMtx(folder.file("g.mtx"), contents, MtxLayout::tagged);
        const ProgramResult result = runOf(folder, {"voxlith.inp", "--check"});
        EXPECT_EQ(result.exitStatus, varies ? 0 : 2) << result.errors;
        EXPECT_EQ(contains(result.errors, "line 2: the background cannot be fitted"), !varies) << result.errors;
    }
}

TEST(RunProgram, keepsInputsFromTheArrangedRows) {
    const TemporaryFolder folder;
    writeRunSurvey(folder, ControlLines().set(4, "voxlith.arranged"));
    folder.write("voxlith.arranged", folder.read("obs.dat"));
    const ProgramResult result = runOf(folder, {"voxlith.inp", "--keep-arranged"});
    EXPECT_EQ(result.exitStatus, 2);
    EXPECT_EQ(folder.read("voxlith.arranged"), folder.read("obs.dat"));
}

TEST(RunProgram, writesAJsonObjectForEachIteration) {
    const TemporaryFolder folder;
    writeRunSurvey(folder);
    ASSERT_EQ(runOf(folder, {"voxlith.inp", "--json-log", "run.jsonl"}).exitStatus, 0);
    const std::vector<std::string> lines = linesOf(folder.read("run.jsonl"));
    ASSERT_EQ(lines.size(), 4U);
    const std::vector<std::string> table = linesOf(folder.read("voxlith.aux"));
    for (std::size_t row = 0; row < lines.size(); ++row) {
        const nlohmann::json object = nlohmann::json::parse(lines[row]);
        EXPECT_EQ(object["iteration"], row);
        EXPECT_EQ(object["step"], row == 0 ? "start" : "optimiser");
        const double misfit = std::stod(table[3 + row].substr(12, 14));
        EXPECT_NEAR(object["rms_misfit"].get<double>(), misfit, 1e-4);
        EXPECT_NEAR(object["phi_d"].get<double>(), std::pow(object["rms_misfit"].get<double>(), 2), 1e-9);
    }
}

TEST(RunProgram, checksWithoutWriting) {
    const TemporaryFolder folder;
    writeRunSurvey(folder);
    const std::set<std::string> before = namesIn(folder);
    const ProgramResult result = runOf(folder, {"voxlith.inp", "--check", "ObsClip=(-10,0.5)"});
    EXPECT_EQ(result.exitStatus, 0) << result.errors;
    EXPECT_EQ(namesIn(folder), before);
    EXPECT_TRUE(contains(result.screen, "voxlith.inp: everything can be read\n")) << result.screen;
    EXPECT_TRUE(contains(result.screen, "data:             10 stations, 1 component\n")) << result.screen;
    EXPECT_TRUE(contains(result.screen, "model:            36 cells (4 x 3 x 3), 1 model type\n")) << result.screen;
    EXPECT_TRUE(contains(result.screen, "3 iterations:     about ")) << result.screen;

    const ProgramResult converged = runOf(folder, {"voxlith.inp", "--check", "--target-rms"});
    EXPECT_EQ(converged.exitStatus, 0) << converged.errors;
    EXPECT_EQ(namesIn(folder), before);
    EXPECT_TRUE(contains(converged.screen, "products:         typically 30 to 120, about ")) << converged.screen;
    EXPECT_FALSE(contains(converged.screen, "iteration")) << converged.screen;
    const ProgramResult single = runOf(folder, {"voxlith.inp", "--check", "--target-rms", "--per-component"});
    EXPECT_EQ(single.exitStatus, 2);
    EXPECT_EQ(single.errors, "voxlith-run: --per-component: the data have one component\n");

    folder.write("voxlith.inp", ControlLines().set(6, "missing.mod").text());
    const ProgramResult stopped = runOf(folder, {"voxlith.inp", "--check"});
    EXPECT_EQ(stopped.exitStatus, 1);
    EXPECT_EQ(stopped.errors, "voxlith-run: Model File missing.mod not found\n");
    EXPECT_EQ(namesIn(folder), before);
}

TEST(RunProgram, refusesADamagedCheckpoint) {
    const TemporaryFolder folder;
    writeRunSurvey(folder);
    folder.write("voxlith.checkpoint", "VOXLITHC and nothing that was written");
    const ProgramResult damaged = runOf(folder, {"voxlith.inp", "--continue"});
    EXPECT_EQ(damaged.exitStatus, 2);
    EXPECT_TRUE(contains(damaged.errors, "voxlith.checkpoint: the file is damaged")) << damaged.errors;
}

}  // namespace
}  // namespace voxlith
