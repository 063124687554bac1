// Control files written for given data: the program takes them as they stand and fits the data.
#include "cli/init_command.h"

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <sstream>

#include "base/messages.h"
#include "cli/mesh_command.h"
#include "cli/mtx_command.h"
#include "cli/predict_command.h"
#include "forward/survey_mesh.h"
#include "support/temporary_folder.h"

namespace voxlith {
namespace {

using testing_support::TemporaryFolder;

// Stations over a block, from the mesh to the sensitivities, by the tools alone.
class InitCommand : public testing::Test {
protected:
    InitCommand() {
        std::string csv = "x,y,z\n";
        for (int j = 0; j < 9; ++j) {
            for (int i = 0; i < 9; ++i) {
                csv += std::to_string(1000 + 100 * i) + "," + std::to_string(100 * j) + ",250\n";
            }
        }
        MeshOptions mesh;
        mesh.csvFile = folder.write("s.csv", csv);
        mesh.cell = "100,50";
        mesh.depth = 400;
        mesh.paddingCells = 2;
        mesh.outFile = folder.file("mesh.msh");
        geometry = writeMeshFile(mesh).mesh;
        options.meshFile = mesh.outFile;
        options.outFile = folder.file("voxlith.inp");
    }

    // Data of a block of the given property, and their sensitivities.
    void makeData(const std::string& type, double property) {
        std::string model;
        for (const double y : geometry.yCentre) {
            for (const double x : geometry.xCentre) {
                for (const double z : geometry.zCentre) {
                    const double depth = z - geometry.zNode.front();
                    const bool inside =
                        std::abs(x - 1400) < 160 && std::abs(y - 400) < 160 && depth > 50 && depth < 250;
                    model += inside ? std::to_string(property) + "\n" : "0\n";
                }
            }
        }
        SurveyOptions survey;
        survey.meshFile = options.meshFile;
        survey.type = parseDataType(type);
        if (type != "gz") {
            survey.field = InducingField{{65, 10}, 50000};
        }
        std::string stations = "81\n";
        for (int n = 0; n < 81; ++n) {
            stations += std::to_string(1000 + 100 * (n % 9)) + " " + std::to_string(100 * (n / 9)) + " 250\n";
        }
        survey.stationFile = folder.write("stations.obs", stations);
        PredictOptions predict;
        predict.survey = survey;
        predict.model = folder.write("true.mod", model);
        predict.outFile = folder.file("d.obs");
        predict.noise = Noise{2, type == "gz" ? 0.01 : 1.0};
        writePrediction(predict);
        MtxOptions mtx;
        mtx.survey = survey;
        mtx.survey.stationFile = predict.outFile;
        mtx.survey.field.reset();
        mtx.depthWeight = depthWeight;
        mtx.outFile = folder.file("g.mtx");
        writeMtxFile(mtx);
        options.dataFile = "d.obs";
        options.mtxFiles = {"g.mtx"};
    }

    // Gravity of one block and total field of another one, in one data file, and their sensitivities gz.mtx and
    // tmi.mtx.
    void makeTwoKinds(double density, double susceptibility) {
        depthWeight = DepthWeight{40, 3};
        makeData("tmi", susceptibility);
        std::filesystem::rename(folder.file("g.mtx"), folder.file("tmi.mtx"));
        std::istringstream magnetic(folder.read("d.obs"));
        makeData("gz", density);
        std::filesystem::rename(folder.file("g.mtx"), folder.file("gz.mtx"));
        std::istringstream gravity(folder.read("d.obs"));
        std::string gravityLine, magneticLine;
        std::getline(gravity, gravityLine);
        for (int n = 0; n < 3; ++n) {
            std::getline(magnetic, magneticLine);
        }
        std::string joint = "81 2 0 1\n";
        while (std::getline(gravity, gravityLine) && std::getline(magnetic, magneticLine)) {
            std::istringstream words(magneticLine);
            std::string x, y, z, d, s;
            words >> x >> y >> z >> d >> s;
            joint += gravityLine + " " + d + " " + s + "\n";
        }
        folder.write("d.obs", joint);
        options.mtxFiles = {"gz.mtx", "tmi.mtx"};
    }

