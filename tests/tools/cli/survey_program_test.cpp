// mesh, obs and init as their user meets them: help, exit status, what stands where.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "support/temporary_folder.h"
#include "tools/cli/program_run.h"

namespace voxlith {
namespace {

using testing_support::Outcome;
using testing_support::runTools;
using testing_support::TemporaryFolder;

TEST(SurveyProgram, helpHasExamples) {
    const TemporaryFolder folder;
    for (const char* command : {"mesh", "obs", "init"}) {
        const Outcome outcome = runTools(folder, std::string(command) + " --help");
        EXPECT_EQ(outcome.status, 0) << command;
        EXPECT_NE(outcome.out.find("Examples:\n  voxlith-tools " + std::string(command)), std::string::npos)
            << outcome.out;
    }
}

TEST(SurveyProgram, fromATableToAControlFile) {
    const TemporaryFolder folder;
    folder.write("s.csv", "east,north,height,gz,err\n0,0,5,1.0,0.1\n100,0,5,1.2,\n0,100,5,,\n100,100,6,0.9,0.1\n");
    const std::string places = "--x east --y north --z height ";
    for (const std::string& arguments :
         {"obs s.csv " + places + "--data gz:err --floor 0.05 --out d.obs",
          "mesh --csv s.csv " + places + "--cell 50,25 --depth 100 --padding-cells 2 --out m.msh",
          std::string("mtx --mesh m.msh --stations d.obs --type gz --out g.mtx"),
          std::string("init --data d.obs --mesh m.msh --mtx g.mtx"),
          std::string("obs d.obs --csv back.csv ") + places}) {
        const Outcome outcome = runTools(folder, arguments);
        EXPECT_EQ(outcome.status, 0) << arguments << "\n" << outcome.errors;
        EXPECT_EQ(outcome.errors, "") << arguments;
        EXPECT_NE(outcome.out, "") << arguments;
    }
    EXPECT_EQ(folder.read("back.csv"),
              "east,north,height,data1,deviation1\n0,0,5,1,0.1\n100,0,5,1.2,0.05\n0,100,5,,\n100,100,6,0.9,0.1\n");
    const std::string command =
        "cd '" + folder.path().string() + "' && '" VOXLITH_PROGRAM "' voxlith.inp >screen.txt 2>&1";
    EXPECT_EQ(std::system(command.c_str()), 0) << folder.read("screen.txt");
    EXPECT_TRUE(std::filesystem::exists(folder.file("voxlith.den")));
}

TEST(SurveyProgram, failuresAreOneLineAndStatusOne) {
    const TemporaryFolder folder;
    folder.write("s.csv", "x,y,z,d\n1,2,3,4\n1,2,3,q\n");
    for (const auto& [arguments, errors] :
         {std::pair{"obs s.csv --data d --out d.obs",
                    "s.csv, line 3: column \"d\": expected a number, or an empty field for a dummy, found \"q\""},
          {"obs s.csv --data d", "expected one of --out and --csv"},
          {"obs s.csv --data nosuch --out d.obs", "--data nosuch: s.csv has no column of that name; it has x, y, z, d"},
          {"obs absent.obs --csv d.csv", "absent.obs: the observed data file cannot be opened"},
          {"mesh --csv s.csv --cell 1 --depth -1 --out m.msh", "--depth: expected a depth above 0"},
          {"mesh --csv s.csv --cell 1 --depth 1 --out no/m.msh",
           "no/m.msh: cannot be created: No such file or directory"},
          {"init --data s.csv --mtx absent.mtx",
           "absent.mtx: the sensitivity file cannot be opened: No such file or directory"}}) {
        const Outcome outcome = runTools(folder, arguments);
        EXPECT_EQ(outcome.status, 1) << arguments;
        EXPECT_EQ(outcome.out, "") << arguments;
        EXPECT_EQ(outcome.errors, "voxlith-tools: " + std::string(errors) + "\n") << arguments;
    }
    for (const char* arguments : {"mesh", "obs", "init", "mesh --cell 1 --depth 1", "obs s.csv --out a --csv b"}) {
        EXPECT_GT(runTools(folder, arguments).status, 1) << arguments;
    }
    // Nothing but the table and what the commands said.
    std::size_t files = 0;
    for (const auto& entry : std::filesystem::directory_iterator(folder.path())) {
        files += entry.path().filename() == "s.csv" || entry.path().extension() == ".txt" ? 0U : 1U;
    }
    EXPECT_EQ(files, 0U);
}

}  // namespace
}  // namespace voxlith
