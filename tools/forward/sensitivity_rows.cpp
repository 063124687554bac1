#include "forward/sensitivity_rows.h"

#include <algorithm>
#include <string>

#include "base/messages.h"
#include "formats/mtx/mtx_writer.h"
#include "forward/ordered_pipeline.h"
#include "forward/prism.h"
#include "forward/progress_line.h"

namespace voxlith {

namespace {

void resizeWork(const MeshGeometry& mesh, RowWork& work) {
    work.cells.resize(mesh.cellCount());
    work.padded.resize(paddedExtentsOf(mesh).total());
    work.waveletWork.resize(waveletWorkSize(paddedExtentsOf(mesh)));
    work.layers.resize(static_cast<std::size_t>(mesh.nzl) + 1);
}

// Response of each layer that the file covers, and of the whole mesh, for unit property.
void sumLayers(std::span<const double> cells, std::size_t nz, std::span<double> layers) {
    std::fill(layers.begin(), layers.end(), 0.0);
    const std::size_t covered = layers.size() - 1;
    for (std::size_t column = 0; column < cells.size(); column += nz) {
        for (std::size_t k = 0; k < nz; ++k) {
            const double cell = cells[column + k];
            if (k < covered) {
                layers[k] += cell;
            }
            layers[covered] += cell;
        }
    }
}

// Adds the responses of the layers below layer `last` (from 0) to those of `last`.
void sumColumnsFrom(std::span<double> cells, std::size_t nz, std::size_t last) {
    for (std::size_t column = 0; column < cells.size(); column += nz) {
        for (std::size_t k = last + 1; k < nz; ++k) {
            cells[column + last] += cells[column + k];
        }
    }
}

// The row as a reader of the file gets it, into work.cells.
void reconstructRow(const MtxContent& content, RowWork& work) {
    std::fill(work.padded.begin(), work.padded.end(), 0.0);
    for (std::size_t n = 0; n < work.compressed.coefIndex.size(); ++n) {
        const auto index = static_cast<std::size_t>(work.compressed.coefIndex[n]) - 1;
        work.padded[index] = static_cast<double>(work.compressed.coefValue[n]);
    }
    waveletTransform3D(work.padded, paddedExtentsOf(content.survey.mesh), content.filter, WaveletDirection::inverse,
                       work.waveletWork);
    cropCells(work.padded, {}, content.survey.mesh, work.cells);
}

void fillInactiveDiagonal(const Ground& ground, std::size_t nz, std::span<double> gtgdiag) {
    double sum = 0, cells = 0;
    for (std::size_t cell = 0; cell < gtgdiag.size(); ++cell) {
        if (!ground.isInactive(cell, nz)) {
            sum += gtgdiag[cell];
            cells += 1;
        }
    }
    const double mean = sum > 0 ? sum / cells : 1.0;
    for (std::size_t cell = 0; cell < gtgdiag.size(); ++cell) {
        gtgdiag[cell] = ground.isInactive(cell, nz) ? mean : gtgdiag[cell];
    }
}

}  // namespace

void computeLayerResponses(const MtxContent& content, std::size_t station, RowWork& work) {
    const Survey& survey = content.survey;
    resizeWork(survey.mesh, work);
    meshResponses(survey.mesh, survey.stations[station].point, weightsOfStation(survey, station), survey.edgeDistance,
                  work.prisms, work.cells);
    clearInactive(survey.ground, survey.mesh.zCentre.size(), work.cells);
    sumLayers(work.cells, survey.mesh.zCentre.size(), work.layers);
}

void computeRow(const MtxContent& content, bool sumBelow, double tolerance, std::size_t station, RowWork& work) {
    const Survey& survey = content.survey;
    const MeshGeometry& mesh = survey.mesh;
    const std::size_t nz = mesh.zCentre.size();
    computeLayerResponses(content, station, work);
    if (sumBelow) {
        sumColumnsFrom(work.cells, nz, static_cast<std::size_t>(mesh.npz) - 1);
    }
    for (std::size_t cell = 0; cell < work.cells.size(); ++cell) {
        work.cells[cell] /= static_cast<double>(content.cellWeights[cell]);
    }
    padCells(work.cells, {}, mesh, work.padded);
    waveletTransform3D(work.padded, paddedExtentsOf(mesh), content.filter, WaveletDirection::forward, work.waveletWork);
    try {
        compressRow(work.padded, tolerance, work.compression, work.compressed);
    } catch (const RunError& error) {
        throw RunError("station " + std::to_string(station + 1) + ": " + error.what());
    }
    reconstructRow(content, work);
}

namespace {

// A stored row as computeRow leaves it.
void takeStoredRow(const MtxContent& content, const StoredRows& stored, std::size_t row, RowWork& work) {
    const MeshGeometry& mesh = content.survey.mesh;
    resizeWork(mesh, work);
    readStoredRow(stored, row, work.padded.size(), work.compressed);
    std::copy_n(stored.layers.begin() + static_cast<std::ptrdiff_t>(row * work.layers.size()), work.layers.size(),
                work.layers.begin());
    reconstructRow(content, work);
}

void addToStatistics(const CompressedRow& row, RowStatistics& statistics) {
    statistics.coefficients += static_cast<std::int64_t>(row.coefIndex.size());
    if (row.loss >= 0) {
        statistics.largestLoss = std::max(statistics.largestLoss, row.loss);
        statistics.meanLoss += row.loss;
        ++statistics.rowsWithLoss;
    }
}

}  // namespace

RowStatistics writeAllRows(OutputFile& file, const MtxContent& content, bool sumBelow, double tolerance,
                           std::size_t threads, const RowSources& sources, std::span<double> gtgdiag,
                           std::span<double> layerResponse) {
    const std::size_t count = content.survey.stations.size();
    const std::size_t slots = std::min(threads, count);
    std::vector<RowWork> work(slots);
    std::fill(gtgdiag.begin(), gtgdiag.end(), 0.0);
    RowStatistics statistics;
    ProgressLine progress("rows", count);
    computeInOrder(
        count, slots,
        [&](std::size_t slot, std::size_t row) {
            if (sources.stored != nullptr && sources.stored->holds(row)) {
                takeStoredRow(content, *sources.stored, row, work[slot]);
            } else {
                computeRow(content, sumBelow, tolerance, row, work[slot]);
            }
        },
        [&](std::size_t slot, std::size_t row) {
            const RowWork& done = work[slot];
            if (row >= sources.inFile) {
                writeMtxRow(file, content.form, done.compressed.coefIndex, done.compressed.coefValue);
                if (sources.journal != nullptr) {
                    appendToJournal(*sources.journal, done.compressed, done.layers);
                }
            }
            for (std::size_t cell = 0; cell < gtgdiag.size(); ++cell) {
                gtgdiag[cell] += done.cells[cell] * done.cells[cell];
            }
            std::copy(done.layers.begin(), done.layers.end(),
                      layerResponse.begin() + static_cast<std::ptrdiff_t>(row * done.layers.size()));
            addToStatistics(done.compressed, statistics);
            progress.show(row + 1);
        });
    statistics.meanLoss /= std::max(1.0, static_cast<double>(statistics.rowsWithLoss));
    if (content.survey.ground.hasInactive()) {
        fillInactiveDiagonal(content.survey.ground, content.survey.mesh.zCentre.size(), gtgdiag);
    }
    return statistics;
}

}  // namespace voxlith
