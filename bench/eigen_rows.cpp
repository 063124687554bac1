#include "eigen_rows.h"

#include <Eigen/SparseCore>

namespace voxlith {

namespace {

using Vector = Eigen::Map<Eigen::VectorXd>;
using ConstVector = Eigen::Map<const Eigen::VectorXd>;

ConstVector vectorOf(std::span<const double> values) {
    return {values.data(), static_cast<Eigen::Index>(values.size())};
}
Vector vectorOf(std::span<double> values) {
    return {values.data(), static_cast<Eigen::Index>(values.size())};
}

}  // namespace

struct EigenRows {
    Eigen::SparseMatrix<double, Eigen::RowMajor, std::int32_t> rows;
};

std::shared_ptr<EigenRows> makeEigenRows(std::size_t columns, std::span<const std::int64_t> offset,
                                         std::span<const std::int32_t> index, std::span<const float> value) {
    auto matrix = std::make_shared<EigenRows>();
    auto& rows = matrix->rows;
    rows.resize(static_cast<Eigen::Index>(offset.size() - 1), static_cast<Eigen::Index>(columns));
    rows.resizeNonZeros(static_cast<Eigen::Index>(index.size()));
    for (std::size_t r = 0; r < offset.size(); ++r) {
        rows.outerIndexPtr()[r] = static_cast<std::int32_t>(offset[r]);
    }
    for (std::size_t p = 0; p < index.size(); ++p) {
        rows.innerIndexPtr()[p] = index[p];
        rows.valuePtr()[p] = static_cast<double>(value[p]);
    }
    return matrix;
}

void multiplyByEigen(const EigenRows& matrix, std::span<const double> in, std::span<double> out) {
    vectorOf(out).noalias() = matrix.rows * vectorOf(in);
}

void multiplyTransposedByEigen(const EigenRows& matrix, std::span<const double> in, std::span<double> out) {
    vectorOf(out).noalias() = matrix.rows.transpose() * vectorOf(in);
}

}  // namespace voxlith
