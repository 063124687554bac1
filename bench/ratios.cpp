// voxlith-bench-ratios: prints one table of ratios, times of the program's kernels over times of their references. Exit
// status 0 when the table was printed, 1 with one line on standard error when it could not be.

#include <CLI/CLI.hpp>
#include <array>
#include <cstdio>
#include <exception>
#include <filesystem>

#include "benchmark_case.h"

namespace {

struct Run {
    voxlith::BenchmarkOptions options;
    std::vector<std::string> groups = voxlith::benchmarkGroups();
    std::size_t rounds = 9;
    bool tabs = false;
};

std::string noteOf(const voxlith::BenchmarkCase& benchmarkCase, const voxlith::BenchmarkResult& result) {
    std::array<char, 80> times{};
    std::snprintf(times.data(), times.size(), "%.2f ms beside %.2f ms", 1e3 * result.workSeconds,
                  1e3 * result.referenceSeconds);
    return times.data() + (benchmarkCase.note.empty() ? std::string() : "; " + benchmarkCase.note);
}

// The layout that bench/run_all reads: fields between tabs, no heading.
void printFields(const voxlith::BenchmarkCase& benchmarkCase, const voxlith::BenchmarkResult& result) {
    std::printf("%s\t%s\t%.6f\t%.6f\t%.6f\t", benchmarkCase.work.c_str(), benchmarkCase.reference.c_str(), result.ratio,
                result.lowest, result.highest);
    if (benchmarkCase.goal) {
        std::printf("%.6f", *benchmarkCase.goal);
    }
    std::printf("\t%s\n", noteOf(benchmarkCase, result).c_str());
    std::fflush(stdout);
}

void printLine(const voxlith::BenchmarkCase& benchmarkCase, const voxlith::BenchmarkResult& result) {
    char goal[16] = "-";
    if (benchmarkCase.goal) {
        std::snprintf(goal, sizeof goal, "%.2f", *benchmarkCase.goal);
    }
    const char* const verdict = !benchmarkCase.goal ? "" : result.ratio <= *benchmarkCase.goal ? "met" : "missed";
    std::printf("%-42s %-35s %7.3f %7.3f %7.3f %6s %s\n", benchmarkCase.work.c_str(), benchmarkCase.reference.c_str(),
                result.ratio, result.lowest, result.highest, goal, verdict);
    std::printf("    %s\n", noteOf(benchmarkCase, result).c_str());
    std::fflush(stdout);
}

void printTable(const Run& run) {
    std::filesystem::create_directories(run.options.folder);
    if (!run.tabs) {
        std::printf("Times of %zu rounds, work and reference by turns; lowest and highest are single rounds\n\n",
                    run.rounds);
        std::printf("%-42s %-35s %7s %7s %7s %6s\n", "work", "reference", "ratio", "lowest", "highest", "goal");
    }
    for (const std::string& group : run.groups) {
        for (const voxlith::BenchmarkCase& benchmarkCase : voxlith::makeBenchmarkCases(group, run.options)) {
            const voxlith::BenchmarkResult result = voxlith::measureRatio(benchmarkCase, run.rounds);
            run.tabs ? printFields(benchmarkCase, result) : printLine(benchmarkCase, result);
        }
    }
}

int run(int argumentCount, char** arguments) {
    CLI::App program("Speed of the kernels of voxlith beside references", "voxlith-bench-ratios");
    Run run;
    run.options.folder = (std::filesystem::temp_directory_path() / "voxlith-bench").string();
    program.add_option("--mtx", run.options.mtxFile, "Sensitivity file to take rows from (default: one computed once)")
        ->envname("BENCH_MTX");
    program.add_option("--folder", run.options.folder, "Folder for files of the benchmarks")->capture_default_str();
    program.add_option("--coefficients", run.options.coefficients, "Coefficients of the products, at least")
        ->check(CLI::PositiveNumber)
        ->capture_default_str();
    program.add_option("--cells", run.options.modelCells, "Values of the models written and read")
        ->check(CLI::PositiveNumber)
        ->capture_default_str();
    program.add_option("--variables", run.options.variables, "Variables of the optimiser")
        ->check(CLI::PositiveNumber)
        ->capture_default_str();
    program.add_option("--rounds", run.rounds, "Rounds that count")->check(CLI::PositiveNumber)->capture_default_str();
    program.add_option("--only", run.groups, "Groups to run")->check(CLI::IsMember(voxlith::benchmarkGroups()));
    program.add_flag("--tabs", run.tabs, "Fields between tabs, without a heading");
    CLI11_PARSE(program, argumentCount, arguments);
    printTable(run);
    return 0;
}

}  // namespace

int main(int argumentCount, char** arguments) {
    try {
        return run(argumentCount, arguments);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "voxlith-bench-ratios: %s\n", error.what());
        return 1;
    }
}
