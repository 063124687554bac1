#include "inversion/inversion_loop.h"

#include <algorithm>
#include <cstddef>
#include <limits>
#include <span>

#include "inversion/background_removal.h"
#include "inversion/barrier.h"
#include "inversion/conjugate_gradient.h"
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
constexpr std::int32_t firstPhase = -1;   // two optimiser steps more before the first conjugate-gradient step
constexpr std::int32_t conjugateGradientPhase = 10;
constexpr std::int32_t restartPhase = 1;
constexpr std::int32_t lastIterationsWithoutIt = 10;  // no conjugate-gradient step in the last iterations
constexpr float firstStep = 0.1F;

struct LoopState {
    std::int32_t iteration = 0;
    std::int32_t cyclePhase = firstPhase;
    bool continueFlag = true;
    TaskWord task{};
    OptimiserState optimiser{};
    Barrier barrier{};
    ObjectiveTerms fgTerms{};    // of the last evaluation that the optimiser asked for
    ObjectiveTerms iterTerms{};  // that the reports show
    double objective = 0;
    double factr = 0;
    std::int32_t stepCount = 0;
    double iterationStart = 0;
};

// Everything that one iteration works with.
struct Loop {
    InversionProblem& problem;
    const LoopSettings& settings;
    ObjectiveInputs inputs;
    ModelNaming naming;
    ModelWriting writing;
    GradientWork gradientWork;
    std::span<double> model, delm;
    LoopState state{};
};

Loop makeLoop(InversionProblem& problem, const LoopSettings& settings) {
    InversionArrays& arrays = problem.arrays;
    const std::size_t size = problem.mesh.cellCount() * static_cast<std::size_t>(problem.nModelTypes);
    const ObjectiveInputs inputs{problem.sensitivity,
                                 problem.mesh,
                                 problem.products,
                                 problem.obs,
                                 problem.lines,
                                 problem.weights,
                                 std::span<const double>(arrays.refModel).first(size),
                                 std::span<const std::int32_t>(problem.bounds.fixedCell).first(size),
                                 problem.timers,
                                 problem.nModelTypes,
                                 settings.inversionStyle,
                                 settings.positivity,
                                 settings.multiplier};
    const ModelNaming naming{problem.obs.dataType[0], problem.nModelTypes, problem.modelLabel};
    const ModelWriting writing{problem.mesh, problem.sensitivity, settings.inversionStyle};
    const GradientWork work{std::span(arrays.modelWork).first(size), arrays.lbfgsWork};
    return {problem,
            settings,
            inputs,
            naming,
            writing,
            work,
            std::span(arrays.model).first(size),
            std::span(arrays.delm).first(size)};
}

// Adds the time since `start` to one of the overhead timers.
void stopTimer(double& timer, double start) {
    timer += clockSeconds() - start;
}

ObjectiveTerms evaluateObjective(Loop& loop) {
    const double start = clockSeconds();
    const ObjectiveTerms terms = calcObjective(loop.inputs, loop.state.barrier, loop.model);
    stopTimer(loop.problem.timers.calcObjective, start);
    return terms;
}

void evaluateGradient(Loop& loop) {
    const double start = clockSeconds();
    calcGradient(GradientMode::gradient, loop.inputs, loop.state.barrier, loop.model, loop.gradientWork, loop.delm);
    stopTimer(loop.problem.timers.calcGradient, start);
}

void prepareArrays(Loop& loop) {
    InversionProblem& problem = loop.problem;
    const auto regDiag = std::span(problem.arrays.preconWork[0]).first(problem.mesh.cellCount());
    const auto precond = std::span(problem.arrays.preconWork[1]).first(problem.mesh.cellCount());
    buildRegularisationDiagonal(problem.mesh, problem.weights, problem.sensitivity, regDiag);
    buildPreconditioner(problem.sensitivity, loop.settings.multiplier, regDiag, precond);
    std::fill(problem.arrays.modelBest.begin(), problem.arrays.modelBest.end(), 0.0);
    std::fill(loop.delm.begin(), loop.delm.end(), 0.0);
    fixDeepCells(loop.settings.inversionStyle, problem.mesh, loop.model, problem.bounds);
}

