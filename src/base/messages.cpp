#include "base/messages.h"

#include <unistd.h>

#include <cerrno>

#include "base/system_write.h"

namespace voxlith {

void screenLine(std::string_view line) {
    if (!writeWholeLine(STDOUT_FILENO, line)) {
        throwSystemError("standard output", "cannot be written", errno);
    }
}

void logLine(Messages& messages, std::string_view line) {
    if (isOpen(messages.log)) {
        writeLine(messages.log, line);
    }
}

void screenAndLogLine(Messages& messages, std::string_view line) {
    screenLine(line);
    logLine(messages, line);
}

void logAndScreenLine(Messages& messages, std::string_view line) {
    logLine(messages, line);
    screenLine(line);
}

void fatalStop(Messages& messages, std::string_view message) {
    screenAndLogLine(messages, message);
    throw PlainStop{};
}

void plainStop() {
    throw PlainStop{};
}

}  // namespace voxlith
