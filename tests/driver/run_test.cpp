// The whole sequence of a run, by running the program.
#include <gtest/gtest.h>

#include "support/program_run.h"

namespace voxlith::testing_support {
namespace {

TEST(Run, LeavesItsFiles) {
    const TemporaryFolder folder;
    writeSurvey(folder);
    const ProgramResult result = runProgram(folder, {"voxlith.inp"});
    EXPECT_EQ(result.exitStatus, 0) << result.errors;
    EXPECT_EQ(result.errors, "");
    for (const char* name : {"voxlith.log", "voxlith.aux", "voxlith.den", "voxlith.rho", "voxlith.pre",
                             "voxlith_error.dat", "voxlith_grad.mod"}) {
        EXPECT_TRUE(std::filesystem::exists(folder.file(name))) << name;
    }
    EXPECT_TRUE(contains(result.screen, "\nInversion completed\n"));
    const std::vector<std::string> log = linesOf(folder.read("voxlith.log"));
    ASSERT_GT(log.size(), 3U);
    EXPECT_TRUE(log[log.size() - 3].starts_with("VOXLITH ended on: "));
    EXPECT_TRUE(log[log.size() - 2].starts_with(" cpu time taken (mins):  "));
    EXPECT_EQ(log[log.size() - 2].size(), 35U);
    EXPECT_TRUE(log[log.size() - 1].starts_with(" clock time taken (mins): "));
}

TEST(Run, RepeatsToTheByte) {
    const TemporaryFolder one;
    const TemporaryFolder two;
    for (const TemporaryFolder* folder : {&one, &two}) {
        writeSurvey(*folder, ControlLines().set(12, "25"));
        ASSERT_EQ(runProgram(*folder, {"voxlith.inp"}).exitStatus, 0);
    }
    for (const char* name : {"voxlith.den", "voxlith.pre", "voxlith_error.dat", "voxlith_grad.mod"}) {
        EXPECT_EQ(one.read(name), two.read(name)) << name;
    }
    EXPECT_EQ(withoutTimes(one.read("voxlith.aux")), withoutTimes(two.read("voxlith.aux")));
}

TEST(Run, OfAPaddedLayerIsAnEquivalentSource) {
    const TemporaryFolder folder;
    writeSurvey(folder, ControlLines().set(12, "2"));
    MtxContents contents = smallMtxContents(10, {3, 4, 10}, {4, 4, 1});
    contents.version = 0;
    writeMtx(folder.file("g.mtx"), contents, MtxLayout::tagged);
    const ProgramResult result = runProgram(folder, {"voxlith.inp"});
    EXPECT_EQ(result.exitStatus, 0) << result.errors;
    EXPECT_TRUE(contains(result.screen, "Inversion Style : Equivalent source"));
    EXPECT_TRUE(std::filesystem::exists(folder.file("voxlith_appden.csv")));
    // Layers 2 to 10 are fixed at the starting value.
    const std::vector<std::string> model = linesOf(folder.read("voxlith.den"));
    ASSERT_EQ(model.size(), 120U);
    int moved = 0;
    for (std::size_t cell = 0; cell < model.size(); ++cell) {
        if (cell % 10 != 0) {
            EXPECT_EQ(model[cell], "  0.100000E-01") << cell;
        } else {
            moved += model[cell] != "  0.100000E-01" ? 1 : 0;
        }
    }
    EXPECT_GT(moved, 0) << "layer 1 is free";
}

TEST(Run, OfTwoModelTypesNamesFilesByTheirLabels) {
    const TemporaryFolder folder;
    writeSurvey(folder, ControlLines().set(1, "0 1 1 2 dens susc").set(12, "1"));
    ASSERT_EQ(runProgram(folder, {"voxlith.inp"}).exitStatus, 0);
    EXPECT_TRUE(std::filesystem::exists(folder.file("voxlith_dens.den")));
    EXPECT_TRUE(std::filesystem::exists(folder.file("voxlith_susc.den")));
    EXPECT_TRUE(std::filesystem::exists(folder.file("voxlith_dens.rho")));
    EXPECT_FALSE(std::filesystem::exists(folder.file("voxlith.den")));

    const TemporaryFolder unnamed;
    writeSurvey(unnamed, ControlLines().set(1, "0 1 1 2").set(12, "1"));
    ASSERT_EQ(runProgram(unnamed, {"voxlith.inp"}).exitStatus, 0);
    EXPECT_TRUE(std::filesystem::exists(unnamed.file("voxlith_01.den")));
    EXPECT_TRUE(std::filesystem::exists(unnamed.file("voxlith_02.den")));
}

TEST(Run, OfMagneticDataEchoesTheFieldAndWritesSusceptibilities) {
    const TemporaryFolder folder;
    writeSurvey(folder, ControlLines().set(3, "0 0").set(12, "1"));
    writeMtx(folder.file("g.mtx"), smallSurveyMtx(1), MtxLayout::tagged);
    folder.write("obs.dat", smallSurveyMagneticObs());
    const ProgramResult result = runProgram(folder, {"voxlith.inp"});
    EXPECT_EQ(result.exitStatus, 0) << result.errors;
    const std::string log = folder.read("voxlith.log");
    EXPECT_TRUE(contains(log, " Field values :    50000.0     60.00     10.00\n")) << log;
    EXPECT_TRUE(contains(log, " Measurement values :  1     60.00     10.00\n"));
    EXPECT_TRUE(contains(log, "tradeoff par   :         1.0000"));
    EXPECT_TRUE(std::filesystem::exists(folder.file("voxlith.sus")));
    EXPECT_TRUE(std::filesystem::exists(folder.file("voxlith.kap")));
}

TEST(Run, WithClosedStandardOutputEndsWithAClearLine) {
    const TemporaryFolder folder;
    writeSurvey(folder);
    const std::string command = "cd '" + folder.path().string() + "' && '" + std::string(VOXLITH_PROGRAM) +
                                "' voxlith.inp >&- 2>errors; echo $? >status";
    ASSERT_EQ(std::system(command.c_str()), 0);
    EXPECT_EQ(folder.read("status"), "2\n");
    EXPECT_TRUE(contains(folder.read("errors"), "standard output")) << folder.read("errors");
}

}  // namespace
}  // namespace voxlith::testing_support
