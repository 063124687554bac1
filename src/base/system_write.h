// Writing through a file descriptor until everything is out, and the one wording of what prevented it.
#pragma once

#include <cstddef>
#include <string_view>

namespace voxlith {

// Writes all characters, going on after interruptions and partial writes. False when the system refuses; errno tells
// why.
bool writeWhole(int handle, const char* characters, std::size_t count);

// Writes `line` and a line end, in one system call unless the system itself takes less. False and errno as above.
bool writeWholeLine(int handle, std::string_view line);

// Throws RunError "NAME: WHAT: CAUSE", with the cause in the words of the system for the error number.
[[noreturn]] void throwSystemError(std::string_view name, std::string_view what, int errorNumber);

}  // namespace voxlith
