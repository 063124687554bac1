#include "run/convergence/tradeoff_search.h"

#include <algorithm>
#include <cassert>
#include <cmath>
#include <cstdio>
#include <span>
#include <string_view>

#include "base/output_file.h"

namespace voxlith {

namespace {

constexpr double smallestSlope = 0.3, largestSlope = 2.0;  // of log(phi_d) over log(mu), for extrapolation
constexpr double farSlope = 1.0;                           // the smallest one far from the target
constexpr double largestRatio = 30.0;                      // of one trade-off to the next while there is no bracket
constexpr double ratioOfFlat = 1.5;                        // the smallest one where the misfit hardly changes
constexpr double narrowBracket = 1.03;

double logRatio(const TradeoffSearch& search, double misfit) {
    return std::log(misfit / search.target);
}

// Bound on |log(phi_d / target)|: phi_d is the square of the RMS misfit.
double acceptedLog(const TradeoffSearch& search) {
    return 2.0 * std::log1p(search.tolerance);
}

void updateBracket(TradeoffSearch& search, const TradeoffTrial& trial) {
    if (trial.misfit > search.target) {
        search.upper = trial.multiplier;
        search.misfitUpper = trial.misfit;
        if (search.lower >= search.upper) {
            search.lower = 0;  // an early, inaccurate solution; it misled
        }
    } else {
        search.lower = trial.multiplier;
        search.misfitLower = trial.misfit;
        if (search.upper > 0 && search.upper <= search.lower) {
            search.upper = 0;
        }
    }
}

double slopeOfLastTrials(const TradeoffSearch& search) {
    if (search.trialCount < 2) {
        return 1.0;
    }
    const TradeoffTrial& last = search.trials[static_cast<std::size_t>(search.trialCount) - 1];
    const TradeoffTrial& before = search.trials[static_cast<std::size_t>(search.trialCount) - 2];
    const double steps = std::log(last.multiplier / before.multiplier);
    return std::abs(steps) > 0 ? std::log(last.misfit / before.misfit) / steps : 1.0;
}

double extrapolate(const TradeoffSearch& search, const TradeoffTrial& trial) {
    // Slopes grow with the misfit at first: a small one would lead past the target, to solutions that cost the most.
    const double distance = logRatio(search, trial.misfit);
    const double least = distance > std::log(4.0) ? farSlope : smallestSlope;
    const double slope = slopeOfLastTrials(search);
    const double wanted = -distance / std::clamp(slope, least, largestSlope);
    const double smallest = slope < smallestSlope ? std::log(ratioOfFlat) : 0.0;
    const double size = std::clamp(std::abs(wanted), smallest, std::log(largestRatio));
    return trial.multiplier * std::exp(wanted < 0 ? -size : size);
}

double interpolate(const TradeoffSearch& search) {
    const double span = std::log(search.misfitUpper / search.misfitLower);
    const double share = span > 0 ? -std::log(search.misfitLower / search.target) / span : 0.5;
    return search.lower * std::pow(search.upper / search.lower, std::clamp(share, 0.03, 0.97));
}

// The model is still next to nothing: a few data with tiny standard deviations make the first trade-offs huge.
bool isAtStart(const TradeoffSearch& search, const TradeoffTrial& last) {
    constexpr double littleFitted = 0.9, farFromStart = 1.0e-12;
    const TradeoffTrial& first = search.trials[0];
    return last.misfit > littleFitted * first.misfit && last.multiplier > farFromStart * first.multiplier;
}

// Two accurate trials over a decade of trade-offs between which the misfit hardly changes.
bool misfitStays(const TradeoffSearch& search) {
    constexpr double decade = 10.0, smallChange = 0.02;
    if (search.trialCount < 2) {
        return false;
    }
    const TradeoffTrial& last = search.trials[static_cast<std::size_t>(search.trialCount) - 1];
    if (isAtStart(search, last)) {
        return false;
    }
    for (std::int32_t n = search.trialCount - 2; n >= 0; --n) {
        const TradeoffTrial& earlier = search.trials[static_cast<std::size_t>(n)];
        if (earlier.multiplier >= decade * last.multiplier) {
            return last.misfit > search.target && std::log(earlier.misfit / last.misfit) < smallChange;
        }
    }
    return false;
}

// The largest trade-off that does nearly as well as the best: a smaller one only adds structure.
double bestTradeoff(const TradeoffSearch& search) {
    constexpr double nearly = 1.02;
    const auto trials = std::span(search.trials).first(static_cast<std::size_t>(search.trialCount));
    double least = trials.front().misfit;
    for (const TradeoffTrial& trial : trials) {
        least = std::min(least, trial.misfit);
    }
    double best = 0.0;
    for (const TradeoffTrial& trial : trials) {
        best = trial.misfit <= nearly * least ? std::max(best, trial.multiplier) : best;
    }
    return best;
}

bool misfitIsSmallAnyway(const TradeoffSearch& search) {
    constexpr double farFromStart = 1.0e6;
    const TradeoffTrial& last = search.trials[static_cast<std::size_t>(search.trialCount) - 1];
    return last.misfit < search.target && last.multiplier > farFromStart * search.trials[0].multiplier;
}

}  // namespace

AccuracyRule accuracyRule(const TradeoffSearch& search) {
    return {search.finalAccuracy, search.target, search.tolerance};
}

double chooseTradeoff(TradeoffSearch& search, const TradeoffTrial& trial) {
    assert(search.trialCount < mostTradeoffTrials);
    search.trials[static_cast<std::size_t>(search.trialCount)] = trial;
    ++search.trialCount;
    if (std::abs(logRatio(search, trial.misfit)) <= acceptedLog(search)) {
        search.end = SearchEnd::reached;
        return trial.multiplier;
    }
    if (search.trialCount == mostTradeoffTrials) {
        search.end = SearchEnd::mostTrials;
        return bestTradeoff(search);
    }
    if (misfitStays(search)) {
        search.end = SearchEnd::misfitStays;
        return bestTradeoff(search);
    }
    if (misfitIsSmallAnyway(search)) {
        search.end = SearchEnd::noModelNeeded;
        return trial.multiplier;
    }
    updateBracket(search, trial);
    if (!(search.upper > 0 && search.lower > 0)) {
        return extrapolate(search, trial);
    }
    if (search.upper < narrowBracket * search.lower) {
        // The end that was found first may stem from a less accurate solution: only the last trial is kept.
        (trial.misfit > search.target ? search.lower : search.upper) = 0;
        return extrapolate(search, trial);
    }
    // The ends of the bracket can be far or inaccurate: the last two trials know better where they agree with it.
    const double next = extrapolate(search, trial);
    return next > search.lower && next < search.upper ? next : interpolate(search);
}

void writeTradeoffTable(const std::string& fileName, const TradeoffSearch& search) {
    constexpr std::size_t longestLine = 256;
    OutputFile file;
    openOutputFile(file, fileName);
    appendOutputLine(file, "tradeoff,rms_misfit,phi_d,phi_m,phi,accuracy,iteration,products");
    for (const TradeoffTrial& trial : std::span(search.trials).first(static_cast<std::size_t>(search.trialCount))) {
        std::array<char, longestLine> line{};
        std::snprintf(line.data(), line.size(), "%.9g,%.9g,%.9g,%.9g,%.9g,%.3g,%d,%lld", trial.multiplier, trial.rms,
                      trial.misfit, trial.modelNorm, trial.misfit + trial.multiplier * trial.modelNorm, trial.remaining,
                      trial.iteration, static_cast<long long>(trial.products));
        appendOutputLine(file, line.data());
    }
    finishOutputFile(file);
}

}  // namespace voxlith
