// The program as its user sees it: arguments, exit status, output and errors.
#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
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

void writeSurvey(const TemporaryFolder& folder) {
    folder.write("m.msh", "4 3 2\n0 0 0\n4*10\n3*10\n2*10\n");
    folder.write("s.obs", "2\n5 5 1 0 1\n15 25 1 0 1\n");
}

TEST(ToolsProgram, mtxReportsOneLinePerItem) {
    const TemporaryFolder folder;
    writeSurvey(folder);
    const Outcome outcome = runTools(folder, "mtx --mesh m.msh --stations s.obs --type gz --out g.mtx");
    EXPECT_EQ(outcome.status, 0) << outcome.errors;
    EXPECT_EQ(outcome.errors, "voxlith-tools: 2 rows, 24 cells, a file of 512 bytes before compression, about 1 s\n");
    EXPECT_EQ(labels(outcome.out),
              (std::vector<std::string>{"rows", "coefficients kept", "compression", "largest row loss", "mean row loss",
                                        "file size", "time"}));
}

TEST(ToolsProgram, numbersMayBeNegative) {
    const TemporaryFolder folder;
    writeSurvey(folder);
    const Outcome outcome =
        runTools(folder,
                 "predict --mesh m.msh --stations s.obs --type tmi --model -0.01 --field -60,10,50000 "
                 "--direction -55,12 --noise 1,0.1 --seed 3 --out d.obs");
    EXPECT_EQ(outcome.status, 0) << outcome.errors;
    EXPECT_NE(folder.read("d.obs").find("    -55.00     12.00      1     !! aincl, adecl, idir\n"), std::string::npos);
}

struct Failure {
    std::string arguments;
    std::string errors;  // without the name of the program and the line end
};

void expectFailures(const TemporaryFolder& folder, int status, const std::vector<Failure>& failures) {
    for (const Failure& failure : failures) {
        const Outcome outcome = runTools(folder, failure.arguments);
        EXPECT_EQ(outcome.status, status) << failure.arguments;
        EXPECT_EQ(outcome.out, "") << failure.arguments;
        EXPECT_EQ(outcome.errors, "voxlith-tools: " + failure.errors + "\n") << failure.arguments;
    }
}

TEST(ToolsProgram, failuresAreOneLineAndStatusOne) {
    const TemporaryFolder folder;
    writeSurvey(folder);
    const std::string common = "mtx --mesh m.msh --stations s.obs --out g.mtx ";
    expectFailures(
        folder, 1,
        {{common + "--type tmi", "s.obs: no field line; give --field incl,decl,nT"},
         {common + "--type gz --layers 3", "--layers 3: the mesh has 2 layers"},
         {common + "--type gz --form bare --style 2",
          "--style 2: only the tagged form, version 2, stores the style; this file would be read as style 1"},
         {"mtx --mesh absent --stations s.obs --out g.mtx --type gz", "absent: the mesh file cannot be opened"},
         {"mtx --mesh m.msh --stations s.obs --out no/g.mtx --type gz",
          "no/g.mtx: cannot be created: No such file or directory"},
         {"predict --mesh m.msh --stations s.obs --type gz --model absent --out d.obs",
          "absent: the model file cannot be opened"}});
}

