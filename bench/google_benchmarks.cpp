// voxlith-bench: the same work under Google Benchmark, for its filters, repetitions and output formats. Each
// benchmarkCase is one benchmark; its time is that of the work, and the counter "ratio" is that time over the peer's.
// The groups come from BENCH_GROUPS (separated by commas; default all), the rows from BENCH_MTX, the folder from
// BENCH_FOLDER.

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <sstream>

#include "benchmark_case.h"

namespace {

std::string environmentText(const char* name, const std::string& otherwise) {
    const char* const text = std::getenv(name);
    return text != nullptr ? text : otherwise;
}

std::vector<std::string> wantedGroups() {
    std::istringstream text(environmentText("BENCH_GROUPS", ""));
    std::vector<std::string> groups;
    for (std::string group; std::getline(text, group, ',');) {
        groups.push_back(group);
    }
    return groups.empty() ? voxlith::benchmarkGroups() : groups;
}

void runUnderBenchmark(benchmark::State& state, const voxlith::BenchmarkCase& benchmarkCase) {
    double workSeconds = 0.0, peerSeconds = 0.0;
    for ([[maybe_unused]] auto iteration : state) {
        peerSeconds += benchmarkCase.runPeer();
        const double seconds = benchmarkCase.runWork();
        workSeconds += seconds;
        state.SetIterationTime(seconds);
    }
    state.counters["ratio"] = workSeconds / peerSeconds;
}

void registerAll() {
    voxlith::BenchOptions options;
    options.mtxFile = environmentText("BENCH_MTX", "");
    options.folder =
        environmentText("BENCH_FOLDER", (std::filesystem::temp_directory_path() / "voxlith-bench").string());
    std::filesystem::create_directories(options.folder);
    for (const std::string& group : wantedGroups()) {
        for (const voxlith::BenchmarkCase& benchmarkCase : voxlith::makeBenchmarkCases(group, options)) {
            const std::string name = benchmarkCase.work + " / " + benchmarkCase.peer;
            benchmark::RegisterBenchmark(
                name.c_str(), [benchmarkCase](benchmark::State& state) { runUnderBenchmark(state, benchmarkCase); })
                ->UseManualTime()
                ->Unit(benchmark::kMillisecond);
        }
    }
}

}  // namespace

int main(int argumentCount, char** arguments) {
    benchmark::Initialize(&argumentCount, arguments);
    if (benchmark::ReportUnrecognizedArguments(argumentCount, arguments)) {
        return 1;
    }
    try {
        registerAll();
        benchmark::RunSpecifiedBenchmarks();
    } catch (const std::exception& error) {
        std::fprintf(stderr, "voxlith-bench: %s\n", error.what());
        return 1;
    }
    benchmark::Shutdown();
    return 0;
}
