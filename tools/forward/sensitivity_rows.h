// The rows of a sensitivity file: computed by prisms, weighted, wavelet-transformed and thresholded. The diagonal of
// G'G is that of the rows as they are stored, so each row is also transformed back.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "base/output_file.h"
#include "forward/mtx_content.h"
#include "forward/prism.h"
#include "forward/row_compression.h"
#include "forward/row_journal.h"
#include "forward/stored_rows.h"

namespace voxlith {

struct RowStatistics {
    std::int64_t coefficients = 0;  // kept in all rows
    double largestLoss = 0;         // of rows whose loss is known, as that of rows from parts is not
    double meanLoss = 0;
    std::int64_t rowsWithLoss = 0;
};

// Work memory of one row, filled by computeRow and reused from row to row.
struct RowWork {
    PrismWork prisms;
    std::vector<double> cells;  // the row in the mesh; in the end as it is read back
    std::vector<double> padded;
    std::vector<double> waveletWork;
    std::vector<double> layers;  // nzl + 1 layer responses: layer by layer, then the whole mesh
    CompressionWork compression;
    CompressedRow compressed;
};

// Row of one station, from 0. `sumBelow`: the last layer of the padded array is the sum of all layers from there down.
void computeRow(const MtxContent& content, bool sumBelow, double tolerance, std::size_t station, RowWork& work);

// The nzl + 1 layer responses of one station, from 0.
void computeLayerResponses(const MtxContent& content, std::size_t station, RowWork& work);

// Where rows come from that need not be computed, and what is noted of all others.
struct RowSources {
    const StoredRows* stored = nullptr;  // null: all are computed
    std::size_t inFile = 0;              // the first of the stored rows, which the file has already
    RowJournal* journal = nullptr;       // null: rows are noted nowhere
};

// Computes all rows on `threads` threads, or takes them from where they are stored, and writes them in order. `gtgdiag`
// (cells) and `layerResponse` (station by station, nzl + 1 values each) are filled; the sums are those of all rows in
// their order, whatever the threads and sources. Inactive cells get the mean of the diagonal over the active ones: 0
// would leave the preconditioner of the inversion to the regularisation, which may be 0 there, too.
RowStatistics writeAllRows(OutputFile& file, const MtxContent& content, bool sumBelow, double tolerance,
                           std::size_t threads, const RowSources& sources, std::span<double> gtgdiag,
                           std::span<double> layerResponse);

}  // namespace voxlith
