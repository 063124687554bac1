#include "inversion/inversion_loop.h"

#include <algorithm>
#include <cassert>
#include <cstddef>
#include <exception>
#include <limits>
#include <span>

#include "inversion/background_removal.h"
#include "inversion/barrier.h"
#include "inversion/conjugate_gradient_step.h"
#include "inversion/fixed_cells.h"
#include "inversion/gradient.h"
#include "inversion/iteration_report.h"
#include "inversion/objective.h"
#include "inversion/preconditioner.h"
#include "inversion/running_files.h"
#include "inversion/step_search.h"
#include "optim/optimiser_step.h"
#include "survey/dummy_value.h"

namespace voxlith {

namespace {

constexpr std::int32_t memoryDepth = 10;  // corrections that the optimiser remembers

// Position in the cycle of optimiser steps and one conjugate-gradient step: it runs from firstCyclePhase, then over and
// over from restartPhase, to conjugateGradientPhase. So conjugate-gradient steps come at iterations 12, 22, 32 ...
constexpr std::int32_t restartPhase = 1;
constexpr std::int32_t conjugateGradientPhase = 10;
constexpr std::int32_t lastIterationsWithoutConjugateGradients =
    10;  // the last iterations have no conjugate-gradient step

constexpr float firstStep = 0.1F;  // of the step search, as a share of the conjugate-gradient step

std::span<double> modelOf(const InversionProblem& problem) {
    return std::span(problem.arrays.model).first(problem.modelSize());
}

std::span<double> delmOf(const InversionProblem& problem) {
    return std::span(problem.arrays.delm).first(problem.modelSize());
}

// Adds the time since `start` to one of the overhead timers.
void stopTimer(double& timer, double start) {
    timer += clockSeconds() - start;
}

ObjectiveTerms evaluateObjective(InversionLoop& loop) {
    const double start = clockSeconds();
    const ObjectiveTerms terms = calcObjective(loop.problem, loop.state.barrier, modelOf(loop.problem));
    stopTimer(loop.problem.timers.calcObjective, start);
    return terms;
}

void evaluateGradient(InversionLoop& loop) {
    const double start = clockSeconds();
    calcGradient(GradientMode::gradient, loop.problem, loop.state.barrier, modelOf(loop.problem), delmOf(loop.problem));
    stopTimer(loop.problem.timers.calcGradient, start);
}

void evaluateStart(InversionLoop& loop) {
    const InversionProblem& problem = loop.problem;
    LoopState& state = loop.state;
    state.barrier = startBarrier(problem.options.positivity, problem.mesh, modelOf(problem));
    state.iterTerms = calcObjective(problem, state.barrier, modelOf(problem));
    // Compatibility: the gradient's timer has no start yet and takes the plain clock reading.
    problem.timers.calcGradient += clockSeconds();
}

// Publishes what has been staged since `start`, and counts the staging, too: most of its time goes into the text.
void publishSince(double start, InversionLoop& loop) {
    publishRunningFiles(loop);
    loop.staged.publishSeconds = clockSeconds() - start;
}

void reportStart(InversionLoop& loop) {
    const InversionProblem& problem = loop.problem;
    logStartingTerms(loop.messages, loop.state.iterTerms, loop.state.barrier, problem.options.multiplier);
    const double start = clockSeconds();
    stageRunningFiles(problem, modelOf(problem), loop.staged);
    publishSince(start, loop);
    stopTimer(problem.timers.output, start);
    const IterationRow row = rowOf(loop);
    if (problem.options.startIteration == 0) {
        startProgressTable(loop.progressTable, row);
    }
    startScreenTable(row);
}

void callOptimiser(InversionLoop& loop) {
    constexpr double pgtol = 0.0;
    constexpr int iprint = -1;
    LoopState& state = loop.state;
    InversionArrays& arrays = loop.problem.arrays;
    ModelBounds& bounds = loop.problem.bounds;
    const std::span<double> model = modelOf(loop.problem);
    const std::size_t size = model.size();
    const double start = clockSeconds();
    optimiserStep(loop.problem.options.InversionMethod, state.iteration, static_cast<int>(size), memoryDepth, model,
                  std::span(bounds.lowerBound).first(size), std::span(bounds.upperBound).first(size),
                  bounds.nFixedCells, std::span(bounds.boundType).first(size),
                  std::span<const std::int32_t>(bounds.fixedCell).first(size),
                  std::span<const double>(arrays.maxStep).first(size), state.objective, delmOf(loop.problem),
                  state.factr, pgtol, arrays.waBFGS, arrays.iwaBFGS, state.task, iprint, state.optimiser);
    stopTimer(loop.problem.timers.optimiser, start);
}

void optimiserIteration(InversionLoop& loop) {
    LoopState& state = loop.state;
    callOptimiser(loop);
    while (taskBegins(state.task, "FG")) {
        state.fgTerms = evaluateObjective(loop);
        state.objective = optimiserObjective(state.fgTerms, state.barrier, loop.problem.options.multiplier);
        evaluateGradient(loop);
        callOptimiser(loop);
    }
    // Compatibility: convergence or an error of the optimiser stops nothing; the reports then repeat the terms before.
    if (taskIs(state.task, "NEW_X")) {
        loop.stepGradient = delmOf(loop.problem);
        state.iterTerms = state.fgTerms;
    }
}

void conjugateGradientIteration(InversionLoop& loop) {
    const InversionProblem& problem = loop.problem;
    LoopState& state = loop.state;
    std::fill(delmOf(problem).begin(), delmOf(problem).end(), 0.0);

    double start = clockSeconds();
    conjugateGradientStep(problem, state.barrier, modelOf(problem), ConjugateGradientLimits{}, delmOf(problem));
    stopTimer(problem.timers.conjugateGradient, start);

    start = clockSeconds();
    float stepStart = firstStep;
    state.stepCount =
        stepSearch(problem, state.barrier, state.iterTerms, delmOf(problem), stepStart, modelOf(problem)).stepCount;
    stopTimer(problem.timers.stepSearch, start);

    state.iterTerms = evaluateObjective(loop);
    const Positivity positivity = problem.options.positivity;
    if (isStrict(positivity)) {
        state.iterTerms.barrierNorm =
            updateBarrier(positivity, state.barrier, problem.mesh, modelOf(problem), state.iterTerms.misfit);
    }
}

// The files of this iteration in place of those of the last one.
void stageIteration(InversionLoop& loop) {
    if (!loop.stepGradient.empty()) {
        stageGradientFile(loop.problem, loop.stepGradient, loop.staged);
        loop.unwritten.gradient = UnwrittenPlace::none;
    }
    stageRunningFiles(loop.problem, modelOf(loop.problem), loop.staged);
    loop.unwritten.model = UnwrittenPlace::none;
}

bool hasDummy(std::span<const double> model) {
    return std::ranges::any_of(model, [](double value) { return value < dummyLimit; });
}

// True when the files are published: they have their names, and are on the disk.
bool outputStep(InversionLoop& loop) {
    const double start = clockSeconds();
    const bool published = loop.state.iteration >= loop.problem.options.maxIterations || publicationIsDue(loop.staged);
    if (published) {
        stageIteration(loop);
        publishSince(start, loop);
    } else if (!loop.staged.discarded) {
        loop.unwritten.model = UnwrittenPlace::arrays;
        if (!loop.stepGradient.empty()) {
            loop.unwritten.gradient = UnwrittenPlace::arrays;
        }
    }
    // Compatibility: dummies of the model are written up to the first iteration and are 0 from then on.
    if (hasDummy(modelOf(loop.problem))) {
        keepUnwritten(loop.problem, loop.unwritten);
        std::ranges::replace_if(
            modelOf(loop.problem), [](double value) { return value < dummyLimit; }, 0.0);
    }
    stopTimer(loop.problem.timers.output, start);
    return published;
}

}  // namespace

InversionLoop::~InversionLoop() {
    try {
        stageUnwritten(problem, unwritten, staged);
    } catch (const std::exception&) {
        // Reached only when a failure ends the run; that failure is what is reported, and the versions before stay.
    }
}

void publishRunningFiles(InversionLoop& loop) {
    stageUnwritten(loop.problem, loop.unwritten, loop.staged);
    publishStagedFiles(loop.staged);
}

void beginInversion(InversionLoop& loop) {
    const InversionProblem& problem = loop.problem;
    assert(problem.arrays.model.size() >= problem.modelSize() && problem.arrays.delm.size() >= problem.modelSize());
    reportBeginning(loop.messages);
    if (problem.sensitivity.header.version > 1 && problem.options.iBackground > 0) {
        removeBackground(loop.messages, problem);
    }
    // In rounding errors of the objective: so small that the optimiser hardly ever stops before the iteration limit.
    loop.state.factr = hasMagneticLayout(problem.obs.dataType[0]) ? 1.0 : 0.1;
    loop.state.iteration = problem.options.startIteration;
    setTask(loop.state.task, "START");
    reserveUnwritten(problem, loop.unwritten);
    prepareArrays(problem);
    evaluateStart(loop);
    reportStart(loop);
}

void prepareArrays(const InversionProblem& problem) {
    buildPreconditioner(problem);
    std::ranges::fill(problem.arrays.maxStep, 0.0);
    std::ranges::fill(delmOf(problem), 0.0);
    fixDeepCells(problem.style(), problem.mesh, modelOf(problem), problem.bounds);
}

void resumeScreenTable(const InversionLoop& loop) {
    startScreenTable(rowOf(loop));
}

void startIteration(InversionLoop& loop) {
    LoopState& state = loop.state;
    loop.iterationStart = clockSeconds();
    loop.stepGradient = {};
    // A run that is continued from the largest number of all keeps it, so that the limit still ends it.
    if (state.iteration < std::numeric_limits<std::int32_t>::max()) {
        ++state.iteration;
    }
    logIterationHeading(loop.messages, state.iteration);
}

void takeCycleStep(InversionLoop& loop) {
    const LoopState& state = loop.state;
    // A step of L-BFGS-B with rows in memory cannot fail, and leaves a new gradient or the last one.
    if (state.cyclePhase >= conjugateGradientPhase || loop.problem.sensitivity.idisk != 0 ||
        usesPlis(loop.problem.options.InversionMethod)) {
        keepUnwritten(loop.problem, loop.unwritten);
    }
    if (state.cyclePhase < conjugateGradientPhase) {
        optimiserIteration(loop);
    } else if (state.iteration < loop.problem.options.maxIterations - lastIterationsWithoutConjugateGradients) {
        // Compatibility: skipped near the end, the iteration changes nothing and its row still has the "+".
        conjugateGradientIteration(loop);
    }
}

void finishIteration(InversionLoop& loop) {
    LoopState& state = loop.state;
    const InversionOptions& options = loop.problem.options;
    const bool published = outputStep(loop);
    IterationRow row = rowOf(loop);
    row.iterTime = clockSeconds() - loop.iterationStart;
    reportIteration(loop.messages, loop.progressTable, row, state.barrier);
    if (published) {
        syncLineFile(loop.messages.log);
        syncLineFile(loop.progressTable);
    }
    if (state.iteration >= options.maxIterations) {
        state.continueFlag = false;
    }
    if (state.continueFlag && options.outputStep > 0 && state.iteration % options.outputStep == 0) {
        stageIterationModels(loop.problem, state.iteration, modelOf(loop.problem), loop.staged);
        if (published) {
            publishRunningFiles(loop);
        }
    }
}

IterationRow rowOf(const InversionLoop& loop) {
    const LoopState& state = loop.state;
    IterationRow row;
    row.iteration = state.iteration;
    row.terms = state.iterTerms;
    row.totalObjective = reportedTotal(state.iterTerms, loop.problem.options.multiplier);
    row.steppedByConjugateGradients = state.cyclePhase == conjugateGradientPhase;
    row.stepCount = state.stepCount;
    return row;
}

// The optimiser drops its memory after a conjugate-gradient step: its corrections are those of another path.
void advanceCycle(LoopState& state) {
    if (state.cyclePhase == conjugateGradientPhase) {
        setTask(state.task, "START");
        state.cyclePhase = restartPhase;
    } else if (state.continueFlag) {
        ++state.cyclePhase;
    }
}

void finishInversion(InversionLoop& loop) {
    publishRunningFiles(loop);
    evaluateGradient(loop);  // arrays.delm ends as the gradient of the final model
    screenAndLogLine(loop.messages, "");
    reportOverhead(loop.messages, loop.problem.timers);
}

void inversionLoop(const InversionProblem& problem, Messages& messages, LineFile& progressTable) {
    InversionLoop loop{problem, messages, progressTable};
    beginInversion(loop);
    do {
        startIteration(loop);
        takeCycleStep(loop);
        finishIteration(loop);
        advanceCycle(loop.state);
    } while (loop.state.continueFlag);
    finishInversion(loop);
}

}  // namespace voxlith
