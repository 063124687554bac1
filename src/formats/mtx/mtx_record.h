// The head and the row frames of sensitivity files of the record form: every record is framed by its length in bytes,
// before and after. The stages are those of mtx_reader.h.
#pragma once

#include <cstdint>

#include "formats/mtx/mtx_reader.h"

namespace voxlith {

void readRecordDataCount(MtxInput& file);

// Walks over the records before the padded mesh, so that all sizes are known to fit the file.
void readRecordMesh(MtxInput& file);

void readRecordNodes(MtxInput& file, MeshGeometry& mesh, std::span<float> depthWeight);

// Length and count of the row at the present position, which belong together; the count. The whole row is there.
std::int32_t beginRecordRow(BinaryInput& input);
void endRecordRow(BinaryInput& input, std::int32_t count);

}  // namespace voxlith
