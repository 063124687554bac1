// "voxlith-tools vtr": a mesh and models on it as a VTK rectilinear grid file (.vtr), for viewers of that format.
//
// XML file format of VTK, version 1.0: coordinates and cell data as real64 in raw appended form, little-endian, each
// array behind its length in bytes (64 bits). x is the easting, y the northing, z the elevation, all rising, so that
// the cells of each column come from the bottom up and x runs fastest. Absent cells are NaN.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "survey/mesh_geometry.h"

namespace CLI {
class App;
}

namespace voxlith {

struct VtrOptions {
    std::string meshFile;
    std::vector<std::string> models;  // FILE or NAME=FILE
    std::string outFile;
};

// One model as it was written.
struct VtrModel {
    std::string name;
    std::string fileName;
    std::int64_t absentCells = 0;
    double smallest = 0, largest = 0;  // of the others; both 0 when there are none
};

CLI::App* addVtrCommand(CLI::App& tools, VtrOptions& options);

// Name and file of a --model value: NAME=FILE, or a file, whose name without its folders is the name. Throws RunError
// for an empty name or file and for a name that XML cannot hold.
VtrModel parseVtrModel(const std::string& text);

// Values in the order of VTK: x fastest, then y, then z upwards; NaN for absent cells.
std::vector<double> vtkCellOrder(const MeshGeometry& mesh, std::span<const double> values);

// Writes the file; under its own name it appears when it is whole. Throws RunError.
std::vector<VtrModel> writeVtrFile(const VtrOptions& options);

void printVtrReport(const std::vector<VtrModel>& models);

}  // namespace voxlith
