// Which columns of a table hold the place of a station, and in which unit and direction its height stands there.
#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <string>

#include "preparation/csv_reader.h"

namespace voxlith {

struct StationColumns {
    std::string x = "x", y = "y", z = "z";
    std::optional<double> elevation;  // of all stations; the column z is then not used
    std::string zUnit = "m";          // m, km, ft
    bool zDown = false;               // the column holds depths
};

struct StationPlaces {
    std::size_t x = 0, y = 0, z = 0;  // positions of the columns
    double factor = 1.0;              // of the column z
    std::optional<double> elevation;
};

void addStationColumns(CLI::App& command, StationColumns& columns);

// Finds the columns. Throws RunError for names that the table does not have.
StationPlaces findStationColumns(const CsvReader& reader, const StationColumns& columns);

// x, y and elevation of the row taken last, in metres as far as the elevation goes. Throws RunError.
std::array<double, 3> stationOf(const CsvReader& reader, const StationPlaces& place);

}  // namespace voxlith
