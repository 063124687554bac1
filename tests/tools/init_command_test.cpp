// Control files written for given data: the program takes them as they stand and fits the data.
#include "init_command.h"

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <sstream>

#include "mesh_command.h"
#include "mtx_command.h"
#include "predict_command.h"
#include "support/temporary_folder.h"
#include "survey_mesh.h"
#include "text/messages.h"

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
        survey.type = type;
        survey.field = type == "gz" ? "" : "65,10,50000";
        std::string stations = "81\n";
        for (int n = 0; n < 81; ++n) {
            stations += std::to_string(1000 + 100 * (n % 9)) + " " + std::to_string(100 * (n / 9)) + " 250\n";
        }
        survey.stationFile = folder.write("stations.obs", stations);
        PredictOptions predict;
        predict.survey = survey;
        predict.model = folder.write("true.mod", model);
        predict.outFile = folder.file("d.obs");
        predict.noise = type == "gz" ? "2,0.01" : "2,1";
        writePrediction(predict);
        MtxOptions mtx;
        mtx.survey = survey;
        mtx.survey.stationFile = predict.outFile;
        mtx.survey.field.clear();
        mtx.outFile = folder.file("g.mtx");
        writeMtxFile(mtx);
        options.dataFile = "d.obs";
        options.mtxFiles = {"g.mtx"};
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
    options.wishes.tradeoff = 0.125;
    options.wishes.iterations = 3;
    options.wishes.bounds = "0,0.7";
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
    EXPECT_EQ(report.choices.products, (std::vector<std::string>{"1 1 1 1.0", "1 2 1 1.0"}));
    const std::vector<double> misfits = run();
    ASSERT_EQ(misfits.size(), 101U);
    EXPECT_LT(misfits.back(), 1.7);
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
