// "voxlith-tools mesh": a padded mesh below the stations of a survey.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "preparation/mesh_plan.h"
#include "preparation/station_columns.h"
#include "survey/mesh_geometry.h"

namespace CLI {
class App;
}

namespace voxlith {

struct MeshOptions {
    // One of the three says where the survey is.
    std::string stationFile;
    std::string csvFile;
    std::string extent;  // "west,east,south,north"
    CsvOptions csv;
    StationColumns columns;
    std::string cell;  // "w", "w,h" or "dx,dy,dz"
    double depth = 0;
    double margin = -1;  // between the outermost stations and the edge of the core; negative: half a cell
    std::string top = "lowest";
    double layerFactor = 1.0;
    double paddingFactor = 1.3;
    double paddingDistance = -1;  // negative: the depth
    std::int32_t paddingCells = -1;
    double paddingBelow = -1;  // negative: as at the sides
    std::string outFile;
};

struct MeshReport {
    MeshWidths widths;
    MeshGeometry mesh;  // as the tools read the written file, with padded counts
    std::int64_t stations = 0;
    std::int64_t stationsBelowTop = 0;
};

CLI::App* addMeshCommand(CLI::App& tools, MeshOptions& options);

// Writes the file; under its own name it appears when it is whole. Throws RunError.
MeshReport writeMeshFile(const MeshOptions& options);

void printMeshReport(const MeshReport& report);

}  // namespace voxlith
