// Survey tables to files.
#include <algorithm>
#include <memory>

#include "base/messages.h"
#include "base/output_file.h"
#include "base/tokens.h"
#include "forward/number_text.h"
#include "preparation/survey_table.h"
#include "survey/dummy_value.h"

namespace voxlith {

namespace {

constexpr std::size_t coordinateWidth = 12, dataWidth = 13;

// Right-aligned behind a blank; without the alignment when the line would be too long with it.
void appendWord(std::string& text, const std::string& word, std::size_t width) {
    text.append(1 + (word.size() < width ? width - word.size() : 0), ' ');
    text += word;
}

std::string recordText(const SurveyTable& table, std::size_t record, bool aligned) {
    const std::size_t coordinate = aligned ? coordinateWidth : 0;
    const std::size_t column = aligned ? dataWidth : 0;
    std::string text;
    for (const double value : {table.x[record], table.y[record], table.elevation[record]}) {
        appendWord(text, numberText(value), coordinate);
    }
    if (!table.angles.empty()) {
        appendWord(text, numberText(table.angles[record].incl), 0);
        appendWord(text, numberText(table.angles[record].decl), 0);
    }
    for (std::size_t component = 0; component < table.components; ++component) {
        const std::size_t place = record * table.components + component;
        const bool valid = isValid(table.data[place]);
        appendWord(text, valid ? numberText(table.data[place]) : "*", column);
        if (!table.deviation.empty()) {
            appendWord(text, valid ? numberText(table.deviation[place]) : "*", column);
        }
    }
    if (!table.line.empty()) {
        appendWord(text, table.line[record], 0);
        appendWord(text, numberText(table.time[record]), 0);
    }
    return text;
}

void appendHeader(OutputFile& file, const SurveyTable& table) {
    if (table.header) {
        const MagneticHeader& header = *table.header;
        const FieldDirection& field = header.field.direction;
        appendOutputLine(file, numberText(field.incl) + " " + numberText(field.decl) + " " +
                                   numberText(header.field.strength) + "  !! incl, decl, geomag");
        appendOutputLine(file, numberText(header.measured.incl) + " " + numberText(header.measured.decl) + " " +
                                   std::to_string(header.idir) + "  !! aincl, adecl, idir");
    }
    std::string count = std::to_string(table.records());
    if (table.components == 1) {
        appendOutputLine(file, count + "  !! # of data");
        return;
    }
    appendWord(count, std::to_string(table.components), 0);
    for (const std::int32_t code : table.codes) {
        appendWord(count, std::to_string(code), 0);
    }
    appendOutputLine(file, count + "  !! # of data, # components, data types");
}

// A field of a CSV, in quotes where it needs them.
std::string fieldText(const std::string& text, char separator) {
    const bool plain = text.find_first_of("\"\r\n \t") == std::string::npos &&
                       text.find(separator) == std::string::npos && text[0] != '#' && text[0] != '!';
    if (plain) {
        return text;
    }
    std::string quoted = "\"";
    for (const char c : text) {
        if (c == '"') {
            quoted += c;
        }
        quoted += c;
    }
    quoted += '"';
    return quoted;
}

std::string nameOf(const std::vector<std::string>& names, std::size_t component, const std::string& otherwise) {
    return component < names.size() && !names[component].empty() ? names[component]
                                                                 : otherwise + std::to_string(component + 1);
}

std::vector<std::string> columnNames(const SurveyTable& table, const CsvNames& names) {
    std::vector<std::string> columns{names.x, names.y, names.z};
    if (!table.angles.empty()) {
        columns.insert(columns.end(), {"aincl", "adecl"});
    }
    for (std::size_t component = 0; component < table.components; ++component) {
        columns.push_back(nameOf(names.data, component, "data"));
        if (!table.deviation.empty()) {
            columns.push_back(nameOf(names.deviation, component, "deviation"));
        }
    }
    if (!table.line.empty()) {
        columns.insert(columns.end(), {names.line, names.time});
    }
    return columns;
}

std::vector<std::string> csvFields(const SurveyTable& table, std::size_t record) {
    std::vector<std::string> fields;
    for (const double value : {table.x[record], table.y[record], table.elevation[record]}) {
        fields.push_back(numberText(value));
    }
    if (!table.angles.empty()) {
        fields.push_back(numberText(table.angles[record].incl));
        fields.push_back(numberText(table.angles[record].decl));
    }
    for (std::size_t component = 0; component < table.components; ++component) {
        const std::size_t place = record * table.components + component;
        const bool valid = isValid(table.data[place]);
        fields.push_back(valid ? numberText(table.data[place]) : "");
        if (!table.deviation.empty()) {
            const bool given = valid && table.deviation[place] > 0;  // otherwise the default deviation stands for it
            fields.push_back(given ? numberText(table.deviation[place]) : "");
        }
    }
    if (!table.line.empty()) {
        fields.push_back(table.line[record]);
        fields.push_back(numberText(table.time[record]));
    }
    return fields;
}

std::string joined(const std::vector<std::string>& fields, char separator) {
    std::string text;
    for (std::size_t n = 0; n < fields.size(); ++n) {
        if (n > 0) {
            text += separator;
        }
        if (!fields[n].empty()) {
            text += fieldText(fields[n], separator);
        }
    }
    return text;
}

}  // namespace

void writeObservedData(const std::string& fileName, const SurveyTable& table) {
    const auto file = std::make_unique<OutputFile>();
    openOutputFile(*file, fileName);
    appendHeader(*file, table);
    for (std::size_t record = 0; record < table.records(); ++record) {
        std::string text = recordText(table, record, true);
        if (text.size() > lineWidth) {
            text = recordText(table, record, false);
        }
        if (text.size() > lineWidth) {
            throw RunError(fileName + ": record " + std::to_string(record + 1) + " takes " +
                           std::to_string(text.size()) + " characters; expected at most " + std::to_string(lineWidth) +
                           ", which are read of a line");
        }
        appendOutputLine(*file, text);
    }
    finishOutputFile(*file);
}

void writeCsv(const std::string& fileName, const SurveyTable& table, const CsvNames& names, char separator) {
    const auto file = std::make_unique<OutputFile>();
    openOutputFile(*file, fileName);
    appendOutputLine(*file, joined(columnNames(table, names), separator));
    for (std::size_t record = 0; record < table.records(); ++record) {
        appendOutputLine(*file, joined(csvFields(table, record), separator));
    }
    finishOutputFile(*file);
}

}  // namespace voxlith
