// What the control file says and the run will not do: words where numbers belong, names that are cut, and their like.
// The run takes them in silence, so that old control files keep their results. A program that wants to be safe refuses
// them.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "inversion/inversion_problem.h"

namespace voxlith {

// One line each: file, line, what is expected, what was found.
struct ControlDoubts {
    std::string fileName;
    std::vector<std::string> lines;
};

// Looks at a control line as it stands in the file, with what is cut off its end. Of the
// items that take the place of numbers each has to be one; missing items pass. `components` is known from line 2 on.
void doubtLine(ControlDoubts& doubts, int lineNumber, std::string_view line, std::int32_t components);

// A label names the models of its type: two of them must not be the same.
void doubtLabels(ControlDoubts& doubts, const InversionOptions& options);

}  // namespace voxlith
