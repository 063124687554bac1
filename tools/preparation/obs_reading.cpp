// Observed data files to survey tables, with an exact word about what cannot be read. Lines are cut into words as the
// inversion program cuts them.
#include <algorithm>

#include "base/messages.h"
#include "base/text_input.h"
#include "base/tokens.h"
#include "forward/number_text.h"
#include "preparation/survey_table.h"
#include "survey/data_types.h"
#include "survey/dummy_value.h"

namespace voxlith {

namespace {

struct ObsLines {
    TextInput input;
    std::string line;
    std::int64_t lineNumber = 0;
    std::size_t column = 0;  // of the word taken last, from 1
};

[[noreturn]] void throwExpected(const ObsLines& source, const std::string& expected, const std::string& found) {
    constexpr std::size_t shownWidth = 60;
    throw RunError(source.input.name + ", line " + std::to_string(source.lineNumber) +
                   (source.column > 0 ? ", column " + std::to_string(source.column) : "") + ": expected " + expected +
                   ", found " + found.substr(0, shownWidth));
}

bool parseLine(ObsLines& source) {
    source.lineNumber = source.input.lineNumber;
    source.column = 0;
    return readLine(source.input, source.line, lineWidth);
}

void requireLine(ObsLines& source, const std::string& expected) {
    if (!parseLine(source)) {
        throwExpected(source, expected, "the end of the file");
    }
}

std::string parseWord(ObsLines& source, const std::string& expected) {
    ++source.column;
    if (isBlank(source.line)) {
        throwExpected(source, expected, "the end of the line");
    }
    std::string word;
    nextToken(source.line, word);
    if (word.empty()) {
        throwExpected(source, expected, "an empty column");
    }
    return word;
}

double parseNumberAt(ObsLines& source, const std::string& expected) {
    const std::string word = parseWord(source, expected);
    const std::optional<double> number = parseNumber(word);
    if (!number) {
        throwExpected(source, expected, "\"" + word + "\"");
    }
    return *number;
}

std::vector<double> leadingNumbers(const std::string& line) {
    std::vector<double> numbers;
    for (const std::string_view word : splitWords(line)) {
        const std::optional<double> number = parseNumber(word);
        if (!number) {
            break;
        }
        numbers.push_back(*number);
    }
    return numbers;
}

// "count", or "count components code ..." with a code for each component; a line of the field has a strength in the
// place of a code.
bool isCountLine(const std::string& line) {
    constexpr double mostCode = 99;
    const std::vector<double> numbers = leadingNumbers(line);
    if (numbers.size() < 3) {
        return !numbers.empty();
    }
    const bool fits =
        numbers[1] >= 1 && numbers[1] <= maxFiles && static_cast<double>(numbers.size()) == 2 + numbers[1];
    return fits && std::all_of(numbers.begin() + 2, numbers.end(), [](double code) { return code <= mostCode; });
}

MagneticHeader readMagneticHeader(ObsLines& source) {
    MagneticHeader header;
    const std::string expected = "incl, decl, geomag";
    const double incl = parseNumberAt(source, expected);
    const double decl = parseNumberAt(source, expected);
    header.field = {{incl, decl}, parseNumberAt(source, expected)};
    header.measured = {incl, decl};
    requireLine(source, "aincl, adecl, idir");
    // Words in the place of the direction leave it along the field, and the flag at 1.
    if (leadingNumbers(source.line).size() >= 3) {
        const std::string direction = "aincl, adecl, idir";
        const double aincl = parseNumberAt(source, direction);
        const double adecl = parseNumberAt(source, direction);
        const std::string word = parseWord(source, direction);
        const std::optional<std::int32_t> idir = parseInteger(word);
        if (!idir) {
            throwExpected(source, "the whole number idir", "\"" + word + "\"");
        }
        header.measured = {aincl, adecl};
        header.idir = *idir;
    }
    return header;
}

// The count, and on lines that have them the number of components and their codes.
std::int64_t readCountLine(ObsLines& source, SurveyTable& table) {
    std::vector<std::int32_t> numbers;
    for (const std::string_view word : splitWords(source.line)) {
        const std::optional<std::int32_t> number = parseInteger(word);
        if (!number) {
            break;
        }
        numbers.push_back(*number);
    }
    if (numbers.empty()) {
        throwExpected(source, "the number of data", "\"" + source.line + "\"");
    }
    table.components = 0;
    if (numbers.size() >= 2 && numbers[1] >= 1 && numbers[1] <= maxFiles) {
        table.components = static_cast<std::size_t>(numbers[1]);
        if (numbers.size() >= 2 + table.components) {
            table.codes.assign(numbers.begin() + 2, numbers.begin() + 2 + numbers[1]);
        }
    }
    return numbers.front();
}

std::size_t wordsOn(std::string line) {
    std::size_t count = 0;
    std::string word;
    for (; !isBlank(line); ++count) {
        nextToken(line, word);
    }
    return count;
}

bool isDownholeTable(const SurveyTable& table) {
    return table.header && table.header->idir < 1 && (table.codes.empty() || table.codes.front() == 1);
}

// By the columns of the first record, as the inversion program decides for all of them: whether there are deviations,
// and how many components when nothing else tells.
bool chooseColumns(ObsLines& source, const ObsForm& form, SurveyTable& table) {
    const std::size_t besides = 3U + (isDownholeTable(table) ? 2U : 0U) + (form.hasLineTime ? 2U : 0U);
    const std::size_t words = wordsOn(source.line);
    if (words <= besides) {
        throwExpected(source, "a record of more than " + std::to_string(besides) + " columns", std::to_string(words));
    }
    const std::size_t columns = words - besides;
    if (form.components > 0) {
        table.components = form.components;
    }
    if (table.components == 0) {
        table.components = columns % 2 == 0 ? columns / 2 : columns;
    }
    if (table.components > static_cast<std::size_t>(maxFiles)) {
        throwExpected(source, "at most 6 components", std::to_string(table.components));
    }
    if (columns < table.components) {
        throwExpected(source, std::to_string(table.components) + " components", std::to_string(columns) + " columns");
    }
    return columns >= 2 * table.components || form.hasLineTime;
}

// A datum, and its deviation where there is one. Asterisks make a dummy of the datum; in the place of the deviation
// they do so in records with a line name, and leave the default deviation elsewhere.
void readDatum(ObsLines& source, const ObsForm& form, bool hasDeviations, std::size_t component, SurveyTable& table) {
    const std::string which = "datum " + std::to_string(component + 1);
    const auto hasAsterisk = [](const std::string& word) { return word.find('*') != std::string::npos; };
    const auto number = [&](const std::string& word, const std::string& expected) {
        const std::optional<double> value = parseNumber(word);
        if (!value) {
            throwExpected(source, expected, "\"" + word + "\"");
        }
        return *value;
    };
    // Dummies of many components are written with fewer asterisks than columns.
    const bool cutShort = component >= 3 && isBlank(source.line) && !isValid(table.data.back());
    const std::string datum = cutShort ? "*" : parseWord(source, which);
    double value = hasAsterisk(datum) ? dummyValue : number(datum, which);
    double deviation = 0;
    if (hasDeviations) {
        const std::string word = cutShort ? "*" : parseWord(source, "the deviation of " + which);
        deviation = hasAsterisk(word) ? 0.0 : number(word, "the deviation of " + which);
        value = hasAsterisk(word) && form.hasLineTime ? dummyValue : value;
    }
    value = isValid(value) ? value : dummyValue;
    table.data.push_back(value);
    if (hasDeviations) {
        table.deviation.push_back(isValid(value) ? deviation : 0.0);
    }
}

void readRecord(ObsLines& source, const ObsForm& form, bool hasDeviations, bool downhole, SurveyTable& table) {
    table.x.push_back(parseNumberAt(source, "x"));
    table.y.push_back(parseNumberAt(source, "y"));
    table.elevation.push_back(parseNumberAt(source, "the elevation"));
    if (downhole) {
        const double incl = parseNumberAt(source, "aincl");
        table.angles.push_back({incl, parseNumberAt(source, "adecl")});
    }
    for (std::size_t component = 0; component < table.components; ++component) {
        readDatum(source, form, hasDeviations, component, table);
    }
    if (form.hasLineTime) {
        table.line.push_back(parseWord(source, "a line name"));
        table.time.push_back(parseNumberAt(source, "a time"));
    }
}

}  // namespace

SurveyTable readObservedData(const std::string& fileName, const ObsForm& form, std::int64_t& countInFile) {
    ObsLines source;
    if (!openTextInput(source.input, fileName)) {
        throw RunError(fileName + ": the observed data file cannot be opened");
    }
    source.input.name = fileName;
    SurveyTable table;
    requireLine(source, "a header");
    if (!isCountLine(source.line)) {
        table.header = readMagneticHeader(source);
        requireLine(source, "the number of data");
    }
    countInFile = readCountLine(source, table);
    if (!form.codes.empty()) {
        table.codes = form.codes;
    }
    requireLine(source, "a record");
    const bool hasDeviations = chooseColumns(source, form, table);
    const bool downhole = isDownholeTable(table);
    std::int64_t blankLine = 0;
    do {
        if (isBlank(source.line)) {
            blankLine = source.lineNumber;
            continue;
        }
        if (blankLine > 0) {
            source.lineNumber = blankLine;
            throwExpected(source, "a record", "a blank line");
        }
        readRecord(source, form, hasDeviations, downhole, table);
    } while (parseLine(source));
    return table;
}

}  // namespace voxlith
