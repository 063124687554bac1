// Sensitivity files of all forms and styles, read back by the inversion program's own reader and compared with the
// prisms.
#include "cli/mtx_command.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <filesystem>
#include <random>

#include "base/messages.h"
#include "cli/predict_command.h"
#include "support/temporary_folder.h"
#include "tools/sensitivity_file.h"

namespace voxlith {
namespace {

using testing_support::SensitivityFile;
using testing_support::TemporaryFolder;

constexpr const char* meshText = "11 6 7\n1000 2000 50\n3*20 8*10\n2*25 4*15\n2*5 5*10\n";

// A mesh of 11 x 6 x 7 cells and 12 stations above it, one of them on a node of its top.
class MtxCommand : public testing::Test {
protected:
    MtxCommand() {
        options.survey.meshFile = folder.write("m.msh", meshText);
        options.survey.stationFile = folder.write("s.obs", stations(""));
        options.survey.type = parseDataType("gz");
        options.outFile = folder.file("g.mtx");
    }

    static std::string stations(const std::string& head) {
        std::string text = head + "12\n";
        for (int n = 0; n < 11; ++n) {
            text += std::to_string(1003 + 12 * n) + " " + std::to_string(2001 + 37 * n % 110) + " 55 0 1\n";
        }
        return text + "1020 2025 50 0 1\n";
    }

    // Data of a model by the prisms.
    std::vector<double> byPrisms(const std::vector<double>& model) const {
        return predictData(readSurvey(options.survey), model, 1);
    }

    // The largest difference that the dropped coefficients allow: loss times norm of the row times norm of the weighted
    // model.
    static double allowedError(const std::vector<double>& weightedModel, double rowNorm, double tolerance) {
        double sum = 0;
        for (const double value : weightedModel) {
            sum += value * value;
        }
        return (tolerance + 1e-6) * rowNorm * std::sqrt(sum);
    }

    // Norm of the weighted row of each station.
    std::vector<double> rowNorms(const SensitivityFile& file) const {
        const Survey survey = readSurvey(options.survey);
        PrismWork work;
        std::vector<double> cells(survey.mesh.cellCount()), norms;
        for (std::size_t n = 0; n < survey.stations.size(); ++n) {
            meshResponses(survey.mesh, survey.stations[n].point, weightsOfStation(survey, n), survey.edgeDistance, work,
                          cells);
            double sum = 0;
            for (std::size_t cell = 0; cell < cells.size(); ++cell) {
                sum += std::pow(cells[cell] / static_cast<double>(file.sensitivity.depthWeight[cell]), 2);
            }
            norms.push_back(std::sqrt(sum));
        }
        return norms;
    }

    void expectPrediction(SensitivityFile& file, const std::vector<double>& model, double tolerance) const {
        const std::vector<double> weighted = file.weighted(model);
        const std::vector<double> product = file.product(weighted);
        const std::vector<double> expected = byPrisms(model);
        const std::vector<double> norms = rowNorms(file);
        ASSERT_EQ(product.size(), expected.size());
        for (std::size_t n = 0; n < product.size(); ++n) {
            EXPECT_NEAR(product[n], expected[n], allowedError(weighted, norms[n], tolerance)) << "station " << n;
        }
    }

