#include "driver/run_log.h"

#include <cerrno>
#include <cstring>
#include <string>

#include "base/line_file.h"
#include "base/temporary_file.h"
#include "base/text_line.h"
#include "driver/run_state.h"

namespace voxlith {

namespace {

constexpr std::string_view logName = "voxlith.log";

void openLog(Messages& messages, LineFileMode mode) {
    bool opened = openLineFile(messages.log, logName, mode);
    if (!opened && mode == LineFileMode::append && errno == ENOENT) {
        opened = openLineFile(messages.log, logName, LineFileMode::create);
    }
    if (opened) {
        removeLeftovers("voxlith");  // the lock on the log says that no other run is at work here
        return;
    }
    if (errno == EWOULDBLOCK) {
        throw RunError(std::string(logName) + ": another run is writing to this folder");
    }
    throw RunError(std::string(logName) + ": cannot be opened for writing: " + std::strerror(errno));
}

void writeHead(Messages& messages, std::string_view words, const DateTime& startedAt) {
    logLine(messages,
            dateLine(TextLine("VOXLITH version ").text(programVersion).text(words), startedAt, DateOrder::dayFirst));
}

void screenAndLogMinutes(Messages& messages, std::string_view words, double minutes) {
    screenAndLogLine(messages, TextLine(words).fixed(minutes, 10, 1));
}

}  // namespace

void openLogForNewRun(Messages& messages, const DateTime& startedAt) {
    openLog(messages, LineFileMode::create);
    writeHead(messages, " started on: ", startedAt);
}

void openLogForContinuation(Messages& messages, const DateTime& startedAt, std::int32_t iRestart) {
    openLog(messages, LineFileMode::append);
    writeHead(messages, " inversion continued on: ", startedAt);
    if (iRestart == 1) {
        screenLine("Continuing the inversion");
    } else if (iRestart == 2) {
        screenLine("Continuing the inversion with depth layer stripping");
    }
}

void closeLog(Messages& messages, double cpuStart, double julianStart) {
    const DateTime endedAt = currentDateTime();
    logLine(messages, "");
    logLine(messages, dateLine("VOXLITH ended on: ", endedAt, DateOrder::monthFirst));
    const float cpuMinutes = static_cast<float>(processorSeconds() - cpuStart) / 60.0F;
    const double clockSecondsTaken = 24.0 * 60.0 * 60.0 * (julianDay(endedAt) - julianStart);
    screenAndLogMinutes(messages, " cpu time taken (mins):  ", static_cast<double>(cpuMinutes));
    screenAndLogMinutes(messages, " clock time taken (mins): ", clockSecondsTaken / 60.0);
    syncLineFile(messages.log);
    closeLineFile(messages.log);
}

}  // namespace voxlith
