#include "run/run_program.h"

#include <cstdio>
#include <exception>
#include <new>
#include <string>
#include <string_view>
#include <vector>

#include "driver/run_log.h"
#include "driver/run_steps.h"
#include "inversion/inversion_loop.h"

namespace voxlith {

namespace {

void invert(RunState& run, const InversionProblem& problem) {
    InversionLoop loop{problem, run.messages, run.progressTable};
    beginInversion(loop);
    do {
        startIteration(loop);
        takeCycleStep(loop);
        finishIteration(loop);
        advanceCycle(loop.state);
    } while (loop.state.continueFlag);
    finishInversion(loop);
}

void runSequence(RunState& run, const RunOptions& options) {
    std::vector<std::string> arguments{options.controlFile};
    arguments.insert(arguments.end(), options.keywords.begin(), options.keywords.end());
    readInputs(run, arguments);
    readSensitivities(run);
    readSurvey(run);
    openProgress(run);
    const double cpuStart = processorSeconds();
    const double julianStart = julianDay(currentDateTime());
    const InversionProblem problem = inversionProblemOf(run);
    invert(run, problem);
    closeInversion(run);
    writeResults(problem);
    reportCompletion(run, cpuStart, julianStart);
}

// One line on standard error and in the log.
RunStatus reportFailure(RunState& run, std::string_view problem) {
    std::fprintf(stderr, "voxlith-run: %.*s\n", static_cast<int>(problem.size()), problem.data());
    try {
        logLine(run.messages, problem);
    } catch (const RunError&) {
        closeLineFile(run.messages.log);  // the log itself is what cannot be written: standard error has the line
    }
    return RunStatus::unusable;
}

}  // namespace

RunStatus runProgram(const RunOptions& options) {
    RunState run;
    try {
        runSequence(run, options);
    } catch (const PlainStop&) {
        return RunStatus::stopped;
    } catch (const RunError& problem) {
        return reportFailure(run, problem.what());
    } catch (const std::bad_alloc&) {
        return reportFailure(run, "the run cannot go on: there is not enough memory");
    } catch (const std::exception& problem) {
        return reportFailure(run, TextLine("the run cannot go on: ").text(problem.what()));
    }
    return RunStatus::completed;
}

}  // namespace voxlith
