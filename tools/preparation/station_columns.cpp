#include "preparation/station_columns.h"

#include <CLI/CLI.hpp>
#include <cmath>

namespace voxlith {

void addStationColumns(CLI::App& command, StationColumns& columns) {
    command.add_option("--x", columns.x, "Column of the easting")->capture_default_str();
    command.add_option("--y", columns.y, "Column of the northing")->capture_default_str();
    auto* const z = command.add_option("--z", columns.z, "Column of the elevation, up")->capture_default_str();
    command.add_option("--elevation", columns.elevation, "Elevation of all stations, in place of a column")
        ->excludes(z);
    command.add_option("--z-unit", columns.zUnit, "Unit of the column of the elevation; metres are written")
        ->check(CLI::IsMember({"m", "km", "ft"}))
        ->capture_default_str();
    command.add_flag("--z-down", columns.zDown, "The column of the elevation counts downwards: its sign is turned");
}

StationPlaces findStationColumns(const CsvReader& reader, const StationColumns& columns) {
    constexpr double metresInFoot = 0.3048;
    StationPlaces place;
    place.x = csvColumn(reader, "--x", columns.x);
    place.y = csvColumn(reader, "--y", columns.y);
    place.elevation = columns.elevation;
    if (!columns.elevation) {
        place.z = csvColumn(reader, "--z", columns.z);
    }
    place.factor = columns.zUnit == "km" ? 1000.0 : columns.zUnit == "ft" ? metresInFoot : 1.0;
    if (columns.zDown) {
        place.factor = -place.factor;
    }
    return place;
}

std::array<double, 3> stationOf(const CsvReader& reader, const StationPlaces& place) {
    const double x = csvNumber(reader, place.x);
    const double y = csvNumber(reader, place.y);
    if (place.elevation) {
        return {x, y, *place.elevation};
    }
    const double z = csvNumber(reader, place.z) * place.factor;
    if (!std::isfinite(z)) {
        throwCsvField(reader, place.z, "an elevation that can be held");
    }
    return {x, y, z == 0.0 ? 0.0 : z};
}

}  // namespace voxlith
