// What voxlith-run says of product definitions whose results are hardly what a user wants.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/program_run.h"

namespace voxlith {
namespace {

using testing_support::contains;
using testing_support::ControlLines;
using testing_support::ProgramResult;
using testing_support::smallSurveyMtx;
using testing_support::TemporaryFolder;

// A joint survey of the small mesh.
struct Joint {
    std::string counts;    // after the restart flag of line 1
    std::string files;     // line 5
    std::string products;  // lines 13 on
    std::string deviations = "0.1 0.2 0.2";
    double depthScale = 1.0;  // of the depth weight of h.mtx
};

ProgramResult checkOf(const Joint& joint, const std::vector<std::string>& options = {}) {
    const TemporaryFolder folder;
    folder.write("voxlith.inp", ControlLines().set(1, "0 " + joint.counts).set(5, joint.files).text() + joint.products);
    std::string data = "10\n";
    for (int i = 0; i < 10; ++i) {
        data += std::to_string(0.5 * i) + " " + std::to_string(0.25 * i) + " 1.0";
        std::string rest = joint.deviations;
        while (!rest.empty()) {
            const std::size_t end = rest.find(' ');
            data += " " + std::to_string(1.0 + 0.1 * i) + " " + rest.substr(0, end);
            rest = end == std::string::npos ? "" : rest.substr(end + 1);
        }
        data += "\n";
    }
    folder.write("obs.dat", data);
    MtxContents contents = smallSurveyMtx();
    for (std::size_t record = 0; record < contents.stations.size(); ++record) {
        const auto number = static_cast<double>(record);
        contents.stations[record] = {0.5 * number, 0.25 * number, 1.0, 0.0F};
    }
    writeMtx(folder.file("g.mtx"), contents, MtxLayout::tagged);
    for (float& weight : contents.depthWeight) {
        weight *= static_cast<float>(joint.depthScale);
    }
    writeMtx(folder.file("h.mtx"), contents, MtxLayout::tagged);
    std::vector<std::string> arguments{"voxlith.inp", "--check", "--quiet"};
    arguments.insert(arguments.end(), options.begin(), options.end());
    ProgramResult result = testing_support::runProgram(folder, arguments, 0, VOXLITH_RUN_PROGRAM);
    EXPECT_EQ(result.exitStatus, 0) << result.errors;
    return result;
}

TEST(ProductChecks, SayNothingWhereComponentIUsesFileI) {
    EXPECT_EQ(checkOf({"2 2 1", "g.mtx | h.mtx", "1 1 1 1.0\n1 2 1 1.0\n", "0.1 0.2"}).errors, "");
    EXPECT_EQ(checkOf({"3 3 1", "g.mtx | g.mtx | h.mtx", "1 1 1 1.0\n1 2 1 1.0\n1 3 1 1.0\n"}).errors, "");
}

TEST(ProductChecks, NameTheStandardDeviationsThatDivideTheRows) {
    const Joint exchanged{"2 2 1", "g.mtx | h.mtx", "1 2 1 1.0\n1 1 1 1.0\n", "0.1 0.2"};
    EXPECT_EQ(checkOf(exchanged).errors,
              "voxlith-run: warning: voxlith.inp, component 1: the rows of h.mtx (sensitivity file 2) are divided by "
              "the standard "
              "deviations of component 2; expected component i to use only file i, or standard deviations of 1\n"
              "voxlith-run: warning: voxlith.inp, component 2: the rows of g.mtx (sensitivity file 1) are divided by "
              "the standard "
              "deviations of component 1; expected component i to use only file i, or standard deviations of 1\n");
    Joint alike = exchanged;
    alike.deviations = "0.2 0.2";
    EXPECT_EQ(checkOf(alike).errors, "");
    const Joint beyond{"2 1 1", "g.mtx | h.mtx", "2 1 1 1.0 2 1 1.0\n", "0.1"};
    EXPECT_TRUE(contains(checkOf(beyond).errors, "h.mtx (sensitivity file 2) are not divided by standard deviations"));
    Joint amplitude = beyond;
    amplitude.deviations = "1.0";
    EXPECT_EQ(checkOf(amplitude).errors, "");
}

TEST(ProductChecks, NameAProductThatTwoComponentsShare) {
    const Joint shared{"1 2 1", "g.mtx", "1 1 1 1.0\n1 1 1 1.0\n", "0.2 0.2"};
    EXPECT_EQ(checkOf(shared).errors,
              "voxlith-run: warning: voxlith.inp, component 2: g.mtx (sensitivity file 1) with model type 1 is the "
              "product of "
              "component 1, too, and the gradient has the residuals of that component only; expected one file for each "
              "component, or --until-converged\n");
    EXPECT_EQ(checkOf(shared, {"--until-converged"}).errors, "");
}

TEST(ProductChecks, NameDepthWeightsThatDiffer) {
    const Joint third{"3 3 1", "g.mtx | g.mtx | h.mtx", "1 1 1 1.0\n1 2 1 1.0\n1 3 1 1.0\n", "0.1 0.2 0.2", 0.8};
    EXPECT_EQ(
        checkOf(third, {"--until-converged"}).errors,
        "voxlith-run: warning: voxlith.inp: the depth weights of h.mtx (sensitivity file 3) differ from those of file "
        "1 by up "
        "to 20 percent: the model has that of file 1, so predictions from this file are wrong; compute all with "
        "the same --depth-weight\n");
    Joint unused = third;
    unused.products = "1 1 1 1.0\n1 2 1 1.0\n1 3 1 0.0\n";
    EXPECT_EQ(checkOf(unused).errors, "");
}

}  // namespace
}  // namespace voxlith
