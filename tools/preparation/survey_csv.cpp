#include "preparation/survey_csv.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <optional>

#include "base/messages.h"
#include "forward/number_text.h"
#include "survey/data_types.h"
#include "survey/dummy_value.h"
#include "survey/obs_set.h"

namespace voxlith {

namespace {

constexpr std::size_t none = std::numeric_limits<std::size_t>::max();

struct ComponentPlace {
    std::size_t datum = 0, deviation = none;
};

struct SurveyPlaces {
    StationPlaces station;
    std::vector<ComponentPlace> data;
    std::size_t incl = none, decl = none;
    std::size_t line = none, time = none;
};

ComponentPlace componentPlace(const CsvReader& reader, const std::string& text) {
    const bool isWholeName = std::find(reader.columns.begin(), reader.columns.end(), text) != reader.columns.end();
    const DataColumns names = isWholeName ? DataColumns{text, ""} : splitDataColumns(text);
    ComponentPlace place;
    place.datum = csvColumn(reader, "--data", names.datum);
    if (!names.deviation.empty()) {
        place.deviation = csvColumn(reader, "--data", names.deviation);
    }
    return place;
}

SurveyPlaces columnsOfRow(const CsvReader& reader, const SurveyColumns& columns) {
    SurveyPlaces places;
    places.station = findStationColumns(reader, columns.station);
    for (const std::string& text : columns.data) {
        places.data.push_back(componentPlace(reader, text));
    }
    if (!columns.angles.empty()) {
        const DataColumns names = splitDataColumns(columns.angles);
        places.incl = csvColumn(reader, "--angles", names.datum);
        places.decl = csvColumn(reader, "--angles", names.deviation);
    }
    if (!columns.line.empty()) {
        places.line = csvColumn(reader, "--line", columns.line);
        places.time = csvColumn(reader, "--time", columns.time);
    }
    return places;
}

bool isDummyField(const std::string& field, const std::string& dummy) {
    constexpr std::array<std::string_view, 7> words{"", "NA", "N/A", "NaN", "nan", "NULL", "null"};
    if (std::find(words.begin(), words.end(), field) != words.end() || field.find('*') != std::string::npos) {
        return true;
    }
    if (dummy.empty()) {
        return false;
    }
    const std::optional<double> number = parseNumber(field);
    const std::optional<double> dummyNumber = parseNumber(dummy);
    return field == dummy || (number && dummyNumber && *number == *dummyNumber);
}

// As a single-precision number, which is what is kept of a deviation.
bool canBeDeviation(double value) {
    const auto kept = static_cast<float>(std::min(value, 2.0 * static_cast<double>(std::numeric_limits<float>::max())));
    return kept > 0.0F && std::isfinite(kept);
}

double deviationOf(const CsvReader& reader, const ComponentPlace& place, const SurveyColumns& columns, double datum,
                   double defaultDeviation, CsvSummary& summary) {
    if (place.deviation != none && !isDummyField(reader.fields[place.deviation], columns.dummy)) {
        const double value = csvNumber(reader, place.deviation, "a standard deviation");
        if (!canBeDeviation(value)) {
            throwCsvField(reader, place.deviation, "a standard deviation above 0");
        }
        return value;
    }
    ++summary.defaultDeviations;
    if (columns.percent < 0 && columns.floor < 0) {
        return defaultDeviation;
    }
    const double value = std::max(columns.percent, 0.0) / 100.0 * std::abs(datum) + std::max(columns.floor, 0.0);
    if (!canBeDeviation(value)) {
        throwCsvField(reader, place.datum, "a datum to which --percent and --floor give a deviation above 0");
    }
    return value;
}

void readComponents(const CsvReader& reader, const SurveyPlaces& places, const SurveyColumns& columns,
                    double defaultDeviation, SurveyTable& table, CsvSummary& summary) {
    for (const ComponentPlace& place : places.data) {
        double datum = dummyValue;
        if (!isDummyField(reader.fields[place.datum], columns.dummy)) {
            datum = csvNumber(reader, place.datum, "a number, or an empty field for a dummy");
        }
        if (!isValid(datum)) {
            table.data.push_back(dummyValue);
            table.deviation.push_back(0.0);
            continue;
        }
        const double deviation = deviationOf(reader, place, columns, datum, defaultDeviation, summary);
        // The quotient is what the inversion program holds.
        const double quotient = datum / static_cast<double>(static_cast<float>(deviation));
        if (!isValid(quotient) || !std::isfinite(quotient)) {
            throwCsvField(reader, place.datum, "a datum of less than 1e30 deviations");
        }
        table.data.push_back(datum);
        table.deviation.push_back(deviation);
    }
}

// Blanks would end the name in the data file.
std::string lineNameOf(const CsvReader& reader, std::size_t column) {
    std::string name = reader.fields[column];
    std::replace_if(
        name.begin(), name.end(), [](char c) { return c == ' ' || c == '\t' || c == '\n' || c == ','; }, '_');
    const bool printable = std::none_of(name.begin(), name.end(), [](char c) { return c == '\r' || c == '\0'; });
    if (name.empty() || name.size() > lineNameWidth || !printable) {
        throwCsvField(reader, column, "a line name of 1 to 16 characters");
    }
    return name;
}

void readLineAndTime(const CsvReader& reader, const SurveyPlaces& places, SurveyTable& table, CsvSummary& summary) {
    table.line.push_back(lineNameOf(reader, places.line));
    table.time.push_back(csvNumber(reader, places.time));
    const std::size_t n = table.line.size();
    if (n > 1 && table.line[n - 2] == table.line[n - 1] && !(table.time[n - 1] > table.time[n - 2])) {
        ++summary.fallingTimes;
    }
}

}  // namespace

DataColumns splitDataColumns(const std::string& text) {
    const std::size_t colon = text.rfind(':');
    if (colon == std::string::npos) {
        return {text, ""};
    }
    return {text.substr(0, colon), text.substr(colon + 1)};
}

SurveyTable readSurveyCsv(const std::string& fileName, const CsvOptions& csv, const SurveyColumns& columns,
                          double defaultDeviation, CsvSummary& summary) {
    CsvReader reader;
    openCsv(reader, fileName, csv);
    const SurveyPlaces places = columnsOfRow(reader, columns);
    SurveyTable table;
    table.components = places.data.size();
    while (nextCsvRow(reader)) {
        const auto [x, y, z] = stationOf(reader, places.station);
        table.x.push_back(x);
        table.y.push_back(y);
        table.elevation.push_back(z);
        if (places.incl != none) {
            const double incl = csvNumber(reader, places.incl);
            table.angles.push_back({incl, csvNumber(reader, places.decl)});
        }
        readComponents(reader, places, columns, defaultDeviation, table, summary);
        if (!table.angles.empty() && !std::all_of(table.data.end() - static_cast<std::ptrdiff_t>(table.components),
                                                  table.data.end(), [](double d) { return isValid(d); })) {
            throwCsvField(reader, places.data.front().datum, "a datum, as records with angles have no dummies");
        }
        if (places.line != none) {
            readLineAndTime(reader, places, table, summary);
        }
    }
    if (table.records() == 0) {
        throw RunError(fileName + ", line " + std::to_string(reader.lineNumber) +
                       ": expected a record, found the end of the file");
    }
    return table;
}

}  // namespace voxlith
