// Takes the data of a survey from a CSV with named columns.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "preparation/station_columns.h"
#include "preparation/survey_table.h"

namespace voxlith {

// The column of a datum and, where there is one, that of its standard deviation.
struct DataColumns {
    std::string datum, deviation;
};

struct SurveyColumns {
    StationColumns station;
    std::vector<std::string> data;  // "datum" or "datum:deviation"
    std::string angles;             // "aincl:adecl" of each record: the downhole form
    std::string line, time;
    std::string dummy;                // a text or number that stands for no datum, besides empty fields
    double percent = -1, floor = -1;  // of deviations that no column gives: percent |d| / 100 + floor; negative: none
};

// Splits at the last colon.
DataColumns splitDataColumns(const std::string& text);

struct CsvSummary {
    std::int64_t defaultDeviations = 0;  // that no column gave
    std::int64_t fallingTimes = 0;       // records whose time is not above that of the record before in its line
};

// The table without codes and header. `defaultDeviation` stands for deviations that neither a column nor percent and
// floor give. Throws RunError (file, line, column, what was expected and found).
SurveyTable readSurveyCsv(const std::string& fileName, const CsvOptions& csv, const SurveyColumns& columns,
                          double defaultDeviation, CsvSummary& summary);

}  // namespace voxlith
