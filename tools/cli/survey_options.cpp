#include "cli/survey_options.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <system_error>
#include <utility>

#include "base/messages.h"
#include "base/output_file.h"
#include "forward/number_text.h"
#include "forward/prism.h"
#include "forward/real_file.h"
#include "forward/survey_mesh.h"
#include "forward/worker_count.h"
#include "help/option_checks.h"

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

void checkDirection(const FieldDirection& direction, const std::string& source);

FieldDirection parseMagnetisation(const std::string& text) {
    constexpr double rightAngle = 90.0;
    if (text == "x") {
        return {0.0, rightAngle};
    }
    if (text == "y") {
        return {0.0, 0.0};
    }
    if (text == "z") {
        return {rightAngle, 0.0};
    }
    const std::vector<double> numbers = parseNumberList("--magnetisation", "x, y, z or incl,decl", text, 2);
    const FieldDirection direction{numbers[0], numbers[1]};
    checkDirection(direction, "--magnetisation");
    return direction;
}

CavityShares parseCavity(const std::string& text) {
    if (text == "needle") {
        return {};
    }
    if (text == "sphere") {
        return sphericalCavity;
    }
    if (text == "disc") {
        return discCavity;
    }
    const std::vector<double> numbers = parseNumberList("--cavity", "needle, sphere, disc or incl,decl", text, 2);
    const FieldDirection axis{numbers[0], numbers[1]};
    checkDirection(axis, "--cavity");
    return boreholeCavity(axis);
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

void chooseSource(const SurveyOptions& options, Survey& survey) {
    if (options.magnetisation && !isMagnetic(survey.type)) {
        throw RunError("--magnetisation: expected a magnetic type (tmi, tx, ty, tz), found " +
                       std::string(dataTypeName(survey.type)));
    }
    if (options.cavity && survey.type == DataType::gz) {
        throw RunError("--cavity: expected a magnetic type or a gradient, found gz, which no cavity changes");
    }
    survey.magnetisation = options.magnetisation.value_or(survey.field.direction);
    survey.cavity = options.cavity.value_or(CavityShares{});
    survey.mayBeBelowGround = options.boreholes;
}

Surface readSurface(const SurveyOptions& options, const Survey& survey) {
    const std::size_t columns = survey.mesh.xCentre.size() * survey.mesh.yCentre.size();
    const std::vector<double> values = readReals(options.surfaceFile, columns + survey.stations.size());
    const auto end = values.begin() + static_cast<std::ptrdiff_t>(columns);
    return {{values.begin(), end}, {end, values.end()}};
}

void chooseGround(const SurveyOptions& options, Survey& survey) {
    if (options.topographyFile.empty()) {
        return;
    }
    const MeshGeometry& mesh = survey.mesh;
    const Surface surface = readSurface(options, survey);
    survey.ground = groundBelow(surface, mesh, survey.stations);
    if (std::all_of(survey.ground.inactiveCells.begin(), survey.ground.inactiveCells.end(),
                    [&](std::int32_t cells) { return cells == mesh.nz; })) {
        throw RunError(options.topographyFile + ": expected a surface within the mesh, elevations " +
                       numberText(-mesh.zNode.back()) + " to " + numberText(-mesh.zNode.front()) +
                       ", found one below the centres of all cells");
    }
    const std::size_t cutOff = columnsCutOff(surface, mesh);
    if (cutOff > 0) {
        survey.warnings.push_back(options.topographyFile + ": the surface is more than half a cell above the top of " +
                                  "the mesh in " + std::to_string(cutOff) + " of " +
                                  std::to_string(survey.ground.inactiveCells.size()) +
                                  " columns; ground above the mesh has no response");
    }
}

}  // namespace

void addSurveyOptions(CLI::App& command, SurveyOptions& options) {
    command.add_option("--mesh", options.meshFile, "UBC tensor mesh file")->required()->type_name("FILE");
    command.add_option("--stations", options.stationFile, "Observed data file; its stations are used")
        ->required()
        ->type_name("FILE");
    command
        .add_option_function<std::string>(
            "--type", [&options](const std::string& text) { options.type = parseDataType(text); },
            "Data type: gz, gxx, gyy, gzz, gxy, gxz, gyz, tmi, tx, ty, tz, or a code")
        ->required()
        ->type_name("TYPE");
    command
        .add_option_function<std::string>(
            "--field", [&options](const std::string& text) { options.field = parseField(text); },
            "Inducing field: inclination and declination in degrees, strength in nT (default: as in the station file)")
        ->type_name("INCL,DECL,NT");
    command
        .add_option_function<std::string>(
            "--direction", [&options](const std::string& text) { options.direction = parseDirection(text); },
            "Measured direction of tmi: inclination and declination in degrees (default: as in the station file, or "
            "along --field)")
        ->type_name("AINCL,ADECL");
    command
        .add_option_function<std::string>(
            "--magnetisation",
            [&options](const std::string& text) { options.magnetisation = parseMagnetisation(text); },
            "Direction in which the cells are magnetised: x east, y north, z down, or inclination and declination in "
            "degrees (default: along the field); the unit is nT for a magnetisation of 1 SI times the inducing field")
        ->type_name("INCL,DECL|{x,y,z}");
    command.add_flag("--boreholes", options.boreholes, "Stations may be below the surface and among the cells");
    command
        .add_option_function<std::string>(
            "--cavity", [&options](const std::string& text) { options.cavity = parseCavity(text); },
            "Cavity around a sensor inside a cell: needle (the field H of the rock), sphere, disc (B of the rock), or "
            "the direction of a borehole in degrees (default: needle)")
        ->type_name("INCL,DECL|{needle,sphere,disc}");
    CLI::Option* const topography =
        command
            .add_option("--topography", options.topographyFile,
                        "Surface: a raster or table in any form of the subcommand terrain, or a file with the number "
                        "of points, then one point per line, x y elevation (UBC "
                        "format); cells whose centre is above it are inactive and have no response")
            ->type_name("FILE");
    command
        .add_option(
            "--terrain-crs", options.terrainCrs,
            "Reference system of the surface where its file names none, such as EPSG:4326; that of the stations "
            "is in their side file")
        ->type_name("CRS")
        ->needs(topography);
    command.add_option("--surface", options.surfaceFile)->group("")->needs(topography);
    command.add_option("--side", options.sideFile)->group("");
    command.add_flag("--surface-points", options.surfacePoints)->group("")->needs(topography);
    command.add_flag("--responses", options.responses)->group("");
    command
        .add_option("--threads", options.threads,
                    "Number of threads, 1 to 256; it does not change the result (default: all available cores, fewer "
                    "where memory is "
                    "short)")
        ->type_name("COUNT")
        ->check(wholeNumber(1, 256));
}

