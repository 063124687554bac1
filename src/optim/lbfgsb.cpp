#include "optim/lbfgsb.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <stdexcept>

#include "optim/cauchy_point.h"
#include "optim/correction_memory.h"
#include "optim/line_search.h"
#include "optim/subspace_matrix.h"
#include "optim/subspace_step.h"

namespace voxlith {

namespace {

constexpr double epsmch = std::numeric_limits<double>::epsilon();
constexpr double unlimitedStep = 1.0e10;
constexpr std::int32_t searchEvaluationLimit = 20;

constexpr std::array<std::string_view, 5> refusals{"ERROR: N .LE. 0", "ERROR: M .LE. 0", "ERROR: FACTR .LT. 0",
                                                   "ERROR: INVALID NBD", "ERROR: NO FEASIBLE SOLUTION"};

// All that one call works on.
struct Engine {
    const BoxProblem& problem;
    std::span<double> x;
    double& f;
    std::span<double> g;
    LbfgsbWorkspace work;
    LbfgsbState state;
};

enum class SearchOutcome { evaluate, accepted, failed };

void copyTo(std::span<const double> from, std::span<double> to) {
    std::copy(from.begin(), from.end(), to.begin());
}

CorrectionMemory memoryOf(const Engine& engine) {
    const LbfgsbState& state = engine.state;
    const LbfgsbWorkspace& work = engine.work;
    return {work.s,
            work.y,
            engine.x.size(),
            static_cast<std::size_t>(engine.problem.m),
            static_cast<std::size_t>(state.corrections),
            static_cast<std::size_t>(state.oldest),
            state.theta,
            work.sDotY,
            work.sDotS,
            work.middleFactor};
}

// Drops all pairs: the model matrix becomes the identity.
void refreshMemory(LbfgsbState& state) {
    state.corrections = 0;
    state.oldest = 0;
    state.theta = 1.0;
    state.updateCount = 0;
    state.pairsNotInTable = 0;
    state.tableIsStale = false;
}

// Records which variables are free now.
void noteFreeVariables(Engine& engine) {
    engine.state.freeCount = 0;
    for (std::size_t i = 0; i < engine.x.size(); ++i) {
        const bool free = isFree(engine.work.status[i]);
        engine.work.wasFree[i] = free;
        engine.state.freeCount += free;
    }
}

// Leaves the Cauchy point in z (paper 1995, section 4). Without bounds it is of no use: the subspace step starts from
// x.
void takeCauchyPoint(Engine& engine, const CorrectionMemory& memory) {
    const std::size_t order = 2 * memory.m;
    LbfgsbWorkspace& work = engine.work;
    const CauchyArrays arrays{work.z,
                              work.d,
                              work.t,
                              work.order,
                              work.status,
                              work.small.subspan(0, order),
                              work.small.subspan(order, order),
                              work.small.subspan(2 * order, order),
                              work.small.subspan(3 * order, order)};
    engine.state.intervals =
        findCauchyPoint(engine.problem, memory, engine.x, engine.g, engine.state.gradientNorm, arrays);
}

// Brings the subspace matrix up to date and factors it. False if it is singular by rounding.
bool prepareSubspace(Engine& engine, const CorrectionMemory& memory) {
    LbfgsbState& state = engine.state;
    LbfgsbWorkspace& work = engine.work;
    const std::size_t order = 2 * memory.m;
    const TableLag lag{static_cast<std::size_t>(state.pairsNotInTable), state.updateCount > engine.problem.m,
                       state.tableIsStale};
    // c of the Cauchy search is still wanted: the scratch is the second quarter.
    const SubspaceTableArrays arrays{
        work.subspaceTable, work.status, work.wasFree, work.d, work.t, work.small.subspan(order, order)};
    updateSubspaceTable(memory, lag, arrays);
    state.pairsNotInTable = 0;
    state.tableIsStale = false;
    return factorSubspaceMatrix(memory, work.subspaceTable, work.subspaceFactor);
}

// Moves z from the Cauchy point to the minimiser of the model in the subspace of the free variables (paper 1995,
// section 5).
bool takeSubspaceStep(Engine& engine, const CorrectionMemory& memory) {
    LbfgsbState& state = engine.state;
    LbfgsbWorkspace& work = engine.work;
    const std::size_t order = 2 * memory.m;
    const bool solvable = prepareSubspace(engine, memory);
    noteFreeVariables(engine);
    if (!solvable)
        return false;
    const auto c = work.small.subspan(0, order);
    const auto products = work.small.subspan(order, order);
    reducedGradient(memory, state.box.constrained, engine.x, engine.g, work.z, work.status, c, products, work.r);
    state.stepReachedBound =
        subspaceStep(engine.problem, memory, work.subspaceFactor, work.status, products, work.r, work.z);
    return true;
}

// Finds the point z at which the quadratic model is least. False if a matrix is singular by rounding.
bool minimiseModel(Engine& engine) {
    LbfgsbState& state = engine.state;
    const CorrectionMemory memory = memoryOf(engine);
    if (!state.box.constrained && memory.count > 0) {
        copyTo(engine.x, engine.work.z);
        state.intervals = 0;
    } else {
        takeCauchyPoint(engine, memory);
    }
    if (memory.count == 0) {
        noteFreeVariables(engine);
        return true;
    }
    if (std::none_of(engine.work.status.begin(), engine.work.status.end(), isFree)) {
        noteFreeVariables(engine);
        state.tableIsStale = true;  // the variables change sides without the table
        return true;
    }
    return takeSubspaceStep(engine, memory);
}

// The largest and the first step of the search along d (paper 1997, section 3).
void limitSteps(Engine& engine) {
    LbfgsbState& state = engine.state;
    const std::span<const double> d = engine.work.d;
    state.largestStep = unlimitedStep;
    if (state.box.constrained) {
        if (state.iteration == 0)
            state.largestStep = largestAllowedStep(engine.problem, d, 1.0);
        else
            state.largestStep = largestFeasibleStep(engine.problem, engine.x, d, unlimitedStep);
    }
    state.step = 1.0;
    if (state.iteration == 0) {
        if (!state.box.boxed)
            state.step = 1.0 / std::sqrt(state.directionSquared);
        state.step = std::min(state.step, state.largestStep);
    }
}

LineSearchLimits limitsOf(const LbfgsbState& state) {
    LineSearchLimits limits;
    limits.largestStep = state.largestStep;
    return limits;
}

// Puts x at the current step along d.
void moveToTrial(Engine& engine) {
    LbfgsbState& state = engine.state;
    const LbfgsbWorkspace& work = engine.work;
    ++state.searchEvaluations;
    if (state.evaluations < std::numeric_limits<std::int32_t>::max())
        ++state.evaluations;
    if (state.step == 1.0) {
        copyTo(work.z, engine.x);
        return;
    }
    for (std::size_t i = 0; i < engine.x.size(); ++i)
        engine.x[i] = state.step * work.d[i] + work.t[i];
    clampToBounds(engine.problem, engine.x);
}

// Begins the search from x towards z: keeps the last iterate in t, r and previousValue, and goes to the first trial.
SearchOutcome beginLineSearch(Engine& engine) {
    LbfgsbState& state = engine.state;
    LbfgsbWorkspace& work = engine.work;
    for (std::size_t i = 0; i < engine.x.size(); ++i)
        work.d[i] = work.z[i] - engine.x[i];
    copyTo(engine.x, work.t);
    copyTo(engine.g, work.r);
    state.previousValue = engine.f;
    state.searchEvaluations = 0;
    state.directionSquared = innerProduct(work.d, work.d);
    state.slope = innerProduct(engine.g, work.d);
    state.slopeAtStart = state.slope;
    if (!std::isfinite(engine.f) || !std::isfinite(state.directionSquared) || !std::isfinite(state.slope))
        return SearchOutcome::failed;
    limitSteps(engine);
    beginSearch(engine.f, state.slope, state.step, limitsOf(state), state.search);
    if (taskBegins(state.search.request, "ERROR"))
        return SearchOutcome::failed;
    moveToTrial(engine);
    return SearchOutcome::evaluate;
}

// Judges the trial point x with its f and g.
SearchOutcome continueLineSearch(Engine& engine) {
    LbfgsbState& state = engine.state;
    state.slope = innerProduct(engine.g, engine.work.d);
    if (!std::isfinite(engine.f) || !std::isfinite(state.slope))
        return SearchOutcome::failed;
    TrialPoint trial{state.step, engine.f, state.slope};
    searchStep(limitsOf(state), trial, state.search);
    if (!taskIs(state.search.request, "FG"))
        return SearchOutcome::accepted;
    if (state.searchEvaluations >= searchEvaluationLimit || !std::isfinite(trial.step))
        return SearchOutcome::failed;
    state.step = trial.step;
    moveToTrial(engine);
    return SearchOutcome::evaluate;
}

void restoreLastIterate(Engine& engine) {
    copyTo(engine.work.t, engine.x);
    copyTo(engine.work.r, engine.g);
    engine.f = engine.state.previousValue;
}

void countIteration(LbfgsbState& state) {
    if (state.iteration < std::numeric_limits<std::int32_t>::max())
        ++state.iteration;
}

// Behind a search without success: back to the last iterate, for a new attempt from steepest descent. False, with the
// last word in `task`, if this search was from steepest descent already.
bool mayTryAgain(Engine& engine, TaskWord& task) {
    restoreLastIterate(engine);
    if (engine.state.corrections == 0) {
        countIteration(engine.state);
        setTask(task, "ABNORMAL_TERMINATION_IN_LNSRCH");
        return false;
    }
    refreshMemory(engine.state);
    return true;
}

// From an iterate x to the first trial of the next search. A singular matrix drops the memory, too; without memory
// there is none, so that the loop ends.
void iterate(Engine& engine, TaskWord& task) {
    for (;;) {
        if (!minimiseModel(engine)) {
            refreshMemory(engine.state);
            continue;
        }
        if (beginLineSearch(engine) == SearchOutcome::evaluate) {
            setTask(task, "FG_LNSRCH");
            return;
        }
        if (!mayTryAgain(engine, task))
            return;
    }
}

// Takes the trial that the caller has evaluated.
void takeTrial(Engine& engine, TaskWord& task) {
    const SearchOutcome outcome = continueLineSearch(engine);
    if (outcome == SearchOutcome::evaluate) {
        setTask(task, "FG_LNSRCH");
        return;
    }
    if (outcome == SearchOutcome::accepted) {
        countIteration(engine.state);
        engine.state.gradientNorm = projectedGradientNorm(engine.problem, engine.x, engine.g);
        setTask(task, "NEW_X");
        return;
    }
    if (mayTryAgain(engine, task))
        iterate(engine, task);
}

bool gradientHasConverged(const LbfgsbState& state, double pgtol, TaskWord& task) {
    if (!(state.gradientNorm <= pgtol))
        return false;
    setTask(task, "CONVERGENCE: NORM OF PROJECTED GRADIENT <= PGTOL");
    return true;
}

bool valueHasConverged(const Engine& engine, TaskWord& task) {
    const double scale = std::max({std::abs(engine.state.previousValue), std::abs(engine.f), 1.0});
    if (!(engine.state.previousValue - engine.f <= engine.state.tolerance * scale))
        return false;
    setTask(task, "CONVERGENCE: REL_REDUCTION_OF_F <= FACTR*EPSMCH");
    return true;
}

// Makes room for the newest pair and returns its column.
std::size_t nextColumn(LbfgsbState& state, std::int32_t m) {
    if (state.corrections < m) {
        ++state.corrections;
    } else {
        state.oldest = (state.oldest + 1) % m;
    }
    const std::int64_t newest = std::int64_t{state.oldest} + state.corrections - 1;
    return static_cast<std::size_t>(newest % m);
}

// Stores the step and the change of the gradient of the last iteration, unless their product is too small to keep the
// model matrix positive definite (paper 1995, section 3). False if a matrix is singular by rounding.
bool updateMemory(Engine& engine) {
    LbfgsbState& state = engine.state;
    LbfgsbWorkspace& work = engine.work;
    const std::size_t n = engine.x.size();
    for (std::size_t i = 0; i < n; ++i)
        work.r[i] = engine.g[i] - work.r[i];
    const double changeSquared = innerProduct(work.r, work.r);
    const double curvature = (state.slope - state.slopeAtStart) * state.step;
    if (!(curvature > epsmch * -state.slopeAtStart * state.step) || !std::isfinite(changeSquared)) {
        if (state.skippedUpdates < std::numeric_limits<std::int32_t>::max())
            ++state.skippedUpdates;
        return true;
    }
    const std::size_t first = nextColumn(state, engine.problem.m) * n;
    copyTo(work.r, work.y.subspan(first, n));
    for (std::size_t i = 0; i < n; ++i)
        work.s[first + i] = state.step * work.d[i];
    if (state.updateCount < std::numeric_limits<std::int32_t>::max())
        ++state.updateCount;
    state.pairsNotInTable = std::min(state.pairsNotInTable + 1, 2);
    state.theta = changeSquared / curvature;
    const CorrectionMemory memory = memoryOf(engine);
    const double lengthSquared = state.step * state.step * state.directionSquared;
    updateInnerProducts(memory, curvature, lengthSquared, state.updateCount > engine.problem.m, work.small);
    return factorMiddleMatrix(memory);
}

// "START": checks and sets up everything, and asks for f and g at the projected start point.
void start(Engine& engine, double factr, TaskWord& task) {
    engine.state = {};
    refreshMemory(engine.state);
    engine.state.tolerance = factr * epsmch;
    engine.state.box = setUpVariables(engine.problem, engine.x, engine.work.status);
    setTask(task, "FG_START");
}

// "FG_START": the first iteration of a run, or of one that is carried on.
void takeStartPoint(Engine& engine, double pgtol, TaskWord& task) {
    engine.state.evaluations = 1;
    engine.state.gradientNorm = projectedGradientNorm(engine.problem, engine.x, engine.g);
    if (!gradientHasConverged(engine.state, pgtol, task))
        iterate(engine, task);
}

// "NEW_X": tests the iterate and begins the next iteration.
void leaveIterate(Engine& engine, double pgtol, TaskWord& task) {
    if (gradientHasConverged(engine.state, pgtol, task) || valueHasConverged(engine, task))
        return;
    if (!updateMemory(engine))
        refreshMemory(engine.state);
    iterate(engine, task);
}

// True if n, m and the arrays fit together. m beyond the bound has no workspace on any machine.
bool arraysAreLongEnough(const BoxProblem& problem, std::size_t x, std::size_t g, std::size_t wa, std::size_t iwa) {
    const std::size_t n = problem.n > 0 ? static_cast<std::size_t>(problem.n) : 0;
    if (std::min({x, g, problem.l.size(), problem.u.size(), problem.nbd.size(), problem.fixedFlag.size(),
                  problem.maxStep.size()}) < n)
        return false;
    if (problem.n <= 0 || problem.m <= 0)
        return true;
    const std::size_t m = static_cast<std::size_t>(problem.m);
    return m <= 400'000'000 && wa >= (2 * m + 4) * n + 12 * m * m + 12 * m && iwa >= 3 * n;
}

// Remembers the refusal of a "START", or repeats it.
void recordRefusal(const LbfgsbSavedBlocks& saved, const TaskWord& task) {
    LbfgsbState refused;
    const auto found = std::find(refusals.begin(), refusals.end(), taskText(task));
    refused.refusal = static_cast<std::int32_t>(found - refusals.begin()) + 1;
    storeState(refused, saved);
}

}  // namespace

void lbfgsbStep(const BoxProblem& problem, std::span<double> x, double& f, std::span<double> g, double factr,
                double pgtol, std::span<double> wa, std::span<std::int32_t> iwa, TaskWord& task,
                const LbfgsbSavedBlocks& saved) {
    if (!arraysAreLongEnough(problem, x.size(), g.size(), wa.size(), iwa.size()))
        throw std::invalid_argument("L-BFGS-B: an array is shorter than n and m ask for");
    const bool starting = taskIs(task, "START");
    if (starting) {
        storeLayout(problem.n, problem.m, saved.isave);
        if (!argumentsAreValid(problem, factr, task)) {
            recordRefusal(saved, task);
            return;
        }
    } else if (!layoutIsOf(problem.n, problem.m, saved.isave)) {
        throw std::invalid_argument("L-BFGS-B: n and m must be those of the last START");
    }
    LbfgsbState state = loadState(saved);
    if (!starting && state.refusal != 0) {
        setTask(task, refusals[static_cast<std::size_t>(state.refusal - 1)]);
        return;
    }
    const std::size_t n = static_cast<std::size_t>(problem.n);
    Engine engine{problem, x.first(n), f, g.first(n), layOutWorkspace(problem.n, problem.m, wa, iwa), state};
    if (starting)
        start(engine, factr, task);
    else if (taskBegins(task, "FG_LN"))
        takeTrial(engine, task);
    else if (taskBegins(task, "NEW_X"))
        leaveIterate(engine, pgtol, task);
    else if (taskBegins(task, "FG_ST"))
        takeStartPoint(engine, pgtol, task);
    else if (!taskBegins(task, "STOP"))
        setTask(task, "FG_START");
    else if (taskBegins(task, "STOP: CPU") && engine.state.searchEvaluations > 0)
        restoreLastIterate(engine);
    storeState(engine.state, saved);
}

}  // namespace voxlith
