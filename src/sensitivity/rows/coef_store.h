// The compressed rows of all sensitivity files: their layout in memory, and the current row when they are read from
// disk.
//
// These are the rows R of sensitivity/products.h. A transformed row has few large elements, because the response of a
// distant cell varies smoothly: the writer of a sensitivity file sets those below a threshold to 0 and stores index and
// value of the others, the coefficients (Y. Li and D. W. Oldenburg, Fast inversion of large-scale magnetic data using
// wavelet transforms and a logarithmic barrier method, Geophys. J. Int. 152, 2003). So a product costs as much as there
// are coefficients, not cells times data.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <utility>
#include <vector>

#include "base/large_array.h"
#include "formats/mtx/mtx_layout.h"
#include "sensitivity/rows/blocked_rows.h"

namespace voxlith {

// Raw rows follow each other as in the file: coefIndex (int32, positions in the padded array, from 1), then coefValue
// (real32, stored by their bits). Before the iterations they are turned into blocked rows, in place: these are written
// from the first word on, and some words are free in front of the raw rows for them.
struct SparseCoefStore {
    // (nData + 1) for each file; coefficients count from 1, through all files. With several ranks, rows of others are
    // empty once keepOwnRows has taken its share.
    std::vector<std::int64_t> rowOffset;
    std::vector<std::size_t> firstRowOfRank;  // (ranks + 1) for each file; empty with one rank
    std::unique_ptr<std::int32_t[]> words;    // two for each coefficient
    std::int64_t capacity = 0;                // coefficients allocated: all, or one row in disk mode
    std::int64_t headroomWords = 0;           // further words, in front of the raw rows
    std::span<const std::int32_t> mapped;     // blocked rows that are kept elsewhere; `words` is then empty
    std::int64_t totalCoef = 0;
    std::int32_t rowMax = 0;  // longest row of the last file scanned

    std::vector<BlockedRows> blocked;  // by file; empty while the rows are raw
    LargeArray<double> compact;        // work: values at the used columns
};

// Allocates `capacity` coefficients, not filled, and `headroomWords` more words in front of them. Throws
// std::bad_alloc; the store is empty then.
void reserveStore(SparseCoefStore& store, std::int64_t capacity, std::int64_t headroomWords);

// Allocates all rows of rowOffset and the headroom for buildBlockedRows.
void reserveRows(SparseCoefStore& store, RankOrder order = RankOrder::atOnce);

// The rows of file `file` that rank `rank` has: first and end.
std::pair<std::size_t, std::size_t> rowsOfRank(const SparseCoefStore& store, std::size_t file, std::size_t rank);

// All words of the store, or those kept elsewhere.
std::span<const std::int32_t> wordsOf(const SparseCoefStore& store);

// A raw row by its entry in rowOffset.
RawRow rawRowOf(SparseCoefStore& store, std::size_t entry);

// Turns the raw rows of all files (nData rows each), for which reserveRows has allocated the store, into blocked rows.
// The values of a row are divided by its divisor, in real32, where that is above 0; `divisor` has nData for each of the
// first files, or none at all. `paddedCount` is the largest coefIndex possible. Memory that becomes free is given back
// to the system. False when ranks at once may not have got the layout of one process; then all of them load their rows
// again and take turns. Throws std::bad_alloc, and std::logic_error if the store has not enough headroom.
bool buildBlockedRows(SparseCoefStore& store, std::size_t nData, std::size_t files, std::size_t paddedCount,
                      std::span<const float> divisor = {}, RankOrder order = RankOrder::atOnce);

}  // namespace voxlith