    TemporaryFolder folder;
    MtxOptions options;
};

std::vector<double> randomModel(std::size_t cells, unsigned seed) {
    std::mt19937 generator(seed);
    std::normal_distribution<double> normal;
    std::vector<double> model(cells);
    for (double& value : model) {
        value = normal(generator);
    }
    return model;
}

TEST_F(MtxCommand, eachFormAndVersionAgreesWithThePrisms) {
    for (const auto& [form, version] : {std::pair{MtxForm::tagged, 0},
                                        {MtxForm::tagged, 1},
                                        {MtxForm::tagged, 2},
                                        {MtxForm::bare, 2},
                                        {MtxForm::record, 2}}) {
        options.form = form;
        options.version = version;
        writeMtxFile(options);
        SensitivityFile file(options.outFile);
        EXPECT_EQ(file.sensitivity.files[0].header.form, form);
        EXPECT_EQ(file.sensitivity.header.inversionStyle, InversionStyle::standard);
        expectPrediction(file, std::vector<double>(462, 1.0), 0.01);
        expectPrediction(file, randomModel(462, 4), 0.01);
    }
}

TEST_F(MtxCommand, everyTypeAndFilter) {
    options.survey.field = InducingField{{-60, 15}, 48000};
    options.survey.direction = FieldDirection{-50, 10};
    for (const char* type : {"gz", "gxx", "gyy", "gzz", "2", "gxy", "gxz", "gyz", "tmi", "tx", "ty", "tz"}) {
        for (const int taps : {4, 6, 8}) {
            options.survey.type = parseDataType(type);
            options.taps = taps;
            options.tolerance = 1e-3;
            const MtxReport report = writeMtxFile(options);
            EXPECT_LE(report.statistics.largestLoss, 1e-3);
            EXPECT_LE(report.statistics.meanLoss, report.statistics.largestLoss);
            SensitivityFile file(options.outFile);
            EXPECT_EQ(file.sensitivity.header.dataType[0], parseDataType(type));
            EXPECT_EQ(file.sensitivity.filter.coefLow.size(), static_cast<std::size_t>(taps));
            expectPrediction(file, randomModel(462, 8), 1e-3);
        }
    }
}

TEST_F(MtxCommand, headerOfTheTaggedForm) {
    options.survey.type = parseDataType("tmi");
    options.survey.stationFile = folder.write("s.mag", stations("-60 15 48000\n-50 10 1\n"));
    options.depthWeight = DepthWeight{12.5, 2.5};
    const MtxReport report = writeMtxFile(options);
    const SensitivityFile file(options.outFile);
    EXPECT_EQ(report.rows, 12);
    EXPECT_EQ(report.fileSize, static_cast<std::int64_t>(std::filesystem::file_size(options.outFile)));
    EXPECT_EQ(report.statistics.coefficients, file.sensitivity.header.coefficientCount[0]);
    EXPECT_EQ(file.sensitivity.header.version, 2);
    EXPECT_EQ(file.obs.geomag, 48000.0F);
    EXPECT_EQ(file.obs.incl, -60.0F);
    EXPECT_EQ(file.obs.decl, 15.0F);
    EXPECT_EQ(file.obs.aincl, -50.0F);
    EXPECT_EQ(file.obs.adecl, 10.0F);
    EXPECT_EQ(file.obs.idir, 1);
    EXPECT_EQ(file.obs.ObsX[11], 1020.0);
    EXPECT_EQ(file.obs.ObsY[11], 2025.0);
    EXPECT_EQ(file.obs.ObsZ[11], 50.0);
    EXPECT_EQ(file.sensitivity.header.weightParamA[0], 12.5F);
    EXPECT_EQ(file.sensitivity.header.weightParamB[0], 2.5F);
    EXPECT_EQ(file.mesh.nx, 11);
    EXPECT_EQ(file.mesh.ny, 6);
    EXPECT_EQ(file.mesh.nz, 7);
    EXPECT_EQ(file.mesh.npx, 16);
    EXPECT_EQ(file.mesh.npy, 8);
    EXPECT_EQ(file.mesh.npz, 8);
    EXPECT_EQ(file.mesh.xNode.back(), 1140.0);
    EXPECT_EQ(file.mesh.yNode.back(), 2110.0);
    EXPECT_EQ(file.mesh.zNode.front(), -50.0);
    EXPECT_EQ(file.mesh.zNode.back(), 10.0);
}

TEST_F(MtxCommand, theDiagonalIsThatOfTheStoredRows) {
    for (const std::int32_t layers : {0, 2}) {
        options.layers.layers = layers;
        options.tolerance = 0.2;
        options.form = MtxForm::tagged;
        writeMtxFile(options);
        const SensitivityFile tagged(options.outFile);
        options.form = MtxForm::record;
        writeMtxFile(options);
        const SensitivityFile record(options.outFile);  // its diagonal is computed by the reader
        for (std::size_t cell = 0; cell < tagged.mesh.cellCount(); ++cell) {
            const double expected = record.sensitivity.gtgdiag[cell];
            EXPECT_NEAR(tagged.sensitivity.gtgdiag[cell], expected, 1e-12 * expected) << "cell " << cell;
        }
    }
}

TEST_F(MtxCommand, layerResponsesAddUpToTheWholeMesh) {
    for (const std::int32_t style : {0, 1, 2, 3, 4}) {
        options.layers.style = InversionStyle{style};
        writeMtxFile(options);
        const SensitivityFile file(options.outFile);
        EXPECT_EQ(file.sensitivity.header.inversionStyle, InversionStyle{style});
        const auto nzl = static_cast<std::size_t>(file.mesh.nzl);
        for (std::size_t slot = 0; slot <= nzl; ++slot) {
            std::vector<double> model(462, 0.0);
            for (std::size_t cell = 0; cell < model.size(); ++cell) {
                model[cell] = slot == nzl || cell % 7 == slot ? 1.0 : 0.0;
            }
            const std::vector<double> expected = byPrisms(model);
            for (std::size_t n = 0; n < expected.size(); ++n) {
                EXPECT_NEAR(file.sensitivity.layerResponse[n * (nzl + 1) + slot], expected[n], 1e-12)
                    << "style " << style << ", slot " << slot << ", station " << n;
            }
        }
    }
}

// The model that the inversion program writes for a surface style must have the response that it fitted.
TEST_F(MtxCommand, surfaceStylesFitTheModelThatIsWritten) {
    const std::vector<double> surface = randomModel(66, 21), below = randomModel(66, 22);
    for (const std::int32_t style : {1, 2, 3}) {
        options.layers.style = InversionStyle{style};
        options.tolerance = 0;
        writeMtxFile(options);
        SensitivityFile file(options.outFile);
        EXPECT_EQ(file.mesh.npz, style == 3 ? 2 : 1);
        std::vector<double> inverted(462, 0.0), written(462, 0.0);
        for (std::size_t column = 0; column < 66; ++column) {
            inverted[7 * column] = written[7 * column] = surface[column];
            inverted[7 * column + 1] = style == 3 ? below[column] : 0.0;
            for (std::size_t k = 1; k < 7; ++k) {
                written[7 * column + k] = style == 1 ? 0.0 : style == 2 ? surface[column] : below[column];
            }
        }
        const std::vector<double> product = file.product(file.weighted(inverted));
        const std::vector<double> expected = byPrisms(written);
        for (std::size_t n = 0; n < product.size(); ++n) {
            EXPECT_NEAR(product[n], expected[n], 1e-6) << "style " << style << ", station " << n;
        }
    }
}

TEST_F(MtxCommand, theFileDoesNotDependOnTheNumberOfThreads) {
    options.survey.threads = 1;
    writeMtxFile(options);
    const std::string one = folder.read("g.mtx");
    for (const std::size_t threads : {2U, 5U, 40U}) {
        options.survey.threads = threads;
        writeMtxFile(options);
        EXPECT_TRUE(folder.read("g.mtx") == one) << threads << " threads";
    }
}

TEST_F(MtxCommand, rowsOfZerosKeepACoefficient) {
    options.survey.type = parseDataType("tmi");
    options.survey.field = InducingField{{0, 0}, 1e-300};
    writeMtxFile(options);
    const SensitivityFile file(options.outFile);
    ASSERT_EQ(file.rows.size(), 12U);
    for (const SensitivityFile::Row& row : file.rows) {
        EXPECT_GE(row.coefIndex.size(), 1U);
    }
}

TEST_F(MtxCommand, downholeStationsAreMeasuredAlongTheirOwnDirections) {
    options.survey.type = parseDataType("tmi");
    options.survey.stationFile =
        folder.write("d.mag", "60 5 50000\n60 5 0\n2\n1003 2001 55 90 0 0 1\n1003 2001 55 0 90 0 1\n");
    options.tolerance = 0;
    writeMtxFile(options);
    SensitivityFile file(options.outFile);
    EXPECT_EQ(file.obs.idir, 0);
    const std::vector<double> model = randomModel(462, 2);
    const std::vector<double> product = file.product(file.weighted(model));
    options.survey.field = InducingField{{60, 5}, 50000};
    options.survey.type = parseDataType("tz");
    EXPECT_NEAR(product[0], byPrisms(model)[0], 1e-3 * std::abs(product[0]));
    options.survey.type = parseDataType("tx");
    EXPECT_NEAR(product[1], byPrisms(model)[1], 1e-3 * std::abs(product[1]));
}

// The file of a magnetisation holds its responses, and those of x, y and z add up to them.
TEST_F(MtxCommand, magnetisationsAddUp) {
    options.survey.type = parseDataType("tmi");
    options.survey.field = InducingField{{65, 10}, 50000};
    options.tolerance = 0;
    const FieldDirection remanent{-20, 200};
    const std::array<double, 3> m = unitVector(remanent);
    const std::vector<double> model = randomModel(462, 4);
    const auto productOf = [&](const FieldDirection& direction) {
        options.survey.magnetisation = direction;
        writeMtxFile(options);
        SensitivityFile file(options.outFile);
        return file.product(file.weighted(model));
    };
    const std::vector<double> whole = productOf(remanent), prisms = byPrisms(model);
    const std::vector<double> x = productOf({0, 90}), y = productOf({0, 0}), z = productOf({90, 0});
    for (std::size_t n = 0; n < whole.size(); ++n) {
        const double sum = m[0] * x[n] + m[1] * y[n] + m[2] * z[n];
        EXPECT_NEAR(whole[n], prisms[n], 1e-3 * std::abs(prisms[n]) + 0.1) << n;
        EXPECT_NEAR(whole[n], sum, 1e-3 * std::abs(sum) + 0.1) << n;
    }
}

TEST_F(MtxCommand, aFailureLeavesTheEarlierFileAndNoOther) {
    folder.write("g.mtx", "before");
    options.survey.type = parseDataType("tmi");
    options.survey.field = InducingField{{60, 5}, 1e300};
    EXPECT_THROW(writeMtxFile(options), RunError);
    EXPECT_EQ(folder.read("g.mtx"), "before");
    options.outFile = folder.file("new.mtx");
    EXPECT_THROW(writeMtxFile(options), RunError);
    std::size_t files = 0;
    for (const auto& entry : std::filesystem::directory_iterator(folder.path())) {
        files +=
            entry.path().extension() == ".mtx" || entry.path().string().find("part") != std::string::npos ? 1U : 0U;
    }
    EXPECT_EQ(files, 1U);
}

TEST_F(MtxCommand, stationsOutsideTheMeshAreWarnedOf) {
    EXPECT_TRUE(readSurvey(options.survey).warnings.empty());
    folder.write("s.obs", "3\n1003 2001 55 0 1\n10.03 20.01 55 0 1\n1003 3001 55 0 1\n");
    std::vector<std::string> warnings = readSurvey(options.survey).warnings;
    ASSERT_EQ(warnings.size(), 1U);
    EXPECT_NE(warnings.front().find("2 of 3 stations are outside the mesh"), std::string::npos) << warnings.front();
    EXPECT_NE(warnings.front().find("station 2 at x 10.03"), std::string::npos) << warnings.front();
    folder.write("s.obs", "2\n1003 2001 50 0 1\n1003 2001 -55 0 1\n");
    warnings = readSurvey(options.survey).warnings;
    ASSERT_EQ(warnings.size(), 1U);
    EXPECT_NE(warnings.front().find("1 of 2 stations are below the top of the mesh, 50,"), std::string::npos)
        << warnings.front();
}

TEST_F(MtxCommand, aFieldOfAnotherUnitIsWarnedOf) {
    options.survey.type = parseDataType("tmi");
    options.survey.field = InducingField{{60, 3}, 52000};
    EXPECT_TRUE(readSurvey(options.survey).warnings.empty());
    options.survey.field = InducingField{{60, 3}, 52};
    ASSERT_EQ(readSurvey(options.survey).warnings.size(), 1U);
    EXPECT_EQ(readSurvey(options.survey).warnings.front(), "--field: a field of 52 nT is not that of the Earth");
}

TEST_F(MtxCommand, magneticTypesNeedAField) {
    options.survey.type = parseDataType("tz");
    try {
        writeMtxFile(options);
        ADD_FAILURE();
    } catch (const RunError& error) {
        EXPECT_EQ(error.what(), options.survey.stationFile + ": no field line; give --field incl,decl,nT");
    }
    for (const InducingField& field :
         {InducingField{{100, 0}, 50000}, InducingField{{10, 0}, 0}, InducingField{{10, 400}, 50000}}) {
        options.survey.field = field;
        EXPECT_THROW(writeMtxFile(options), RunError) << field.direction.incl << " " << field.strength;
    }
}

}  // namespace
}  // namespace voxlith
