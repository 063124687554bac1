// A survey over a hill: sensitivities of the active cells only, and an inversion that keeps inactive cells fixed.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <sstream>

#include "base/messages.h"
#include "cli/mtx_command.h"
#include "cli/predict_command.h"
#include "forward/number_text.h"
#include "forward/survey_mesh.h"
#include "support/temporary_folder.h"
#include "tools/sensitivity_file.h"

namespace voxlith {
namespace {

using testing_support::SensitivityFile;
using testing_support::TemporaryFolder;

double hill(double x, double y) {
    return 40 + 50 * std::exp(-((x - 90) * (x - 90) + (y - 110) * (y - 110)) / 3000);
}

class Hill : public testing::Test {
protected:
    Hill() {
        options.survey.meshFile = folder.write("m.msh", "8 7 9\n0 0 100\n8*25\n7*30\n4*10 5*15\n");
        std::string stations = "72\n";
        for (int n = 0; n < 72; ++n) {
            const int row = n / 9;
            const double x = 12 + 22 * (n % 9), y = 14 + 25 * row;
            stations += numberText(x) + " " + numberText(y) + " " + numberText(hill(x, y) + 20) + " 0 1\n";
        }
        options.survey.stationFile = folder.write("s.obs", stations);
        options.survey.type = parseDataType("gz");
        options.outFile = folder.file("g.mtx");
        useSurface(hill);
    }

    // Makes this the surface of the survey: its elevations at the columns and stations, as voxlith-tools hands them
    // over.
    void useSurface(const std::function<double(double, double)>& elevation) {
        const MeshGeometry mesh = readSurveyMesh(options.survey.meshFile);
        std::vector<double> values;
        for (const double y : mesh.yCentre) {
            for (const double x : mesh.xCentre) {
                values.push_back(elevation(x, y));
            }
        }
        for (const Station& station : readStationFile(options.survey.stationFile, options.survey.type).stations) {
            values.push_back(elevation(station.point.x, station.point.y));
        }
        options.survey.topographyFile = folder.file("hill.topo");
        options.survey.surfaceFile = folder.write(
            "surface", std::string(reinterpret_cast<const char*>(values.data()), values.size() * sizeof(double)));
    }

    std::string error() {
        try {
            writeMtxFile(options);
        } catch (const RunError& error) {
            return error.what();
        }
        return "";
    }

    static std::vector<double> numbersOf(const std::string& text) {
        std::istringstream in(text);
        std::vector<double> numbers;
        for (double number = 0; in >> number;) {
            numbers.push_back(number);
        }
        return numbers;
    }

