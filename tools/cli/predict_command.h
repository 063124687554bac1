// "voxlith-tools predict": data from a model by the prisms directly, without compression, so that what an inversion
// recovers is held against physics that it does not see.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "preparation/survey.h"

namespace CLI {
class App;
}

namespace voxlith {

struct PredictOptions {
    SurveyOptions survey;
    std::string model;  // a file with one value a cell in cell order, or a number for all cells
    std::string outFile;
    std::string noise;  // "percent,floor"; empty for none
    std::uint64_t seed = 1;
};

struct PredictReport {
    std::int64_t stations = 0;
    double smallest = 0, largest = 0;  // data
    double seconds = 0;
    std::vector<std::string> warnings;
};

CLI::App* addPredictCommand(CLI::App& tools, PredictOptions& options);

// A model as the inversion program reads and writes it. Cells that hold the value for "no cell" count as 0. Throws
// RunError for text, and for fewer or more values than cells.
std::vector<double> readCellModel(const std::string& model, std::size_t cells);

// Data of all stations for the model, in the unit of the type.
std::vector<double> predictData(const Survey& survey, std::span<const double> model, std::size_t threads);

// Writes an observed data file with standard deviations. With noise, s = percent |d| / 100 + floor of the noise-free
// datum, and each datum gets a normally distributed error of that size from a generator started with the seed: the same
// data for the same seed. Without noise s is a thousandth of the largest datum. Throws RunError.
PredictReport writePrediction(const PredictOptions& options);

// Warnings go to standard error.
void printPredictReport(const PredictReport& report, const PredictOptions& options);

}  // namespace voxlith
