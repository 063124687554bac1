// Sensitivities for tests of the products, built without a sensitivity file: random sparse rows over a padded mesh, in
// memory or as the rows of a file on disk.
#pragma once

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <numeric>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "sensitivity/sensitivity.h"
#include "sensitivity/wavelet/wavelet.h"
#include "survey/mesh_geometry.h"

namespace voxlith::testing_support {

struct StoredRow {
    std::int32_t count = 0;  // as stored in the file
    std::vector<std::int32_t> index;
    std::vector<float> value;
};

inline std::vector<double> randomVector(std::size_t n, std::mt19937& random) {
    std::uniform_real_distribution<double> uniform(-1.0, 1.0);
    std::vector<double> values(n);
    for (double& value : values) {
        value = uniform(random);
    }
    return values;
}

inline WaveletFilter filterOf(std::vector<float> low) {
    WaveletFilter filter;
    filter.coefHigh = mirrorTaps(low);
    filter.coefLow = std::move(low);
    return filter;
}

inline WaveletFilter daubechies(int taps) {
    switch (taps) {
        case 4:
            return filterOf({0.48296291F, 0.83651630F, 0.22414387F, -0.12940952F});
        case 6:
            return filterOf({0.33267055F, 0.80689151F, 0.45987750F, -0.13501102F, -0.08544127F, 0.03522629F});
        default:
            return filterOf({0.23037781F, 0.71484657F, 0.63088077F, -0.02798377F, -0.18703481F, 0.03084138F,
                             0.03288301F, -0.01059740F});
    }
}

inline MeshGeometry meshOf(std::array<std::int32_t, 3> cellsZXY, std::array<std::int32_t, 3> paddedZXY) {
    MeshGeometry mesh;
    mesh.nz = cellsZXY[0];
    mesh.nx = cellsZXY[1];
    mesh.ny = cellsZXY[2];
    mesh.npz = paddedZXY[0];
    mesh.npx = paddedZXY[1];
    mesh.npy = paddedZXY[2];
    mesh.nzl = mesh.npz < mesh.nz ? mesh.npz : mesh.nz;
    return mesh;
}

// Rows of distinct random column indices; row `emptyRow` (if there is one) is empty.
inline std::vector<StoredRow> randomRows(std::size_t nData, std::size_t columns, std::size_t longest,
                                         std::mt19937& random, std::size_t emptyRow = SIZE_MAX) {
    std::uniform_real_distribution<float> uniform(-1.0F, 1.0F);
    std::vector<std::int32_t> all(columns);
    std::iota(all.begin(), all.end(), 1);
    std::vector<StoredRow> rows(nData);
    for (std::size_t r = 0; r < nData; ++r) {
        if (r == emptyRow) {
            continue;
        }
        const std::size_t count = 1 + random() % longest;
        std::shuffle(all.begin(), all.end(), random);
        for (std::size_t p = 0; p < count && p < columns; ++p) {
            rows[r].index.push_back(all[p]);
            rows[r].value.push_back(uniform(random));
        }
        rows[r].count = static_cast<std::int32_t>(rows[r].index.size());
    }
    return rows;
}

// Everything but the rows.
inline void prepareSensitivity(Sensitivity& sensitivity, const MeshGeometry& mesh, std::int32_t nData,
                               std::int32_t nMtx, const WaveletFilter& filter) {
    const auto widest = static_cast<std::size_t>(mesh.npz > mesh.nz ? mesh.npz : mesh.nz);
    const std::size_t padded = static_cast<std::size_t>(mesh.npx) * static_cast<std::size_t>(mesh.npy) * widest;
    sensitivity.header.nData = nData;
    sensitivity.header.nCells = static_cast<std::int32_t>(mesh.cellCount());
    sensitivity.header.nPadded = std::int64_t{mesh.npx} * mesh.npy * mesh.npz;
    sensitivity.header.nPadTotal = static_cast<std::int64_t>(padded);
    for (MtxInput& file : sensitivity.files) {
        file.header.form = MtxForm::bare;
        file.header.cells = {mesh.ny, mesh.nx, mesh.nz};
        file.header.padded = {mesh.npy, mesh.npx, mesh.npz};
    }
    sensitivity.filter = filter;
    sensitivity.nMtx = nMtx;
    sensitivity.paddedWork.assign(padded, 0.0);
    sensitivity.waveletWork.assign(waveletWorkSize(paddedExtentsOf(mesh)), 0.0);
    sensitivity.productResponse.assign(static_cast<std::size_t>(nData) * 6, 0.0);
    sensitivity.depthWeight.clear();
    for (std::size_t i = 0; i < static_cast<std::size_t>(nMtx) * mesh.cellCount(); ++i) {
        sensitivity.depthWeight.push_back(0.5F + static_cast<float>(i % 7) * 0.25F);
    }
}

inline void storeRowsInMemory(Sensitivity& sensitivity, const std::vector<std::vector<StoredRow>>& files) {
    SparseCoefStore& store = sensitivity.store;
    store.rowOffset.clear();
    store.blocked.clear();
    store.totalCoef = 0;
    for (const std::vector<StoredRow>& rows : files) {
        store.rowOffset.push_back(store.totalCoef + 1);
        for (const StoredRow& row : rows) {
            store.totalCoef += static_cast<std::int64_t>(row.index.size());
            store.rowOffset.push_back(store.totalCoef + 1);
        }
    }
    reserveRows(store);
    std::size_t entry = 0;
    for (const std::vector<StoredRow>& rows : files) {
        for (const StoredRow& row : rows) {
            const RawRow raw = rawRowOf(store, entry++);
            std::copy(row.index.begin(), row.index.end(), raw.coefIndex.begin());
            std::transform(row.value.begin(), row.value.end(), raw.coefValue.begin(),
                           [](float value) { return std::bit_cast<std::int32_t>(value); });
        }
        ++entry;
    }
    sensitivity.idisk = 0;
}

// The bytes of the rows, each framed by its length in the record form.
inline std::string rowBytes(const std::vector<StoredRow>& rows, bool framed) {
    std::string bytes;
    const auto append = [&bytes](const void* from, std::size_t count) {
        bytes.append(static_cast<const char*>(from), count);
    };
    for (const StoredRow& row : rows) {
        const auto length = static_cast<std::int32_t>(4 + 8 * row.index.size());
        if (framed) {
            append(&length, sizeof length);
        }
        append(&row.count, sizeof row.count);
        append(row.index.data(), row.index.size() * sizeof(std::int32_t));
        append(row.value.data(), row.value.size() * sizeof(float));
        if (framed) {
            append(&length, sizeof length);
        }
    }
    return bytes;
}

}  // namespace voxlith::testing_support