TEST(ToolsProgram, wrongCommandLinesAreOneLineAndStatusTwo) {
    const TemporaryFolder folder;
    writeSurvey(folder);
    const std::string mtx = "mtx --mesh m.msh --stations s.obs --type gz --out g.mtx ";
    const std::string predict = "predict --mesh m.msh --stations s.obs --type gz --model 1 --out d.obs ";
    expectFailures(
        folder, 2,
        {{"", "A subcommand is required"},
         {"mtx", "--mesh is required"},
         {"predict --seed x", "Could not convert: --seed = x"},
         {"mtx --mesh m.msh --stations s.obs --out g.mtx --type vka",
          "--type vka: unknown; known are 0 gz, 1 tmi, 2 gzz, 10 gxx, 11 gyy, 12 gzz, 13 gxy, 14 gxz, 15 gyz, 20 tx, "
          "21 ty, 22 tz"},
         {mtx + "--taps 5", "--taps: expected one of 4, 6, 8, found 5"},
         {mtx + "--form dense", "--form: expected one of tagged, bare, record, found dense"},
         {mtx + "--version 3", "--version: expected a whole number from 0 to 2, found 3"},
         {mtx + "--tolerance 1", "--tolerance: expected a number from 0 to below 1, found 1"},
         {mtx + "--tolerance nan", "--tolerance: expected a number from 0 to below 1, found nan"},
         {mtx + "--depth-weight 12.5", "--depth-weight 12.5: expected z0,beta or none"},
         {mtx + "--depth-weight 1,2,3", "--depth-weight 1,2,3: expected z0,beta or none"},
         {mtx + "--depth-weight None", "--depth-weight None: expected z0,beta or none"},
         {mtx + "--depth-weight 0,2", "--depth-weight 0,2: expected z0 above 0 and beta not below 0"},
         {mtx + "--depth-weight 1,-2", "--depth-weight 1,-2: expected z0 above 0 and beta not below 0"},
         {mtx + "--field 60,10", "--field 60,10: expected incl,decl,nT"},
         {mtx + "--field 60,10,inf", "--field 60,10,inf: expected incl,decl,nT"},
         {mtx + "--direction a,b", "--direction a,b: expected aincl,adecl"},
         {mtx + "--bounds b.txt", "--bounds requires --topography"},
         {mtx + "--ground-bounds 0,1", "--ground-bounds requires --topography"},
         {mtx + "--topography t.topo --ground-bounds 1,0",
          "--ground-bounds 1,0: expected a lower bound below the upper one (for fixed cells write fixed), found 1,0"},
         {predict + "--noise 2", "--noise 2: expected percent,floor"},
         {predict + "--noise -1,0", "--noise -1,0: expected percent and floor not below 0"},
         {predict + "--noise 1,-1", "--noise 1,-1: expected percent and floor not below 0"},
         {predict + "--noise a,b", "--noise a,b: expected percent,floor"},
         {predict + "--nose 1,1", "--nose: no such option of predict; did you mean --noise?"},
         {mtx + "--ground-bound=0,1", "--ground-bound: no such option of mtx; did you mean --ground-bounds?"},
         {mtx + "--fast", "--fast: no such option of mtx"},
         {mtx + "more", "more: no such option of mtx"},
         {"mtx --mesh m.msh --staions s.obs", "--staions: no such option of mtx; did you mean --stations?"},
         {"predict --modle=1", "--modle: no such option of predict; did you mean --model?"},
         {"mtx-join --forms bare part.mtx", "--forms: no such option of mtx-join; did you mean --form?"},
         {mtx + "--out h.mtx", "--out: given twice"},
         {predict + "--seed 1 --seed 2", "--seed: given twice"}});
}

TEST(ToolsProgram, workIsEstimatedBeforeItStarts) {
    const TemporaryFolder folder;
    writeSurvey(folder);
    const Outcome predicted = runTools(folder, "predict --mesh m.msh --stations s.obs --type gz --model 1 --out d.obs");
    EXPECT_EQ(predicted.errors, "voxlith-tools: 2 stations, 24 cells, a file of 130 bytes, about 1 s\n");
    // The estimate comes before the first row, which finds the disk full.
    folder.write("l.msh", "20 20 10\n0 0 0\n20*10\n20*10\n10*10\n");
    EXPECT_EQ(runTools(folder, "mtx --help >help.txt; ulimit -f 1; '" VOXLITH_TOOLS_PROGRAM
                               "' mtx --mesh l.msh --stations s.obs --type gz --threads 1 --tolerance 0 --out g.mtx")
                  .errors,
              "voxlith-tools: 2 rows, 4000 cells, a file of 262 kB before compression, about 1 s\n"
              "voxlith-tools: g.mtx: cannot be written: File too large\n");
}

