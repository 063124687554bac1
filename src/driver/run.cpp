#include "driver/run.h"

#include <array>
#include <exception>
#include <new>
#include <string>
#include <string_view>

#include "base/messages.h"
#include "base/printable_text.h"
#include "driver/run_log.h"
#include "driver/run_steps.h"
#include "driver/usage.h"
#include "inversion/inversion_loop.h"
#include "inversion/running_files.h"

namespace voxlith {

namespace {

void warnOfEqualNames(const ControlValues& control) {
    const auto nameOf = [&](std::size_t type) {
        return std::string(finalModelName(DataType{}, control.inversion, type).view());
    };
    for (std::size_t second = 1; second < static_cast<std::size_t>(control.inversion.nModelTypes); ++second) {
        for (std::size_t first = 0; first < second; ++first) {
            if (nameOf(first) == nameOf(second)) {
                warningLine(control.controlFileName + ", line 1: model types " + std::to_string(first + 1) + " and " +
                            std::to_string(second + 1) +
                            " have the same label: the model files of the second replace those of the first");
            }
        }
    }
}

void runSequence(RunState& run, std::span<const std::string> arguments) {
    readInputs(run, arguments);
    warnOfEqualNames(run.control);
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
    errorLine(problem);
    try {
        std::array<char, 4096> space;
        logLine(messages, printableText(problem, space));
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
