// Data of models.
#include "cli/predict_command.h"

#include <gtest/gtest.h>

#include <cmath>
#include <sstream>

#include "base/messages.h"
#include "support/temporary_folder.h"

namespace voxlith {
namespace {

using testing_support::TemporaryFolder;

struct Record {
    double x = 0, y = 0, z = 0, datum = 0, deviation = 0;
};

class PredictCommand : public testing::Test {
protected:
    PredictCommand() {
        options.survey.meshFile = folder.write("m.msh", "2 1 2\n0 0 0\n2*10\n20\n10 30\n");
        std::string text = "200\n";
        for (int n = 0; n < 200; ++n) {
            text += std::to_string(n) + ".25 3 5\n";
        }
        options.survey.stationFile = folder.write("s.obs", text);
        options.survey.type = parseDataType("gz");
        options.model = "0.3";
        options.outFile = folder.file("d.obs");
    }

    std::vector<Record> records(std::size_t headerLines = 1) const {
        std::istringstream in(folder.read("d.obs"));
        std::string line;
        for (std::size_t n = 0; n < headerLines; ++n) {
            std::getline(in, line);
        }
        std::vector<Record> result;
        Record record;
        while (in >> record.x >> record.y >> record.z >> record.datum >> record.deviation) {
            result.push_back(record);
        }
        return result;
    }

    TemporaryFolder folder;
    PredictOptions options;
};

TEST_F(PredictCommand, aNumberFillsAllCells) {
    const PredictReport report = writePrediction(options);
    const std::vector<Record> data = records();
    ASSERT_EQ(data.size(), 200U);
    EXPECT_EQ(report.stations, 200);
    const Prism whole{0, 20, 0, 20, 0, 40};
    double largest = 0;
    for (std::size_t n = 0; n < data.size(); ++n) {
        const double expected =
            0.3 * prismResponse(whole, {static_cast<double>(n) + 0.25, 3, -5}, responseWeights(DataType::gz, {}, {}));
        EXPECT_NEAR(data[n].datum, expected, 1e-5 * expected) << "station " << n;
        EXPECT_EQ(data[n].z, 5.0);
        largest = std::max(largest, data[n].datum);
    }
    EXPECT_NEAR(report.largest, largest, 1e-5 * largest);
    EXPECT_NEAR(data[7].deviation, 1e-3 * largest, 1e-8);
}

TEST_F(PredictCommand, modelFilesAreInCellOrder) {
    // z fastest, then x: the third value is the upper cell to the east.
    options.model = folder.write("m.den", "0 0\n1.0 0\n");
    writePrediction(options);
    const Prism upperEast{10, 20, 0, 20, 0, 10};
    const double expected = prismResponse(upperEast, {12.25, 3, -5}, responseWeights(DataType::gz, {}, {}));
    EXPECT_NEAR(records()[12].datum, expected, 1e-5 * expected);
}

TEST_F(PredictCommand, noDataCellsCountAsZero) {
    options.model = folder.write("m.den", "-1e32 -1e32 1.0 -0.1E+33\n");
    writePrediction(options);
    const Prism upperEast{10, 20, 0, 20, 0, 10};
    const double expected = prismResponse(upperEast, {12.25, 3, -5}, responseWeights(DataType::gz, {}, {}));
    EXPECT_NEAR(records()[12].datum, expected, 1e-5 * expected);
}

TEST_F(PredictCommand, badModelsAreRefused) {
    for (const char* text : {"1 2 3\n", "5*1\n", "1 2 x 4\n", "1 2 /\n", "1,,2,3\n", "1 2 3 4 x\n"}) {
        options.model = folder.write("bad.den", text);
        EXPECT_THROW(writePrediction(options), RunError) << text;
    }
    options.model = folder.file("absent.den");
    EXPECT_THROW(writePrediction(options), RunError);
}

TEST_F(PredictCommand, modelsMayRepeatValues) {
    options.model = folder.write("m.den", "3*0.3\n0.3\n\n");
    writePrediction(options);
    const std::string repeated = folder.read("d.obs");
    options.model = "0.3";
    writePrediction(options);
    EXPECT_EQ(folder.read("d.obs"), repeated);
}

TEST_F(PredictCommand, noiseHasTheWantedSizeAndDependsOnTheSeed) {
    writePrediction(options);
    const std::vector<Record> clean = records();
    options.noise = Noise{5, 0.02};
    options.seed = 42;
    writePrediction(options);
    const std::vector<Record> noisy = records();
    double sum = 0, sumOfSquares = 0;
    for (std::size_t n = 0; n < clean.size(); ++n) {
        EXPECT_NEAR(noisy[n].deviation, 0.05 * clean[n].datum + 0.02, 1e-5);
        const double score = (noisy[n].datum - clean[n].datum) / noisy[n].deviation;
        sum += score;
        sumOfSquares += score * score;
    }
    EXPECT_LT(std::abs(sum / 200), 0.25) << "seed 42";
    EXPECT_NEAR(sumOfSquares / 200, 1.0, 0.3) << "seed 42";
    const std::string first = folder.read("d.obs");
    options.survey.threads = 5;
    writePrediction(options);
    EXPECT_EQ(folder.read("d.obs"), first);
    options.seed = 43;
    writePrediction(options);
    EXPECT_NE(folder.read("d.obs"), first);
}

TEST_F(PredictCommand, everyDatumHasAStandardDeviation) {
    options.noise = Noise{2, 0};
    options.model = folder.write("m.den", "4*0\n");
    writePrediction(options);
    for (const Record& record : records()) {
        EXPECT_GT(record.deviation, 0);
    }
}

TEST_F(PredictCommand, magneticFilesHaveTheirHeader) {
    options.survey.type = parseDataType("tmi");
    options.survey.field = InducingField{{60, -5}, 48000};
    writePrediction(options);
    const std::string text = folder.read("d.obs");
    EXPECT_EQ(text.substr(0, text.find('\n')), "     60.00     -5.00  48000.00  !! incl, decl, geomag");
    EXPECT_EQ(records(3).size(), 200U);
    // The file is a station file in its turn, with its own field.
    options.survey.stationFile = options.outFile;
    options.survey.field.reset();
    options.outFile = folder.file("again.obs");
    writePrediction(options);
    EXPECT_EQ(folder.read("again.obs"), text);
}

}  // namespace
}  // namespace voxlith
