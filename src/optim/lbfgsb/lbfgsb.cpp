#include "optim/lbfgsb/lbfgsb.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <stdexcept>

#include "optim/lbfgsb/block_waves.h"
#include "optim/lbfgsb/cauchy_point.h"
#include "optim/lbfgsb/correction_memory.h"
#include "optim/lbfgsb/iteration_pass.h"
#include "optim/lbfgsb/line_search.h"
#include "optim/lbfgsb/search_direction.h"
#include "optim/lbfgsb/subspace_matrix.h"

namespace voxlith {

namespace {

constexpr double epsmch = std::numeric_limits<double>::epsilon();
constexpr double unlimitedStep = 1.0e10;
constexpr std::int32_t searchEvaluationLimit = 20;

constexpr std::array<std::string_view, 5> refusals{"ERROR: N .LE. 0", "ERROR: M .LE. 0", "ERROR: FACTR .LT. 0",
                                                   "ERROR: INVALID NBD", "ERROR: NO FEASIBLE SOLUTION"};

// The data of one call.
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
}

// The newest pair after the line search.
struct NewPair {
    bool isGood = false;           // it keeps the model matrix positive definite
    double curvature = 0.0;        // s'y
    double changeSquared = 0.0;    // y'y
    double lengthSquared = 0.0;    // s's
    std::size_t firstElement = 0;  // of its columns
};

// Decisions compare it with 0 and with pgtol alone.
double normOfGradient(const Engine& engine, double pgtol) {
    const double enough = std::max(pgtol, 0.0);
    return engine.state.box.constrained ? projectedGradientNorm(engine.problem, engine.x, engine.g, enough)
                                        : gradientNorm(engine.g, enough);
}

PairProducts productsOf(const Engine& engine) {
    return {engine.work.products};
}

PathKind pathKindOf(const Engine& engine, const CorrectionMemory& memory) {
    // Without bounds the Cauchy point is of no use: the subspace step starts from x.
    if (!engine.state.box.constrained && memory.count > 0) {
        return PathKind::straight;
    }
    return engine.state.gradientNorm <= 0.0 ? PathKind::none : PathKind::projected;
}

// The first pass over the memory: stores the pair, if it is good, and starts the path.
PathStart startIteration(Engine& engine, const CorrectionMemory& memory, PathKind kind, const NewPair& pair) {
    const LbfgsbWorkspace& work = engine.work;
    IterationPassArrays arrays{
        engine.x,           engine.g,           work.r, work.d, work.status, {}, {}, engine.state.step,
        work.subspaceTable, productsOf(engine), work.c};
    if (pair.isGood) {
        arrays.newStep = work.s.subspan(pair.firstElement, engine.x.size());
        arrays.newChange = work.y.subspan(pair.firstElement, engine.x.size());
    }
    return startIterationPass(engine.problem, memory, kind, arrays);
}

// Adds the newest pair, which is stored, to the matrices. False if one of them is singular by rounding.
bool updateCompactMatrices(Engine& engine, const NewPair& pair) {
    engine.state.theta = pair.changeSquared / pair.curvature;
    const CorrectionMemory memory = memoryOf(engine);
    storeNewestProducts(memory, productsOf(engine), newestStep, pair.curvature, pair.lengthSquared);
    storeNewestInTable(memory, productsOf(engine), newestFreeChange, newestFixedStep, engine.work.subspaceTable);
    return factorMiddleMatrix(memory);
}

// Follows the path to the Cauchy point (paper 1995, section 4).
CauchyPoint cauchyPointOf(Engine& engine, const CorrectionMemory& memory, PathKind kind, PathStart& path) {
    LbfgsbWorkspace& work = engine.work;
    std::fill(work.c.begin(), work.c.end(), 0.0);
    gatherProducts(memory, productsOf(engine), pathVector, work.p);
    if (kind != PathKind::projected) {
        return {};
    }
    const std::size_t order = 2 * memory.m;
    const CauchyArrays arrays{work.d,
                              work.status,
                              work.t,
                              work.order,
                              work.p,
                              work.c,
                              work.products.subspan(0, order),
                              work.products.subspan(order, order),
                              work.subspaceTable,
                              productsOf(engine)};
    return findCauchyPoint(engine.problem, memory, engine.x, path, arrays);
}

// From the Cauchy point to the minimiser z of the quadratic model (paper 1995, section 5), and to the direction of the
// search. False if a matrix is singular by rounding.
bool minimiseOverSubspace(Engine& engine, const CorrectionMemory& memory, const PathStart& path,
                          const CauchyPoint& cauchyPoint, SearchDirection& search) {
    LbfgsbState& state = engine.state;
    LbfgsbWorkspace& work = engine.work;
    const std::size_t order = 2 * memory.m;
    const bool leavesX = cauchyPoint.segments > 0;
    const bool laterIteration = state.iteration > 0;
    SearchDirectionArrays arrays{engine.x, engine.g, work.status, work.d, laterIteration ? engine.x : work.z,
                                 work.t,   work.r,   {}};
    if (memory.count > 0 && path.freeCount > 0) {
        if (!factorSubspaceMatrix(memory, work.subspaceTable, work.subspaceFactor)) {
            return false;
        }
        const std::size_t used = 2 * memory.count;
        const auto factors = work.products.subspan(order, order);
        subspaceFactors(memory, work.subspaceTable, work.subspaceFactor, leavesX, cauchyPoint.time, work.c, work.p,
                        work.products.first(used), factors);
        arrays.factors = factors;
    }
    const SearchDirectionTask task{state.box.constrained, leavesX, cauchyPoint.time,
                                   state.box.constrained && laterIteration, !state.stepReachedBound};
    search = computeSearchDirection(engine.problem, memory, task, unlimitedStep, arrays);
    state.stepReachedBound = search.stepReachedBound;
    return true;
}

// Finds the minimiser z of the quadratic model in the box, and the direction towards it. False if a matrix is singular
// by rounding.
bool minimiseModel(Engine& engine, const NewPair& pair, SearchDirection& search) {
    LbfgsbState& state = engine.state;
    const PathKind kind = pathKindOf(engine, memoryOf(engine));
    PathStart path = startIteration(engine, memoryOf(engine), kind, pair);
    if (pair.isGood && !updateCompactMatrices(engine, pair)) {
        return false;
    }
    const CorrectionMemory memory = memoryOf(engine);
    const CauchyPoint cauchyPoint = cauchyPointOf(engine, memory, kind, path);
    state.intervals = cauchyPoint.segments;
    state.freeCount = static_cast<std::int32_t>(path.freeCount);
    return minimiseOverSubspace(engine, memory, path, cauchyPoint, search);
}

// The largest and the first step of the search along d (paper 1997, section 3).
void limitSteps(Engine& engine, double largestFeasible) {
    LbfgsbState& state = engine.state;
    state.largestStep = largestFeasible;
    if (state.box.constrained && state.iteration == 0) {
        state.largestStep = largestAllowedStep(engine.problem, engine.work.d, 1.0);
    }
    state.step = 1.0;
    if (state.iteration == 0) {
        if (!state.box.boxed) {
            state.step = 1.0 / std::sqrt(state.directionSquared);
        }
        state.step = std::min(state.step, state.largestStep);
    }
}

LineSearchLimits limitsOf(const LbfgsbState& state) {
    LineSearchLimits limits;
    limits.largestStep = state.largestStep;
    return limits;
}

void countTrial(LbfgsbState& state) {
    ++state.searchEvaluations;
    if (state.evaluations < std::numeric_limits<std::int32_t>::max()) {
        ++state.evaluations;
    }
}

// Puts x at the current step along d.
void moveToTrial(Engine& engine) {
    const LbfgsbState& state = engine.state;
    const LbfgsbWorkspace& work = engine.work;
    if (state.step == 1.0) {
        copyTo(work.z, engine.x);
        return;
    }
    forEachRange(engine.x.size(), [&](std::size_t first, std::size_t end) {
        for (std::size_t i = first; i < end; ++i) {
            engine.x[i] = state.step * work.d[i] + work.t[i];
        }
    });
    clampToBounds(engine.problem, engine.x);
}

// Begins the search towards z. The last iterate is stored in t, r and previousValue. From the second iteration on x is
// already at the first trial, the whole step.
SearchOutcome beginLineSearch(Engine& engine, const SearchDirection& search) {
    LbfgsbState& state = engine.state;
    state.previousValue = engine.f;
    state.searchEvaluations = 0;
    state.directionSquared = search.directionSquared;
    state.slope = search.slope;
    state.slopeAtStart = state.slope;
    if (!std::isfinite(engine.f) || !std::isfinite(state.directionSquared) || !std::isfinite(state.slope)) {
        return SearchOutcome::failed;
    }
    limitSteps(engine, search.largestStep);
    beginSearch(engine.f, state.slope, state.step, limitsOf(state), state.search);
    if (taskBegins(state.search.request, "ERROR")) {
        return SearchOutcome::failed;
    }
    countTrial(state);
    if (state.iteration == 0) {
        moveToTrial(engine);
    }
    return SearchOutcome::evaluate;
}

// Judges the trial point x with its f and g.
SearchOutcome continueLineSearch(Engine& engine) {
    LbfgsbState& state = engine.state;
    state.slope = longProduct(engine.g, engine.work.d);
    if (!std::isfinite(engine.f) || !std::isfinite(state.slope)) {
        return SearchOutcome::failed;
    }
    TrialPoint trial{state.step, engine.f, state.slope};
    searchStep(limitsOf(state), trial, state.search);
    if (!taskIs(state.search.request, "FG")) {
        return SearchOutcome::accepted;
    }
    if (state.searchEvaluations >= searchEvaluationLimit || !std::isfinite(trial.step)) {
        return SearchOutcome::failed;
    }
    if (state.step == 1.0) {
        copyTo(engine.x, engine.work.z);  // for the case that the search comes back to the whole step
    }
    state.step = trial.step;
    countTrial(state);
    moveToTrial(engine);
    return SearchOutcome::evaluate;
}

void restoreLastIterate(Engine& engine) {
    copyTo(engine.work.t, engine.x);
    copyTo(engine.work.r, engine.g);
    engine.f = engine.state.previousValue;
}

void countIteration(LbfgsbState& state) {
    if (state.iteration < std::numeric_limits<std::int32_t>::max()) {
        ++state.iteration;
    }
}

// After a failed search: back to the last iterate, for a new attempt from steepest descent. False, with the final word
// in `task`, if this search was already from steepest descent.
bool restartFromSteepestDescent(Engine& engine, TaskWord& task) {
    restoreLastIterate(engine);
    if (engine.state.corrections == 0) {
        countIteration(engine.state);
        setTask(task, "ABNORMAL_TERMINATION_IN_LNSRCH");
        return false;
    }
    refreshMemory(engine.state);
    return true;
}

// From an iterate x to the first trial of the next search. A singular matrix drops the memory, too. Without memory no
// matrix is singular, so the loop ends.
void iterate(Engine& engine, NewPair pair, TaskWord& task) {
    for (;; pair = {}) {
        SearchDirection search;
        if (!minimiseModel(engine, pair, search)) {
            refreshMemory(engine.state);
            continue;
        }
        if (beginLineSearch(engine, search) == SearchOutcome::evaluate) {
            setTask(task, "FG_LNSRCH");
            return;
        }
        if (!restartFromSteepestDescent(engine, task)) {
            return;
        }
    }
}

// Processes the trial that the caller has evaluated.
void processTrial(Engine& engine, double pgtol, TaskWord& task) {
    const SearchOutcome outcome = continueLineSearch(engine);
    if (outcome == SearchOutcome::evaluate) {
        setTask(task, "FG_LNSRCH");
        return;
    }
    if (outcome == SearchOutcome::accepted) {
        countIteration(engine.state);
        engine.state.gradientNorm = normOfGradient(engine, pgtol);
        setTask(task, "NEW_X");
        return;
    }
    if (restartFromSteepestDescent(engine, task)) {
        iterate(engine, {}, task);
    }
}

bool gradientHasConverged(const LbfgsbState& state, double pgtol, TaskWord& task) {
    if (!(state.gradientNorm <= pgtol)) {
        return false;
    }
    setTask(task, "CONVERGENCE: NORM OF PROJECTED GRADIENT <= PGTOL");
    return true;
}

bool valueHasConverged(const Engine& engine, TaskWord& task) {
    const double scale = std::max({std::abs(engine.state.previousValue), std::abs(engine.f), 1.0});
    if (!(engine.state.previousValue - engine.f <= engine.state.tolerance * scale)) {
        return false;
    }
    setTask(task, "CONVERGENCE: REL_REDUCTION_OF_F <= FACTR*EPSMCH");
    return true;
}

// Frees a column for the newest pair, that of the oldest pair when all are in use, and returns its number.
std::size_t nextColumn(LbfgsbState& state, std::int32_t m) {
    if (state.corrections < m) {
        ++state.corrections;
    } else {
        state.oldest = (state.oldest + 1) % m;
    }
    const std::int64_t newest = std::int64_t{state.oldest} + state.corrections - 1;
    return static_cast<std::size_t>(newest % m);
}

// y'y of the last iteration, y being the change of the gradient.
double squareOfChange(const Engine& engine) {
    const std::span<const double> g = engine.g, lastG = engine.work.r;
    double square = 0.0;
    std::array<double, mostSlots> squares;
    forEachBlock(
        0, g.size(), mostSlots, 2,
        [&](std::size_t slot, std::size_t first, std::size_t length) {
            std::array<double, blockLength> change;
            for (std::size_t i = 0; i < length; ++i) {
                change[i] = g[first + i] - lastG[first + i];
            }
            squares[slot] = blockProduct(change.data(), change.data(), length);
        },
        [&](std::size_t slot, std::size_t, std::size_t) { square += squares[slot]; });
    return square;
}

// Reserves a column for the step and the change of the gradient of the last iteration, unless their product is too
// small to keep the model matrix positive definite (paper 1995, section 3; the threshold is that of the program of
// 1997), or y'y overflows. This is decided before the pair is stored, because its column may be that of the oldest
// pair.
NewPair reservePair(Engine& engine) {
    LbfgsbState& state = engine.state;
    NewPair pair;
    pair.curvature = (state.slope - state.slopeAtStart) * state.step;
    const bool isCurved = pair.curvature > epsmch * -state.slopeAtStart * state.step;
    if (isCurved) {
        pair.changeSquared = squareOfChange(engine);
    }
    pair.isGood = isCurved && std::isfinite(pair.changeSquared);
    if (!pair.isGood) {
        if (state.skippedUpdates < std::numeric_limits<std::int32_t>::max()) {
            ++state.skippedUpdates;
        }
        return pair;
    }
    pair.lengthSquared = state.step * state.step * state.directionSquared;
    pair.firstElement = nextColumn(state, engine.problem.m) * engine.x.size();
    if (state.updateCount < std::numeric_limits<std::int32_t>::max()) {
        ++state.updateCount;
    }
    if (state.updateCount > engine.problem.m) {
        forgetOldestProducts(memoryOf(engine));
        forgetOldestInTable(memoryOf(engine), engine.work.subspaceTable);
    }
    return pair;
}

// "START": checks and sets up everything, and requests f and g at the projected start point.
void start(Engine& engine, double factr, TaskWord& task) {
    engine.state = {};
    refreshMemory(engine.state);
    engine.state.tolerance = factr * epsmch;
    engine.state.box = setUpVariables(engine.problem, engine.x, engine.work.status);
    findUniformBlocks(engine.problem, engine.work.uniform);
    setTask(task, "FG_START");
}

// "FG_START": the first iteration of a run, or of a continued one.
void acceptStartPoint(Engine& engine, double pgtol, TaskWord& task) {
    engine.state.evaluations = 1;
    engine.state.gradientNorm = normOfGradient(engine, pgtol);
    if (!gradientHasConverged(engine.state, pgtol, task)) {
        iterate(engine, {}, task);
    }
}

// "NEW_X": tests the iterate and begins the next iteration.
void finishIteration(Engine& engine, double pgtol, TaskWord& task) {
    if (gradientHasConverged(engine.state, pgtol, task) || valueHasConverged(engine, task)) {
        return;
    }
    iterate(engine, reservePair(engine), task);
}

// True if no array is shorter than n and m require. The bound on m keeps m^2 within 64 bits.
bool arraysAreLongEnough(const BoxProblem& problem, std::size_t x, std::size_t g, std::size_t wa, std::size_t iwa) {
    const std::size_t n = problem.n > 0 ? static_cast<std::size_t>(problem.n) : 0;
    if (std::min({x, g, problem.l.size(), problem.u.size(), problem.nbd.size(), problem.fixedFlag.size(),
                  problem.maxStep.size()}) < n) {
        return false;
    }
    if (problem.n <= 0 || problem.m <= 0) {
        return true;
    }
    const std::size_t m = static_cast<std::size_t>(problem.m);
    return m <= 400'000'000 && wa >= (2 * m + 4) * n + 12 * m * m + 12 * m && iwa >= 3 * n;
}

// Stores which error refused a "START", for the next call.
void recordRefusal(const LbfgsbSavedArrays& saved, const TaskWord& task) {
    LbfgsbState refused;
    const auto found = std::find(refusals.begin(), refusals.end(), taskText(task));
    refused.refusal = static_cast<std::int32_t>(found - refusals.begin()) + 1;
    storeState(refused, saved);
}

}  // namespace

