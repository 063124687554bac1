#include "preparation/csv_reader.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <optional>

#include "base/messages.h"
#include "base/tokens.h"
#include "forward/number_text.h"

namespace voxlith {

namespace {

constexpr std::size_t longestRow = std::size_t{1} << 20U;  // characters; a longer one is no table
constexpr std::string_view blanks = " \t";

std::string at(const CsvReader& reader, std::int64_t lineNumber) {
    return reader.input.name + ", line " + std::to_string(lineNumber) + ": ";
}

std::string shown(std::string_view text) {
    constexpr std::size_t shownWidth = 60;
    std::string result = "\"";
    for (const char c : text.substr(0, shownWidth)) {
        result += c == '\n' || c == '\r' || c == '\0' ? ' ' : c;
    }
    return result + "\"";
}

// Appends the next line of the file to `line`. False at the end of the file.
bool appendLine(CsvReader& reader) {
    std::string piece;
    const std::int64_t number = reader.input.lineNumber;
    if (!readLine(reader.input, piece, longestRow + 1)) {
        return false;
    }
    if (reader.line.size() + piece.size() > longestRow) {
        throw RunError(at(reader, number) + "expected a row of at most " + std::to_string(longestRow) +
                       " characters, found a longer one");
    }
    reader.line += piece;
    return true;
}

std::string trimmed(std::string_view text) {
    const std::size_t start = text.find_first_not_of(" \t\r");
    if (start == std::string_view::npos) {
        return {};
    }
    return std::string(text.substr(start, text.find_last_not_of(" \t\r") - start + 1));
}

// Reads on behind an opening quote at `position`; leaves it behind the closing one.
std::string parseQuoted(CsvReader& reader, std::size_t& position) {
    std::string field;
    ++position;
    while (true) {
        const std::size_t quote = reader.line.find('"', position);
        field.append(reader.line, position, quote - position);
        if (quote == std::string::npos) {
            position = reader.line.size();
            field += '\n';
            if (!appendLine(reader)) {
                throw RunError(at(reader, reader.lineNumber) + "expected a closing quote, found the end of the file");
            }
            continue;
        }
        position = quote + 1;
        if (position == reader.line.size() || reader.line[position] != '"') {
            return field;
        }
        field += '"';
        ++position;
    }
}

bool isSeparator(const CsvReader& reader, char c) {
    return c == reader.separator || (reader.separator == ' ' && c == '\t');
}

void skipBlanks(const CsvReader& reader, std::size_t& position) {
    while (position < reader.line.size() && blanks.find(reader.line[position]) != std::string_view::npos &&
           (reader.separator == ' ' || !isSeparator(reader, reader.line[position]))) {
        ++position;
    }
}

std::string parseField(CsvReader& reader, std::size_t& position) {
    skipBlanks(reader, position);
    if (position < reader.line.size() && reader.line[position] == '"') {
        std::string field = parseQuoted(reader, position);
        skipBlanks(reader, position);
        const bool blankBehind =
            reader.separator == ' ' && position > 0 && blanks.find(reader.line[position - 1]) != std::string_view::npos;
        if (position < reader.line.size() && !isSeparator(reader, reader.line[position]) && !blankBehind) {
            throw RunError(at(reader, reader.lineNumber) + "expected a separator behind the closing quote, found " +
                           shown(std::string_view(reader.line).substr(position)));
        }
        return field;
    }
    const std::size_t start = position;
    while (position < reader.line.size() && !isSeparator(reader, reader.line[position])) {
        ++position;
    }
    return trimmed(std::string_view(reader.line).substr(start, position - start));
}

void splitRow(CsvReader& reader) {
    reader.fields.clear();
    std::size_t position = 0;
    while (true) {
        reader.fields.push_back(parseField(reader, position));
        if (reader.separator == ' ') {
            skipBlanks(reader, position);
            if (position == reader.line.size()) {
                return;
            }
        } else if (position == reader.line.size()) {
            return;
        } else {
            ++position;
        }
    }
}

// Takes the next line that holds something into `line`.
bool readRowLine(CsvReader& reader) {
    do {
        reader.line.clear();
        reader.lineNumber = reader.input.lineNumber;
        if (!appendLine(reader)) {
            return false;
        }
        const std::size_t first = reader.line.find_first_not_of(" \t\r");
        if (first != std::string::npos && reader.line[first] != '#' && reader.line[first] != '!') {
            return true;
        }
    } while (true);
}

char detectSeparator(std::string_view line) {
    for (const char c : {'\t', ';', ','}) {
        if (line.find(c) != std::string_view::npos) {
            return c;
        }
    }
    return ' ';
}

char separatorOf(const CsvOptions& options, std::string_view firstLine) {
    if (options.separator == "comma") {
        return ',';
    }
    if (options.separator == "semicolon") {
        return ';';
    }
    if (options.separator == "tab") {
        return '\t';
    }
    return options.separator == "blank" ? ' ' : detectSeparator(firstLine);
}

bool isEmpty(const std::vector<std::string>& fields) {
    return std::all_of(fields.begin(), fields.end(), [](const std::string& field) { return field.empty(); });
}

void checkFieldCount(CsvReader& reader) {
    while (reader.fields.size() > reader.columns.size() && reader.fields.back().empty()) {
        reader.fields.pop_back();
    }
    if (reader.fields.size() != reader.columns.size()) {
        throw RunError(at(reader, reader.lineNumber) + "expected " + std::to_string(reader.columns.size()) +
                       " fields as in the line of column names, found " + std::to_string(reader.fields.size()));
    }
}

}  // namespace

void addCsvOptions(CLI::App& command, CsvOptions& options) {
    command.add_option("--separator", options.separator, "Between the fields of the CSV")
        ->check(CLI::IsMember({"auto", "comma", "semicolon", "tab", "blank"}))
        ->capture_default_str();
    command.add_flag("--decimal-comma", options.decimalComma, "Numbers in the CSV have a comma before their decimals");
}

void openCsv(CsvReader& reader, const std::string& fileName, const CsvOptions& options) {
    if (!openTextInput(reader.input, fileName)) {
        throw RunError(fileName + ": the CSV file cannot be opened");
    }
    reader.input.name = fileName;
    if (!readRowLine(reader)) {
        throw RunError(at(reader, reader.lineNumber) + "expected column names, found the end of the file");
    }
    constexpr std::string_view byteOrderMark = "\xEF\xBB\xBF";
    if (reader.line.compare(0, byteOrderMark.size(), byteOrderMark) == 0) {
        reader.line.erase(0, byteOrderMark.size());
    }
    reader.separator = separatorOf(options, reader.line);
    reader.decimalComma = options.decimalComma;
    if (options.decimalComma && reader.separator == ',') {
        throw RunError(at(reader, reader.lineNumber) +
                       "expected another separator than the comma with --decimal-comma, found commas");
    }
    splitRow(reader);
    while (!reader.fields.empty() && reader.fields.back().empty()) {
        reader.fields.pop_back();
    }
    if (reader.fields.empty()) {
        throw RunError(at(reader, reader.lineNumber) + "expected column names, found none");
    }
    reader.columns = reader.fields;
}

bool nextCsvRow(CsvReader& reader) {
    do {
        if (!readRowLine(reader)) {
            return false;
        }
        splitRow(reader);
    } while (isEmpty(reader.fields));
    checkFieldCount(reader);
    return true;
}

std::size_t csvColumn(const CsvReader& reader, std::string_view option, const std::string& name) {
    const auto found = std::find(reader.columns.begin(), reader.columns.end(), name);
    if (found == reader.columns.end()) {
        std::string known;
        for (const std::string& column : reader.columns) {
            known += (known.empty() ? "" : ", ") + column;
        }
        constexpr std::size_t shownWidth = 400;
        if (known.size() > shownWidth) {
            known.resize(shownWidth);
            known += " ...";
        }
        std::replace(known.begin(), known.end(), '\n', ' ');
        throw RunError(std::string(option) + " " + name + ": " + reader.input.name +
                       " has no column of that name; it has " + known);
    }
    if (std::find(found + 1, reader.columns.end(), name) != reader.columns.end()) {
        throw RunError(std::string(option) + " " + name + ": " + reader.input.name + " has two columns of that name");
    }
    return static_cast<std::size_t>(found - reader.columns.begin());
}

double csvNumber(const CsvReader& reader, std::size_t column) {
    return csvNumber(reader, column, "a number");
}

double csvNumber(const CsvReader& reader, std::size_t column, std::string_view expected) {
    std::string text = reader.fields[column];
    if (reader.decimalComma) {
        if (text.find('.') != std::string::npos) {
            throwCsvField(reader, column, "a number with a decimal comma");
        }
        std::replace(text.begin(), text.end(), ',', '.');
    }
    const std::optional<double> number = parseNumber(text);
    if (!number) {
        throwCsvField(reader, column, expected);
    }
    return *number;
}

void throwCsvField(const CsvReader& reader, std::size_t column, std::string_view expected) {
    const std::string& field = reader.fields[column];
    throw RunError(at(reader, reader.lineNumber) + "column " + shown(reader.columns[column]) + ": expected " +
                   std::string(expected) + ", found " + (field.empty() ? "an empty field" : shown(field)));
}

}  // namespace voxlith
