// Reads tables as spreadsheets write them: one line of column names, then one line a record. Fields are separated by
// commas, semicolons, tabs or blanks; a field in double quotes may hold separators, line ends and doubled quotes. Lines
// that are blank, that hold separators alone, or that begin with "#" or "!" are left out.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "base/text_input.h"

namespace CLI {
class App;
}

namespace voxlith {

struct CsvOptions {
    std::string separator = "auto";  // auto, comma, semicolon, tab, blank
    bool decimalComma = false;
};

struct CsvReader {
    TextInput input;
    char separator = ',';  // a blank stands for any run of blanks and tabs
    bool decimalComma = false;
    std::vector<std::string> columns;
    std::vector<std::string> fields;  // of the row taken last, as many as columns
    std::int64_t lineNumber = 0;      // in which that row begins
    std::string line;
};

void addCsvOptions(CLI::App& command, CsvOptions& options);

// Opens the file and reads the column names. Throws RunError.
void openCsv(CsvReader& reader, const std::string& fileName, const CsvOptions& options);

// Takes the next row; false at the end of the file. Throws RunError (file, line, what was expected and found) for a row
// with another number of fields than columns (empty fields at the end may be too many) and for a quote without its end.
bool nextCsvRow(CsvReader& reader);

// The position of the column of that name; throws RunError that names the option and the columns that there are.
std::size_t csvColumn(const CsvReader& reader, std::string_view option, const std::string& name);

// The number in a field of the row taken last. Throws RunError (file, line, column, what stood there).
double csvNumber(const CsvReader& reader, std::size_t column);
double csvNumber(const CsvReader& reader, std::size_t column, std::string_view expected);

[[noreturn]] void throwCsvField(const CsvReader& reader, std::size_t column, std::string_view expected);

}  // namespace voxlith
