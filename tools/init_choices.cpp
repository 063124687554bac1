#include "init_choices.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "files/data_codes.h"
#include "number_text.h"
#include "tradeoff_search.h"

namespace voxlith {

namespace {

constexpr std::int32_t usualIterations = 100;
constexpr std::int32_t manyIterations = 200;  // cells at rest at a bound, and two models, slow a run down
constexpr double gravityTradeoff = 0.01, magneticTradeoff = 1.0;    // what the program takes for none
constexpr double gravityDeviation = 0.01, magneticDeviation = 1.0;  // the same
constexpr double smallnessOfCell = 0.005;  // alphaS times the cell size: differences rule up to some ten cells
constexpr std::int64_t mostCoefficients = 250'000'000;  // 2 GB of rows
constexpr double targetMisfit = 0.95;   // RMS; a little below 1, as the run approaches its end from above
constexpr double targetWithSign = 0.8;  // bounds that the search does not know raise the misfit

double smallestWidth(const std::vector<double>& widths) {
    double smallest = std::numeric_limits<double>::max();
    for (const double width : widths) {
        smallest = std::min(smallest, std::abs(width));
    }
    return smallest;
}

// Geometric mean of the core's widths; axes of one cell say nothing.
double cellSizeOf(const MeshGeometry& mesh) {
    double logarithms = 0;
    int axes = 0;
    for (const auto* widths : {&mesh.xWidth, &mesh.yWidth, &mesh.zWidth}) {
        if (widths->size() > 1) {
            logarithms += std::log(smallestWidth(*widths));
            ++axes;
        }
    }
    return axes == 0 ? smallestWidth(mesh.xWidth) : std::exp(logarithms / axes);
}

// To one significant digit.
double roundedAlpha(double value) {
    const double scale = std::pow(10.0, std::floor(std::log10(value)));
    return std::round(value / scale) * scale;
}

bool isMagneticFile(const MtxFile& file) {
    return isMagneticCode(file.sensitivity.header.dataType[0]) == 1;
}

// Gravity data see the first model, magnetic data the second, when there are both.
void chooseModels(const std::vector<std::unique_ptr<MtxFile>>& files, InitChoices& choices) {
    const auto magnetic = static_cast<std::size_t>(
        std::count_if(files.begin(), files.end(), [](const auto& file) { return isMagneticFile(*file); }));
    const bool mixed = magnetic > 0 && magnetic < files.size();
    choices.modelTypes = mixed ? 2 : 1;
    choices.unit = mixed ? "g/cm3 and SI" : magnetic > 0 ? "SI" : "g/cm3";
    for (const auto& file : files) {
        choices.modelOf.push_back(mixed && isMagneticFile(*file) ? 1 : 0);
    }
    for (std::size_t n = 0; n < files.size() && files.size() > 1; ++n) {
        const std::string model = std::to_string(choices.modelOf[n] + 1);
        choices.products.push_back("1 " + std::to_string(n + 1) + " " + model + " 1.0");
    }
}

// To two significant digits.
double roundedTradeoff(double value) {
    const double scale = std::pow(10.0, 1.0 - std::floor(std::log10(value)));
    return std::round(value * scale) / scale;
}

void searchInFiles(const std::vector<std::string>& names, const SurveyTable& data, bool magnetic,
                   InitChoices& choices) {
    std::vector<std::unique_ptr<MtxFile>> files;
    for (const std::string& name : names) {
        files.push_back(std::make_unique<MtxFile>());
        readMtxFile(name, MtxRows::loaded, *files.back());
    }
    TradeoffProblem problem;
    problem.modelOf = choices.modelOf;
    problem.modelTypes = static_cast<std::size_t>(choices.modelTypes);
    problem.alphaS = choices.alphaS;
    // Each component counts by itself in the misfit of a joint inversion.
    problem.target = std::sqrt(static_cast<double>(names.size())) * (choices.sign == 0 ? targetMisfit : targetWithSign);
    const TradeoffResult result = searchTradeoff(files, data, magnetic ? magneticDeviation : gravityDeviation, problem);
    if (!(result.tradeoff > 0) || !std::isfinite(result.tradeoff)) {
        choices.tradeoffReason = "the data lie within their deviations and ask for no model; the usual value is taken";
        return;
    }
    choices.tradeoff = roundedTradeoff(result.tradeoff);
    const std::string misfit = numberText(std::round(100.0 * result.misfit) / 100.0);
    choices.tradeoffReason =
        result.reached ? "an inversion without bounds comes to an RMS misfit of " + misfit + " with it"
        : result.misfit > 0
            ? "an RMS misfit of " + misfit + " remains with it: deviations may be too small, or cells too large"
            : "the data lie within their deviations; a weak model is all they ask for";
}

}  // namespace

InitChoices chooseInitValues(const std::vector<std::unique_ptr<MtxFile>>& files, const InitWishes& wishes) {
    InitChoices choices;
    chooseModels(files, choices);
    const bool magnetic = isMagneticFile(*files.front());
    const bool bothSigns = choices.modelTypes > 1 || !magnetic;
    choices.sign = wishes.sign <= 1 ? wishes.sign : bothSigns ? 0 : 1;
    choices.initial = 0.001 * choices.sign;
    choices.bounds = wishes.bounds;
    if (choices.bounds.empty()) {
        choices.bounds = choices.sign > 0 ? "0,1" : choices.sign < 0 ? "-1,0" : "-1,1";
    }
    choices.cell = cellSizeOf(files.front()->mesh);
    choices.alphaS = roundedAlpha(smallnessOfCell / choices.cell);
    choices.iterations = wishes.iterations > 0                         ? wishes.iterations
                         : choices.sign != 0 || choices.modelTypes > 1 ? manyIterations
                                                                       : usualIterations;
    return choices;
}

void chooseTradeoff(const std::vector<std::string>& names, const SurveyTable& data, const InitWishes& wishes,
                    const std::vector<std::unique_ptr<MtxFile>>& files, InitChoices& choices) {
    if (wishes.tradeoff > 0) {
        choices.tradeoff = wishes.tradeoff;
        choices.tradeoffReason = "as it was asked for";
        return;
    }
    const bool magnetic = isMagneticFile(*files.front());
    choices.tradeoff = magnetic ? magneticTradeoff : gravityTradeoff;
    std::int64_t coefficients = 0;
    for (const auto& file : files) {
        coefficients += file->sensitivity.header.coefficientCount[0];
    }
    if (coefficients > mostCoefficients) {
        choices.tradeoffReason = "the usual value; the sensitivity files are too large to try others here";
        return;
    }
    searchInFiles(names, data, magnetic, choices);
}

}  // namespace voxlith
