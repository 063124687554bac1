// Complete writes to a file descriptor, and the one wording of system errors.
#pragma once

#include <cstddef>
#include <string_view>

namespace voxlith {

// Writes all characters, going on after interruptions and partial writes. False when the system refuses, with errno.
bool writeWhole(int handle, const char* characters, std::size_t count);

// Writes `line` and a line end, in one system call unless the system writes less. False and errno as above.
bool writeWholeLine(int handle, std::string_view line);

// Throws RunError "NAME: WHAT: CAUSE", where CAUSE is the system's text for the error number.
[[noreturn]] void throwSystemError(std::string_view name, std::string_view what, int errorNumber);

}  // namespace voxlith
