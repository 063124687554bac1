// The benchmarkCases of each group; see benchmarkCase.h.
#pragma once

#include <vector>

#include "benchmark_case.h"

namespace voxlith {

// Products of rows whose positions come from a real sensitivity file.
std::vector<BenchmarkCase> realRowBenchmarks(const BenchOptions& options);
// The same with positions drawn at random: neighbouring rows have next to nothing in common.
std::vector<BenchmarkCase> randomRowBenchmarks(const BenchOptions& options);
std::vector<BenchmarkCase> transformBenchmarks();
std::vector<BenchmarkCase> writerBenchmarks(const BenchOptions& options);
std::vector<BenchmarkCase> readerBenchmarks(const BenchOptions& options);
std::vector<BenchmarkCase> optimiserBenchmarks(const BenchOptions& options);

}  // namespace voxlith
