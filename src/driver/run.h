// One run of the program from the banner to the closing lines: a straight sequence of steps.
#pragma once

#include <span>
#include <string>

namespace voxlith {

// Exit status of the process: 0 for the normal end, the usage text and every stop with a message of the run's own; 2
// when an input or output cannot be used.
enum class ExitStatus : int { normal = 0, unusableFile = 2 };

// `arguments` are those after the program's name.
ExitStatus runVoxlith(std::span<const std::string> arguments);

}  // namespace voxlith
