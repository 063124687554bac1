// What the program says: the screen, the log, and the three ways in which a run ends before its time.
//
// Most messages stand twice, one copy for the screen and one for the log, as two separate writes; which comes first is
// told at each place. Echoes of the inputs go to the log only, progress words to the screen only.
#pragma once

#include <stdexcept>
#include <string>
#include <string_view>

#include "base/line_file.h"

namespace voxlith {

// Thrown by fatalStop and plainStop: the run ends where it stands, with exit status 0 and no further word.
struct PlainStop {};

// An input or output that cannot be used: what() is one clear line (file, line or byte, what was expected, what stood
// there). The program writes it on standard error and in the log and ends with exit status 2.
class RunError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

struct Messages {
    LineFile log;  // voxlith.log; closed until control line 1 has been read
};

// One line on the screen, written through at once. Throws RunError when standard output cannot be written.
void screenLine(std::string_view line);

// One line in the log; nothing happens while the log is closed. Throws RunError when the log cannot be written.
void logLine(Messages& messages, std::string_view line);

// The same line on the screen and then in the log.
void screenAndLogLine(Messages& messages, std::string_view line);

// The same line in the log and then on the screen.
void logAndScreenLine(Messages& messages, std::string_view line);

// Writes `message` on the screen and then in the log and ends the run. The log is not closed here; while it is not open
// the second copy goes nowhere.
[[noreturn]] void fatalStop(Messages& messages, std::string_view message);

// Ends the run without a word.
[[noreturn]] void plainStop();

}  // namespace voxlith
