// What the inversion reports while it runs: the lines of the log, the rows of the iteration table on screen and in the
// progress table, and the overhead lines at the end. Columns are fixed; later runs read the progress table.
#pragma once

#include <cstdint>

#include "base/line_file.h"
#include "base/messages.h"
#include "base/overhead_timers.h"
#include "base/text_line.h"
#include "inversion/objective.h"

namespace voxlith {

struct IterationRow {
    std::int32_t iteration = 0;
    ObjectiveTerms terms{};
    double totalObjective = 0;  // reported total
    double iterTime = 0;        // seconds
    bool steppedByConjugateGradients = false;
    std::int32_t stepCount = 0;
};

void reportBeginning(Messages& messages);

// The block "initial ..." of the log.
void logStartingTerms(Messages& messages, const ObjectiveTerms& terms, const Barrier& barrier, double multiplier);

// Heading and first row. In the progress table the row has no time.
void startProgressTable(LineFile& progressTable, const IterationRow& row);
void startScreenTable(const IterationRow& row);

void logIterationHeading(Messages& messages, std::int32_t iteration);

// The terms in the log, then the row on the screen and in the progress table, then the log's line on the steps.
void reportIteration(Messages& messages, LineFile& progressTable, const IterationRow& row, const Barrier& barrier);

// A row of the table: iteration, misfit, model norm and total as roots, time; "+" after a conjugate-gradient
// iteration.
TextLine tableRow(const IterationRow& row);

void reportOverhead(Messages& messages, const OverheadTimers& timers);

}  // namespace voxlith
