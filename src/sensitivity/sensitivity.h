// What the run holds of its sensitivity files: the header values, the compressed rows (in memory or on disk), depth
// weights, the diagonal of G'G, layer responses, and the work arrays of the products.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "base/large_array.h"
#include "formats/mtx/mtx_reader.h"
#include "sensitivity/rows/coef_store.h"
#include "sensitivity/wavelet/wavelet.h"
#include "survey/data_types.h"
#include "survey/inversion_style.h"

namespace voxlith {

struct SensitivityHeader {
    // One set for the run
    std::int32_t nData = 0;
    std::int32_t nCells = 0;
    std::int64_t nPadded = 0;    // npx npy npz: coefIndex stays within it
    std::int64_t nPadTotal = 0;  // npx npy max(npz, nz); for the record form npx npy npz once gtgdiag is computed
    InversionStyle inversionStyle = InversionStyle::standard;
    std::int32_t version = 0;  // of the last file read

    // By file, from 0
    std::array<DataType, maxFiles> dataType{};
    std::array<float, maxFiles> weightParamA{};
    std::array<float, maxFiles> weightParamB{};
    std::array<std::int64_t, maxFiles> coefficientCount{};
};

struct Sensitivity {
    SensitivityHeader header;
    WaveletFilter filter;
    SparseCoefStore store;
    std::array<MtxInput, maxFiles> files;
    std::int32_t nMtx = 1;
    std::int32_t idisk = 0;        // 0: rows in memory; 1: rows read from disk at every product
    bool foldDepthWeight = true;   // the inversion variable holds the depth weight already
    bool ownDepthWeights = false;  // without folding, forward products take each file's own depth weight

    std::vector<float> depthWeight;     // (k, i, j) by file
    std::vector<double> gtgdiag;        // (k, i, j) by file
    std::vector<double> layerResponse;  // (nzl + 1) by datum by file

    // Work arrays of the products: shared, so products are not reentrant
    LargeArray<double> paddedWork;  // padded array
    std::vector<double> waveletWork;
    std::vector<double> productResponse;  // (nData) by product, three columns at least when there is amplitude data

    std::span<const float> depthWeightOf(std::size_t file) const {
        const auto n = static_cast<std::size_t>(header.nCells);
        return std::span(depthWeight).subspan(file * n, n);
    }
};

}  // namespace voxlith
