#include "init/init_choices.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "forward/number_text.h"
#include "init/tradeoff_search.h"
#include "survey/data_types.h"

namespace voxlith {

namespace {

constexpr std::int32_t usualIterations = 100;
constexpr std::int32_t manyIterations = 200;  // cells at rest at a bound, and two models, slow a run down
constexpr double gravityTradeoff = 0.01, magneticTradeoff = 1.0;    // what the program takes for none
constexpr double gravityDeviation = 0.01, magneticDeviation = 1.0;  // the same
constexpr double smallnessOfCell = 0.005;  // alphaS times the cell size: differences rule up to some ten cells
constexpr std::int64_t mostCoefficients = 250'000'000;  // 2 GB of rows
constexpr double mostOfRocks = 15.0;                    // g/cm3 or SI
constexpr double roomAbove = 4.0;       // bounds over the largest value of the smooth model without them
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
    return isMagnetic(file.sensitivity.header.dataType[0]);
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
}

std::string boundsOf(std::int32_t sign, const std::string& most) {
    return (sign > 0 ? "0" : "-" + most) + "," + (sign < 0 ? "0" : most);
}

// To two significant digits.
double roundedToTwo(double value) {
    const double scale = std::pow(10.0, 1.0 - std::floor(std::log10(std::abs(value))));
    return value == 0.0 ? 0.0 : std::round(value * scale) / scale;
}

// The columns of the components that one model answers for.
SurveyTable componentsOf(const SurveyTable& data, const std::vector<std::size_t>& modelOf, std::size_t model) {
    SurveyTable some;
    some.components = static_cast<std::size_t>(std::count(modelOf.begin(), modelOf.end(), model));
    for (std::size_t n = 0; n < data.data.size(); ++n) {
        if (modelOf[n % data.components] == model) {
            some.data.push_back(data.data[n]);
            if (!data.deviation.empty()) {
                some.deviation.push_back(data.deviation[n]);
            }
        }
    }
    return some;
}

// The trade-off of the files of one model type by themselves: types have no part of the norm in common.
TradeoffResult searchForModel(const std::vector<std::string>& names, const SurveyTable& data, bool magnetic,
                              std::size_t model, const InitChoices& choices) {
    std::vector<std::unique_ptr<MtxFile>> files;
    for (std::size_t n = 0; n < names.size(); ++n) {
        if (choices.modelOf[n] == model) {
            files.push_back(std::make_unique<MtxFile>());
            readMtxFile(names[n], MtxRows::loaded, *files.back());
        }
    }
    TradeoffProblem problem;
    problem.alphaS = choices.alphaS;
    // Each component counts by itself in the misfit of a joint inversion.
    problem.target = std::sqrt(static_cast<double>(files.size())) * (choices.sign == 0 ? targetMisfit : targetWithSign);
    return searchTradeoff(files, componentsOf(data, choices.modelOf, model),
                          magnetic ? magneticDeviation : gravityDeviation, problem);
}

bool isUsable(const TradeoffResult& result) {
    return result.tradeoff > 0 && std::isfinite(result.tradeoff);
}

double magnitudeOf(const TradeoffResult& result) {
    return std::max(-result.smallest, result.largest);
}

// Rocks do not have such values: the data are in another unit, turned over, or seen from other heights.
void addWarnings(const TradeoffResult& result, const std::string& unit, InitChoices& choices) {
    const std::string values = "an inversion without bounds makes values from " +
                               numberText(roundedToTwo(result.smallest)) + " to " +
                               numberText(roundedToTwo(result.largest)) + " " + unit;
    if (magnitudeOf(result) > mostOfRocks) {
        choices.warnings.push_back(values + ": look at the unit of the data and at the heights of the stations");
    }
    if ((choices.sign > 0 && -result.smallest > 2.0 * result.largest) ||
        (choices.sign < 0 && result.largest > -2.0 * result.smallest)) {
        choices.warnings.push_back(values + ", and values are to be " + (choices.sign > 0 ? "positive" : "negative") +
                                   ": look at the sign of the data, at a level in them, and at --sign");
    }
}

std::string reasonOf(const TradeoffResult& result) {
    if (!isUsable(result)) {
        return "the data lie within their deviations and ask for no model; the usual value is taken";
    }
    const std::string misfit = numberText(std::round(100.0 * result.misfit) / 100.0);
    return result.reached ? "an inversion without bounds comes to an RMS misfit of " + misfit + " with it"
           : result.misfit > 0
               ? "an RMS misfit of " + misfit + " remains with it: deviations may be too small, or cells too large"
               : "the data lie within their deviations; a weak model is all they ask for";
}

// One pair of bounds holds for both models, so it has to leave room for what the larger one may become with a sign and
// less smoothness.
void chooseFactor(const TradeoffResult& first, const TradeoffResult& second, const InitOverrides& overrides,
                  InitChoices& choices) {
    if (!(magnitudeOf(first) > 0 && magnitudeOf(second) > 0)) {
        choices.factorReason = "1, as the data of one model ask for no model";
        return;
    }
    if (first.reached && second.reached) {
        choices.factor = roundedToTwo(std::sqrt(first.tradeoff / second.tradeoff));
        choices.factorReason = "the root of " + numberText(roundedToTwo(first.tradeoff)) +
                               ", the trade-off for model 1 alone, over " + numberText(roundedToTwo(second.tradeoff)) +
                               ", that for model 2 alone";
    } else {
        choices.factor = roundedToTwo(magnitudeOf(second) / magnitudeOf(first));
        choices.factorReason = std::string("brings both models to numbers of like size; the data of model ") +
                               (first.reached ? "2" : "1") + " alone are not fitted with any trade-off";
    }
    choices.unit = "g/cm3 and " + numberText(choices.factor) + " SI";
    if (overrides.bounds.empty()) {
        const double largest = roomAbove * std::max(magnitudeOf(first), magnitudeOf(second) / choices.factor);
        choices.bounds = boundsOf(choices.sign, numberText(std::max(1.0, std::ceil(largest))));
    }
}

}  // namespace

