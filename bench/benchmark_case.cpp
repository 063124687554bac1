#include "benchmark_case.h"

#include <algorithm>
#include <ctime>
#include <stdexcept>

#include "benchmark_groups.h"

namespace voxlith {

namespace {

double medianOf(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    const std::size_t middle = values.size() / 2;
    return values.size() % 2 == 1 ? values[middle] : 0.5 * (values[middle - 1] + values[middle]);
}

}  // namespace

std::vector<std::string> benchmarkGroups() {
    return {"real-rows", "random-rows", "threads", "transform", "writer", "reader", "optimiser"};
}

std::vector<BenchmarkCase> makeBenchmarkCases(const std::string& group, const BenchmarkOptions& options) {
    if (group == "real-rows") {
        return realRowBenchmarks(options);
    }
    if (group == "random-rows") {
        return randomRowBenchmarks(options);
    }
    if (group == "threads") {
        return threadBenchmarks(options);
    }
    if (group == "transform") {
        return transformBenchmarks();
    }
    if (group == "writer") {
        return writerBenchmarks(options);
    }
    if (group == "reader") {
        return readerBenchmarks(options);
    }
    if (group == "optimiser") {
        return optimiserBenchmarks(options);
    }
    throw std::invalid_argument("unknown group of benchmarks: " + group);
}

double cpuSeconds() {
    timespec time{};
    if (clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time) != 0) {
        throw std::runtime_error("the CPU time of the process cannot be read");
    }
    return static_cast<double>(time.tv_sec) + 1e-9 * static_cast<double>(time.tv_nsec);
}

BenchmarkResult measureRatio(const BenchmarkCase& benchmarkCase, std::size_t rounds) {
    if (rounds == 0) {
        throw std::invalid_argument("a benchmark needs at least one round");
    }
    std::vector<double> workTimes, referenceTimes, ratios;
    // The first passes over memory that the host of a virtual machine has to provide again are several times slower.
    constexpr double warmUp = 1.0;  // CPU seconds
    for (double spent = 0.0; spent < warmUp;) {
        spent += benchmarkCase.runReference() + benchmarkCase.runWork();
    }
    for (std::size_t round = 0; round < rounds; ++round) {
        referenceTimes.push_back(benchmarkCase.runReference());
        workTimes.push_back(benchmarkCase.runWork());
        ratios.push_back(workTimes.back() / referenceTimes.back());
    }
    const auto [lowest, highest] = std::minmax_element(ratios.begin(), ratios.end());
    const double workSeconds = medianOf(workTimes), referenceSeconds = medianOf(referenceTimes);
    return {workSeconds / referenceSeconds, *lowest, *highest, workSeconds, referenceSeconds};
}

}  // namespace voxlith
