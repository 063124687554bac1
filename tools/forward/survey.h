// A survey over a mesh: what the responses of the cells at the stations depend on.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "forward/cavity.h"
#include "forward/ground.h"
#include "forward/station_file.h"
#include "forward/survey_type.h"
#include "survey/mesh_geometry.h"

namespace voxlith {

struct Survey {
    DataType type = DataType::gz;
    MeshGeometry mesh;
    std::vector<Station> stations;
    InducingField field;
    FieldDirection magnetisation;  // of all cells: along the field where none is given
    FieldDirection measured;
    CavityShares cavity;  // around a sensor inside a cell
    bool mayBeBelowGround = false;
    std::int32_t idir = 1;
    std::vector<FieldDirection> measuredHere;  // by station, in the downhole form; else empty
    double edgeDistance = 0;                   // of the mesh, see forward/prism.h
    Ground ground;                             // without topography all cells are active
    std::vector<std::string> warnings;         // what is allowed, but probably not intended
};

// Weights of the derivatives for the datum of one station (from 0).
ResponseWeights weightsOfStation(const Survey& survey, std::size_t station);

// Adds warnings of stations that are outside the mesh in plan or inside it. With inactive cells, stations deeper than
// the first active cell of their column are refused, except in the downhole form and where they may be below ground.
// `stationFile` is named in messages. Throws RunError.
void checkStations(const std::string& stationFile, Survey& survey);

}  // namespace voxlith