    TemporaryFolder folder;
    MtxOptions options;
};

// The sum over the active cells, prism by prism.
std::vector<double> groundPrisms(const Survey& survey, const std::vector<double>& model) {
    const MeshGeometry& mesh = survey.mesh;
    std::vector<double> data;
    for (std::size_t n = 0; n < survey.stations.size(); ++n) {
        double sum = 0;
        for (std::size_t j = 0; j < mesh.yCentre.size(); ++j) {
            for (std::size_t i = 0; i < mesh.xCentre.size(); ++i) {
                for (std::size_t k = 0; k < mesh.zCentre.size(); ++k) {
                    const double above = -mesh.zCentre[k] - hill(mesh.xCentre[i], mesh.yCentre[j]);
                    if (above < 0) {
                        const Prism prism{mesh.xNode[i],     mesh.xNode[i + 1], mesh.yNode[j],
                                          mesh.yNode[j + 1], mesh.zNode[k],     mesh.zNode[k + 1]};
                        sum += model[mesh.cellIndex(k, i, j)] *
                               prismResponse(prism, survey.stations[n].point, weightsOfStation(survey, n));
                    }
                }
            }
        }
        data.push_back(sum);
    }
    return data;
}

TEST_F(Hill, theProductIsTheSumOverTheActiveCells) {
    options.survey.field = InducingField{{60, 5}, 50000};
    for (const char* type : {"gz", "gzz", "tmi"}) {
        for (const MtxForm form : {MtxForm::tagged, MtxForm::bare, MtxForm::record}) {
            options.survey.type = parseDataType(type);
            options.form = form;
            options.tolerance = 0;
            writeMtxFile(options);
            SensitivityFile file(options.outFile);
            std::vector<double> model(file.mesh.cellCount());
            for (std::size_t cell = 0; cell < model.size(); ++cell) {
                model[cell] = std::sin(0.37 * static_cast<double>(cell)) + 0.3;  // in inactive cells, too
            }
            const std::vector<double> product = file.product(file.weighted(model));
            const Survey survey = readSurvey(options.survey);
            const std::vector<double> expected = groundPrisms(survey, model), direct = predictData(survey, model, 1);
            double largest = 0;
            for (const double datum : expected) {
                largest = std::max(largest, std::abs(datum));
            }
            for (std::size_t n = 0; n < product.size(); ++n) {
                EXPECT_NEAR(product[n], expected[n], 2e-6 * largest)
                    << type << " " << static_cast<int>(form) << ", station " << n;
                EXPECT_NEAR(direct[n], expected[n], 1e-9 * largest)
                    << type << " " << static_cast<int>(form) << ", station " << n;
            }
        }
    }
}

TEST_F(Hill, weightsAndDiagonalAreFiniteEverywhere) {
    writeMtxFile(options);
    const SensitivityFile file(options.outFile);
    const Survey survey = readSurvey(options.survey);
    std::size_t inactive = 0;
    for (std::size_t cell = 0; cell < file.mesh.cellCount(); ++cell) {
        const float weight = file.sensitivity.depthWeight[cell];
        EXPECT_TRUE(weight > 0 && weight <= 1) << cell;
        EXPECT_TRUE(file.sensitivity.gtgdiag[cell] > 0 && std::isfinite(file.sensitivity.gtgdiag[cell])) << cell;
        if (survey.ground.isInactive(cell, 9)) {
            ++inactive;
            EXPECT_EQ(weight, 1.0F);
        }
    }
    EXPECT_GT(inactive, 100U);
    EXPECT_LT(inactive, file.mesh.cellCount() - 100);
}

TEST_F(Hill, depthCountsFromTheFirstActiveCell) {
    options.depthWeight = DepthWeight{20, 2};
    writeMtxFile(options);
    const SensitivityFile file(options.outFile);
    const Survey survey = readSurvey(options.survey);
    for (std::size_t cell = 0; cell < file.mesh.cellCount(); ++cell) {
        const auto inactive = static_cast<std::size_t>(survey.ground.inactiveCells[cell / 9]);
        if (cell % 9 >= inactive) {
            const double depth = file.mesh.zCentre[cell % 9] - file.mesh.zNode[inactive];
            EXPECT_FLOAT_EQ(file.sensitivity.depthWeight[cell], static_cast<float>(20 / (20 + depth))) << cell;
        }
    }
}

TEST_F(Hill, aFlatSurfaceAtTheTopChangesNothing) {
    options.survey.topographyFile.clear();
    options.survey.stationFile = folder.write("high.obs", "2\n50 50 103 0 1\n120 80 107 0 1\n");
    writeMtxFile(options);
    const std::string without = folder.read("g.mtx");
    EXPECT_FALSE(std::filesystem::exists(folder.file("g_bounds.txt")));
    useSurface([](double, double) { return 100.0; });
    writeMtxFile(options);
    EXPECT_TRUE(folder.read("g.mtx") == without);
    EXPECT_EQ(numbersOf(folder.read("g_bounds.txt")).size(), 2U * 8 * 7 * 9);
}

TEST_F(Hill, theBoundsFixInactiveCellsAndNoOthers) {
    const std::optional<BoundsPair> byType;
    for (const auto& [type, active, name, lower, upper] : {std::tuple{"gz", byType, "g_bounds.txt", -99.0, 99.0},
                                                           {"gzz", byType, "g_bounds.txt", -99.0, 99.0},
                                                           {"tmi", byType, "g_bounds.txt", 0.0, 99.0},
                                                           {"gz", BoundsPair{-0.5, 0.75}, "own.txt", -0.5, 0.75}}) {
        options.survey.type = parseDataType(type);
        options.survey.field = InducingField{{60, 5}, 50000};
        options.activeBounds = active;
        options.boundsFile = active ? folder.file(name) : "";
        const MtxReport report = writeMtxFile(options);
        EXPECT_EQ(report.boundsFile, folder.file(name));
        const std::vector<double> pairs = numbersOf(folder.read(name));
        const Survey survey = readSurvey(options.survey);
        ASSERT_EQ(pairs.size(), 2 * survey.mesh.cellCount());
        std::int64_t inactive = 0;
        for (std::size_t cell = 0; cell < survey.mesh.cellCount(); ++cell) {
            const bool isInactive = survey.ground.isInactive(cell, 9);
            inactive += isInactive ? 1 : 0;
            EXPECT_EQ(pairs[2 * cell], isInactive ? 0.0 : lower) << cell;
            EXPECT_EQ(pairs[2 * cell + 1], isInactive ? 0.0 : upper) << cell;
        }
        EXPECT_EQ(report.inactiveCells, inactive);
    }
}

TEST_F(Hill, failuresNameTheirCause) {
    const auto expectError = [&](auto change, const std::string& message) {
        const MtxOptions kept = options;
        change();
        EXPECT_EQ(error(), message);
        EXPECT_FALSE(std::filesystem::exists(folder.file("g.mtx")));
        EXPECT_FALSE(std::filesystem::exists(folder.file("g_bounds.txt")));
        options = kept;
    };
    expectError([&] { options.survey.surfaceFile = folder.write("short", "12345678"); },
                folder.file("short") + ": expected 128 numbers of 8 bytes");
    const std::string deep = folder.write("deep.obs", "2\n10 10 200\n110 110 21\n");
    expectError(
        [&] {
            options.survey.stationFile = deep;
            useSurface(hill);
        },
        deep + ": station 2 at x 110, y 110, elevation 21: expected a station on or above the surface, found one " +
            numberText(static_cast<float>(hill(110, 110) - 21)) +
            " below the surface; give --boreholes where that is meant");
    expectError(
        [&] {
            options.survey.stationFile = deep;
            options.survey.boreholes = true;
            options.layers.style = InversionStyle{1};
        },
        "--topography: expected a file of style 0 or 4, found style 1, whose layers begin at the top of the mesh");
    useSurface([](double, double) { return -20.0; });
    expectError([] {},
                options.survey.topographyFile +
                    ": expected a surface within the mesh, elevations -15 to 100, found one below the centres of all "
                    "cells");
    useSurface(hill);
    for (const int style : {1, 2, 3}) {
        expectError([&] { options.layers.style = InversionStyle{style}; },
                    "--topography: expected a file of style 0 or 4, found style " + std::to_string(style) +
                        ", whose layers begin at the top of the mesh");
    }
    expectError([&] { options.outFile = options.survey.stationFile; },
                "--out " + options.survey.stationFile + ": expected another file than that of --stations");
    expectError([&] { options.boundsFile = options.outFile; },
                "--bounds " + options.outFile + ": expected another file than that of --out");
    expectError([&] { options.boundsFile = folder.file("no/b.txt"); },
                folder.file("no/b.txt") + ": cannot be created: No such file or directory");
}

TEST_F(Hill, stationsInsideTheFirstActiveCellAreNamed) {
    options.survey.stationFile = folder.write("on.obs", "2\n12 14 " + numberText(hill(12, 14) + 20) + "\n56 64 68.8\n");
    useSurface(hill);
    const Survey survey = readSurvey(options.survey);
    ASSERT_EQ(survey.warnings.size(), 1U);
    EXPECT_EQ(survey.warnings[0], options.survey.stationFile +
                                      ": 1 of 2 stations are inside the first active cell of their column, the "
                                      "first being station 2 at x 56, y 64, elevation 68.8, as cells whose "
                                      "centre is below the surface reach above it; thinner layers make the part "
                                      "above the station smaller");
}

// Runs of the inversion program on data of a block inside the hill.
class HillRun : public Hill {
protected:
    HillRun() {
        options.activeBounds = BoundsPair{0, 1};
        EXPECT_GT(writeMtxFile(options).inactiveCells, 100);
        survey = readSurvey(options.survey);
        std::string text;
        for (std::size_t cell = 0; cell < survey.mesh.cellCount(); ++cell) {
            const std::size_t k = cell % 9, i = cell / 9 % 8, j = cell / 72;
            text += k >= 3 && k <= 5 && i >= 3 && i <= 4 && j >= 3 && j <= 4 ? "0.5\n" : "0\n";
        }
        PredictOptions predict;
        predict.survey = options.survey;
        predict.model = folder.write("true.den", text);
        predict.outFile = folder.file("obs.dat");
        predict.noise = Noise{1, 0.005};
        writePrediction(predict);
    }

