// The keywords that follow the name of the control file on the command line.
#pragma once

#include <span>
#include <string>

#include "driver/control_values.h"

namespace voxlith {

// `arguments` holds the control file name first. Of a keyword that is repeated the last one counts. Throws RunError
// where a number cannot be read.
void readCommandLine(std::span<const std::string> arguments, ControlValues& control);

}  // namespace voxlith
