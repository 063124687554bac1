// A small inversion of random numbers, complete in memory: mesh, sensitivities, data, weights, bounds and all arrays of
// the engine. Nothing is read from a file.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <random>
#include <span>
#include <string>
#include <vector>

#include "base/line_file.h"
#include "base/messages.h"
#include "inversion/inversion_problem.h"
#include "optim/optimiser_step.h"
#include "sensitivity/products.h"
#include "support/random_sensitivity.h"
#include "survey/dummy_value.h"

namespace voxlith::testing_support {

struct SmallOptions {
    std::array<std::int32_t, 3> cellsZXY{4, 3, 5};
    std::array<std::int32_t, 3> paddedZXY{4, 4, 8};
    std::int32_t nData = 12;
    std::int32_t nDataTypes = 1;
    std::int32_t nMtx = 1;
    std::int32_t nModelTypes = 1;
    InversionStyle inversionStyle = InversionStyle::standard;
    Positivity positivity = Positivity::unconstrained;
    double multiplier = 0.5;
    bool fold = true;
    bool unitWidths = false;
    bool amplitude = false;  // three files on one model, combined to one component
    unsigned seed = 1;
};

struct SmallProblem {
    explicit SmallProblem(const SmallOptions& options);

    SmallOptions options;
    MeshGeometry mesh;
    Sensitivity sensitivity;
    ObsSet obs;
    ProductTables products;
    LineIntegration lines;
    SmoothnessWeights weights;
    ModelBounds bounds;
    InversionArrays arrays;
    OverheadTimers timers;
    Messages messages;
    LineFile progressTable;
    InversionOptions inversion;  // what problem() refers to

    std::size_t cells() const { return mesh.cellCount(); }
    std::size_t modelSize() const { return cells() * static_cast<std::size_t>(options.nModelTypes); }
    std::size_t dataSize() const { return obs.obsData.size(); }
    // Position of cell (k, i, j) of a model type, all from 0.
    std::size_t at(std::size_t k, std::size_t i, std::size_t j, std::size_t type = 0) const {
        return type * cells() + mesh.cellIndex(k, i, j);
    }

    // Takes over what `options` says of the inversion; the rest of `inversion` stays.
    InversionProblem problem();

