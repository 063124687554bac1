// The rows of a sensitivity file: worked out by prisms, weighted, transformed, cut down, and taken back for the
// diagonal of G'G.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "base/output_file.h"
#include "forward/mtx_writer.h"

namespace voxlith {

struct RowStatistics {
    std::int64_t coefficients = 0;  // kept in all rows
    double largestLoss = 0;
    double meanLoss = 0;
};

// What one row is made of, filled by computeRow; the room is kept from row to row.
struct RowWork {
    std::vector<double> corners;
    std::vector<double> cells;  // the row in the mesh, at last as it is read back
    std::vector<double> padded;
    std::vector<double> waveletWork;
    std::vector<double> layers;  // nzl + 1 layer responses: layer by layer, then the whole mesh
    std::vector<RankedCoefficient> ranking;
    CompressedRow compressed;
};

// Row of one station, from 0. `sumBelow`: the last layer that the padded array holds stands for all layers from there
// down.
void computeRow(const MtxContent& content, bool sumBelow, double tolerance, std::size_t station, RowWork& work);

// Works out all rows on `threads` threads and writes them in order. `gtgdiag` (cells) and `layerResponse` (nzl + 1 by
// station) have their sizes; the sums do not depend on the number of threads.
RowStatistics writeAllRows(OutputFile& file, const MtxContent& content, bool sumBelow, double tolerance,
                           std::size_t threads, std::span<double> gtgdiag, std::span<double> layerResponse);

}  // namespace voxlith
