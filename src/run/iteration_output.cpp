#include "run/iteration_output.h"

#include <cmath>

#include "base/messages.h"
#include "base/overhead_timers.h"
#include "base/ranks.h"
#include "run/stop_signal.h"

namespace voxlith {

namespace {

// Checkpoints take at most a twentieth of a run: a run that was killed repeats what took twenty times as long as the
// last one.
constexpr double checkpointShare = 20.0;

bool checkpointIsDue(const IterationOutput& output) {
    return clockSeconds() - output.checkpointAt >= checkpointShare * output.checkpointSeconds;
}

void save(IterationOutput& output, InversionLoop& loop, const std::vector<StateBlock>& more) {
    const double start = clockSeconds();
    // What the iterations have written must not be behind the state from which the run goes on.
    publishRunningFiles(loop);
    syncLineFile(loop.messages.log);
    syncLineFile(loop.progressTable);
    saveCheckpoint(loop, output.inputs, more);
    output.checkpointAt = clockSeconds();
    output.checkpointSeconds = output.checkpointAt - start;
}

// Machines that compute differently would go on with different models.
void compareRanks(const InversionLoop& loop) {
    const auto terms = static_cast<std::int64_t>(checksumOf(std::as_bytes(std::span(&loop.state.iterTerms, 1))));
    if (largestOfRanks(terms) != -largestOfRanks(-terms)) {
        throw RunError("the processes computed different misfits or norms in iteration " +
                       std::to_string(loop.state.iteration) + ": their machines do not compute alike");
    }
}

IterationRow timedRow(const InversionLoop& loop) {
    IterationRow row = rowOf(loop);
    row.iterTime = clockSeconds() - loop.iterationStart;
    return row;
}

}  // namespace

void beginOutput(IterationOutput& output, const RunOptions& options, const InversionProblem& problem, bool continues) {
    output.inputs = checksumsOf(problem);
    output.progress = startProgressLine(options.quiet || !isFirstRank(), problem.options.startIteration);
    if (!options.jsonLog.empty() && isFirstRank()) {
        openJsonLog(output.json, options.jsonLog, continues);
    }
}

void reportStart(IterationOutput& output, InversionLoop& loop, const std::vector<StateBlock>& more) {
    output.progress.firstIteration = loop.state.iteration;
    compareRanks(loop);
    if (isFirstRank()) {
        writeJsonRow(output.json, rowOf(loop), loop.problem.options.multiplier, "start");
        save(output, loop, more);
    }
}

void beforeReport(IterationOutput& output) {
    clearProgress(output.progress);
}

bool betweenIterations(IterationOutput& output, InversionLoop& loop, std::string_view step,
                       const std::vector<StateBlock>& more) {
    writeJsonRow(output.json, timedRow(loop), loop.problem.options.multiplier, step);
    compareRanks(loop);
    output.signal = signalOfRanks();
    const bool stops = output.signal != 0;
    if (isFirstRank() && (stops || checkpointIsDue(output))) {
        save(output, loop, more);
    }
    if (!stops) {
        showProgress(output.progress, loop.state.iteration, loop.problem.options.maxIterations,
                     std::sqrt(loop.state.iterTerms.misfit));
    }
    return !stops;
}

void stopWithinIteration(IterationOutput& output, InversionLoop& loop, const LoopState& before,
                         const std::vector<StateBlock>& more) {
    loop.state = before;
    output.signal = signalOfRanks();
    if (isFirstRank()) {
        save(output, loop, more);
    }
}

}  // namespace voxlith
