// Refusals before and while the inputs are read: what voxlith takes in silence and a user would not want.
#pragma once

#include <span>
#include <string>
#include <vector>

#include "driver/run_state.h"

namespace voxlith {

// Reads the control file once and writes nothing. Returns iRestart. Throws RunError, a line for each finding, when it
// says what the run would not do; the stops of the control file come as they are.
std::int32_t checkControlFile(std::span<const std::string> arguments);

// Where the sensitivity files have the stations.
struct StationColumns {
    std::vector<double> x, y, z;
};

StationColumns stationsOf(const ObsSet& obs);

// After the survey has been read: `sensitivityStations` are those of the sensitivity files. Throws RunError.
void checkSurvey(const RunState& run, const StationColumns& sensitivityStations);

}  // namespace voxlith
