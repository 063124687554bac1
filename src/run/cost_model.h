// Time and memory of a run by formulas with few numbers, fitted to measurements (docs/scaling.md): what --check says of
// machines that the run is not on.
#pragma once

#include <cstddef>

#include "driver/run_state.h"

namespace voxlith {

struct RunSize {
    double cells = 0;  // of one model type
    double modelTypes = 1;
    double paddedCells = 0;
    double coefficients = 0;  // of all processes
    double usedColumns = 0;   // of all files: what processes pass along
    double data = 0;          // stations by products
};

struct Machines {
    double processes = 1;
    double threads = 1;  // of each process
};

// When all arrays of the run are in place.
RunSize sizeOf(const RunState& run);

// One step of the optimiser with one evaluation of objective and gradient. Processes are taken to be on different
// machines, with a network of 10 Gbit/s.
double secondsOfIteration(const RunSize& size, const Machines& machines);

// Of each process, while it iterates.
double bytesOfProcess(const RunSize& size, double processes);

}  // namespace voxlith
