#include "cli/mesh_command.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdio>
#include <limits>
#include <memory>

#include "base/messages.h"
#include "base/output_file.h"
#include "forward/layer_plan.h"
#include "forward/number_text.h"
#include "forward/station_file.h"
#include "forward/survey_mesh.h"

namespace voxlith {

namespace {

constexpr const char* meshExamples =
    "Examples:\n"
    "  voxlith-tools mesh --stations gz.obs --cell 50 --depth 800 --out mesh.msh\n"
    "  voxlith-tools mesh --csv survey.csv --x easting --y northing --z elevation --cell 100,100,50 --depth 2000 \\\n"
    "      --layer-factor 1.05 --padding-factor 1.4 --padding-distance 5000 --out mesh.msh\n"
    "  voxlith-tools mesh --extent 0,1600,0,1600 --top 0 --cell 50 --depth 800 --padding-cells 0 --out mesh.msh";

struct StationExtents {
    Extent x, y, z;
    std::int64_t count = 0;
    std::vector<double> elevations;
};

void include(Extent& extent, double value, bool first) {
    extent.least = first ? value : std::min(extent.least, value);
    extent.most = first ? value : std::max(extent.most, value);
}

void includeStation(StationExtents& extents, double x, double y, double elevation) {
    const bool first = extents.count == 0;
    include(extents.x, x, first);
    include(extents.y, y, first);
    include(extents.z, elevation, first);
    extents.elevations.push_back(elevation);
    ++extents.count;
}

StationExtents extentsOfCsv(const MeshOptions& options) {
    CsvReader reader;
    openCsv(reader, options.csvFile, options.csv);
    const StationPlaces place = findStationColumns(reader, options.columns);
    StationExtents extents;
    while (nextCsvRow(reader)) {
        const auto [x, y, z] = stationOf(reader, place);
        includeStation(extents, x, y, z);
    }
    if (extents.count == 0) {
        throw RunError(options.csvFile + ", line " + std::to_string(reader.lineNumber) +
                       ": expected a station, found the end of the file");
    }
    return extents;
}

StationExtents surveyExtents(const MeshOptions& options) {
    StationExtents extents;
    if (!options.extent.empty()) {
        const std::vector<double> numbers = parseNumberList("--extent", "west,east,south,north", options.extent, 4);
        extents.x = {numbers[0], numbers[1]};
        extents.y = {numbers[2], numbers[3]};
        if (!(numbers[0] <= numbers[1]) || !(numbers[2] <= numbers[3])) {
            throw RunError("--extent " + options.extent + ": expected west,east,south,north with west below east and " +
                           "south below north");
        }
        return extents;
    }
    if (!options.csvFile.empty()) {
        return extentsOfCsv(options);
    }
    for (const Station& station : readStationFile(options.stationFile, DataType::gz).stations) {
        includeStation(extents, station.point.x, station.point.y, station.elevation);
    }
    return extents;
}

std::array<double, 3> cellOf(const std::string& text) {
    const std::size_t words = splitWords(text).size();
    const std::size_t count = words == 2 || words == 3 ? words : 1;
    const std::vector<double> numbers = parseNumberList("--cell", "w, or w,h, or dx,dy,dz", text, count);
    for (const double number : numbers) {
        if (!(number > 0)) {
            throw RunError("--cell " + text + ": expected widths above 0");
        }
    }
    return {numbers[0], numbers[count == 3 ? 1 : 0], numbers[count - 1]};
}

double topOf(const MeshOptions& options, const StationExtents& extents) {
    if (options.top == "lowest") {
        return extents.z.least;
    }
    if (options.top == "highest") {
        return extents.z.most;
    }
    const std::optional<double> top = parseNumber(options.top);
    if (!top) {
        throw RunError("--top " + options.top + ": expected an elevation, lowest or highest");
    }
    return *top;
}

void checkOptions(const MeshOptions& options) {
    const auto require = [](bool good, const std::string& words) {
        if (!good) {
            throw RunError(words);
        }
    };
    const bool csv = !options.csvFile.empty();
    const int sources = (options.stationFile.empty() ? 0 : 1) + (csv ? 1 : 0) + (options.extent.empty() ? 0 : 1);
    require(sources == 1, "expected one of --stations, --csv and --extent, found " + std::to_string(sources));
    const auto finiteFrom = [](double value, double least) { return value >= least && std::isfinite(value); };
    require(finiteFrom(options.depth, 0) && options.depth > 0, "--depth: expected a depth above 0");
    require(finiteFrom(options.layerFactor, 1), "--layer-factor: expected a number from 1");
    require(finiteFrom(options.paddingFactor, 1), "--padding-factor: expected a number from 1");
    for (const double distance : {options.margin, options.paddingDistance, options.paddingBelow}) {
        require(std::isfinite(distance), "--margin, --padding-distance, --padding-below: expected a distance");
    }
}

MeshPlan planOf(const MeshOptions& options, const StationExtents& extents) {
    MeshPlan plan;
    plan.cell = cellOf(options.cell);
    const auto margin = [&](double cell) { return options.margin < 0 ? 0.5 * cell : options.margin; };
    plan.east = {extents.x.least - margin(plan.cell[0]), extents.x.most + margin(plan.cell[0])};
    plan.north = {extents.y.least - margin(plan.cell[1]), extents.y.most + margin(plan.cell[1])};
    if (!options.extent.empty() && options.margin < 0) {
        plan.east = extents.x;
        plan.north = extents.y;
    }
    plan.top = topOf(options, extents);
    plan.depth = options.depth;
    plan.layerFactor = options.layerFactor;
    plan.sides.factor = options.paddingFactor;
    plan.sides.distance = options.paddingDistance < 0 ? options.depth : options.paddingDistance;
    plan.sides.cells = options.paddingCells;
    plan.below = plan.sides;
    if (options.paddingBelow >= 0) {
        plan.below.cells = -1;
        plan.below.distance = options.paddingBelow;
    }
    return plan;
}

void printAxis(const char* label, double from, double to, const Extent& core) {
    const auto text = [](double value) { return numberText(plainCoordinate(value)); };
    std::printf("%s %s to %s (core %s to %s)\n", label, text(from).c_str(), text(to).c_str(), text(core.least).c_str(),
                text(core.most).c_str());
}

// Rows of a little more than a power of two cells are nearly half padding.
void printPaddingHint(const char* axis, std::int32_t cells, std::int32_t padded) {
    constexpr double surplus = 1.15;
    const std::int32_t half = padded / 2;
    if (padded > 4 && padded != cells && cells <= surplus * half) {
        std::printf("                %d cells %s are padded to %d; with %d the rows would be half as long\n", cells,
                    axis, padded, half);
    }
}

}  // namespace

CLI::App* addMeshCommand(CLI::App& tools, MeshOptions& options) {
    CLI::App* command = tools.add_subcommand("mesh", "Write a padded mesh below the stations of a survey");
    command->add_option("--stations", options.stationFile, "Observed data file; the core lies below its stations");
    command->add_option("--csv", options.csvFile, "CSV of the stations, in place of --stations");
    command->add_option("--extent", options.extent, "west,east,south,north of the core, in place of --stations");
    addStationColumns(*command, options.columns);
    addCsvOptions(*command, options.csv);
    command->add_option("--cell", options.cell, "Cell size of the core: one for all axes, or w,h, or dx,dy,dz")
        ->required();
    command->add_option("--depth", options.depth, "Depth of the core below the top")->required();
    command
        ->add_option("--top", options.top,
                     "Elevation of the top of the mesh, or lowest or highest for that of the lowest or highest station")
        ->capture_default_str();
    command
        ->add_option("--margin", options.margin,
                     "Core beyond the outermost stations (default: half a cell; none with --extent)")
        ->check(CLI::NonNegativeNumber);
    command
        ->add_option("--layer-factor", options.layerFactor,
                     "Each core layer is so many times as thick as the one above")
        ->capture_default_str();
    command
        ->add_option("--padding-factor", options.paddingFactor,
                     "Each padding cell is so many times as wide as the last")
        ->capture_default_str();
    auto* const distance =
        command
            ->add_option("--padding-distance", options.paddingDistance,
                         "What the padding covers at least, on each side and below (default: the depth)")
            ->check(CLI::NonNegativeNumber);
    command
        ->add_option("--padding-cells", options.paddingCells,
                     "Padding cells on each side and below, in place of a distance")
        ->check(CLI::NonNegativeNumber)
        ->excludes(distance);
    command
        ->add_option("--padding-below", options.paddingBelow, "What the padding below covers, when not as at the sides")
        ->check(CLI::NonNegativeNumber);
    command->add_option("--out", options.outFile, "UBC mesh file to write")->required();
    command->footer(meshExamples);
    return command;
}

MeshReport writeMeshFile(const MeshOptions& options) {
    checkOptions(options);
    const StationExtents extents = surveyExtents(options);
    MeshReport report;
    report.widths = planMesh(planOf(options, extents));
    report.stations = extents.count;
    report.stationsBelowTop = std::count_if(extents.elevations.begin(), extents.elevations.end(),
                                            [&](double elevation) { return elevation < report.widths.top; });
    const auto file = std::make_unique<OutputFile>();
    openOutputFile(*file, options.outFile);
    appendOutput(*file, meshFileText(report.widths));
    finishOutputFile(*file);
    report.mesh = readSurveyMesh(options.outFile);
    planLayers(LayerOptions{}, true, report.mesh);
    return report;
}

void printMeshReport(const MeshReport& report) {
    const MeshGeometry& mesh = report.mesh;
    const MeshWidths& widths = report.widths;
    if (report.stations > 0) {
        std::printf("stations:       %lld\n", static_cast<long long>(report.stations));
    }
    std::printf("cells:          %d x %d x %d = %zu\n", mesh.nx, mesh.ny, mesh.nz, mesh.cellCount());
    std::printf("core cells:     %d x %d x %d\n", widths.coreCells[0], widths.coreCells[1], widths.coreCells[2]);
    printAxis("east:          ", mesh.xNode.front(), mesh.xNode.back(), widths.coreEast);
    printAxis("north:         ", mesh.yNode.front(), mesh.yNode.back(), widths.coreNorth);
    printAxis("elevation:     ", 0.0 - mesh.zNode.back(), 0.0 - mesh.zNode.front(), widths.coreElevation);
    std::printf("row of the mtx: %d x %d x %d = %lld values before compression (powers of two)\n", mesh.npx, mesh.npy,
                mesh.npz, static_cast<long long>(mesh.npx) * mesh.npy * mesh.npz);
    printPaddingHint("to the east", mesh.nx, mesh.npx);
    printPaddingHint("to the north", mesh.ny, mesh.npy);
    printPaddingHint("downwards", mesh.nz, mesh.npz);
    std::fflush(stdout);
    if (report.stationsBelowTop > 0) {
        std::fprintf(stderr, "voxlith-tools: warning: %lld stations lie below the top of the mesh\n",
                     static_cast<long long>(report.stationsBelowTop));
    }
}

}  // namespace voxlith