    // RMS misfit of a component in deviations, from the data and the prediction of a run.
    double misfitOf(int component) {
        std::istringstream observed(folder.read("d.obs")), predicted(folder.read("voxlith.pre"));
        std::string first, second;
        std::getline(observed, first);
        std::getline(predicted, second);
        double sum = 0;
        int records = 0;
        while (std::getline(observed, first) && std::getline(predicted, second)) {
            std::istringstream observedWords(first), predictedWords(second);
            std::vector<double> o(7), p(7);
            for (std::size_t n = 0; n < 7; ++n) {
                observedWords >> o[n];
                predictedWords >> p[n];
            }
            const auto place = static_cast<std::size_t>(3 + 2 * component);
            sum += std::pow((p[place] - o[place]) / o[place + 1], 2);
            ++records;
        }
        EXPECT_EQ(records, 81);
        return std::sqrt(sum / records);
    }

    InitReport write() {
        const std::filesystem::path before = std::filesystem::current_path();
        std::filesystem::current_path(folder.path());
        try {
            const InitReport report = writeControlFile(options);
            std::filesystem::current_path(before);
            return report;
        } catch (...) {
            std::filesystem::current_path(before);
            throw;
        }
    }

    std::string failure() {
        try {
            write();
        } catch (const RunError& error) {
            return error.what();
        }
        return "none";
    }

    // RMS misfits of the iterations.
    std::vector<double> run() {
        const std::string command =
            "cd '" + folder.path().string() + "' && '" VOXLITH_PROGRAM "' voxlith.inp >screen.txt 2>&1";
        const int status = std::system(command.c_str());
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << folder.read("screen.txt");
        std::istringstream aux(folder.read("voxlith.aux"));
        std::string line;
        std::vector<double> misfits;
        while (std::getline(aux, line)) {
            std::istringstream words(line);
            double iteration = 0, misfit = 0;
            if (words >> iteration >> misfit) {
                misfits.push_back(misfit);
            }
        }
        return misfits;
    }

