#include "sensitivity/row_kernels.h"

namespace voxlith {

namespace {

struct RowPlace {
    std::size_t first;
    std::size_t count;
};

RowPlace placeOfRow(const SparseRows& rows, std::size_t r) {
    return {static_cast<std::size_t>(rows.rowOffset[r] - 1),
            static_cast<std::size_t>(rows.rowOffset[r + 1] - rows.rowOffset[r])};
}

}  // namespace

double rowTimesPadded(const std::int32_t* coefIndex, const float* coefValue, std::size_t n, const double* padded) {
    double sum = 0.0;
    for (std::size_t p = 0; p < n; ++p) {
        sum += static_cast<double>(coefValue[p]) * padded[coefIndex[p] - 1];
    }
    return sum;
}

void addRowTransposed(const std::int32_t* coefIndex, const float* coefValue, std::size_t n, double factor,
                      double* padded) {
    for (std::size_t p = 0; p < n; ++p) {
        padded[coefIndex[p] - 1] += static_cast<double>(coefValue[p]) * factor;
    }
}

void rowsTimesPadded(const SparseRows& rows, std::span<const double> padded, std::span<double> out) {
    for (std::size_t r = 0; r + 1 < rows.rowOffset.size(); ++r) {
        const RowPlace row = placeOfRow(rows, r);
        out[r] = rowTimesPadded(rows.coefIndex + row.first, rows.coefValue + row.first, row.count, padded.data());
    }
}

void addRowsTransposed(const SparseRows& rows, std::span<const double> factor, std::span<double> padded) {
    for (std::size_t r = 0; r + 1 < rows.rowOffset.size(); ++r) {
        const RowPlace row = placeOfRow(rows, r);
        addRowTransposed(rows.coefIndex + row.first, rows.coefValue + row.first, row.count, factor[r], padded.data());
    }
}

}  // namespace voxlith
