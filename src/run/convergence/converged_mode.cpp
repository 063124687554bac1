#include "run/convergence/converged_mode.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <span>
#include <vector>

#include "base/messages.h"
#include "base/ranks.h"
#include "inversion/running_files.h"
#include "run/convergence/convergence_report.h"
#include "run/convergence/norm_operator.h"
#include "run/convergence/subspace_step.h"

namespace voxlith {

namespace {

// RMS misfit over all valid data.
double rmsOf(const InversionProblem& problem) {
    double count = 0.0, squares = 0.0;
    for (const ComponentMisfit& misfit : componentMisfits(problem)) {
        count += misfit.count;
        squares += misfit.squares;
    }
    return count > 0.0 ? std::sqrt(squares / count) : 0.0;
}

// The objective at the model, from the terms of the loop; obs.predData belongs to them.
ScaledObjective currentObjective(ConvergedMode& mode, const InversionLoop& loop) {
    ScaledObjective current;
    current.terms = loop.state.iterTerms;
    current.misfit = linearise(loop.problem, mode.work.data);
    current.cross = mode.work.cross.weight * crossGradientNorm(mode.work.cross, modelOf(loop.problem));
    current.objective = current.misfit +
                        loop.problem.options.multiplier * (current.terms.refNorm + current.terms.smoothNorm) +
                        current.cross;
    return current;
}

void scaleComponents(ConvergedMode& mode, const InversionProblem& problem) {
    std::array<double, maxFiles> scales{};
    std::transform(mode.state.components.factor.begin(), mode.state.components.factor.end(), scales.begin(),
                   [](double factor) { return std::sqrt(factor); });
    setComponentScales(problem, scales, mode.work);
}

// A trade-off that is large beside the data: where the curvatures of data and norm are equal along the data gradient,
// scaled by the diagonal, times a margin.
double startingTradeoff(ConvergedMode& mode, const InversionProblem& problem, InversionOptions& options) {
    constexpr double margin = 4.0;
    NewtonWork& work = mode.work;
    options.multiplier = 0.0;
    evaluateGradient(problem, work, modelOf(problem));
    for (std::size_t n = 0; n < work.direction.size(); ++n) {
        work.direction[n] = work.dataDiagonal[n] > 0.0 ? work.gradient[n] / work.dataDiagonal[n] : 0.0;
    }
    applyJacobian(problem, work.data, work.direction, work.dataVector);
    const double ofData = blockedProduct(work.dataVector, work.dataVector, work.blockSums) / problem.obs.nData;
    std::fill(work.product.begin(), work.product.end(), 0.0);
    const std::size_t cells = problem.mesh.cellCount();
    for (std::size_t first = 0; first < work.product.size(); first += cells) {
        addNormProduct(problem.regularisation(), GradientMode::hessianProduct,
                       std::span<const double>(work.direction).subspan(first, cells),
                       std::span<const double>(problem.arrays.refModel).subspan(first, cells), 1.0, work.scaled,
                       std::span(work.product).subspan(first, cells));
    }
    const double ofNorm = blockedProduct(work.direction, work.product, work.blockSums);
    const double balanced = ofNorm > 0.0 ? ofData / ofNorm : 0.0;
    return balanced > 0.0 && std::isfinite(balanced) ? margin * balanced : 1.0;
}

// Factors that give each component by itself the same starting trade-off, that of the first one unchanged.
void balanceComponents(ConvergedMode& mode, const InversionProblem& problem, InversionOptions& options) {
    std::array<double, maxFiles>& factor = mode.state.components.factor;
    const auto components = static_cast<std::size_t>(problem.obs.nDataTypes);
    std::array<double, maxFiles> tradeoff{};
    for (std::size_t c = 0; c < components; ++c) {
        factor.fill(0.0);
        factor[c] = 1.0;
        scaleComponents(mode, problem);
        tradeoff[c] = startingTradeoff(mode, problem, options);
    }
    for (std::size_t c = 0; c < components; ++c) {
        factor[c] = tradeoff[0] / tradeoff[c];
    }
    scaleComponents(mode, problem);
}

void beginSearch(ConvergedMode& mode, const InversionProblem& problem, InversionOptions& options) {
    TradeoffSearch& search = mode.state.search;
    const double rms = mode.state.settings.targetRms;
    double count = 0.0;
    for (const ComponentMisfit& misfit : componentMisfits(problem)) {
        count += misfit.count;
    }
    search.finalAccuracy = mode.state.settings.tolerance;
    search.target = rms * rms * count / problem.obs.nData;
    options.multiplier = startingTradeoff(mode, problem, options);
}

void beginComponents(ConvergedMode& mode, const InversionProblem& problem, InversionOptions& options) {
    mode.state.phase = ConvergedPhase::components;
    balanceComponents(mode, problem, options);
    options.multiplier = startingTradeoff(mode, problem, options);
}

double normOf(const InversionLoop& loop) {
    return loop.state.iterTerms.refNorm + loop.state.iterTerms.smoothNorm;
}

double misfitOf(const ConvergedState& state, const InversionLoop& loop) {
    return state.objective - state.multiplier * normOf(loop) - state.cross;
}

// RMS misfits of the components, squared, over the target squared; 0 without valid data.
std::vector<double> relativeMisfits(const ConvergedMode& mode, const InversionProblem& problem) {
    const double target = mode.state.settings.targetRms * mode.state.settings.targetRms;
    std::vector<double> relative;
    for (const ComponentMisfit& misfit : componentMisfits(problem)) {
        relative.push_back(misfit.count > 0 ? misfit.squares / (misfit.count * target) : 0.0);
    }
    return relative;
}

// A component whose misfit is a small part of the objective needs more accuracy: by the root of its share, by
// experiment.
double smallestShare(const ConvergedMode& mode, const InversionProblem& problem) {
    constexpr double least = 1.0e-4;
    const ConvergedState& state = mode.state;
    const auto misfits = componentMisfits(problem);
    double share = 1.0;
    for (std::size_t c = 0; c < misfits.size(); ++c) {
        const double part = state.components.factor[c] * misfits[c].squares / problem.obs.nData;
        share = part > 0.0 && state.objective > 0.0 ? std::min(share, part / state.objective) : share;
    }
    return std::sqrt(std::max(share, least));
}

bool holdsComponents(const ConvergedState& state) {
    return state.components.end == ComponentEnd::reached;
}

// What ends the solution with the present trade-off, factors and weights.
AccuracyRule accuracyNow(const ConvergedMode& mode, const InversionProblem& problem) {
    const ConvergedState& state = mode.state;
    const double tolerance = state.settings.tolerance;
    if (state.phase == ConvergedPhase::sparse) {
        const double share = holdsComponents(state) ? smallestShare(mode, problem) : 1.0;
        return {share * std::max(sparseAccuracy(state.sparse), tolerance)};
    }
    if (state.phase == ConvergedPhase::components) {
        const std::vector<double> misfits = relativeMisfits(mode, problem);
        return {smallestShare(mode, problem) * neededAccuracy(state.components, misfits, tolerance)};
    }
    const bool searching = state.settings.searchTradeoff && state.search.end == SearchEnd::searching;
    return searching ? accuracyRule(state.search) : AccuracyRule{tolerance};
}

bool isConverged(const ConvergedMode& mode, const InversionLoop& loop) {
    const ConvergedState& state = mode.state;
    const double accuracy = accuracyAt(accuracyNow(mode, loop.problem), misfitOf(state, loop));
    return !state.improved || state.remaining <= accuracy * state.objective;
}

void endRun(ConvergedMode& mode, InversionLoop& loop, ConvergedEnd end) {
    mode.state.end = end;
    loop.state.continueFlag = false;
}

void takeWeights(ConvergedMode& mode, const InversionProblem& problem, const ConvergedRecords& records) {
    reweight(problem, powersOf(mode.state.settings.modelNorm), mode.state.sparse, mode.weights, mode.sparseModel,
             records.weights);
}

// The objective at the model after its weights or factors have changed.
void refreshTerms(ConvergedMode& mode, InversionLoop& loop) {
    const ScaledObjective found = evaluateObjective(loop.problem, mode.work, modelOf(loop.problem));
    loop.state.iterTerms = found.terms;
    evaluateGradient(loop.problem, mode.work, modelOf(loop.problem));
    mode.state.stepsAtTradeoff = 0;
}

// New weights from the model, for the next solution.
void beginRound(ConvergedMode& mode, InversionLoop& loop, const ConvergedRecords& records) {
    const std::span<const double> model = modelOf(loop.problem);
    std::copy(model.begin(), model.end(), mode.sparseModel.begin());
    takeWeights(mode, loop.problem, records);
    refreshTerms(mode, loop);
}

// Begins what follows the phase that has ended, or ends the run.
void beginNextPhase(ConvergedMode& mode, InversionLoop& loop, const ConvergedRecords& records) {
    ConvergedState& state = mode.state;
    if (state.phase == ConvergedPhase::components && state.components.end == ComponentEnd::noBetter) {
        // What can be had is the target over all data.
        state.phase = ConvergedPhase::tradeoff;
        state.components.factor.fill(1.0);
        scaleComponents(mode, loop.problem);
        beginSearch(mode, loop.problem, records.options);
        state.multiplier = records.options.multiplier;
        refreshTerms(mode, loop);
        return;
    }
    const bool atTarget =
        !state.settings.searchTradeoff || holdsComponents(state) || state.search.end == SearchEnd::reached;
    if (state.settings.modelNorm != ModelNorm::smooth && atTarget &&
        beginSparseNorm(loop.problem, misfitOf(state, loop), state.sparse)) {
        state.components.lastMisfit.fill(0.0);
        state.phase = ConvergedPhase::sparse;
        beginRound(mode, loop, records);
        return;
    }
    endRun(mode, loop, state.improved ? ConvergedEnd::tolerance : ConvergedEnd::noDecrease);
}

void advanceSearch(ConvergedMode& mode, InversionLoop& loop, const ConvergedRecords& records) {
    ConvergedState& state = mode.state;
    TradeoffSearch& search = state.search;
    const double norm = normOf(loop);
    const double multiplier = state.multiplier;
    const double misfit = misfitOf(state, loop);
    if (!isConverged(mode, loop)) {
        return;
    }
    if (search.end != SearchEnd::searching) {  // the best trade-off was solved once more
        beginNextPhase(mode, loop, records);
        return;
    }
    TradeoffTrial trial;
    trial.multiplier = multiplier;
    trial.misfit = misfit;
    trial.modelNorm = norm;
    trial.remaining = state.objective > 0.0 ? state.remaining / state.objective : 0.0;
    trial.products = state.products;
    trial.iteration = loop.state.iteration;
    trial.rms = rmsOf(loop.problem);
    state.multiplier = chooseTradeoff(search, trial);
    state.stepsAtTradeoff = 0;
    if (isFirstRank()) {
        writeTradeoffTable("voxlith_tradeoff.csv", search);
    }
    const bool solved = state.multiplier == multiplier && trial.remaining <= search.finalAccuracy;
    if (search.end != SearchEnd::searching && (solved || !state.improved)) {
        beginNextPhase(mode, loop, records);
    }
}

void advanceComponents(ConvergedMode& mode, InversionLoop& loop, const ConvergedRecords& records) {
    ConvergedState& state = mode.state;
    ComponentSearch& search = state.components;
    const std::vector<double> misfits = relativeMisfits(mode, loop.problem);
    if (!isConverged(mode, loop)) {
        return;
    }
    ComponentTrial trial;
    for (std::size_t c = 0; c < misfits.size(); ++c) {
        trial.rms[c] = state.settings.targetRms * std::sqrt(misfits[c]);
    }
    trial.multiplier = state.multiplier;
    trial.products = state.products;
    trial.iteration = loop.state.iteration;
    chooseFactors(search, trial, misfits);
    if (isFirstRank()) {
        writeComponentTable("voxlith_components.csv", search, static_cast<std::size_t>(loop.problem.obs.nDataTypes));
    }
    if (search.end != ComponentEnd::searching) {
        beginNextPhase(mode, loop, records);
        return;
    }
    scaleComponents(mode, loop.problem);
    refreshTerms(mode, loop);
}

void advanceSparse(ConvergedMode& mode, InversionLoop& loop, const ConvergedRecords& records) {
    ConvergedState& state = mode.state;
    SparseState& sparse = state.sparse;
    const double misfit = misfitOf(state, loop);
    const std::vector<double> misfits = relativeMisfits(mode, loop.problem);
    if (!isConverged(mode, loop)) {
        return;
    }
    if (!holdsComponents(state) && adjustTradeoff(sparse, misfit, state.multiplier)) {
        state.stepsAtTradeoff = 0;
        return;
    }
    if (holdsComponents(state) && mayAdjust(sparse) &&
        adjustFactors(state.components, misfits, misfitTolerance(sparse))) {
        ++sparse.adjustments;
        scaleComponents(mode, loop.problem);
        refreshTerms(mode, loop);
        return;
    }
    state.components.lastMisfit.fill(0.0);
    if (sparse.lastWeights) {
        endRun(mode, loop, ConvergedEnd::tolerance);
    } else if (finishRound(loop.problem, mode.sparseModel, sparse)) {
        beginRound(mode, loop, records);
    }
}

void keepCounts(ConvergedMode& mode) {
    mode.state.products = mode.work.data.productCount;
    mode.state.directions = static_cast<std::int64_t>(mode.work.subspace.count);
}

}  // namespace

std::vector<StateBlock> blocksOf(ConvergedMode& mode) {
    return {blockOf(convergedBlock, mode.state),
            blockOfArray("data directions", std::span(mode.work.subspace.directions), mode.state.directions > 0),
            blockOfArray("sparse model", std::span(mode.sparseModel), mode.state.phase == ConvergedPhase::sparse)};
}

void checkConvergedSettings(const ConvergedSettings& settings, const ObsSet& obs) {
    if (settings.perComponent && obs.nDataTypes == 1) {
        throw RunError("--per-component: the data have one component");
    }
}

void prepareConvergedMode(ConvergedMode& mode, const InversionProblem& problem) {
    mode.state.components = makeComponentSearch();
    // Factors of components change the data term too often.
    const ConvergedSettings& settings = mode.state.settings;
    const bool worthwhile = settings.cross.weight == 0.0 && !settings.perComponent;
    const std::size_t directions = worthwhile ? directionsWorthwhile(problem) : 0;
    const auto data = static_cast<std::size_t>(problem.obs.nData) * static_cast<std::size_t>(problem.obs.nDataTypes);
    mode.work.subspace = makeDataSubspace(data, problem.modelSize(), std::min(directions, data));
    if (mode.state.settings.modelNorm != ModelNorm::smooth) {
        mode.sparseModel.assign(problem.modelSize(), 0.0);
    }
}

void beginConvergedMode(ConvergedMode& mode, InversionLoop& loop, const ConvergedRecords& records) {
    const InversionProblem& problem = loop.problem;
    ConvergedState& state = mode.state;
    DataSubspace subspace = std::move(mode.work.subspace);
    mode.work = prepareNewton(problem);
    mode.work.subspace = std::move(subspace);
    mode.work.cross = makeCrossGradient(problem, state.settings.cross);
    if (state.settings.modelNorm != ModelNorm::smooth) {
        mode.weights = records.weights;
    }
    if (state.phase == ConvergedPhase::sparse) {
        takeWeights(mode, problem, records);
    }
    const ScaledObjective start = evaluateObjective(problem, mode.work, modelOf(problem));
    scaleComponents(mode, problem);  // the valid data are known now
    restoreImages(problem, mode.work.data, static_cast<std::size_t>(state.directions), mode.work.subspace);
    loop.state.iterTerms = start.terms;
    loop.state.barrier = Barrier{};  // bounds are kept exactly
    InversionOptions& options = records.options;
    options.maxIterations = std::max(options.maxIterations, options.startIteration + mostNewtonSteps);
    // A step begins with the gradient of the data, also after a stop.
    evaluateGradient(problem, mode.work, modelOf(problem));
    if (state.begun) {
        options.multiplier = state.multiplier;
        mode.work.data.productCount = state.products;
        // The limit of the control file, by which the loop was put back, counts steps of another kind.
        loop.state.continueFlag = state.end == ConvergedEnd::running;
        return;
    }
    state.begun = true;
    if (state.settings.perComponent) {
        beginComponents(mode, problem, options);
    } else if (state.settings.searchTradeoff) {
        beginSearch(mode, problem, options);
    }
    evaluateGradient(problem, mode.work, modelOf(problem));
    state.multiplier = options.multiplier;
    keepCounts(mode);
}

bool takeConvergedStep(ConvergedMode& mode, InversionLoop& loop, const ConvergedRecords& records) {
    ConvergedState& state = mode.state;
    records.options.multiplier = state.multiplier;
    NewtonLimits limits;
    limits.accuracy = accuracyNow(mode, loop.problem);
    const NewtonResult result = takeNewtonStep(loop.problem, mode.work, currentObjective(mode, loop), limits);
    if (result.stopped) {
        return false;
    }
    if (state.stepsAtTradeoff == 0) {
        state.firstGradientNorm = result.gradientNorm;
    }
    ++state.stepsAtTradeoff;
    state.gradientNorm = result.gradientNormAfter;
    state.remaining = result.remaining;
    state.objective = result.reached.objective;
    state.cross = result.reached.cross;
    state.improved = result.improved;
    loop.state.iterTerms = result.reached.terms;
    loop.state.stepCount = result.trials;
    // Running files are written from the arrays of the problem, mostly later than now.
    const std::span<double> delm = std::span(loop.problem.arrays.delm).first(mode.work.gradient.size());
    std::copy(mode.work.gradient.begin(), mode.work.gradient.end(), delm.begin());
    loop.stepGradient = delm;
    return true;
}

void advanceConvergedMode(ConvergedMode& mode, InversionLoop& loop, const ConvergedRecords& records) {
    ConvergedState& state = mode.state;
    state.products = mode.work.data.productCount;
    if (!loop.state.continueFlag) {
        state.end = ConvergedEnd::mostSteps;
    } else if (state.phase == ConvergedPhase::sparse) {
        advanceSparse(mode, loop, records);
    } else if (state.phase == ConvergedPhase::components) {
        advanceComponents(mode, loop, records);
    } else if (state.settings.searchTradeoff) {
        advanceSearch(mode, loop, records);
    } else if (isConverged(mode, loop)) {
        beginNextPhase(mode, loop, records);
    }
    keepCounts(mode);
}

bool missedTarget(const ConvergedMode& mode) {
    const SearchEnd end = mode.state.search.end;
    return (mode.state.settings.searchTradeoff && (end == SearchEnd::misfitStays || end == SearchEnd::mostTrials)) ||
           mode.state.components.end == ComponentEnd::noBetter;
}

void reportConvergence(ConvergedMode& mode, InversionLoop& loop) {
    currentObjective(mode, loop);
    evaluateGradient(loop.problem, mode.work, modelOf(loop.problem));
    reportConvergedEnd(mode, loop);
}

}  // namespace voxlith