    // Stations on `nLines` lines of equal length, one time unit apart, with the interval and the windows of the adjoint
    // that spread a station over itself and its two neighbours.
    void setLines(std::int32_t nLines, float interval);
    // As a dummy is read.
    void maskDatum(std::size_t component, std::size_t station);
    // Data that the model `truth` explains exactly.
    void explainDataBy(std::span<const double> truth);
};

namespace detail {

inline std::vector<float> positiveWeights(std::size_t n, float scale, std::mt19937& random) {
    std::uniform_real_distribution<float> uniform(0.5F, 1.5F);
    std::vector<float> values(n);
    for (float& value : values) {
        value = scale * uniform(random);
    }
    return values;
}

inline std::vector<double> nodesOf(std::int32_t cells, bool unitWidths, std::mt19937& random) {
    std::uniform_real_distribution<double> uniform(0.5, 2.0);
    std::vector<double> nodes{100.0};
    for (std::int32_t n = 0; n < cells; ++n) {
        nodes.push_back(nodes.back() + (unitWidths ? 1.0 : uniform(random)));
    }
    return nodes;
}

inline MeshGeometry randomMesh(const SmallOptions& options, std::mt19937& random) {
    MeshGeometry mesh = meshOf(options.cellsZXY, options.paddedZXY);
    if (coversWholeMesh(options.inversionStyle)) {
        mesh.nzl = mesh.nz;
    }
    mesh.xNode = nodesOf(mesh.nx, options.unitWidths, random);
    mesh.yNode = nodesOf(mesh.ny, options.unitWidths, random);
    mesh.zNode = nodesOf(mesh.nz, options.unitWidths, random);
    const auto size = [](std::int32_t n) { return static_cast<std::size_t>(n); };
    for (auto* widths : {&mesh.xWidth, &mesh.xCentre}) {
        widths->resize(size(mesh.nx));
    }
    for (auto* widths : {&mesh.yWidth, &mesh.yCentre}) {
        widths->resize(size(mesh.ny));
    }
    for (auto* widths : {&mesh.zWidth, &mesh.zCentre}) {
        widths->resize(size(mesh.nz));
    }
    buildMeshArrays(mesh);
    return mesh;
}

inline ProductTables defaultProducts(const SmallOptions& options) {
    ProductTables tables;
    if (options.amplitude) {
        for (std::int32_t part = 0; part < 3; ++part) {
            tables.products.push_back({part, 0, 0});
            tables.terms[0].push_back({part, 0, part, 0.5 + 0.25 * part});
        }
        tables.isAmplitude[0] = true;
        return tables;
    }
    // Component c sees model type c (or the last one) through file c, and with several types also type 1, at half
    // weight.
    for (std::int32_t c = 0; c < options.nDataTypes; ++c) {
        const std::int32_t file = std::min(c, options.nMtx - 1);
        const std::int32_t type = std::min(c, options.nModelTypes - 1);
        const auto number = [&](std::int32_t model) {
            for (std::size_t k = 0; k < tables.products.size(); ++k) {
                if (tables.products[k].mtx == file && tables.products[k].model == model) {
                    return static_cast<std::int32_t>(k);
                }
            }
            tables.products.push_back({file, model, c});
            return static_cast<std::int32_t>(tables.products.size() - 1);
        };
        auto& terms = tables.terms[static_cast<std::size_t>(c)];
        terms.push_back({file, type, number(type), 1.0});
        if (type > 0) {
            terms.push_back({file, 0, number(0), 0.5});
        }
    }
    return tables;
}

inline void fillObs(SmallProblem& small, std::mt19937& random) {
    ObsSet& obs = small.obs;
    obs.nData = small.options.nData;
    obs.nDataTypes = small.options.nDataTypes;
    const std::size_t n = static_cast<std::size_t>(obs.nData) * static_cast<std::size_t>(obs.nDataTypes);
    obs.ObsX = randomVector(static_cast<std::size_t>(obs.nData), random);
    obs.ObsY = randomVector(static_cast<std::size_t>(obs.nData), random);
    obs.ObsZ = randomVector(static_cast<std::size_t>(obs.nData), random);
    obs.obsData = randomVector(n, random);
    obs.refData = randomVector(n, random);
    for (double& value : obs.refData) {
        value *= 0.1;
    }
    obs.predData.assign(n, 0.0);
    obs.obsWork1.assign(n, 0.0);
    obs.obsStd = positiveWeights(n, 1.0F, random);
}

inline void fillSensitivity(SmallProblem& small, std::mt19937& random) {
    const MeshGeometry& mesh = small.mesh;
    const SmallOptions& options = small.options;
    Sensitivity& sensitivity = small.sensitivity;
    prepareSensitivity(sensitivity, mesh, options.nData, options.nMtx, daubechies(4));
    const auto positions =
        static_cast<std::size_t>(mesh.npx) * static_cast<std::size_t>(mesh.npy) * static_cast<std::size_t>(mesh.npz);
    std::vector<std::vector<StoredRow>> files;
    for (std::int32_t file = 0; file < options.nMtx; ++file) {
        files.push_back(randomRows(static_cast<std::size_t>(options.nData), positions, positions / 2, random));
    }
    storeRowsInMemory(sensitivity, files);
    sensitivity.foldDepthWeight = options.fold;
    sensitivity.header.inversionStyle = options.inversionStyle;
    sensitivity.header.version = 2;
    const std::size_t cells = mesh.cellCount() * static_cast<std::size_t>(options.nMtx);
    sensitivity.depthWeight = positiveWeights(cells, 1.0F, random);
    sensitivity.gtgdiag.resize(cells);
    for (double& value : sensitivity.gtgdiag) {
        value = 0.5 + std::uniform_real_distribution<double>(0.0, 1.0)(random);
    }
    sensitivity.layerResponse =
        randomVector((static_cast<std::size_t>(mesh.nzl) + 1) * static_cast<std::size_t>(options.nData) *
                         static_cast<std::size_t>(options.nMtx),
                     random);
}

inline void fillArrays(SmallProblem& small, std::mt19937& random) {
    const std::size_t cells = small.cells(), size = small.modelSize();
    small.weights.wtS = positiveWeights(cells, 0.3F, random);
    small.weights.wtE = positiveWeights(cells, 0.4F, random);
    small.weights.wtN = positiveWeights(cells, 0.5F, random);
    small.weights.wtZ = positiveWeights(cells, 0.6F, random);
    small.bounds.boundType.assign(size, boundNone);
    small.bounds.fixedCell.assign(size, 0);
    small.bounds.lowerBound.assign(size, 0.0);
    small.bounds.upperBound.assign(size, 0.0);

    InversionArrays& arrays = small.arrays;
    arrays.model = randomVector(size, random);
    arrays.refModel = randomVector(size, random);
    arrays.maxStep.assign(size, 1.0);
    arrays.delm.assign(std::max(size, static_cast<std::size_t>(small.options.nData * small.options.nMtx)), 0.0);
    arrays.adjointSum.assign(size, 0.0);
    arrays.trialModel.assign(size, 0.0);
    ConjugateGradientArrays& work = arrays.conjugateGradient;
    for (auto* array : {&work.rightSide, &work.residual, &work.direction, &work.preconditioned, &work.product}) {
        array->assign(std::max(size, small.dataSize()), 0.0);
    }
    const auto variables = static_cast<std::int64_t>(size);
    arrays.waBFGS.assign(static_cast<std::size_t>(optimiserRealWorkspace(variables, 10)), 0.0);
    arrays.iwaBFGS.assign(static_cast<std::size_t>(optimiserIntegerWorkspace(variables)), 0);
    arrays.regDiag.assign(cells, 0.0F);
    arrays.precond.assign(cells, 0.0F);
}

}  // namespace detail

inline SmallProblem::SmallProblem(const SmallOptions& wanted) : options(wanted) {
    if (options.amplitude) {
        options.nMtx = 3;
    }
    std::mt19937 random(options.seed);
    mesh = detail::randomMesh(options, random);
    detail::fillObs(*this, random);
    detail::fillSensitivity(*this, random);
    products = detail::defaultProducts(options);
    inversion.maxIterations = 3;
    detail::fillArrays(*this, random);
}

inline InversionProblem SmallProblem::problem() {
    inversion.nModelTypes = options.nModelTypes;
    inversion.positivity = options.positivity;
    inversion.multiplier = options.multiplier;
    return {inversion, mesh, weights, products, sensitivity, obs, lines, bounds, arrays, timers};
}

inline void SmallProblem::setLines(std::int32_t nLines, float interval) {
    const std::int32_t perLine = obs.nData / nLines;
    const auto width = static_cast<std::size_t>(perLine);
    obs.nLines = nLines;
    obs.maxLineData = perLine;
    obs.lineCount.assign(static_cast<std::size_t>(nLines), perLine);
    obs.lineName.assign(static_cast<std::size_t>(nLines), {});
    obs.dataLine.assign(static_cast<std::size_t>(obs.nData), 0);
    obs.obsTime.assign(static_cast<std::size_t>(obs.nData), 0.0);
    obs.lineFirstLast.clear();
    lines.integrationInterval = interval;
    lines.lineTime.assign(width * static_cast<std::size_t>(nLines), 0.0);
    lines.windowRange.assign(width * static_cast<std::size_t>(nLines), {});
    lines.maxWindow = 3;
    lines.windowWeight.assign(3 * width * static_cast<std::size_t>(nLines), 0.25);
    lines.splineTable.assign(4 * width, 0.0);
    for (std::int32_t line = 0; line < nLines; ++line) {
        obs.lineFirstLast.push_back({line * perLine + 1, (line + 1) * perLine});
        LineName& name = obs.lineName[static_cast<std::size_t>(line)];
        name.fill(' ');
        name[0] = 'L';
        name[1] = static_cast<char>('1' + line);
        for (std::int32_t station = 0; station < perLine; ++station) {
            const std::int32_t number = line * perLine + station;
            const auto record = static_cast<std::size_t>(number);
            obs.dataLine[record] = line + 1;
            obs.obsTime[record] = lines.lineTime[record] = 10.0 * line + station;
            if (station > 0 && station + 1 < perLine) {
                lines.windowRange[record] = {station, station + 2, 3};
                ++lines.nWindows;
            }
        }
    }
}

inline void SmallProblem::maskDatum(std::size_t component, std::size_t station) {
    obs.obsData[obs.index(component, station)] = dummyValue;
    obs.obsStd[obs.index(component, station)] = 0.0F;
}

inline void SmallProblem::explainDataBy(std::span<const double> truth) {
    forwardData(sensitivity, mesh, products, obs, lines, truth, obs.predData, obs.obsData, obs.refData, timers);
    obs.obsData = obs.predData;
}

// On the heap: the references of problem() point into it.
inline std::unique_ptr<SmallProblem> makeSmallProblem(const SmallOptions& options = {}) {
    return std::make_unique<SmallProblem>(options);
}

}  // namespace voxlith::testing_support
