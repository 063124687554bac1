// Output channels of a run: the screen, the log, and the three ways in which a run ends early.
//
// Most messages are written twice, to the screen and to the log, by two separate writes. Echoes of the inputs go to the
// log only, progress messages to the screen only.
#pragma once

#include <stdexcept>
#include <string>
#include <string_view>

#include "base/line_file.h"

namespace voxlith {

// Thrown by fatalStop and plainStop: the run ends at once, with exit status 0 and no further message.
struct PlainStop {};

// An input or output that cannot be used: what() is one clear line (file, line or byte, what was expected, what was
// found). The program writes it to standard error and to the log and ends with exit status 2.
class RunError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

struct Messages {
    LineFile log;            // voxlith.log; closed until control line 1 has been read
    bool checkOnly = false;  // a check of the inputs: no file is written, the log stays closed
};

// One line on the screen, not buffered; on a terminal with control characters escaped. Throws RunError when standard
// output cannot be written.
void screenLine(std::string_view line);

// One line on standard error, with control characters escaped. Allocates nothing: the problem may be that there is no
// memory. Standard error that cannot be written is ignored.
void errorLine(std::string_view line);

// "warning: TEXT" on standard error: something that the run accepts and that its user may not have meant.
void warningLine(std::string_view text);

// One line in the log; nothing happens while the log is closed. Throws RunError when the log cannot be written.
void logLine(Messages& messages, std::string_view line);

// The same line on the screen and then in the log.
void screenAndLogLine(Messages& messages, std::string_view line);

// The same line in the log and then on the screen.
void logAndScreenLine(Messages& messages, std::string_view line);

// Writes `message` on the screen and then in the log and ends the run. The log is not closed here; while it is closed
// the second copy is dropped.
[[noreturn]] void fatalStop(Messages& messages, std::string_view message);

// Ends the run without a message.
[[noreturn]] void plainStop();

}  // namespace voxlith