void evaluateStart(Loop& loop) {
    LoopState& state = loop.state;
    state.barrier = startBarrier(loop.settings.positivity, loop.problem.mesh, loop.model);
    state.iterTerms = calcObjective(loop.inputs, state.barrier, loop.model);
    initFocus(loop.inputs.focus);
    // The gradient's timer has no start stamp yet and takes the plain clock reading; the overhead lines of earlier
    // versions show the same.
    loop.problem.timers.calcGradient += clockSeconds();
}

void writeOutputs(Loop& loop) {
    writeRunningFiles(loop.writing, loop.naming, loop.problem.obs, loop.model);
}

IterationRow rowOf(const Loop& loop) {
    const LoopState& state = loop.state;
    IterationRow row;
    row.iteration = state.iteration;
    row.terms = state.iterTerms;
    row.totalObjective = reportedTotal(state.iterTerms, loop.settings.multiplier);
    row.steppedByConjugateGradients = state.cyclePhase == conjugateGradientPhase;
    row.stepCount = state.stepCount;
    return row;
}

void reportStart(Loop& loop) {
    InversionProblem& problem = loop.problem;
    logStartingTerms(problem.messages, loop.state.iterTerms, loop.state.barrier, loop.settings.multiplier);
    const double start = clockSeconds();
    writeOutputs(loop);
    stopTimer(problem.timers.output, start);
    const IterationRow row = rowOf(loop);
    if (loop.settings.startIteration == 0)
        startProgressTable(problem.progressTable, row);
    startScreenTable(row);
}

void prepare(Loop& loop) {
    InversionProblem& problem = loop.problem;
    const LoopSettings& settings = loop.settings;
    reportBeginning(problem.messages);
    if (settings.mtxVersion > 1 && settings.iBackground > 0)
        removeBackground(problem.messages, settings.iBackground, settings.BackVal, problem.sensitivity,
                         problem.mesh.nzl, problem.obs, problem.lines);
    loop.state.factr = hasMagneticLayout(problem.obs.dataType[0]) ? 1.0 : 0.1;
    loop.state.optimiser.dsave[29] = 10000.0;
    loop.state.iteration = settings.startIteration;
    setTask(loop.state.task, "START");
    prepareArrays(loop);
    evaluateStart(loop);
    reportStart(loop);
}

void callOptimiser(Loop& loop) {
    constexpr double pgtol = 0.0;
    constexpr int iprint = -1;
    LoopState& state = loop.state;
    InversionArrays& arrays = loop.problem.arrays;
    ModelBounds& bounds = loop.problem.bounds;
    const std::size_t size = loop.model.size();
    const double start = clockSeconds();
    optimiserStep(loop.settings.InversionMethod, state.iteration, static_cast<int>(size), memoryDepth, loop.model,
                  std::span(bounds.lowerBound).first(size), std::span(bounds.upperBound).first(size),
                  bounds.nFixedCells, std::span(bounds.boundType).first(size),
                  std::span<const std::int32_t>(bounds.fixedCell).first(size),
                  std::span<const double>(arrays.modelBest).first(size), state.objective, loop.delm, state.factr, pgtol,
                  arrays.waBFGS, arrays.iwaBFGS, state.task, iprint, state.optimiser);
    stopTimer(loop.problem.timers.optimiser, start);
}

void optimiserIteration(Loop& loop) {
    LoopState& state = loop.state;
    callOptimiser(loop);
    while (taskBegins(state.task, "FG")) {
        state.fgTerms = evaluateObjective(loop);
        state.fgTerms.focusNorm = 0.0F;
        state.objective = optimiserObjective(state.fgTerms, state.barrier, loop.settings.multiplier);
        evaluateGradient(loop);
        callOptimiser(loop);
    }
    // Whatever else the optimiser answers (convergence, an error) stops nothing: the reports then repeat the terms
    // before.
    if (taskIs(state.task, "NEW_X")) {
        writeGradientFile(loop.writing, loop.delm);
        state.iterTerms = state.fgTerms;
    }
}

