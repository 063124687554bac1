#include "base/messages.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>

#include "base/printable_text.h"
#include "base/system_write.h"

namespace voxlith {

namespace {

typedef std::array<char, 4096> LineSpace;  // a long line with escapes

}  // namespace

void screenLine(std::string_view line) {
    LineSpace space;
    if (::isatty(STDOUT_FILENO) != 0) {
        line = printableText(line, space);
    }
    if (!writeWholeLine(STDOUT_FILENO, line)) {
        throwSystemError("standard output", "cannot be written", errno);
    }
}

void errorLine(std::string_view line) {
    LineSpace space;
    static_cast<void>(writeWholeLine(STDERR_FILENO, printableText(line, space)));
}

void warningLine(std::string_view text) {
    std::array<char, 1024> line;
    const int length =
        std::snprintf(line.data(), line.size(), "warning: %.*s", static_cast<int>(text.size()), text.data());
    errorLine({line.data(), std::min(static_cast<std::size_t>(std::max(length, 0)), line.size() - 1)});
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
