// What lets the computation of a sensitivity file go on after it was stopped at any moment. Until it is complete, the
// file is OUT.unfinished; beside it, OUT.unfinished.rows has for each of them what the file has only at its end or not
// at all, and a check of its bytes.
//
// The journal is a head with everything that changes rows and is not in the head of the file, then one record per row,
// written with the row. A journal without its file, of another program version or of other options is not used.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

#include "base/output_file.h"
#include "forward/mtx_content.h"
#include "forward/stored_rows.h"

namespace voxlith {

struct RowJournal {
    RowJournal() = default;
    ~RowJournal();  // closes
    RowJournal(const RowJournal&) = delete;
    RowJournal& operator=(const RowJournal&) = delete;

    std::string name;
    int handle = -1;
    bool failed = false;  // could not be written on, as on a full disk
};

// The rows that a stopped run left for this file, whole and unchanged, from the first one on.
struct InterruptedRun {
    std::size_t rows = 0;        // 0: none can be used
    std::int64_t keptBytes = 0;  // of OUT.unfinished, up to the end of the last of these rows
    std::int64_t journalBytes = 0;
    StoredRows stored;
};

// Throws RunError when another process is writing the file.
InterruptedRun findInterruptedRun(const std::string& outFile, const MtxContent& content, bool sumBelow,
                                  double tolerance);

// Opens OUT.unfinished: a new file, or that of the run, to be continued after its `keptBytes` bytes. After a failed
// write it stays. Throws RunError.
void openUnfinishedFile(OutputFile& file, const std::string& outFile, const InterruptedRun& run);

// A new journal, or the old one behind `run.rows` rows. Throws RunError.
void openRowJournal(RowJournal& journal, const std::string& outFile, const MtxContent& content, bool sumBelow,
                    double tolerance, const InterruptedRun& run);

// One row with its layer responses. Throws RunError.
void appendToJournal(RowJournal& journal, const CompressedRow& row, std::span<const double> layers);

// After success, or without rows beside it.
void removeRowJournal(const RowJournal& journal);

}  // namespace voxlith
