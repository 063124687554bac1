#include "run/cost_model.h"

#include <algorithm>

namespace voxlith {

namespace {

// Seconds on one core.
constexpr double secondsOfCoefficient = 1.2e-9;
constexpr double sharedSecondsOfCell = 3.5e-8;
constexpr double singleSecondsOfCell = 4.0e-8;

constexpr double networkBytesPerSecond = 1.25e9;

// How many times faster n threads are than one: memory is what they share.
double speedOfThreads(double threads) {
    constexpr double ofTwo = 0.9;
    constexpr double ofMany = 0.5;
    return std::max({1.0, std::min(threads, 2.0) * ofTwo, threads * ofMany});
}

}  // namespace

RunSize sizeOf(const RunState& run) {
    RunSize size;
    size.cells = static_cast<double>(run.mesh.cellCount());
    size.modelTypes = static_cast<double>(run.control.inversion.nModelTypes);
    size.paddedCells = static_cast<double>(run.sensitivity.paddedWork.size());
    size.coefficients = static_cast<double>(run.sensitivity.store.totalCoef);
    for (const BlockedRows& rows : run.sensitivity.store.blocked) {
        size.usedColumns += static_cast<double>(rows.usedColumns.size());
    }
    size.data = static_cast<double>(run.obs.nData) * static_cast<double>(run.products.products.size());
    return size;
}

double secondsOfIteration(const RunSize& size, const Machines& machines) {
    const double modelCells = size.cells * size.modelTypes;
    const double shared =
        secondsOfCoefficient * size.coefficients / machines.processes + sharedSecondsOfCell * modelCells;
    const double seconds = shared / speedOfThreads(machines.threads) + singleSecondsOfCell * modelCells;
    if (machines.processes < 2.0) {
        return seconds;
    }
    // Running sums from process to process, then the whole of them and the data to all.
    return seconds + (16.0 * size.usedColumns + 8.0 * size.data) / networkBytesPerSecond;
}

double bytesOfProcess(const RunSize& size, double processes) {
    constexpr double ofCoefficient = 8.0;
    constexpr double ofCell = 360.0;
    constexpr double ofFurtherType = 316.0;
    constexpr double ofPaddedCell = 8.0;
    return ofCoefficient * size.coefficients / processes + ofCell * size.cells +
           ofFurtherType * size.cells * (size.modelTypes - 1.0) + ofPaddedCell * size.paddedCells;
}

}  // namespace voxlith