    TemporaryFolder folder;
    MeshGeometry geometry;
    std::optional<DepthWeight> depthWeight;  // of the sensitivities; none: the default of their type
    InitOptions options;
};

TEST_F(InitCommand, gravityDataAreFittedToTheirDeviations) {
    makeData("gz", 0.4);
    const InitReport report = write();
    EXPECT_EQ(report.choices.sign, 0);
    EXPECT_EQ(folder.read("voxlith.inp"), report.text);
    const std::vector<double> misfits = run();
    ASSERT_EQ(misfits.size(), 101U);
    EXPECT_GT(misfits.front(), 5);
    EXPECT_LT(misfits.back(), 1.2);
    EXPECT_GT(misfits.back(), 0.6);
}

TEST_F(InitCommand, magneticDataArePositive) {
    makeData("tmi", 0.05);
    const InitReport report = write();
    EXPECT_EQ(report.choices.sign, 1);
    EXPECT_EQ(report.choices.bounds, "0,1");
    const std::vector<double> misfits = run();
    EXPECT_GT(misfits.front(), 5);
    EXPECT_LT(misfits.back(), 1.2);
    EXPECT_GT(misfits.back(), 0.4);
}

TEST_F(InitCommand, wishesAreKept) {
    makeData("gz", 0.4);
    options.sign = "positive";
    options.overrides.tradeoff = 0.125;
    options.overrides.iterations = 3;
    options.overrides.bounds = "0,0.7";
    const std::string text = write().text;
    EXPECT_NE(text.find("\n0.125 0.02 1 "), std::string::npos) << text;
    EXPECT_NE(text.find("\n0,0.7 "), std::string::npos) << text;
    EXPECT_EQ(run().size(), 4U);
    EXPECT_EQ(failure(), options.outFile + ": there is such a file already; --force replaces it");
    options.force = true;
    EXPECT_EQ(failure(), "none");
}

// What stands behind the lines that are read must not be taken for anything, and each comment must be one.
TEST_F(InitCommand, jointFilesHaveTheirProducts) {
    makeData("gz", 0.4);
    std::string joint;
    std::istringstream records(folder.read("d.obs"));
    std::string line;
    std::getline(records, line);
    joint = "81 2 0 0\n";
    while (std::getline(records, line)) {
        std::istringstream words(line);
        std::string x, y, z, d, s;
        words >> x >> y >> z >> d >> s;
        joint += x + " " + y + " " + z + " " + d + " " + s + " " + d + " " + s + "\n";
    }
    folder.write("d.obs", joint);
    options.mtxFiles = {"g.mtx", "g.mtx"};
    const InitReport report = write();
    EXPECT_NE(report.text.find("\n1 1 1 1.0\n1 2 1 1.0\n"), std::string::npos) << report.text;
    const std::vector<double> misfits = run();
    ASSERT_EQ(misfits.size(), 101U);
    EXPECT_LT(misfits.back(), 1.7);
}

TEST_F(InitCommand, bothOfTwoModelsComeToTheDeviationsOfTheirData) {
    for (const double susceptibility : {0.01, 0.05}) {
        SCOPED_TRACE(susceptibility);
        makeTwoKinds(0.4, susceptibility);
        options.sign = "either";
        options.force = true;
        const InitReport report = write();
        EXPECT_EQ(report.choices.modelTypes, 2);
        ASSERT_EQ(run().size(), 201U);
        for (const int component : {0, 1}) {
            EXPECT_LT(misfitOf(component), 1.3) << component << report.text;
            EXPECT_GT(misfitOf(component), 0.2) << component << report.text;
        }
    }
}

// What is counted in units of f has 1/f^2 of its norm squared.
TEST_F(InitCommand, theFactorOfTheSecondModelIsTheRootOfTheRatioOfTheTradeoffs) {
    makeTwoKinds(0.4, 0.05);
    options.sign = "either";
    const InitReport joint = write();
    EXPECT_NE(joint.text.find("\n1 1 1 1.0\n1 2 2 "), std::string::npos) << joint.text;
    options.force = true;
    options.overrides.tradeoff = 0.5;
    options.overrides.bounds = "-1,2";
    const InitReport asked = write();
    EXPECT_EQ(asked.choices.tradeoff, 0.5);
    EXPECT_EQ(asked.choices.bounds, "-1,2");
    EXPECT_EQ(asked.choices.factor, joint.choices.factor);
    options.overrides.tradeoff = 0;
    makeData("gz", 0.4);
    const double gravity = write().choices.tradeoff;
    makeData("tmi", 0.05);
    const double magnetics = write().choices.tradeoff;
    EXPECT_EQ(joint.choices.tradeoff, gravity);
    EXPECT_NEAR(joint.choices.factor, std::sqrt(gravity / magnetics), 0.1 * joint.choices.factor);
}

// Anomalies of thousands of nT with errors of 1 nT are more than cells of this size can follow: the trade-off that is
// best for them says nothing, and a factor from it would be far from 1.
TEST_F(InitCommand, theFactorBringsModelsToLikeSizeWhereOneDoesNotFit) {
    makeTwoKinds(0.4, 0.3);
    options.sign = "either";
    const InitReport report = write();
    EXPECT_NE(report.text.find("the data of model 2 alone are not fitted"), std::string::npos) << report.text;
    EXPECT_GT(report.choices.factor, 0.3 / 0.4 / 3);
    EXPECT_LT(report.choices.factor, 0.3 / 0.4 * 3);
}

TEST_F(InitCommand, depthWeightsThatDifferAreWarnedOf) {
    makeTwoKinds(0.4, 0.05);
    EXPECT_TRUE(write().warnings.empty());
    const std::string joint = folder.read("d.obs");
    depthWeight = DepthWeight{40, 2};
    makeData("gz", 0.4);
    folder.write("d.obs", joint);
    options.mtxFiles = {"g.mtx", "tmi.mtx"};
    options.force = true;
    const InitReport report = write();
    ASSERT_EQ(report.warnings.size(), 1U);
    EXPECT_NE(report.warnings.front().find("depth weights of g.mtx and tmi.mtx differ"), std::string::npos);
}

TEST_F(InitCommand, boundsOfTwoModelsLeaveRoomForTheLarger) {
    makeTwoKinds(4.0, 0.05);
    options.sign = "positive";
    const InitReport report = write();
    ASSERT_EQ(report.choices.bounds.substr(0, 2), "0,");
    EXPECT_GT(std::stod(report.choices.bounds.substr(2)), 1.5);
    EXPECT_LT(std::stod(report.choices.bounds.substr(2)), 99.0);
}

TEST_F(InitCommand, dataInAnotherUnitOrTurnedOverAreDoubted) {
    makeData("gz", 400.0);
    options.force = true;
    options.sign = "positive";
    std::vector<std::string> warnings = write().warnings;
    ASSERT_EQ(warnings.size(), 1U);
    EXPECT_NE(warnings.front().find("look at the unit of the data"), std::string::npos) << warnings.front();
    makeData("gz", 0.4);
    EXPECT_TRUE(write().warnings.empty());
    options.sign = "negative";
    warnings = write().warnings;
    ASSERT_EQ(warnings.size(), 1U);
    EXPECT_NE(warnings.front().find("are to be negative: look at the sign"), std::string::npos) << warnings.front();
    makeData("gz", -0.4);
    EXPECT_TRUE(write().warnings.empty());
    options.sign = "positive";
    EXPECT_EQ(write().warnings.size(), 1U);
}

TEST_F(InitCommand, whatDoesNotBelongTogetherIsRefused) {
    makeData("gz", 0.4);
    const std::string data = folder.read("d.obs");
    folder.write("d.obs", "81\n" + data.substr(data.find('\n') + 1, 300));
    EXPECT_NE(failure().find("d.obs, line "), std::string::npos) << failure();
    folder.write("d.obs", "1\n1000 0 250 1 1\n");
    EXPECT_EQ(failure(), "d.obs: expected 81 records as in g.mtx, found 1");
    std::string moved = data;
    moved.replace(moved.find("1100.00"), 7, "1150.00");
    folder.write("d.obs", moved);
    EXPECT_EQ(failure(), "d.obs, record 2: expected x 1100 as in g.mtx, found 1150");
    folder.write("d.obs", "60 0 50000\n60 0 1\n" + data);
    EXPECT_NE(failure().find("expected the header of gravity data"), std::string::npos) << failure();
    folder.write("d.obs", data);
    options.meshFile = folder.write("other.msh", "2 2 2\n0 0 0\n2*1\n2*1\n2*1\n");
    EXPECT_NE(failure().find("cells as in g.mtx, found 2 x 2 x 2"), std::string::npos) << failure();
    options.meshFile.clear();
    options.mtxFiles = {"g.mtx", "absent.mtx"};
    EXPECT_NE(failure().find("absent.mtx"), std::string::npos) << failure();
    options.mtxFiles = {"g|.mtx", "absent.mtx"};
    EXPECT_NE(failure().find("expected a name of at most 120 characters"), std::string::npos) << failure();
    options.mtxFiles = {"g.mtx"};
    options.dataFile = "d!.obs";
    EXPECT_NE(failure().find("expected a name of at most 80 characters"), std::string::npos) << failure();
    EXPECT_FALSE(std::filesystem::exists(options.outFile));
}

}  // namespace
}  // namespace voxlith
