// Reads sensitivity files in their three forms. The stages of a file are separate routines because the caller sizes
// its arrays between them:
//
//   openMtxFile, readMtxDataType, readMtxDataCount    then stations (nData)
//   readMtxMesh                                       then nodes, cells
//   readMtxNodes, scanMtxRows, readMtxTail            then the coefficients
//   readMtxRows, or nextMtxRow row by row
//
// Damage of any kind (an early end, impossible counts, indices outside the padded array, a filter or nodes that are not
// finite) throws RunError with file and byte, before memory is asked for what the file cannot hold.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "formats/mtx/binary_input.h"
#include "formats/mtx/mtx_layout.h"
#include "survey/mesh_geometry.h"

namespace voxlith {

struct MtxInput {
    BinaryInput input;
    MtxHeader header;
    std::int64_t rowStart = 0;  // byte at which the rows begin
};

// What must be the same in all files of a run, and what is thrown where a later file differs from the first.
enum class MtxQuantity { data, cells, paddedCells, filterLength };
struct MtxMismatch {
    MtxQuantity quantity;
};

// True when the file begins with the record of counts: 20, five numbers, 20, with counts above 0 that belong together.
// A file that cannot be opened or is too short is none.
bool isMtxRecordForm(const std::string& name);

// Opens the file; tells the tagged from the bare form, and reads the version. `recordForm`: see isMtxRecordForm.
void openMtxFile(MtxInput& file, const std::string& name, bool recordForm);

// By the file, or, in the record form, by its name.
void readMtxDataType(MtxInput& file);
DataType recordDataType(std::string_view name);

// For this and the next stage: `first` is the head of the run's first file, null for that one itself. Throws
// MtxMismatch.
void readMtxDataCount(MtxInput& file, const MtxHeader* first);

// Field values and stations (tagged form; x, y and z hold nData each and stay as they are in the other forms), counts
// of mesh and padded mesh, filter. Throws std::bad_alloc where there is no memory for the filter.
void readMtxMesh(MtxInput& file, const MtxHeader* first, std::span<double> x, std::span<double> y, std::span<double> z);

// Nodes of `mesh`, weight parameters, and one depth weight by cell. The arrays have their sizes; mesh.ubcTopo, nx ny
// values, is filled from a record form alone. Leaves the file at its rows. Throws std::bad_alloc.
void readMtxNodes(MtxInput& file, MeshGeometry& mesh, std::span<float> depthWeight);

// First pass over the rows: from rowOffset[0] on, adds the count of each row to fill rowOffset[1 .. nData], without
// touching the coefficients. Returns the longest row.
std::int32_t scanMtxRows(MtxInput& file, std::span<std::int64_t> rowOffset);

// What follows the rows: `gtgdiag` by cell and, where the file holds them, style and `layerResponse` (layer, then
// datum). In the record form nothing follows, and the arrays stay as they are.
void readMtxTail(MtxInput& file, std::span<double> gtgdiag, std::span<double> layerResponse);

// Back to the first row.
void rewindMtxRows(MtxInput& file);

// A file that was closed after its rows were read, once more. Throws RunError.
void reopenMtxFile(MtxInput& file);

// Second pass, over rows that are not wanted: without touching their coefficients.
void skipMtxRows(MtxInput& file, std::size_t rows);

// Second pass: the next rows.size() rows, each as long as it was counted.
void readMtxRows(MtxInput& file, std::span<const RawRow> rows);

// The next row of a record form into the front of `row`; its count. Throws RunError where `row` is too short.
std::size_t readRecordRow(MtxInput& file, const RawRow& row);

// A row as it stands in the read-ahead of its file or in the caller's buffer, until the next read from the file.
struct MtxRowView {
    const std::int32_t* coefIndex = nullptr;
    const std::int32_t* coefValue = nullptr;  // bits of real32
    std::size_t count = 0;
};

// The next row, for runs that keep no rows in memory. A count of 0 or less gives an empty row and nothing further is
// read for it: dense rows need memory. Most rows are used where they were read to; a row longer than the read-ahead
// needs 2 count numbers in `buffer`. Where these are more than it holds, coefIndex is null, and nothing has moved.
MtxRowView nextMtxRow(MtxInput& file, std::span<std::int32_t> buffer);

}  // namespace voxlith
