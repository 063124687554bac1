// The steps of a run in their order, which a program strings together: inputs, sensitivities, survey, progress files,
// inversion (inversion/inversion_loop.h), results, closing lines.
#pragma once

#include <span>
#include <string>

#include "driver/continuation.h"
#include "driver/run_state.h"

namespace voxlith {

// The command line (`arguments` are those after the program's name, the control file first) and the control file. Opens
// the log.
void readInputs(RunState& run, std::span<const std::string> arguments);

// All sensitivity files, with the arrays that they size; then the sizes on the screen and in the log.
void readSensitivities(RunState& run);

// The running model that a continued run starts from. The sensitivities have been read.
std::string runningModelOf(const RunState& run);

// Weights, observed data, data offset, bounds and models. Divides the sensitivities by the standard deviations.
void readSurvey(RunState& run);

// Opens the progress files and names the inversion style. A continued run takes its iteration count from them, one that
// resumes (control.resumes) from `resumed`.
void openProgress(RunState& run, const ResumedRun& resumed = {});

// Refers to the parts of `run`, which must outlive it.
InversionProblem inversionProblemOf(RunState& run);

// Closes the progress table, and the sensitivity file whose rows were read from disk.
void closeInversion(RunState& run);

// Final models, predicted data and tables.
void writeResults(const InversionProblem& problem);

// The closing lines of screen and log; closes the log. `cpuStart` and `julianStart` are the processor time and the date
// at which the inversion began.
void reportCompletion(RunState& run, double cpuStart, double julianStart);

}  // namespace voxlith
