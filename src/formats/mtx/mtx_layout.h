// What a sensitivity file holds, form by form, and its head as a record. All numbers are little-endian, without gaps.
//
//   tagged  "VX3D", version, data type, field, stations, mesh, filter, nodes, depth weights, rows, diagonal of G'G and,
//           from version 2 on, inversion style and layer responses
//   bare    the same without magic, version, field and stations, and without what version 2 adds
//   record  records framed by their length; no data type, which readers take from the file's name, no field, stations
//           or weight parameters, and no diagonal
//
// A row is its count n, n indices of the padded array (int32, from 1), then n values (real32). In the stream forms a
// negative count stands before a dense row: nPadTotal values without indices. Counts and nodes stand in the order
// y, x, z.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "survey/data_types.h"
#include "survey/inversion_style.h"
#include "survey/mesh_geometry.h"

namespace voxlith {

enum class MtxForm { tagged, bare, record };

constexpr std::string_view mtxMagic = "VX3D";
constexpr std::int64_t mtxStationBytes = 28;        // x, y, z real64 and a real32 without use
constexpr std::int32_t longestRecordFilter = 24;    // of the record form
constexpr std::int32_t firstVersionWithLayers = 2;  // inversion style and layer responses follow the diagonal

// In the order of the files, which give the slowest axis first.
struct AxisCounts {
    std::int32_t y = 0, x = 0, z = 0;
    bool operator==(const AxisCounts&) const = default;
};

struct MtxField {
    float geomag = 0, incl = 0, decl = 0;  // nT, degrees, degrees
    std::int32_t idir = 0;
    float aincl = 0, adecl = 0;  // degrees
};

// One file's head, without the arrays by station, node and cell.
struct MtxHeader {
    MtxForm form = MtxForm::tagged;
    std::int32_t version = 0;  // of the tagged form
    DataType dataType = DataType::gz;
    std::int32_t nData = 0;
    MtxField field;               // of the tagged form
    AxisCounts cells;             // of the mesh
    AxisCounts padded;            // of the padded mesh
    std::vector<float> coefLow;   // low-pass filter
    std::vector<float> coefHigh;  // high-pass filter, as long; empty in the record form, which does not hold it
    float weightParamA = 0, weightParamB = 0;
    InversionStyle inversionStyle =
        InversionStyle::standard;  // by the layers of the padded mesh; the tail of newer files overrules it

    std::int64_t nCells() const { return std::int64_t{cells.y} * cells.x * cells.z; }
    std::int64_t nPadded() const { return std::int64_t{padded.y} * padded.x * padded.z; }
    // Values of a dense row.
    std::int64_t nPadTotal() const {
        return std::int64_t{padded.y} * padded.x * (padded.z > cells.z ? padded.z : cells.z);
    }
    // Layers that the sensitivities cover.
    std::int32_t nzl() const { return padded.z < cells.z ? padded.z : cells.z; }
    std::int64_t layerValues() const { return (std::int64_t{nzl()} + 1) * nData; }
    bool holdsLayers() const { return form == MtxForm::tagged && version >= firstVersionWithLayers; }
};

// One row in memory: as many values as indices. Values are held by their bits, so that any bits pass unchanged.
struct RawRow {
    std::span<std::int32_t> coefIndex;
    std::span<std::int32_t> coefValue;  // bits of real32
};

// Counts of the mesh and of the padded mesh, and the layers that the sensitivities cover.
void setMeshCounts(const MtxHeader& header, MeshGeometry& mesh);

}  // namespace voxlith
