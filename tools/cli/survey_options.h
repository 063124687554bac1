// The options that subcommands with a forward computation share: mesh, stations, data type, field, topography, threads.
#pragma once

#include <cstddef>
#include <optional>
#include <string>

#include "forward/survey.h"

namespace CLI {
class App;
}

namespace voxlith {

struct SurveyOptions {
    std::string meshFile;
    std::string stationFile;
    DataType type = DataType::gz;
    std::optional<InducingField> field;       // none: that of the station file
    std::optional<FieldDirection> direction;  // measured direction; none: see readSurvey
    std::string topographyFile;               // empty: all cells are active
    std::size_t threads = 0;                  // 0: two, or one on a machine with one core
};

void addSurveyOptions(CLI::App& command, SurveyOptions& options);

// Reads mesh, stations and topography. The field is that of the options, else of the station file; a magnetic type
// without either is refused. The measured direction is that of the options, else the field's when the options give one,
// else the station file's, else the field's. Stations of the downhole form keep their own directions. Refuses
// topography that leaves no cell active, and what checkStations refuses. Throws RunError.
Survey readSurvey(const SurveyOptions& options);

std::size_t threadCount(const SurveyOptions& options);

}  // namespace voxlith
