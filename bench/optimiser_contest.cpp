// One iteration of L-BFGS-B without the function, beside one product of real rows without its transform, and beside a
// pass over as many bytes as its corrections take.
#include <algorithm>
#include <memory>
#include <random>
#include <span>
#include <stdexcept>
#include <string>

#include "contest_groups.h"
#include "memory_pass.h"
#include "optim/optimiser_step.h"

namespace voxlith {

namespace {

constexpr int corrections = 10;  // as many as the inversion remembers

struct OptimiserRig {
    std::int32_t n = 0;
    std::vector<double> x, lower, upper, gradient, maxStep, reals;
    std::vector<double> scratch;  // as large as the memory of corrections
    std::vector<std::int32_t> codes, held, integers;
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

double oneCall(OptimiserRig& rig) {
    return cpuSecondsOf([&] {
        optimiserStep(0, 1, rig.n, corrections, rig.x, rig.lower, rig.upper, 0, rig.codes, rig.held, rig.maxStep,
                      rig.value, rig.gradient, 0.0, 0.0, rig.reals, rig.integers, rig.task, -1, rig.state);
    });
}

// CPU seconds of the optimiser alone until it has finished an iteration.
double oneIteration(OptimiserRig& rig) {
    double seconds = 0.0;
    do {
        seconds += oneCall(rig);
        if (taskBegins(rig.task, "FG")) {
            rig.value = chainedRosenbrock(rig.x, rig.gradient);
        } else if (!taskBegins(rig.task, "NEW_X")) {
            throw std::runtime_error("the optimiser stopped: " + std::string(taskText(rig.task)));
        }
    } while (!taskBegins(rig.task, "NEW_X"));
    return seconds;
}

// All variables have the same bound code; a lower bound is 0, as with positivity. The memory of corrections is full.
std::shared_ptr<OptimiserRig> makeRig(std::int32_t variables, std::int32_t boundCode) {
    auto rig = std::make_shared<OptimiserRig>();
    rig->n = variables;
    const auto n = static_cast<std::size_t>(variables);
    std::mt19937_64 generator(6);
    std::uniform_real_distribution<double> start(0.0, 0.5);
    rig->x.resize(n);
    std::generate(rig->x.begin(), rig->x.end(), [&] { return start(generator); });
    rig->lower.assign(n, 0.0);
    rig->upper.assign(n, 0.0);
    rig->gradient.assign(n, 0.0);
    rig->maxStep.assign(n, 0.0);
    rig->codes.assign(n, boundCode);
    rig->held.assign(n, 0);
    rig->reals.assign(static_cast<std::size_t>(optimiserRealWorkspace(variables, corrections)), 0.0);
    rig->integers.assign(static_cast<std::size_t>(optimiserIntegerWorkspace(variables)), 0);
    rig->scratch.assign(2 * static_cast<std::size_t>(corrections) * n, 1.0);
    setTask(rig->task, "START");
    for (int iteration = 0; iteration < 2 * corrections; ++iteration) {
        oneIteration(*rig);
    }
    return rig;
}

}  // namespace

std::vector<Contest> optimiserContests(const BenchOptions& options) {
    constexpr std::int32_t unbounded = 0, lowerBound = 1;
    const Contest product = realRowContests(options).front();
    std::vector<Contest> contests;
    for (const std::int32_t code : {unbounded, lowerBound}) {
        const std::shared_ptr<OptimiserRig> rig = makeRig(options.variables, code);
        const auto iteration = [rig] { return oneIteration(*rig); };
        const auto pass = [rig] { return cpuSecondsOf([&] { readAndWritePass(rig->scratch); }); };
        const std::string work = std::string("L-BFGS-B iteration, m = 10, ") + (code == unbounded ? "free" : "bounded");
        contests.push_back({work, "one model product, real rows", std::nullopt, iteration, product.runWork});
        contests.push_back({work, "read-and-write pass, 2 m n values", std::nullopt, iteration, pass});
    }
    contests.front().note = product.note;
    return contests;
}

}  // namespace voxlith