void writeSurfacePoints(const SurveyOptions& options) {
    const MeshGeometry mesh = readSurveyMesh(options.meshFile);
    std::vector<double> places;
    for (const double y : mesh.yCentre) {
        for (const double x : mesh.xCentre) {
            places.insert(places.end(), {x, y});
        }
    }
    for (const Station& station : readStationFile(options.stationFile, options.type).stations) {
        places.insert(places.end(), {station.point.x, station.point.y});
    }
    if (std::fwrite(places.data(), sizeof(double), places.size(), stdout) != places.size()) {
        throw RunError("standard output cannot be written");
    }
}

void writeResponses(const SurveyOptions& options) {
    const Survey survey = readSurvey(options);
    PrismWork work;
    std::vector<double> cells(survey.mesh.cellCount());
    for (std::size_t station = 0; station < survey.stations.size(); ++station) {
        meshResponses(survey.mesh, survey.stations[station].point, weightsOfStation(survey, station),
                      survey.edgeDistance, work, cells);
        if (std::fwrite(cells.data(), sizeof(double), cells.size(), stdout) != cells.size()) {
            throw RunError("standard output cannot be written");
        }
    }
}

Survey readSurvey(const SurveyOptions& options) {
    Survey survey;
    survey.type = options.type;
    survey.mesh = readSurveyMesh(options.meshFile);
    survey.edgeDistance = edgeDistanceOf(survey.mesh);
    StationFile file = readStationFile(options.stationFile, survey.type);
    chooseField(options, file, survey);
    chooseDirection(options, file, survey);
    chooseSource(options, survey);
    survey.stations = std::move(file.stations);
    survey.idir = file.idir;
    survey.measuredHere = std::move(file.measuredHere);
    chooseGround(options, survey);
    checkStations(options.stationFile, survey);
    return survey;
}

namespace {

bool isSameFile(const std::string& a, const std::string& b) {
    std::error_code none;
    const bool same = std::filesystem::equivalent(a, b, none);
    return same || std::filesystem::absolute(a, none).lexically_normal() ==
                       std::filesystem::absolute(b, none).lexically_normal();
}

}  // namespace

void checkOutput(const NamedFile& output, const SurveyOptions& options, const std::vector<NamedFile>& more) {
    std::vector<NamedFile> others = {
        {"--mesh", options.meshFile}, {"--stations", options.stationFile}, {"--topography", options.topographyFile}};
    others.insert(others.end(), more.begin(), more.end());
    for (const auto& [option, name] : others) {
        if (!name.empty() && isSameFile(name, output.name)) {
            throw RunError(output.option + " " + output.name + ": expected another file than that of " + option);
        }
    }
}

namespace {

// An old one; a file of another kind that happens to have the name stays.
void removeSideFile(const std::string& name) {
    std::ifstream old(name, std::ios::binary);
    const std::string content{std::istreambuf_iterator<char>(old), std::istreambuf_iterator<char>()};
    if (content.find("\"voxlith side file\"") != std::string::npos) {
        std::error_code none;
        std::filesystem::remove(name, none);
    }
}

}  // namespace

void writeSideFile(const std::string& outFile, const SurveyOptions& options) {
    if (options.sideFile.empty()) {
        return;
    }
    std::ifstream source(options.sideFile, std::ios::binary);
    const std::string content{std::istreambuf_iterator<char>(source), std::istreambuf_iterator<char>()};
    const std::string name = outFile + ".json";
    if (content.empty()) {
        removeSideFile(name);
        return;
    }
    const auto file = std::make_unique<OutputFile>();
    openOutputFile(*file, name);
    appendOutput(*file, content);
    finishOutputFile(*file);
}

std::size_t threadCount(const SurveyOptions& options, std::size_t bytesPerThread) {
    return options.threads > 0 ? options.threads : defaultThreads(bytesPerThread);
}

}  // namespace voxlith
