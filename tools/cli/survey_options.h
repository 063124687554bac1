// The options that subcommands with a forward computation share: mesh, stations, data type, field, topography, threads.
//
// The surface of the topography is interpolated by voxlith-tools, which knows the file. It asks for the places by
// --surface-points and hands over the elevations by --surface. It also knows what is to be remembered of the
// coordinates (reference system, shift of the origin), and hands over the content of the output's side file by --side.
// --responses gives the responses of all cells, so that a test can hand the same rows to another writer. Help does not
// show the four.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "forward/survey.h"

namespace CLI {
class App;
}

namespace voxlith {

struct SurveyOptions {
    std::string meshFile;
    std::string stationFile;
    DataType type = DataType::gz;
    std::optional<InducingField> field;           // none: that of the station file
    std::optional<FieldDirection> direction;      // measured direction; none: see readSurvey
    std::optional<FieldDirection> magnetisation;  // none: along the inducing field
    std::optional<CavityShares> cavity;           // none: that of a needle
    bool boreholes = false;                       // stations may be below the surface
    std::string topographyFile;                   // empty: all cells are active; else only named in messages
    std::string terrainCrs;                       // its reference system, which voxlith-tools alone reads
    std::string surfaceFile;     // elevations of its surface, real64: columns (x fastest), then stations
    std::string sideFile;        // content of the side file of the output; empty: it gets none
    bool surfacePoints = false;  // only the places of these elevations are wanted
    bool responses = false;      // only the responses of the cells are wanted
    std::size_t threads = 0;     // 0: defaultThreads
};

void addSurveyOptions(CLI::App& command, SurveyOptions& options);

// Writes the places to standard output: x and y of the centre of each column (x fastest), then of each station, real64.
// Throws RunError.
void writeSurfacePoints(const SurveyOptions& options);

// Writes the response of each cell (z fastest, then x, then y) at each station, real64, to standard output: before
// depth weights, and as if all cells were active. Throws RunError.
void writeResponses(const SurveyOptions& options);

// Reads mesh, stations and surface. The field is that of the options, else of the station file; a magnetic type
// without either is refused. The measured direction is that of the options, else the field's when the options give one,
// else the station file's, else the field's. Stations of the downhole form keep their own directions. Refuses
// topography that leaves no cell active, and what checkStations refuses. Throws RunError.
Survey readSurvey(const SurveyOptions& options);

struct NamedFile {
    std::string option, name;
};

// Throws RunError when the file to write is one of those that are read, or one of `more`: links lead to the same file.
void checkOutput(const NamedFile& output, const SurveyOptions& options, const std::vector<NamedFile>& more);

// Writes the side file of an output that is complete, OUT.json, or removes an old one when the content is empty. Throws
// RunError.
void writeSideFile(const std::string& outFile, const SurveyOptions& options);

// Those of the options, or defaultThreads.
std::size_t threadCount(const SurveyOptions& options, std::size_t bytesPerThread);

}  // namespace voxlith
