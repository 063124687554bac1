#include "run/convergence/converged_mode.h"

#include <algorithm>
#include <cmath>
#include <span>
#include <vector>

#include "base/ranks.h"
#include "inversion/running_files.h"
#include "run/convergence/convergence_report.h"
#include "run/convergence/norm_operator.h"

namespace voxlith {

namespace {

std::span<double> modelOf(const InversionProblem& problem) {
    return std::span(problem.arrays.model).first(problem.modelSize());
}

double validCountOf(const InversionProblem& problem) {
    double count = 0;
    for (const ComponentMisfit& misfit : componentMisfits(problem)) {
        count += misfit.count;
    }
    return count;
}

// The objective at the model, from the terms of the loop; obs.predData belongs to them.
ScaledObjective currentObjective(ConvergedMode& mode, const InversionLoop& loop) {
    ScaledObjective current;
    current.terms = loop.state.iterTerms;
    current.misfit = linearise(loop.problem, mode.work.data);
    current.objective =
        current.misfit + loop.problem.options.multiplier * (current.terms.refNorm + current.terms.smoothNorm);
    return current;
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

void beginSearch(ConvergedMode& mode, const InversionProblem& problem, InversionOptions& options) {
    TradeoffSearch& search = mode.state.search;
    const double rms = mode.state.settings.targetRms;
    search.finalAccuracy = mode.state.settings.tolerance;
    search.target = rms * rms * validCountOf(problem) / static_cast<double>(problem.obs.nData);
    options.multiplier = startingTradeoff(mode, problem, options);
}

bool isConverged(const ConvergedState& state, double tolerance) {
    return !state.improved || state.predictedDecrease <= tolerance * state.objective;
}

void advanceSearch(ConvergedMode& mode, InversionLoop& loop) {
    ConvergedState& state = mode.state;
    TradeoffSearch& search = state.search;
    const ObjectiveTerms& terms = loop.state.iterTerms;
    const double norm = terms.refNorm + terms.smoothNorm;
    const double multiplier = state.multiplier;
    const double misfit = state.objective - multiplier * norm;
    const bool last = search.end != SearchEnd::searching;
    if (!isConverged(state, last ? search.finalAccuracy : neededAccuracy(search, misfit))) {
        return;
    }
    if (search.end != SearchEnd::searching) {  // the best trade-off was solved once more
        state.end = ConvergedEnd::tolerance;
        loop.state.continueFlag = false;
        return;
    }
    TradeoffTrial trial;
    trial.multiplier = multiplier;
    trial.misfit = misfit;
    trial.modelNorm = norm;
    trial.remaining = state.objective > 0.0 ? state.predictedDecrease / state.objective : 0.0;
    trial.products = state.products;
    trial.iteration = loop.state.iteration;
    state.multiplier = chooseTradeoff(search, trial);
    state.stepsAtTradeoff = 0;
    if (isFirstRank()) {
        writeTradeoffTable("voxlith_tradeoff.csv", search, loop.problem.obs.nData, validCountOf(loop.problem));
    }
    const bool solved = state.multiplier == multiplier && trial.remaining <= search.finalAccuracy;
    if (search.end != SearchEnd::searching && (solved || !state.improved)) {
        state.end = ConvergedEnd::tolerance;
        loop.state.continueFlag = false;
    }
}

}  // namespace

std::vector<StateBlock> blocksOf(ConvergedMode& mode) {
    return {blockOf("converged mode", mode.state)};
}

void beginConvergedMode(ConvergedMode& mode, InversionLoop& loop, InversionOptions& options) {
    const InversionProblem& problem = loop.problem;
    mode.work = prepareNewton(problem);
    const ScaledObjective start = evaluateObjective(problem, mode.work, modelOf(problem));
    loop.state.iterTerms = start.terms;
    loop.state.barrier = Barrier{};  // bounds are kept exactly
    options.maxIterations = std::max(options.maxIterations, options.startIteration + mostNewtonSteps);
    if (mode.state.begun) {
        options.multiplier = mode.state.multiplier;
        mode.work.data.productCount = mode.state.products;
        // The limit of the control file, by which the loop was put back, counts steps of another kind.
        loop.state.continueFlag = mode.state.end == ConvergedEnd::running;
        return;
    }
    mode.state.begun = true;
    if (mode.state.settings.searchTradeoff) {
        beginSearch(mode, problem, options);
    }
    mode.state.multiplier = options.multiplier;
    mode.state.products = mode.work.data.productCount;
}

void takeConvergedStep(ConvergedMode& mode, InversionLoop& loop, InversionOptions& options) {
    ConvergedState& state = mode.state;
    options.multiplier = state.multiplier;
    const NewtonResult result = takeNewtonStep(loop.problem, mode.work, currentObjective(mode, loop), NewtonLimits{});
    if (state.stepsAtTradeoff == 0) {
        state.firstGradientNorm = result.gradientNorm;
    }
    ++state.stepsAtTradeoff;
    state.gradientNorm = result.gradientNorm;
    state.predictedDecrease = result.predictedDecrease;
    state.objective = result.objective;
    state.improved = result.improved;
    state.products = mode.work.data.productCount;
    loop.state.iterTerms = result.terms;
    loop.state.stepCount = result.trials;
    loop.stepGradient = mode.work.gradient;
}

void advanceConvergedMode(ConvergedMode& mode, InversionLoop& loop) {
    ConvergedState& state = mode.state;
    if (!loop.state.continueFlag) {
        state.end = ConvergedEnd::mostSteps;
    } else if (mode.state.settings.searchTradeoff) {
        advanceSearch(mode, loop);
    } else if (isConverged(state, mode.state.settings.tolerance)) {
        state.end = state.improved ? ConvergedEnd::tolerance : ConvergedEnd::noDecrease;
        loop.state.continueFlag = false;
    }
}

void reportConvergence(ConvergedMode& mode, InversionLoop& loop) {
    currentObjective(mode, loop);
    evaluateGradient(loop.problem, mode.work, modelOf(loop.problem));
    reportConvergedEnd(mode, loop);
}

}  // namespace voxlith
