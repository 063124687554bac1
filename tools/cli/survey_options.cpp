#include "cli/survey_options.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cmath>
#include <thread>
#include <utility>

#include "base/messages.h"
#include "forward/number_text.h"
#include "forward/prism.h"
#include "forward/survey_mesh.h"
#include "preparation/ground_surface.h"

namespace voxlith {

namespace {

InducingField parseField(const std::string& text) {
    const std::vector<double> numbers = parseNumberList("--field", "incl,decl,nT", text, 3);
    return {{numbers[0], numbers[1]}, numbers[2]};
}

FieldDirection parseDirection(const std::string& text) {
    const std::vector<double> numbers = parseNumberList("--direction", "aincl,adecl", text, 2);
    return {numbers[0], numbers[1]};
}

void checkDirection(const FieldDirection& direction, const std::string& source) {
    constexpr double rightAngle = 90.0;
    if (std::abs(direction.incl) > rightAngle || std::abs(direction.decl) > 4 * rightAngle) {
        throw RunError(source + ": expected an inclination within 90 degrees and a declination within 360, found " +
                       numberText(direction.incl) + ", " + numberText(direction.decl));
    }
}

void chooseField(const SurveyOptions& options, const StationFile& file, Survey& survey) {
    const std::string source = options.field ? "--field" : options.stationFile;
    if (!options.field && !file.field && isMagnetic(survey.type)) {
        throw RunError(options.stationFile + ": no field line; give --field incl,decl,nT");
    }
    survey.field = options.field ? *options.field : file.field.value_or(InducingField{});
    if (!isMagnetic(survey.type)) {
        return;
    }
    checkDirection(survey.field.direction, source);
    if (!(survey.field.strength > 0)) {
        throw RunError(source + ": expected a field strength above 0 nT, found " + numberText(survey.field.strength));
    }
    if (!isStrengthOfTheEarth(survey.field.strength)) {
        survey.warnings.push_back(source + ": a field of " + numberText(survey.field.strength) +
                                  " nT is not that of the Earth");
    }
}

void chooseDirection(const SurveyOptions& options, const StationFile& file, Survey& survey) {
    survey.measured = survey.field.direction;
    std::string source = "measured direction";
    if (options.direction) {
        survey.measured = *options.direction;
        source = "--direction";
    } else if (!options.field && file.measured) {
        survey.measured = *file.measured;
        source = options.stationFile;
    }
    if (survey.type == DataType::totalMagnetic) {
        checkDirection(survey.measured, source);
    }
}

void chooseGround(const SurveyOptions& options, Survey& survey) {
    if (options.topographyFile.empty()) {
        return;
    }
    const MeshGeometry& mesh = survey.mesh;
    const Topography topography = surfaceOf(readSurfacePoints(options.topographyFile));
    survey.ground = groundBelow(topography, mesh, survey.stations);
    if (std::all_of(survey.ground.inactiveCells.begin(), survey.ground.inactiveCells.end(),
                    [&](std::int32_t cells) { return cells == mesh.nz; })) {
        throw RunError(options.topographyFile + ": expected a surface within the mesh, elevations " +
                       numberText(-mesh.zNode.back()) + " to " + numberText(-mesh.zNode.front()) +
                       ", found one below the centres of all cells");
    }
    const std::size_t cutOff = columnsCutOff(topography, mesh);
    if (cutOff > 0) {
        survey.warnings.push_back(options.topographyFile + ": the surface is more than half a cell above the top of " +
                                  "the mesh in " + std::to_string(cutOff) + " of " +
                                  std::to_string(survey.ground.inactiveCells.size()) +
                                  " columns; ground above the mesh has no response");
    }
}

}  // namespace

void addSurveyOptions(CLI::App& command, SurveyOptions& options) {
    command.add_option("--mesh", options.meshFile, "UBC tensor mesh file")->required();
    command.add_option("--stations", options.stationFile, "Observed data file; its stations are used")->required();
    command
        .add_option_function<std::string>(
            "--type", [&options](const std::string& text) { options.type = parseDataType(text); },
            "Data type: gz, gxx, gyy, gzz, gxy, gxz, gyz, tmi, tx, ty, tz, or a code")
        ->required();
    command.add_option_function<std::string>(
        "--field", [&options](const std::string& text) { options.field = parseField(text); },
        "Inducing field incl,decl,nT (default: as in the station file)");
    command.add_option_function<std::string>(
        "--direction", [&options](const std::string& text) { options.direction = parseDirection(text); },
        "Measured direction aincl,adecl of tmi (default: as in the station file, or along --field)");
    command.add_option("--topography", options.topographyFile,
                       "Surface: a file with the number of points, then x y elevation a line (UBC form); cells whose "
                       "centre is above it are inactive and have no response");
    command.add_option("--threads", options.threads, "Threads (default: two); the result does not depend on them")
        ->check(CLI::Range(1, 256));
}

Survey readSurvey(const SurveyOptions& options) {
    Survey survey;
    survey.type = options.type;
    survey.mesh = readSurveyMesh(options.meshFile);
    survey.edgeDistance = edgeDistanceOf(survey.mesh);
    StationFile file = readStationFile(options.stationFile, survey.type);
    chooseField(options, file, survey);
    chooseDirection(options, file, survey);
    survey.stations = std::move(file.stations);
    survey.idir = file.idir;
    survey.measuredHere = std::move(file.measuredHere);
    chooseGround(options, survey);
    checkStations(options.stationFile, survey);
    return survey;
}

std::size_t threadCount(const SurveyOptions& options) {
    if (options.threads > 0) {
        return options.threads;
    }
    return std::clamp<std::size_t>(std::thread::hardware_concurrency(), 1, 2);
}

}  // namespace voxlith
