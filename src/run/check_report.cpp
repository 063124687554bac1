#include "run/check_report.h"

#include <sys/resource.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>

#include "base/overhead_timers.h"
#include "driver/run_steps.h"
#include "inversion/gradient.h"
#include "inversion/objective.h"
#include "run/convergence/converged_mode.h"
#include "run/progress_line.h"

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

std::string count(std::int64_t number, const char* one) {
    return std::to_string(number) + " " + one + (number == 1 ? "" : "s");
}

std::string row(const char* name, const std::string& value) {
    std::string text = "  " + std::string(name) + ":";
    constexpr std::size_t valueColumn = 20;
    text.resize(std::max(text.size() + 1, valueColumn), ' ');
    return text + value + "\n";
}

std::string timeText(double seconds) {
    if (seconds >= 10.0) {
        return durationText(seconds);
    }
    char text[32];
    std::snprintf(text, sizeof text, "%.2g s", seconds);
    return text;
}

std::string shorterToLonger(double shorter, double longer) {
    return "about " + timeText(shorter) + " to " + timeText(longer);
}

std::string describeIterations(const InversionProblem& problem, std::int32_t iterations) {
    const double iteration = evaluationsPerIteration * secondsOfEvaluation(problem);
    return row("one iteration", "about " + timeText(iteration)) +
           row(count(iterations, "iteration").c_str(), "about " + timeText(iteration * iterations));
}

// Products until the end, on the examples and on a million cells, for each product definition.
struct ProductRange {
    double least = 0, most = 0;
};

ProductRange expectedProducts(const RunOptions& options) {
    if (options.modelNorm != ModelNorm::smooth) {
        return {1000.0, 2500.0};
    }
    return options.targetRms ? ProductRange{200.0, 400.0} : ProductRange{100.0, 400.0};
}

std::string describeConvergedRun(RunState& run, const RunOptions& options, const InversionProblem& problem) {
    constexpr NewtonLimits shortStep{0.1, 2};
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
    const ProductRange each = expectedProducts(options);
    const auto definitions = static_cast<double>(problem.products.products.size());
    const ProductRange all{each.least * definitions, each.most * definitions};
    char products[64];
    std::snprintf(products, sizeof products, "%.0f to %.0f by experience, ", all.least, all.most);
    return row("one product", "about " + timeText(product) + ", with its share of a step") +
           row("products", products + shorterToLonger(product * all.least, product * all.most));
}

}  // namespace

std::string describeRun(RunState& run, const RunOptions& options) {
    const InversionProblem problem = inversionProblemOf(run);
    const std::string steps = options.untilConverged ? describeConvergedRun(run, options, problem)
                                                     : describeIterations(problem, run.control.inversion.maxIterations);
    const MeshGeometry& mesh = run.mesh;
    const std::string cells = count(static_cast<std::int64_t>(mesh.cellCount()), "cell") + " (" +
                              std::to_string(mesh.nx) + " x " + std::to_string(mesh.ny) + " x " +
                              std::to_string(mesh.nz) + ")";
    std::string text = run.control.controlFileName + ": everything can be read\n";
    text += row("data", count(run.obs.nData, "station") + ", " + count(run.obs.nDataTypes, "component"));
    text += row("model", cells + ", " + count(run.control.inversion.nModelTypes, "model type"));
    text +=
        row("sensitivities", count(run.sensitivity.store.totalCoef, "coefficient") +
                                 (run.sensitivity.idisk == 0 ? ", in memory" : ", read from disk at every product"));
    char memory[32];
    std::snprintf(memory, sizeof memory, "%.0f MB", megabytesUsed());
    text += row("memory", memory);
    return text + steps;
}

}  // namespace voxlith
