// Files with one value a cell: models, models of units, masks. The form is that of models, but read strictly: a value
// too few or too many, and a value left out between commas or by a slash, is an error.
#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>
#include <vector>

namespace voxlith {

// Values in cell order; `what` names the file's role in messages ("model"). Values that stand for no cell come as they
// are. Throws RunError (file, line, what was expected and found).
std::vector<double> readCellValues(const std::string& fileName, const std::string& what, std::size_t cells);

// Whole numbers in cell order, with the line in which each stands so that later checks can name it. Cells that hold the
// value for "no cell" come as `absentCode`.
struct CellCodes {
    std::vector<std::int32_t> code;
    std::vector<std::int64_t> line;
};

constexpr std::int32_t absentCode = std::numeric_limits<std::int32_t>::min();

CellCodes readCellCodes(const std::string& fileName, const std::string& what, std::size_t cells);

}  // namespace voxlith
