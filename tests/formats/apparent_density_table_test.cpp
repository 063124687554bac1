#include "formats/apparent_density_table.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <string>

#include "base/messages.h"
#include "formats/error_table.h"
#include "formats/observed_data.h"
#include "support/work_folder.h"
#include "survey/dummy_value.h"

namespace voxlith {
namespace {

using testing_support::makeMesh;
using testing_support::makeObsSet;

const std::string starField = ",             *";

class ApparentDensityTable : public testing_support::WorkFolderTest {
protected:
    // x nodes 10 to 16, y nodes 20 to 26, irregular; two layers.
    MeshGeometry mesh_ = makeMesh({10, 11, 13, 16}, {20, 22, 23, 26}, {0, 2, 5});

    // The last fields of the rows, one for each point.
    std::vector<std::string> fields(const std::vector<double>& model,
                                    const std::vector<std::array<double, 2>>& points) {
        return fields(mesh_, model, points);
    }

    std::vector<std::string> fields(const MeshGeometry& mesh, const std::vector<double>& model,
                                    const std::vector<std::array<double, 2>>& points) {
        ObsSet obs = makeObsSet(static_cast<std::int32_t>(points.size()), {0});
        for (std::size_t record = 0; record < points.size(); ++record) {
            obs.ObsX[record] = points[record][0];
            obs.ObsY[record] = points[record][1];
        }
        writeApparentDensityTable("voxlith_appden.csv", mesh, model, obs);
        std::vector<std::string> found;
        for (const std::string& line : lines("voxlith_appden.csv")) {
            EXPECT_EQ(line.size(), 49U);
            found.push_back(line.size() < 34 ? "" : line.substr(34));
        }
        found.erase(found.begin());
        return found;
    }

