// The progress table voxlith.aux and the line search log voxlith.lsv: begun by a new run, recovered by a continued one.
#pragma once

#include <cstdint>

#include "base/line_file.h"
#include "base/messages.h"
#include "inversion/inversion_problem.h"

namespace voxlith {

// New run: replaces both files (the second only when iMode is -1) and writes their headings.
void openProgressFiles(Messages& messages, std::int32_t iMode, LineFile& progressTable, LineFile& lineSearchTable);

// Continued run: takes options.startIteration from the last whole row of voxlith.aux, raises options.maxIterations by
// it, and opens the files for appending. Missing files end the run through fatalStop; a row that cannot be read is a
// RunError.
void recoverProgressFiles(Messages& messages, std::int32_t iMode, InversionOptions& options, LineFile& progressTable,
                          LineFile& lineSearchTable);

// Where a run that resumes from a saved state stands.
struct ResumedRun {
    std::int32_t startIteration = 0;  // iterations done before the stopped run began
    std::int32_t iteration = 0;       // the last one of the saved state
};

// Cuts the rows after resumed.iteration, which the run writes once more, and opens the files for appending. Takes
// options.startIteration from `resumed` and raises options.maxIterations by it: the limit is that of the stopped run.
void resumeProgressFiles(Messages& messages, std::int32_t iMode, const ResumedRun& resumed, InversionOptions& options,
                         LineFile& progressTable, LineFile& lineSearchTable);

}  // namespace voxlith
