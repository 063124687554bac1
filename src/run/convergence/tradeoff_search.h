// The trade-off at which the converged RMS misfit is a target: a sequence of solutions from large to small trade-offs,
// each from the model of the one before, until phi_d = target. Early ones are only as accurate as the next decision
// needs. log(phi_d) over log(mu) is followed by secants, within a bracket as soon as there is one.
//
//   target = R^2 (valid data) / N, so R is the RMS over all valid data of all components
//
// The record is plain data, so that a checkpoint can hold it.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <type_traits>

#include "run/convergence/accuracy_rule.h"

namespace voxlith {

struct TradeoffTrial {
    double multiplier = 0;
    double misfit = 0;           // phi_d
    double modelNorm = 0;        // phi_m
    double remaining = 0;        // estimate of phi less its minimum, over phi, when the trial ended: its accuracy
    std::int64_t products = 0;   // since the start of the run
    std::int32_t iteration = 0;  // the last one with this trade-off
    double rms = 0;              // over all valid data, without factors of components
};

enum class SearchEnd : std::int32_t {
    searching = 0,
    reached,        // the target, within the tolerance
    misfitStays,    // smaller trade-offs no longer lower the misfit
    noModelNeeded,  // the misfit is below the target however large the trade-off
    mostTrials,     // trial table full
};

constexpr std::int32_t mostTradeoffTrials = 60;

struct TradeoffSearch {
    double target = 1.0;            // of phi_d
    double tolerance = 0.01;        // of the RMS misfit
    double finalAccuracy = 1.0e-4;  // of phi, at the end
    // Trade-offs with misfits above and below the target; 0 where there is none yet.
    double upper = 0, misfitUpper = 0;
    double lower = 0, misfitLower = 0;
    std::int32_t trialCount = 0;
    SearchEnd end = SearchEnd::searching;
    std::array<TradeoffTrial, mostTradeoffTrials> trials{};
};
static_assert(std::is_trivially_copyable_v<TradeoffSearch>);

// The accuracy that a trial needs before the next decision.
AccuracyRule accuracyRule(const TradeoffSearch& search);

// Takes a trial that is accurate enough and returns the next trade-off, or the same one when it needs more accuracy.
// Sets search.end when there is none after it; the result is then the trade-off of the final model.
double chooseTradeoff(TradeoffSearch& search, const TradeoffTrial& trial);

// "voxlith_tradeoff.csv": one row per trial, in the order in which they were tried. Throws RunError.
void writeTradeoffTable(const std::string& fileName, const TradeoffSearch& search);

}  // namespace voxlith