    // A model that is linear in the centres of its cells; the second layer is something else.
    std::vector<double> linearModel(const MeshGeometry& mesh, double constant, double alongX, double alongY) {
        std::vector<double> model(mesh.cellCount(), 777.0);
        for (std::size_t j = 0; j < mesh.yCentre.size(); ++j) {
            for (std::size_t i = 0; i < mesh.xCentre.size(); ++i) {
                model[mesh.cellIndex(0, i, j)] = constant + alongX * mesh.xCentre[i] + alongY * mesh.yCentre[j];
            }
        }
        return model;
    }
};

double valueOf(const std::string& field) {
    return std::stod(field.substr(1));
}

TEST_F(ApparentDensityTable, HeaderAndColumns) {
    ObsSet obs = makeObsSet(2, {0});
    obs.ObsX = {12.0, 1.0};
    obs.ObsY = {22.5, -1234567.891};
    writeApparentDensityTable("t.csv", mesh_, std::vector<double>(18, 0.25), obs);
    EXPECT_EQ(read("t.csv"),
              "       I,           X,           Y,        AppDen\n"
              "       1,       12.00,       22.50,  0.250000E+00\n"
              "       2,        1.00, -1234567.89,             *\n");
}

TEST_F(ApparentDensityTable, FirstNodesBelongToTheMeshAndLastNodesDoNot) {
    const std::vector<std::string> found =
        fields(linearModel(mesh_, 1.0, 0.0, 0.0),
               {{10, 20}, {16, 22}, {12, 26}, {16, 26}, {15.999, 25.999}, {9.999, 22}, {12, 19.999}, {16.001, 22}});
    const std::vector<bool> starred{false, true, true, true, false, true, true, true};
    for (std::size_t point = 0; point < found.size(); ++point) {
        EXPECT_EQ(found[point] == starField, starred[point]) << "point " << point;
    }
}

TEST_F(ApparentDensityTable, LinearModelsAreReproducedEverywhereInTheMesh) {
    for (unsigned seed = 1; seed <= 20; ++seed) {
        std::mt19937 random(seed);
        std::uniform_real_distribution<double> number(-2.0, 2.0);
        std::uniform_real_distribution<double> x(10.0, 16.0);
        std::uniform_real_distribution<double> y(20.0, 26.0);
        const double constant = number(random), alongX = number(random), alongY = number(random);
        std::vector<std::array<double, 2>> points;
        for (int point = 0; point < 50; ++point) {
            points.push_back({x(random), y(random)});
        }
        const std::vector<std::string> found = fields(linearModel(mesh_, constant, alongX, alongY), points);
        for (std::size_t point = 0; point < points.size(); ++point) {
            const double expected = constant + alongX * points[point][0] + alongY * points[point][1];
            // Six digits are written; nothing is clipped beyond the outermost centres.
            EXPECT_NEAR(valueOf(found[point]), expected, 6.0e-6 * std::fabs(expected) + 1.0e-12) << "seed " << seed;
        }
    }
}

TEST_F(ApparentDensityTable, AtACentreTheCellAloneCounts) {
    std::mt19937 random(7);
    std::vector<double> model(mesh_.cellCount());
    std::generate(model.begin(), model.end(), [&] { return static_cast<double>(random() % 1000) / 8.0 + 1.0; });
    std::vector<std::array<double, 2>> points;
    std::vector<double> expected;
    for (std::size_t j = 0; j < 3; ++j) {
        for (std::size_t i = 0; i < 3; ++i) {
            points.push_back({mesh_.xCentre[i], mesh_.yCentre[j]});
            expected.push_back(model[mesh_.cellIndex(0, i, j)]);
        }
    }
    const std::vector<std::string> found = fields(model, points);
    for (std::size_t point = 0; point < points.size(); ++point) {
        EXPECT_NEAR(valueOf(found[point]), expected[point], 6.0e-6 * expected[point]);
    }
}

TEST_F(ApparentDensityTable, ADummyCellHasNoValueAndCountsAsZeroForItsNeighbours) {
    std::vector<double> model = linearModel(mesh_, 4.0, 0.0, 0.0);
    model[mesh_.cellIndex(0, 1, 1)] = dummyValue;
    // Above the dummy; between its centre (12, 22.5) and that of the next cell (14.5, 22.5).
    const std::vector<std::string> found = fields(model, {{12.5, 22.5}, {13.25, 22.5}, {14.5, 22.5}});
    EXPECT_EQ(found[0], starField);
    EXPECT_NEAR(valueOf(found[1]), 2.0, 1e-9);
    EXPECT_NEAR(valueOf(found[2]), 4.0, 1e-9);
}

// Station n is row n of each table and of the data file, masked or not.
TEST_F(ApparentDensityTable, AMaskedDatumKeepsItsRowInBothTablesAndInTheDataFile) {
    ObsSet obs = makeObsSet(3, {0});
    obs.ObsX = {11.5, 12.5, 14.5};
    obs.ObsY = {21.0, 22.5, 24.0};
    obs.obsData = {2.0, dummyValue, 3.0};
    obs.obsStd = {1.0F, 0.0F, 1.0F};
    writeObsFile("d.obs", obs, obs.obsData);
    writeErrorTable(obs);
    writeApparentDensityTable("t.csv", mesh_, std::vector<double>(18, 0.25), obs);
    const std::vector<std::string> records = lines("d.obs");
    const std::vector<std::string> errors = lines("voxlith_error.dat");
    const std::vector<std::string> densities = lines("t.csv");
    ASSERT_EQ(records.size(), 4U);
    ASSERT_EQ(errors.size(), 4U);
    ASSERT_EQ(densities.size(), 4U);
    for (std::size_t row = 1; row <= 3; ++row) {
        EXPECT_EQ(std::stod(records[row].substr(0, 12)), obs.ObsX[row - 1]);
        EXPECT_EQ(std::stod(errors[row].substr(0, 12)), obs.ObsX[row - 1]);
        EXPECT_EQ(std::stoi(densities[row].substr(0, 8)), static_cast<int>(row));
        EXPECT_EQ(std::stod(densities[row].substr(9, 12)), obs.ObsX[row - 1]);
        EXPECT_EQ(densities[row].substr(34), ",  0.250000E+00");
        EXPECT_EQ(errors[row].find('*') != std::string::npos, row == 2);
        EXPECT_EQ(records[row].find('*') != std::string::npos, row == 2);
    }
}

TEST_F(ApparentDensityTable, DownwardNodesGiveStarRows) {
    const MeshGeometry down = makeMesh({10, 11, 13}, {20, 22, 23}, {5, 2, 0});
    EXPECT_EQ(fields(down, std::vector<double>(8, 1.0), {{11.5, 21.5}})[0], starField);
    const MeshGeometry west = makeMesh({13, 11, 10}, {20, 22, 23}, {0, 2, 5});
    EXPECT_EQ(fields(west, std::vector<double>(8, 1.0), {{11.5, 21.5}})[0], starField);
}

TEST_F(ApparentDensityTable, OneCellAxesGiveStarRows) {
    const MeshGeometry narrow = makeMesh({10, 11}, {20, 22, 23}, {0, 2});
    EXPECT_EQ(fields(narrow, std::vector<double>(2, 1.0), {{10.5, 21.5}})[0], starField);
    const MeshGeometry flat = makeMesh({10, 11, 12}, {20, 22}, {0, 2});
    EXPECT_EQ(fields(flat, std::vector<double>(2, 1.0), {{10.5, 21.5}})[0], starField);
}

TEST_F(ApparentDensityTable, OneLayerIsEnough) {
    const MeshGeometry thin = makeMesh({10, 11, 12}, {20, 21, 22}, {0, 2});
    EXPECT_EQ(fields(thin, std::vector<double>(4, 1.5), {{11.0, 21.0}})[0], ",  0.150000E+01");
}

// Two nodes at one height make a first layer without thickness; its centre then lies in the second layer.
TEST_F(ApparentDensityTable, LayersOfNoThicknessInterpolateInZ) {
    const MeshGeometry mesh = makeMesh({0, 1, 2}, {0, 1, 2}, {0, 0, 2, 4});
    std::vector<double> model(mesh.cellCount());
    for (std::size_t cell = 0; cell < model.size(); ++cell) {
        model[cell] = static_cast<double>(cell % 3) + 1.0;  // 1, 2, 3 downwards
    }
    // The point at the centre of layer 1: all weight on it.
    EXPECT_EQ(fields(mesh, model, {{1.0, 1.0}})[0], ",  0.100000E+01");
}

TEST_F(ApparentDensityTable, OnlyTheFirstModelTypeIsUsed) {
    std::vector<double> model = linearModel(mesh_, 2.0, 0.0, 0.0);
    model.resize(2 * mesh_.cellCount(), 99.0);
    EXPECT_EQ(fields(model, {{15.5, 25.5}})[0], ",  0.200000E+01");
}

TEST_F(ApparentDensityTable, StationsThatAreNoNumbersAndModelsFullOfNaNGiveStarRows) {
    const double notANumber = std::nan("");
    const std::vector<double> model(mesh_.cellCount(), 1.0);
    EXPECT_EQ(fields(model, {{notANumber, 22.5}})[0], starField);
    EXPECT_EQ(fields(std::vector<double>(mesh_.cellCount(), notANumber), {{12.0, 22.5}})[0], starField);
}

TEST_F(ApparentDensityTable, AFolderThatIsMissingIsAnError) {
    EXPECT_THROW(writeApparentDensityTable("nowhere/t.csv", mesh_, std::vector<double>(18, 1.0), makeObsSet(1, {0})),
                 RunError);
}

}  // namespace
}  // namespace voxlith
