#include "run/convergence/convergence_report.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <limits>
#include <span>
#include <string>
#include <vector>

#include "base/messages.h"
#include "run/convergence/minimum_distance.h"
#include "run/stop_signal.h"

namespace voxlith {

namespace {

std::string shortNumber(double value) {
    std::array<char, 40> text{};
    std::snprintf(text.data(), text.size(), "%.4g", value);
    return text.data();
}

void say(InversionLoop& loop, const std::string& line) {
    screenAndLogLine(loop.messages, line);
}

double rmsOf(const ComponentMisfit& misfit) {
    return misfit.count > 0 ? std::sqrt(misfit.squares / misfit.count) : 0.0;
}

ComponentMisfit totalMisfit(const InversionProblem& problem) {
    ComponentMisfit total;
    for (const ComponentMisfit& misfit : componentMisfits(problem)) {
        total.count += misfit.count;
        total.squares += misfit.squares;
    }
    return total;
}

std::size_t componentCount(const InversionProblem& problem) {
    return static_cast<std::size_t>(problem.obs.nDataTypes);
}

std::string componentName(const InversionProblem& problem, std::size_t c) {
    return "component " + std::to_string(c + 1) + " (" + std::string(dataTypeName(problem.obs.dataType[c])) + ")";
}

void reportMisfits(const ConvergedMode& mode, InversionLoop& loop) {
    const auto misfits = componentMisfits(loop.problem);
    for (std::size_t c = 0; componentCount(loop.problem) > 1 && c < componentCount(loop.problem); ++c) {
        std::string text = "RMS misfit of " + componentName(loop.problem, c) + ": " + shortNumber(rmsOf(misfits[c]));
        if (mode.state.settings.perComponent) {
            text += ", its data misfit times " + shortNumber(mode.state.components.factor[c]);
        }
        say(loop, text);
    }
}

void reportSparseNorm(const ConvergedMode& mode, InversionLoop& loop) {
    const SparseState& sparse = mode.state.sparse;
    const SparsePowers powers = powersOf(mode.state.settings.modelNorm);
    std::string thresholds;
    for (std::size_t type = 0; type < loop.problem.modelTypes(); ++type) {
        thresholds += (type > 0 ? ", " : "") + shortNumber(sparse.threshold[type]);
    }
    say(loop, "Model norm: " + std::string(nameOf(mode.state.settings.modelNorm)) +
                  ", p = " + shortNumber(powers.reference) + " for values and " + shortNumber(powers.difference) +
                  " for differences, threshold " + thresholds + ", " + std::to_string(sparse.round) + " reweightings");
    say(loop,
        (sparse.settled ? "The last one changed the model by " : "Not settled: the last one changed the model by ") +
            shortNumber(100.0 * sparse.change) + " % of its largest value; norms in the table have these weights");
}

void reportAccuracy(ConvergedMode& mode, InversionLoop& loop) {
    const ConvergedState& state = mode.state;
    const double relative = state.objective > 0.0 ? state.remaining / state.objective : 0.0;
    switch (state.end) {
        case ConvergedEnd::tolerance:
            say(loop, "Converged: the objective can fall by about " + shortNumber(relative) +
                          " of it; norm of the projected gradient " + shortNumber(state.gradientNorm) + ", " +
                          shortNumber(state.firstGradientNorm) + " at the first step with this trade-off");
            break;
        case ConvergedEnd::noDecrease:
            say(loop, "Converged: no step lowers the objective beyond rounding");
            break;
        default:
            say(loop, "Not converged: the limit of " + std::to_string(mostNewtonSteps) +
                          " steps is reached; the objective can fall by about " + shortNumber(relative) + " of it");
            break;
    }
    if (state.phase == ConvergedPhase::sparse) {
        reportSparseNorm(mode, loop);
        return;
    }
    if (mode.work.cross.isUsed()) {
        const CrossGradientSettings& cross = state.settings.cross;
        say(loop, "Cross-gradient of properties " + std::to_string(cross.first) + " and " +
                      std::to_string(cross.second) + ": weight " + shortNumber(cross.weight) + ", term " +
                      shortNumber(state.cross) + " of the objective " + shortNumber(state.objective) +
                      "; the objective is not convex, this is a local minimum");
        return;
    }
    if (mode.work.data.amplitude) {
        say(loop, "Amplitude data: the objective is not convex, this is a local minimum");
        return;
    }
    const double bound = largestPossibleDecrease(loop.problem, mode.work);
    if (bound > state.objective) {
        say(loop, "The objective is " + shortNumber(state.objective) +
                      "; bounds and reference term give no useful limit for its distance from the minimum");
        return;
    }
    const std::string share = state.objective > 0.0 ? shortNumber(100.0 * bound / state.objective) : "0";
    say(loop, "The objective, " + shortNumber(state.objective) + ", is at most " + share + " % above its minimum");
}

// The RMS misfit that is reached from the model in some steps; the model is put back by the caller.
double rmsAfterSteps(ConvergedMode& mode, InversionLoop& loop, std::span<const std::size_t> components) {
    constexpr std::int32_t mostSteps = 12;
    constexpr double enough = 1.0e-3;
    const InversionProblem& problem = loop.problem;
    ScaledObjective current = evaluateObjective(problem, mode.work, modelOf(problem));
    for (std::int32_t step = 0; step < mostSteps; ++step) {
        const NewtonResult result = takeNewtonStep(problem, mode.work, current, NewtonLimits{});
        current = result.reached;
        if (!result.improved || result.remaining <= enough * current.objective) {
            break;
        }
    }
    const auto misfits = componentMisfits(problem);
    ComponentMisfit total;
    for (const std::size_t c : components) {
        total.count += misfits[c].count;
        total.squares += misfits[c].squares;
    }
    return rmsOf(total);
}

std::vector<std::size_t> allComponents(const InversionProblem& problem) {
    std::vector<std::size_t> components(componentCount(problem));
    for (std::size_t c = 0; c < components.size(); ++c) {
        components[c] = c;
    }
    return components;
}

bool boundsAct(const InversionProblem& problem, const NewtonWork& work) {
    const std::span<const double> model = modelOf(problem);
    for (std::size_t n = 0; n < model.size(); ++n) {
        if (problem.bounds.fixedCell[n] == 0 && (model[n] <= work.lower[n] || model[n] >= work.upper[n])) {
            return true;
        }
    }
    return false;
}

// The same trade-off without bounds, then with one component at a time. False when a signal ends the search.
bool findReasons(ConvergedMode& mode, InversionLoop& loop) {
    const InversionProblem& problem = loop.problem;
    NewtonWork& work = mode.work;
    const double target = mode.state.settings.targetRms;
    const double reached = rmsOf(totalMisfit(problem));
    const std::vector<double> model(modelOf(problem).begin(), modelOf(problem).end());
    const auto putBack = [&] { std::copy(model.begin(), model.end(), modelOf(problem).begin()); };
    bool explained = false;
    if (boundsAct(problem, work)) {
        const std::vector<double> lower = work.lower, upper = work.upper;
        std::fill(work.lower.begin(), work.lower.end(), -std::numeric_limits<double>::infinity());
        std::fill(work.upper.begin(), work.upper.end(), std::numeric_limits<double>::infinity());
        const double rms = rmsAfterSteps(mode, loop, allComponents(problem));
        work.lower = lower;
        work.upper = upper;
        putBack();
        if (signalOfRanks() != 0) {
            return false;
        }
        if (rms < 0.5 * (reached + target)) {
            explained = true;
            say(loop, "Reason: the bounds. Without them the RMS misfit falls to " + shortNumber(rms) +
                          ": wider bounds, another sign, or a background to remove");
        }
    }
    const std::array<double, maxFiles> scale = work.data.componentScale;
    bool eachAlone = componentCount(problem) > 1;
    for (std::size_t c = 0; componentCount(problem) > 1 && c < componentCount(problem); ++c) {
        std::array<double, maxFiles> alone{};
        alone[c] = 1.0;
        setComponentScales(problem, alone, work);
        const double rms = rmsAfterSteps(mode, loop, std::array{c});
        putBack();
        if (signalOfRanks() != 0) {
            setComponentScales(problem, scale, work);
            return false;
        }
        eachAlone = eachAlone && rms <= 1.02 * target;
        if (rms > 1.02 * target) {
            explained = true;
            say(loop, "Reason: " + componentName(problem, c) + " alone is fitted to an RMS misfit of " +
                          shortNumber(rms) +
                          " at best: its standard deviations are too small, or the cells too coarse");
        }
    }
    setComponentScales(problem, scale, work);
    if (eachAlone) {
        explained = true;
        say(loop,
            "Reason: each component alone is fitted, all together are not: they contradict each other (constant "
            "offsets, units, positions, or a property that they do not share)");
    }
    if (!explained) {
        say(loop,
            "Reason: the cells are too coarse or the mesh too small for the data, or the standard deviations are too "
            "small for their noise");
    }
    return true;
}

void reportReasons(ConvergedMode& mode, InversionLoop& loop) {
    if (!findReasons(mode, loop)) {
        say(loop, "Reason: a signal ended the search for it");
    }
    evaluateObjective(loop.problem, mode.work, modelOf(loop.problem));  // the predictions of the model again
}

// With --per-component.
void reportComponentsEnd(const ConvergedMode& mode, InversionLoop& loop) {
    const std::string target = shortNumber(mode.state.settings.targetRms);
    if (mode.state.components.end == ComponentEnd::reached) {
        say(loop, "Target RMS misfit " + target + " of each component: reached after " +
                      std::to_string(mode.state.components.trialCount) + " sets of factors");
    } else {
        say(loop, "Target RMS misfit " + target +
                      " of each component: not reached, no factors bring the worst component nearer");
    }
    say(loop, "The factors tried are in voxlith_components.csv");
}

void reportSearchEnd(ConvergedMode& mode, InversionLoop& loop) {
    const TradeoffSearch& search = mode.state.search;
    const std::string rms = shortNumber(rmsOf(totalMisfit(loop.problem)));
    const std::string target = shortNumber(mode.state.settings.targetRms);
    const std::string tradeoff = shortNumber(loop.problem.options.multiplier);
    switch (search.end) {
        case SearchEnd::reached:
            say(loop, "Target RMS misfit " + target + ": reached " + rms + " with trade-off " + tradeoff + " after " +
                          std::to_string(search.trialCount) + " trade-offs");
            break;
        case SearchEnd::noModelNeeded:
            say(loop, "Target RMS misfit " + target + ": the misfit stays below it, " + rms +
                          ", however large the trade-off: the data need no structure in the model");
            break;
        default:
            say(loop,
                "Target RMS misfit " + target + ": not reached, the best is " + rms + " with trade-off " + tradeoff);
            break;
    }
    say(loop, "The trade-offs tried are in voxlith_tradeoff.csv");
}

}  // namespace

void reportConvergedEnd(ConvergedMode& mode, InversionLoop& loop) {
    say(loop, "");
    if (mode.state.settings.searchTradeoff && mode.state.search.end != SearchEnd::searching) {
        reportSearchEnd(mode, loop);
    }
    if (mode.state.components.end != ComponentEnd::searching) {
        reportComponentsEnd(mode, loop);
    }
    if (mode.state.settings.modelNorm != ModelNorm::smooth && mode.state.phase != ConvergedPhase::sparse) {
        say(loop, "Model norm: smooth, as a sparse one needs a model that fits the data to the target");
    }
    reportMisfits(mode, loop);
    reportAccuracy(mode, loop);
    const SearchEnd end = mode.state.search.end;
    if (end == SearchEnd::misfitStays || end == SearchEnd::mostTrials) {
        reportReasons(mode, loop);
    }
    say(loop,
        "Products with the sensitivities, forward and transposed: " + std::to_string(mode.work.data.productCount));
}

}  // namespace voxlith
