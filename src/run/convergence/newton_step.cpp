#include "run/convergence/newton_step.h"

#include <algorithm>
#include <cmath>
#include <span>

#include "run/convergence/free_cells.h"
#include "run/convergence/interior_point.h"
#include "run/convergence/projected_search.h"
#include "run/convergence/subspace_step.h"

namespace voxlith {

namespace {

// Along work.step. True when it has found a better model.
bool search(const InversionProblem& problem, NewtonWork& work, std::int32_t mostTrials, NewtonResult& result) {
    const ProjectedSearch search = searchAlongProjection(problem, work, result.reached, mostTrials);
    result.trials += search.trials;
    if (search.found) {
        result.improved = true;
        result.reached = *search.found;
    }
    return search.found.has_value();
}

double squareOfFreeGradient(const InversionProblem& problem, NewtonWork& work) {
    takeNegativeGradient(work);
    return preconditionedSquare(problem, work, DataTerm::whole);
}

void takeProjectedStep(const InversionProblem& problem, NewtonWork& work, const SolveLimits& limits,
                       const SolveGoal& goal, NewtonResult& result) {
    constexpr std::int32_t trialsOfStep = 10, trialsOfGradient = 30;
    takeNegativeGradient(work);
    const SolveResult solved = solveForStep(problem, work, limits, goal, {});
    result.predictedDecrease = solved.predictedDecrease;
    result.gradientNorm = solved.residualNorm;
    result.inverseCurvature = solved.inverseCurvature;
    result.stopped = solved.stopped;
    if (result.stopped) {
        return;
    }
    search(problem, work, trialsOfStep, result);
    if (!result.improved && result.gradientNorm > 0.0) {
        // The projection can turn a Newton step into an ascent; the scaled gradient descends for some length.
        takeNegativeGradient(work);
        precondition(problem, work);
        work.step = work.preconditioned;
        search(problem, work, trialsOfGradient, result);
    }
}

void takeStepInSubspace(const InversionProblem& problem, NewtonWork& work, const NewtonLimits& limits,
                        NewtonResult& result) {
    const std::size_t before = work.subspace.count;
    result.gradientNorm = std::sqrt(squareOfFreeGradient(problem, work));
    const SubspaceResult step = takeSubspaceStep(problem, work, result.reached, limits.accuracy, limits.mostRounds);
    result.reached = step.reached;
    result.trials = step.trials;
    result.improved = step.improved;
    result.remaining = step.remaining;
    result.stopped = step.stopped;
    if (result.stopped) {
        work.subspace.count = before;
    }
}

// From the model that the projected step has reached.
void takeInteriorStep(const InversionProblem& problem, NewtonWork& work, double accuracy, NewtonResult& result) {
    constexpr std::int32_t mostTrials = 30;
    evaluateGradient(problem, work, modelOf(problem));
    const InteriorSolution solution = solveWithinBounds(problem, work, result.reached.objective, accuracy);
    result.stopped = solution.stopped;
    if (result.stopped) {
        return;
    }
    evaluateGradient(problem, work, modelOf(problem));
    if (search(problem, work, mostTrials, result)) {
        result.remaining = solution.remaining;
    } else {
        evaluateObjective(problem, work, modelOf(problem));
    }
}

// After the step: the gradient at its end, and by its preconditioned norm how far phi can fall from there. Where phi is
// not quadratic that says too little: it may go on falling as much as the step promised.
void estimateRemaining(const InversionProblem& problem, NewtonWork& work, bool quadratic, NewtonResult& result) {
    evaluateGradient(problem, work, modelOf(problem));
    const double square =
        findFreeCells(problem, work, modelOf(problem)) > 0 ? squareOfFreeGradient(problem, work) : 0.0;
    result.gradientNormAfter = std::sqrt(square);
    if (!std::isfinite(result.remaining)) {  // an interior step has its own bound
        const double ofGradient = square * result.inverseCurvature;
        result.remaining = quadratic ? ofGradient : std::max(ofGradient, result.predictedDecrease);
    }
}

}  // namespace

NewtonResult takeNewtonStep(const InversionProblem& problem, NewtonWork& work, const ScaledObjective& current,
                            const NewtonLimits& limits) {
    constexpr double leastShare = 0.05;
    const std::span<double> model = modelOf(problem);
    NewtonResult result;
    result.reached = current;
    evaluateGradient(problem, work, model);
    if (findFreeCells(problem, work, modelOf(problem)) == 0) {
        result.remaining = 0.0;
        return result;
    }
    work.startModel.assign(model.begin(), model.end());
    const bool quadratic = !work.data.amplitude && work.cross.weight == 0.0;
    const SolveGoal goal{limits.accuracy, quadratic ? current.objective : 0.0};
    if (quadratic && work.subspace.count < work.subspace.capacity) {
        takeStepInSubspace(problem, work, limits, result);
    } else {
        takeProjectedStep(problem, work, limits.solve, goal, result);
        if (!result.improved && !result.stopped) {
            evaluateObjective(problem, work, model);  // predictions of the trial become those of the model again
        }
    }
    const double decrease = current.objective - result.reached.objective;
    const double accuracy = accuracyAt(limits.accuracy, result.reached.misfit);
    if (!result.stopped && quadratic && hasBounds(work) && result.predictedDecrease > accuracy * current.objective &&
        decrease < leastShare * result.predictedDecrease) {
        // Many cells meet their bounds early on the way: steps would alternate between sets of free cells.
        takeInteriorStep(problem, work, accuracy, result);
    }
    if (result.stopped) {
        std::copy(work.startModel.begin(), work.startModel.end(), model.begin());
        result.reached = evaluateObjective(problem, work, model);
        result.improved = false;
        return result;
    }
    estimateRemaining(problem, work, quadratic, result);
    return result;
}

}  // namespace voxlith
