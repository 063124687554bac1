#include "preparation/survey.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cmath>
#include <thread>
#include <utility>

#include "base/messages.h"
#include "preparation/number_text.h"
#include "preparation/survey_mesh.h"
#include "preparation/topography.h"
#include "survey/data_types.h"

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
        if (!isStrengthOfTheEarth(survey.field.strength)) {
            survey.warnings.push_back(source + ": a field of " + numberText(survey.field.strength) +
                                      " nT is not that of the Earth");
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
    if (DataType{survey.code} == DataType::totalMagnetic) {
        checkDirection(survey.measured, source);
    }
}

std::string stationText(const Survey& survey, std::size_t station) {
    const Station& here = survey.stations[station];
    return "station " + std::to_string(station + 1) + " at x " + numberText(here.point.x) + ", y " +
           numberText(here.point.y) + ", elevation " + numberText(here.elevation);
}

// Stations of the downhole form are meant to stand in the ground.
void checkGroundPlaces(const std::string& stationFile, Survey& survey) {
    std::size_t inside = 0, first = 0;
    for (std::size_t n = 0; n < survey.stations.size() && survey.measuredHere.empty(); ++n) {
        const StationPosition place = placeOfStation(survey.ground, survey.mesh, survey.stations[n].point);
        if (place == StationPosition::belowTopCell) {
            throw RunError(stationFile + ": " + stationText(survey, n) +
                           ": expected a place on or above the surface, found one inside the ground, " +
                           numberText(static_cast<float>(-survey.ground.height[n])) + " below the surface");
        }
        if (place == StationPosition::inTopCell) {
            first = inside == 0 ? n : first;
            ++inside;
        }
    }
    if (inside > 0) {
        survey.warnings.push_back(stationFile + ": " + std::to_string(inside) + " of " +
                                  std::to_string(survey.stations.size()) +
                                  " stations are inside the first ground cell of their column, the first being " +
                                  stationText(survey, first) + "; thinner cells follow the surface more closely");
    }
}

// Other coordinates than those of the mesh, and heights that count downwards, give sensitivities like any others.
void checkStationsAgainstMesh(const std::string& stationFile, Survey& survey) {
    const MeshGeometry& mesh = survey.mesh;
    const bool mayBeInside = !survey.ground.inactiveCells.empty() || !survey.measuredHere.empty();
    std::vector<std::size_t> beside, below;
    for (std::size_t n = 0; n < survey.stations.size(); ++n) {
        const StationPoint& point = survey.stations[n].point;
        if (point.x < mesh.xNode.front() || point.x > mesh.xNode.back() || point.y < mesh.yNode.front() ||
            point.y > mesh.yNode.back()) {
            beside.push_back(n);
        } else if (!mayBeInside && survey.stations[n].elevation < -mesh.zNode.front()) {
            below.push_back(n);
        }
    }
    const auto add = [&](const std::vector<std::size_t>& stations, const std::string& where) {
        if (!stations.empty()) {
            survey.warnings.push_back(stationFile + ": " + std::to_string(stations.size()) + " of " +
                                      std::to_string(survey.stations.size()) + " stations are " + where +
                                      ", the first being " + stationText(survey, stations.front()));
        }
    };
    const auto range = [](const std::vector<double>& nodes) {
        const auto toMillimetres = [](double value) { return numberText(std::round(1000.0 * value) / 1000.0); };
        return toMillimetres(nodes.front()) + " to " + toMillimetres(nodes.back());
    };
    add(beside, "beside the mesh, which lies at x " + range(mesh.xNode) + ", y " + range(mesh.yNode));
    add(below, "below the top of the mesh, " + numberText(0.0 - mesh.zNode.front()) + ", among its cells");
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
    checkGroundPlaces(options.stationFile, survey);
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
    command.add_option("--topography", options.topographyFile,
                       "Surface: a file with the number of points, then x y elevation a line (UBC form); cells whose "
                       "centre lies above it are air and have no response");
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
    chooseGround(options, survey);
    checkStationsAgainstMesh(options.stationFile, survey);
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
