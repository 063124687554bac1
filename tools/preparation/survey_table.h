// The records of an observed data file as a table, and the two forms in which it stands in files: observed data, and a
// CSV with named columns.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "forward/survey_type.h"

namespace voxlith {

// What the first two lines of a magnetic file say.
struct MagneticHeader {
    InducingField field;
    FieldDirection measured;
    std::int32_t idir = 1;
};

struct SurveyTable {
    std::size_t components = 1;
    std::vector<std::int32_t> codes;  // of the components; empty when the file does not tell
    std::optional<MagneticHeader> header;
    std::vector<double> x, y, elevation;
    std::vector<double> data;            // by record, then component; dummyValue where there is none
    std::vector<double> deviation;       // of the same shape, 0 at dummies; empty when the file has none
    std::vector<FieldDirection> angles;  // by record in the downhole form, else empty
    std::vector<std::string> line;       // by record, with times; else empty
    std::vector<double> time;

    std::size_t records() const { return x.size(); }
};

// What readers of an observed data file cannot see in it.
struct ObsForm {
    std::size_t components = 0;       // 0: by the count line, else by the columns of the first record
    bool hasLineTime = false;         // the records end with a line name and a time
    std::vector<std::int32_t> codes;  // empty: as the count line says
};

// `countInFile` gets the count of the header, which nothing is compared with. Throws RunError (file, line, record
// column, what was expected and found).
SurveyTable readObservedData(const std::string& fileName, const ObsForm& form, std::int64_t& countInFile);

// Numbers with the fewest digits that read back as the same. Records are checked to fit the 256 characters that are
// read of a line. Throws RunError.
void writeObservedData(const std::string& fileName, const SurveyTable& table);

struct CsvNames {
    std::string x = "x", y = "y", z = "z", line = "line", time = "time";
    std::vector<std::string> data, deviation;  // as many as components; others get names of their own
};

// Dummies are empty fields. Throws RunError.
void writeCsv(const std::string& fileName, const SurveyTable& table, const CsvNames& names, char separator);

}  // namespace voxlith
