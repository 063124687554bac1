// The program as its user meets it: arguments, exit status, what stands where.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "support/temporary_folder.h"
#include "tools/cli/program_run.h"

namespace voxlith {
namespace {

using testing_support::Outcome;
using testing_support::runTools;
using testing_support::TemporaryFolder;

std::vector<std::string> labels(const std::string& text) {
    std::vector<std::string> result;
    std::size_t start = 0;
    while (start < text.size()) {
        result.push_back(text.substr(start, text.find(':', start) - start));
        start = text.find('\n', start) + 1;
    }
    return result;
}

void laySurvey(const TemporaryFolder& folder) {
    folder.write("m.msh", "4 3 2\n0 0 0\n4*10\n3*10\n2*10\n");
    folder.write("s.obs", "2\n5 5 1 0 1\n15 25 1 0 1\n");
}

TEST(ToolsProgram, mtxReportsALineEach) {
    const TemporaryFolder folder;
    laySurvey(folder);
    const Outcome outcome = runTools(folder, "mtx --mesh m.msh --stations s.obs --type gz --out g.mtx");
    EXPECT_EQ(outcome.status, 0) << outcome.errors;
    EXPECT_EQ(outcome.errors, "");
    EXPECT_EQ(labels(outcome.out),
              (std::vector<std::string>{"rows", "coefficients kept", "compression", "largest row loss", "mean row loss",
                                        "file size", "time"}));
}

TEST(ToolsProgram, infoTellsTheLayouts) {
    const TemporaryFolder folder;
    laySurvey(folder);
    const std::string common = "--mesh m.msh --stations s.obs --type gz --out g.mtx ";
    for (const auto& [arguments, layout, style] :
         {std::tuple{"", "layout:               tagged form, version 2\n", "0 standard 3D\n"},
          {"--version 1", "layout:               tagged form, version 1\n", "0 standard 3D (by the padded mesh)\n"},
          {"--form bare --layers 1", "layout:               bare form\n", "1 equivalent source (by the padded mesh)\n"},
          {"--form record", "layout:               record form\n", "0 standard 3D (by the padded mesh)\n"},
          {"--style 2", "layout:               tagged form, version 2\n", "2 apparent density\n"}}) {
        ASSERT_EQ(runTools(folder, "mtx " + common + arguments).status, 0) << arguments;
        const Outcome outcome = runTools(folder, "info g.mtx");
        EXPECT_EQ(outcome.status, 0) << outcome.errors;
        EXPECT_NE(outcome.out.find(layout), std::string::npos) << outcome.out;
        EXPECT_NE(outcome.out.find(std::string("inversion style:      ") + style), std::string::npos) << outcome.out;
        EXPECT_NE(outcome.out.find("cells x, y, z:        4 x 3 x 2\n"), std::string::npos) << outcome.out;
        EXPECT_NE(outcome.out.find("z nodes:              0 to 20\n"), std::string::npos) << outcome.out;
    }
}

TEST(ToolsProgram, numbersMayBeNegative) {
    const TemporaryFolder folder;
    laySurvey(folder);
    const Outcome outcome =
        runTools(folder,
                 "predict --mesh m.msh --stations s.obs --type tmi --model -0.01 --field -60,10,50000 "
                 "--direction -55,12 --noise 1,0.1 --seed 3 --out d.obs");
    EXPECT_EQ(outcome.status, 0) << outcome.errors;
    EXPECT_NE(folder.read("d.obs").find("    -55.00     12.00      1     !! aincl, adecl, idir\n"), std::string::npos);
}

TEST(ToolsProgram, failuresAreOneLineAndStatusOne) {
    const TemporaryFolder folder;
    laySurvey(folder);
    folder.write("short.mtx", "VX3D");
    const std::string common = "mtx --mesh m.msh --stations s.obs --out g.mtx ";
    for (const auto& [arguments, errors] :
         {std::pair{
              common + "--type vka",
              "voxlith-tools: --type vka: unknown; known are 0 gz, 1 tmi, 2 gzz, 10 gxx, 11 gyy, 12 gzz, 13 gxy, 14 "
              "gxz, 15 gyz, 20 tx, 21 ty, 22 tz\n"},
          {common + "--type tmi", "voxlith-tools: s.obs: no field line; give --field incl,decl,nT\n"},
          {common + "--type gz --layers 3", "voxlith-tools: --layers 3: the mesh has 2 layers\n"},
          {common + "--type gz --tolerance 1", "voxlith-tools: --tolerance: expected a number from 0 to below 1\n"},
          {std::string("mtx --mesh absent --stations s.obs --out g.mtx --type gz"),
           "voxlith-tools: absent: the mesh file cannot be opened\n"},
          {std::string("mtx --mesh m.msh --stations s.obs --out no/g.mtx --type gz"),
           "voxlith-tools: no/g.mtx: cannot be created: No such file or directory\n"},
          {std::string("predict --mesh m.msh --stations s.obs --type gz --model absent --out d.obs"),
           "voxlith-tools: absent: the model file cannot be opened\n"}}) {
        const Outcome outcome = runTools(folder, arguments);
        EXPECT_EQ(outcome.status, 1) << arguments;
        EXPECT_EQ(outcome.out, "") << arguments;
        EXPECT_EQ(outcome.errors, errors) << arguments;
    }
    const Outcome damaged = runTools(folder, "info short.mtx");
    EXPECT_EQ(damaged.status, 1);
    EXPECT_EQ(damaged.errors.substr(0, 25), "voxlith-tools: short.mtx:");
    EXPECT_EQ(std::count(damaged.errors.begin(), damaged.errors.end(), '\n'), 1);
}

TEST(ToolsProgram, wrongCommandLinesAreNeitherOfBoth) {
    const TemporaryFolder folder;
    for (const char* arguments : {"", "nonsense", "mtx", "info", "predict --seed x", "mtx --taps 5"}) {
        const Outcome outcome = runTools(folder, arguments);
        EXPECT_GT(outcome.status, 1) << arguments;
        EXPECT_NE(outcome.errors, "") << arguments;
    }
}

TEST(ToolsProgram, helpShowsAnExampleOfEachSubcommand) {
    const TemporaryFolder folder;
    const Outcome whole = runTools(folder, "--help");
    EXPECT_EQ(whole.status, 0);
    EXPECT_NE(whole.out.find("voxlith-tools SUBCOMMAND --help"), std::string::npos);
    for (const std::string command : {"mtx", "info", "predict", "mesh", "obs", "init", "bounds", "vtr"}) {
        EXPECT_NE(whole.out.find("\n  " + command + " "), std::string::npos) << command;
        const Outcome help = runTools(folder, command + " --help");
        EXPECT_EQ(help.status, 0) << command;
        EXPECT_NE(help.out.find("\n  voxlith-tools " + command + " "), std::string::npos) << command;
    }
}

TEST(ToolsProgram, theRecordFormWarnsWhereItsNameMisleads) {
    const TemporaryFolder folder;
    laySurvey(folder);
    const std::string common = "mtx --mesh m.msh --stations s.obs --field 60,0,50000 --form record ";
    EXPECT_EQ(runTools(folder, common + "--type gz --out g.mtx").errors, "");
    EXPECT_EQ(runTools(folder, common + "--type tmi --out mag.mtx").errors, "");
    EXPECT_EQ(
        runTools(folder, common + "--type gz --out mag.mtx").errors,
        "voxlith-tools: warning: mag.mtx: the record form holds no data type; by its name the file is read as type 1 "
        "(\"mag\" in the name), not as 0\n");
    EXPECT_EQ(
        runTools(folder, common + "--type gzz --out g.mtx").errors,
        "voxlith-tools: warning: g.mtx: the record form holds no data type; by its name the file is read as type 0 "
        "(no \"mag\" in the name), not as 12\n");
}

}  // namespace
}  // namespace voxlith