TEST(ToolsProgram, outputsAreNotInputs) {
    const TemporaryFolder folder;
    writeSurvey(folder);
    const std::string mtx = "mtx --mesh m.msh --stations s.obs --type gz --topography t.topo --out g.mtx ";
    std::filesystem::create_symlink("s.obs", folder.file("link.obs"));
    expectFailures(folder, 2,
                   {{"mtx --mesh m.msh --stations s.obs --type gz --out ./m.msh",
                     "--out ./m.msh: expected another file than that of --mesh"},
                    {mtx + "--bounds link.obs", "--bounds link.obs: expected another file than that of --stations"},
                    {mtx + "--bounds ./g.mtx", "--bounds ./g.mtx: expected another file than that of --out"},
                    {"mtx-join --mesh m.msh --stations s.obs --type gz --out a/../p.mtx p.mtx",
                     "--out a/../p.mtx: expected another file than that of the parts"},
                    {"predict --mesh m.msh --stations s.obs --type gz --model 1 --out s.obs",
                     "--out s.obs: expected another file than that of --stations"}});
    EXPECT_EQ(folder.read("s.obs"), "2\n5 5 1 0 1\n15 25 1 0 1\n");
}

TEST(ToolsProgram, outputsThatCannotBeWrittenAreFoundBeforeTheWork) {
    const TemporaryFolder folder;
    writeSurvey(folder);
    expectFailures(folder, 1,
                   {{"predict --mesh m.msh --stations s.obs --type gz --model 1 --out no/d.obs",
                     "no/d.obs: cannot be created: No such file or directory"}});
}

TEST(ToolsProgram, controlCharactersOfNamesAreEscaped) {
    const TemporaryFolder folder;
    writeSurvey(folder);
    expectFailures(folder, 1,
                   {{"mtx --mesh \"$(printf 'a\\033[2J\\nb')\" --stations s.obs --type gz --out g.mtx",
                     "a\\x1b[2J\\nb: the mesh file cannot be opened"}});
}

TEST(ToolsProgram, surfacePointsAreColumnsThenStations) {
    const TemporaryFolder folder;
    writeSurvey(folder);
    const Outcome outcome = runTools(
        folder, "mtx --mesh m.msh --stations s.obs --type gz --out g.mtx --topography hill.topo --surface-points");
    ASSERT_EQ(outcome.status, 0) << outcome.errors;
    std::vector<double> numbers(outcome.out.size() / sizeof(double));
    std::memcpy(numbers.data(), outcome.out.data(), outcome.out.size());
    ASSERT_EQ(numbers.size(), 2U * (4 * 3 + 2));
    EXPECT_EQ(std::vector<double>(numbers.begin(), numbers.begin() + 4), (std::vector<double>{5, 5, 15, 5}));
    EXPECT_EQ(std::vector<double>(numbers.end() - 4, numbers.end()), (std::vector<double>{5, 5, 15, 25}));
}

TEST(ToolsProgram, helpShowsAnExampleOfEachSubcommand) {
    const TemporaryFolder folder;
    for (const std::string command : {"mtx", "predict"}) {
        const Outcome help = runTools(folder, command + " --help");
        EXPECT_EQ(help.status, 0) << command;
        EXPECT_NE(help.out.find("\n  voxlith-tools " + command + " "), std::string::npos) << command;
        EXPECT_EQ(help.out.find("--surface"), std::string::npos) << command;
    }
}

TEST(ToolsProgram, theRecordFormWarnsOfANameWithAnotherDataType) {
    const TemporaryFolder folder;
    writeSurvey(folder);
    const std::string common = "mtx --mesh m.msh --stations s.obs --field 60,0,50000 --form record ";
    const std::string estimate = "voxlith-tools: 2 rows, 24 cells, a file of 512 bytes before compression, about 1 s\n";
    EXPECT_EQ(runTools(folder, common + "--type gz --out g.mtx").errors, estimate);
    EXPECT_EQ(runTools(folder, common + "--type tmi --out mag.mtx").errors, estimate);
    EXPECT_EQ(
        runTools(folder, common + "--type gz --out mag.mtx").errors,
        "voxlith-tools: warning: mag.mtx: the record form stores no data type; by its name the file is read as type 1 "
        "(\"mag\" in the name), not as 0\n" +
            estimate);
    EXPECT_EQ(
        runTools(folder, common + "--type gzz --out g.mtx").errors,
        "voxlith-tools: warning: g.mtx: the record form stores no data type; by its name the file is read as type 0 "
        "(no \"mag\" in the name), not as 12\n" +
            estimate);
}

}  // namespace
}  // namespace voxlith
