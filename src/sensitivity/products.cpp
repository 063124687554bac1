#include "sensitivity/products.h"

#include <algorithm>
#include <cassert>

#include "base/ranks.h"
#include "base/workers.h"
#include "sensitivity/row_loading.h"
#include "sensitivity/rows/blocked_products.h"
#include "sensitivity/rows/disk_rows.h"
#include "sensitivity/rows/row_kernels.h"

namespace voxlith {

namespace {

void clear(std::span<double> values) {
    forEachRange(values.size(), [&](std::size_t first, std::size_t end) {
        std::fill(values.begin() + static_cast<std::ptrdiff_t>(first),
                  values.begin() + static_cast<std::ptrdiff_t>(end), 0.0);
    });
}

// Rows that are not blocked yet are multiplied one by one.
void multiplyInMemory(Sensitivity& sensitivity, std::size_t mtx, std::span<double> out) {
    SparseCoefStore& store = sensitivity.store;
    if (!store.blocked.empty()) {
        const BlockedRows& rows = store.blocked[mtx];
        gatherUsed(rows, sensitivity.paddedWork, store.compact);
        const bool finite = allFinite(std::span<const double>(store.compact).first(rows.usedColumns.size()));
        multiplyShared(rows, wordsOf(store), store.compact, finite, out);
        if (const std::size_t ranks = ranksOfRun().count; ranks > 1) {
            ranksOfRun().gather(out, std::span(store.firstRowOfRank).subspan(mtx * (ranks + 1), ranks + 1));
        }
        return;
    }
    const RowKernels& kernels = rowKernels();
    const auto nData = static_cast<std::size_t>(sensitivity.header.nData);
    for (std::size_t r = 0; r < nData; ++r) {
        const RawRow row = rawRowOf(store, mtx * (nData + 1) + r);
        out[r] = kernels.multiply(row.coefIndex.data(), row.coefValue.data(), row.coefIndex.size(),
                                  sensitivity.paddedWork.data());
    }
}

// Values of the padded array below `cleared` begin as 0.
// Compatibility: dense rows of surface styles reach further, and add to what earlier products have left there.
void scatterFromMemory(Sensitivity& sensitivity, std::size_t mtx, std::span<const double> residual,
                       std::size_t cleared) {
    SparseCoefStore& store = sensitivity.store;
    if (!store.blocked.empty()) {
        const BlockedRows& rows = store.blocked[mtx];
        if (!rows.usedColumns.empty() && static_cast<std::size_t>(rows.usedColumns.back()) >= cleared) {
            clear(std::span(sensitivity.paddedWork).first(cleared));
            gatherUsed(rows, sensitivity.paddedWork, store.compact);
        } else {
            clear(store.compact);
        }
        if (ranksOfRun().count > 1) {
            multiplyTransposedAlongRanks(rows, wordsOf(store), residual, allFinite(residual), store.compact);
        } else {
            multiplyTransposedShared(rows, wordsOf(store), residual, allFinite(residual), store.compact);
        }
        scatterUsed(rows, store.compact, cleared, sensitivity.paddedWork);
        return;
    }
    clear(std::span(sensitivity.paddedWork).first(cleared));
    const RowKernels& kernels = rowKernels();
    const auto nData = static_cast<std::size_t>(sensitivity.header.nData);
    for (std::size_t r = 0; r < nData; ++r) {
        const RawRow row = rawRowOf(store, mtx * (nData + 1) + r);
        kernels.addTransposed(row.coefIndex.data(), row.coefValue.data(), row.coefIndex.size(), residual[r],
                              sensitivity.paddedWork.data());
    }
}

void multiplyFromDisk(Sensitivity& sensitivity, std::size_t mtx, std::span<const float> obsStd, std::span<double> out) {
    const RowKernels& kernels = rowKernels();
    rewindMtxRows(sensitivity.files[mtx]);
    const auto nData = static_cast<std::size_t>(sensitivity.header.nData);
    for (std::size_t r = 0; r < nData; ++r) {
        const MtxRowView row = readNextRow(sensitivity, mtx);
        const double sum = kernels.multiply(row.coefIndex, row.coefValue, row.count, sensitivity.paddedWork.data());
        out[r] = sum / static_cast<double>(obsStd[r]);
    }
}

void scatterFromDisk(Sensitivity& sensitivity, std::size_t mtx, std::span<const float> obsStd,
                     std::span<const double> residual) {
    const RowKernels& kernels = rowKernels();
    rewindMtxRows(sensitivity.files[mtx]);
    const auto nData = static_cast<std::size_t>(sensitivity.header.nData);
    for (std::size_t r = 0; r < nData; ++r) {
        const MtxRowView row = readNextRow(sensitivity, mtx);
        // A masked datum has the standard deviation 0: its residual of 0 would become 0/0 and every cell no number.
        if (residual[r] == 0.0) {
            continue;
        }
        const double factor = residual[r] / static_cast<double>(obsStd[r]);
        kernels.addTransposed(row.coefIndex, row.coefValue, row.count, factor, sensitivity.paddedWork.data());
    }
}

}  // namespace

void modelProduct(Sensitivity& sensitivity, const MeshGeometry& mesh, std::span<const double> model,
                  std::span<double> out, std::size_t mtx, std::span<const float> obsStd, OverheadTimers& timers) {
    const double start = clockSeconds();
    assert(model.size() == mesh.cellCount() && mtx < static_cast<std::size_t>(sensitivity.nMtx));
    assert(out.size() == static_cast<std::size_t>(sensitivity.header.nData));
    // Compatibility: all files take the depth weight of the first here.
    // The transposed product, and this one with ownDepthWeights, take each file's own.
    const std::span<const float> weight = sensitivity.foldDepthWeight
                                              ? std::span<const float>()
                                              : sensitivity.depthWeightOf(sensitivity.ownDepthWeights ? mtx : 0);
    padCells(model, weight, mesh, sensitivity.paddedWork);
    waveletTransform3D(sensitivity.paddedWork, paddedExtentsOf(mesh), sensitivity.filter, WaveletDirection::forward,
                       sensitivity.waveletWork);
    if (sensitivity.idisk == 0) {
        const double passStart = clockSeconds();
        multiplyInMemory(sensitivity, mtx, out);
        timers.matrixPass += clockSeconds() - passStart;
    } else {
        multiplyFromDisk(sensitivity, mtx, obsStd, out);
    }
    timers.products += clockSeconds() - start;
}

void transposeProduct(Sensitivity& sensitivity, const MeshGeometry& mesh, std::span<const double> residual,
                      std::span<double> gradient, std::size_t mtx, std::span<const float> obsStd,
                      OverheadTimers& timers) {
    const double start = clockSeconds();
    assert(gradient.size() == mesh.cellCount() && mtx < static_cast<std::size_t>(sensitivity.nMtx));
    assert(residual.size() == static_cast<std::size_t>(sensitivity.header.nData));
    const PaddedExtents extents = paddedExtentsOf(mesh);
    if (sensitivity.idisk == 0) {
        const double passStart = clockSeconds();
        scatterFromMemory(sensitivity, mtx, residual, extents.total());
        timers.transposePass += clockSeconds() - passStart;
    } else {
        clear(std::span(sensitivity.paddedWork).first(extents.total()));
        scatterFromDisk(sensitivity, mtx, obsStd, residual);
    }
    waveletTransform3D(sensitivity.paddedWork, extents, sensitivity.filter, WaveletDirection::inverse,
                       sensitivity.waveletWork);
    const std::span<const float> weight =
        sensitivity.foldDepthWeight ? std::span<const float>() : sensitivity.depthWeightOf(mtx);
    cropCells(sensitivity.paddedWork, weight, mesh, gradient);
    timers.products += clockSeconds() - start;
}

void buildBlockedRows(Sensitivity& sensitivity, std::span<const float> obsStd) {
    if (sensitivity.idisk != 0) {
        return;
    }
    const auto nData = static_cast<std::size_t>(sensitivity.header.nData);
    const auto files = static_cast<std::size_t>(sensitivity.nMtx);
    const std::size_t paddedCount = sensitivity.paddedWork.size();
    const bool sameLayout = buildBlockedRows(sensitivity.store, nData, files, paddedCount, obsStd);
    if (largestOfRanks(sameLayout ? 0 : 1) > 0) {
        reserveRows(sensitivity.store, RankOrder::inTurn);
        loadRows(sensitivity);
        buildBlockedRows(sensitivity.store, nData, files, paddedCount, obsStd, RankOrder::inTurn);
    }
}

}  // namespace voxlith
