// Rows of a sensitivity file that another run has computed: those of part files, or of a run that was stopped.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "formats/mtx/mtx_layout.h"
#include "forward/row_compression.h"

namespace voxlith {

// Where a row is, from its count on.
struct StoredRow {
    std::size_t file = 0;     // in StoredRows::files
    std::int64_t offset = 0;  // bytes
    std::int32_t count = -1;  // coefficients; below 0: not stored, to be computed
    std::uint64_t check = 0;  // rowCheck of its bytes, if `checked`
    bool checked = false;
};

// A file open for reading at any place from any thread.
struct StoredFile {
    StoredFile() = default;
    explicit StoredFile(const std::string& name);  // throws RunError
    ~StoredFile();
    StoredFile(StoredFile&& other) noexcept;
    StoredFile& operator=(StoredFile&&) = delete;
    StoredFile(const StoredFile&) = delete;
    StoredFile& operator=(const StoredFile&) = delete;

    std::string name;
    int handle = -1;
};

struct StoredRows {
    std::vector<StoredFile> files;
    std::vector<StoredRow> rows;  // by station; empty: none is stored
    std::vector<double> layers;   // nzl + 1 layer responses by station
    std::vector<double> loss;     // by station; below 0: not known

    bool holds(std::size_t row) const { return row < rows.size() && rows[row].count >= 0; }
};

// Numbers that change with any byte of a row, or of others added to them: FNV-1a (Fowler, Noll, Vo) over the indices
// and the bits of the values.
std::uint64_t rowCheck(const std::vector<std::int32_t>& coefIndex, const std::vector<float>& coefValue);
std::uint64_t addToCheck(std::uint64_t check, std::span<const double> values);

// Reads a row that is stored. Indices must rise and be within `paddedCells`. Throws RunError.
void readStoredRow(const StoredRows& stored, std::size_t row, std::size_t paddedCells, CompressedRow& compressed);

// Bytes of a row of this many coefficients in the file, and what of them comes before its count.
std::int64_t storedRowLength(MtxForm form, std::int32_t count);
std::int64_t bytesBeforeCount(MtxForm form);

}  // namespace voxlith
