// Files with one value per cell, in the form of models, but read strictly: a value too few or too many, and a value
// left out between commas or by a slash, is an error.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace voxlith {

// Values in cell order; `what` names the file's role in messages ("model"). No-data values are returned as they
// are. Throws RunError (file, line, what was expected and found).
std::vector<double> readCellValues(const std::string& fileName, const std::string& what, std::size_t cells);

}  // namespace voxlith
