#include <gtest/gtest.h>
#include <unistd.h>

#include <map>
#include <string>
#include <vector>

#include "support/program_run.h"

namespace voxlith {
namespace {

using namespace testing_support;

std::map<std::string, std::string> contentOf(const TemporaryFolder& folder) {
    std::map<std::string, std::string> content;
    for (const auto& entry : std::filesystem::directory_iterator(folder.path())) {
        content[entry.path().filename().string()] = folder.read(entry.path().filename().string());
    }
    return content;
}

void rename(const TemporaryFolder& folder, const std::string& from, const std::string& to) {
    std::filesystem::rename(folder.path() / from, folder.path() / to);
}

// Runs and expects a refusal that changes no file.
void expectRefusal(const TemporaryFolder& folder, const std::string& controlFile, const std::string& error) {
    const auto before = contentOf(folder);
    const ProgramResult result = runProgram(folder, {controlFile});
    EXPECT_EQ(result.exitStatus, 2);
    EXPECT_EQ(result.errors, error + "\n");
    EXPECT_EQ(contentOf(folder), before) << error;
}

TEST(OverwrittenInputs, dataFileUnderANameOfAnOutput) {
    for (const std::string output :
         {"voxlith.pre", ".voxlith.pre.previous", ".voxlith.rho.previous", "voxlith.log", "voxlith.aux",
          "voxlith_grad.mod", "voxlith_error.dat", "voxlith.den", "voxlith.rho", "voxlith.sus"}) {
        TemporaryFolder folder;
        writeSurvey(folder, ControlLines().set(4, output + " ! data"));
        rename(folder, "obs.dat", output);
        expectRefusal(
            folder, "voxlith.inp",
            "voxlith.inp, line 4: the data file \"" + output + "\" would be overwritten by the output " + output);
    }
}

TEST(OverwrittenInputs, linksLeadToTheSameFile) {
    TemporaryFolder folder;
    writeSurvey(folder);
    rename(folder, "obs.dat", "voxlith.pre");
    ASSERT_EQ(::symlink("voxlith.pre", folder.file("obs.dat").c_str()), 0);
    expectRefusal(folder, "voxlith.inp",
                  "voxlith.inp, line 4: the data file \"obs.dat\" would be overwritten by the output voxlith.pre");
    std::filesystem::remove(folder.file("obs.dat"));
    ASSERT_EQ(::link(folder.file("voxlith.pre").c_str(), folder.file("obs.dat").c_str()), 0);
    expectRefusal(folder, "voxlith.inp",
                  "voxlith.inp, line 4: the data file \"obs.dat\" would be overwritten by the output voxlith.pre");
}

TEST(OverwrittenInputs, sensitivityFile) {
    TemporaryFolder folder;
    writeSurvey(folder, ControlLines().set(5, "voxlith.den"));
    rename(folder, "g.mtx", "voxlith.den");
    expectRefusal(
        folder, "voxlith.inp",
        "voxlith.inp, line 5: the sensitivity file \"voxlith.den\" would be overwritten by the output voxlith.den");
}

TEST(OverwrittenInputs, oneOfSeveralSensitivityFiles) {
    TemporaryFolder folder;
    writeSurvey(folder, ControlLines().set(1, "0 2 2 2 dens susc").set(5, "g.mtx|voxlith_susc.rho"));
    std::filesystem::copy(folder.path() / "g.mtx", folder.path() / "voxlith_susc.rho");
    expectRefusal(folder, "voxlith.inp",
                  "voxlith.inp, line 5: the sensitivity file \"voxlith_susc.rho\" would be overwritten by the output "
                  "voxlith_susc.rho");
}

TEST(OverwrittenInputs, controlFile) {
    TemporaryFolder folder;
    writeSurvey(folder);
    for (const std::string output : {"voxlith.log", "voxlith.aux", "voxlith.pre"}) {
        rename(folder, "voxlith.inp", output);
        expectRefusal(folder, output,
                      "command line: the control file \"" + output + "\" would be overwritten by the output " + output);
        rename(folder, output, "voxlith.inp");
    }
}

TEST(OverwrittenInputs, weightingFile) {
    TemporaryFolder folder;
    writeSurvey(folder, ControlLines().set(10, "null|voxlith.pre|null|null"));
    folder.write("voxlith.pre", "100*1.0\n");
    expectRefusal(
        folder, "voxlith.inp",
        "voxlith.inp, line 10: the weighting file \"voxlith.pre\" would be overwritten by the output voxlith.pre");
}

// Which models a run writes is known when its sensitivity files are read; the log is then open.
TEST(OverwrittenInputs, weightingFileUnderTheNameOfAModel) {
    const std::string weights = "36*1.0\n36*1.0\n36*1.0\n36*1.0\n";
    for (const auto& [name, status] : std::map<std::string, int>{{"voxlith.den", 2},
                                                                 {"voxlith.rho", 2},
                                                                 {"voxlith.sus", 0},
                                                                 {"voxlith_iter_002.den", 2},
                                                                 {"voxlith_iter_003.den", 0},
                                                                 {"voxlith_iter_002.sus", 0},
                                                                 {"voxlith_iter_02.den", 0}}) {
        TemporaryFolder folder;
        writeSurvey(folder, ControlLines().set(10, name).set(12, "3 2"));
        folder.write(name, weights);
        const ProgramResult result = runProgram(folder, {"voxlith.inp"});
        EXPECT_EQ(result.exitStatus, status) << name << result.errors;
        if (status == 2) {
            EXPECT_EQ(result.errors, "voxlith.inp, line 10: the weighting file \"" + name +
                                         "\" would be overwritten by the output " + name + "\n");
            EXPECT_EQ(folder.read(name), weights);
        }
    }
}

TEST(OverwrittenInputs, maskedCopyOfTheDataOnlyWhenOneIsWritten) {
    TemporaryFolder folder;
    writeSurvey(folder, ControlLines().set(4, "voxlith_obs_masked.obs"));
    rename(folder, "obs.dat", "voxlith_obs_masked.obs");
    const std::string data = folder.read("voxlith_obs_masked.obs");
    EXPECT_EQ(runProgram(folder, {"voxlith.inp"}).exitStatus, 0);
    const ProgramResult result = runProgram(folder, {"voxlith.inp", "ObsClip=(1000,2000)"});
    EXPECT_EQ(result.exitStatus, 2);
    EXPECT_EQ(result.errors,
              "voxlith.inp, line 4: the data file \"voxlith_obs_masked.obs\" would be overwritten by the output "
              "voxlith_obs_masked.obs\n");
    EXPECT_EQ(folder.read("voxlith_obs_masked.obs"), data);
}

TEST(OverwrittenInputs, modelsMayHaveNamesOfOutputs) {
    TemporaryFolder folder;
    writeSurvey(folder, ControlLines().set(6, "voxlith.den").set(7, "voxlith.rho"));
    folder.write("voxlith.den", "1000*0.01\n");
    folder.write("voxlith.rho", "1000*0.0\n");
    const ProgramResult result = runProgram(folder, {"voxlith.inp"});
    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_EQ(result.errors, "");
}

TEST(ModelNames, equalLabelsAreWarnedOf) {
    TemporaryFolder folder;
    writeSurvey(folder, ControlLines().set(1, "0 1 1 2 dens dens").set(13, "2 1 1 1.0 1 2 1.0"));
    const ProgramResult result = runProgram(folder, {"voxlith.inp"});
    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_EQ(
        result.errors,
        "warning: voxlith.inp, line 1: model types 1 and 2 have the same label: the model files of the second replace "
        "those of the first\n");
}

}  // namespace
}  // namespace voxlith
