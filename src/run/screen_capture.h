// Keeps what the inversion writes to the screen off it. The text is stored in memory, so that its last line can be
// shown when it is the reason for a stop.
#pragma once

#include <string>

namespace voxlith {

struct ScreenCapture {
    ScreenCapture() = default;
    ~ScreenCapture();  // releases
    ScreenCapture(const ScreenCapture&) = delete;
    ScreenCapture& operator=(const ScreenCapture&) = delete;

    int screen = -1;  // the standard output of the process; -1 while nothing is captured
};

// From here on standard output goes to memory. Throws RunError.
void captureScreen(ScreenCapture& capture);

// The last line written that is not blank.
std::string lastScreenLine(const ScreenCapture& capture);

// Gives the process its standard output back. Nothing happens while nothing is captured.
void releaseScreen(ScreenCapture& capture);

}  // namespace voxlith
