// The modes of voxlith-run that minimise the objective: with the trade-off of the control file (--until-converged), or
// with the one at which the misfit is a target (--target-rms), by component on request (--per-component), and with a
// sparse norm after that (--model-norm). One Newton step is one iteration of the table.
//
//   ConvergedMode mode;
//   mode.state.settings = ...;
//   prepareConvergedMode(mode, problem);           before blocksOf(mode)
//   beginConvergedMode(mode, loop, records);       after beginInversion or a restored loop
//   while (loop.state.continueFlag) {
//       startIteration(loop);
//       takeConvergedStep(mode, loop, records);          false: stopped
//       finishIteration(loop);
//       advanceConvergedMode(mode, loop, records);
//   }
//   reportConvergence(mode, loop);
#pragma once

#include <cstdint>
#include <string_view>
#include <type_traits>
#include <vector>

#include "inversion/inversion_loop.h"
#include "run/checkpoint_file.h"
#include "run/convergence/component_search.h"
#include "run/convergence/newton_step.h"
#include "run/convergence/sparse_norm.h"
#include "run/convergence/tradeoff_search.h"

namespace voxlith {

struct ConvergedSettings {
    bool searchTradeoff = false;  // --target-rms
    double targetRms = 1.0;
    double tolerance = 1.0e-6;  // estimate of phi less its minimum, over phi, at the end
    bool perComponent = false;  // --per-component
    ModelNorm modelNorm = ModelNorm::smooth;
    CrossGradientSettings cross;  // --cross-gradient
};

// Largest number of Newton steps of a run; the limit of the control file counts steps of another kind.
constexpr std::int32_t mostNewtonSteps = 1000;

enum class ConvergedEnd : std::int32_t { running, tolerance, noDecrease, mostSteps };

// What the run looks for; a later one begins where an earlier one has ended.
enum class ConvergedPhase : std::int32_t { tradeoff, components, sparse };

// What lasts from one iteration to the next, beside the model: plain data for the checkpoint.
struct ConvergedState {
    ConvergedSettings settings;
    bool begun = false;
    double multiplier = 0;  // of the next step
    double remaining = 0;   // estimate of phi less its minimum
    double gradientNorm = 0, firstGradientNorm = 0;
    double objective = 0;
    double cross = 0;  // beta phi_x, a part of the objective
    std::int64_t products = 0;
    std::int64_t directions = 0;  // of the data that the products have shown
    std::int32_t stepsAtTradeoff = 0;
    bool improved = true;
    ConvergedEnd end = ConvergedEnd::running;
    ConvergedPhase phase = ConvergedPhase::tradeoff;
    TradeoffSearch search;
    ComponentSearch components;
    SparseState sparse;
};
static_assert(std::is_trivially_copyable_v<ConvergedState>);

struct ConvergedMode {
    ConvergedState state;
    NewtonWork work;
    // For a sparse norm, else empty: the model of the last reweighting, and the weights without it.
    std::vector<double> sparseModel;
    SmoothnessWeights weights;
};

// What a converged run changes of its problem, beside model and predictions.
struct ConvergedRecords {
    InversionOptions& options;
    SmoothnessWeights& weights;
};

// Throws RunError for settings that make no sense for these data.
void checkConvergedSettings(const ConvergedSettings& settings, const ObsSet& obs);

// Sizes what the blocks of a checkpoint hold.
void prepareConvergedMode(ConvergedMode& mode, const InversionProblem& problem);

// The blocks of a checkpoint; the first holds the state.
constexpr std::string_view convergedBlock = "converged mode";
std::vector<StateBlock> blocksOf(ConvergedMode& mode);

// Brings the model within its bounds and, for a new search, sets the first trade-off in the options, which must be
// those of the loop's problem. A mode whose state was put back from a checkpoint goes on from it. Throws RunError for
// data without an exact gradient.
void beginConvergedMode(ConvergedMode& mode, InversionLoop& loop, const ConvergedRecords& records);

// One Newton step with the trade-off of the state: changes arrays.model, obs.predData, iterTerms and
// options.multiplier, and leaves the gradient for its file. False when a signal has stopped the step: model,
// predictions and the state of `mode` are then those before it.
bool takeConvergedStep(ConvergedMode& mode, InversionLoop& loop, const ConvergedRecords& records);

// Decides what comes next: another step, another trade-off, other factors or weights, or the end (continueFlag).
void advanceConvergedMode(ConvergedMode& mode, InversionLoop& loop, const ConvergedRecords& records);

// Lines on the screen and in the log: which rule ended the run, how far the objective can be from its minimum, and for
// a target that was not reached the reasons. Leaves the gradient at the model in work.gradient.
void reportConvergence(ConvergedMode& mode, InversionLoop& loop);

// True after a search that ended above its target, in the whole or in a component.
bool missedTarget(const ConvergedMode& mode);

}  // namespace voxlith
