#include "forward/cell_values.h"

#include <cmath>
#include <span>

#include "base/free_format.h"
#include "base/messages.h"
#include "base/text_input.h"
#include "forward/number_text.h"
#include "survey/dummy_value.h"

namespace voxlith {

namespace {

constexpr double largestCode = 2147483647.0;

void openCells(TextInput& input, const std::string& fileName, const std::string& what) {
    if (!openTextInput(input, fileName)) {
        throw RunError(fileName + ": the " + what + " file cannot be opened");
    }
}

[[noreturn]] void throwAt(const TextInput& input, std::int64_t line, const std::string& expectedAndFound) {
    throw RunError(input.name + ", line " + std::to_string(line) + ": expected " + expectedAndFound);
}

// A slash and two commas in a row count as good reads that leave values as they were.
void checkGiven(const FreeFormatRead& read, std::size_t cells) {
    if (read.valuesRead != static_cast<std::int64_t>(cells)) {
        throwAt(read.input, read.input.lineNumber,
                std::to_string(cells) + " cell values, found " + std::to_string(read.valuesRead) +
                    (read.slashSeen ? " before a slash" : " and values left out between commas"));
    }
}

void checkEnd(FreeFormatRead& read, std::size_t cells) {
    checkGiven(read, cells);
    double surplus = 0;
    const ReadStatus status = readValue(read, surplus);
    if (status != ReadStatus::endOfText) {
        throwAt(read.input, read.input.lineNumber,
                "the end of the file behind the " + std::to_string(cells) + " values of the mesh, found more");
    }
}

}  // namespace

std::vector<double> readCellValues(const std::string& fileName, const std::string& what, std::size_t cells) {
    TextInput input;
    openCells(input, fileName, what);
    std::vector<double> values(cells);
    FreeFormatRead read = beginFreeFormatRead(input);
    if (readValues(read, std::span(values)) != ReadStatus::good) {
        throwReadError(read, std::to_string(cells) + " cell values");
    }
    checkEnd(read, cells);
    return values;
}

CellCodes readCellCodes(const std::string& fileName, const std::string& what, std::size_t cells) {
    TextInput input;
    openCells(input, fileName, what);
    CellCodes codes;
    codes.code.reserve(cells);
    codes.line.reserve(cells);
    FreeFormatRead read = beginFreeFormatRead(input);
    for (std::size_t cell = 0; cell < cells; ++cell) {
        double value = 0;
        if (readValue(read, value) != ReadStatus::good) {
            throwReadError(read, std::to_string(cells) + " whole numbers, one a cell");
        }
        const bool absent = !isValid(value) && !std::isnan(value);
        if (!absent && !(value == std::floor(value) && std::abs(value) <= largestCode)) {
            throwAt(input, input.lineNumber,
                    "a whole number for cell " + std::to_string(cell + 1) + ", found " + numberText(value));
        }
        codes.code.push_back(absent ? absentCode : static_cast<std::int32_t>(value));
        codes.line.push_back(input.lineNumber);
        if (read.slashSeen) {
            checkGiven(read, cells);
        }
    }
    checkEnd(read, cells);
    return codes;
}

}  // namespace voxlith
