// What a program arranges for its process before anything else: the standard error stream and signals of writes.
#pragma once

namespace voxlith {

// With standard error closed, the first file that is opened takes its number, and a message on the way out would be
// written into that file: the null device takes the number instead. A reader of the screen that goes away and a file
// that outgrows its limit become failed writes, not silent ends. A stack that cannot grow, and memory that is short
// even for an exception, end the program with one line and exit status 2. To be called in main, before other threads
// start.
void prepareProcess();

}  // namespace voxlith
