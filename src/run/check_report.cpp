#include "run/check_report.h"

#include <sys/resource.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>

#include "base/overhead_timers.h"
#include "driver/run_steps.h"
#include "inversion/gradient.h"
#include "inversion/objective.h"
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

}  // namespace

std::string describeRun(RunState& run) {
    const InversionProblem problem = inversionProblemOf(run);
    const double iteration = evaluationsPerIteration * secondsOfEvaluation(problem);
    const MeshGeometry& mesh = run.mesh;
    const std::string cells = count(static_cast<std::int64_t>(mesh.cellCount()), "cell") + " (" +
                              std::to_string(mesh.nx) + " x " + std::to_string(mesh.ny) + " x " +
                              std::to_string(mesh.nz) + ")";
    const std::int32_t iterations = run.control.inversion.maxIterations;
    std::string text = run.control.controlFileName + ": everything can be read\n";
    text += row("data", count(run.obs.nData, "station") + ", " + count(run.obs.nDataTypes, "component"));
    text += row("model", cells + ", " + count(run.control.inversion.nModelTypes, "model type"));
    text +=
        row("sensitivities", count(run.sensitivity.store.totalCoef, "coefficient") +
                                 (run.sensitivity.idisk == 0 ? ", in memory" : ", read from disk at every product"));
    char memory[32];
    std::snprintf(memory, sizeof memory, "%.0f MB", megabytesUsed());
    text += row("memory", memory);
    text += row("one iteration", "about " + timeText(iteration));
    text += row(count(iterations, "iteration").c_str(), "about " + timeText(iteration * iterations));
    return text;
}

}  // namespace voxlith
