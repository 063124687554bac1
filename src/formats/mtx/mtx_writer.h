// Writes sensitivity files in their three forms (mtx_layout.h), a row at a time.
#pragma once

#include <cstdint>
#include <span>

#include "base/output_file.h"
#include "formats/mtx/mtx_layout.h"
#include "survey/mesh_geometry.h"

namespace voxlith {

// The arrays of the head. A form takes those that it holds.
struct MtxHeadArrays {
    std::span<const double> x, y, z;           // stations, nData each
    const MeshGeometry& mesh;                  // nodes; those of z rise downwards
    std::span<const float> depthWeight;        // by cell
    std::span<const std::int32_t> topography;  // inactive cells at the top of each column, y fastest
};

// Throws RunError when the content breaks a limit of the form: a filter of 24 and records below 2 GiB for the record
// form, rows that begin within the first 2 GiB and padded arrays whose rows stay below 2 GiB for all.
void checkMtxLimits(const MtxHeader& header);

// All up to the rows.
void writeMtxHead(OutputFile& file, const MtxHeader& header, const MtxHeadArrays& arrays);

void writeMtxRow(OutputFile& file, MtxForm form, std::span<const std::int32_t> coefIndex,
                 std::span<const float> coefValue);

// What follows the rows. `gtgdiag` by cell; `layerResponse` by layer slot (nzl + 1), then datum.
void writeMtxTail(OutputFile& file, const MtxHeader& header, std::span<const double> gtgdiag,
                  std::span<const double> layerResponse);

}  // namespace voxlith
