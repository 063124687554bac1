// Files with one value per cell: models, lithology models, masks. They have the form of models, but are read strictly:
// a value too few or too many, and a value left out between commas or by a slash, is an error.
#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>
#include <vector>

namespace voxlith {

// Values in cell order; `what` names the file's role in messages ("model"). No-data values are returned as they
// are. Throws RunError (file, line, what was expected and found).
std::vector<double> readCellValues(const std::string& fileName, const std::string& what, std::size_t cells);

// Integers in cell order, with the line of each so that later checks can name it. No-data cells have `absentCode`.
struct CellCodes {
    std::vector<std::int32_t> code;
    std::vector<std::int64_t> line;
};

constexpr std::int32_t absentCode = std::numeric_limits<std::int32_t>::min();

CellCodes readCellCodes(const std::string& fileName, const std::string& what, std::size_t cells);

}  // namespace voxlith