    // Forty iterations; gives the last RMS misfit.
    double run(const std::string& positivity, const std::string& initial, const std::string& alphas) const {
        folder.write("voxlith.inp", "0\n2 0 0\n0.0001 0.02 " + positivity + "\nobs.dat\ng.mtx\n" + initial +
                                        "\n0.0\ng_bounds.txt\n" + alphas + "\nnull\nnull\n40\n");
        const std::string command =
            "cd '" + folder.path().string() + "' && '" VOXLITH_PROGRAM "' voxlith.inp >screen.txt 2>&1";
        EXPECT_EQ(std::system(command.c_str()), 0) << folder.read("screen.txt");
        const std::string table = folder.read("voxlith.aux");
        const std::vector<double> row = numbersOf(table.substr(table.rfind('\n', table.size() - 2)));
        EXPECT_TRUE(row.size() >= 2 && row[0] == 40.0) << table;
        return row.at(1);
    }

    // Every inactive cell has the value, and a body was recovered in active ones.
    void expectInactive(double value) const {
        const std::vector<double> model = numbersOf(folder.read("voxlith.den"));
        ASSERT_EQ(model.size(), survey.mesh.cellCount());
        double largest = 0;
        for (std::size_t cell = 0; cell < model.size(); ++cell) {
            if (survey.ground.isInactive(cell, 9)) {
                EXPECT_EQ(model[cell], value) << cell;
            } else {
                largest = std::max(largest, std::abs(model[cell]));
            }
        }
        EXPECT_GT(largest, 0.1);
    }

    Survey survey;
};

TEST_F(HillRun, inactiveCellsStayAtZeroAndTheDataAreFitted) {
    for (const char* alphas : {"0.001 1. 1. 1.", "0.001 0. 0. 0."}) {
        EXPECT_LT(run("0", "0.0", alphas), 1.2) << alphas;
        expectInactive(0.0);
    }
}

// The barrier of strict positivity is infinite at zero, so such a run starts from a small value, in inactive cells,
// too.
TEST_F(HillRun, strictPositivityKeepsTheInitialValueInInactiveCells) {
    EXPECT_LT(run("2", "0.001", "0.001 1. 1. 1."), 2.0);
    expectInactive(0.001);
}

}  // namespace
}  // namespace voxlith
