// "voxlith-tools obs": a CSV with named columns to observed data, and observed data to a CSV.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "preparation/survey_csv.h"
#include "preparation/survey_table.h"

namespace CLI {
class App;
}

namespace voxlith {

struct ObsOptions {
    std::string file;     // the CSV for --out, the observed data for --csv
    std::string outFile;  // observed data to write
    std::string csvFile;  // CSV to write
    CsvOptions csv;
    SurveyColumns columns;
    std::vector<std::string> types;
    std::string field;      // "incl,decl,nT"
    std::string direction;  // "aincl,adecl"
    std::size_t components = 0;
};

struct ObsReport {
    SurveyTable table;
    std::string written;
    std::int64_t countInFile = -1;  // of an observed data file
    CsvSummary summary;
};

CLI::App* addObsCommand(CLI::App& tools, ObsOptions& options);

// Writes the file; under its own name it appears when it is whole. Throws RunError.
ObsReport convertObservedData(const ObsOptions& options);

// The report on standard output, warnings on standard error.
void printObsReport(const ObsReport& report);

}  // namespace voxlith
