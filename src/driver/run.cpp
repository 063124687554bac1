#include "driver/run.h"

#include <cstdio>
#include <exception>
#include <new>
#include <string_view>

#include "base/messages.h"
#include "driver/run_log.h"
#include "driver/run_steps.h"
#include "driver/usage.h"
#include "inversion/inversion_loop.h"

namespace voxlith {

namespace {

void runSequence(RunState& run, std::span<const std::string> arguments) {
    readInputs(run, arguments);
    readSensitivities(run);
    readSurvey(run);
    openProgress(run);
    const double cpuStart = processorSeconds();
    const double julianStart = julianDay(currentDateTime());
    const InversionProblem problem = inversionProblemOf(run);
    inversionLoop(problem, run.messages, run.progressTable);
    closeInversion(run);
    writeResults(problem);
    reportCompletion(run, cpuStart, julianStart);
}

// One line on standard error and in the log. Allocates nothing: the problem may be that there is no memory.
void reportUnusableFile(Messages& messages, std::string_view problem) {
    std::fprintf(stderr, "%.*s\n", static_cast<int>(problem.size()), problem.data());
    try {
        logLine(messages, problem);
    } catch (const std::exception&) {
        closeLineFile(messages.log);  // the log itself is what cannot be written: standard error has the line
    }
}

}  // namespace

ExitStatus runVoxlith(std::span<const std::string> arguments) {
    RunState run;
    try {
        showBanner();
        if (arguments.empty()) {
            showUsage();
        } else {
            runSequence(run, arguments);
        }
    } catch (const PlainStop&) {
        return ExitStatus::normal;
    } catch (const RunError& problem) {
        reportUnusableFile(run.messages, problem.what());
        return ExitStatus::unusableFile;
    } catch (const std::bad_alloc&) {
        reportUnusableFile(run.messages, "the run cannot go on: there is not enough memory");
        return ExitStatus::unusableFile;
    } catch (const std::exception& problem) {
        reportUnusableFile(run.messages, TextLine("the run cannot go on: ").text(problem.what()));
        return ExitStatus::unusableFile;
    }
    return ExitStatus::normal;
}

}  // namespace voxlith
