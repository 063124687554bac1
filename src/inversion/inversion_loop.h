// The inversion as plain steps, which a program strings together: the beginning, the iterations, the end. Most
// iterations are steps of the limited-memory optimiser; every tenth is one preconditioned conjugate-gradient step with
// a marching line search.
//
//   InversionLoop loop{problem, messages, progressTable};
//   beginInversion(loop);
//   do {
//       startIteration(loop);
//       takeCycleStep(loop);
//       finishIteration(loop);
//       advanceCycle(loop.state);
//   } while (loop.state.continueFlag);
//   finishInversion(loop);
//
// Between two iterations a program may stop, report or save: LoopState with the arrays of the problem is all that the
// iterations know of each other. Another kind of step takes the place of takeCycleStep and advanceCycle.
#pragma once

#include <cstdint>
#include <span>
#include <type_traits>

#include "base/line_file.h"
#include "base/messages.h"
#include "base/staged_files.h"
#include "inversion/barrier.h"
#include "inversion/inversion_problem.h"
#include "inversion/iteration_report.h"
#include "inversion/objective.h"
#include "inversion/running_files.h"
#include "optim/optimiser_step.h"

namespace voxlith {

constexpr std::int32_t firstCyclePhase = -1;

// Plain data: a copy of it that is put back between two iterations, together with arrays.model, arrays.delm,
// arrays.waBFGS and arrays.iwaBFGS, obs.predData and obs.refData, changes no bit of the result. When the task is
// "START", delm, waBFGS and iwaBFGS do not matter.
struct LoopState {
    std::int32_t iteration = 0;
    std::int32_t cyclePhase = firstCyclePhase;  // position in the cycle of optimiser and conjugate-gradient steps
    bool continueFlag = true;                   // false after the last iteration
    TaskWord task{};                            // of the optimiser
    OptimiserState optimiser{};
    Barrier barrier{};
    ObjectiveTerms fgTerms{};    // of the last evaluation that the optimiser asked for
    ObjectiveTerms iterTerms{};  // that the reports show: those of arrays.model
    double objective = 0;
    double factr = 0;            // tolerance of the optimiser
    std::int32_t stepCount = 0;  // accepted trials of the last step search
};
static_assert(std::is_trivially_copyable_v<LoopState>);

// Never copied: it refers to its problem.
struct InversionLoop {  // NOLINT(cppcoreguidelines-special-member-functions)
    const InversionProblem& problem;
    Messages& messages;
    LineFile& progressTable;  // voxlith.aux, open
    LoopState state{};
    double iterationStart = 0;   // clock reading, seconds
    StagedFiles staged{};        // files of the last iterations
    UnwrittenFiles unwritten{};  // of the last iteration, until they are staged
    // That the step of this iteration leaves for the gradient file; empty after a step without one.
    std::span<const double> stepGradient{};

    ~InversionLoop();  // publishes the files, as far as that is possible
};

// Brings the files of all iterations so far under their names and to the disk. Throws RunError.
void publishRunningFiles(InversionLoop& loop);

// Background removal, preconditioner, fixed deep cells, the terms at the starting model; writes the running files and
// the first rows of log and tables. Changes arrays.delm, the fixed cells and obs.refData.
void beginInversion(InversionLoop& loop);

// The heading of the screen table and the row of the last iteration, for a loop whose state has been put back.
void resumeScreenTable(const InversionLoop& loop);

// The part of beginInversion that depends on no iteration: preconditioner, step limits, zero delm, fixed deep cells. A
// run that goes on from saved arrays calls it before they are put back.
void prepareArrays(const InversionProblem& problem);

// Counts the iteration and writes its heading to the log.
void startIteration(InversionLoop& loop);

// One step of the cycle: changes arrays.model, arrays.delm and obs.predData, sets iterTerms and, after a step of the
// optimiser, stepGradient.
void takeCycleStep(InversionLoop& loop);

// Writes the running files (those of fast iterations are published every few seconds and after the last one), the
// rows of log and tables, and numbered models where the options ask for them. Sets
// continueFlag to false when options.maxIterations, counted from the beginning of the first run, is reached.
void finishIteration(InversionLoop& loop);

// What the tables show of the iteration that has ended.
IterationRow rowOf(const InversionLoop& loop);

// Moves on to the next position in the cycle. After a conjugate-gradient step the optimiser starts anew.
void advanceCycle(LoopState& state);

// Publishes the running files, leaves the gradient of the last model in arrays.delm, and writes the overhead lines.
void finishInversion(InversionLoop& loop);

// All of the above: leaves arrays.model and obs.predData at their last values. Ends after options.maxIterations and
// after one iteration at least.
void inversionLoop(const InversionProblem& problem, Messages& messages, LineFile& progressTable);

}  // namespace voxlith
