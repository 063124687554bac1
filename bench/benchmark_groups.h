// The cases of each group; see benchmark_case.h.
#pragma once

#include <vector>

#include "benchmark_case.h"

namespace voxlith {

// Products of rows whose column indices come from a real sensitivity file.
std::vector<BenchmarkCase> realRowBenchmarks(const BenchmarkOptions& options);
// The same with column indices drawn at random: neighbouring rows share next to none.
std::vector<BenchmarkCase> randomRowBenchmarks(const BenchmarkOptions& options);
// Both products of real rows with as many threads as there are cores; ratios of the time of day.
std::vector<BenchmarkCase> threadBenchmarks(const BenchmarkOptions& options);
std::vector<BenchmarkCase> transformBenchmarks();
std::vector<BenchmarkCase> writerBenchmarks(const BenchmarkOptions& options);
std::vector<BenchmarkCase> readerBenchmarks(const BenchmarkOptions& options);
std::vector<BenchmarkCase> optimiserBenchmarks(const BenchmarkOptions& options);

}  // namespace voxlith