void lbfgsbStep(const BoxProblem& problem, std::span<double> x, double& f, std::span<double> g, double factr,
                double pgtol, std::span<double> wa, std::span<std::int32_t> iwa, TaskWord& task,
                const LbfgsbSavedArrays& saved) {
    if (!arraysAreLongEnough(problem, x.size(), g.size(), wa.size(), iwa.size())) {
        throw std::invalid_argument("L-BFGS-B: an array is shorter than n and m require");
    }
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
    const LbfgsbWorkspace work = layOutWorkspace(problem.n, problem.m, wa, iwa);
    BoxProblem known = problem;
    known.uniform = work.uniform;
    Engine engine{known, x.first(n), f, g.first(n), work, state};
    if (starting) {
        start(engine, factr, task);
    } else if (taskBegins(task, "FG_LN")) {
        processTrial(engine, pgtol, task);
    } else if (taskBegins(task, "NEW_X")) {
        finishIteration(engine, pgtol, task);
    } else if (taskBegins(task, "FG_ST")) {
        acceptStartPoint(engine, pgtol, task);
    } else if (!taskBegins(task, "STOP")) {
        setTask(task, "FG_START");
    } else if (taskBegins(task, "STOP: CPU") && engine.state.searchEvaluations > 0) {
        restoreLastIterate(engine);
    }
    storeState(engine.state, saved);
}

}  // namespace voxlith
