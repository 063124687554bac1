// The compressed rows of all sensitivity files: where they lie in memory, and the row at hand when they are read from
// disk.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "base/large_array.h"
#include "formats/mtx/mtx_layout.h"
#include "sensitivity/rows/blocked_rows.h"

namespace voxlith {

// Raw rows stand one behind the other as in the file: coefIndex (int32, positions in the padded array, from 1), then
// coefValue (real32, held by their bits). Before the iterations they are turned into their working form, in place: it
// is written from the first word on, and there is some room in front of the raw rows for it.
struct SparseCoefStore {
    std::vector<std::int64_t> rowOffset;    // (nData + 1) for each file; coefficients count from 1, through all files
    std::unique_ptr<std::int32_t[]> words;  // two for each coefficient
    std::int64_t capacity = 0;              // coefficients that there is room for: all, or one row in disk mode
    std::int64_t headroomWords = 0;         // further words, in front of the raw rows
    std::int64_t totalCoef = 0;
    std::int32_t rowMax = 0;  // longest row of the last file scanned

    std::vector<BlockedRows> working;  // by file; empty while the rows are raw
    LargeArray<double> compact;        // work: values at the positions in use
};

// Room for `capacity` coefficients, not filled, and for `headroomWords` more in front of them. Throws std::bad_alloc;
// the store is empty then.
void reserveStore(SparseCoefStore& store, std::int64_t capacity, std::int64_t headroomWords);

// Room for all rows of rowOffset, to be arranged later.
void reserveRows(SparseCoefStore& store);

// All words of the store.
std::span<const std::int32_t> wordsOf(const SparseCoefStore& store);

// A raw row by its entry in rowOffset.
RawRow rawRowOf(SparseCoefStore& store, std::size_t entry);

// Turns the rows of all files (nData rows each) into working form, for which reserveRows has made room. The values of a
// row are divided by its divisor, in real32, where that is above 0; `divisor` has nData for each of the first files, or
// none at all. `paddedCount` is the largest coefIndex possible. Memory that becomes free is given back to the system.
void buildBlockedRows(SparseCoefStore& store, std::size_t nData, std::size_t files, std::size_t paddedCount,
                      std::span<const float> divisor = {});

}  // namespace voxlith
