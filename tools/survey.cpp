#include "survey.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cmath>
#include <thread>
#include <utility>

#include "number_text.h"
#include "survey_mesh.h"
#include "text/messages.h"

namespace voxlith {

namespace {

constexpr double rightAngle = 90.0;

void checkDirection(const FieldDirection& direction, const std::string& source) {
    if (std::abs(direction.incl) > rightAngle || std::abs(direction.decl) > 4 * rightAngle) {
        throw RunError(source + ": expected an inclination within 90 degrees and a declination within 360, found " +
                       numberText(direction.incl) + ", " + numberText(direction.decl));
    }
}

void chooseField(const SurveyOptions& options, const StationFile& file, Survey& survey) {
    std::string source = options.stationFile;
    if (!options.field.empty()) {
        const std::vector<double> numbers = parseNumberList("--field", "incl,decl,nT", options.field, 3);
        survey.field = {{numbers[0], numbers[1]}, numbers[2]};
        source = "--field " + options.field;
    } else if (file.field) {
        survey.field = *file.field;
    } else if (isMagneticSurvey(survey.code)) {
        throw RunError(options.stationFile + ": no field line; give --field incl,decl,nT");
    }
    if (isMagneticSurvey(survey.code)) {
        checkDirection(survey.field.direction, source);
        if (!(survey.field.strength > 0)) {
            throw RunError(source + ": expected a field strength above 0 nT, found " +
                           numberText(survey.field.strength));
        }
    }
}

void chooseDirection(const SurveyOptions& options, const StationFile& file, Survey& survey) {
    survey.measured = survey.field.direction;
    std::string source = "measured direction";
    if (!options.direction.empty()) {
        const std::vector<double> numbers = parseNumberList("--direction", "aincl,adecl", options.direction, 2);
        survey.measured = {numbers[0], numbers[1]};
        source = "--direction " + options.direction;
    } else if (options.field.empty() && file.measured) {
        survey.measured = *file.measured;
        source = options.stationFile;
    }
    if (survey.code == 1) {
        checkDirection(survey.measured, source);
    }
}

}  // namespace

void addSurveyOptions(CLI::App& command, SurveyOptions& options) {
    command.add_option("--mesh", options.meshFile, "UBC tensor mesh file")->required();
    command.add_option("--stations", options.stationFile, "Observed data file; its stations are used")->required();
    command
        .add_option("--type", options.type,
                    "Kind of data: gz, gxx, gyy, gzz, gxy, gxz, gyz, tmi, tx, ty, tz, or a code")
        ->required();
    command.add_option("--field", options.field, "Inducing field incl,decl,nT (default: as in the station file)");
    command.add_option("--direction", options.direction,
                       "Measured direction aincl,adecl of tmi (default: as in the station file, or along --field)");
    command.add_option("--threads", options.threads, "Threads (default: two); the result does not depend on them")
        ->check(CLI::Range(1, 256));
}

Survey readSurvey(const SurveyOptions& options) {
    Survey survey;
    survey.code = surveyTypeCode(options.type);
    survey.mesh = readSurveyMesh(options.meshFile);
    survey.edgeDistance = edgeDistanceOf(survey.mesh);
    StationFile file = readStationFile(options.stationFile, survey.code);
    chooseField(options, file, survey);
    chooseDirection(options, file, survey);
    survey.stations = std::move(file.stations);
    survey.idir = file.idir;
    survey.measuredHere = std::move(file.measuredHere);
    return survey;
}

ResponseWeights weightsOfStation(const Survey& survey, std::size_t station) {
    const FieldDirection& measured = survey.measuredHere.empty() ? survey.measured : survey.measuredHere[station];
    return responseWeights(survey.code, survey.field, measured);
}

std::size_t threadCount(const SurveyOptions& options) {
    if (options.threads > 0) {
        return options.threads;
    }
    return std::clamp<std::size_t>(std::thread::hardware_concurrency(), 1, 2);
}

}  // namespace voxlith
