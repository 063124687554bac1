// One benchmark: work of the program timed beside a reference that does the same work, and the ratio that is wanted.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace voxlith {

struct BenchmarkCase {
    std::string work;                 // what the program does
    std::string reference;            // what it is compared with
    std::optional<double> goal;       // largest ratio of the two times that is wanted
    std::function<double()> runWork;  // does the work once, returns the seconds it took, of CPU time where it can
    std::function<double()> runReference;
    std::string note = {};  // what else explains the ratio; empty for nothing
};

// Sizes of everything that is timed, and where its files go.
struct BenchmarkOptions {
    std::string mtxFile;                     // rows to take the column indices from; empty: of a synthetic survey
    std::string folder;                      // for the survey, its sensitivity file and the models written; must exist
    std::int64_t coefficients = 20'000'000;  // at least so many in the products
    std::int32_t modelCells = 1'000'000;     // values written and read
    std::int32_t variables = 1'000'000;      // of the optimiser
};

// Names of the groups, each of which can be run alone.
std::vector<std::string> benchmarkGroups();

// The cases of one group. Throws std::invalid_argument for a name that is not one of benchmarkGroups.
std::vector<BenchmarkCase> makeBenchmarkCases(const std::string& group, const BenchmarkOptions& options);

// CPU time of this process in seconds. Other processes on the machine count far less in it than in the time of day.
double cpuSeconds();

template <class Work>
double cpuSecondsOf(const Work& work) {
    const double start = cpuSeconds();
    work();
    return cpuSeconds() - start;
}

struct BenchmarkResult {
    double ratio = 0;   // median time of the work over the median time of the reference
    double lowest = 0;  // of the ratios of the single rounds
    double highest = 0;
    double workSeconds = 0;  // medians
    double referenceSeconds = 0;
};

// Runs reference and work by turns `rounds` times, after at least one CPU second of rounds that do not count.
BenchmarkResult measureRatio(const BenchmarkCase& benchmarkCase, std::size_t rounds);

}  // namespace voxlith
