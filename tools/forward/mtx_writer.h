// Writes sensitivity files in their three forms, a row at a time. All numbers are little-endian, without gaps.
//
//   tagged  "VX3D", version (0, 1 or 2), data type, field, stations, mesh, taps, nodes, depth weights, rows, diagonal
//   of G'G and, in
//           version 2, style and layer responses
//   bare    the same without magic, version, field and stations, and without what version 2 adds
//   record  records framed by their length; no data type, which readers take from the file's name, and no diagonal
//
// Counts and nodes stand in the order y, x, z; zNode rises downwards.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "base/output_file.h"
#include "forward/depth_weight.h"
#include "forward/row_compression.h"
#include "forward/survey.h"
#include "sensitivity/wavelet/wavelet.h"

namespace voxlith {

enum class MtxForm { tagged, bare, record };

// What a file holds besides its rows and what follows from them.
struct MtxContent {
    MtxForm form = MtxForm::tagged;
    std::int32_t version = 2;  // of the tagged form
    std::int32_t inversionStyle = 0;
    Survey survey;  // its mesh with padded counts and nzl
    WaveletFilter filter;
    DepthWeight depthWeight;
    std::vector<float> cellWeights;  // W by cell
};

// Throws RunError when the content breaks a limit of the form: 24 taps and records below 2 GiB for the record form,
// rows that begin within the first 2 GiB and padded arrays whose rows stay below 2 GiB for all.
void checkMtxLimits(const MtxContent& content);

// All up to the rows.
void writeMtxHead(OutputFile& file, const MtxContent& content);

void writeMtxRow(OutputFile& file, const MtxContent& content, const CompressedRow& row);

// What stands behind the rows. `gtgdiag` by cell; `layerResponse` by layer slot (nzl + 1), then datum.
void writeMtxTail(OutputFile& file, const MtxContent& content, std::span<const double> gtgdiag,
                  std::span<const double> layerResponse);

}  // namespace voxlith
