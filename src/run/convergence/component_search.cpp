#include "run/convergence/component_search.h"

#include <algorithm>
#include <cassert>
#include <cmath>
#include <cstdio>

#include "base/output_file.h"

namespace voxlith {

namespace {

constexpr double usualSlope = 1.0, smallestSlope = 0.3, largestSlope = 2.0;  // of -log(phi_c) over log(f_c)
constexpr double largestChange = 30.0;                                       // of a factor at a time
constexpr double smallestFactor = 1.0e-6;
constexpr std::int32_t mostWithoutProgress = 4;

std::string numberText(double value) {
    std::array<char, 40> text{};
    std::snprintf(text.data(), text.size(), "%.9g", value);
    return text.data();
}

// log(phi_c / target); 0 for a component that cannot or need not come nearer.
double distanceOf(const ComponentSearch& search, std::span<const double> misfits, std::size_t c) {
    const bool counts = misfits[c] > 0.0 && !(misfits[c] < 1.0 && search.factor[c] <= smallestFactor);
    return counts ? std::log(misfits[c]) : 0.0;
}

double worstDistance(const ComponentSearch& search, std::span<const double> misfits) {
    double worst = 0.0;
    for (std::size_t c = 0; c < misfits.size(); ++c) {
        worst = std::max(worst, std::abs(distanceOf(search, misfits, c)));
    }
    return worst;
}

// phi_c is the square of the RMS misfit.
double acceptedDistance(const ComponentSearch& search) {
    return 2.0 * std::log1p(search.tolerance);
}

double slopeOf(const ComponentSearch& search, std::span<const double> misfits, std::size_t c) {
    constexpr double smallStep = 1.0e-3;
    if (!(search.lastMisfit[c] > 0.0)) {
        return usualSlope;
    }
    const double step = std::log(search.factor[c] / search.lastFactor[c]);
    const double slope = -std::log(misfits[c] / search.lastMisfit[c]) / step;
    return std::abs(step) > smallStep && std::isfinite(slope) ? std::clamp(slope, smallestSlope, largestSlope)
                                                              : usualSlope;
}

void moveFactors(ComponentSearch& search, std::span<const double> misfits, double largest) {
    for (std::size_t c = 0; c < misfits.size(); ++c) {
        const double distance = distanceOf(search, misfits, c);
        const double slope = slopeOf(search, misfits, c);
        const double change = std::clamp(std::exp(distance / slope), 1.0 / largest, largest);
        search.lastFactor[c] = search.factor[c];
        search.lastMisfit[c] = misfits[c];
        search.factor[c] = std::max(search.factor[c] * change, smallestFactor);
    }
}

}  // namespace

ComponentSearch makeComponentSearch() {
    ComponentSearch search;
    search.factor.fill(1.0);
    return search;
}

double neededAccuracy(const ComponentSearch& search, std::span<const double> misfits, double finalAccuracy) {
    constexpr double far = 0.3, ofFar = 1.0e-2, ofNear = 1.0e-3;
    const double distance = worstDistance(search, misfits);
    const double needed = distance > far ? ofFar : ofNear;
    return distance > acceptedDistance(search) ? std::max(needed, finalAccuracy) : finalAccuracy;
}

void chooseFactors(ComponentSearch& search, const ComponentTrial& trial, std::span<const double> misfits) {
    constexpr double progress = 0.9;
    assert(misfits.size() <= search.factor.size() && search.trialCount < mostComponentTrials);
    ComponentTrial& row = search.trials[static_cast<std::size_t>(search.trialCount)];
    row = trial;
    row.factor = search.factor;
    ++search.trialCount;
    const double worst = worstDistance(search, misfits);
    if (worst <= acceptedDistance(search)) {
        search.end = ComponentEnd::reached;
        return;
    }
    // A component below the target may need no model: its factor falls to the smallest one, however long that takes.
    const bool falling =
        std::ranges::any_of(misfits, [&](double misfit) { return misfit > 0.0 && std::log(misfit) <= -worst; });
    const bool nearer = falling || !(search.nearest > 0.0) || worst < progress * search.nearest;
    search.nearest = nearer ? worst : search.nearest;
    search.without = nearer ? 0 : search.without + 1;
    if (search.without > mostWithoutProgress || search.trialCount == mostComponentTrials) {
        search.end = ComponentEnd::noBetter;
        return;
    }
    moveFactors(search, misfits, largestChange);
}

bool adjustFactors(ComponentSearch& search, std::span<const double> misfits, double tolerance) {
    constexpr double largestAdjustment = 3.0;
    if (worstDistance(search, misfits) <= 2.0 * std::log1p(tolerance)) {
        return false;
    }
    moveFactors(search, misfits, largestAdjustment);
    return true;
}

void writeComponentTable(const std::string& fileName, const ComponentSearch& search, std::size_t components) {
    OutputFile file;
    openOutputFile(file, fileName);
    std::string heading = "tradeoff";
    for (std::size_t c = 1; c <= components; ++c) {
        const std::string number = std::to_string(c);
        heading.append(",factor_").append(number).append(",rms_misfit_").append(number);
    }
    appendOutputLine(file, heading.append(",iteration,products"));
    for (const ComponentTrial& trial : std::span(search.trials).first(static_cast<std::size_t>(search.trialCount))) {
        std::string line = numberText(trial.multiplier);
        for (std::size_t c = 0; c < components; ++c) {
            line.append(1, ',').append(numberText(trial.factor[c])).append(1, ',').append(numberText(trial.rms[c]));
        }
        line.append(1, ',').append(std::to_string(trial.iteration));
        appendOutputLine(file, line.append(1, ',').append(std::to_string(trial.products)));
    }
    finishOutputFile(file);
}

}  // namespace voxlith
