#include "sensitivity/gtg_diagonal.h"

#include <algorithm>
#include <bit>
#include <new>
#include <span>
#include <vector>

#include "base/messages.h"
#include "sensitivity/wavelet/wavelet.h"

namespace voxlith {

namespace {

struct DiagonalWork {
    std::vector<std::int32_t> coefIndex;
    std::vector<std::int32_t> coefValue;  // bits of real32
    std::vector<double> padded;
    std::vector<double> wavelet;
    std::vector<double> cells;
};

DiagonalWork makeDiagonalWork(const Sensitivity& sensitivity, const PaddedExtents& extents) {
    const auto rowMax = static_cast<std::size_t>(sensitivity.store.rowMax);
    DiagonalWork work;
    work.coefIndex.resize(rowMax);
    work.coefValue.resize(rowMax);
    work.padded.resize(extents.total());
    work.wavelet.resize(waveletWorkSize(extents));
    work.cells.resize(static_cast<std::size_t>(sensitivity.header.nCells));
    return work;
}

void addRows(Sensitivity& sensitivity, MtxInput& file, const MeshGeometry& mesh, DiagonalWork& work,
             std::span<double> diagonal) {
    const PaddedExtents extents = paddedExtentsOf(mesh);
    for (std::int32_t r = 0; r < sensitivity.header.nData; ++r) {
        std::fill(work.padded.begin(), work.padded.end(), 0.0);
        const std::size_t count = readRecordRow(file, {work.coefIndex, work.coefValue});
        for (std::size_t k = 0; k < count; ++k) {
            work.padded[static_cast<std::size_t>(work.coefIndex[k]) - 1] =
                static_cast<double>(std::bit_cast<float>(work.coefValue[k]));
        }
        waveletTransform3D(work.padded, extents, sensitivity.filter, WaveletDirection::inverse, work.wavelet);
        cropCells(work.padded, {}, mesh, work.cells);
        for (std::size_t c = 0; c < diagonal.size(); ++c) {
            diagonal[c] += work.cells[c] * work.cells[c];
        }
    }
}

}  // namespace

void computeGtgDiag(Sensitivity& sensitivity, std::size_t file, const MeshGeometry& mesh) {
    MtxInput& mtxFile = sensitivity.files[file];
    const auto cells = static_cast<std::size_t>(sensitivity.header.nCells);
    const auto diagonal = std::span(sensitivity.gtgdiag).subspan(file * cells, cells);
    std::fill(diagonal.begin(), diagonal.end(), 0.0);
    DiagonalWork work;
    try {
        work = makeDiagonalWork(sensitivity, paddedExtentsOf(mesh));
    } catch (const std::bad_alloc&) {
        throw RunError(mtxFile.input.name + ": not enough memory to compute gtgdiag from the rows");
    }
    rewindMtxRows(mtxFile);
    addRows(sensitivity, mtxFile, mesh, work, diagonal);
}

}  // namespace voxlith
