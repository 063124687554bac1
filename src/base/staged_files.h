// Files that a run replaces again and again: its running models and their like. Each new version is written whole under
// a temporary name (staged). At most every few seconds the staged versions are published: brought to the disk and
// renamed, so that fast iterations do not wait for the disk and no file is ever empty or half written, not even after a
// power failure. While the run lasts, the version before stays as a hidden file beside each. Where an earlier run left
// a hidden version that is longer than the file, that one stays until removePreviousVersions is called.
//
//     StagedFiles staged;
//     OutputFile file;
//     openOutputFile(file, "voxlith.rho");
//     ...
//     stageOutputFile(file, PreviousVersion::kept, staged);
//     if (publicationIsDue(staged)) {
//         publishStagedFiles(staged);
//     }
#pragma once

#include <array>
#include <cstddef>
#include <string>
#include <string_view>

#include "base/output_file.h"

namespace voxlith {

// Seconds for which the files of a run may stay behind its state, unless one iteration takes longer.
constexpr double publicationInterval = 5.0;

enum class PreviousVersion { dropped, kept };

struct StagedFile {
    int handle = -1;  // open until published: it holds the lock on the temporary file
    PreviousVersion previous = PreviousVersion::dropped;
    bool published = false;     // at least once
    bool earlierStays = false;  // the hidden version is that of an earlier run, whose file had been damaged
    std::array<char, 1024> name{};
    std::array<char, 1064> temporaryName{};
};

struct StagedFiles {
    StagedFiles() = default;
    ~StagedFiles();  // publishes what is staged, as far as that is possible, and removes the hidden versions
    StagedFiles(const StagedFiles&) = delete;
    StagedFiles& operator=(const StagedFiles&) = delete;

    // Staged, and published ones that have a hidden version: the first `count`.
    std::array<StagedFile, 16> files;
    std::size_t count = 0;
    bool discarded = false;  // nothing is staged: this process helps another one, which writes the files
    bool everPublished = false;
    double publishedAt = 0;     // seconds of a steady clock, at the end of the last publication
    double publishSeconds = 0;  // that it took; whoever stages the files may add what that took
};

// Takes over the complete content of an open file. A staged version of the same name is dropped. When there is no
// space for one more file, the others are published first, and where that is not enough a hidden version is given up.
// Allocates nothing. Throws RunError when the content cannot be written.
void stageOutputFile(OutputFile& file, PreviousVersion previous, StagedFiles& staged);

// True at the first call, then when `interval` seconds have gone by since the last publication, and earlier where
// publishing takes so little time that it is no more than a small share of the run.
bool publicationIsDue(const StagedFiles& staged, double interval = publicationInterval);

// Brings all staged files to the disk under their own names. Throws RunError; files that are not renamed then have
// their earlier version.
void publishStagedFiles(StagedFiles& staged);

// The hidden file with the version before: "FOLDER/.NAME.previous".
std::string previousVersionName(std::string_view name);

// Removes the hidden versions that killed runs left, of files with names that begin with `prefix` (a folder and a part
// of a name). Best effort.
void removePreviousVersions(std::string_view prefix);

}  // namespace voxlith
