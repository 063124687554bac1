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

}  // namespace voxlith
