#include "driver/control_doubts.h"

#include <array>
#include <cstddef>
#include <span>

#include "base/free_format.h"
#include "base/text_input.h"
#include "base/tokens.h"
#include "formats/short_name.h"
#include "inversion/running_files.h"

namespace voxlith {

namespace {

struct ExpectedNumber {
    bool isInteger;
    std::string_view name;
};

using ExpectedNumbers = std::vector<ExpectedNumber>;

ExpectedNumbers numbersOfLine(int lineNumber) {
    switch (lineNumber) {
        case 1:
            return {{true, "iRestart"}, {true, "#MTX"}, {true, "#data comp"}, {true, "#model types"}};
        case 2:
            return {{true, "iMode"}, {true, "iBackground"}, {false, "BackVal"}};
        case 3:
            return {{false, "trade-off"}, {false, "tolc"}, {true, "positivity flag"}, {false, "integration interval"}};
        case 12:
            return {{true, "max iterations"}, {true, "output iteration step"}, {true, "InversionMethod"}};
        default:
            return {};
    }
}

constexpr bool holdsName(int lineNumber) {
    return lineNumber == 4 || (lineNumber >= 6 && lineNumber <= 8);
}

void addDoubt(ControlDoubts& doubts, int lineNumber, std::string_view expected, std::string_view found) {
    constexpr std::size_t shownWidth = 60;
    found = trim(found);
    const std::string shown = std::string(found.substr(0, shownWidth)) + (found.size() > shownWidth ? "..." : "");
    doubts.lines.push_back(doubts.fileName + ", line " + std::to_string(lineNumber) + ": expected " +
                           std::string(expected) + ", found \"" + shown + "\"");
}

ReadStatus readItem(FreeFormatRead& read, bool isInteger, double& value) {
    if (!isInteger) {
        return readValue(read, value);
    }
    std::int32_t number = 0;
    const ReadStatus status = readValue(read, number);
    value = static_cast<double>(number);
    return status;
}

void doubtNumbers(ControlDoubts& doubts, int lineNumber, std::string_view line) {
    TextInput text;
    openTextInMemory(text, line);
    FreeFormatRead read = beginFreeFormatRead(text);
    for (const ExpectedNumber& number : numbersOfLine(lineNumber)) {
        double value = 0;
        const ReadStatus status = readItem(read, number.isInteger, value);
        if (status == ReadStatus::badText) {
            const char* const kind = number.isInteger ? "the integer " : "the number ";
            addDoubt(doubts, lineNumber, kind + std::string(number.name), {read.badWord.data(), read.badLength});
        }
        if (status != ReadStatus::good) {
            return;
        }
        if (number.name == "max iterations" && value < 1) {
            addDoubt(doubts, lineNumber, "a number of iterations above 0", line);
        }
    }
}

void doubtLongName(ControlDoubts& doubts, int lineNumber, std::string_view name) {
    if (trimRight(name).size() > shortNameWidth) {
        addDoubt(doubts, lineNumber, "a name that ends within the first 80 characters of the line", name);
    }
}

// A data offset is a number, a number for each component, or the name of a file.
void doubtOffset(ControlDoubts& doubts, int lineNumber, std::string_view text, std::int32_t components) {
    if (isBlank(text) || startsWithNull(text)) {
        return;
    }
    std::array<double, maxFiles> numbers{};
    std::int64_t given = 0;
    const ReadStatus status =
        freeFormatRead(text, std::span(numbers).first(static_cast<std::size_t>(components)), &given);
    if (given > 0) {
        if (status == ReadStatus::badText) {
            addDoubt(doubts, lineNumber, "one data offset, or one for each component", text);
        }
    } else if (fileExists(fileNameOf(text))) {
        doubtLongName(doubts, lineNumber, text);
    } else {
        addDoubt(doubts, lineNumber, "a data offset, null, or the name of a file that exists", text);
    }
}

}  // namespace

void doubtLine(ControlDoubts& doubts, int lineNumber, std::string_view line, std::int32_t components) {
    const std::string_view used = trimRight(line.substr(0, line.find('!')));
    if (used.size() > lineWidth) {
        addDoubt(doubts, lineNumber, "a line of at most 256 characters", used);
    }
    doubtNumbers(doubts, lineNumber, used);
    if (holdsName(lineNumber)) {
        doubtLongName(doubts, lineNumber, used);
    }
    if (lineNumber == 11) {
        doubtOffset(doubts, lineNumber, used, components);
    }
}

void doubtLabels(ControlDoubts& doubts, const InversionOptions& options) {
    const auto types = static_cast<std::size_t>(options.nModelTypes);
    for (std::size_t type = 1; type < types; ++type) {
        for (std::size_t before = 0; before < type; ++before) {
            const TextLine name = finalModelName(DataType::gz, options, type);
            if (name.view() == finalModelName(DataType::gz, options, before).view()) {
                addDoubt(doubts, 1, "labels of model types that differ in their first 8 characters",
                         options.modelLabel[type]);
            }
        }
    }
}

}  // namespace voxlith
