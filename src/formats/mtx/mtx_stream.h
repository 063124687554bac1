// Sensitivity files of the tagged and the bare form: a plain stream of numbers without framing. The stages are those of
// mtx_reader.h. Damage throws RunError; a later file that does not match the first ends the run after its message.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "base/messages.h"
#include "sensitivity/sensitivity.h"
#include "survey/mesh_geometry.h"
#include "survey/obs_set.h"

namespace voxlith {

// Magic and version, if there are any, data type (both logged), number of data.
void readStreamHead(Sensitivity& sensitivity, std::size_t file, Messages& messages);

void readStreamMesh(Sensitivity& sensitivity, std::size_t file, MeshGeometry& mesh, ObsSet& obs, double& tally,
                    Messages& messages);

// Nodes, weight parameters and depth weights.
void readStreamNodes(Sensitivity& sensitivity, std::size_t file, MeshGeometry& mesh);

// Returns the count of the row at the present position (negative for a dense row) and moves on to the next row.
std::int32_t scanStreamRow(BinaryInput& input, const MtxHeader& header);

void readStreamTail(Sensitivity& sensitivity, std::size_t file, const MeshGeometry& mesh);

// Reads the row at the present position into its places in the store, which the scan has sized.
void loadStreamRow(BinaryInput& input, const MtxHeader& header, std::span<std::int32_t> coefIndex,
                   std::span<std::int32_t> coefValue);

// Reads the sparse rows at the present position, about a megabyte of them at most, straight into their places in the
// store (raw rows of entry, entry + 1, ... of rowOffset, before entry `behind`). Returns how many; the position is
// behind them. 0 where loadStreamRow must take the next row: it is empty, may be dense, or is not what the scan has
// counted.
std::size_t loadSparseRows(BinaryInput& input, const MtxHeader& header, SparseCoefStore& store, std::size_t entry,
                           std::size_t behind);

}  // namespace voxlith
