// One iteration of L-BFGS-B without the function, beside one product of real rows without its transform, and beside a
// pass over as many bytes as its corrections take.
#include <algorithm>
#include <memory>
#include <random>
#include <span>
#include <stdexcept>
#include <string>

#include "benchmark_groups.h"
#include "memory_pass.h"
#include "optim/optimiser_step.h"

namespace voxlith {

namespace {

constexpr int corrections = 10;  // as many as the inversion stores

struct OptimiserSetup {
    std::int32_t n = 0;
    std::vector<double> x, lower, upper, gradient, maxStep, reals;
    std::vector<double> scratch;  // as many values as the corrections take
    std::vector<std::int32_t> codes, fixed, integers;
    double value = 0;
    TaskWord task{};
    OptimiserState state{};
};

// The chained Rosenbrock function: it keeps the optimiser busy for many hundreds of iterations.
double chainedRosenbrock(std::span<const double> x, std::span<double> gradient) {
    std::fill(gradient.begin(), gradient.end(), 0.0);
    double sum = 0.0;
    for (std::size_t i = 0; i + 1 < x.size(); ++i) {
        const double bend = x[i + 1] - x[i] * x[i];
        const double away = 1.0 - x[i];
        sum += 100.0 * bend * bend + away * away;
        gradient[i] -= 400.0 * x[i] * bend + 2.0 * away;
        gradient[i + 1] += 200.0 * bend;
    }
    return sum;
}

double oneCall(OptimiserSetup& setup) {
    return cpuSecondsOf([&] {
        optimiserStep(0, 1, setup.n, corrections, setup.x, setup.lower, setup.upper, 0, setup.codes, setup.fixed,
                      setup.maxStep, setup.value, setup.gradient, 0.0, 0.0, setup.reals, setup.integers, setup.task, -1,
                      setup.state);
    });
}

// CPU seconds of the optimiser alone until it has finished an iteration.
double oneIteration(OptimiserSetup& setup) {
    double seconds = 0.0;
    do {
        seconds += oneCall(setup);
        if (taskBegins(setup.task, "FG")) {
            setup.value = chainedRosenbrock(setup.x, setup.gradient);
        } else if (!taskBegins(setup.task, "NEW_X")) {
            throw std::runtime_error("the optimiser stopped: " + std::string(taskText(setup.task)));
        }
    } while (!taskBegins(setup.task, "NEW_X"));
    return seconds;
}

// All variables have the same bound code; a lower bound is 0, as with positivity. All corrections are stored.
std::shared_ptr<OptimiserSetup> makeSetup(std::int32_t variables, std::int32_t boundCode) {
    auto setup = std::make_shared<OptimiserSetup>();
    setup->n = variables;
    const auto n = static_cast<std::size_t>(variables);
    std::mt19937_64 generator(6);
    std::uniform_real_distribution<double> start(0.0, 0.5);
    setup->x.resize(n);
    std::generate(setup->x.begin(), setup->x.end(), [&] { return start(generator); });
    setup->lower.assign(n, 0.0);
    setup->upper.assign(n, 0.0);
    setup->gradient.assign(n, 0.0);
    setup->maxStep.assign(n, 0.0);
    setup->codes.assign(n, boundCode);
    setup->fixed.assign(n, 0);
    setup->reals.assign(static_cast<std::size_t>(optimiserRealWorkspace(variables, corrections)), 0.0);
    setup->integers.assign(static_cast<std::size_t>(optimiserIntegerWorkspace(variables)), 0);
    setup->scratch.assign(2 * static_cast<std::size_t>(corrections) * n, 1.0);
    setTask(setup->task, "START");
    for (int iteration = 0; iteration < 2 * corrections; ++iteration) {
        oneIteration(*setup);
    }
    return setup;
}

}  // namespace

std::vector<BenchmarkCase> optimiserBenchmarks(const BenchmarkOptions& options) {
    constexpr std::int32_t unbounded = 0, lowerBound = 1;
    const BenchmarkCase product = realRowBenchmarks(options).front();
    std::vector<BenchmarkCase> benchmarkCases;
    for (const std::int32_t code : {unbounded, lowerBound}) {
        const std::shared_ptr<OptimiserSetup> setup = makeSetup(options.variables, code);
        const auto iteration = [setup] { return oneIteration(*setup); };
        const auto pass = [setup] { return cpuSecondsOf([&] { readAndWritePass(setup->scratch); }); };
        const std::string work = std::string("L-BFGS-B iteration, m = 10, ") + (code == unbounded ? "free" : "bounded");
        benchmarkCases.push_back({work, "one model product, real rows", std::nullopt, iteration, product.runWork});
        benchmarkCases.push_back({work, "read-and-write pass, 2 m n values", std::nullopt, iteration, pass});
    }
    benchmarkCases.front().note = product.note;
    return benchmarkCases;
}

}  // namespace voxlith
