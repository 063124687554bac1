#include "forward/station_file.h"

#include <string_view>

#include "base/messages.h"
#include "base/text_input.h"
#include "forward/number_text.h"
#include "survey/data_types.h"

namespace voxlith {

namespace {

struct StationLines {
    TextInput input;
    std::string line;
    std::int64_t lineNumber = 0;
};

[[noreturn]] void throwExpected(const StationLines& source, const std::string& expected, std::string_view found) {
    constexpr std::size_t shownWidth = 60;
    throw RunError(source.input.name + ", line " + std::to_string(source.lineNumber) + ": expected " + expected +
                   ", found " + std::string(found.substr(0, shownWidth)));
}

void nextLine(StationLines& source, const std::string& expected) {
    source.lineNumber = source.input.lineNumber;
    if (!readLine(source.input, source.line)) {
        throwExpected(source, expected, "the end of the file");
    }
}

// The numbers with which the line begins, at most `most`.
std::vector<double> leadingNumbers(const std::string& line, std::size_t most) {
    std::vector<double> numbers;
    for (const std::string_view word : splitWords(line)) {
        const std::optional<double> number = parseNumber(word);
        if (!number || numbers.size() == most) {
            break;
        }
        numbers.push_back(*number);
    }
    return numbers;
}

std::vector<double> requiredNumbers(StationLines& source, std::size_t count, const std::string& expected) {
    std::vector<double> numbers = leadingNumbers(source.line, count);
    if (numbers.size() != count) {
        throwExpected(source, expected, "\"" + source.line + "\"");
    }
    return numbers;
}

// Four or more numbers in a file of gravity data are the count line of a file with several components.
bool isFieldLine(const std::string& line, DataType type) {
    const std::size_t count = leadingNumbers(line, 4).size();
    return hasMagneticLayout(type) ? count >= 3 : count == 3;
}

// Direction line: three numbers, or a text, which leaves the direction open and idir at 1.
void readDirectionLine(StationLines& source, StationFile& file) {
    const std::string expected = "aincl, adecl, idir";
    nextLine(source, expected);
    if (leadingNumbers(source.line, 1).empty()) {
        return;
    }
    const std::vector<double> numbers = requiredNumbers(source, 3, expected);
    const std::optional<std::int32_t> idir = parseInteger(splitWords(source.line)[2]);
    if (!idir) {
        throwExpected(source, expected, "\"" + source.line + "\"");
    }
    file.measured = FieldDirection{numbers[0], numbers[1]};
    file.idir = *idir;
}

std::int32_t readCount(const StationLines& source) {
    const std::vector<std::string_view> words = splitWords(source.line);
    const std::optional<std::int32_t> count = words.empty() ? std::nullopt : parseInteger(words.front());
    if (!count || *count < 1) {
        throwExpected(source, "the number of stations", "\"" + source.line + "\"");
    }
    return *count;
}

void readStation(StationLines& source, bool downhole, StationFile& file) {
    const std::string expected = downhole ? "x, y, elevation, aincl, adecl of station " : "x, y, elevation of station ";
    const std::string wanted = expected + std::to_string(file.stations.size() + 1);
    nextLine(source, wanted);
    const std::vector<double> numbers = requiredNumbers(source, downhole ? 5 : 3, wanted);
    Station station;
    station.point = {numbers[0], numbers[1], -numbers[2]};
    station.elevation = numbers[2];
    file.stations.push_back(station);
    if (downhole) {
        file.measuredHere.push_back({numbers[3], numbers[4]});
    }
}

}  // namespace

StationFile readStationFile(const std::string& fileName, DataType type) {
    StationLines source;
    if (!openTextInput(source.input, fileName)) {
        throw RunError(fileName + ": the station file cannot be opened");
    }
    StationFile file;
    nextLine(source, "a header");
    if (isFieldLine(source.line, type)) {
        const std::vector<double> numbers = requiredNumbers(source, 3, "incl, decl, geomag");
        file.field = InducingField{{numbers[0], numbers[1]}, numbers[2]};
        readDirectionLine(source, file);
        nextLine(source, "the number of stations");
    }
    const std::int32_t count = readCount(source);
    const bool downhole = file.field.has_value() && file.idir < 1 && type == DataType::totalMagnetic;
    for (std::int32_t n = 0; n < count; ++n) {
        readStation(source, downhole, file);
    }
    return file;
}

}  // namespace voxlith
