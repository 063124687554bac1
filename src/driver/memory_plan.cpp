#include "driver/memory_plan.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <new>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "base/allocation_failure.h"
#include "base/large_array.h"
#include "base/ranks.h"
#include "base/workers.h"

namespace voxlith {

namespace {

std::size_t sizeOf(std::int32_t count) {
    return static_cast<std::size_t>(count);
}

// The log line that stands before the message of a group that was refused.
void logGroup(RunState& run, std::string_view label, double size) {
    logLine(run.messages, TextLine(" ").text(label).exponent(size, 25, 16).exponent(run.memoryTally, 25, 16));
}

[[noreturn]] void stopForGroup(RunState& run, std::string_view label, double size, std::string_view message,
                               const std::exception& refusal) {
    if (!label.empty()) {
        logGroup(run, label, size);
    }
    fatalStop(run.messages, withAllocatorText(message, refusal));
}

// Runs `allocate`; when memory is refused the run ends with `message`, otherwise `bytes` go to the tally.
template <typename Allocate>
void allocateGroup(RunState& run, std::string_view label, double bytes, std::string_view message, Allocate allocate) {
    try {
        allocate();
    } catch (const std::bad_alloc& refusal) {
        stopForGroup(run, label, bytes, message, refusal);
    } catch (const std::length_error& refusal) {
        stopForGroup(run, label, bytes, message, refusal);
    }
    run.memoryTally += bytes;
}

// Compatibility: two groups are computed as 32-bit integers, which wrap for very large runs.
double wrappedTo32Bits(std::uint64_t bytes) {
    return static_cast<double>(static_cast<std::int32_t>(static_cast<std::uint32_t>(bytes)));
}

// An array of zeros in large pages where the system has them: the arrays of a run are read from end to end, and large
// pages save most of the address translations.
template <typename T>
void fillLarge(std::vector<T>& array, std::size_t count) {
    array.reserve(count);
    adviseHugePages(array.data(), count * sizeof(T));
    array.assign(count, T{});
}

struct ModelSizes {
    std::size_t cells;       // nx ny nz
    std::size_t modelCells;  // cells times model types
    std::size_t nData;
    std::size_t nMtx;
    std::size_t nDataTypes;
};

ModelSizes modelSizesOf(const RunState& run) {
    const std::size_t cells = run.mesh.cellCount();
    return {cells, cells * sizeOf(run.control.inversion.nModelTypes), sizeOf(run.obs.nData), sizeOf(run.control.nMtx),
            sizeOf(run.control.nDataTypes)};
}

void allocateWorkVectors(RunState& run, const ModelSizes& sizes) {
    InversionArrays& arrays = run.arrays;
    const std::size_t m = sizes.modelCells;
    const double bytesOfModel = 8.0 * static_cast<double>(m);
    allocateGroup(run, "VXmodel:", 3.0 * bytesOfModel, "Error: Not enough memory for the model data arrays", [&] {
        fillLarge(arrays.model, m);
        fillLarge(arrays.refModel, m);
        fillLarge(arrays.maxStep, m);
    });
    const std::size_t steps = m > sizes.nData * sizes.nMtx ? m : sizes.nData * sizes.nMtx;
    allocateGroup(run, "delm:", 8.0 * static_cast<double>(steps), "Error: Not enough memory for the delta arrays",
                  [&] { fillLarge(arrays.delm, std::max(steps, m)); });
    const double bytesOfWeights = 16.0 * static_cast<double>(sizes.cells);
    allocateGroup(run, "wts:", bytesOfWeights, "Error: Not enough memory for the smoothness matrix arrays", [&] {
        for (std::vector<float>* weight : {&run.weights.wtS, &run.weights.wtE, &run.weights.wtN, &run.weights.wtZ}) {
            fillLarge(*weight, sizes.cells);
        }
    });
    allocateGroup(run, "gtgdiag:", bytesOfWeights, "Error: Not enough memory for the preconditioner arrays", [&] {
        fillLarge(run.sensitivity.gtgdiag, sizes.cells * sizes.nMtx);
        fillLarge(arrays.regDiag, sizes.cells);
        fillLarge(arrays.precond, sizes.cells);
    });
    allocateGroup(run, "bounds:", 3.0 * bytesOfModel, "Error: Not enough memory for the bounds arrays", [&] {
        fillLarge(run.bounds.boundType, m);
        fillLarge(run.bounds.fixedCell, m);
        fillLarge(run.bounds.lowerBound, m);
        fillLarge(run.bounds.upperBound, m);
        run.bounds.nFixedCells = 0;
    });
}

void allocateSensitivityArrays(RunState& run, const ModelSizes& sizes) {
    Sensitivity& sensitivity = run.sensitivity;
    const std::size_t slots = sizeOf(run.mesh.nzl) + 1;
    const double bytesOfLayers = wrappedTo32Bits(8 * slots * sizes.nData * sizes.nMtx);
    allocateGroup(run, "layer response:", bytesOfLayers, "Error: Not enough memory for the layer response arrays",
                  [&] { fillLarge(sensitivity.layerResponse, slots * sizes.nData * sizes.nMtx); });
    const std::size_t offsets = (sizes.nData + 1) * sizes.nMtx;
    allocateGroup(run, "coefficient:", 4.0 * static_cast<double>(offsets),
                  "Error: Not enough memory for the coefficient arrays",
                  [&] { fillLarge(sensitivity.store.rowOffset, offsets); });
    // Amplitude data keep their three components in the first three columns.
    const std::vector<Product>& products = run.products.products;
    const auto& amplitude = run.products.isAmplitude;
    const bool hasAmplitude = std::find(amplitude.begin(), amplitude.end(), true) != amplitude.end();
    const std::size_t columns = std::max<std::size_t>(products.size(), hasAmplitude ? 3 : 0);
    allocateGroup(run, "", 0.0, "Error: Not enough memory for the model data arrays",
                  [&] { fillLarge(sensitivity.productResponse, sizes.nData * columns); });
}

void allocateOptimiserArrays(RunState& run, const ModelSizes& sizes) {
    InversionArrays& arrays = run.arrays;
    const std::size_t m = sizes.modelCells;
    allocateGroup(run, "bounds:", wrappedTo32Bits(8 * m), "Error: Not enough memory for the model work arrays",
                  [&] { fillLarge(arrays.adjointSum, m); });
    const auto nPadTotal = static_cast<std::size_t>(run.sensitivity.header.nPadTotal);
    allocateGroup(run, "compression:", 8.0 * static_cast<double>(nPadTotal),
                  "Error: Not enough memory for the compression work arrays",
                  [&] { run.sensitivity.paddedWork.assign(nPadTotal, 0.0); });
    allocateGroup(run, "lbfgs:", 8.0 * static_cast<double>(m), "Error: Not enough memory for the lbfgs work arrays",
                  [&] { fillLarge(arrays.trialModel, m); });
    const std::size_t length = std::max(m, sizes.nData * sizes.nDataTypes);
    allocateGroup(run, "CG:", 40.0 * static_cast<double>(length), "Error: Not enough memory for the CG work arrays",
                  [&] {
                      ConjugateGradientArrays& work = arrays.conjugateGradient;
                      for (std::vector<double>* array :
                           {&work.rightSide, &work.residual, &work.direction, &work.preconditioned, &work.product}) {
                          fillLarge(*array, length);
                      }
                  });
    const std::size_t reals = 24 * m + 1320;  // ten stored corrections
    allocateGroup(run, "waBFGS:", 8.0 * static_cast<double>(reals), "Error: Not enough memory for the waBFGS array",
                  [&] { fillLarge(arrays.waBFGS, reals); });
    allocateGroup(run, "iwaBFGS:", 12.0 * static_cast<double>(m), "Error: Not enough memory for the iwaBFGS array",
                  [&] { fillLarge(arrays.iwaBFGS, 3 * m); });
}

// Space for the indices and values of `count` coefficients, with `headroomWords` more; false when it is refused. Not
// filled: the rows are read into it.
bool reserveCoefficients(SparseCoefStore& store, std::int64_t count, std::int64_t headroomWords) {
    try {
        reserveStore(store, count, headroomWords);
    } catch (const std::bad_alloc&) {
        return false;
    }
    return true;
}

// Compatibility: the size of the store passes through single precision.
double storeBytes(std::int64_t coefficients) {
    return static_cast<double>(4.0F * 2.0F * static_cast<float>(coefficients));
}

}  // namespace

void allocateObsArrays(RunState& run) {
    ObsSet& obs = run.obs;
    obs.nData = run.sensitivity.header.nData;
    obs.nDataTypes = run.control.nDataTypes;
    const std::size_t n = sizeOf(obs.nData);
    const std::size_t values = n * sizeOf(obs.nDataTypes);
    const auto bytes = [](double each, std::size_t count) { return each * static_cast<double>(count); };
    allocateGroup(run, "ObsX:", bytes(28.0, n), "Error: Not enough memory for the observed coord arrays", [&] {
        obs.ObsX.assign(n, 0.0);
        obs.ObsY.assign(n, 0.0);
        obs.ObsZ.assign(n, 0.0);
    });
    allocateGroup(run, "Obs data:", bytes(16.0, values), "Error: Not enough memory for the observed data arrays", [&] {
        obs.obsData.assign(values, 0.0);
        obs.predData.assign(values, 0.0);
    });
    allocateGroup(run, "Obs misfit:", bytes(12.0, values), "Error: Not enough memory for the observed misfit arrays",
                  [&] {
                      obs.obsStd.assign(values, 0.0F);
                      obs.refData.assign(values, 0.0);
                  });
    // Whether the file is of the downhole form is not known yet: every file of total field data gets the angles.
    if (run.sensitivity.header.dataType[0] == DataType::totalMagnetic) {
        allocateGroup(run, "Obs incl:", bytes(8.0, n), "Error: Not enough memory for the observed incl arrays", [&] {
            obs.obsIncl.assign(n, 0.0F);
            obs.obsDecl.assign(n, 0.0F);
        });
    }
    allocateGroup(run, "obsWork1:", bytes(4.0, values), "Error: Not enough memory for the observed work arrays",
                  [&] { obs.obsWork1.assign(values, 0.0); });
}

void allocateMeshArrays(RunState& run) {
    MeshGeometry& mesh = run.mesh;
    run.memoryTally = 0;
    const std::size_t ny = sizeOf(mesh.ny);
    const std::size_t nx = sizeOf(mesh.nx);
    const std::size_t nz = sizeOf(mesh.nz);
    allocateGroup(run, "", 24.0 * static_cast<double>(nx + ny + nz + 2),
                  "Error: Not enough memory for the meshnode arrays", [&] { sizeMeshArrays(mesh); });
    const std::size_t weights = mesh.cellCount() * sizeOf(run.control.nMtx);
    allocateGroup(run, "wtd:", 4.0 * static_cast<double>(weights),
                  "Error: Not enough memory for the depth weighting matrix",
                  [&] { fillLarge(run.sensitivity.depthWeight, weights); });
}

void allocateTopography(RunState& run) {
    allocateGroup(run, "", 0.0, "Error: Not enough memory for the UBC mesh topo array",
                  [&] { run.mesh.ubcTopo.resize(sizeOf(run.mesh.nx) * sizeOf(run.mesh.ny)); });
}

void allocateModelArrays(RunState& run) {
    run.memoryTally = 0;
    const ModelSizes sizes = modelSizesOf(run);
    allocateGroup(run, "", 0.0, "Error: Not enough memory for the wavelet data arrays", [&] {
        const std::size_t each = waveletWorkSize(paddedExtentsOf(run.mesh));
        run.sensitivity.waveletWork.assign(each * workersOfProcess().count, 0.0);
    });
    allocateWorkVectors(run, sizes);
    allocateSensitivityArrays(run, sizes);
    allocateOptimiserArrays(run, sizes);
}

void allocateCoefStore(RunState& run) {
    Sensitivity& sensitivity = run.sensitivity;
    SparseCoefStore& store = sensitivity.store;
    store.totalCoef = 0;
    for (const std::int64_t count : sensitivity.header.coefficientCount) {
        store.totalCoef += count;
    }
    sensitivity.idisk = 0;
    // With several ranks the rows of this one. The tally keeps those of all.
    const bool reserved = reserveCoefficients(store, store.rowOffset.back() - 1, headroomWordsFor(store.rowOffset));
    if (largestOfRanks(reserved ? 0 : 1) == 0) {
        run.memoryTally += storeBytes(store.totalCoef);
        return;
    }
    if (ranksOfRun().count > 1) {
        throw RunError(
            "not enough memory for the sensitivities; they need more processes on more machines, since several "
            "processes cannot read them from disk at every product");
    }
    // Compatibility: a run of exactly two files ends here; all others go on with the rows on disk.
    if (run.control.nMtx == 2) {
        screenAndLogLine(run.messages, " Not enough memory available to run the joint inversion");
        closeLineFile(run.messages.log);
        plainStop();
    }
    sensitivity.idisk = 1;
    screenAndLogLine(run.messages, " Not enough memory available so idisk was switched to 1");
    if (!reserveCoefficients(store, store.rowMax, 0)) {
        fatalStop(run.messages, withAllocatorText("Error: Not enough memory for the compression coefficient arrays",
                                                  std::bad_alloc()));
    }
    run.memoryTally += storeBytes(store.rowMax);
}

}  // namespace voxlith
