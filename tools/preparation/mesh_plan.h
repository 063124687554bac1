// Tensor meshes around a survey: a core of cells of one size below the stations, and padding cells that grow outwards
// and downwards. Kept as the numbers of a mesh file: a corner and widths.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace voxlith {

struct Extent {
    double least = 0, most = 0;
};

// Cells that are added at an end of the core: each is `factor` times as wide as the one before, until `distance` is
// covered or, when `cells` is not negative, so many.
struct PaddingPlan {
    double factor = 1.3;
    double distance = 0;
    std::int32_t cells = -1;
};

struct MeshPlan {
    Extent east, north;            // what the core covers at least
    double top = 0;                // elevation
    double depth = 0;              // what the core layers cover at least
    std::array<double, 3> cell{};  // widths east, north and down of the core's cells
    double layerFactor = 1.0;      // each core layer is so many times as thick as the one above
    PaddingPlan sides, below;
};

struct MeshWidths {
    std::vector<double> east, north, down;
    double west = 0, south = 0, top = 0;  // the top south-west corner; elevation
    Extent coreEast, coreNorth, coreElevation;
    std::array<std::int32_t, 3> coreCells{};
};

// Cells per axis from the plan; the core is centred on the extents, widths that grow are rounded to four digits. Throws
// RunError for more cells than a sensitivity file can have, and for widths that vanish beside the coordinates.
MeshWidths planMesh(const MeshPlan& plan);

// The coordinate without the rest that sums leave in its last digits: rounded to twelve of them.
double plainCoordinate(double value);

// The mesh file with its comments; equal widths in a row stand as n*width.
std::string meshFileText(const MeshWidths& widths);

}  // namespace voxlith
