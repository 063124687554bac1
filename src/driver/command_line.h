// The keywords behind the name of the control file.
#pragma once

#include <span>
#include <string>

#include "driver/control_values.h"

namespace voxlith {

// `arguments` holds the control file name first. Unknown words are passed over, and so is a keyword without its bracket
// or equals sign; the last of two keywords counts. Throws RunError where a number cannot be read.
void readCommandLine(std::span<const std::string> arguments, ControlValues& control);

}  // namespace voxlith
