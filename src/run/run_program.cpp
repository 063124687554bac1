#include "run/run_program.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <cstdio>
#include <exception>
#include <new>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "base/printable_text.h"
#include "base/ranks.h"
#include "driver/overwritten_inputs.h"
#include "driver/run_log.h"
#include "driver/run_steps.h"
#include "inversion/inversion_loop.h"
#include "run/arranged_rows.h"
#include "run/check_report.h"
#include "run/convergence/converged_mode.h"
#include "run/input_checks.h"
#include "run/iteration_output.h"
#include "run/loop_checkpoint.h"
#include "run/product_checks.h"
#include "run/read_thread.h"
#include "run/run_summary.h"
#include "run/screen_capture.h"
#include "run/stop_signal.h"
#include "run/thread_team.h"

namespace voxlith {

namespace {

constexpr int signalStatus = 128;

void warn(std::string_view text) {
    const Ranks& ranks = ranksOfRun();
    TextLine line(ranks.count > 1 ? "voxlith-run-mpi: " : "voxlith-run: ");
    if (!isFirstRank()) {
        std::array<char, 256> host{};
        ::gethostname(host.data(), host.size() - 1);
        line.text("process ").text(std::to_string(ranks.rank + 1)).text(" on ").text(host.data()).text(": ");
    }
    errorLine(line.text(text));
}

// The shortest text that is read as the same number.
std::string exactText(double value) {
    std::array<char, 32> text{};
    return {text.data(), std::to_chars(text.data(), text.data() + text.size(), value).ptr};
}

// The options of a converged mode, without a tolerance that is the default.
std::string optionsText(const ConvergedSettings& settings) {
    std::string options = settings.searchTradeoff ? " --target-rms " + exactText(settings.targetRms) : "";
    if (!settings.searchTradeoff || settings.tolerance != toleranceOfSearch) {
        options += " --until-converged " + exactText(settings.tolerance);
    }
    options += settings.perComponent ? " --per-component" : "";
    options +=
        settings.modelNorm != ModelNorm::smooth ? " --model-norm " + std::string(nameOf(settings.modelNorm)) : "";
    if (settings.cross.weight > 0) {
        options += " --cross-gradient " + exactText(settings.cross.weight) + "," +
                   std::to_string(settings.cross.first) + "," + std::to_string(settings.cross.second);
    }
    return options;
}

void compareSettings(const ConvergedSettings& wanted, const ConvergedSettings& stored) {
    if (optionsText(wanted) != optionsText(stored)) {
        throw RunError(std::string(checkpointName) + ": written with" + optionsText(stored) + ", found" +
                       optionsText(wanted));
    }
}

// All ranks have read what the first one is about to replace.
void waitForRanks() {
    largestOfRanks(0);
}

// Starts the loop, or puts it back to where the checkpoint stands. `mode` is null for the steps of voxlith.
void beginLoop(InversionLoop& loop, IterationOutput& output, RunState& run, ConvergedMode* mode) {
    if (mode != nullptr) {
        prepareConvergedMode(*mode, loop.problem);
    }
    const std::vector<StateBlock> more = mode != nullptr ? blocksOf(*mode) : std::vector<StateBlock>{};
    if (run.control.resumes) {
        prepareArrays(loop.problem);
        if (mode != nullptr) {
            ConvergedState stored;
            readCheckpoint(std::string(checkpointName), std::vector<StateBlock>{blockOf(convergedBlock, stored)});
            compareSettings(mode->state.settings, stored.settings);
        }
        restoreCheckpoint(loop, output.inputs, more);
        waitForRanks();  // the first one replaces the checkpoint
        resumeScreenTable(loop);
    } else {
        beginInversion(loop);
    }
    if (mode != nullptr) {
        beginConvergedMode(*mode, loop, {run.control.inversion, run.weights});
    }
    // What a block holds may have changed with the state.
    reportStart(output, loop, mode != nullptr ? blocksOf(*mode) : std::vector<StateBlock>{});
}

// False when a signal has stopped the iterations.
bool iterate(InversionLoop& loop, IterationOutput& output) {
    while (loop.state.continueFlag) {
        startIteration(loop);
        takeCycleStep(loop);
        beforeReport(output);
        finishIteration(loop);
        const bool conjugateGradients = rowOf(loop).steppedByConjugateGradients;
        advanceCycle(loop.state);
        if (!betweenIterations(output, loop, conjugateGradients ? "conjugate_gradient" : "optimiser")) {
            return false;
        }
    }
    return true;
}

bool iterateConverged(InversionLoop& loop, IterationOutput& output, ConvergedMode& mode,
                      const ConvergedRecords& records) {
    while (loop.state.continueFlag) {
        const LoopState before = loop.state;
        startIteration(loop);
        keepUnwritten(loop.problem, loop.unwritten);
        const bool complete = takeConvergedStep(mode, loop, records);
        beforeReport(output);
        if (!complete) {
            stopWithinIteration(output, loop, before, blocksOf(mode));
            return false;
        }
        finishIteration(loop);
        advanceConvergedMode(mode, loop, records);
        if (!betweenIterations(output, loop, "newton", blocksOf(mode))) {
            return false;
        }
    }
    return true;
}

// Decides before anything is read where a continued run starts.
ResumedRun findCheckpoint(bool asked, bool continues, bool& resumes) {
    if (!checkpointExists()) {
        if (asked) {
            warn("there is no checkpoint in this folder; the run continues from its running model");
        }
        return {};
    }
    const CheckpointHead head = readCheckpointHead();
    if (!continues) {
        warn("a new run deletes the checkpoint of the run that was stopped after iteration " +
             std::to_string(head.iteration) + "; --continue would have continued that run");
        return {};
    }
    resumes = true;
    return {head.startIteration, head.iteration};
}

void warnOfStack(const InversionProblem& problem, ModelNorm norm) {
    const std::size_t parts = partsAlongY(problem).size() - 1;
    if (norm != ModelNorm::smooth && parts > 1 && isFirstRank()) {
        warn("--model-norm " + std::string(nameOf(norm)) + ": the model has " + std::to_string(parts) +
             " parts along y without weights between them, and each becomes " + std::string(nameOf(norm)) +
             " separately; for the components of a vector use voxlith-tools compact");
    }
}

// The control file and the checkpoint: what the first rank finds holds for all.
ResumedRun findStart(const std::vector<std::string>& arguments, const RunOptions& options, RunState& run) {
    struct Start {
        bool continues = false, resumes = false;
        ResumedRun resumed;
    } start;
    if (isFirstRank()) {
        start.continues = checkControlFile(arguments) > 0 || options.continueRun;
        start.resumed = findCheckpoint(options.continueRun, start.continues, start.resumes);
    }
    copyFirstRank(start);
    run.control.continues = start.continues;
    run.control.resumes = start.resumes;
    return start.resumed;
}

// Other ranks than the first open no files and take its count of iterations.
void openProgressOfRanks(RunState& run, const ResumedRun& resumed) {
    waitForRanks();
    if (isFirstRank()) {
        openProgress(run, resumed);
    }
    copyFirstRank(run.control.inversion.startIteration);
    copyFirstRank(run.control.inversion.maxIterations);
}

std::vector<std::string> argumentsOf(const RunOptions& options) {
    std::vector<std::string> arguments{options.controlFile};
    arguments.insert(arguments.end(), options.keywords.begin(), options.keywords.end());
    return arguments;
}

void readSurveyChecked(RunState& run, MappedRows& arranged) {
    readSensitivities(run);
    const std::string replacement = checkModelFiles(run);
    if (!replacement.empty() && isFirstRank()) {
        warn(replacement);
    }
    const StationColumns stations = stationsOf(run.obs);
    readSurvey(run);
    checkSurvey(run, stations);
    if (run.control.rowsLater) {
        refuseOverwrittenBy(run.control, arrangedRowsName);
        readOrBuildRows(run.sensitivity, run.obs.obsStd, arranged);
    }
}

void warnOfProducts(const RunState& run, const RunOptions& options) {
    if (!isFirstRank()) {
        return;
    }
    for (const std::string& warning : productWarnings(run, options.untilConverged)) {
        warn("warning: " + warning);
    }
}

// Line by line: a terminal is shown control characters as text.
void showText(std::string_view text) {
    for (std::size_t start = 0, end = 0; start < text.size(); start = end + 1) {
        end = std::min(text.find('\n', start), text.size());
        screenLine(text.substr(start, end - start));
    }
}

// --check
RunStatus checkSequence(RunState& run, const RunOptions& options, ScreenCapture& capture) {
    const std::vector<std::string> arguments = argumentsOf(options);
    if (isFirstRank()) {
        checkControlFile(arguments);
    }
    run.messages.checkOnly = true;
    readInputs(run, arguments);
    MappedRows arranged;
    readSurveyChecked(run, arranged);
    checkConvergedSettings(convergedSettingsOf(options), run.obs);
    warnOfProducts(run, options);
    const std::string report = describeRun(run, options);
    releaseScreen(capture);
    if (!options.quiet && isFirstRank()) {
        showText(report);
    }
    return RunStatus::completed;
}

// The engine's own lines before and after the iterations are in the log; the screen has the sizes, the iterations and
// how the run ended.
RunStatus runSequence(RunState& run, const RunOptions& options, ScreenCapture& capture) {
    const std::vector<std::string> arguments = argumentsOf(options);
    const ResumedRun resumed = findStart(arguments, options, run);
    run.messages.checkOnly = !isFirstRank();
    if (options.keepArranged && ranksOfRun().count > 1) {
        throw RunError("--keep-arranged: expected one process, found " + std::to_string(ranksOfRun().count));
    }
    run.control.rowsLater = options.keepArranged;
    readInputs(run, arguments);
    if (!run.control.resumes && isFirstRank()) {
        removeCheckpoint();
    }
    MappedRows arranged;
    readSurveyChecked(run, arranged);
    checkConvergedSettings(convergedSettingsOf(options), run.obs);
    warnOfProducts(run, options);
    openProgressOfRanks(run, resumed);
    const double cpuStart = processorSeconds(), clockStart = clockSeconds();
    const double julianStart = julianDay(currentDateTime());
    const InversionProblem problem = inversionProblemOf(run);
    InversionLoop loop{problem, run.messages, run.progressTable};
    loop.staged.discarded = !isFirstRank();
    IterationOutput output;
    if (!options.jsonLog.empty()) {
        refuseOverwrittenBy(run.control, options.jsonLog);
    }
    beginOutput(output, options, problem, run.control.iRestart > 0);
    warnOfStack(problem, options.modelNorm);
    keepIterations();
    const bool showsScreen = !options.quiet && isFirstRank();
    if (showsScreen) {
        releaseScreen(capture);
        showText(describeStart(run));
    }
    ConvergedMode mode;
    mode.state.settings = convergedSettingsOf(options);
    beginLoop(loop, output, run, options.untilConverged ? &mode : nullptr);
    const bool completed = options.untilConverged
                               ? iterateConverged(loop, output, mode, {run.control.inversion, run.weights})
                               : iterate(loop, output);
    requireUnchanged(arranged);
    if (!completed) {
        publishRunningFiles(loop);
        closeInversion(run);
        if (!isFirstRank()) {
            return static_cast<RunStatus>(signalStatus + output.signal);
        }
        const std::string text = "stopped by a signal after iteration " + std::to_string(loop.state.iteration) +
                                 "; voxlith-run --continue continues from there";
        warn(text);
        logLine(run.messages, text);
        closeLog(run.messages, cpuStart, julianStart);
        return static_cast<RunStatus>(signalStatus + output.signal);
    }
    if (options.untilConverged) {
        reportConvergence(mode, loop);
    }
    if (showsScreen) {
        captureScreen(capture);
    }
    finishInversion(loop);
    closeInversion(run);
    if (!isFirstRank()) {
        return RunStatus::completed;
    }
    writeResults(problem);
    reportCompletion(run, cpuStart, julianStart);
    if (showsScreen) {
        releaseScreen(capture);
        showText(describeEnd(loop.state.iteration, clockSeconds() - clockStart));
    }
    removeCheckpoint();
    if (options.untilConverged && missedTarget(mode)) {
        warn("the target RMS misfit was not reached; the log has the reasons");
    }
    return RunStatus::completed;
}

// What ends one rank mostly ends the first one, too, which reports it and ends all others.
void waitForFirstRank() {
    constexpr std::chrono::seconds patience{3};
    if (!isFirstRank()) {
        std::this_thread::sleep_for(patience + std::chrono::milliseconds(ranksOfRun().rank));
    }
}

// One line on standard error and in the log.
RunStatus reportFailure(RunState& run, std::string_view problem) {
    waitForFirstRank();
    warn(problem);
    try {
        std::array<char, 4096> space;
        logLine(run.messages, printableText(problem, space));
    } catch (const RunError&) {
        closeLineFile(run.messages.log);  // the log itself is what cannot be written: standard error has the line
    }
    return RunStatus::unusable;
}

}  // namespace

RunStatus runProgram(const RunOptions& options) {
    watchSignals();
    const ReadThread reader(options.threads > 1);  // outlives the files of the run
    RunState run;
    ScreenCapture capture;
    try {
        captureScreen(capture);
        const SharedLoops sharedLoops(options.threads, options.smallestPiece);
        return options.check ? checkSequence(run, options, capture) : runSequence(run, options, capture);
    } catch (const PlainStop&) {
        waitForFirstRank();
        const std::string reason = lastScreenLine(capture);
        if (!reason.empty()) {
            warn(reason);
        }
        return RunStatus::stopped;
    } catch (const RunError& problem) {
        return reportFailure(run, problem.what());
    } catch (const std::bad_alloc&) {
        return reportFailure(run, "the run cannot go on: there is not enough memory");
    } catch (const std::exception& problem) {
        return reportFailure(run, TextLine("the run cannot go on: ").text(problem.what()));
    }
}

}  // namespace voxlith
