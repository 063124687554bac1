// Reads the stations of an observed data file: its header and the coordinates of each record. Further columns are
// ignored, so that files with any number of components, or with none yet, can be used.
//
// The file has a field line, a direction line and the count (the magnetic layout), or only the count. The first
// line decides: three numbers are a field line, also in a file that is used for gravity; one number is the count, also
// in a file that is used for a magnetic type, which then needs its field from an option.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "forward/prism.h"
#include "forward/survey_type.h"

namespace voxlith {

struct Station {
    StationPoint point;
    double elevation = 0;
};

struct StationFile {
    std::vector<Station> stations;
    std::optional<InducingField> field;      // where the file has the magnetic layout
    std::optional<FieldDirection> measured;  // where it gives one
    std::int32_t idir = 1;
    std::vector<FieldDirection>
        measuredHere;  // by station, in the downhole form (idir below 1 and total field data); else empty
};

// `type`: of the data that are to be computed. Throws RunError (file, line, what was expected and found).
StationFile readStationFile(const std::string& fileName, DataType type);

}  // namespace voxlith
