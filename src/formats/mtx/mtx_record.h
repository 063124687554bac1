// Sensitivity files of the record form: every record is framed by its length in bytes, before and after. A run has one
// such file at most, and it is the first. The stages are those of mtx_reader.h; damage throws RunError.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "base/messages.h"
#include "sensitivity/sensitivity.h"
#include "survey/mesh_geometry.h"

namespace voxlith {

// True when the file begins with the record of counts: 20, five numbers, 20, with counts above 0 that belong together.
// A file that cannot be opened or is too short is none.
bool isRecordForm(const std::string& name);

// 1 (magnetic) when the name holds "MAG" or "mag", else 0.
DataType recordDataType(std::string_view name);

// Version, data type (logged), number of data.
void readRecordHead(Sensitivity& sensitivity, Messages& messages);

// Mesh, padded mesh and taps; walks over the records between them, so that all sizes are known to fit the file.
void readRecordMesh(Sensitivity& sensitivity, MeshGeometry& mesh, double& tally, Messages& messages);

// Nodes, topography and depth weights.
void readRecordNodes(Sensitivity& sensitivity, MeshGeometry& mesh, Messages& messages);

// Returns the count of the row at the present position and moves on to the next one.
std::int32_t scanRecordRow(BinaryInput& input);

// Reads the row at the present position and returns its count. The spans are uniform in size and hold at least that
// many.
std::int32_t readRecordRow(BinaryInput& input, std::int64_t nPadded, std::span<std::int32_t> coefIndex,
                           std::span<std::int32_t> coefValue);

}  // namespace voxlith