InitChoices chooseInitValues(const std::vector<std::unique_ptr<MtxFile>>& files, const InitOverrides& overrides) {
    InitChoices choices;
    chooseModels(files, choices);
    const bool magnetic = isMagneticFile(*files.front());
    const bool bothSigns = choices.modelTypes > 1 || !magnetic;
    choices.sign = overrides.sign <= 1 ? overrides.sign : bothSigns ? 0 : 1;
    choices.initial = 0.001 * choices.sign;
    choices.bounds = overrides.bounds;
    if (choices.bounds.empty()) {
        // Of two models the second is in units of a factor that the data may still change.
        choices.bounds = boundsOf(choices.sign, choices.modelTypes > 1 ? "99" : "1");
    }
    choices.cell = cellSizeOf(files.front()->mesh);
    choices.alphaS = roundedAlpha(smallnessOfCell / choices.cell);
    choices.iterations = overrides.iterations > 0                      ? overrides.iterations
                         : choices.sign != 0 || choices.modelTypes > 1 ? manyIterations
                                                                       : usualIterations;
    return choices;
}

void chooseTradeoff(const std::vector<std::string>& names, const SurveyTable& data, const InitOverrides& overrides,
                    const std::vector<std::unique_ptr<MtxFile>>& files, InitChoices& choices) {
    const bool magnetic = isMagneticFile(*files.front());
    const bool asked = overrides.tradeoff > 0;
    const bool two = choices.modelTypes > 1;
    choices.tradeoff = asked ? overrides.tradeoff : magnetic ? magneticTradeoff : gravityTradeoff;
    choices.tradeoffReason = "as it was asked for";
    if (asked && !two) {
        return;
    }
    std::int64_t coefficients = 0;
    for (const auto& file : files) {
        coefficients += file->sensitivity.header.coefficientCount[0];
    }
    if (coefficients > mostCoefficients) {
        const std::string tooLarge = "the sensitivity files are too large to try others here";
        choices.tradeoffReason = asked ? choices.tradeoffReason : "the usual value; " + tooLarge;
        choices.factorReason = two ? "1; " + tooLarge : "";
        return;
    }
    const TradeoffResult first = searchForModel(names, data, magnetic, 0, choices);
    if (!asked) {
        choices.tradeoff = isUsable(first) ? roundedToTwo(first.tradeoff) : choices.tradeoff;
        choices.tradeoffReason = (two ? "model 1 by itself: " : "") + reasonOf(first);
    }
    addWarnings(first, two ? "g/cm3" : choices.unit, choices);
    if (two) {
        const TradeoffResult second = searchForModel(names, data, magnetic, 1, choices);
        addWarnings(second, "SI", choices);
        chooseFactor(first, second, overrides, choices);
    }
}

}  // namespace voxlith
