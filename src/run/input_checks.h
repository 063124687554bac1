// Refusals before and while the inputs are read: what voxlith takes in silence and a user would not want.
#pragma once

#include <span>
#include <string>
#include <vector>

#include "driver/run_state.h"

namespace voxlith {

// Reads the control file once and writes nothing. Returns iRestart. When it says what the
// run would not do, all findings but the last go to standard error, a line each, and the last is thrown as RunError;
// the stops of the control file come as they are.
std::int32_t checkControlFile(std::span<const std::string> arguments);

// After the sensitivities have been read: models and bounds must have a value for each cell. A running model that is
// empty or cut, as a power failure may leave it, is replaced by the version before, if that is complete; `run` then
// continues from that. Returns a warning that says so, or nothing. Throws RunError for what is cut.
std::string checkModelFiles(RunState& run);

// Where the sensitivity files have the stations.
struct StationColumns {
    std::vector<double> x, y, z;
};

StationColumns stationsOf(const ObsSet& obs);

// After the survey has been read: `sensitivityStations` are those of the sensitivity files. Throws RunError.
void checkSurvey(const RunState& run, const StationColumns& sensitivityStations);

}  // namespace voxlith