ConjugateGradientWork conjugateGradientWork(InversionArrays& arrays, std::size_t size) {
    const auto array = [&](std::size_t n) { return std::span(arrays.cgWork[n]).first(size); };
    return {array(0), array(1), array(2), array(3), array(4)};
}

void conjugateGradientIteration(Loop& loop) {
    LoopState& state = loop.state;
    InversionProblem& problem = loop.problem;
    OverheadTimers& timers = problem.timers;
    const std::size_t size = loop.model.size();
    std::fill(loop.delm.begin(), loop.delm.end(), 0.0);

    double start = clockSeconds();
    conjugateGradient(loop.inputs, state.barrier, loop.model, loop.delm,
                      std::span<const float>(problem.arrays.preconWork[1]).first(problem.mesh.cellCount()),
                      ConjugateGradientLimits{}, loop.gradientWork, conjugateGradientWork(problem.arrays, size));
    stopTimer(timers.conjugateGradient, start);

    start = clockSeconds();
    float stepStart = firstStep;
    const StepSearchResult search = stepSearch(loop.inputs, state.barrier, problem.bounds, state.iterTerms, loop.delm,
                                               stepStart, std::span(problem.arrays.lbfgsWork).first(size), loop.model);
    state.stepCount = search.stepCount;
    stopTimer(timers.stepSearch, start);

    state.iterTerms = evaluateObjective(loop);
    if (isStrict(loop.settings.positivity))
        state.iterTerms.barrierNorm =
            updateBarrier(loop.settings.positivity, state.barrier, problem.mesh, loop.model, state.iterTerms.misfit);
}

// Dummies are written as they are and leave the model behind the writing.
void outputStep(Loop& loop) {
    const double start = clockSeconds();
    writeOutputs(loop);
    for (double& value : loop.model)
        if (value < dummyLimit)
            value = 0.0;
    stopTimer(loop.problem.timers.output, start);
}

void advanceCycle(LoopState& state) {
    if (state.cyclePhase == conjugateGradientPhase) {
        setTask(state.task, "START");
        state.cyclePhase = restartPhase;
    } else if (state.continueFlag) {
        ++state.cyclePhase;
    }
}

void iterate(Loop& loop) {
    LoopState& state = loop.state;
    const LoopSettings& settings = loop.settings;
    state.iterationStart = clockSeconds();
    // A run that is continued from the largest number of all keeps it, so that the limit still ends it.
    if (state.iteration < std::numeric_limits<std::int32_t>::max())
        ++state.iteration;
    logIterationHeading(loop.problem.messages, state.iteration);

    if (state.cyclePhase < conjugateGradientPhase)
        optimiserIteration(loop);
    else if (state.iteration < settings.maxIterations - lastIterationsWithoutIt)
        conjugateGradientIteration(loop);

    outputStep(loop);
    IterationRow row = rowOf(loop);
    row.iterTime = clockSeconds() - state.iterationStart;
    reportIteration(loop.problem.messages, loop.problem.progressTable, row, state.barrier);

    if (state.iteration >= settings.maxIterations)
        state.continueFlag = false;
    if (state.continueFlag && settings.outputStep > 0 && state.iteration % settings.outputStep == 0)
        writeIterationModels(loop.writing, loop.naming, state.iteration, settings.maxIterations, loop.model);
    advanceCycle(state);
}

void finish(Loop& loop) {
    evaluateGradient(loop);
    screenAndLogLine(loop.problem.messages, "");
    reportOverhead(loop.problem.messages, loop.problem.timers);
}

}  // namespace

void inversionLoop(InversionProblem& problem, const LoopSettings& settings) {
    Loop loop = makeLoop(problem, settings);
    prepare(loop);
    do
        iterate(loop);
    while (loop.state.continueFlag);
    finish(loop);
}

}  // namespace voxlith
