// voxlith-run-mpi: the program voxlith-run on several processes, of one or more machines, started by mpirun or srun.

#include <exception>

#include "base/messages.h"
#include "base/process_setup.h"
#include "base/text_line.h"
#include "run/mpi/mpi_ranks.h"
#include "run/mpi/same_setup.h"
#include "run/run_program.h"

namespace {

using namespace voxlith;

// Help and errors of the command line come from the first rank alone.
ParseResult parseOnFirstRank(int argumentCount, char** arguments, RunOptions& options) {
    auto result = ParseResult::run;
    if (isFirstRank()) {
        result = parseRunOptions(argumentCount, arguments, options);
    }
    copyFirstRank(result);
    if (result == ParseResult::run && !isFirstRank()) {
        result = parseRunOptions(argumentCount, arguments, options);
    }
    return result;
}

int run(int argumentCount, char** arguments) {
    RunOptions options;
    options.program = "voxlith-run-mpi";
    switch (parseOnFirstRank(argumentCount, arguments, options)) {
        case ParseResult::run:
            break;
        case ParseResult::shown:
            return static_cast<int>(RunStatus::completed);
        case ParseResult::wrong:
            return static_cast<int>(RunStatus::unusable);
    }
    if (ranksOfRun().count > 1) {
        requireSameSetup();
    }
    const RunStatus status = runProgram(options);
    // Others may wait for this rank.
    if ((status == RunStatus::stopped || status == RunStatus::unusable) && ranksOfRun().count > 1) {
        abortRanks(static_cast<int>(status));
    }
    return static_cast<int>(status);
}

[[noreturn]] void endAllRanks(const std::exception& problem) {
    errorLine(TextLine("voxlith-run-mpi: ").text(problem.what()));
    abortRanks(static_cast<int>(RunStatus::unusable));
}

}  // namespace

int main(int argumentCount, char** arguments) {
    prepareProcess();
    try {
        const MpiRanks ranks(argumentCount, arguments);
        // Caught while MPI lives: its regular end would wait for the other ranks.
        try {
            return run(argumentCount, arguments);
        } catch (const std::exception& problem) {
            endAllRanks(problem);
        }
    } catch (const std::exception& problem) {
        endAllRanks(problem);
    }
}
