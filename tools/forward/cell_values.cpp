#include "forward/cell_values.h"

#include <span>

#include "base/free_format.h"
#include "base/messages.h"
#include "base/text_input.h"
#include "forward/number_text.h"
#include "survey/dummy_value.h"

namespace voxlith {

namespace {

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
                "the end of the file after the " + std::to_string(cells) + " values of the mesh, found more");
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

}  // namespace voxlith
