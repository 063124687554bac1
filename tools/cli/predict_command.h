// "voxlith-tools predict": data of a model by the prisms directly, without compression, so that the result of an
// inversion can be compared with a forward computation that does not use the sensitivity file.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "cli/survey_options.h"
#include "forward/predicted_data.h"

namespace CLI {
class App;
}

namespace voxlith {

struct PredictOptions {
    SurveyOptions survey;
    std::string model;  // a file with one value per cell in cell order, or a number for all cells
    std::string outFile;
    std::optional<Noise> noise;
    std::uint64_t seed = 1;
};

struct PredictReport {
    std::int64_t stations = 0;
    double smallest = 0, largest = 0;  // data without noise
    double seconds = 0;
    std::vector<std::string> warnings;
};

CLI::App* addPredictCommand(CLI::App& tools, PredictOptions& options);

// Throws RunError when the file to write is one that is read.
void checkPredictOutput(const PredictOptions& options);

// Writes an observed data file with standard deviations; see fillObservedData. No-data cells of the model count as 0.
// Throws RunError.
PredictReport writePrediction(const PredictOptions& options);

// One line for each item on standard output; warnings go to standard error.
void printPredictReport(const PredictReport& report, const PredictOptions& options);

}  // namespace voxlith
