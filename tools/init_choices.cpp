#include "init_choices.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "files/data_codes.h"
#include "number_text.h"

namespace voxlith {

namespace {

constexpr std::int32_t usualIterations = 100;
constexpr double gravityTradeoff = 0.01, magneticTradeoff = 1.0;  // what the program takes for none

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
    for (std::size_t n = 0; n < files.size() && files.size() > 1; ++n) {
        const std::string model = mixed && isMagneticFile(*files[n]) ? "2" : "1";
        choices.products.push_back("1 " + std::to_string(n + 1) + " " + model + " 1.0");
    }
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
    choices.alphaS = roundedAlpha(1.0 / (4.0 * choices.cell * choices.cell));
    choices.tradeoff = wishes.tradeoff > 0 ? wishes.tradeoff : magnetic ? magneticTradeoff : gravityTradeoff;
    choices.iterations = wishes.iterations > 0 ? wishes.iterations : usualIterations;
    return choices;
}

}  // namespace voxlith
