#include "run/check_report.h"

#include <sys/resource.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>

#include "base/overhead_timers.h"
#include "base/ranks.h"
#include "base/workers.h"
#include "driver/run_steps.h"
#include "inversion/gradient.h"
#include "inversion/objective.h"
#include "run/convergence/converged_mode.h"
#include "run/cost_model.h"
#include "run/run_summary.h"

namespace voxlith {

namespace {

// Ten iterations of the cycle evaluate objective and gradient about once each in nine optimiser steps; the one
// conjugate-gradient step has twenty products of both kinds and some evaluations of its step search.
constexpr double evaluationsPerIteration = 3.0;

// Largest memory that the process has had so far, in MB. All arrays of a run have their sizes by now.
double megabytesUsed() {
    constexpr double perMegabyte = 1024.0;
    struct rusage usage {};
    ::getrusage(RUSAGE_SELF, &usage);
    return static_cast<double>(usage.ru_maxrss) / perMegabyte;
}

double secondsOfEvaluation(const InversionProblem& problem) {
    const std::size_t size = problem.modelSize();
    const std::span<const double> model = std::span(problem.arrays.model).first(size);
    const double start = clockSeconds();
    calcObjective(problem, Barrier{}, model);
    calcGradient(GradientMode::gradient, problem, Barrier{}, model, std::span(problem.arrays.delm).first(size));
    return clockSeconds() - start;
}

std::string shorterToLonger(double shorter, double longer) {
    return "about " + timeText(shorter) + " to " + timeText(longer);
}

std::string describeIterations(const InversionProblem& problem, std::int32_t iterations) {
    const double iteration = evaluationsPerIteration * secondsOfEvaluation(problem);
    return summaryRow("one iteration", "about " + timeText(iteration)) +
           summaryRow(countText(iterations, "iteration").c_str(), "about " + timeText(iteration * iterations));
}

// Products until the end, on the examples and on a million cells, for each product definition.
struct ProductRange {
    double least = 0, most = 0;
};

ProductRange expectedProducts(const RunOptions& options, bool inSubspace) {
    if (options.modelNorm != ModelNorm::smooth) {
        return {1000.0, 3000.0};
    }
    if (options.perComponent) {
        return {250.0, 600.0};
    }
    if (inSubspace) {
        return {30.0, 120.0};
    }
    return options.targetRms ? ProductRange{200.0, 400.0} : ProductRange{100.0, 400.0};
}

std::string describeConvergedRun(RunState& run, const RunOptions& options, const InversionProblem& problem) {
    constexpr NewtonLimits shortStep{{0.1, 2}, {}, 1};
    ConvergedMode mode;
    mode.state.settings = convergedSettingsOf(options);
    InversionLoop loop{problem, run.messages, run.progressTable};
    prepareConvergedMode(mode, problem);
    beginConvergedMode(mode, loop, {run.control.inversion, run.weights});
    const std::int64_t before = mode.work.data.productCount;
    const double start = clockSeconds();
    const std::span<const double> model = std::span(problem.arrays.model).first(problem.modelSize());
    takeNewtonStep(problem, mode.work, evaluateObjective(problem, mode.work, model), shortStep);
    const double product = (clockSeconds() - start) / static_cast<double>(mode.work.data.productCount - before);
    const ProductRange each = expectedProducts(options, mode.work.subspace.capacity > 0);
    const auto definitions = static_cast<double>(problem.products.products.size());
    const ProductRange all{each.least * definitions, each.most * definitions};
    char products[64];
    std::snprintf(products, sizeof products, "typically %.0f to %.0f, ", all.least, all.most);
    return summaryRow("one product", "about " + timeText(product) + ", including its part of a step") +
           summaryRow("products", products + shorterToLonger(product * all.least, product * all.most));
}

// What other machines would take, by the ratios of the cost model.
std::string otherMachines(const RunState& run, const Machines& here) {
    constexpr Machines others[] = {{1, 1}, {1, 4}, {1, 16}, {4, 16}};
    const RunSize size = sizeOf(run);
    const double secondsHere = secondsOfIteration(size, here);
    std::string text = "  by the formulas of docs/scaling.md, for the same kind of core:\n";
    for (const Machines& machines : others) {
        std::string name = machines.processes > 1 ? std::to_string(static_cast<int>(machines.processes)) + " x " : "";
        name += std::to_string(static_cast<int>(machines.threads)) + (machines.threads > 1 ? " cores" : " core");
        char share[64];
        std::snprintf(share, sizeof share, "%.2g times this time, ", secondsOfIteration(size, machines) / secondsHere);
        text += summaryRow(name.c_str(), share + memoryText(bytesOfProcess(size, machines.processes) / 1.0e6) +
                                             (machines.processes > 1 ? " in each process" : ""));
    }
    return text;
}

}  // namespace

std::string describeRun(RunState& run, const RunOptions& options) {
    const InversionProblem problem = inversionProblemOf(run);
    const std::string steps = options.untilConverged ? describeConvergedRun(run, options, problem)
                                                     : describeIterations(problem, run.control.inversion.maxIterations);
    const Machines here{static_cast<double>(ranksOfRun().count), static_cast<double>(workersOfProcess().count)};
    std::string text = run.control.controlFileName + ": everything can be read\n" + describeSizes(run);
    text += summaryRow("memory", memoryText(megabytesUsed()) + (here.processes > 1 ? " in the first process" : ""));
    text += steps;
    if (run.sensitivity.idisk == 0) {
        text += otherMachines(run, here);
    }
    return text;
}

}  // namespace voxlith
