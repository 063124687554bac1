// What a subcommand that works out responses is given: mesh, stations, kind of data, field and measured direction.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "forward/survey_type.h"
#include "preparation/ground.h"
#include "preparation/station_file.h"
#include "survey/mesh_geometry.h"

namespace CLI {
class App;
}

namespace voxlith {

struct SurveyOptions {
    std::string meshFile;
    std::string stationFile;
    std::string type;
    std::string field;           // "incl,decl,nT"; empty: as the station file says
    std::string direction;       // "aincl,adecl"; empty: see readSurvey
    std::string topographyFile;  // empty: all cells are ground
    std::size_t threads = 0;     // 0: two, or one on a machine with one core
};

struct Survey {
    std::int32_t code = 0;
    MeshGeometry mesh;
    std::vector<Station> stations;
    InducingField field;
    FieldDirection measured;
    std::int32_t idir = 1;
    std::vector<FieldDirection> measuredHere;  // by station, in the downhole form; else empty
    double edgeDistance = 0;
    Ground ground;                      // without topography there is no air
    std::vector<std::string> warnings;  // of what can be worked out and is hardly meant
};

void addSurveyOptions(CLI::App& command, SurveyOptions& options);

// Reads mesh and stations. The field is that of --field, else of the station file; a magnetic type without either is
// refused. The measured direction is that of --direction, else the field's when --field is given, else the station
// file's, else the field's. Stations of the downhole form keep their own directions. With
// topography, no cell of ground at all is refused, and so are stations deeper than the first cell of ground, except in
// the downhole form. Throws RunError.
Survey readSurvey(const SurveyOptions& options);

// What the datum of one station (from 0) takes of each derivative.
ResponseWeights weightsOfStation(const Survey& survey, std::size_t station);

std::size_t threadCount(const SurveyOptions& options);

}  // namespace voxlith
