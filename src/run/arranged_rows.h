// The arranged rows of a run in a file, so that later runs with the same sensitivities and standard deviations start by
// reading alone (--keep-arranged). Such a run maps the file: its products use the rows where they are in the cache of
// the system, without a copy and without memory that has to be cleared first.
//
//   8 characters "VOXLITHR", int32 layout version, int32 number of sensitivity files, uint64 key of the inputs
//   for each sensitivity file: int64 numbers of slabs, groups, used columns, tiles + 1 and bands + 1
//   int64 number of words
//   for each sensitivity file its slabs, groups, used columns (int32), words before tiles and before bands (int64)
//   the words (int32)
//   uint64 hash of all that stands before
//
// Numbers have the byte order of the machine. The key is made of size, time of change and samples of each sensitivity
// file, of the lengths of its rows and of the standard deviations. The file is written beside its final name and
// renamed.
#pragma once

#include <sys/stat.h>

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

#include "sensitivity/sensitivity.h"

namespace voxlith {

constexpr const char* arrangedRowsName = "voxlith.arranged";

// The file as a run uses it: all of it is mapped until the end of its life. Where a part of it can no longer be read
// (the disk fails, or somebody cuts the file), a message ends the process.
struct MappedRows {
    MappedRows() = default;
    ~MappedRows();
    MappedRows(const MappedRows&) = delete;
    MappedRows& operator=(const MappedRows&) = delete;

    int handle = -1;
    struct stat state {};
    std::span<const std::byte> bytes;
};

// Maps file `name`; the reason why it cannot be, or nothing.
std::string mapFile(const std::string& name, MappedRows& file);

// The key for open sensitivity files whose rows have been counted. Throws RunError when one cannot be read.
std::uint64_t arrangedKeyOf(const Sensitivity& sensitivity, std::span<const float> obsStd);

// Gives the store the rows of file `name`, which is mapped into `file`. False, with the reason in `reason`, when there
// is no such file, it belongs to other inputs, or is damaged; the store then has no rows. Throws std::bad_alloc.
bool readArrangedRows(const std::string& name, std::uint64_t key, MappedRows& file, Sensitivity& sensitivity,
                      std::string& reason);

// Throws RunError when a mapped file has been written to since.
void requireUnchanged(const MappedRows& file);

// Throws RunError when the file cannot be written.
void writeArrangedRows(const std::string& name, std::uint64_t key, const Sensitivity& sensitivity);

// The rows of all sensitivity files, arranged: from the file arrangedRowsName, or from the sensitivity files, and then
// into that file. Closes the sensitivity files. One line on standard error says which, and why. Nothing happens when
// rows are read from disk at every product. `file` outlives the products.
void readOrBuildRows(Sensitivity& sensitivity, std::span<const float> obsStd, MappedRows& file);

}  // namespace voxlith
